// Reads the files and directories that users have from a phone; phone.cpp parses their content.

#include <map>
#include <optional>

#include <android-base/strings.h>

#include "budget.h"
#include "device/inside.h"
#include "device/legal.h"
#include "device/phone.h"
#include "device/phone_zip.h"
#include "input_error.h"
#include "named_file.h"

namespace extprop {

namespace {

using android::base::StartsWith;

// The store's file in init's directory, which then has no files of the older form.
constexpr char kStore[] = "persistent_properties";

Phone ReadFile(const std::string& path, const std::vector<std::string>& devices) {
    const std::string content = ReadInput(path, devices, limits::kPhone);
    constexpr std::string_view kZip = "PK\3\4";
    return PhoneOf(path, StartsWith(content, kZip) ? UnpackBugReport(path, content) : content);
}

Phone ReadDirectory(const std::string& path) {
    Phone phone;
    phone.only_persistent = true;
    for (const DirectoryEntry& entry : EntriesIn(path)) {
        const std::string file = path + "/" + entry.name;
        if (entry.name == kStore) return ReadFile(file, {path});
        if (StartsWith(entry.name, ".")) continue;  // one that init had not finished
        if (!IsPersistent(entry.name) || !IsRegular(file)) {
            throw InputError(path + ": '" + entry.name +
                             "' in it is not the file of a persistent property; a phone's "
                             "/data/property has no other files");
        }
        if (phone.properties.size() == limits::kPhoneFiles) {
            throw InputError(path + ": more than " + std::to_string(limits::kPhoneFiles) +
                             " files, which is the limit");
        }
        phone.properties[entry.name] = ReadInput(file, {path}, limits::kPhoneValue);
    }
    if (phone.properties.empty()) {
        throw InputError(
                path +
                ": there are no persistent properties in it; a phone's /data/property has some");
    }
    return phone;
}

}  // namespace

Phone ReadPhone(const std::string& named, const std::vector<std::string>& devices) {
    static std::map<int, Phone> read;  // from descriptors, which can be read only once
    const std::string path = named == "-" ? "/dev/stdin" : named;
    const std::optional<int> descriptor = OwnDescriptor(path);
    if (descriptor && read.count(*descriptor) != 0) return read[*descriptor];
    Phone phone = IsInputDirectory(path, devices) ? ReadDirectory(path) : ReadFile(path, devices);
    if (phone.properties.size() > limits::kProperties) {
        throw InputError(path + ": more than " + std::to_string(limits::kProperties) +
                         " properties, which is the limit");
    }
    if (descriptor) read[*descriptor] = phone;
    return phone;
}

}  // namespace extprop
