#include "lint/lint.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <tuple>

#include <android-base/file.h>

#include "device/legal.h"
#include "device_files.h"
#include "input_error.h"
#include "lint/rules.h"
#include "output/printable.h"
#include "platform.h"
#include "sandbox.h"
#include "utils.h"

namespace extprop {

namespace {

constexpr Rule kUnreadable = {"unreadable", Severity::kError};
constexpr Rule kNotAFile = {"not-a-file", Severity::kWarning};
constexpr Rule kBinary = {"binary", Severity::kError};

// Far more than a property file holds, and little enough to be read.
constexpr off_t kMostBytes = 16 * 1024 * 1024;

// Gives the process's properties back when the rules are done with them.
class PropertiesKept {
  public:
    PropertiesKept() : properties_(platform::AllProperties()) {}
    ~PropertiesKept() { platform::ResetProperties(std::move(properties_)); }
    PropertiesKept& operator=(PropertiesKept&&) = delete;

  private:
    platform::PropertyMap properties_;
};

const char* SeverityName(Severity severity) {
    return severity == Severity::kError ? "error" : "warning";
}

// Returns the device's files, or throws InputError if `device` is no directory that can be used.
sandbox::DeviceFiles FilesOf(const std::string& device, char slot) {
    std::error_code error;
    const auto path = std::filesystem::canonical(device, error);
    if (!error) std::filesystem::directory_iterator(path, error);
    if (error) throw InputError(device + ": " + error.message());
    return sandbox::DeviceFiles(path, {sandbox::Way::kAny, slot});
}

}  // namespace

void Findings::Add(const Rule& rule, const std::string& path, int line,
                   const std::string& message) {
    findings_.push_back(
            {device_ + path, line, rule.severity, rule.identifier, message, files_.ImageOf(path)});
}

std::vector<Finding> Findings::Take() {
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
                     Findings* findings) {
    auto [entry, added] = files->try_emplace(place.path);
    if (!added) return;
    PropertyFile& file = entry->second;
    file.path = place.path;
    file.use = use;
    if (place.is_link()) {
        findings->Add(kSymbolicLink, file.path, 1,
                      "this is a symbolic link, which the loader refuses to open");
        return;
    }
    if (!place.is_file()) {
        findings->Add(kNotAFile, file.path, 1, "this has a property file's name but is no file");
        return;
    }
    if (place.status.st_size > kMostBytes) {
        findings->Add(kUnreadable, file.path, 1,
                      "this is larger than any property file and was not read; the loader would "
                      "take the whole of it into memory");
        return;
    }
    auto content = ReadFile(tree.Outside(file.path));
    if (!content.ok()) {
        findings->Add(kUnreadable, file.path, 1, content.error().message());
        return;
    }
    if (const size_t zero = content->find('\0'); zero != std::string::npos) {
        const std::string_view before(content->data(), zero);
        const auto line = std::count(before.begin(), before.end(), '\n') + 1;
        findings->Add(kBinary, file.path, static_cast<int>(line),
                      "a zero byte: this is no text file, and was not looked at further");
        return;
    }
    file.content = std::move(*content);
    // A look-up of single names knows no imports, as a load with a filter knows none.
    file.lines = PropertyLines(file.content, use == FileUse::kDeviceName);
}

std::vector<Finding> Lint(const std::string& device, char slot, std::vector<std::string>* notes) {
    const sandbox::DeviceFiles device_files = FilesOf(device, slot);
    const DeviceTree tree(device_files.view());
    const Utf8Locale utf8;
    const PropertiesKept kept;
    Findings findings(device.substr(0, device.find_last_not_of('/') + 1), device_files);

    std::vector<std::string> unreadable;
    const std::vector<Place> places = tree.All(&unreadable);
    for (const std::string& directory : unreadable) {
        findings.Add(kUnreadable, directory, 1, "this directory cannot be read to its end");
    }
    CheckKeyDirectories(places, &findings);
    CheckLogos(tree, places, &findings);

    PropertyFiles files;
    for (const Place& place : places) {
        if (auto use = UseOf(place.path)) AddPropertyFile(tree, place, *use, &files, &findings);
    }
    CheckImports(tree, &files, &findings);
    for (const auto& [path, file] : files) {
        CheckLines(file, &findings);
        if (file.use == FileUse::kDeviceName) CheckDeviceName(file, &findings);
    }
    if (notes != nullptr) *notes = device_files.Notes();
    return findings.Take();
}

std::string FindingText(const Finding& finding) {
    return Printable(finding.file) + ":" + std::to_string(finding.line) + ": " +
           SeverityName(finding.severity) + ": " + Printable(finding.message) + " [" +
           finding.identifier + "]" +
           (finding.image ? Printable(" (" + Name(*finding.image) + ")") : "");
}

nlohmann::json FindingsJson(const std::vector<Finding>& findings) {
    nlohmann::json array = nlohmann::json::array();
    for (const Finding& finding : findings) {
        const auto& image = finding.image;
        array.push_back(
                {{"file", finding.file},
                 {"line", finding.line},
                 {"severity", SeverityName(finding.severity)},
                 {"identifier", finding.identifier},
                 {"message", finding.message},
                 {"image", image ? nlohmann::json({{"file", image->image}, {"path", image->path}})
                                 : nlohmann::json()}});
    }
    return array;
}

}  // namespace extprop
