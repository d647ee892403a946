#include "images.h"

#include <errno.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <stdexcept>
#include <string_view>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "checks.h"
#include "sandbox.h"

using android::base::unique_fd;

namespace sandbox {

namespace {

namespace fs = std::filesystem;

// The images that are taken, and the directory that a phone mounts such a partition in.
constexpr struct {
    const char* name;
    const char* parent;
} kPartitions[] = {
        {"odm.img", "/"},
        {"system_ext.img", "/"},
        {"my_*.img", "/mnt/vendor/"},
};

// The parent directory of the image's partition, or null if it is no image of a partition.
const char* ParentFor(const std::string& name) {
    for (const auto& partition : kPartitions) {
        if (fnmatch(partition.name, name.c_str(), 0) == 0) return partition.parent;
    }
    return nullptr;
}

bool IsLine(const std::string& line) {
    return !line.empty();
}

// debugfs says its version too, and that an ordinary user cannot give files away.
bool IsDebugfsError(const std::string& line) {
    return !line.empty() && !android::base::StartsWith(line, "debugfs 1.") &&
           line.find("while changing ownership of") == std::string::npos;
}

bool IsErofsError(const std::string& line) {
    return android::base::StartsWith(line, "<E>");
}

// Runs the tool, which comes in the Debian package. Some tools end well in spite of errors, so what
// they say counts as well.
void RunTool(const std::string& command, const std::string& package,
             bool (*is_error)(const std::string& line)) {
    const std::string tool = command.substr(0, command.find(' '));
    // An ordinary user's path may lack the directories of the file systems' tools.
    const std::string line =
            "export LC_ALL=C PATH=\"$PATH:/usr/sbin:/sbin\"; exec " + command + " 2>&1 </dev/null";
    FILE* pipe = popen(line.c_str(), "re");
    Check(pipe != nullptr, tool);
    std::string said;
    android::base::ReadFdToString(fileno(pipe), &said);
    const int status = pclose(pipe);
    constexpr int kNotFound = 127;
    if (WIFEXITED(status) && WEXITSTATUS(status) == kNotFound) {
        throw std::runtime_error(tool + " is missing, install " + package);
    }
    const std::vector<std::string> lines = android::base::Split(said, "\n");
    const auto error = std::find_if(lines.begin(), lines.end(), is_error);
    if (error != lines.end()) throw std::runtime_error(tool + " failed: " + *error);
    if (status != 0) throw std::runtime_error(tool + " failed");
}

void UnpackExt4(const std::string& file, const std::string& directory) {
    RunTool("debugfs -R 'rdump / " + directory + "' " + file, "e2fsprogs", IsDebugfsError);
}

void UnpackErofs(const std::string& file, const std::string& directory) {
    RunTool("fsck.erofs --no-preserve-owner --preserve-perms --extract=" + directory + " " + file,
            "erofs-utils", IsErofsError);
}

// The start of an image, up to the end of what is looked at of a file system's superblock.
using Header = std::array<char, 2048>;

template <typename Number>
Number At(const Header& header, size_t offset) {
    Number number;
    memcpy(&number, header.data() + offset, sizeof(number));
    return number;
}

struct FileSystem {
    size_t magic_offset;
    std::string_view magic;
    uint64_t (*size)(const Header& header);
    void (*unpack)(const std::string& file, const std::string& directory);
};

constexpr FileSystem kFileSystems[] = {
        {0x438, "\x53\xef",
         [](const Header& header) {
             return uint64_t{At<uint32_t>(header, 0x404)} << (10 + At<uint8_t>(header, 0x418) % 32);
         },
         UnpackExt4},
        {0x400, "\xe2\xe1\xf5\xe0",
         [](const Header& header) {
             return uint64_t{At<uint32_t>(header, 0x424)} << At<uint8_t>(header, 0x40c) % 32;
         },
         UnpackErofs},
};

constexpr std::string_view kSparseMagic = "\x3a\xff\x26\xed";

bool HasMagic(const Header& header, size_t offset, std::string_view magic) {
    return std::string_view(header.data() + offset, magic.size()) == magic;
}

Header ReadHeader(int file) {
    Header header = {};
    Check(pread(file, header.data(), header.size(), 0) != -1, "cannot be read");
    return header;
}

// A name of the open file for the tools, which inherit it.
std::string NameOf(const unique_fd& file) {
    return "/proc/self/fd/" + std::to_string(file.get());
}

// Opens a file for this process and the tools that it runs.
unique_fd OpenForTools(const std::string& path) {
    unique_fd file(OpenOrThrow(path, O_RDONLY));
    fcntl(file.get(), F_SETFD, 0);
    return file;
}

unique_fd ExpandSparse(const unique_fd& sparse, const std::string& path) {
    RunTool("simg2img " + NameOf(sparse) + " " + path, "android-sdk-libsparse-utils", IsLine);
    unique_fd raw = OpenForTools(path);
    unlink(path.c_str());  // its memory is free as soon as nothing uses it
    return raw;
}

const FileSystem& FileSystemIn(int file) {
    const Header header = ReadHeader(file);
    for (const FileSystem& known : kFileSystems) {
        if (!HasMagic(header, known.magic_offset, known.magic)) continue;
        // Neither the kernel nor the tools always notice that the end is missing.
        struct stat status;
        Check(fstat(file, &status) == 0, "cannot be read");
        const uint64_t size = status.st_size;
        if (size >= known.size(header)) return known;
        throw std::runtime_error("truncated, " + std::to_string(size) + " bytes of " +
                                 std::to_string(known.size(header)));
    }
    throw std::runtime_error("neither an ext4 nor an EROFS nor an Android sparse image");
}

}  // namespace

std::vector<Image> OpenImages(const std::string& device, const Options&,
                              std::vector<std::string>*) {
    std::vector<Image> images;
    for (const auto& entry : fs::directory_iterator(device)) {
        const std::string name = entry.path().filename();
        const char* parent = ParentFor(name);
        if (parent == nullptr) continue;
        const std::string path = device + "/" + name, partition = fs::path(name).stem();
        images.push_back({path, name, partition, parent + partition, "", OpenForTools(path)});
        if (std::string_view(parent) != "/") images.back().link = "/" + partition;
    }
    std::sort(images.begin(), images.end(),
              [](const Image& a, const Image& b) { return a.name < b.name; });
    return images;
}

std::vector<std::string> HiddenFiles(const std::vector<Image>& images) {
    std::vector<std::string> names;
    for (const Image& image : images) names.push_back(image.name);
    return names;
}

void Unpack(Image* image, const std::string& directory) try {
    if (HasMagic(ReadHeader(image->file.get()), 0, kSparseMagic)) {
        image->file = ExpandSparse(image->file, directory + ".raw");
    }
    const FileSystem& file_system = FileSystemIn(image->file.get());
    Check(mkdir(directory.c_str(), 0755) == 0, directory);
    file_system.unpack(NameOf(image->file), directory);
    image->file.reset();
} catch (const std::runtime_error& error) {
    throw std::runtime_error(image->path + ": " + error.what());
}

}  // namespace sandbox
