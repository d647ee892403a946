#include "explain/diff.h"

namespace extprop {

namespace {

std::optional<DifferenceSide> Side(const Report& report, const Tracer& tracer,
                                   const std::string& name) {
    auto value = report.properties.find(name);
    if (value == report.properties.end()) return std::nullopt;
    DifferenceSide side{value->second, std::nullopt};
    // A step that failed may have replaced a value that the report still has.
    const Origin* winner = tracer.Winner(name);
    if (winner != nullptr && winner->value == side.value) side.origin = *winner;
    return side;
}

}  // namespace

Difference Diff(const Report& a, const Tracer& traced_a, const Report& b, const Tracer& traced_b) {
    PropertyMap names = a.properties;
    names.insert(b.properties.begin(), b.properties.end());
    Difference difference;
    for (const auto& [name, value] : names) {
        DifferentProperty property{name, Side(a, traced_a, name), Side(b, traced_b, name)};
        if (!property.a) {
            difference.added.push_back(std::move(property));
        } else if (!property.b) {
            difference.removed.push_back(std::move(property));
        } else if (property.a->value != property.b->value) {
            difference.changed.push_back(std::move(property));
        }
    }
    return difference;
}

}  // namespace extprop
