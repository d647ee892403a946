// The JSON fields of summaries and outcomes, as json/fields.h writes and reads them. Read() throws
// as there, and InputError for an unknown axis; it checks no index of a variant and no origin. Of
// an Outcome it takes only what Write() made.

#pragma once

#include <memory>
#include <utility>

#include "boot/delta_fields.h"
#include "boot/report_fields.h"
#include "matrix/lines.h"

namespace extprop {

template <>
struct Json<OriginDocument> {
    static json Write(const OriginDocument& origin) { return origin ? *origin : json(); }
    static void Read(json& document, OriginDocument* origin) {
        if (!document.is_null()) *origin = std::make_shared<json>(std::move(document));
    }
};

template <typename Fields>
void Visit(Fields& fields, Outcome& outcome) {
    fields("delta", static_cast<PropertyDelta&>(outcome))("failure", outcome.failure)(
            "seconds", outcome.seconds);
}

template <typename Fields>
void Visit(Fields& fields, VariantLine& line) {
    fields("variant", line.variant)("properties", line.properties)("failure", line.failure);
}

template <typename Fields>
void Visit(Fields& fields, SummaryVariant& variant) {
    fields("variant", variant.variant)("words", variant.words)("failure", variant.failure);
}

template <typename Fields>
void Visit(Fields& fields, SummaryValue& value) {
    fields("value", value.value)("variants", value.variants)("origin", value.origin);
}

template <typename Fields>
void Visit(Fields& fields, SummaryProperty& property) {
    fields("name", property.name)("values", property.values);
}

template <typename Fields>
void Visit(Fields& fields, DeadPlace& place) {
    fields("path", place.path)("reason", place.reason);
}

template <typename Fields>
void Visit(Fields& fields, Shard& shard) {
    fields("number", shard.number)("count", shard.count);
}

template <typename Fields>
void Visit(Fields& fields, Summary& summary) {
    fields("device", summary.device)("variants", summary.variants)(
            "properties", summary.properties)("dead", summary.dead)("shard", summary.shard)(
            "same", summary.same);
}

}  // namespace extprop
