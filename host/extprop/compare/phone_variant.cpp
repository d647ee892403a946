#include "compare/phone_variant.h"

#include <strings.h>

#include <algorithm>
#include <set>

#include "TesvoExtensionProperty/names.h"
#include "TesvoExtensionProperty/partitions.h"
#include "compare/system_files.h"
#include "coverage/coverage.h"
#include "device/legal.h"
#include "device/property_text.h"
#include "printable.h"

namespace extprop {

namespace {

using namespace android::init;

class VariantFinder {
  public:
    VariantFinder(const Phone& phone, const BootOptions& options, PreparedDevice* device)
            : phone_(phone), options_(options), device_(device) {
        for (const auto& [name, value] : options.plan.properties) given_.insert(name);
        for (const Edit& edit : options.what_if.edits) given_.insert(edit.name);
        std::vector<std::string> refused;
        for (const auto& [name, value] : phone.properties) {
            if (!IsPersistent(name) || name == kChannelInfo || given_.count(name) != 0) continue;
            if (const auto reason = WhyRefused(name, value)) {
                refused.push_back(QuotedShort(name) + ": " + *reason);
            } else {
                persistent_[name] = value;
            }
        }
        if (refused.empty()) return;
        found_.notes.push_back(Count(refused.size(),
                                     "persistent property that no phone can have is",
                                     "persistent properties that no phone can have are") +
                               " not given to the boot, such as " + refused.front());
    }

    PhoneVariant Find() {
        const Survey survey = TakeSurvey(
                device_->root(),
                [&](const std::string& name) { return phone_.properties.count(name) != 0; },
                options_.time_limit);
        imports_ = ImportsOf(survey);
        space_ = FindVariantSpace(device_->root(), options_.time_limit);
        GiveWhatFilesHave(survey);
        PropertyMap properties = BootUntilAllIsGiven();
        FindBrand(properties);
        FindRegion(properties);
        // Brand and region may lead to the keys' files.
        if (found_.variant != Variant()) properties = BootUntilAllIsGiven();
        const Variant roots = found_.variant;
        for (int axis = kFirstKeyAxis; axis < kAxisCount; ++axis) Take(axis, properties);
        GiveMissingChannel();
        const bool has_stored = !persistent_.empty() || !found_.stored.empty();
        if (unreported_.empty() && !has_stored) return std::move(found_);
        if (found_.variant != roots || found_.stored.count(kChannelInfo) != 0) {
            properties = BootUntilAllIsGiven();
        }
        const PropertyMap all = found_.stored;
        GiveFewerIfNearer(&properties);
        if (TakeNearestValues(&properties)) {
            found_.stored = all;
            properties = BootUntilAllIsGiven();
            GiveFewerIfNearer(&properties);
        }
        return std::move(found_);
    }

  private:
    void GiveWhatFilesHave(const Survey& survey) {
        std::set<std::string> imported;
        for (const SurveyedFile& file : survey.files) {
            for (const SurveyedImport& import : file.imports) {
                for (const std::string& name : References(import.name)) Give(name);
                for (const auto& [path, own] : import.targets) imported.insert(own);
            }
        }
        for (const SurveyedFile& file : survey.files) {
            if (IsSystemsOwn(file.own()) && imported.count(file.own()) == 0) continue;
            for (const LineRead& line : file.lines) {
                Give(line.name);
                in_files_.emplace(line.name, "");
            }
        }
    }

    // Gives the boot the phone's persistent property. Returns whether it was not given before.
    bool Give(const std::string& name) {
        const auto property = persistent_.find(name);
        return property != persistent_.end() && found_.stored.insert(*property).second;
    }

    // Boots with what is found so far, and again while the boot reads or sets further persistent
    // properties of the phone. Returns the properties at the end.
    PropertyMap BootUntilAllIsGiven() {
        while (true) {
            BootRecord record;
            PropertyMap properties = Boot(&record);
            bool is_new = false;
            for (const std::string& name : record.asked) is_new |= Give(name);
            for (const auto& [name, value] : properties) is_new |= Give(name);
            if (!is_new) return properties;
        }
    }

