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
    bool was_read = false;            // if not, it has no lines, and a finding gives the reason
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

    // Adds a finding in a line, from 1, or in the file or directory as a whole if `line` is 0 or
    // left out. An empty `path` stands for the device. Findings above limits::kFindings are
    // dropped.
    void Add(const Rule& rule, const std::string& path, int line, const std::string& message);
    void Add(const Rule& rule, const std::string& path, const std::string& message) {
        Add(rule, path, 0, message);
    }

    // Removes the findings for which `allows` returns true.
    void Remove(const std::function<bool(const Finding&)>& allows);

    bool Has(const Rule& rule) const;
    bool Has(const Rule& rule, const std::string& path) const;

    // Returns the device's path as it can be opened from the current directory.
    std::string Named(const std::string& path) const { return device_ + path; }

    // Takes out all findings and returns them in the order of files and lines, with the lines'
    // texts and fingerprints. If some were dropped, one of the findings reports that.
    std::vector<Finding> Take(const PropertyFiles& files);

  private:
    std::string device_;
    const sandbox::DeviceFiles& files_;
    std::vector<Finding> findings_;
    bool has_more_ = false;
};

// Adds the property file at `place` to `*files`, unless it is there already. What is no regular
// file, cannot be read, has a zero byte or more than kMostBytes, or comes after limits::kLinted
// bytes of other files is added without lines, and a finding gives the reason.
void AddPropertyFile(const DeviceTree& tree, const FoundFile& place, FileUse use,
                     PropertyFiles* files, Findings* findings);

// Adds to `*files` the regular files that they import, and checks each import, with at most 1000
// choices of values for its references. If `coverage` is null, it does not check where imports with
// references lead. Replaces the properties of this process.
void CheckImports(const DeviceTree& tree, const Coverage* coverage, PropertyFiles* files,
                  Findings* findings);

// Checks each line by itself and together with the others of its file.
void CheckLines(const PropertyFile& file, Findings* findings);

// Checks the names in a devicename.cfg, and calls the library in a sandbox to see whether some size
// of the storage gets a market name; if that fails, a finding says so. Ignores a file that was not
// read.
void CheckDeviceName(const PropertyFile& file, Findings* findings);

// Reports the files in the directories of the switch keys that are not loaded, since their names do
// not end in ".prop".
void CheckKeyDirectories(const std::vector<FoundFile>& places, Findings* findings);

// Reports these places, except those of DeadKind::kSkippedFile, which CheckKeyDirectories()
// reports.
void CheckDeadPlaces(const std::vector<DeadPlace>& places, Findings* findings);

// Checks that a key file has the line that the library takes from it. Ignores other files, and
// those that were not read.
void CheckKeyFile(const PropertyFile& file, Findings* findings);

// Checks the brand, and the names of files. Unless `coverage` is null, it also checks the keys, the
// region, and the names of files for which the library looks in each partition root.
void CheckNames(const std::vector<FoundFile>& places, const Coverage* coverage,
                const PropertyFiles& files, Findings* findings);

// Removes the findings that comments in the files allow. Adds findings for comments that allow
// nothing, unless a finding says that something was not checked. Throws InputError, with all
// comments that it cannot parse, before it changes anything.
void ApplyAllowances(const PropertyFiles& files, Findings* findings);

// Reports boot logos that are larger than the splash partition, if the device has that as a regular
// file.
void CheckLogos(const DeviceTree& tree, const std::vector<FoundFile>& places, Findings* findings);

}  // namespace extprop
