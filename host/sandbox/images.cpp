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
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string_view>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "checks.h"
#include "sandbox.h"

using android::base::EndsWith;
using android::base::Join;
using android::base::StartsWith;
using android::base::unique_fd;

namespace sandbox {

namespace {

namespace fs = std::filesystem;

constexpr char kSuper[] = "super";
constexpr char kExtension[] = ".img";

// The partitions that are shown, and the directory that a phone mounts such a partition in.
constexpr struct {
    const char* name;
    const char* parent;
} kPartitions[] = {
        {"my_*", "/mnt/vendor/"}, {"odm", "/"},         {"system_ext", "/"}, {"system", "/"},
        {"vendor", "/"},          {"product", "/"},     {"oem", "/"},        {"odm_dlkm", "/"},
        {"vendor_dlkm", "/"},     {"system_dlkm", "/"},
};

// Files that bring images, once they are unpacked.
constexpr struct {
    const char* name;
    const char* advice;
} kArchives[] = {
        {"payload.bin", "an update's payload, which ota_extractor or payload-dumper unpacks"},
        {"*.zip", "an archive, which unzip unpacks; an update has its images in payload.bin"},
        {"*.tar", "an archive, which tar unpacks"},
        {"*.tar.*", "an archive, which tar unpacks"},
        {"*.tgz", "an archive, which tar unpacks"},
        {"*.7z", "an archive, which 7z unpacks"},
        {"*.img.gz", "an image that gunzip unpacks"},
        {"*.img.xz", "an image that unxz unpacks"},
        {"*.img.lz4", "an image that lz4 unpacks"},
        {"*.img.zst", "an image that unzstd unpacks"},
};

// What lies in these directories of a partition is code and what belongs to it, most of a
// partition's bytes, and no property, key or configuration file of a boot.
constexpr const char* kOfNoUse[] = {"app",   "priv-app", "del-app", "framework", "apex", "lib",
                                    "lib64", "bin",      "overlay", "firmware",  "fonts"};

// The parent directory of the partition, or null if it is none that is shown.
const char* ParentOf(const std::string& partition) {
    for (const auto& known : kPartitions) {
        if (fnmatch(known.name, partition.c_str(), 0) == 0) return known.parent;
    }
    return nullptr;
}

// Takes a slot's suffix off the partition's name and returns the slot, or 0 if there is none.
char TakeSlot(std::string* name) {
    if (!EndsWith(*name, "_a") && !EndsWith(*name, "_b")) return 0;
    const char slot = name->back();
    name->resize(name->size() - 2);
    return slot;
}

// Opens a file or block device, and nothing that might not come back from being opened.
SharedFile OpenImage(const std::string& path) {
    struct stat status;
    unique_fd file;
    const auto is_usable = [&status] { return S_ISREG(status.st_mode) || S_ISBLK(status.st_mode); };
    Check(stat(path.c_str(), &status) == 0, "cannot be opened");
    if (is_usable()) {
        file.reset(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        Check(fstat(file.get(), &status) == 0, "cannot be opened");
    }
    if (!is_usable()) throw std::runtime_error("neither a file nor a block device");
    return std::make_shared<unique_fd>(std::move(file));
}

template <typename Function>
auto Naming(const std::string& image, Function function) try {
    return function();
} catch (const std::runtime_error& error) {
    throw std::runtime_error(image + ": " + error.what());
}

// Chooses among the images that stand for the same partition.
class Choice {
  public:
    Choice(char slot, std::vector<std::string>* notes) : slot_(slot), notes_(notes) {}

    // Offers an image of the partition, which earlier ones go before.
    void Offer(const std::string& name, const std::string& path, char slot, Extents content) {
        if (slot != 0 && slot != slot_) {
            other_slot_.push_back(path);
            return;
        }
        const auto [chosen, is_first] = chosen_.try_emplace(name, Image{path, name, content});
        if (is_first) return;
        notes_->push_back(path + " is not read: " + chosen->second.path +
                          " stands for the same partition");
    }

    std::vector<Image> Take() {
        if (!other_slot_.empty()) {
            notes_->push_back(Join(other_slot_, ", ") + ": of the other slot, not read");
        }
        std::vector<Image> images;
        for (auto& [name, image] : chosen_) images.push_back(std::move(image));
        return images;
    }

  private:
    char slot_;
    std::vector<std::string>* notes_;
    std::map<std::string, Image> chosen_;
    std::vector<std::string> other_slot_;
};

void OfferSuper(const std::string& path, char slot, Choice* choice) {
    const Extents super = Naming(path, [&] { return ContentOf(OpenImage(path)); });
    const auto partitions = Naming(path, [&] { return LogicalPartitions(super, slot); });
    for (const LogicalPartition& partition : partitions) {
        std::string name = partition.name;
        const char slot_of_partition = TakeSlot(&name);
        // The other slot of a new phone is empty.
        if (ParentOf(name) == nullptr || SizeOf(partition.content) == 0) continue;
        choice->Offer(name, path + "(" + partition.name + ")", slot_of_partition,
                      partition.content);
    }
}

bool IsLine(const std::string& line) {
    return !line.empty();
}

// debugfs says its version too, and that an ordinary user cannot give files away.
bool IsDebugfsError(const std::string& line) {
    return !line.empty() && !StartsWith(line, "debugfs") && line[0] != '/' &&
           line.find("while changing ownership of") == std::string::npos;
}

bool IsErofsError(const std::string& line) {
    return StartsWith(line, "<E>");
}

// Runs the tool, which comes in the Debian package, and returns the lines that it says. Some tools
// end well in spite of errors, so what they say counts as well.
std::vector<std::string> RunTool(const std::string& command, const std::string& package,
                                 bool (*is_error)(const std::string& line), int most_status = 0) {
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
    std::vector<std::string> lines = android::base::Split(said, "\n");
    if (!WIFEXITED(status) || WEXITSTATUS(status) > most_status) {
        if (is_error == nullptr) throw std::runtime_error(tool + " found it damaged");
        is_error = IsLine;
    }
    const auto error =
            is_error == nullptr ? lines.end() : std::find_if(lines.begin(), lines.end(), is_error);
    if (error != lines.end()) throw std::runtime_error(tool + " failed: " + *error);
    if (WEXITSTATUS(status) > most_status) throw std::runtime_error(tool + " failed");
    return lines;
}

// The start of a file system, up to the end of what is looked at of its superblock.
constexpr size_t kHeaderSize = 2048;

template <typename Number>
Number At(const std::string& header, size_t offset) {
    Number number;
    memcpy(&number, header.data() + offset, sizeof(number));
    return number;
}

// Files have to be readable whoever this is.
void MakeReadable(const std::string& directory) {
    for (const auto& entry : fs::recursive_directory_iterator(directory)) {
        if (entry.is_symlink()) continue;
        const fs::perms wanted =
                entry.is_directory() ? fs::perms::owner_all : fs::perms::owner_read;
        if ((entry.status().permissions() & wanted) == wanted) continue;
        fs::permissions(entry.path(), wanted, fs::perm_options::add);
    }
}

// The names in the root of an ext4 image, from lines "/inode/mode/user/group/name/size/".
std::vector<std::string> RootNames(const std::string& file) {
    std::vector<std::string> names;
    for (const std::string& line :
         RunTool("debugfs -R 'ls -p /' " + file, "e2fsprogs", IsDebugfsError)) {
        const std::vector<std::string> fields = android::base::Split(line, "/");
        if (fields.size() < 6 || fields[1] == "0" || fields[5] == "." || fields[5] == "..")
            continue;
        names.push_back(fields[5]);
    }
    return names;
}

void UnpackExt4(const std::string& file, const std::string& directory,
                std::vector<std::string>* left_out) {
    // What the tool does with an image that contradicts itself is not to be known.
    constexpr int kHarmless = 3;
    RunTool("e2fsck -fn " + file, "e2fsprogs", nullptr, kHarmless);
    const std::string commands = directory + ".commands";
    std::string text;
    for (const std::string& name : RootNames(file)) {
        const bool is_of_use = std::none_of(std::begin(kOfNoUse), std::end(kOfNoUse),
                                            [&name](const char* other) { return name == other; });
        if (is_of_use) {
            text += "rdump \"/" + name + "\" " + directory + "\n";
        } else {
            left_out->push_back(name);
        }
    }
    Check(android::base::WriteStringToFile(text, commands), commands);
    RunTool("debugfs -f " + commands + " " + file, "e2fsprogs", IsDebugfsError);
    for (const std::string& name : *left_out) mkdir((directory + "/" + name).c_str(), 0755);
}

void UnpackErofs(const std::string& file, const std::string& directory, std::vector<std::string>*) {
    RunTool("fsck.erofs --no-preserve-owner --preserve-perms --extract=" + directory + " " + file,
            "erofs-utils", IsErofsError);
}

struct FileSystem {
    size_t magic_offset;
    std::string_view magic;
    uint64_t (*size)(const std::string& header);
    void (*unpack)(const std::string& file, const std::string& directory,
                   std::vector<std::string>* left_out);
    bool takes_offset;  // the tools can look at a part of a file
};

constexpr FileSystem kFileSystems[] = {
        {0x438, "\x53\xef",
         [](const std::string& header) {
             return uint64_t{At<uint32_t>(header, 0x404)} << (10 + At<uint8_t>(header, 0x418) % 32);
         },
         UnpackExt4, true},
        {0x400, "\xe2\xe1\xf5\xe0",
         [](const std::string& header) {
             return uint64_t{At<uint32_t>(header, 0x424)} << At<uint8_t>(header, 0x40c) % 32;
         },
         UnpackErofs, false},
};

// Returns the file system, and takes off the content what lies behind it.
const FileSystem& FileSystemIn(Extents* content) {
    const uint64_t size = SizeOf(*content);
    const std::string header = size < kHeaderSize ? "" : ReadBytes(*content, 0, kHeaderSize);
    for (const FileSystem& known : kFileSystems) {
        if (header.substr(std::min(header.size(), known.magic_offset), known.magic.size()) !=
            known.magic) {
            continue;
        }
        // The tools do not always notice that the end is missing.
        if (size < known.size(header)) {
            throw std::runtime_error("truncated, " + std::to_string(size) + " bytes of " +
                                     std::to_string(known.size(header)));
        }
        *content = Slice(*content, 0, known.size(header));
        return known;
    }
    throw std::runtime_error("neither an ext4 nor an EROFS nor an Android sparse image");
}

}  // namespace

Images OpenImages(const std::string& device, const Options& options) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(device))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());

    Images images;
    Choice choice(options.slot, &images.notes);
    std::vector<std::string> unknown, without_slot;
    bool has_super = false;
    for (const std::string& name : names) {
        const std::string path = device + "/" + name;
        for (const auto& known : kArchives) {
            if (fnmatch(known.name, name.c_str(), FNM_CASEFOLD) != 0) continue;
            images.notes.push_back(path + " is not looked into: it is " + known.advice);
            break;
        }
        if (!EndsWith(name, kExtension)) continue;
        std::string partition = name.substr(0, name.size() - strlen(kExtension));
        const char slot = TakeSlot(&partition);
        if (partition == kSuper && slot == 0) {
            has_super = true;
        } else if (ParentOf(partition) == nullptr) {
            unknown.push_back(name);
            continue;
        } else if (slot == 0) {
            without_slot.push_back(partition);
        } else {
            choice.Offer(partition, path, slot,
                         Naming(path, [&] { return ContentOf(OpenImage(path)); }));
        }
        images.files.push_back(name);
    }
    for (const std::string& partition : without_slot) {
        const std::string path = device + "/" + partition + kExtension;
        choice.Offer(partition, path, 0, Naming(path, [&] { return ContentOf(OpenImage(path)); }));
    }
    if (has_super) OfferSuper(device + "/" + kSuper + kExtension, options.slot, &choice);
    images.partitions = choice.Take();
    if (!unknown.empty()) {
        images.notes.push_back(Join(unknown, ", ") +
                               ": named like no partition that is shown, not read");
    }
    return images;
}

