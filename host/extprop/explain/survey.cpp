#include "explain/survey.h"

#include <fnmatch.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <nlohmann/json.hpp>

#include "InitExtensionPropertyImpl.h"
#include "TesvoExtensionProperty/cota.h"
#include "TesvoExtensionProperty/names.h"
#include "TesvoExtensionProperty/partitions.h"
#include "boot/load_tracker.h"
#include "boot/message.h"
#include "boot/real_path.h"
#include "device/inside.h"
#include "device/property_lines.h"
#include "output/json.h"
#include "utils.h"

namespace extprop {

namespace {

namespace fs = std::filesystem;
using namespace android::init;
using android::base::Dirname;
using android::base::EndsWith;
using android::base::StartsWith;

using Readings = std::map<std::string, std::vector<Reading>>;  // by the device's own path

// No brand that the library knows.
constexpr char kNoBrand[] = "none";

// Returns the text of an import with one "$" for each "$$", or nothing if it cannot be expanded.
// One that would look like a reference then is not told apart from what cannot.
std::optional<std::string> PlainText(std::string_view text) {
    std::string plain;
    for (size_t i = 0; i < text.size(); ++i) {
        size_t end = i;
        if (text[i] == '$') {
            const char next = i + 1 < text.size() ? text[i + 1] : '\0';
            end = next == '{' ? text.find('}', i) : i + 1;
            if (end == std::string::npos || (next != '{' && next != '$')) return std::nullopt;
            if (next == '$' && text.substr(end, 2) == "${") return std::nullopt;
            if (next == '$') i = end;
        }
        plain += text.substr(i, end + 1 - i);
        i = end;
    }
    return plain;
}

// Returns the shell pattern of the paths that an import may become.
std::string PatternOf(const std::string& text) {
    std::string pattern;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text.substr(i, 2) == "${") {
            pattern += '*';
            i = text.find('}', i);
            continue;
        }
        if (strchr("*?[\\", text[i]) != nullptr) pattern += '\\';
        pattern += text[i];
    }
    return pattern;
}

// Returns the name that the pattern is of, if it is of one only.
std::optional<std::string> OnlyName(const std::string& pattern) {
    std::string name;
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == '*') return std::nullopt;
        if (pattern[i] == '\\') ++i;
        name += pattern[i];
    }
    return name;
}

// Returns the regular files to which a text with references may lead, whatever the properties'
// values, as long as these have no slash.
std::vector<std::string> PathsLike(const std::string& text) {
    std::vector<std::string> paths = {""};
    for (const std::string& component : android::base::Split(PatternOf(text), "/")) {
        if (component.empty()) continue;
        const auto only = OnlyName(component);
        std::vector<std::string> longer;
        for (const std::string& path : paths) {
            if (only) {
                longer.push_back(path + "/" + *only);
                continue;
            }
            for (const Entry& entry : EntriesIn(path + "/")) {
                if (fnmatch(component.c_str(), entry.name.c_str(), 0) == 0) {
                    longer.push_back(path + "/" + entry.name);
                }
            }
        }
        paths = std::move(longer);
    }
    return paths;
}

// What a message of the installing service has mounted.
struct Mounted {
    std::string source;
    std::optional<std::string> target;  // the device's own path, if the source can be mounted there
};

std::optional<std::string> BoundOver(const std::string& source, const std::string& target) {
    if (source == target || !IsDirectory(source)) return std::nullopt;
    return RealPath(target, true);
}

std::optional<Mounted> FindPackage() {
    const PropertyMap info = LoadedFrom(kCotaMountInfoFile);
    const std::string source = valueOf(info, kCotaRoot);
    if (valueOf(info, kCotaVerified) != "1" || !StartsWith(source, "/")) return std::nullopt;
    return Mounted{source, BoundOver(source, valueOf(info, kBindPoint, kCarrierRoot))};
}

std::optional<Mounted> FindModule() {
    const PropertyMap info = LoadedFrom(kCotaModuleInfoFile);
    const std::string source = valueOf(info, "mount_point");
    const std::string target = valueOf(info, kBindPoint);
    if (valueOf(info, "module_type") != "configure" || !IsDirectory(source) ||
        !IsDirectory(target)) {
        return std::nullopt;
    }
    return Mounted{source, BoundOver(source, target)};
}

struct MountedSources {
    std::optional<Mounted> package = FindPackage();
    std::optional<Mounted> module = FindModule();
};

// Returns the file that the path leads to while that is mounted, if it leads there.
std::optional<std::string> ThroughMount(const std::string& path, const Mounted& mounted) {
    for (std::string above = Dirname(path); mounted.target && above.size() > 1;
         above = Dirname(above)) {
        if (RealPath(above, true) != mounted.target) continue;
        return RealPath(mounted.source + path.substr(above.size()), false);
    }
    return std::nullopt;
}

