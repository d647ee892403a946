#include "boot/what_if.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string_view>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/strings.h>
#include <nlohmann/json.hpp>

#include "TesvoExtensionProperty/names.h"
#include "TesvoExtensionProperty/partitions.h"
#include "boot/message.h"
#include "boot/real_path.h"
#include "device/inside.h"
#include "device/legal.h"
#include "device/property_lines.h"
#include "input_error.h"
#include "printable.h"

namespace extprop {

namespace {

using namespace android::init;

// Returns the content with the property's lines changed and all other bytes the same.
std::string Edited(const std::string& content, const Edit& edit) {
    const std::string line = edit.name + "=" + edit.value.value_or("");
    std::vector<std::string> lines = android::base::Split(content, "\n");
    std::vector<int> gone;
    bool found = false;
    std::string first;  // the line that a look-up would find
    for (const PropertyLine& known : PropertyLines(content, true)) {
        if (known.kind != PropertyLine::kProperty) continue;
        if (first.empty() && android::base::StartsWith(known.text, edit.name)) first = known.name;
        if (known.name != edit.name) continue;
        lines[known.number - 1] = line;
        gone.push_back(known.number - 1);
        found = true;
    }
    if (!edit.value) {
        for (auto number = gone.rbegin(); number != gone.rend(); ++number) {
            lines.erase(lines.begin() + *number);
        }
        return android::base::Join(lines, "\n");
    }
    if (edit.looked_up && !first.empty() && first != edit.name) {
        lines.insert(lines.begin(), line);
    } else if (!found) {
        if (!lines.back().empty()) lines.emplace_back();
        lines.insert(lines.end() - 1, line);
    }
    return android::base::Join(lines, "\n");
}

// Adds the edits of all files from which step persist may take the switch key: the key's own file,
// and other files that set it, so that none has another value.
void AddKeyEdits(const SwitchKey& key, const std::string& value, std::vector<Edit>* edits) {
    for (const FixedFile& file : FixedFiles()) {
        const bool is_read =
                file.trigger == LoadTrigger::kKeyFiles || file.trigger == LoadTrigger::kDataCommon;
        if (file.path == std::string_view(key.key_file) ||
            (is_read && LoadedFrom(file.path).count(key.property) != 0)) {
            edits->push_back({file.path, key.property, value, false});
        }
    }
}

std::vector<Edit> EditsOf(const WhatIf& what_if) {
    std::vector<Edit> edits;
    const Variant& variant = what_if.variant;
    if (const auto& brand = variant[kBrandAxis]) {
        edits.push_back({kSystemExtBuildProp, kBrand, *brand, true});
    }
    if (const auto& region = variant[kRegionAxis]) {
        edits.push_back({kRegionBuildProp, kRegion, *region, true});
    }
    if (const auto& key = variant[kNvAxis]) edits.push_back({kNvStores[0], "", *key, false});
    for (int axis = kFirstKeyAxis; axis < kAxisCount; ++axis) {
        if (variant[axis]) AddKeyEdits(KeyOf(axis), *variant[axis], &edits);
    }
    edits.insert(edits.end(), what_if.edits.begin(), what_if.edits.end());
    return edits;
}

// Makes the changes and adds the edits to `*made`. Returns the path that cannot be written, if one
// cannot.
std::optional<std::string> FailingPath(const WhatIf& what_if, std::vector<Edit>* made) {
    android::base::SetLogger([](auto&&...) {});  // loading the key files would log
    for (Edit& edit : EditsOf(what_if)) {
        if (!MakeEdit(edit)) return edit.path;
        made->push_back(std::move(edit));
    }
    return std::nullopt;
}

}  // namespace

int AxisNamed(const std::string& name) {
    std::string known;
    for (int axis = 0; axis < kAxisCount; ++axis) {
        if (name == kAxes[axis].name) return axis;
        known += std::string(axis == 0 ? "" : ", ") + kAxes[axis].name;
    }
    throw InputError("unknown axis '" + name + "'; the axes are " + known);
}

const SwitchKey& KeyOf(int axis) {
    return SwitchKeys().at(axis - kFirstKeyAxis);
}

std::optional<std::string> WhyImpossible(int axis, const std::string& value) {
    if (value.find_first_of(std::string("\n\0", 2)) != std::string::npos)
        return "the value has more than one line";
    return axis < kFirstKeyAxis ? std::nullopt : WhyRefused(KeyOf(axis).property, value);
}

std::string NoValueText(int axis, const std::string& value) {
    return std::string("the device has no ") + kAxes[axis].name + " " + Quoted(value);
}

Edit ParseEdit(const std::string& text) {
    const size_t colon = text.find(':');
    const size_t equals = colon == std::string::npos ? colon : text.find('=', colon);
    if (text.empty() || text[0] != '/' || equals == std::string::npos || equals == colon + 1) {
        throw InputError("--edit '" + text + "': expected PATH:NAME=VALUE with an absolute PATH");
    }
    if (text.find('\n', colon) != std::string::npos) {
        throw InputError("--edit '" + text + "': the property has more than one line");
    }
    return {text.substr(0, colon), text.substr(colon + 1, equals - colon - 1),
            text.substr(equals + 1), false};
}

Edit ParseDeletion(const std::string& text) {
    const size_t colon = text.find(':');
    if (text.empty() || text[0] != '/' || colon + 1 == text.size()) {
        throw InputError("--delete '" + text +
                         "': expected PATH or PATH:NAME with an absolute PATH");
    }
    return {text.substr(0, colon), colon == std::string::npos ? "" : text.substr(colon + 1),
            std::nullopt, false};
}

std::string EditWords(const Edit& edit) {
    std::string words = (edit.value ? "--edit " : "--delete ") + edit.path;
    if (!edit.name.empty()) words += ":" + edit.name;
    return edit.value ? words + "=" + *edit.value : words;
}

Edit WholeFile(const std::string& path, const std::string& text) {
    for (const FixedFile& file : FixedFiles()) {
        if (path != file.path || file.property == nullptr) continue;
        if (text.find('=') == std::string::npos) {
            return {path, "", file.property + ("=" + text) + "\n", false};
        }
    }
    return {path, "", text + "\n", false};
}

// Writes the file's new content; all else stays as it was.
bool MakeEdit(const Edit& edit) {
    namespace fs = std::filesystem;
    std::error_code error;
    struct stat status;
    const bool exists = stat(edit.path.c_str(), &status) == 0;
    if (exists && !S_ISREG(status.st_mode)) {
        errno = EINVAL;
        return false;
    }
    if (!edit.value && (!exists || edit.name.empty())) {
        return unlink(edit.path.c_str()) == 0 || errno == ENOENT || errno == ENOTDIR;
    }
    std::string content;
    if (!edit.name.empty()) {
        if (exists && !android::base::ReadFileToString(edit.path, &content, true)) return false;
        content = Edited(content, edit);
    } else {
        content = *edit.value;
    }
    fs::create_directories(fs::path(edit.path).parent_path(), error);
    // The look-up refuses links, so a regular file replaces one.
    if (fs::is_symlink(edit.path, error) && (edit.looked_up || edit.name.empty())) {
        unlink(edit.path.c_str());
    }
    return android::base::WriteStringToFile(content, edit.path, true);
}

bool MakeChangesHere(const WhatIf& what_if) {
    std::vector<Edit> made;
    return !FailingPath(what_if, &made);
}

std::map<std::pair<std::string, std::string>, bool> MakeChanges(const WhatIf& what_if,
                                                                const sandbox::Sandbox& root) {
    using nlohmann::json;
    constexpr std::chrono::seconds kLimit(60);
    const auto answer = AskInside(
            root,
            [&] {
                std::vector<Edit> made;
                const std::string failing = FailingPath(what_if, &made).value_or("");
                json lines = json::array();
                for (size_t i = 0; i < made.size(); ++i) {
                    const bool for_variant = i + what_if.edits.size() < made.size();
                    const std::string own = RealPath(made[i].path, true).value_or(made[i].path);
                    lines.push_back({own, made[i].name, for_variant});
                }
                return json::array({failing, lines});
            },
            kLimit);
    if (!answer)
        throw InputError(
                "the key files with other keys are unknown: the library does not return from them");
    if (const auto failing = answer->at(0).get<std::string>(); !failing.empty()) {
        throw InputError(failing + ": cannot be changed in the copy-on-write layer");
    }
    std::map<std::pair<std::string, std::string>, bool> lines;
    for (const json& line : answer->at(1)) {
        lines[{line.at(0).get<std::string>(), line.at(1).get<std::string>()}] =
                line.at(2).get<bool>();
    }
    return lines;
}

}  // namespace extprop
