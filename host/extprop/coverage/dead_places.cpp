#include "coverage/dead_places.h"

#include <string.h>

#include <algorithm>
#include <set>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "TesvoExtensionProperty/cota.h"
#include "TesvoExtensionProperty/names.h"
#include "TesvoExtensionProperty/partitions.h"
#include "device/places.h"
#include "nearest.h"
#include "printable.h"

namespace extprop {

namespace {

using namespace android::init;
using android::base::Basename;
using android::base::Dirname;
using android::base::EndsWith;
using android::base::Join;
using android::base::Split;
using android::base::StartsWith;

constexpr char kVendor[] = "/mnt/vendor";
constexpr char kNotImported[] = ", and no file that is read imports it";

const std::vector<std::string>& KindNames() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> leaves;
        for (const SwitchKey& key : SwitchKeys()) leaves.emplace_back(key.leaf);
        return leaves;
    }();
    return names;
}

bool IsKind(const std::string& name) {
    return std::find(KindNames().begin(), KindNames().end(), name) != KindNames().end();
}

// Groups the files that no boot reads by the place that is the reason.
class Finder {
  public:
    Finder(const Survey& survey, const Coverage& coverage) : survey_(survey), coverage_(coverage) {
        FollowOthers();
        for (const SurveyedFile& file : survey.files) {
            paths_.insert(file.path);
            if (IsRead(file)) AddLive(file.path);
            if (UseOf(file.path) != FileUse::kCotaMessage) continue;
            for (const LineRead& line : file.lines) {
                if (line.name == kBindPoint) bind_points_.push_back(line.value + "/");
            }
        }
        for (const std::string& region : coverage.space().values[kRegionAxis]) AddRoots("", region);
        for (const Brand& brand : kBrands) AddRoots(brand.code, "");
        AddRoots("", "");
        for (const char* root : {kCompanyRoot, kCarrierRoot}) roots_.insert(root);
        roots_.insert(kCarrierRoot + std::string("/cust"));
    }

    std::vector<DeadPlace> Find() {
        for (const SurveyedFile& file : survey_.files) {
            // Links and configurations of market names are not loaded as property files are.
            if (file.source || IsRead(file) || UseOf(file.path) == FileUse::kDeviceName) continue;
            // What a carrier package is mounted over is not meant to be read.
            const bool is_covered = std::any_of(
                    bind_points_.begin(), bind_points_.end(),
                    [&](const std::string& point) { return StartsWith(file.path, point); });
            if (!is_covered) Classify(file);
        }
        std::vector<DeadPlace> places;
        for (auto& entry : places_) places.push_back(std::move(entry.second));
        return places;
    }

  private:
    void AddRoots(const std::string& code, const std::string& region) {
        for (const std::string& root : partitionRoots(code, region)) {
            const std::string plain = EndsWith(root, "/") ? Dirname(root + "x") : root;
            roots_.insert(plain);
            // The root may also lie where the phone shows the partition a second time, without
            // /mnt/vendor.
            const std::string shown =
                    StartsWith(plain, kVendor) ? plain.substr(strlen(kVendor)) : "";
            if (live_directories_.count(PartitionOf(shown)) != 0) roots_.insert(shown);
        }
    }

    void AddLive(const std::string& path) {
        for (std::string directory = Dirname(path); live_directories_.insert(directory).second;) {
            directory = Dirname(directory);
        }
    }

    // Finds the files that no boot here can show as read, and what they import: files that the
    // system's own init may load, files of a carrier package, and files for which it is unknown.
    void FollowOthers() {
        std::vector<const SurveyedFile*> waiting;
        std::map<std::string, const SurveyedFile*> files;
        for (const SurveyedFile& file : survey_.files) {
            files[file.path] = &file;
            if (IsSystems(file.path) || IsOfPackage(file.path) || coverage_.IsUnknown(file.path)) {
                waiting.push_back(&file);
            }
        }
        while (!waiting.empty()) {
            const SurveyedFile* file = waiting.back();
            waiting.pop_back();
            if (!of_others_.insert(file->path).second) continue;
            for (const SurveyedImport& import : file->imports) {
                for (const auto& [path, own] : import.targets) {
                    if (files.count(own) != 0) waiting.push_back(files.at(own));
                }
            }
        }
    }