    PropertyMap Boot(BootRecord* record = nullptr) {
        BootOptions options = options_;
        Add(found_.addition(), &options);
        options.plan.detail = Detail::kNothing;
        options.plan.imports = &imports_;
        options.plan.watched = &watched_;
        // Only differences from the phone are reported, which are few. With reboots the properties
        // before them are needed, too.
        const auto& steps = options.plan.steps;
        const bool is_one = std::none_of(steps.begin(), steps.end(),
                                         [](const Step& step) { return step.is_reboot(); });
        if (is_one) options.plan.expected = &expected_;
        device_->Reset(options);
        Report report = device_->Boot();
        if (record != nullptr) *record = std::move(report.record);
        has_failed_ |= report.failure.has_value();
        if (!is_one || report.failure) return std::move(report.properties);
        PropertyMap properties = phone_.properties;
        for (const std::string& name : report.removed) properties.erase(name);
        for (auto& [name, value] : report.properties) properties[name] = std::move(value);
        return properties;
    }

    // Returns the phone's value of the axis, unless the options set it.
    std::optional<std::string> Reported(int axis) const {
        const std::string name = PropertyOf(axis);
        const auto reported = ValueIn(phone_.properties, name);
        const bool is_given = options_.what_if.variant[axis] || given_.count(name) != 0;
        return is_given || !reported || reported->empty() ? std::nullopt : reported;
    }

    // Takes the phone's value of the axis into the variant if the device as it is has another.
    void Take(int axis, const PropertyMap& device) {
        const auto reported = Reported(axis);
        if (!reported) return;
        if (ValueIn(device, PropertyOf(axis)) != reported) {
            if (space_.values[axis].count(*reported) == 0) {
                found_.missing.push_back({axis, *reported});
                return;
            }
            found_.variant[axis] = reported;
        }
        found_.values[axis] = reported;
    }

    // Returns whether the axis is undecided: it has values, and the options set none.
    bool IsOpen(int axis) const {
        return !space_.values[axis].empty() && !phone_.only_persistent &&
               !options_.what_if.variant[axis] && given_.count(PropertyOf(axis)) == 0;
    }

    // Finds the region. If a file other than the region's sets the property for every phone, its
    // value does not show the region.
    void FindRegion(const PropertyMap& device) {
        const auto own = ValueIn(device, kRegion);
        const auto reported = Reported(kRegionAxis);
        const bool is_unknown = !reported || (reported == own && *own != space_.region);
        if (is_unknown && IsOpen(kRegionAxis)) unreported_.insert(kRegionAxis);
        Take(kRegionAxis, device);
    }

    // Finds the brand, of which only the code has an effect. A device can be of any brand, even one
    // for which it has no directories. If it has directories for no brand, all brands have the same
    // effect.
    void FindBrand(const PropertyMap& device) {
        auto reported = Reported(kBrandAxis);
        if (!reported || reported == ValueIn(device, kBrand) ||
            WhyImpossible(kBrandAxis, *reported)) {
            if (IsOpen(kBrandAxis)) unreported_.insert(kBrandAxis);
            return;
        }
        std::string code;
        for (const Brand& brand : kBrands) {
            if (strcasecmp(reported->c_str(), brand.name) != 0) continue;
            code = brand.code;
            reported = brand.name;
        }
        const bool matters = !space_.brand_code.empty() || !space_.values[kBrandAxis].empty();
        if (code != space_.brand_code && matters) found_.variant[kBrandAxis] = reported;
        found_.values[kBrandAxis] = reported;
    }

