#include "coverage/idle.h"

#include <strings.h>

#include <algorithm>
#include <functional>
#include <stdexcept>

#include <android-base/strings.h>

#include "TesvoExtensionProperty/names.h"
#include "TesvoExtensionProperty/partitions.h"
#include "coverage/space.h"
#include "coverage/survey.h"
#include "device/device_tree.h"
#include "device/property_text.h"
#include "nearest.h"
#include "printable.h"

namespace extprop {

namespace {

constexpr size_t kNearValue = 2;
constexpr size_t kNearPath = 3;

// Returns whether the property may only repeat the value of a what-if option.
bool IsOfAxis(const std::string& name) {
    using namespace android::init;
    const auto& keys = SwitchKeys();
    return name == kBrand || name == kRegion || name == kSimSwitchConvert ||
           std::any_of(keys.begin(), keys.end(),
                       [&](const SwitchKey& key) { return name == key.property; });
}

// Returns whether the properties are the same, except those that only repeat the option's own
// value.
bool IsIdle(const PropertyMap& with, const PropertyMap& without, const std::string& own) {
    PropertyMap names = with;
    names.insert(without.begin(), without.end());
    return std::all_of(names.begin(), names.end(), [&](const auto& property) {
        const auto one = ValueIn(with, property.first);
        return one == ValueIn(without, property.first) || (one == own && IsOfAxis(property.first));
    });
}

// Returns the values of the axis for which the device has something; of the brand, all brands.
std::vector<std::string> KnownValues(int axis, const VariantSpace& space) {
    if (axis != kBrandAxis) return {space.values[axis].begin(), space.values[axis].end()};
    std::vector<std::string> brands;
    for (const auto& brand : android::init::kBrands) brands.emplace_back(brand.name);
    return brands;
}

std::string UnknownValueText(int axis, const std::string& value,
                             const std::vector<std::string>& known) {
    const std::string text = axis == kBrandAxis ? "the library knows no brand " + Quoted(value)
                                                : NoValueText(axis, value);
    return text + SuggestionOf(value, known, std::min(kNearValue, value.size() / 2));
}

class IdleFinder {
  public:
    IdleFinder(PreparedDevice* device, const BootOptions& options, const PropertyMap& properties)
            : device_(device), options_(options), properties_(properties) {
        options_.plan.detail = Detail::kNothing;
        options_.plan.traced = nullptr;
    }

    std::vector<std::string> Find() {
        for (int axis = 0; axis < kAxisCount; ++axis) {
            if (options_.what_if.variant[axis]) LookAt(axis, *options_.what_if.variant[axis]);
        }
        for (size_t i = 0; i < options_.what_if.edits.size(); ++i) LookAtEdit(i);
        device_->Reset(options_);
        return std::move(notes_);
    }

  private:
    // Boots with the options as `take_away` changes them. Returns whether that makes no difference.
    bool IsIdleBut(const std::string& own, const std::function<void(WhatIf*)>& take_away) {
        BootOptions options = options_;
        take_away(&options.what_if);
        device_->Reset(options);
        const Report report = device_->Boot();
        return !report.failure && IsIdle(properties_, report.properties, own);
    }

    void LookAt(int axis, const std::string& value) {
        const bool is_idle =
                IsIdleBut(value, [&](WhatIf* what_if) { what_if->variant[axis].reset(); });
        const std::vector<std::string> known =
                KnownValues(axis, FindVariantSpace(device_->root(), options_.time_limit));
        const bool is_known = std::any_of(known.begin(), known.end(), [&](const std::string& each) {
            return axis == kBrandAxis ? strcasecmp(each.c_str(), value.c_str()) == 0
                                      : each == value;
        });
        if (!is_idle && (is_known || axis >= kNvAxis)) return;
        std::string note = std::string("--") + kAxes[axis].name + " " + value;
        if (is_idle) note += " changes nothing in this boot";
        if (!is_known) note += ": " + UnknownValueText(axis, value, known);
        notes_.push_back(note);
    }

    void LookAtEdit(size_t number) {
        const Edit& edit = options_.what_if.edits[number];
        if (!IsIdleBut("", [&](WhatIf* what_if) {
                what_if->edits.erase(what_if->edits.begin() + static_cast<ptrdiff_t>(number));
            })) {
            return;
        }
        std::string note = EditWords(edit) + " changes nothing in this boot";
        FoundFile place;
        if (!DeviceTree(device_->root().view()).Find(edit.path, true, &place)) {
            note += ": the device has no such file";
            std::vector<std::string> paths;
            const auto none = [](const std::string&) { return false; };
            for (const SurveyedFile& file :
                 TakeSurvey(device_->root(), none, options_.time_limit).files) {
                paths.push_back(file.path);
            }
            note += Suggestion(Nearest(edit.path, paths, kNearPath));
        }
        notes_.push_back(note);
    }

    PreparedDevice* device_;
    BootOptions options_;
    const PropertyMap& properties_;
    std::vector<std::string> notes_;
};

}  // namespace

void NoteIdleWhatIfs(PreparedDevice* device, const BootOptions& options, Report* report) {
    if (report->failure) return;
    if (options.what_if.variant == Variant() && options.what_if.edits.empty()) return;
    try {
        for (std::string& note : IdleFinder(device, options, report->properties).Find()) {
            report->notes.push_back(std::move(note));
        }
    } catch (const std::runtime_error&) {
        // The library crashed or hung on a file, which the boot itself has reported.
    }
}

}  // namespace extprop
