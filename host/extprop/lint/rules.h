// The rules of lint, applied to the files that they concern.

#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "coverage/dead_places.h"
#include "device/device_tree.h"
#include "device/places.h"
#include "device/property_lines.h"
#include "device_files.h"
#include "lint/lint.h"
#include "lint/rule_table.h"

namespace extprop {

inline constexpr const Rule& kSymbolicLink = RuleNamed("symbolic-link");
inline constexpr const Rule& kNotChecked = RuleNamed("not-checked");

inline constexpr char kIsSymbolicLink[] = " is a symbolic link, which the loader refuses to open";

struct PropertyFile {
    std::string path;
    FileUse use;
    std::string content;
    bool was_read = false;
    std::vector<PropertyLine> lines;  // they point into `content`, so the struct cannot be copied
};

// The property files by path.
struct PropertyFiles : std::map<std::string, PropertyFile> {
    size_t held = 0;  // of contents and lines, in bytes
};

// Collects the findings.
class Findings {
  public:
    // `device` is the directory of the files, as the user named it.
    Findings(std::string device, const sandbox::DeviceFiles& files)
            : device_(std::move(device)), files_(files) {}

    // Adds a finding in a line, or without one in the file or directory as a whole. Findings above
    // the limit are dropped.
    void Add(const Rule& rule, const std::string& path, int line, const std::string& message);
    void Add(const Rule& rule, const std::string& path, const std::string& message) {
        Add(rule, path, 0, message);
    }

    // Removes the findings for which `allows` returns true.
    void Remove(const std::function<bool(const Finding&)>& allows);

    bool Has(const Rule& rule) const;
    bool Has(const Rule& rule, const std::string& path) const;

    // Returns the path as it can be opened from the current directory.
    std::string Named(const std::string& path) const { return device_ + path; }

    // Returns the findings in the order of files and lines, with the lines' texts and fingerprints.
    // If some were dropped, one more finding reports that.
    std::vector<Finding> Take(const PropertyFiles& files);

  private:
    std::string device_;
    const sandbox::DeviceFiles& files_;
    std::vector<Finding> findings_;
    bool has_more_ = false;
};

// Adds the property file at `place` to `*files`, unless it is there already. A file that cannot be
// read is added as empty, with a finding that gives the reason.
void AddPropertyFile(const DeviceTree& tree, const FoundFile& place, FileUse use,
                     PropertyFiles* files, Findings* findings);

// Adds to `*files` what they import, and checks each import. Without coverage, imports with
// references are not checked for where they lead.
void CheckImports(const DeviceTree& tree, const Coverage* coverage, PropertyFiles* files,
                  Findings* findings);

// Checks each line by itself and together with the others of its file.
void CheckLines(const PropertyFile& file, Findings* findings);

// Checks a devicename.cfg file.
void CheckDeviceName(const PropertyFile& file, Findings* findings);

// Checks that the files in the directories of the switch keys are loaded.
void CheckKeyDirectories(const std::vector<FoundFile>& places, Findings* findings);

// Checks that something reads what lies on the library's partitions.
void CheckDeadPlaces(const std::vector<DeadPlace>& places, Findings* findings);

// Checks that a key file has the line that the library takes from it.
void CheckKeyFile(const PropertyFile& file, Findings* findings);

// Checks the names of files, and with coverage those of keys, regions and brands.
void CheckNames(const std::vector<FoundFile>& places, const Coverage* coverage,
                const PropertyFiles& files, Findings* findings);

// Removes the findings that comments in the files allow, and adds findings for comments that allow
// nothing. Throws InputError for comments that it cannot parse.
void ApplyAllowances(const PropertyFiles& files, Findings* findings);

// Checks that the boot logos fit into the splash partition, if the device has one.
void CheckLogos(const DeviceTree& tree, const std::vector<FoundFile>& places, Findings* findings);

}  // namespace extprop