    // Gives the boot a channel without directories as a stored property like any other.
    void GiveMissingChannel() {
        for (const MissingValue& missing : found_.missing) {
            if (PropertyOf(missing.axis) != std::string(kChannelInfo)) continue;
            if (!WhyRefused(kChannelInfo, missing.value)) {
                found_.stored[kChannelInfo] = missing.value;
            }
        }
    }

    // The phone's last boot, if it was the first one, may itself have set persistent properties.
    // Then these were unset before it, and the library may have done what it does only where they
    // are unset. Assumes this if a boot without such properties is nearer to the phone than
    // `*properties`, the result of the boot with all of them.
    void GiveFewerIfNearer(PropertyMap* properties) {
        PropertyMap all = std::exchange(found_.stored, {});
        if (all.empty() || Misses(*properties, *properties) == 0) return found_.stored.swap(all);
        const PropertyMap first = Boot();
        for (const auto& [name, value] : all) {
            if (ValueIn(first, name) != value) found_.stored[name] = value;
        }
        if (found_.stored.size() == all.size()) return;
        PropertyMap less = found_.stored.empty() ? first : Boot();
        if (!TakeIfNearer(std::move(less), properties)) found_.stored.swap(all);
    }

    // For axes that the phone does not report, takes the value whose boot is nearest to the phone.
    // Returns whether that is another than the device's own.
    bool TakeNearestValues(PropertyMap* properties) {
        constexpr size_t kMostTried = 64;
        bool is_other = false;
        for (const int axis : unreported_) {
            size_t left = kMostTried;
            for (const std::string& value : space_.values[axis]) {
                if (Misses(*properties, *properties) == 0 || has_failed_ || left-- == 0) break;
                const auto before = std::exchange(found_.variant[axis], value);
                if (TakeIfNearer(Boot(), properties)) {
                    found_.values[axis] = value;
                    is_other = true;
                } else {
                    found_.variant[axis] = before;
                }
            }
        }
        return is_other;
    }

    // Replaces `*properties` by the other boot's if the phone is nearer to them. Returns whether it
    // did.
    bool TakeIfNearer(PropertyMap other, PropertyMap* properties) const {
        if (Misses(other, *properties) >= Misses(*properties, other)) return false;
        *properties = std::move(other);
        return true;
    }

    // Counts the properties in which the phone differs from the boot, among those of the boot, of
    // `all` and of the device's files.
    size_t Misses(const PropertyMap& boot, PropertyMap all) const {
        all.insert(boot.begin(), boot.end());
        all.insert(in_files_.begin(), in_files_.end());
        return std::count_if(all.begin(), all.end(), [&](const auto& property) {
            const std::string& name = property.first;
            if (phone_.only_persistent && !IsPersistent(name)) return false;
            return ValueIn(boot, name) != ValueIn(phone_.properties, name);
        });
    }

    const Phone& phone_;
    const platform::ExpectedProperties expected_ = Expect(phone_.properties);
    const BootOptions& options_;
    PreparedDevice* device_;
    std::set<std::string> given_;  // names that the options set
    PropertyMap persistent_;       // the phone's that may be given to a boot
    PropertyMap in_files_;         // the phone's that the library's files set
    DeviceImports imports_;
    const std::set<std::string> watched_;
    VariantSpace space_;
    std::set<int> unreported_;  // axes that the phone does not report
    bool has_failed_ = false;
    PhoneVariant found_;
};

}  // namespace

const char* PropertyOf(int axis) {
    switch (axis) {
        case kBrandAxis:
            return kBrand;
        case kRegionAxis:
            return kRegion;
        case kNvAxis:
            return nullptr;
        default:
            return KeyOf(axis).property;
    }
}

PhoneVariant FindPhoneVariant(const Phone& phone, const BootOptions& options,
                              PreparedDevice* device) {
    return VariantFinder(phone, options, device).Find();
}

std::string MissingText(const MissingValue& missing) {
    return NoValueText(missing.axis, missing.value);
}

}  // namespace extprop
