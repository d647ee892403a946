// Any bytes as a property file: compares the tool's parser with the library's loader in names and
// values, without and with a filter, and in the files that the import lines name.

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include <android-base/unique_fd.h>

#include "device.h"
#include "device/property_lines.h"
#include "utils.h"

namespace {

using extprop::PropertyLine;
using fuzz::Expect;
using fuzz::PropertyMap;
using Paths = std::vector<std::string>;

constexpr char kFile[] = "/file";
constexpr char kEmpty[] = "/empty";  // a directory in which imports find nothing

// Records the files that the loader opens.
class OpenedFiles : public platform::Observer {
  public:
    void OnOpen(const char* path, int) override { paths.push_back(path); }

    Paths paths;
};

PropertyMap Loaded(const char* filter, Paths* opened) {
    static const android::base::unique_fd home(open(".", O_RDONLY | O_DIRECTORY));
    mkdir(kEmpty, 0700);
    Expect(chdir(kEmpty) == 0, "its directory");
    OpenedFiles observer;
    platform::SetObserver(&observer);
    PropertyMap properties;
    const bool loaded = load_properties_from_file_without_se(kFile, filter, &properties);
    platform::SetObserver(nullptr);
    // The fuzzer needs its own files, which are in the directory that it was started in.
    Expect(fchdir(home.get()) == 0 && loaded, "reading");
    *opened = observer.paths;
    return properties;
}

bool IsExactFilter(const std::string& name) {
    const size_t length = strlen(name.c_str());
    return length > 0 && name[length - 1] != '*';
}

Paths Opened(const std::vector<PropertyLine>& lines) {
    Paths paths = {kFile};
    for (const PropertyLine& line : lines) {
        if (line.kind != PropertyLine::kImport) continue;
        const auto path = ExpandProps(std::string(line.name));
        if (path.ok()) paths.push_back(path->c_str());  // up to a zero byte
    }
    return paths;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string content(reinterpret_cast<const char*>(data), size);
    // So that imports stay in the empty directory. To both parsers a slash is like any other byte.
    std::replace(content.begin(), content.end(), '/', '.');
    fuzz::Clear();
    fuzz::Put(kFile, content);

    Paths opened;
    Expect(Loaded(nullptr, &opened) == fuzz::Parse(content), "properties");
    Expect(opened == Opened(extprop::PropertyLines(content)), "imports");

    const PropertyMap all = fuzz::Parse(content, true);
    Expect(Loaded("*", &opened) == all, "properties under a filter that all pass");
    Expect(opened == Paths{kFile}, "imports under a filter");
    if (all.empty() || !IsExactFilter(all.rbegin()->first)) return 0;
    const char* filter = all.rbegin()->first.c_str();
    PropertyMap passing;
    for (const auto& [name, value] : all) {
        if (strcmp(name.c_str(), filter) == 0) passing[name] = value;  // up to a zero byte
    }
    Expect(Loaded(filter, &opened) == passing, "properties under a filter that one name passes");
    return 0;
}