// An old nv key, the target that it leads to, and the words of the brand and region where it does.
struct OldKey {
    std::string target;
    std::string key;
    Words root_words;
    bool is_through_mount = false;
};

// Finds what makes the library read the files of the device, by looking where the library looks.
class ReadingFinder {
  public:
    // A device with mapping files takes a look at every combination of brand and region.
    ReadingFinder(Readings* readings, bool has_mapping, const MountedSources& mounted)
            : readings_(readings), has_mapping_(has_mapping), mounted_(mounted) {}

    void FindAll() {
        for (const FixedFile& file : FixedFiles()) {
            Reading reading;
            reading.occasion = file.occasion;
            Add(file.path, reading);
        }
        AddListedRoots();
        AddRoot(kCompanyRoot, At(kCompanyRoot, Reading::kCompany));
        AddCarrierPackage();
    }

    // Nothing searches the directory, but whoever calls it a carrier package has it searched.
    void AddElsewhere(const std::string& root) {
        if (!known_roots_.insert(PlainPath(root)).second) return;
        AddRoot(root, At(root, Reading::kElsewhere));
    }

  private:
    static Reading At(const std::string& place, Reading::Root root) {
        Reading reading;
        reading.root = root;
        reading.place = place;
        return reading;
    }

    void Add(const std::string& path, Reading reading) {
        if (!IsRegular(path)) return;  // links are refused
        if (auto own = RealPath(path, false)) (*readings_)[*own].push_back(std::move(reading));
    }

    // The roots for the device's own brand and region, and what other ones would add.
    void AddListedRoots() {
        const std::string region = load_property_from_file(kRegionBuildProp, kRegion);
        const std::vector<std::string> own = findPartitionRoots();
        using Choice = std::pair<std::string, Words>;
        std::vector<Choice> brands = {{"", {}}};
        std::vector<Choice> regions = {{region, {}}};
        for (const Brand& brand : kBrands) {
            if (partitionRoots(brand.code, region) == own) brands.front().first = brand.code;
            brands.push_back({brand.code, {"--brand", brand.name}});
        }
        brands.push_back({"", {"--brand", kNoBrand}});
        for (const Entry& entry : EntriesIn(RegionsDirectory())) {
            if (entry.is_directory && entry.name != region && CanBeValue(entry.name)) {
                regions.push_back({entry.name, {"--region", entry.name}});
            }
        }
        if (!region.empty()) regions.push_back({"", {"--region", ""}});

        for (const auto& [code, words] : brands) AddRoots(partitionRoots(code, region), words);
        for (const auto& [name, words] : regions) {
            AddRoots(partitionRoots(brands.front().first, name), words);
        }
        // Which old key is mapped to what takes both together.
        for (const auto& [code, brand_words] : brands) {
            for (const auto& [name, words] : regions) {
                if (!has_mapping_) return;
                AddRoots(partitionRoots(code, name), brand_words + words);
            }
        }
    }

    void AddRoots(const std::vector<std::string>& roots, const Words& words) {
        Reading reading;
        reading.root_words = words;
        PartitionSearchList = roots;  // the mapping files are looked for there
        std::vector<OldKey> old_keys = FindOldKeys(words);
        if (words.empty()) AddMountedMaps(roots, &old_keys);
        old_keys_.insert(old_keys_.end(), old_keys.begin(), old_keys.end());
        for (const std::string& root : roots) {
            AddOldKeyFiles(root, reading, old_keys);
            if (known_roots_.insert(PlainPath(root)).second) AddRoot(root, reading);
        }
    }

    // Adds the maps that a package or module brings to the roots, and what they lead to.
    void AddMountedMaps(const std::vector<std::string>& roots, std::vector<OldKey>* old_keys) {
        Reading reading;
        reading.is_through_mount = true;
        for (const auto& mounted : {mounted_.package, mounted_.module}) {
            for (const std::string& root : roots) {
                if (!mounted) continue;
                for (const char* name : {kNvFlagMap, kSwitchKeyMap}) {
                    const auto map = ThroughMount(root + "/etc/" + name, *mounted);
                    if (!map) continue;
                    reading.occasion = name == kNvFlagMap ? Occasion::kFlagMap : Occasion::kNvMap;
                    Add(*map, reading);
                    if (name != kNvFlagMap) continue;
                    for (const auto& [key, target] : LoadedFrom(*map)) {
                        const bool can_be = !key.empty() && key.size() <= kNvKeySize;
                        if (can_be && !target.empty()) old_keys->push_back({target, key, {}, true});
                    }
                }
            }
        }
    }

