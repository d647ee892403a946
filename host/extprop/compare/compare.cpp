#include "compare/compare.h"

#include <algorithm>

#include "compare/system_files.h"
#include "device/legal.h"
#include "device/property_text.h"

namespace extprop {

namespace {

// Returns whether the line did not load and is of a file that the system may load.
bool IsSystemLine(const Origin& origin) {
    return origin.kind == OriginKind::kFile && origin.did_not_load() &&
           IsSystemsOwn(origin.own_file());
}

bool IsLibraryLine(const Origin& origin) {
    return origin.kind == OriginKind::kFile && !IsSystemLine(origin);
}

// Returns whether a property that only the phone has is the library's. `origins` are its lines in
// the device, `phone` is its value. It is not if a file of the system's own has that value.
bool IsLibrarys(const std::vector<Origin>& origins, const std::string& phone) {
    return std::any_of(origins.begin(), origins.end(), IsLibraryLine) &&
           std::none_of(origins.begin(), origins.end(), [&](const Origin& origin) {
               return IsSystemLine(origin) && origin.value == phone;
           });
}

const Origin* WinnerOf(const std::vector<Origin>& origins) {
    for (const Origin& origin : origins) {
        if (origin.fate == Fate::kWins) return &origin;
    }
    return nullptr;
}

// Returns whether the property is a region or switch key, which the library uses even if no file
// has it.
bool IsRegionOrKey(const std::string& name) {
    for (int axis = kRegionAxis; axis < kAxisCount; ++axis) {
        if (PropertyOf(axis) != nullptr && name == PropertyOf(axis)) return true;
    }
    return false;
}

// Returns all properties that the options set, by name.
PropertyMap GivenBy(const BootOptions& options) {
    PropertyMap given = options.plan.properties;
    for (int axis = 0; axis < kAxisCount; ++axis) {
        const auto& value = options.what_if.variant[axis];
        if (value && PropertyOf(axis) != nullptr) given[PropertyOf(axis)] = *value;
    }
    for (const Edit& edit : options.what_if.edits) {
        if (edit.value) given[edit.name] = *edit.value;
    }
    return given;
}

// Sorts the properties into the lists of the comparison.
class Comparer {
  public:
    Comparer(const Phone& phone, const std::vector<std::string>& patterns, Comparison* comparison)
            : phone_(phone), patterns_(patterns), comparison_(*comparison) {}

    // Returns whether a line that did not load is reported with what loads it.
    bool IsAsked(const ExplainedProperty& property, const Origin& line) const {
        const auto phone = ValueIn(phone_.properties, property.name);
        return phone && property.value != phone && IsCompared(property.name) &&
               IsLibraryLine(line) &&
               (property.value ? line.value == *phone : IsLibrarys(property.origins, *phone));
    }

    void AddAll(const PropertyMap& device, const Explanation& explanation) {
        std::map<std::string, const std::vector<Origin>*> origins;
        for (const ExplainedProperty& property : explanation.properties) {
            origins[property.name] = &property.origins;
        }
        PropertyMap all = device;
        all.insert(phone_.properties.begin(), phone_.properties.end());
        std::vector<std::string> names;
        for (const auto& [name, value] : all) {
            if (!IsCompared(name)) continue;
            names.push_back(name);
            static const std::vector<Origin> none;
            const auto known = origins.find(name);
            Add({name, ValueIn(device, name), ValueIn(phone_.properties, name), std::nullopt, {}},
                known == origins.end() ? none : *known->second);
        }
        comparison_.unknown = Unmatched(patterns_, names);
    }

  private:
    bool IsCompared(const std::string& name) const {
        return (!phone_.only_persistent || IsPersistent(name)) && Matches(name, patterns_);
    }

    void Add(ComparedProperty property, const std::vector<Origin>& origins) {
        const std::optional<std::string>& phone = property.phone;
        const Origin* winner = WinnerOf(origins);
        if (property.device && winner != nullptr) property.origin = *winner;
        if (property.device == phone) {
            const bool is_given = comparison_.given.count(property.name) != 0;
            if (!is_given) comparison_.same[property.name] = *phone;
        } else if (!phone) {
            const bool is_given = winner != nullptr && winner->kind == OriginKind::kGiven;
            if (!is_given) comparison_.only_device.push_back(std::move(property));
        } else if (property.device) {
            AddLines(
                    origins, [&](const Origin& origin) { return origin.value == *phone; },
                    &property);
            comparison_.differs.push_back(std::move(property));
        } else if (IsRegionOrKey(property.name) || IsLibrarys(origins, *phone)) {
            AddLines(
                    origins, [](const Origin&) { return true; }, &property);
            comparison_.only_phone.push_back(std::move(property));
        } else {
            AddOther(property.name, *phone, origins);
        }
    }

    template <typename IsWanted>
    static void AddLines(const std::vector<Origin>& origins, const IsWanted& is_wanted,
                         ComparedProperty* property) {
        for (const Origin& origin : origins) {
            if (origin.kind != OriginKind::kFile || !is_wanted(origin)) continue;
            property->phone_lines.push_back({origin, IsSystemLine(origin)});
        }
    }

    void AddOther(const std::string& name, const std::string& value,
                  const std::vector<Origin>& origins) {
        OtherProperty other{name, value, std::nullopt};
        for (const Origin& origin : origins) {
            if (!IsSystemLine(origin)) continue;
            // A line with the phone's value is preferred.
            if (!other.line || origin.value == value || other.line->value != value) {
                other.line = origin;
            }
        }
        comparison_.others.push_back(std::move(other));
    }

    const Phone& phone_;
    const std::vector<std::string>& patterns_;
    Comparison& comparison_;
};

}  // namespace

Comparison Compare(const BootOptions& options, const Phone& phone, const std::string& name,
                   const std::vector<std::string>& patterns, Report* report) {
    PreparedDevice device(options);
    PhoneVariant is = FindPhoneVariant(phone, options, &device);
    BootOptions own = options;
    Add(is.addition(), &own);
    own.plan.detail = Detail::kOrigins;
    device.Reset(own);

    Comparison comparison;
    Comparer comparer(phone, patterns, &comparison);
    const auto is_asked = [&](const ExplainedProperty& property, const Origin& line) {
        return comparer.IsAsked(property, line);
    };
    const Explanation explanation = Explain(&device, own, patterns, is_asked, report);
    report->notes.insert(report->notes.begin(), is.notes.begin(), is.notes.end());
    comparison.device = report->device;
    comparison.phone = name;
    comparison.missing = std::move(is.missing);
    comparison.words = WordsOf(is.addition(), options.uses_default_steps);
    comparison.given = GivenBy(own);
    comparison.failure = report->failure;
    if (!report->failure) comparer.AddAll(report->properties, explanation);
    return comparison;
}

}  // namespace extprop
