#include "lint/lint.h"

#include <locale.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <tuple>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "TesvoExtensionProperty/cota.h"
#include "TesvoExtensionProperty/names.h"
#include "device_files.h"
#include "input_error.h"
#include "lint/rules.h"
#include "platform.h"
#include "sandbox.h"
#include "utils.h"

namespace extprop {

namespace {

using android::base::EndsWith;

constexpr Rule kUnreadable = {"unreadable", Severity::kError};
constexpr Rule kNotAFile = {"not-a-file", Severity::kWarning};
constexpr Rule kBinary = {"binary", Severity::kError};

// Far more than a property file holds, and little enough to be read.
constexpr off_t kMostBytes = 16 * 1024 * 1024;

// The system's encoding is UTF-8, on the phone always, here while this lives.
class Utf8Locale {
  public:
    Utf8Locale() : locale_(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)) {
        if (locale_ == locale_t()) throw std::runtime_error("the locale C.UTF-8 is missing");
        previous_ = uselocale(locale_);
    }
    ~Utf8Locale() {
        uselocale(previous_);
        freelocale(locale_);
    }
    Utf8Locale& operator=(Utf8Locale&&) = delete;

  private:
    locale_t locale_;
    locale_t previous_;
};

// Gives the process's properties back when the rules are done with them.
class PropertiesKept {
  public:
    PropertiesKept() : properties_(platform::AllProperties()) {}
    ~PropertiesKept() { platform::ResetProperties(std::move(properties_)); }
    PropertiesKept& operator=(PropertiesKept&&) = delete;

  private:
    platform::PropertyMap properties_;
};

std::optional<FileUse> KnownUse(const std::string& path) {
    using namespace android::init;
    static const std::map<std::string, FileUse> uses = {
            {kOldActionFile, FileUse::kKeyFile},
            {kReserveFirstFile, FileUse::kKeyFile},
            {kReserveCurrentFile, FileUse::kKeyFile},
            {kReserveRegionFile, FileUse::kKeyFile},
            {kConvertFile, FileUse::kProperties},
            {kReserveCommonFile, FileUse::kProperties},
            {kForceConnectFile, FileUse::kProperties},
            {kDataFirstFile, FileUse::kProperties},
            {kDataCurrentFile, FileUse::kProperties},
            {kDataRegionFile, FileUse::kProperties},
            {kFlashBackFile, FileUse::kProperties},
            {kCotaMountInfoFile, FileUse::kCotaMessage},
            {kCotaModuleInfoFile, FileUse::kCotaMessage},
    };
    if (auto use = uses.find(path); use != uses.end()) return use->second;
    if (EndsWith(path, "/etc/nvmap.prop") || EndsWith(path, "/etc/flags.prop")) {
        return FileUse::kMapping;
    }
    if (EndsWith(path, "/devicename.cfg")) return FileUse::kDeviceName;
    if (EndsWith(path, ".prop")) return FileUse::kProperties;
    return std::nullopt;
}

const char* SeverityName(Severity severity) {
    return severity == Severity::kError ? "error" : "warning";
}

// Keeps a finding on its line, and the terminal as it is, whatever the files hold.
std::string Printable(const std::string& text) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string printable;
    for (const unsigned char c : text) {
        if (c >= ' ' && c != 0x7f) {
            printable += static_cast<char>(c);
        } else {
            printable += {'\\', 'x', kDigits[c / 16], kDigits[c % 16]};
        }
    }
    return printable;
}

// Returns the device's files, or throws InputError if `device` is no directory that can be used.
sandbox::DeviceFiles FilesOf(const std::string& device) {
    std::error_code error;
    const auto path = std::filesystem::canonical(device, error);
    if (!error) std::filesystem::directory_iterator(path, error);
    if (error) throw InputError(device + ": " + error.message());
    return sandbox::DeviceFiles(path, sandbox::Options());
}

}  // namespace