    // Returns whether it lies where any carrier package is mounted by default.
    static bool IsOfPackage(const std::string& path) {
        const std::string package = std::string(kCarrierRoot) + "/";
        for (const std::string& root : {package, package + "cust/"}) {
            if (path == root + kBuildProp) return true;
            if (StartsWith(path, root + kKeysDirectory + "/") && IsOfSwitchKey(path)) return true;
        }
        return false;
    }

    bool IsRead(const SurveyedFile& file) const {
        return of_others_.count(file.path) != 0 || coverage_.Reads(file.path);
    }

    void Add(DeadKind kind, const std::string& path, const std::string& reason) {
        places_.try_emplace(path, DeadPlace{kind, path, reason});
    }

    void Classify(const SurveyedFile& file) {
        const std::string& path = file.path;
        const std::string partition = PartitionOf(path);
        const PartitionKind kind = KindOfPartition(partition);
        const bool is_known = kind.kind == PartitionKind::kKnown;
        if (kind.kind == PartitionKind::kSystems) {
            ClassifyNearKeyFile(path);
        } else if (!is_known && live_directories_.count(partition) == 0) {
            ClassifyOnOtherPartition(path, partition, kind);
        } else if (paths_.count(kVendor + path) != 0) {
            // The same file below /mnt/vendor is reported there.
        } else if (const std::string root = RootOf(path); !root.empty()) {
            ClassifyBelowRoot(file, root);
        } else if (is_known && live_directories_.count(partition) == 0) {
            Add(DeadKind::kUnknownPartition, partition,
                "the library reads " + Quoted(kVendor + partition) +
                        " instead; on the phone this directory may show the same files");
        } else {
            Add(DeadKind::kUnreadFile, path,
                std::string("this lies in no partition root") + kNotImported);
        }
    }

    // A directory with key files may hold other files, so only nearly right names are reported.
    void ClassifyNearKeyFile(const std::string& path) {
        constexpr size_t kNear = 2;
        std::vector<std::string> names;
        for (const FixedFile& file : FixedFiles()) {
            if (path == file.path) return;  // a boot may delete it before reading it
            if (Dirname(file.path) == Dirname(path)) names.push_back(Basename(file.path));
        }
        if (const std::string near = Nearest(Basename(path), names, kNear); !near.empty()) {
            Add(DeadKind::kUnreadFile, path,
                std::string(kNoSuchFileRead) + " here" + Suggestion(near));
        }
    }

    void ClassifyOnOtherPartition(const std::string& path, const std::string& partition,
                                  const PartitionKind& kind) {
        if (kind.kind == PartitionKind::kMisspelt) {
            Add(DeadKind::kMisspeltPartition, partition,
                "the library reads no partition of this name" + Suggestion(kind.nearest));
        } else if (path == partition + "/" + kBuildProp ||
                   StartsWith(path, partition + "/" + kKeysDirectory + "/")) {
            Add(DeadKind::kUnknownPartition, partition,
                "this looks like a partition that the library reads, but it has no partition root");
        }
    }

    // Returns the deepest root above the path, or "".
    std::string RootOf(const std::string& path) const {
        std::string directory = Dirname(path);
        while (directory != "/" && roots_.count(directory) == 0) directory = Dirname(directory);
        return directory == "/" ? "" : directory;
    }

    void ClassifyBelowRoot(const SurveyedFile& file, const std::string& root) {
        const std::vector<std::string> below = Split(file.path.substr(root.size() + 1), "/");
        if (IsOfSwitchKey(file.path) && !EndsWith(file.path, ".prop")) {
            Add(DeadKind::kSkippedFile, file.path, kOnlyPropFiles);
        } else if (below[0] == kKeysDirectory) {
            ClassifyInProperties(file.path, root + "/" + kKeysDirectory,
                                 {below.begin() + 1, below.end()});
        } else if (const size_t keys = file.path.find(std::string("/") + kKeysDirectory + "/");
                   IsOfSwitchKey(file.path)) {
            const std::string searched = file.path.substr(0, keys);
            Add(DeadKind::kUnsearchedRoot, searched + "/" + kKeysDirectory,
                Quoted(searched) +
                        " is no partition root, so this directory is searched only if a carrier "
                        "package makes it one");
        } else if (const std::string near = Nearest(below[0], {kKeysDirectory}, 3);
                   below.size() > 1 && IsMisspelt(root + "/" + below[0], near, below)) {
            Add(DeadKind::kMisspeltProperties, root + "/" + below[0],
                "the library looks for the switch keys' directories in 'properties', not here");
        } else {
            ClassifyUnread(file.path, root, below);
        }
    }

