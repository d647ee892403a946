// Which boots of a device load which of its files: the one thing that is asked what loads a line,
// what nothing reads and where imports lead. It boots the phones that the device directory can
// become, and what it tells of a boot has been seen in one. docs/coverage.md has the table of what
// is tried.

#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "boot/boot.h"
#include "coverage/space.h"
#include "coverage/survey.h"
#include "device/imports.h"

namespace extprop {

// A boot of the device's, with what its command line has besides.
struct CoveredBoot {
    Addition addition;
    std::vector<std::string> words;  // those of the addition
    BootRecord record;               // empty if the library did not survive it
    // It is of a phone that the device directory can become, with the steps as they are.
    bool is_phone = false;
    bool survived = false;
};

// What is_stopped() means, to people.
inline constexpr char kStopped[] = "a boot hung or met a limit, so no more were tried";

class Coverage {
  public:
    // Boots the prepared device, and others of the same options, with so many at once. Whatever was
    // done with the device is undone. Throws std::runtime_error if the library does not come back
    // from the files that say what there can be.
    Coverage(PreparedDevice* device, const BootOptions& options, const Survey& survey, int jobs);

    // All boots, in the order in which they were made: the device as it is comes first.
    const std::vector<CoveredBoot>& boots() const { return boots_; }

    // Whether a boot hung or met a limit, so that not all were made, and nobody knows what no boot
    // loads.
    bool is_stopped() const { return is_stopped_; }

    // Returns the words with which a boot loads the lines of this name in the device's own file, of
    // those that were seen to do so the fewest. None if no boot does.
    std::optional<std::vector<std::string>> WordsFor(const std::string& file,
                                                     const std::string& name) const;

    // Whether some boot reads any of the device's own file, other than by a step that names its
    // directory.
    bool Reads(const std::string& file) const { return read_.count(file) != 0; }

    // Whether the file's place names a phone that the library does not survive, so that it cannot
    // be told what such a phone reads.
    bool IsUntold(const std::string& file) const;

    // Returns the steps that load the file whole.
    const std::set<std::string>& StepsThatLoad(const std::string& file) const;

    const VariantSpace& space() const { return space_; }

  private:
    // A file that no boot loads the whole of, so far.
    struct Importer {
        std::pair<std::string, int> place;  // the file and line
        std::vector<std::string> references;
        std::vector<ReferenceValues>
                choices;  // of their values, with which it may lead to the file
    };
    struct OpenFile {
        std::string path;
        std::vector<Way> ways;
        std::vector<Importer> importers;
    };

    void TryAll();
    void TryValues();
    void TryPlaces();
    void TrySteps(const std::vector<std::string>& before);
    void TryPlacesWithSteps(const std::vector<std::string>& before);
    void TryPairs();
    void TryImports();

    void FindOpenFiles(const Survey& survey);
    bool IsAnyOpen() const { return !open_.empty() && !is_stopped_; }
    void WatchWhatIsAsked();
    std::vector<CoveredBoot> BootsOf(std::vector<CoveredBoot> boots);
    enum Kind { kPhones, kOthers };
    bool Boot(const std::vector<Addition>& additions, Kind kind = kOthers);
    bool DiesBefore(const Addition& addition) const;
    void Take(CoveredBoot taken);
    std::vector<Variant> Representatives() const;
    std::vector<Addition> AdditionsFor(const Importer& importer) const;

    PreparedDevice* device_;
    BootOptions options_;
    int jobs_;
    VariantSpace space_;
    DeviceImports imports_;
    std::set<std::string> watched_;  // properties that may decide about what is loaded
    std::vector<OpenFile> open_;
    std::vector<CoveredBoot> boots_;
    std::set<std::vector<std::string>> tried_;
    std::set<std::vector<std::string>> died_;  // without steps
    // By the device's own file and the filter, the best boot that loads it so.
    std::map<std::string, std::map<std::string, size_t>> loads_;
    std::set<std::string> read_;
    // By an import's file and line, the boots that come to it with other values of its references.
    std::map<std::pair<std::string, int>, std::map<std::vector<std::string>, size_t>> contexts_;
    // By file, the steps that load it.
    std::map<std::string, std::set<std::string>> steps_of_;
    // A boot hung or met a limit, so that each more would take long.
    bool is_stopped_ = false;
};

// Returns the survey's imports by their files.
DeviceImports ImportsOf(const Survey& survey);

}  // namespace extprop
