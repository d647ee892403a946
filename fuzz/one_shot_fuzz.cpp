// The messages of the installing service: each takes effect once, and only the properties that it
// may set are handed over.

#include <errno.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <android-base/strings.h>

#include "TesvoExtensionProperty/cota.h"
#include "device.h"

namespace {

using android::base::StartsWith;
using namespace android::init;

bool g_mounts;
std::vector<std::string> g_targets, g_directories;

bool IsForwarded(const std::string& name, bool whole_package) {
    return StartsWith(name, "sys.") || StartsWith(name, "ro.") ||
           (whole_package && StartsWith(name, "persisit."));
}

}  // namespace

// Replaces libc's: nothing is mounted, and directories that are made can be removed again.
extern "C" int mount(const char* source, const char* target, const char* type, unsigned long flags,
                     const void* data) noexcept {
    if ((flags & MS_DIRSYNC) == 0) {
        return static_cast<int>(syscall(SYS_mount, source, target, type, flags, data));
    }
    g_targets.push_back(target);
    errno = EINVAL;
    return g_mounts ? 0 : -1;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto parts = fuzz::Parts(data, size, 3);
    fuzz::Clear();
    PartitionSearchList = {"/odm"};
    g_mounts = parts[0] >= "5";
    g_targets.clear();
    const int operation = (parts[0].empty() ? 0 : parts[0][0]) & 3;
    const std::string &package = parts[1], &module = parts[2];
    if ((package + module).find("import ") != std::string::npos) return -1;
    fuzz::Put(kCotaMountInfoFile, package);
    fuzz::Put(kCotaModuleInfoFile, module);
    PropertyMap given = fuzz::Parse(operation == 1 ? module : package);
    const auto value = [&given](const char* name) { return given[name]; };

    static constexpr const char* kWords[] = {"mount_must_load", "module_bind_single",
                                             "update_cota_info", "bind_basic_point"};
    InitExtensionPropertyImpl extension;
    extension.loadCotaServiceOverrideProperties(kWords[operation], fuzz::Callback);
    const bool takes_package = operation != 1, takes_module = operation == 1 || operation == 3;
    fuzz::Expect((access(kCotaMountInfoFile, F_OK) != 0) == takes_package, "the package's message");
    fuzz::Expect((access(kCotaModuleInfoFile, F_OK) != 0) == takes_module, "the module's message");

    std::vector<PropertyMap> calls = fuzz::TakeCalls();
    if (operation == 2) {
        fuzz::Expect(given.empty() ? calls.empty() : calls.at(0) == given, "what is handed over");
        return 0;
    }
    PropertyMap forwarded;
    for (const auto& [name, text] : given) {
        if (IsForwarded(name, operation == 0)) forwarded[name] = text;
    }
    if (operation == 1) {
        const bool binds = given.count("module_type") == 1 && !value("mount_point").empty() &&
                           !value("bind_point").empty();
        fuzz::Expect(g_targets.size() == binds, "the module's mount");
        if (!binds || !g_mounts) forwarded.clear();
    }
    if (operation == 0) {
        const bool binds = value("sys.cotaimg.verify") == "1" &&
                           StartsWith(value("sys.cota.load.properties"), "/") &&
                           (fuzz::Parse(package).count("bind_point") == 1
                                    ? value("bind_point")
                                    : "/my_carrier") != value("sys.cota.load.properties");
        fuzz::Expect(g_targets.size() == binds, "the package's mount");
    }
    bool is_forwarded = forwarded.empty();
    for (const PropertyMap& call : calls) is_forwarded |= call == forwarded;
    fuzz::Expect(is_forwarded, "what is forwarded");
    return 0;
}
