#include "boot/what_if.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "TesvoExtensionProperty/names.h"
#include "TesvoExtensionProperty/partitions.h"
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

}  // namespace

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

Edit BrandEdit(const std::string& name) {
    return {kSystemExtBuildProp, kBrand, name, true};
}

Edit RegionEdit(const std::string& code) {
    return {kRegionBuildProp, kRegion, code, true};
}

Edit NvKeyEdit(const std::string& key) {
    return {kNvStores[0], "", key, false};
}

Words TriedWords(const std::string& property, const std::string& value) {
    const std::string root = kTriedStep + strlen("early:");
    return {"--edit", root + "/" + kBuildProp + ":" + property + "=" + value};
}

std::optional<size_t> MakeEditsHere(const std::vector<Edit>& edits) {
    for (size_t i = 0; i < edits.size(); ++i) {
        if (!Make(edits[i])) return i;
    }
    return std::nullopt;
}

void MakeEdits(const std::vector<Edit>& edits, const sandbox::Sandbox& root) {
    if (edits.empty()) return;
    const sandbox::Ending ending = root.Run([&edits] {
        const auto failing = MakeEditsHere(edits);
        return failing ? static_cast<int>(std::min<size_t>(*failing, 254)) + 1 : 0;
    });
    if (ending.ok()) return;
    const size_t failed = std::max(ending.exit_status, 1) - 1;
    throw InputError(edits[failed].path + ": cannot be changed for a try");
}

}  // namespace extprop