    // Finds which old nv key leads to which target.
    static std::vector<OldKey> FindOldKeys(const Words& words) {
        std::vector<OldKey> old_keys;
        for (const std::string& root : PartitionSearchList) {
            for (const auto& [key, target] : LoadedFrom(root + "/etc/" + kNvFlagMap)) {
                std::string found;
                if (key.empty() || key.size() > kNvKeySize || target.empty()) continue;
                find_nv_ssv_target_key(key, kNvFlagMap, &found);
                if (found == target) old_keys.push_back({target, key, words});
            }
        }
        return old_keys;
    }

    void AddRoot(const std::string& root, Reading reading) {
        reading.occasion = Occasion::kPartition;
        // Any root's own file has a step of its own.
        if (reading.root != Reading::kElsewhere) Add(root + "/" + kBuildProp, reading);
        if (reading.root == Reading::kListed) {
            reading.occasion = Occasion::kNvMap;
            Add(root + "/etc/" + kSwitchKeyMap, reading);
            reading.occasion = Occasion::kFlagMap;
            Add(root + "/etc/" + kNvFlagMap, reading);
        } else {
            AddOldKeyFiles(root, reading, old_keys_);
        }
        reading.occasion = Occasion::kKeyDirectory;
        ForEachKeyDirectory(
                root, [&](size_t index, const std::string& key, const std::string& directory) {
                    reading.key_index = static_cast<int>(index);
                    reading.key = key;
                    for (const Entry& file : EntriesIn(directory)) {
                        if (EndsWith(file.name, ".prop")) Add(directory + "/" + file.name, reading);
                    }
                });
    }

    void AddOldKeyFiles(const std::string& root, Reading reading,
                        const std::vector<OldKey>& old_keys) {
        reading.occasion = Occasion::kOldKeyFile;
        Add(root + "/etc/build..prop", reading);
        for (const OldKey& old : old_keys) {
            reading.key = old.key;
            reading.root_words = old.root_words;
            reading.is_through_mount = old.is_through_mount;
            Add(root + "/etc/build." + old.target + ".prop", reading);
        }
    }

    void AddCarrierPackage() {
        if (const auto& package = mounted_.package) {
            AddRoot(package->source, At(package->source, Reading::kPackage));
            AddRoot(package->source + "/cust", At(package->source + "/cust", Reading::kPackage));
        }
        if (const auto& module = mounted_.module) {
            AddRoot(module->source, At(module->source, Reading::kModule));
        }
    }

    Readings* readings_;
    bool has_mapping_;
    const MountedSources& mounted_;
    std::set<std::string> known_roots_;
    std::vector<OldKey> old_keys_;  // the device's own first
};

class Surveyor {
  public:
    explicit Surveyor(const std::function<bool(const std::string& name)>& wanted)
            : wanted_(wanted) {}

    Survey Take() {
        Walk();
        std::sort(survey_.files.begin(), survey_.files.end(),
                  [](const SurveyedFile& a, const SurveyedFile& b) { return a.path < b.path; });
        FollowImports();
        AddLinks();
        Readings readings;
        const bool has_mapping = std::any_of(
                survey_.files.begin(), survey_.files.end(),
                [](const SurveyedFile& file) { return UseOf(file.path) == FileUse::kMapping; });
        ReadingFinder finder(&readings, has_mapping, mounted_);
        finder.FindAll();
        for (const std::string& root : key_roots_) finder.AddElsewhere(root);
        for (SurveyedFile& file : survey_.files) {
            auto found = readings.find(file.source.value_or(file.path));
            if (found != readings.end()) file.readings = found->second;
        }
        FindOldKeyState();
        return std::move(survey_);
    }

  private:
    void Walk() {
        std::error_code error;
        const auto options = fs::directory_options::skip_permission_denied;
        for (fs::recursive_directory_iterator entry("/", options, error), end; entry != end;
             entry.increment(error)) {
            const std::string& path = entry->path().native();
            if (path == "/proc" || path == "/sys") entry.disable_recursion_pending();
            if (EndsWith(path, std::string("/") + kKeysDirectory))
                key_roots_.push_back(Dirname(path));
            if (fnmatch("*/etc/build.*.prop", path.c_str(), 0) == 0) {
                key_roots_.push_back(Dirname(Dirname(path)));
            }
            if (!UseOf(path) && !IsOfSwitchKey(path)) continue;
            std::error_code gone;
            const fs::file_status status = entry->symlink_status(gone);
            if (fs::is_symlink(status)) {
                links_.push_back(path);
            } else if (fs::is_regular_file(status)) {
                Read(path, std::nullopt);
            }
        }
    }

