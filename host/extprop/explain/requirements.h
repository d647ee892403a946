// What a boot would take to load a line that it did not load.

#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "explain/origins.h"

namespace extprop {

// Whether a boot with the words added to its command line loads the line of the name from the file.
using Loads =
        std::function<bool(const Words& words, const SurveyedFile& file, const std::string& name)>;

class Requirements {
  public:
    // What is known once the boot is over, and a trial of what cannot be reckoned for certain. All
    // of it must live as long as this.
    Requirements(const Survey& survey, const Tracer& tracer, const Report& report,
                 const BootOptions& options, const Loads& loads);

    // The properties whose origins have to be known, whatever is asked for.
    static const std::vector<const char*>& ControlProperties();

    // Returns the words that, added to the command line of the boot, make it load the line of the
    // name from the file; none if no step loads it.
    std::optional<Words> WordsFor(const SurveyedFile& file, const std::string& name);

    // The same for the device's own file at `path`, if it was surveyed.
    std::optional<Words> WordsFor(const std::string& path, const std::string& name);

  private:
    struct Importer {
        const SurveyedFile* file;
        const SurveyedImport* import;
        std::string path;  // what the import has to become
    };

    struct Chain {
        std::map<std::string, std::string> values;  // of the properties in the imports
        Words loading;                              // the first of the files
    };

    struct Way {
        std::set<std::string> files;  // that are on it
        size_t left;                  // how many imports are still looked at
    };

    std::optional<Words> FileWords(const SurveyedFile& file);
    bool HangsOnMount(const Reading& reading) const;
    std::vector<Words> MountedMapWords(const Reading& reading) const;
    Words MountingSteps() const;
    std::optional<Words> OwnStepWords(const SurveyedFile& file) const;
    std::optional<Words> UnmountedWords(const SurveyedFile& file) const;
    std::optional<Words> WholeFileWords(const SurveyedFile& file);
    std::optional<Words> ReadingWords(const Reading& reading) const;
    std::optional<Words> SwitchKeyMapWords(const Reading& reading) const;
    std::optional<Words> PartitionWords(const Reading& reading) const;
    std::optional<Words> KeyDirectoryWords(const Reading& reading) const;
    std::optional<Words> OldKeyWords(const Reading& reading) const;
    std::optional<Words> ThroughRoot(const Reading& reading, Words words) const;
    std::optional<Words> ElsewhereWords(const Reading& reading) const;
    std::optional<Words> CompanyWords(const Reading& reading) const;
    std::string TriedDate() const;
    std::optional<Words> LateCompanyWords(const Reading& reading) const;
    std::optional<Words> ImportWords(const SurveyedFile& file, const std::string& name);
    std::optional<Words> ImportWords(const Importer& importer);
    const std::vector<Importer>& ImportersOf(const SurveyedFile& file);
    std::vector<Words> WaysTo(const SurveyedFile& file, const Importer& importer);
    std::vector<Words> OtherWaysTo(const Importer& importer, const std::optional<Words>& reckoned);
    std::vector<Chain> ChainsTo(const Importer& importer, Way* way);
    bool MayBeMounted(const SurveyedFile& file) const;
    bool ImportsItself(const std::string& path, const std::string& name, const std::string& value,
                       std::set<std::string>* way, std::set<std::string>* done) const;
    std::optional<Words> ReferenceWords(const ReferringImport::Reference& reference,
                                        const std::string& value) const;

    std::optional<Words> SetWords(const Reading& reading, const char* property,
                                  const std::string& value, const char* key_file) const;
    std::optional<Words> LateSetWords(const char* property, const std::string& value) const;
    enum class InBoot { kAny, kLast };
    Words TriedSteps(const std::string& property) const;
    std::optional<Words> FirstPassWords(Words words, InBoot boot = InBoot::kAny) const;
    Words AtEnd(Words words) const;
    Words WithDefaultSteps(Words words) const;

    bool IsToBeTried(const Words& words);
    bool IsPlain() const;
    bool HasPersist() const;
    bool IsGone(const std::string& path) const;
    bool IsCovered(const std::string& path) const;
    bool Cover(const Words& words, const SurveyedFile& file) const;
    std::optional<Words> WordsToImported(Words words, const SurveyedFile& file,
                                         const SurveyedFile& importer);
    std::string ValueOf(const std::string& name) const;
    bool RestoresChannel() const;
    Words WithoutRestore() const;

    const Survey& survey_;
    const Loads& loads_;
    bool is_all_tried_ = false;  // whatever is said may meet what the library dies of
    std::set<Words> tried_;      // only because it costs little
    const Tracer& tracer_;
    const Report& report_;
    const std::vector<Step>& steps_;
    const PropertyMap& given_;
    bool names_no_steps_;
    std::map<std::string, const SurveyedFile*> files_;        // by the device's own path
    std::map<std::string, std::vector<Importer>> importers_;  // by the device's own path
    std::vector<Importer> referring_;                         // that lead to more than one path
    std::set<std::string> has_all_importers_;                 // the referring ones too
    bool has_filters_ = false;
    bool has_mounted_maps_ = false;
    std::set<Words> uncertain_;          // words that hang on what properties are at some moment
    std::set<std::string> of_messages_;  // the files that are imported by messages
    std::map<std::string, std::optional<Words>> known_;  // of files for their own sake
    std::map<std::string, std::optional<Words>> whole_;  // and for their importers'
    std::map<std::pair<std::string, std::string>, std::optional<Words>> imported_;
};

}  // namespace extprop
