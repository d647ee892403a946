// Files that import each other by names with references: compares the loader with the tool's
// parser.

#include <limits.h>
#include <stdlib.h>

#include <algorithm>

#include "device.h"
#include "device/property_lines.h"
#include "utils.h"

namespace {

using extprop::PropertyLine;
using fuzz::PropertyMap;

constexpr const char* kFiles[] = {"/a", "/b", "/$c"};  // a "$" is written twice
constexpr int kMaxImports = 64;  // in one input; more are endless, and every boot crashes then

std::string g_contents[std::size(kFiles)];
int g_imports;

// Replaces references as the format is documented. Returns false if that fails.
bool Expand(std::string text, std::string* expanded) {
    expanded->clear();
    while (!text.empty()) {
        if (text[0] != '$') {
            *expanded += text[0];
            text.erase(0, 1);
        } else if (text.size() == 1) {
            return true;
        } else if (text[1] == '$') {
            *expanded += '$';
            text.erase(0, 2);
        } else {
            const size_t close = text.find('}');
            if (text[1] != '{' || close == std::string::npos) return false;
            std::string name = text.substr(2, close - 2), value;
            if (const size_t marker = name.find(":-"); marker != std::string::npos) {
                value = name.substr(marker + 2);
                name.resize(marker);
            }
            const PropertyMap properties = platform::AllProperties();
            auto known = properties.find(name);
            if (known != properties.end() && !known->second.empty()) value = known->second;
            if (name.empty() || value.empty()) return false;
            *expanded += value;
            text.erase(0, close + 1);
        }
    }
    return true;
}

bool Passes(const std::string& name, const std::string& filter) {
    if (filter.empty() || filter == name) return true;
    const std::string start = filter.substr(0, filter.size() - 1);
    return filter.back() == '*' && name.compare(0, start.size(), start) == 0;
}

// Loads a file as the loader should. Returns false if there are too many imports, or one of a file
// that is not among kFiles.
bool Load(const std::string& path, std::string filter, PropertyMap* properties) {
    char real[PATH_MAX];
    if (realpath(path.c_str(), real) == nullptr) return true;
    const auto* file = std::find(std::begin(kFiles), std::end(kFiles), std::string(real));
    if (file == std::end(kFiles)) return false;
    const std::string& content = g_contents[file - std::begin(kFiles)];
    for (const PropertyLine& line : extprop::PropertyLines(content, !filter.empty())) {
        const std::string text(line.name), value(line.value);
        if (line.kind == PropertyLine::kImport) {
            std::string name;
            if (!Expand(text, &name)) continue;
            if (++g_imports > kMaxImports || !Load(name, value, properties)) return false;
        } else if (line.kind == PropertyLine::kProperty && Passes(text, filter)) {
            (*properties)[text] = value;
        }
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto parts = fuzz::Parts(data, size, 5);
    fuzz::Clear();
    platform::StoreProperty("p", parts[0]);
    platform::StoreProperty("q", parts[1]);
    for (std::string& content : g_contents) {
        content = parts[2 + (&content - g_contents)];
        // Zero bytes end a name; property_lines_fuzz covers them.
        std::replace(content.begin(), content.end(), '\0', '0');
        fuzz::Put(kFiles[&content - g_contents], content);
    }
    PropertyMap expected, loaded;
    g_imports = 0;
    if (!Load(kFiles[0], "", &expected)) return -1;
    fuzz::Expect(load_properties_from_file_without_se(kFiles[0], nullptr, &loaded), "reading");
    fuzz::Expect(loaded == expected, "the properties");
    return 0;
}