    // Files that property files import may have any name.
    void FollowImports() {
        if (mounted_.package) survey_.package_target = mounted_.package->target;
        if (mounted_.module) survey_.module_target = mounted_.module->target;
        std::vector<Mounted> mounted;
        for (const auto& each : {mounted_.package, mounted_.module}) {
            if (!each || !each->target) continue;
            mounted.push_back(*each);
            survey_.mounted_sources.push_back(RealPath(each->source, true).value_or(each->source));
        }
        for (size_t i = 0; i < survey_.files.size(); ++i) {
            for (size_t j = 0; j < survey_.files[i].imports.size(); ++j) {
                const std::string text = survey_.files[i].imports[j].text;
                std::vector<std::string> paths = {text};
                if (text.find('$') != std::string::npos) {
                    for (const std::string& name : References(text)) {
                        survey_.references.insert(name);
                    }
                    paths = PathsLike(text);
                    // With the defaults alone, which may have slashes.
                    const auto expanded = ExpandProps(text);
                    if (expanded.ok()) paths.push_back(*expanded);
                }
                for (const std::string& path : paths) {
                    std::vector<std::optional<std::string>> found = {RealPath(path, false)};
                    for (const Mounted& each : mounted) found.push_back(ThroughMount(path, each));
                    for (const auto& own : found) {
                        if (!own || !IsRegular(*own)) continue;
                        survey_.files[i].imports[j].targets.emplace_back(path, *own);
                        Read(*own, std::nullopt);
                    }
                }
            }
        }
    }

    // A link is refused, but its lines are there for whoever looks for them.
    void AddLinks() {
        for (const std::string& link : links_) {
            const auto own = RealPath(link, true);
            if (own && IsRegular(*own)) Read(link, *own);
        }
    }

    void Read(const std::string& path, const std::optional<std::string>& source) {
        const std::string& own = source ? *source : path;
        if (!read_.insert(own).second) return;
        struct stat status;
        const bool is_huge = lstat(own.c_str(), &status) == 0 && status.st_size > kMostBytes;
        const auto content = is_huge ? std::string() : LoadTracker::Content(own);
        if (!content) return;
        SurveyedFile file;
        file.path = path;
        file.source = source;
        for (const PropertyLine& line :
             PropertyLines(*content, UseOf(path) == FileUse::kDeviceName)) {
            const std::string name(line.name);
            if (line.kind == PropertyLine::kImport) {
                const auto text = PlainText(line.name);
                if (text) file.imports.push_back({line.number, *text, std::string(line.value), {}});
            } else if (line.kind == PropertyLine::kProperty && wanted_(name)) {
                file.lines.push_back({line.number, name, std::string(line.value), true});
            }
        }
        survey_.files.push_back(std::move(file));
    }

    void FindOldKeyState() {
        for (const SurveyedFile& file : survey_.files) {
            if (!EndsWith(file.path, kSwitchKeyMap)) continue;
            for (const auto& [key, target] : LoadedFrom(file.path)) survey_.switch_keys.insert(key);
        }
        PartitionSearchList = findPartitionRoots();
        for (const char* key : {"unmapped", "no key", "0"}) {
            std::string flag, target;
            find_nv_ssv_target_key(key, kNvFlagMap, &flag);
            find_nv_ssv_target_key(key, kSwitchKeyMap, &target);
            if (flag.empty() && target.empty()) survey_.unmapped_key = key;
        }
        std::string nv_key;
        load_old_nv_key(&nv_key, &survey_.nv_target);
        survey_.has_first_key = access(kReserveFirstFile, F_OK) == 0;
        survey_.has_mark = valueOf(LoadedFrom(kConvertFile), kSimSwitchConvert) == "true";
    }

    const std::function<bool(const std::string& name)>& wanted_;
    Survey survey_;
    std::set<std::string> read_;
    std::vector<std::string> links_;
    std::vector<std::string> key_roots_;  // whatever has properties that keys select
    const MountedSources mounted_;
};

}  // namespace

bool MayLeadTo(const std::string& text, const std::string& path) {
    return fnmatch(PatternOf(text).c_str(), path.c_str(), 0) == 0;
}

std::optional<Survey> TakeSurvey(const sandbox::Sandbox& root,
                                 const std::function<bool(const std::string& name)>& wanted,
                                 std::chrono::seconds limit) {
    auto survey = AskInside(
            root, [&] { return ToJson(Surveyor(wanted).Take()); }, limit);
    if (!survey) return std::nullopt;
    return SurveyFromJson(std::move(*survey));
}

}  // namespace extprop
