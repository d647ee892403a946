#include "explain/requirements.h"

#include <string.h>

#include <algorithm>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "TesvoExtensionProperty/cota.h"
#include "TesvoExtensionProperty/names.h"
#include "boot/real_path.h"
#include "boot/what_if.h"
#include "device/legal.h"
#include "device/property_lines.h"

namespace extprop {

namespace {

using namespace android::init;
using android::base::StartsWith;

// Properties are read into buffers of this size less the closing zero.
constexpr size_t kLongestRead = 91;

// Does nothing, but brings the stored persistent properties in force, which win over early ones.
constexpr char kStoredStep[] = "media:/my_what-if";

// A switch key and an operator that no device has.
constexpr char kTriedKey[] = "what-if";
constexpr char kTriedOperator[] = "if";

const char* const kRecopyPreload = "persist.sys.recopy.preload.opinstalled";
constexpr char kCarrierCode[] = "ro.boot.vxcarrier";

// So many ways are tried in which imports may lead to a file, of so many that are looked at.
constexpr size_t kMostChains = 8;
constexpr size_t kMostLinks = 1000;

// To try words that are reckoned for certain, boots may come to so many files in all.
constexpr size_t kMostFilesTried = 1500;

std::string Setting(const std::string& name, const std::string& value) {
    return name + "=" + value;
}

bool IsWord(const Step& step, const char* word) {
    return strcmp(step.kind->word, word) == 0;
}

// Returns the words with what makes them count behind a reboot, if they can.
std::optional<Words> BehindReboot(Words words, const Reading& reading) {
    if (std::find(words.begin(), words.end(), "reboot") != words.end()) return words;
    const auto step = std::find_if(words.begin(), words.end(), IsStepWord);
    if (step == words.end()) {
        if (reading.root == Reading::kCompany) return std::nullopt;  // it is applied once
        const bool is_early = reading.occasion == Occasion::kPartition;
        return words + Words{"reboot", is_early ? "early" : "persist"};
    }
    // The new boot has to find the old key again, and otherwise has nothing before its first step
    // that brings the stored properties in force.
    const bool takes_old_key = reading.occasion == Occasion::kOldKeyFile && !reading.key.empty();
    Words reboot = {"reboot"};
    if (takes_old_key && *step != "persist") {
        reboot.emplace_back("persist");
    } else if (*step == kTriedStep) {
        reboot.emplace_back(kStoredStep);
    }
    words.insert(step, reboot.begin(), reboot.end());
    return words;
}

// Whether the file goes when a step persist restores the sales channel.
bool IsChannelState(const std::string& path) {
    constexpr const char* kFiles[] = {kEmptyAppChannelFile, kReserveCommonFile, kDataCommonFile,
                                      kDataRegionFile, kReserveRegionFile};
    return std::find(std::begin(kFiles), std::end(kFiles), path) != std::end(kFiles);
}

// Whether an edit of the file can give a property this value: a line's ends are dropped.
bool CanEdit(const std::string& path, const std::string& value) {
    return path.find(':') == std::string::npos && android::base::Trim(value) == value;
}

// Whether a tried partition can give the property this value, and the library read it whole.
bool CanBeTried(const std::string& name, const std::string& value) {
    return value.size() <= kLongestRead && !WhyRefused(name, value) && CanEdit("", value);
}

bool Mounts(const Words& words) {
    return std::any_of(words.begin(), words.end(),
                       [](const std::string& word) { return StartsWith(word, "cota-service:"); });
}

// The installing service's message that makes the root a package's or a module's, or null.
const char* MessageOf(Reading::Root root) {
    if (root == Reading::kPackage) return kCotaMountInfoFile;
    return root == Reading::kModule ? kCotaModuleInfoFile : nullptr;
}

const char* ServiceStep(Reading::Root root) {
    return root == Reading::kModule ? "cota-service:module_bind_single"
                                    : "cota-service:mount_and_check_load";
}

// Replaces each reference to `name` in the text by `value`.
std::string Substituted(std::string text, const std::string& name, const std::string& value) {
    const std::string open = "${" + name;
    for (size_t at = 0; (at = text.find(open, at)) != std::string::npos;) {
        const size_t close = text.find('}', at);
        const std::string rest = text.substr(at + open.size(), 2);
        if (close == std::string::npos) break;
        if (rest[0] != '}' && rest != ":-") {
            at = close;
            continue;
        }
        text.replace(at, close + 1 - at, value);
        at += value.size();
    }
    return text;
}

// The name of no reference.
constexpr char kNoName[] = "{";

// Returns the values of the references in the text with which it becomes the path, if it can.
using Values = std::vector<std::pair<std::string, std::string>>;
std::optional<Values> ValuesThatLead(const std::string& text, const std::string& path) {
    const size_t start = text.find("${");
    const size_t end = start == std::string::npos ? start : text.find('}', start);
    if (end == std::string::npos) return text == path ? std::optional(Values()) : std::nullopt;
    if (path.compare(0, start, text, 0, start) != 0) return std::nullopt;
    const std::string inside = text.substr(start + 2, end - start - 2);
    const std::string name = inside.substr(0, inside.find(":-"));
    for (size_t size = path.size() - start; size > 0; --size) {
        const std::string value = path.substr(start, size);
        // The same name has the same value everywhere.
        auto values = ValuesThatLead(Substituted(text, name, value), path);
        if (!values) continue;
        values->insert(values->begin(), {name, value});
        return values;
    }
    return std::nullopt;
}

}  // namespace

const std::vector<const char*>& Requirements::ControlProperties() {
    static const std::vector<const char*> names = {
            kSimSwitchFirst, kSimSwitchCurrent,   kChannelInfo,       kRegionSwitchFirst,
            kCompanyDate,    kCompanyDateApplied, kEmergencyShutdown, kCarrierCode,
            kRecopyPreload,  kCotaVerified,       kCotaRoot,          kOperatorA,
            kOperatorB,      kSimSwitchConvert,
    };
    return names;
}

Requirements::Requirements(const Survey& survey, const Tracer& tracer, const Report& report,
                           const BootOptions& options, const Loads& loads)
        : survey_(survey),
          loads_(loads),
          tracer_(tracer),
          report_(report),
          steps_(options.plan.steps),
          given_(options.plan.properties),
          names_no_steps_(options.names_no_steps) {
    for (const SurveyedFile& file : survey.files) {
        files_[file.source.value_or(file.path)] = &file;
        for (const Reading& reading : file.readings) has_mounted_maps_ |= reading.is_through_mount;
        for (const SurveyedImport& import : file.imports) {
            has_filters_ |= !import.filter.empty();
            for (const auto& [path, own] : import.targets) {
                importers_[own].push_back({&file, &import, path});
            }
            if (import.text.find('$') != std::string::npos) {
                referring_.push_back({&file, &import, ""});
            }
        }
    }
    is_all_tried_ = report.failure.has_value();
    std::set<std::string> way, done;
    for (const SurveyedFile& file : survey.files) {
        is_all_tried_ |= ImportsItself(file.path, kNoName, "", &way, &done);
    }
}

std::optional<Words> Requirements::WordsFor(const std::string& path, const std::string& name) {
    auto file = files_.find(path);
    if (file == files_.end()) return std::nullopt;
    return WordsFor(*file->second, name);
}

std::optional<Words> Requirements::WordsFor(const SurveyedFile& file, const std::string& name) {
    // What did not come back once would not do so again, and be waited for each time.
    if (report_.failure && report_.failure->timed_out) return std::nullopt;
    auto words = FileWords(file);
    if (words) words = WithDefaultSteps(*words);
    if (words && (!IsToBeTried(*words) || loads_(*words, file, name))) return words;
    if (IsGone(file.source.value_or(file.path))) return std::nullopt;
    // Only filters make a difference between the lines of a file.
    auto [entry, is_new] = imported_.try_emplace({file.path, has_filters_ ? name : ""});
    if (is_new) entry->second = ImportWords(file, name);
    return entry->second;
}

// Whether the words are tried although they are reckoned from all that is known: where a boot may
// die of them, and where boots are cheap, so that no mistake in the reckoning is told.
bool Requirements::IsToBeTried(const Words& words) {
    if (is_all_tried_ || tried_.count(words) != 0) return true;
    if ((tried_.size() + 1) * survey_.files.size() > kMostFilesTried) return false;
    return tried_.insert(words).second;
}

// A command line that names a step has none of those that go without saying.
Words Requirements::WithDefaultSteps(Words words) const {
    if (!names_no_steps_) return words;
    auto word = words.begin();
    while (word != words.end() && StartsWith(*word, "--")) word += 2;  // an option and its value
    if (word != words.end()) {
        words.insert(word, std::begin(kDefaultSteps), std::end(kDefaultSteps));
    }
    return words;
}

// Returns the words that make the library load the file for its own sake.
std::optional<Words> Requirements::FileWords(const SurveyedFile& file) {
    const std::string& path = file.source ? *file.source : file.path;
    auto [entry, is_new] = known_.try_emplace(path);
    if (!is_new) return entry->second;
    const bool is_restored = IsChannelState(path) && (IsGone(path) || RestoresChannel());
    for (const Reading& reading : file.readings) {
        if ((IsGone(path) && !is_restored) || entry->second) break;
        if (HangsOnMount(reading)) continue;
        entry->second = ReadingWords(reading);
        if (entry->second && is_restored) entry->second = WithoutRestore() + *entry->second;
        // What is mounted over the file hides it until a reboot.
        if (entry->second && IsCovered(path)) entry->second = BehindReboot(*entry->second, reading);
    }
    if (!entry->second) entry->second = OwnStepWords(file);
    for (const Reading& reading : file.readings) {
        if (!HangsOnMount(reading)) continue;
        for (const Words& words : MountedMapWords(reading)) {
            if (!entry->second && loads_(WithDefaultSteps(words), file, "")) entry->second = words;
        }
    }
    return entry->second;
}

// Whether a map that something brings when it is mounted decides about the reading.
bool Requirements::HangsOnMount(const Reading& reading) const {
    const bool is_of_old_key = reading.occasion == Occasion::kFlagMap ||
                               reading.occasion == Occasion::kNvMap ||
                               (reading.occasion == Occasion::kOldKeyFile && !reading.key.empty());
    return reading.is_through_mount || (has_mounted_maps_ && is_of_old_key);
}

// Returns the words that may have the boot look for an old key while a package or module is
// mounted.
std::vector<Words> Requirements::MountedMapWords(const Reading& reading) const {
    const bool is_map = reading.occasion != Occasion::kOldKeyFile;
    const Words key =
            reading.root_words + Words{"--nv", is_map ? survey_.unmapped_key : reading.key};
    std::vector<Words> ways;
    if (auto words = reading.is_through_mount ? std::nullopt : ReadingWords(reading)) {
        ways.push_back(*words);
        if (auto behind = BehindReboot(*words, reading)) ways.push_back(*behind);
    }
    if (auto words = FirstPassWords(key)) ways.push_back(*words);
    ways.push_back(key + Words{"reboot", "persist"});
    for (const std::string& step : MountingSteps()) {
        ways.push_back(key + Words{step, "persist"});
        ways.push_back(key + Words{"reboot", step, "persist"});
    }
    return ways;
}

// Returns the steps that would still mount a package or module.
Words Requirements::MountingSteps() const {
    Words steps;
    for (const Reading::Root root : {Reading::kPackage, Reading::kModule}) {
        const auto& target =
                root == Reading::kPackage ? survey_.package_target : survey_.module_target;
        if (target && !IsGone(MessageOf(root))) steps.emplace_back(ServiceStep(root));
    }
    return steps;
}

// Any root's own file has a step.
std::optional<Words> Requirements::OwnStepWords(const SurveyedFile& file) const {
    if (IsGone(file.path) || file.source || android::base::Basename(file.path) != kBuildProp) {
        return std::nullopt;
    }
    return AtEnd({"early:" + android::base::Dirname(file.path)});
}

// Returns the words that load a file of a carrier package or module, and mount neither.
std::optional<Words> Requirements::UnmountedWords(const SurveyedFile& file) const {
    if (auto words = OwnStepWords(file)) return words;
    const std::string& path = file.source ? *file.source : file.path;
    for (Reading reading : file.readings) {
        if (MessageOf(reading.root) == nullptr || IsGone(path)) continue;
        reading.root = Reading::kElsewhere;
        if (reading.occasion == Occasion::kPartition) continue;
        auto words = ReadingWords(reading);
        if (words && IsCovered(path)) words = BehindReboot(*words, reading);
        if (words) return words;
    }
    return std::nullopt;
}

std::optional<Words> Requirements::ReadingWords(const Reading& reading) const {
    switch (reading.occasion) {
        case Occasion::kPartition:
            if (reading.root == Reading::kCompany) return CompanyWords(reading);
            if (MessageOf(reading.root) == nullptr) return PartitionWords(reading);
            if (IsGone(MessageOf(reading.root))) return std::nullopt;
            return Words{ServiceStep(reading.root)};
        case Occasion::kKeyDirectory:
            if (reading.root == Reading::kCompany) return CompanyWords(reading);
            return KeyDirectoryWords(reading);
        case Occasion::kOldKeyFile:
            return OldKeyWords(reading);
        case Occasion::kFlagMap:
            if (survey_.unmapped_key.empty()) return std::nullopt;
            return FirstPassWords(reading.root_words + Words{"--nv", survey_.unmapped_key});
        case Occasion::kNvMap:
            return SwitchKeyMapWords(reading);
        case Occasion::kKeyFiles:
            return FirstPassWords({});
        case Occasion::kDataCommon:
            return Words{"sim:updateDataCommonProp"};
        case Occasion::kEmptyChannel:
            return Words{"sim:emptyAppchannelProp"};
        case Occasion::kCompanyConfig:
            return Words{"duskrider"};
        case Occasion::kMountInfo:
            return Words{ServiceStep(Reading::kPackage)};
        case Occasion::kModuleInfo:
            return Words{ServiceStep(Reading::kModule)};
    }
    return std::nullopt;
}

// All maps are read where neither the carrier's code nor the old nv key is found in one.
std::optional<Words> Requirements::SwitchKeyMapWords(const Reading& reading) const {
    const std::string& unmapped = survey_.unmapped_key;
    if (unmapped.empty() || survey_.has_first_key) return std::nullopt;
    std::set<Words> changes;
    // The mark that this boot's migration makes comes after it.
    const std::string no_mark = Setting(kSimSwitchConvert, "false");
    if (survey_.has_mark) changes.insert({"--edit", std::string(kConvertFile) + ":" + no_mark});
    // What partitions say of the mark, those of another brand or region too, does not outlast a
    // reboot.
    bool takes_reboot = !reading.root_words.empty();
    for (const Origin& mark : tracer_.GivenTo(kSimSwitchConvert)) {
        if (mark.value != "true") continue;
        if (mark.kind == OriginKind::kGiven) {
            changes.insert({"--set", no_mark});
        } else if (mark.kind != OriginKind::kFile) {
            return std::nullopt;
        }
        takes_reboot |= mark.kind == OriginKind::kFile && mark.own_file() != kConvertFile;
    }
    // Any boot may be the one that would migrate the carrier's code.
    const std::string setting = Setting(kCarrierCode, unmapped);
    for (const Origin& code : tracer_.GivenTo(kCarrierCode)) {
        if (survey_.switch_keys.count(code.value) == 0) continue;
        if (code.kind == OriginKind::kGiven) {
            changes.insert({"--set", setting});
        } else if (code.kind == OriginKind::kFile) {
            changes.insert({"--edit", code.own_file() + ":" + setting});
        } else {
            return std::nullopt;
        }
    }
    Words words = reading.root_words + Words{"--nv", unmapped};
    for (const Words& change : changes) words = change + words;
    return takes_reboot ? words + Words{"reboot", "persist"} : FirstPassWords(words);
}

std::optional<Words> Requirements::PartitionWords(const Reading& reading) const {
    const bool has_early = std::any_of(steps_.begin(), steps_.end(), [](const Step& step) {
        return IsWord(step, "early") && step.kind->argument == nullptr;
    });
    if (!has_early) return AtEnd(reading.root_words + Words{"early"});
    if (reading.root_words.empty()) return std::nullopt;
    return reading.root_words;
}

// The directory is loaded by the command of its key, which reads the key's property.
std::optional<Words> Requirements::KeyDirectoryWords(const Reading& reading) const {
    if (reading.root == Reading::kElsewhere) return ElsewhereWords(reading);
    const SwitchKey& key = SwitchKeys()[reading.key_index];
    auto words = SetWords(reading, key.property, reading.key, key.key_file);
    if (!words) return std::nullopt;
    return ThroughRoot(reading, *words + Words{std::string("sim:") + key.command});
}

// The file of an old nv key's target is loaded wherever switch keys are, the one without a target
// for any operator pair.
std::optional<Words> Requirements::OldKeyWords(const Reading& reading) const {
    if (reading.root == Reading::kCompany) return CompanyWords(reading);
    if (!reading.key.empty()) {
        const bool is_listed = reading.root == Reading::kListed;
        auto words =
                FirstPassWords({"--nv", reading.key}, is_listed ? InBoot::kAny : InBoot::kLast);
        return words ? ThroughRoot(reading, *words) : std::nullopt;
    }
    // A boot without the step persist knows no old key. Another brand or region may map one.
    const bool has_target = !survey_.nv_target.empty() || !reading.root_words.empty();
    Words words = has_target ? Words{"reboot", kStoredStep} : Words{};
    for (const char* property : {kOperatorA, kOperatorB}) {
        const auto set = has_target ? LateSetWords(property, kTriedOperator)
                                    : SetWords(reading, property, kTriedOperator, nullptr);
        if (!set) return std::nullopt;
        words = words + *set;
    }
    return ThroughRoot(reading, words + Words{"sim"});
}

// Adds what makes the library look below the reading's root for what the switch keys select.
std::optional<Words> Requirements::ThroughRoot(const Reading& reading, Words words) const {
    const char* message = MessageOf(reading.root);
    if (message != nullptr ? IsGone(message) : reading.root == Reading::kElsewhere) {
        return ElsewhereWords(reading);
    }
    words = reading.root_words + words;
    if (message != nullptr) words.push_back(ServiceStep(reading.root));
    return words;
}

// The one way to a root that nothing searches: what is called a verified carrier package is
// searched too, as soon as there is any key but a channel. What the keys select may say otherwise,
// so all is said last.
std::optional<Words> Requirements::ElsewhereWords(const Reading& reading) const {
    std::vector<std::pair<std::string, std::string>> settings = {{kCotaVerified, "1"},
                                                                 {kCotaRoot, reading.place}};
    Words options = reading.root_words;
    Words commands = {"sim"};
    if (reading.occasion == Occasion::kKeyDirectory) {
        const std::string key = SwitchKeys()[reading.key_index].property;
        settings.emplace_back(key, reading.key);
        if (key == kChannelInfo) {
            settings.emplace_back(kRegionSwitchFirst, kTriedKey);
            const std::string command = SwitchKeys()[reading.key_index].command;
            commands = {"sim:" + command, "sim"};
        }
    } else if (reading.key.empty()) {
        if (!survey_.nv_target.empty()) options = options + Words{"reboot", kStoredStep};
        settings.emplace_back(kOperatorA, kTriedOperator);
        settings.emplace_back(kOperatorB, kTriedOperator);
    } else {
        settings.emplace_back(kRegionSwitchFirst, kTriedKey);
        auto words = FirstPassWords({"--nv", reading.key}, InBoot::kLast);
        if (!words) return std::nullopt;
        options = options + *words;
    }
    Words words, steps;
    for (const auto& [name, value] : settings) {
        const auto set = LateSetWords(name.c_str(), value);
        if (!set) return std::nullopt;
        words.insert(words.end(), set->begin(), set->begin() + 2);
        const Words tried(set->begin() + 2, set->end());  // once, behind the options
        if (tried.size() > steps.size()) steps = tried;
    }
    // A command may hand on another value of what was tried.
    for (const std::string& command : commands) {
        options = options + steps + Words{command};
        steps = {kTriedStep};
    }
    return words + options;
}

// The company's own root is read by the first step persist that finds a new image.
std::optional<Words> Requirements::CompanyWords(const Reading& reading) const {
    const bool is_dated = tracer_.Winner(kCompanyDate) != nullptr ||
                          tracer_.Winner(kCompanyDateApplied) != nullptr;
    const bool is_key = reading.occasion == Occasion::kKeyDirectory;
    const SwitchKey& key = SwitchKeys()[reading.key_index];
    // What a later key file says of the key would win.
    const Origin* winner = is_key ? tracer_.Winner(key.property) : nullptr;
    const bool is_said_later = winner != nullptr && winner->kind == OriginKind::kFile &&
                               winner->own_file() != key.key_file && !winner->written &&
                               winner->own_file() != kReserveFirstFile &&
                               winner->own_file() != kReserveCurrentFile &&
                               winner->own_file() != kReserveRegionFile;
    const bool is_of_operator = reading.occasion == Occasion::kOldKeyFile && reading.key.empty();
    if (is_dated || is_said_later || is_of_operator || (report_.boots.size() > 1 && HasPersist())) {
        return LateCompanyWords(reading);
    }
    Words words = {"--set", Setting(kCompanyDate, TriedDate())};
    if (is_key) {
        if (WhyRefused(key.property, reading.key)) return std::nullopt;
        if (RestoresChannel()) words = words + WithoutRestore();
        words = words + Words{"--edit",
                              std::string(key.key_file) + ":" + Setting(key.property, reading.key)};
    }
    if (reading.occasion == Occasion::kOldKeyFile) {
        words = words + reading.root_words + Words{"--nv", reading.key};
    }
    auto first_pass = FirstPassWords(words);
    // A step persist that comes too late for the keys applies the image all the same.
    if (HasPersist() && first_pass->size() > words.size()) return LateCompanyWords(reading);
    return first_pass;
}

// Returns the date of a company image that this boot has neither had nor applied.
std::string Requirements::TriedDate() const {
    std::set<std::string> known;
    for (const char* name : {kCompanyDate, kCompanyDateApplied}) {
        for (const Origin& origin : tracer_.GivenTo(name)) known.insert(origin.value);
    }
    std::string date = "what-if";
    while (known.count(date) != 0) date += "-again";
    return date;
}

// The same whatever the steps so far have made of it: a last step persist finds an image that none
// before it did.
std::optional<Words> Requirements::LateCompanyWords(const Reading& reading) const {
    std::vector<std::pair<std::string, std::string>> settings = {{kCompanyDate, TriedDate()}};
    Words rest;
    if (reading.occasion == Occasion::kKeyDirectory) {
        const SwitchKey& key = SwitchKeys()[reading.key_index];
        const SwitchKey& first = SwitchKeys().front();
        settings.emplace_back(key.property, reading.key);
        rest = TriedSteps(key.property);
        // With a first key no step persist reads the key files, which may say otherwise.
        if (&key != &first) {
            settings.emplace_back(first.property, kTriedKey);
            rest = rest + Words{std::string("sim:") + first.command};
        }
        rest = rest + Words{std::string("sim:") + key.command};
    } else if (reading.occasion == Occasion::kOldKeyFile && reading.key.empty()) {
        // With a switch key of its own the boot looks for no old one.
        settings.emplace_back(kOperatorA, kTriedOperator);
        settings.emplace_back(kOperatorB, kTriedOperator);
        settings.emplace_back(kRegionSwitchFirst, kTriedKey);
        rest = {"reboot", kStoredStep, kTriedStep, "sim"};
    } else if (reading.occasion == Occasion::kOldKeyFile) {
        const auto words =
                FirstPassWords(reading.root_words + Words{"--nv", reading.key}, InBoot::kLast);
        if (!words) return std::nullopt;
        rest = *words;
    }
    Words words;
    for (const auto& [name, value] : settings) {
        if (!CanBeTried(name, value)) return std::nullopt;
        words = words + TriedWords(name, value);
    }
    return words + rest + Words{kTriedStep, "persist"};
}

// Returns the words that make the property have the value when the steps so far are done.
std::optional<Words> Requirements::SetWords(const Reading& reading, const char* property,
                                            const std::string& value, const char* key_file) const {
    // Another brand or region may bring other values.
    if (!IsPlain() || !reading.root_words.empty()) return LateSetWords(property, value);
    if (value.size() > kLongestRead || WhyRefused(property, value)) return std::nullopt;
    if (ValueOf(property) == value) return Words{};
    const Origin* winner = tracer_.Winner(property);
    const bool is_reset = property == std::string_view(kChannelInfo) && RestoresChannel();
    if ((winner == nullptr || winner->kind == OriginKind::kGiven) && !is_reset) {
        return Words{"--set", Setting(property, value)};
    }
    if (winner != nullptr && winner->kind == OriginKind::kFile && !is_reset) {
        if (!CanEdit(winner->own_file(), value)) return std::nullopt;
        return Words{"--edit", winner->own_file() + ":" + Setting(property, value)};
    }
    const bool is_key = property == std::string_view(kSimSwitchFirst) ||
                        property == std::string_view(kSimSwitchCurrent) ||
                        property == std::string_view(kRegionSwitchFirst);
    if (winner != nullptr && winner->kind == OriginKind::kOperation && is_key &&
        CanEdit(key_file, value)) {
        return Words{"--edit", std::string(key_file) + ":" + Setting(property, value)};
    }
    return LateSetWords(property, value);
}

// The same whatever the steps so far have made of the property.
std::optional<Words> Requirements::LateSetWords(const char* property,
                                                const std::string& value) const {
    if (!CanBeTried(property, value)) return std::nullopt;
    return TriedWords(property, value) + TriedSteps(property);
}

// The steps that load the tried partition where the property keeps the value.
Words Requirements::TriedSteps(const std::string& property) const {
    const auto last = std::find_if(steps_.rbegin(), steps_.rend(),
                                   [](const Step& step) { return !step.is_early(); });
    const bool stored_come_later = last == steps_.rend() || last->is_reboot();
    if (!stored_come_later || !StartsWith(property, "persist.")) return {kTriedStep};
    return {kStoredStep, kTriedStep};
}

// Adds what makes a step persist, one of any boot or of the last, find the key files as the words
// leave them.
std::optional<Words> Requirements::FirstPassWords(Words words, InBoot boot) const {
    bool fresh = true;  // no step of the boot has filled the switch keys yet
    bool persist_in_boot = false;
    bool is_there = false;
    for (const Step& step : steps_) {
        if (step.is_reboot()) {
            fresh = true;
            persist_in_boot = false;
            if (boot == InBoot::kLast) is_there = false;
        } else if (IsWord(step, "persist")) {
            is_there |= fresh;
            persist_in_boot = true;
        } else if (IsWord(step, "sim")) {
            fresh = false;
        }
    }
    if (is_there && !words.empty()) return words;
    if (!fresh || persist_in_boot) words.push_back("reboot");
    words.push_back("persist");
    return words;
}

// What is mounted ends with a reboot.
Words Requirements::AtEnd(Words words) const {
    if (tracer_.covered().empty()) return words;
    words.insert(words.end() - 1, "reboot");
    return words;
}

// Words that hang on what properties are at some moment are tried out.
std::optional<Words> Requirements::ImportWords(const SurveyedFile& file, const std::string& name) {
    for (const Importer& importer : ImportersOf(file)) {
        if (!PassesFilter(name, importer.import->filter)) continue;
        for (const Words& way : WaysTo(file, importer)) {
            const auto words = WordsToImported(way, file, *importer.file);
            if (!words) continue;
            const Words whole = WithDefaultSteps(*words);
            const bool is_tried = uncertain_.count(way) != 0 || IsToBeTried(whole);
            if (!is_tried || loads_(whole, file, name)) return whole;
        }
    }
    return std::nullopt;
}

// Returns what may import the file; what takes a value with slashes to do so comes last.
const std::vector<Requirements::Importer>& Requirements::ImportersOf(const SurveyedFile& file) {
    std::vector<Importer>& importers = importers_[file.path];
    if (file.source || !has_all_importers_.insert(file.path).second) return importers;
    for (const Importer& far : referring_) {
        const bool is_known =
                std::any_of(importers.begin(), importers.end(),
                            [&](const Importer& near) { return near.import == far.import; });
        if (!is_known && MayLeadTo(far.import->text, file.path)) {
            importers.push_back({far.file, far.import, file.path});
        }
    }
    return importers;
}

// Returns the words that may bring the import to the file, the likeliest first.
std::vector<Words> Requirements::WaysTo(const SurveyedFile& file, const Importer& importer) {
    const auto reckoned = ImportWords(importer);
    std::vector<Words> ways;
    if (reckoned) ways.push_back(*reckoned);
    // What every boot reads is not itself come to by what is set.
    const auto& readings = importer.file->readings;
    const bool is_always_read =
            std::any_of(readings.begin(), readings.end(), [](const Reading& reading) {
                return reading.occasion == Occasion::kPartition &&
                       reading.root == Reading::kListed && reading.root_words.empty();
            });
    const bool is_plain =
            is_always_read && reckoned && reckoned->size() == 2 && reckoned->front() == "--set";
    const bool refers = importer.import->text != importer.path;
    // Where the library dies, each trial is slow and few others would not do so too.
    const bool is_tried = !reckoned || (refers && !is_plain) || MayBeMounted(file);
    if (is_tried && !report_.failure) {
        if (reckoned) uncertain_.insert(*reckoned);
        for (Words& words : OtherWaysTo(importer, reckoned)) {
            uncertain_.insert(words);
            ways.push_back(std::move(words));
        }
    }
    return ways;
}

// Whether an import may lead to the file only while something is mounted, or while nothing is.
bool Requirements::MayBeMounted(const SurveyedFile& file) const {
    const auto& sources = survey_.mounted_sources;
    return IsCovered(file.path) ||
           std::any_of(sources.begin(), sources.end(), [&](const std::string& source) {
               return StartsWith(file.path, source + "/");
           });
}

std::vector<Words> Requirements::OtherWaysTo(const Importer& importer,
                                             const std::optional<Words>& reckoned) {
    std::vector<Words> ways;
    const auto own_step = OwnStepWords(*importer.file);
    const auto loading = FileWords(*importer.file);
    const auto whole = WholeFileWords(*importer.file);
    // A boot that the words add has to load the properties again.
    if (reckoned) {
        Words early, unedited;
        for (size_t i = 0; i < reckoned->size(); ++i) {
            const std::string& word = (*reckoned)[i];
            early.push_back(word);
            if (word == "reboot") early.emplace_back("early");
            if (word == "--edit") {
                ++i;
                early.push_back((*reckoned)[i]);
            } else {
                unedited.push_back(word);
            }
        }
        ways.push_back(early);
        ways.push_back(unedited);
    }
    if (whole) ways.push_back(*whole);
    if (loading) ways.push_back(*loading);
    for (const std::string& step : MountingSteps()) {
        ways.push_back({step, "early"});
        if (own_step) ways.push_back(Words{step} + *own_step);
    }
    Way way = {{}, kMostLinks};
    for (const Chain& chain : ChainsTo(importer, &way)) {
        Words set, tried;
        bool can_be_tried = true;
        for (const auto& [name, value] : chain.values) {
            set = set + Words{"--set", Setting(name, value)};
            tried = tried + TriedWords(name, value);
            can_be_tried &= CanEdit("", value);
        }
        ways.push_back(set + chain.loading);
        if (!can_be_tried) continue;
        // What is said last is in force when the file is loaded behind it.
        Words late = chain.loading.empty() ? Words{"early"} : chain.loading;
        auto step = std::find_if(late.begin(), late.end(), IsStepWord);
        if (step == late.end()) continue;
        if (*step == "reboot") ++step;
        late.insert(step, {kStoredStep, kTriedStep});
        ways.push_back(tried + late);
    }
    return ways;
}

// Returns the imports that lead to each other from what a boot loads for its own sake, with the
// values that make all of them do so.
std::vector<Requirements::Chain> Requirements::ChainsTo(const Importer& importer, Way* way) {
    const SurveyedFile& file = *importer.file;
    const auto values = ValuesThatLead(importer.import->text, importer.path);
    if (!values || way->left == 0 || !way->files.insert(file.path).second) return {};
    --way->left;
    std::vector<Chain> heads;
    if (tracer_.loaded().count(file.source.value_or(file.path)) != 0) heads.emplace_back();
    for (const auto& words : {OwnStepWords(file), FileWords(file)}) {
        if (words) heads.push_back({{}, *words});
    }
    for (const Importer& next : ImportersOf(file)) {
        if (!next.import->filter.empty()) continue;
        for (Chain& head : ChainsTo(next, way)) heads.push_back(std::move(head));
    }
    way->files.erase(file.path);
    std::vector<Chain> chains;
    for (Chain& head : heads) {
        bool agrees = true;
        for (const auto& [name, value] : *values) {
            agrees &= head.values.try_emplace(name, value).first->second == value &&
                      !WhyRefused(name, value);
        }
        if (agrees && chains.size() < kMostChains) chains.push_back(std::move(head));
    }
    return chains;
}

// Returns the words that make the library load the file without a filter, so that its imports are
// followed.
std::optional<Words> Requirements::WholeFileWords(const SurveyedFile& file) {
    // What it imports may lie where something would be mounted.
    auto own = FileWords(file);
    if (own && Mounts(*own)) {
        if (auto unmounted = UnmountedWords(file)) own = unmounted;
    }
    if (own) return own;
    auto [entry, is_new] = whole_.try_emplace(file.path);  // none while its importers are looked at
    if (!is_new) return entry->second;
    std::optional<Words> words;
    for (const Importer& importer : ImportersOf(file)) {
        if (words || !importer.import->filter.empty()) continue;
        words = ImportWords(importer);
        const bool is_uncertain =
                words && (importer.import->text != importer.path || uncertain_.count(*words) != 0);
        if (words) words = WordsToImported(*words, file, *importer.file);
        if (words && is_uncertain) uncertain_.insert(*words);
    }
    return whole_[file.path] = words;
}

// Returns the words with which the import is come to, and leads where it has to.
std::optional<Words> Requirements::ImportWords(const Importer& importer) {
    const SurveyedImport& import = *importer.import;
    const std::string& own = importer.file->source ? *importer.file->source : importer.file->path;
    if (import.text == importer.path) return WholeFileWords(*importer.file);
    ReferringImport read;
    Words words;
    const bool is_loaded = tracer_.loaded().count(own) != 0;
    if (is_loaded) {
        auto found = tracer_.imports().find({own, import.line});
        if (found == tracer_.imports().end()) return std::nullopt;
        read = found->second;
    } else {
        auto loading = WholeFileWords(*importer.file);
        if (!loading) return std::nullopt;
        words = *loading;
        // What is loaded by steps that were there already is loaded before others give values.
        const bool at_end = std::any_of(words.begin(), words.end(), IsStepWord);
        for (const std::string& reference : References(import.text)) {
            // In between a file may have set it already, or not yet.
            const Origin* winner = tracer_.Winner(reference);
            if (!at_end && winner != nullptr && winner->kind == OriginKind::kGiven) {
                winner = nullptr;
            }
            auto given = given_.find(reference);
            const std::string value = at_end                  ? ValueOf(reference)
                                      : given != given_.end() ? given->second
                                                              : "";
            read.references.push_back(
                    {reference, value,
                     winner == nullptr ? std::nullopt : std::optional<Origin>(*winner), at_end});
        }
    }
    for (const auto& unknown : read.references) {
        // The other references as they are.
        std::string text = import.text;
        for (const auto& other : read.references) {
            if (other.name != unknown.name && !other.value.empty()) {
                text = Substituted(text, other.name, other.value);
            }
        }
        const size_t start = text.find("${" + unknown.name);
        const size_t end = start == std::string::npos ? start : text.find('}', start);
        if (end == std::string::npos) continue;
        const std::string before = text.substr(0, start);
        if (!StartsWith(importer.path, before)) continue;
        for (size_t size = importer.path.size() - before.size(); size > 0; --size) {
            const std::string value = importer.path.substr(before.size(), size);
            if (Substituted(text, unknown.name, value) != importer.path) continue;
            std::set<std::string> way, done;
            if (ImportsItself(own, unknown.name, value, &way, &done)) continue;
            const auto set = ReferenceWords(unknown, value);
            if (!set) continue;
            const bool in_between = !is_loaded && !unknown.stored_in_force && unknown.origin;
            if (in_between) words = Words{"--set", Setting(unknown.name, value)} + words;
            return *set + words;
        }
    }
    return std::nullopt;
}

// Whether the file leads back to one on the way to it, if the property has the value.
bool Requirements::ImportsItself(const std::string& path, const std::string& name,
                                 const std::string& value, std::set<std::string>* way,
                                 std::set<std::string>* done) const {
    if (!way->insert(path).second) return true;
    auto file = files_.find(path);
    if (file != files_.end() && done->insert(path).second) {
        for (const SurveyedImport& import : file->second->imports) {
            if (!import.filter.empty()) continue;  // whose file's own imports are not followed
            std::string leads_to = Substituted(import.text, name, value);
            for (const auto& [target, own] : import.targets) {
                if (leads_to == target) leads_to = own;
            }
            if (files_.count(leads_to) != 0 && ImportsItself(leads_to, name, value, way, done)) {
                return true;
            }
        }
    }
    way->erase(path);
    return false;
}

std::optional<Words> Requirements::ReferenceWords(const ReferringImport::Reference& reference,
                                                  const std::string& value) const {
    if (WhyRefused(reference.name, value)) return std::nullopt;
    if (reference.value == value) return Words{};
    if (!reference.origin || reference.origin->kind == OriginKind::kGiven) {
        if (StartsWith(reference.name, "persist.") && !reference.stored_in_force) {
            return std::nullopt;
        }
        return Words{"--set", Setting(reference.name, value)};
    }
    if (reference.origin->kind != OriginKind::kFile ||
        !CanEdit(reference.origin->own_file(), value)) {
        return std::nullopt;
    }
    return Words{"--edit", reference.origin->own_file() + ":" + Setting(reference.name, value)};
}

// Whether no step acts on the switch keys or a carrier package, so that what a key is made does not
// change what it is in the end.
bool Requirements::IsPlain() const {
    return std::none_of(steps_.begin(), steps_.end(), [](const Step& step) {
        return IsWord(step, "sim") || IsWord(step, "cota") || IsWord(step, "cota-service");
    });
}

bool Requirements::HasPersist() const {
    return std::any_of(steps_.begin(), steps_.end(),
                       [](const Step& step) { return IsWord(step, "persist"); });
}

// Whether the boot changed or deleted the file, so that it is not there as it was.
bool Requirements::IsGone(const std::string& path) const {
    for (const StepReport& step : report_.steps) {
        for (const FileEffect& file : step.files) {
            if (file.path == path && file.change != "created") return true;
        }
    }
    return false;
}

// Makes the words, which load what imports the file, find it where something is mounted over it.
std::optional<Words> Requirements::WordsToImported(Words words, const SurveyedFile& file,
                                                   const SurveyedFile& importer) {
    // The installing service's message, and what it imports, is read before the mount.
    const bool is_before = importer.path == kCotaMountInfoFile ||
                           importer.path == kCotaModuleInfoFile ||
                           of_messages_.count(importer.path) != 0;
    if (is_before) {
        of_messages_.insert(file.path);
    } else if (Cover(words, file)) {
        return std::nullopt;
    }
    const auto step = std::find_if(words.begin(), words.end(), IsStepWord);
    const bool reboots = std::find(words.begin(), words.end(), "reboot") != words.end();
    if (IsCovered(file.source.value_or(file.path)) && step != words.end() && !reboots) {
        words.insert(step, "reboot");
    }
    return words;
}

// Whether a step among the words mounts something over the file before it imports it.
bool Requirements::Cover(const Words& words, const SurveyedFile& file) const {
    const auto covers = [&](Reading::Root root, const std::optional<std::string>& target) {
        return target && StartsWith(file.source.value_or(file.path), *target + "/") &&
               std::find(words.begin(), words.end(), ServiceStep(root)) != words.end();
    };
    return covers(Reading::kPackage, survey_.package_target) ||
           covers(Reading::kModule, survey_.module_target);
}

// Whether something is mounted over the file.
bool Requirements::IsCovered(const std::string& path) const {
    const auto& covered = tracer_.covered();
    return std::any_of(covered.begin(), covered.end(),
                       [&](const std::string& target) { return StartsWith(path, target + "/"); });
}

std::string Requirements::ValueOf(const std::string& name) const {
    auto value = report_.properties.find(name);
    return value == report_.properties.end() ? "" : value->second;
}

// Whether a step persist deletes the sales channel's state files, or did so.
bool Requirements::RestoresChannel() const {
    const auto& values = tracer_.GivenTo(kEmergencyShutdown);
    return std::any_of(values.begin(), values.end(),
                       [](const Origin& origin) { return origin.value == "1"; });
}

// Returns the words with which no step persist does so.
Words Requirements::WithoutRestore() const {
    const std::string none = Setting(kEmergencyShutdown, "0");
    Words words = {"--set", none};
    std::set<std::string> files;
    for (const Origin& origin : tracer_.GivenTo(kEmergencyShutdown)) {
        if (origin.kind != OriginKind::kFile || origin.value != "1") continue;
        if (!files.insert(origin.own_file()).second) continue;
        words = words + Words{"--edit", origin.own_file() + ":" + none};
    }
    return words;
}

}  // namespace extprop
