#include "compare/phone_variant.h"

#include <strings.h>

#include <algorithm>
#include <set>

#include "TesvoExtensionProperty/names.h"
#include "TesvoExtensionProperty/partitions.h"
#include "coverage/coverage.h"
#include "device/legal.h"
#include "device/places.h"

namespace extprop {

namespace {

using namespace android::init;

std::optional<std::string> ValueIn(const PropertyMap& properties, const std::string& name) {
    auto property = properties.find(name);
    if (property == properties.end()) return std::nullopt;
    return property->second;
}

class VariantFinder {
  public:
    VariantFinder(const Phone& phone, const BootOptions& options, PreparedDevice* device)
            : phone_(phone), options_(options), device_(device) {
        for (const auto& [name, value] : options.plan.properties) given_.insert(name);
        for (const Edit& edit : options.what_if.edits) given_.insert(edit.name);
        for (const auto& [name, value] : phone.properties) {
            if (!IsPersistent(name) || name == kChannelInfo || given_.count(name) != 0) continue;
            if (const auto reason = WhyRefused(name, value)) {
                found_.notes.push_back("the boot is not given the phone's '" + name +
                                       "', which no phone has: " + *reason);
            } else {
                persistent_[name] = value;
            }
        }
    }

    PhoneVariant Find() {
        const Survey survey = TakeSurvey(
                device_->root(),
                [&](const std::string& name) { return persistent_.count(name) != 0; },
                options_.time_limit);
        imports_ = ImportsOf(survey);
        space_ = FindVariantSpace(device_->root(), options_.time_limit);
        GiveWhatFilesHave(survey);
        PropertyMap properties = BootUntilAllIsGiven();
        FindBrand();
        Take(kRegionAxis, properties);
        // The keys' files may lie where brand and region lead.
        if (found_.variant != Variant()) properties = BootUntilAllIsGiven();
        const Variant roots = found_.variant;
        for (int axis = kFirstKeyAxis; axis < kAxisCount; ++axis) Take(axis, properties);
        GiveMissingChannel();
        if (persistent_.empty() && found_.stored.empty()) return std::move(found_);
        if (found_.variant != roots || found_.stored.count(kChannelInfo) != 0) {
            properties = BootUntilAllIsGiven();
        }
        GiveLessIfThatIsNearer(properties);
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
            if (IsSystems(file.own()) && imported.count(file.own()) == 0) continue;
            for (const LineRead& line : file.lines) Give(line.name);
        }
    }

    // Gives the boot the phone's persistent property. Returns whether that is new.
    bool Give(const std::string& name) {
        const auto property = persistent_.find(name);
        return property != persistent_.end() && found_.stored.insert(*property).second;
    }

    // Boots with what is found so far, again while the boot asks for more. Returns what it comes
    // to.
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
        // Most are as the phone has them, and need not be told. Those before a reboot count, too.
        const auto& steps = options.plan.steps;
        const bool is_one = std::none_of(steps.begin(), steps.end(),
                                         [](const Step& step) { return step.is_reboot(); });
        if (is_one) options.plan.base = &phone_.properties;
        device_->Reset(options);
        Report report = device_->Boot();
        if (record != nullptr) *record = std::move(report.record);
        if (!is_one || report.failure) return std::move(report.properties);
        PropertyMap properties = phone_.properties;
        for (const std::string& name : report.removed) properties.erase(name);
        for (auto& [name, value] : report.properties) properties[name] = std::move(value);
        return properties;
    }

    // Returns what the phone says, if that is to be taken.
    std::optional<std::string> Told(int axis) const {
        const std::string name = PropertyOf(axis);
        const auto told = ValueIn(phone_.properties, name);
        const bool is_given = options_.what_if.variant[axis] || given_.count(name) != 0;
        return is_given || !told || told->empty() ? std::nullopt : told;
    }

    // Takes what the phone says, if the device does not come to that by itself.
    void Take(int axis, const PropertyMap& device) {
        const auto told = Told(axis);
        if (!told) return;
        if (ValueIn(device, PropertyOf(axis)) != told) {
            if (space_.values[axis].count(*told) == 0) {
                found_.missing.push_back({axis, *told});
                return;
            }
            found_.variant[axis] = told;
        }
        found_.values[axis] = told;
    }

    // A brand is its code. Every device can be of any: one without a brand's directories has
    // nothing of it, and one without any brand's is the same for all.
    void FindBrand() {
        auto told = Told(kBrandAxis);
        if (!told || WhyNot(kBrandAxis, *told)) return;
        std::string code;
        for (const Brand& brand : kBrands) {
            if (strcasecmp(told->c_str(), brand.name) != 0) continue;
            code = brand.code;
            told = brand.name;
        }
        const bool matters = !space_.brand_code.empty() || !space_.values[kBrandAxis].empty();
        if (code != space_.brand_code && matters) found_.variant[kBrandAxis] = told;
        found_.values[kBrandAxis] = told;
    }

    // A channel without directories is a property like others that are stored.
    void GiveMissingChannel() {
        for (const MissingValue& missing : found_.missing) {
            if (PropertyOf(missing.axis) != std::string(kChannelInfo)) continue;
            if (!WhyRefused(kChannelInfo, missing.value)) {
                found_.stored[kChannelInfo] = missing.value;
            }
        }
    }

    // A boot of the device itself may have given the phone its persistent properties, such as the
    // first: then they were not there before, and the boot does what it does only then. Takes that
    // for so if the phone is nearer to it than to `properties`, the boot with all of them.
    void GiveLessIfThatIsNearer(const PropertyMap& properties) {
        PropertyMap all = std::exchange(found_.stored, {});
        if (all.empty() || Misses(properties, properties) == 0) return found_.stored.swap(all);
        const PropertyMap first = Boot();
        for (const auto& [name, value] : all) {
            if (ValueIn(first, name) != value) found_.stored[name] = value;
        }
        if (found_.stored.size() == all.size()) return;
        const PropertyMap less = found_.stored.empty() ? first : Boot();
        if (Misses(less, properties) >= Misses(properties, less)) found_.stored.swap(all);
    }

    // Counts the properties, of those that a boot or the other has, that the phone has not as the
    // boot has them.
    size_t Misses(const PropertyMap& boot, PropertyMap other) const {
        other.insert(boot.begin(), boot.end());
        return std::count_if(other.begin(), other.end(), [&](const auto& property) {
            const std::string& name = property.first;
            if (phone_.only_persistent && !IsPersistent(name)) return false;
            return ValueIn(boot, name) != ValueIn(phone_.properties, name);
        });
    }

    const Phone& phone_;
    const BootOptions& options_;
    PreparedDevice* device_;
    std::set<std::string> given_;  // by the options
    PropertyMap persistent_;       // the phone's, those that may be given to a boot
    DeviceImports imports_;
    const std::set<std::string> watched_;
    VariantSpace space_;
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
    return std::string("the device has no ") + kAxes[missing.axis].name + " '" + missing.value +
           "'";
}

}  // namespace extprop
