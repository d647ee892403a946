// A property delta between processes: as texts, which take less to read than documents.

#pragma once

#include <stdlib.h>

#include <stdexcept>
#include <string>
#include <utility>

#include "boot/property_delta.h"
#include "json/fields.h"

namespace extprop {

// The changed properties are one text: of each the lengths of name and value in bytes, then both.
// Read() is only for what Write() made: of anything else it makes wrong properties, or throws
// json::exception or std::out_of_range.
template <>
struct Json<PropertyDelta> {
    static json Write(const PropertyDelta& delta) {
        std::string text;
        for (const auto& [name, value] : delta.changed) {
            text += std::to_string(name.size()) + " " + std::to_string(value.size()) + " ";
            text += name;
            text += value;
        }
        return {std::move(text), delta.removed};
    }

    static void Read(json& document, PropertyDelta* delta) {
        const auto& text = document.at(0).get_ref<const std::string&>();
        for (size_t at = 0; at < text.size();) {
            char* next = nullptr;
            const size_t name = strtoul(text.c_str() + at, &next, 10);
            const size_t value = strtoul(next, &next, 10);
            at = next + 1 - text.c_str();
            if (at > text.size() || name > text.size() - at || value > text.size() - at - name) {
                throw std::out_of_range("a property delta is cut off");
            }
            delta->changed.emplace_hint(delta->changed.end(), text.substr(at, name),
                                        text.substr(at + name, value));
            at += name + value;
        }
        document.at(1).get_to(delta->removed);
    }
};

}  // namespace extprop