void Report::Add(const Rule& rule, const std::string& path, int line, const std::string& message) {
    findings_.push_back({device_ + path, line, rule.severity, rule.identifier, message});
}

std::vector<Finding> Report::Take() {
    std::stable_sort(findings_.begin(), findings_.end(), [](const Finding& a, const Finding& b) {
        return std::tie(a.file, a.line) < std::tie(b.file, b.line);
    });
    return std::move(findings_);
}

std::string Quoted(std::string_view text) {
    constexpr size_t kShown = 60;
    if (text.size() <= kShown) return "'" + std::string(text) + "'";
    size_t end = kShown;
    while (end > 0 && (text[end] & 0xc0) == 0x80) --end;  // not within a character
    return "'" + std::string(text.substr(0, end)) + "...'";
}

void AddPropertyFile(const DeviceTree& tree, const Place& place, FileUse use, PropertyFiles* files,
                     Report* report) {
    auto [entry, added] = files->try_emplace(place.path);
    if (!added) return;
    PropertyFile& file = entry->second;
    file.path = place.path;
    file.use = use;
    if (place.is_link()) {
        report->Add(kSymbolicLink, file.path, 1,
                    "this is a symbolic link, which the loader refuses to open");
        return;
    }
    if (!place.is_file()) {
        report->Add(kNotAFile, file.path, 1, "this has a property file's name but is no file");
        return;
    }
    if (place.status.st_size > kMostBytes) {
        report->Add(kUnreadable, file.path, 1,
                    "this is larger than any property file and was not read; the loader would "
                    "take the whole of it into memory");
        return;
    }
    auto content = ReadFile(tree.Outside(file.path));
    if (!content.ok()) {
        report->Add(kUnreadable, file.path, 1, content.error().message());
        return;
    }
    if (const size_t zero = content->find('\0'); zero != std::string::npos) {
        const auto line = std::count(content->begin(), content->begin() + zero, '\n') + 1;
        report->Add(kBinary, file.path, static_cast<int>(line),
                    "a zero byte: this is no text file, and was not looked at further");
        return;
    }
    file.content = std::move(*content);
    // A look-up of single names knows no imports, as a load with a filter knows none.
    file.lines = PropertyLines(file.content, use == FileUse::kDeviceName);
}

std::vector<Finding> Lint(const std::string& device) {
    const sandbox::DeviceFiles device_files = FilesOf(device);
    const DeviceTree tree(device_files.view());
    const Utf8Locale utf8;
    const PropertiesKept kept;
    Report report(device.substr(0, device.find_last_not_of('/') + 1));

    std::vector<std::string> unreadable;
    const std::vector<Place> places = tree.All(&unreadable);
    for (const std::string& directory : unreadable) {
        report.Add(kUnreadable, directory, 1, "this directory cannot be read to its end");
    }
    CheckKeyDirectories(places, &report);
    CheckLogos(tree, places, &report);

    PropertyFiles files;
    for (const Place& place : places) {
        if (auto use = KnownUse(place.path)) AddPropertyFile(tree, place, *use, &files, &report);
    }
    CheckImports(tree, &files, &report);
    for (const auto& [path, file] : files) {
        CheckLines(file, &report);
        if (file.use == FileUse::kDeviceName) CheckDeviceName(file, &report);
    }
    return report.Take();
}

std::string FindingText(const Finding& finding) {
    return Printable(finding.file) + ":" + std::to_string(finding.line) + ": " +
           SeverityName(finding.severity) + ": " + Printable(finding.message) + " [" +
           finding.identifier + "]";
}

nlohmann::json FindingsJson(const std::vector<Finding>& findings) {
    nlohmann::json array = nlohmann::json::array();
    for (const Finding& finding : findings) {
        array.push_back({{"file", finding.file},
                         {"line", finding.line},
                         {"severity", SeverityName(finding.severity)},
                         {"identifier", finding.identifier},
                         {"message", finding.message}});
    }
    return array;
}

}  // namespace extprop
