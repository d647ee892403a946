#include "device.h"

#include <fcntl.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <set>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/strings.h>

#include "device/property_lines.h"

namespace fuzz {

using extprop::PropertyLine;

namespace {

namespace fs = std::filesystem;

constexpr char kRoot[] = "/tmp";

std::set<std::string> g_files;
std::set<std::string> g_directories;
std::vector<PropertyMap> g_calls;
std::vector<std::string> g_log;

// Changes the root to a private file system in memory, for the device's files. The working
// directory stays outside, for the fuzzer's own files; what a symbolizer needs is mounted inside.
void EnterMemoryRoot() {
    const int namespaces = CLONE_NEWNS | (geteuid() == 0 ? 0 : CLONE_NEWUSER);
    Expect(unshare(namespaces) == 0, "private namespaces");
    Expect(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");
    Expect(mount("tmpfs", kRoot, "tmpfs", 0, nullptr) == 0, "a file system in memory");
    for (const std::string name : {"/proc", "/usr", "/bin", "/lib", "/lib64"}) {
        if (fs::is_symlink(name)) {
            fs::copy_symlink(name, kRoot + name);
        } else if (fs::create_directory(kRoot + name)) {
            mount(name.c_str(), (kRoot + name).c_str(), nullptr, MS_BIND | MS_REC, nullptr);
        }
    }
    Expect(chroot(kRoot) == 0, "a root of its own");
}

}  // namespace

void Expect(bool alike, const char* what) {
    if (alike) return;
    std::cerr << "differs: " << what << "\n";
    abort();
}

std::vector<std::string> Parts(const uint8_t* data, size_t size, size_t least) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> parts = android::base::Split(text, "|");
    parts.resize(std::max(parts.size(), least));
    return parts;
}

void Put(const std::string& path, const std::string* content) {
    if (content == nullptr) {
        unlink(path.c_str());
        return;
    }
    const std::string directory = path.substr(0, path.rfind('/'));
    if (g_directories.insert(directory).second) fs::create_directories("/" + directory);
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    Expect(android::base::WriteFully(fd, content->data(), content->size()), "a file of the device");
    close(fd);
    g_files.insert(path);
}

std::string Get(const std::string& path) {
    std::string content;
    return android::base::ReadFileToString(path, &content) ? content : "(missing)";
}

void Clear() {
    for (const std::string& path : g_files) unlink(path.c_str());
    g_files.clear();
    platform::ResetProperties({});
    TakeCalls();
    TakeLog();
}

void Callback(int, PropertyMap properties) {
    for (const auto& [name, value] : properties) platform::StoreProperty(name, value);
    g_calls.push_back(std::move(properties));
}

std::vector<PropertyMap> TakeCalls() {
    return std::exchange(g_calls, {});
}

std::vector<std::string> TakeLog() {
    return std::exchange(g_log, {});
}

PropertyMap Parse(const std::string& content, bool filtered) {
    PropertyMap properties;
    for (const PropertyLine& line : extprop::PropertyLines(content, filtered)) {
        if (line.kind == PropertyLine::kProperty) properties[std::string(line.name)] = line.value;
    }
    return properties;
}

std::string LookUp(const std::string& content, const std::string& name) {
    // Lines that look like imports count here, too.
    for (const PropertyLine& line : extprop::PropertyLines(content, true)) {
        const bool begins = line.text.substr(0, name.size()) == name;
        if (line.kind == PropertyLine::kProperty && begins) return std::string(line.value);
    }
    return "";
}

}  // namespace fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    umask(0);
    android::base::SetMinimumLogSeverity(android::base::INFO);
    android::base::SetLogger([](android::base::LogId, android::base::LogSeverity severity,
                                const char*, const char*, unsigned, const char* message) {
        if (severity >= android::base::INFO) fuzz::g_log.push_back(message);
    });
    fuzz::EnterMemoryRoot();
    return 0;
}
