#include "boot/property_delta.h"

namespace extprop {

PropertyDelta DeltaFrom(const PropertyMap& base, const PropertyMap& properties) {
    PropertyDelta delta;
    auto old = base.begin();
    for (const auto& property : properties) {
        for (; old != base.end() && old->first < property.first; ++old) {
            delta.removed.push_back(old->first);
        }
        const bool is_old = old != base.end() && old->first == property.first;
        if (!is_old || old->second != property.second) {
            delta.changed.insert(delta.changed.end(), property);
        }
        if (is_old) ++old;
    }
    for (; old != base.end(); ++old) delta.removed.push_back(old->first);
    return delta;
}

}  // namespace extprop
