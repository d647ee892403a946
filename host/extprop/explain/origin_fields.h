// The JSON fields of an origin, which depend on its kind and fate; docs/json.md lists them. Origins
// are only written, never read.

#pragma once

#include <string>
#include <utility>

#include "boot/report_fields.h"
#include "explain/explain.h"

namespace extprop {

template <>
struct Json<Origin> {
    static json Write(const Origin& origin) {
        constexpr const char* kKinds[] = {"given", "file", "operation", "request"};
        Writer fields;
        fields("kind", std::string(kKinds[static_cast<int>(origin.kind)]))("value", origin.value)(
                "fate", std::string(Name(origin.fate)));
        if (origin.boot && origin.fate != Fate::kNotLoaded) fields("boot", origin.boot);
        if (origin.step) fields("step", origin.step);
        if (origin.kind == OriginKind::kFile) {
            fields("file", origin.file)("line", origin.line)("source", origin.source)(
                    "image", origin.image)("imported_by", origin.imported_by)(
                    "filter", origin.filter)("written", origin.written);
        }
        if (origin.kind == OriginKind::kOperation || origin.fate == Fate::kLookedUp ||
            origin.fate == Fate::kNotHandedOn) {
            fields("operations", origin.operations);
        }
        if (!origin.inputs.empty()) fields("inputs", origin.inputs);
        if (!origin.changed_for.empty()) fields("changed_for", origin.changed_for);
        if (!origin.reason.empty()) fields("reason", origin.reason);
        if (origin.did_not_load()) fields("requires", origin.required)("tried", origin.tried);
        return std::move(fields.document);
    }
};

}  // namespace extprop
