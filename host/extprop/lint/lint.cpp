#include "lint/lint.h"

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "boot/boot.h"
#include "budget.h"
#include "coverage/dead_places.h"
#include "coverage/workers.h"
#include "device/device_root.h"
#include "device/legal.h"
#include "device_files.h"
#include "input_error.h"
#include "lint/rules.h"
#include "named_file.h"
#include "platform.h"
#include "printable.h"
#include "sandbox.h"
#include "utils.h"

namespace extprop {

namespace {

constexpr const Rule& kUnreadable = RuleNamed("unreadable");
constexpr const Rule& kNotAFile = RuleNamed("not-a-file");
constexpr const Rule& kNoDevice = RuleNamed("no-device");
constexpr const Rule& kBinary = RuleNamed("binary");

// Restores the process's properties, which the rules replace.
class PropertiesKept {
  public:
    PropertiesKept() : properties_(platform::AllProperties()) {}
    ~PropertiesKept() { platform::ResetProperties(std::move(properties_)); }
    PropertiesKept& operator=(PropertiesKept&&) = delete;

  private:
    platform::PropertyMap properties_;
};

// Boots the phones that the device can become and checks that they read its files. If they cannot
// be booted, adds a finding and returns nothing.
std::optional<Coverage> CoverageOf(const std::shared_ptr<sandbox::DeviceFiles>& files,
                                   Findings* findings) {
    constexpr std::chrono::seconds kLimit(30);
    BootOptions options;
    options.time_limit = kLimit;
    options.uses_default_steps = true;
    for (const char* step : kDefaultSteps) options.plan.steps.push_back(ParseStep(step));
    try {
        PreparedDevice device(options, files);
        const Survey survey = SurveyForDeadPlaces(device.root(), options.time_limit);
        Coverage coverage(&device, options, survey, ProcessorCount());
        const auto& boots = coverage.boots();
        if (std::none_of(boots.begin(), boots.end(),
                         [](const CoveredBoot& boot) { return boot.survived; })) {
            throw std::runtime_error("the library survives no boot");
        }
        if (coverage.is_stopped()) throw std::runtime_error(kStopped);
        CheckDeadPlaces(DeadPlaces(survey, coverage), findings);
        return coverage;
    } catch (const std::runtime_error& error) {
        findings->Add(kNotChecked, "",
                      std::string("which files no boot reads, and where imports with references "
                                  "lead, is unknown: ") +
                              error.what());
        return std::nullopt;
    }
}

}  // namespace

void AddPropertyFile(const DeviceTree& tree, const FoundFile& place, FileUse use,
                     PropertyFiles* files, Findings* findings) {
    auto [entry, added] = files->try_emplace(place.path);
    if (!added) return;
    PropertyFile& file = entry->second;
    file.path = place.path;
    file.use = use;
    if (place.is_link()) {
        findings->Add(kSymbolicLink, file.path, QuotedShort(file.path) + kIsSymbolicLink);
        return;
    }
    if (!place.is_file()) {
        findings->Add(kNotAFile, file.path, "this has a property file's name but is not a file");
        return;
    }
    if (place.status.st_size > kMostBytes) {
        findings->Add(kUnreadable, file.path,
                      "this is larger than any property file and was not read; the loader would "
                      "read all of it into memory");
        return;
    }
    if (!tree.Read(file.path, kMostBytes, &file.content)) {
        findings->Add(kUnreadable, file.path,
                      std::string("this cannot be read: ") + strerror(errno));
        file.content.clear();  // which may be a part of it
        return;
    }
    if (const size_t zero = file.content.find('\0'); zero != std::string::npos) {
        const std::string_view before(file.content.data(), zero);
        const auto line = std::count(before.begin(), before.end(), '\n') + 1;
        findings->Add(
                kBinary, file.path, static_cast<int>(line),
                "this file has a zero byte, so it is no text file and was not checked further");
        file.content.clear();
        return;
    }
    if (files->held > limits::kLinted) {
        findings->Add(kUnreadable, file.path,
                      "this was not checked: the files before it have more than " +
                              std::to_string(limits::kLinted) + " bytes");
        file.content.clear();
        return;
    }
    file.was_read = true;
    // A look-up of single names skips imports, as a load with a filter does.
    file.lines = PropertyLines(file.content, use == FileUse::kDeviceName);
    files->held += file.content.size() + file.lines.capacity() * sizeof(PropertyLine);
}

std::vector<Finding> Lint(const std::string& device, const sandbox::Options& options,
                          std::vector<std::string>* notes) {
    const auto device_files = std::make_shared<sandbox::DeviceFiles>(DevicePath(device), options);
    const DeviceTree tree(device_files->view());
    const Utf8Locale utf8;
    const PropertiesKept kept;
    Findings findings(device.substr(0, device.find_last_not_of('/') + 1), *device_files);

    std::vector<std::string> unreadable;
    const std::vector<FoundFile> places = tree.All(device_files->packed(), &unreadable);
    for (const std::string& directory : unreadable) {
        findings.Add(kUnreadable, directory, "this directory cannot be read to its end");
    }
    device_files->CheckImages();
    if (const auto why = WhyNoDevice(tree)) {
        findings.Add(kNoDevice, "", *why);
        if (notes != nullptr) *notes = device_files->Notes();
        return findings.Take({});
    }
    CheckKeyDirectories(places, &findings);
    CheckLogos(tree, places, &findings);

    const auto coverage = CoverageOf(device_files, &findings);
    PropertyFiles files;
    for (const FoundFile& place : places) {
        if (auto use = UseOf(place.path)) AddPropertyFile(tree, place, *use, &files, &findings);
    }
    CheckImports(tree, coverage ? &*coverage : nullptr, &files, &findings);
    CheckNames(places, coverage ? &*coverage : nullptr, files, &findings);
    for (const auto& [path, file] : files) {
        CheckLines(file, &findings);
        CheckKeyFile(file, &findings);
        if (file.use == FileUse::kDeviceName) CheckDeviceName(file, &findings);
    }
    for (const std::string& path : device_files->Unreadable()) {
        if (!findings.Has(kUnreadable, path)) {
            findings.Add(kUnreadable, path, std::string("this") + sandbox::kDeniedToUser);
        }
    }
    ApplyAllowances(files, &findings);
    if (notes != nullptr) *notes = device_files->Notes();
    return findings.Take(files);
}

}  // namespace extprop
