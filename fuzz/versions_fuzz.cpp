// The version strings for any version names, against fields split at once.

#include <android-base/strings.h>

#include "device.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto parts = fuzz::Parts(data, size, 5);
    auto part = parts.begin();
    fuzz::Clear();
    constexpr char kDisplay[] = "ro.tesvo.customize.display.version_name";
    // As a property can be read: as far as a zero byte, and 91 bytes of it.
    const auto take = [&part](const char* name) {
        const std::string value = std::string((part++)->c_str()).substr(0, 91);
        platform::StoreProperty(name, value);
        return value;
    };
    const std::string suffix = take("ro.vendor.tesvo.version_suffix");
    const std::string id = take("ro.build.display.id");
    const std::string carrier = take("ro.tesvo.image.my_carrier.version_name");
    const std::string package = take("ro.build.cota.version_name");
    const std::string display = take(kDisplay);

    const auto tail = [](const std::string& name) {
        const size_t dash = name.rfind('-');
        return dash + 1 > 1 ? name.substr(dash + 1) : name;
    };
    std::vector<fuzz::PropertyMap> expected;
    const size_t underscore = id.find('_');
    if (!suffix.empty() && underscore + 1 > 1) {
        expected.push_back({{"ro.vendor.tesvo.exp.version",
                             id.substr(0, underscore) + suffix + id.substr(underscore)}});
    }
    if (display.empty() && !tail(carrier).empty()) expected.push_back({{kDisplay, tail(carrier)}});
    android::init::loadSpecialProperties(fuzz::Callback);
    fuzz::Expect(fuzz::TakeCalls() == expected, "the special versions");

    platform::StoreProperty(kDisplay, display);
    std::string version = tail(carrier.empty() ? display : carrier);
    if (carrier.empty()) version = display;
    // The last field is the number, the one before it the kind, the one before that the system's.
    std::vector<std::string> fields = android::base::Split(package, "_");
    // What begins the name is no field of its own when it is empty.
    if (fields.size() > 1 && fields[0].empty()) {
        fields[1] = "_" + fields[1];
        fields.erase(fields.begin());
    }
    if (fields.size() > 1 && !version.empty() && !display.empty()) {
        std::string number = fields.back();
        while (number.size() < 3) number = "0" + number;
        const std::string kind =
                fields.size() > 2 && fields[fields.size() - 2] == "COTA" ? "CT" : "P";
        const std::string android = fields.size() > 3 ? fields[fields.size() - 3] : "T";
        if (!android.empty()) {
            if (android::base::EndsWith(version, "PM") || android::base::EndsWith(version, "CT")) {
                version = version.substr(0, version.size() - 2) + kind;
            }
            version += "_" + android + number;
        }
    }
    expected.clear();
    if (!display.empty() && !version.empty()) expected.push_back({{kDisplay, version}});
    android::init::loadCustomizeDisplayVersionName(fuzz::Callback);
    fuzz::Expect(fuzz::TakeCalls() == expected, "the display version");
    return 0;
}
