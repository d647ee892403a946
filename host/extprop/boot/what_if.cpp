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
#include "device/inside.h"
#include "device/legal.h"
#include "device/property_lines.h"
#include "input_error.h"

namespace extprop {

namespace {

using namespace android::init;

// Returns the content with the property's lines changed; the rest stays byte by byte.
std::string Edited(const std::string& content, const Edit& edit) {
    const std::string line = edit.name + "=" + edit.value;
    std::vector<std::string> lines = android::base::Split(content, "\n");
    bool found = false;
    std::string first;  // the name that a look-up would find
    for (const PropertyLine& known : PropertyLines(content, true)) {
        if (known.kind != PropertyLine::kProperty) continue;
        if (first.empty() && android::base::StartsWith(known.text, edit.name)) first = known.name;
        if (known.name != edit.name) continue;
        lines[known.number - 1] = line;
        found = true;
    }
    if (edit.looked_up && !first.empty() && first != edit.name) {
        lines.insert(lines.begin(), line);
    } else if (!found) {
        if (!lines.back().empty()) lines.emplace_back();
        lines.insert(lines.end() - 1, line);
    }
    return android::base::Join(lines, "\n");
}

// Writes the file anew, as it was but for its content.
bool Make(const Edit& edit) {
    namespace fs = std::filesystem;
    std::error_code error;
    fs::create_directories(fs::path(edit.path).parent_path(), error);
    std::string content;
    if (!edit.name.empty()) {
        struct stat status;
        const bool exists = stat(edit.path.c_str(), &status) == 0;
        if (exists && !S_ISREG(status.st_mode)) {
            errno = EINVAL;
            return false;
        }
        if (exists && !android::base::ReadFileToString(edit.path, &content, true)) return false;
        content = Edited(content, edit);
    } else {
        content = edit.value;
    }
    // The look-up refuses links, so one has to make way for what is to be found.
    if (fs::is_symlink(edit.path, error) && (edit.looked_up || edit.name.empty())) {
        unlink(edit.path.c_str());
    }
    return android::base::WriteStringToFile(content, edit.path, true);
}

// Adds the edits of the files that step persist takes the switch key from: the one that is read for
// it, and whichever says it besides, so that none says otherwise.
void AddKeyEdits(const SwitchKey& key, const std::string& value, std::vector<Edit>* edits) {
    for (const FixedFile& file : FixedFiles()) {
        const bool is_read =
                file.occasion == Occasion::kKeyFiles || file.occasion == Occasion::kDataCommon;
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

// Returns the path that cannot be written, if there is one.
std::optional<std::string> FailingPath(const WhatIf& what_if) {
    android::base::SetLogger([](auto&&...) {});  // the key files are loaded
    for (const Edit& edit : EditsOf(what_if)) {
        if (!Make(edit)) return edit.path;
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
    throw InputError("there is no axis '" + name + "'; the axes are " + known);
}

const SwitchKey& KeyOf(int axis) {
    return SwitchKeys().at(axis - kFirstKeyAxis);
}

std::optional<std::string> WhyNot(int axis, const std::string& value) {
    if (value.find_first_of(std::string("\n\0", 2)) != std::string::npos) return "it is one line";
    return axis < kFirstKeyAxis ? std::nullopt : WhyRefused(KeyOf(axis).property, value);
}

Edit ParseEdit(const std::string& text) {
    const size_t colon = text.find(':');
    const size_t equals = colon == std::string::npos ? colon : text.find('=', colon);
    if (text.empty() || text[0] != '/' || equals == std::string::npos || equals == colon + 1) {
        throw InputError("--edit '" + text + "': expected PATH:NAME=VALUE with an absolute PATH");
    }
    if (text.find('\n', colon) != std::string::npos) {
        throw InputError("--edit '" + text + "': a property is one line");
    }
    return {text.substr(0, colon), text.substr(colon + 1, equals - colon - 1),
            text.substr(equals + 1), false};
}

bool MakeChangesHere(const WhatIf& what_if) {
    return !FailingPath(what_if);
}

void MakeChanges(const WhatIf& what_if, const sandbox::Sandbox& root) {
    constexpr std::chrono::seconds kLimit(60);
    const auto failing = AskInside(
            root, [&] { return nlohmann::json(FailingPath(what_if).value_or("")); }, kLimit);
    if (!failing)
        throw InputError(
                "it cannot be told which key files say otherwise: the library does not come back "
                "from them");
    if (!failing->get<std::string>().empty()) {
        throw InputError(failing->get<std::string>() + ": cannot be changed for a try");
    }
}

}  // namespace extprop