    // Returns whether the path is DIRECTORY/KEY/KIND/FILE, or the directory has nearly the right
    // name and nothing is read below it.
    bool IsMisspelt(const std::string& directory, const std::string& near,
                    const std::vector<std::string>& below) const {
        if (below.size() > 3 && IsKind(below[below.size() - 2])) return true;
        return !near.empty() && live_directories_.count(directory) == 0;
    }

    // `below` should be KEY/KIND/FILE.
    void ClassifyInProperties(const std::string& path, const std::string& properties,
                              const std::vector<std::string>& below) {
        // If another file of the directory is read, this file itself is reported.
        const bool is_live = live_directories_.count(Dirname(path)) != 0;
        const std::string directory = is_live ? path : Dirname(path);
        const size_t directories = below.size() - 1;
        const auto directory_at = [&](size_t i) {
            std::string path = properties;
            for (size_t j = 0; j <= i; ++j) path += "/" + below[j];
            return path;
        };
        for (size_t i = 1; i + 1 < directories; ++i) {
            if (!IsKind(below[i])) continue;
            Add(DeadKind::kNestedDirectory, directory_at(i + 1),
                "the files in " + Quoted(below[i]) +
                        " are loaded, but not those in its sub-directories");
            return;
        }
        if (directories == 0) {
            Add(DeadKind::kNoKind, directory,
                "the library looks for the switch keys' directories here, not for files");
        } else if (directories == 1 && IsKind(below[0])) {
            Add(DeadKind::kNoKind, directory,
                "the key's directory is missing between 'properties' and this one");
        } else if (directories == 1) {
            Add(DeadKind::kNoKind, directory,
                "the library looks for the directories " + Join(KindNames(), ", ") +
                        " here, not for files");
        } else if (!IsKind(below[directories - 1])) {
            const std::string& name = below[directories - 1];
            Add(DeadKind::kUnknownKind, directory,
                "no kind of switch key has a directory of this name" +
                        SuggestionOf(name, KindNames(), std::max<size_t>(2, name.size() / 3)));
        } else {
            Add(DeadKind::kUnreadFile, path, "no switch key selects this file");
        }
    }

    void ClassifyUnread(const std::string& path, const std::string& root,
                        const std::vector<std::string>& below) {
        const std::string& name = below.back();
        if (name == kBuildProp) {
            Add(DeadKind::kUnreadFile, path,
                Quoted(Dirname(path)) + " is no partition root" + kNotImported);
        } else if (below.size() == 2 && below[0] == "etc" && StartsWith(name, "build.")) {
            Add(DeadKind::kUnreadFile, path,
                "no line of " + Quoted(kNvFlagMap) + " maps an old nv key to this file" +
                        kNotImported);
        } else {
            const std::string near =
                    below.size() == 1 ? Nearest(name, {kBuildProp}, 2) : std::string();
            Add(DeadKind::kUnreadFile, path,
                std::string(kNoSuchFileRead) + " in " + Quoted(root) + kNotImported +
                        Suggestion(near));
        }
    }

    const Survey& survey_;
    const Coverage& coverage_;
    std::set<std::string> of_others_;
    std::set<std::string> paths_;
    std::set<std::string> live_directories_;  // with files below them that are read
    std::set<std::string> roots_;
    std::vector<std::string> bind_points_;
    std::map<std::string, DeadPlace> places_;
};

}  // namespace

std::vector<DeadPlace> DeadPlaces(const Survey& survey, const Coverage& coverage) {
    return Finder(survey, coverage).Find();
}

Survey SurveyForDeadPlaces(const sandbox::Sandbox& root, std::chrono::seconds limit) {
    return TakeSurvey(
            root, [](const std::string& name) { return name == kBindPoint; }, limit);
}

}  // namespace extprop
