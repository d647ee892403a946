#include "json/text.h"

#include <nlohmann/json.hpp>

#include "budget.h"
#include "input_error.h"
#include "printable.h"

namespace extprop {

using nlohmann::json;

std::string JsonLine(const json& document) {
    return PrintableJson(document.dump(-1, ' ', false, json::error_handler_t::replace));
}

std::string JsonText(const json& document) {
    return PrintableJson(document.dump(2, ' ', false, json::error_handler_t::replace)) + "\n";
}

void CheckShape(const std::string& json, const std::string& place) {
    size_t depth = 0;
    size_t values = 1;
    bool in_string = false;
    for (size_t at = 0; at < json.size(); ++at) {
        const char c = json[at];
        if (c == '"') {
            in_string = !in_string;
        } else if (in_string) {
            if (c == '\\') ++at;
        } else if (c == '[' || c == '{') {
            ++values;
            ++depth;
        } else if (c == ']' || c == '}') {
            depth -= depth > 0 ? 1 : 0;
        } else if (c == ',') {
            ++values;
        }
        if (depth > limits::kJsonDepth) {
            throw InputError(place + "this is nested more than " +
                             std::to_string(limits::kJsonDepth) +
                             " levels deep, which is the limit");
        }
        if (values > limits::kJsonValues) {
            throw InputError(place + "this has more than " + std::to_string(limits::kJsonValues) +
                             " values, which is the limit");
        }
    }
}

}  // namespace extprop