UnpackedImage Unpack(const Image& image, const std::string& directory) {
    return Naming(image.path, [&]() -> UnpackedImage {
        Extents content = image.content;
        const FileSystem& file_system = FileSystemIn(&content);
        Check(mkdir(directory.c_str(), 0755) == 0, directory);
        const bool is_plain = content.size() == 1 && content[0].file != nullptr &&
                              (content[0].offset == 0 || file_system.takes_offset);
        std::string file = directory + ".raw";
        if (is_plain) {
            fcntl(content[0].file->get(), F_SETFD, 0);  // the tools inherit it
            file = "'/proc/self/fd/" + std::to_string(content[0].file->get());
            if (content[0].offset != 0) file += "?offset=" + std::to_string(content[0].offset);
            file += "'";
        } else {
            WriteTo(content, file);
        }
        std::vector<std::string> left_out;
        file_system.unpack(file, directory, &left_out);
        if (is_plain) {
            fcntl(content[0].file->get(), F_SETFD, FD_CLOEXEC);
        } else {
            unlink(file.c_str());
        }
        MakeReadable(directory);

        const std::string parent = ParentOf(image.partition);
        UnpackedImage unpacked = {directory, "", parent + image.partition, "", std::move(left_out)};
        if (parent != "/") unpacked.link = "/" + image.partition;
        // The system's image is that of the root, where there is one.
        const std::string inner = "/" + image.partition;
        if (image.partition == "system" && fs::is_directory(directory + inner)) {
            unpacked.directory += inner;
            unpacked.path_in_image = inner;
        }
        return unpacked;
    });
}

}  // namespace sandbox
