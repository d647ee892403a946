// Finds which boots of a device load which of its files, and so what loads a line, what nothing
// reads and where imports lead. It boots the phones that DEVICE can become, and reports only what
// it has seen in a boot. docs/coverage.md has the table of what is tried.

#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "boot/boot.h"
#include "boot/property_delta.h"
#include "coverage/space.h"
#include "coverage/survey.h"
#include "device/imports.h"
#include "platform.h"

namespace extprop {

// A boot of the device with additions to the command line.
struct CoveredBoot {
    Addition addition;
    std::vector<std::string> words;  // of the addition
    BootRecord record;               // empty unless the boot survived
    // The boot is of a phone that DEVICE can become, with no step added.
    bool is_phone = false;
    bool survived = false;  // the library came to the end of all steps
    // If it is of a phone and survived, the properties at its end: all for the first boot, which is
    // of the device as it is; for each other boot, the difference from these.
    PropertyDelta delta = {};
};

// The text for people where is_stopped() is true.
inline constexpr char kStopped[] = "a boot hung or met a limit, so no more were tried";

class Coverage {
  public:
    // Boots the prepared device and its variants, `jobs`, at least 1, at a time; that a boot fails
    // is part of the result. All changes in the device's copy-on-write layer are discarded. Throws
    // std::runtime_error if the library crashes or hangs while it reads the files that determine
    // the variants, and as PreparedDevice and ForEachInParallel() do. The device is not used later.
    Coverage(PreparedDevice* device, const BootOptions& options, const Survey& survey, int jobs);

    // Returns all boots, in the order in which they were made, beginning with the device as it is;
    // never none.
    const std::vector<CoveredBoot>& boots() const { return boots_; }

    // Returns whether a boot hung or reached a limit. Then not all boots were made, so it is
    // unknown what no boot loads. False if only the search ended, at 5,000 boots.
    bool is_stopped() const { return is_stopped_; }

    // Returns the fewest words with which a boot loaded the lines of this name in the device's own
    // file, or nothing if no boot did or there is no such file. No words: the device as it is does.
    std::optional<std::vector<std::string>> WordsFor(const std::string& file,
                                                     const std::string& name) const;

    // Returns whether some boot reads anything of the device's own file, other than by an added
    // step that names its directory.
    bool Reads(const std::string& file) const { return read_.count(file) != 0; }

    // Returns whether it is unknown if a phone reads the file that no boot loads completely: its
    // place belongs to a variant in whose boot the library crashes or hangs, or an import that a
    // boot loads may lead to it by more choices of values than were tried, or the search ended.
    bool IsUnknown(const std::string& file) const;

    // Returns the steps that load the whole file, without a filter; none if no boot did.
    const std::set<std::string>& StepsThatLoad(const std::string& file) const;

    const VariantSpace& space() const { return space_; }

  private:
    // An import that may lead to a file.
    struct Importer {
        std::pair<std::string, int> place;  // the file and line
        std::vector<std::string> references;
        LeadingValues values;  // of the references, with which it may lead to the file
    };
    // A file that no boot so far has loaded completely.
    struct UnloadedFile {
        std::string path;
        std::vector<Candidate> candidates;
        std::vector<Importer> importers;
    };

    void TryValues();
    void TryPlaces();
    void TrySteps(const std::vector<std::string>& before);
    void TryPlacesWithSteps(const std::vector<std::string>& before);
    void TryPairs();
    void TryImports();
    void TryShorter();

    void FindUnloadedFiles(const Survey& survey);
    bool HasUnloaded() const { return !unloaded_.empty() && !is_stopped_; }
    void WatchDecidingProperties();
    PropertyDelta DeltaOf(const BootOptions& options, Report* report) const;
    std::vector<CoveredBoot> BootsOf(std::vector<CoveredBoot> boots);
    enum Kind { kPhones, kOthers };
    bool Boot(const std::vector<Addition>& additions, Kind kind = kOthers);
    bool FailsWithoutSteps(const Addition& addition) const;
    void Record(CoveredBoot done);
    std::vector<Variant> Representatives() const;
    std::vector<Addition> AdditionsFor(const Importer& importer) const;

    PreparedDevice* device_;
    BootOptions options_;
    int jobs_;
    VariantSpace space_;
    DeviceImports imports_;
    std::set<std::string> watched_;          // properties that may decide what is loaded
    platform::ExpectedProperties expected_;  // those of the device as it is, once it has booted
    std::vector<UnloadedFile> unloaded_;
    std::vector<CoveredBoot> boots_;
    std::set<std::vector<std::string>> tried_;
    std::set<std::vector<std::string>> failed_;  // words of boots without added steps
    // By the device's own file and the filter, the boot with the fewest words that loads it so.
    std::map<std::string, std::map<std::string, size_t>> loads_;
    std::set<std::string> read_;
    // By an import's file and line, one boot for each choice of its references' values.
    std::map<std::pair<std::string, int>, std::map<std::vector<std::string>, size_t>> contexts_;
    // By file, the steps that load it.
    std::map<std::string, std::set<std::string>> steps_of_;
    // So many boots were made that places with steps, or imports, were left untried.
    bool places_are_cut_ = false;
    bool imports_are_cut_ = false;
    // A boot hung or reached a limit, and further ones would take as long.
    bool is_stopped_ = false;
};

// Returns the survey's imports by file.
DeviceImports ImportsOf(const Survey& survey);

}  // namespace extprop
