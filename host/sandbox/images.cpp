#include "images.h"

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>

#include <android-base/strings.h>
#include <android-base/unique_fd.h>

#include "../budget.h"
#include "checks.h"
#include "image_tree.h"
#include "reader.h"
#include "sandbox.h"

using android::base::EndsWith;
using android::base::Join;
using android::base::unique_fd;

namespace sandbox {

namespace {

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

// Whether a partition can have the name: what comes out of an image may be anything.
bool IsPartitionName(const std::string& name) {
    return std::all_of(name.begin(), name.end(), [](unsigned char letter) {
        return letter < 0x80 && (isalnum(letter) != 0 || letter == '_');
    });
}

// The parent directory of the partition, or null if it is none that is shown.
const char* ParentOfPartition(const std::string& partition) {
    for (const auto& known : kPartitions) {
        if (IsPartitionName(partition) && fnmatch(known.name, partition.c_str(), 0) == 0)
            return known.parent;
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

template <typename Function>
auto Naming(const std::string& image, Function function) try {
    return function();
} catch (const std::runtime_error& error) {
    throw std::runtime_error(image + ": " + error.what());
}

// An image file of some name, such as "my_region_a".
struct ImageFile {
    std::string name;
    std::string path;  // as the user knows it
    bool is_devices;   // it lies in the device directory; else the user named it
};

// Opens a file or block device that the user named, and nothing that might not come back from being
// opened.
unique_fd OpenNamed(const std::string& path) {
    struct stat status;
    unique_fd file;
    const auto is_usable = [&status] { return S_ISREG(status.st_mode) || S_ISBLK(status.st_mode); };
    Check(stat(path.c_str(), &status) == 0, "cannot be opened");
    if (is_usable()) {
        file.reset(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        Check(fstat(file.get(), &status) == 0, "cannot be opened");
    }
    if (!is_usable()) throw std::runtime_error("neither a file nor a block device");
    return file;
}

// Opens a regular file in the device directory, where links lead within it.
unique_fd OpenInDevice(const View& view, const std::string& name) {
    const std::string path = "/" + name + kExtension;
    const std::string advice = "; --image " + name + "=FILE reads an image of any place";
    Entry link, entry;
    view.Find(path, false, &link);
    const long error = view.Find(path, true, &entry);
    if (link.is_link() && (error < 0 || !entry.exists)) {
        throw std::runtime_error("a link that leads to nothing in the device directory" + advice);
    }
    if (S_ISBLK(entry.status.st_mode)) {
        throw std::runtime_error("a block device, which is not opened" + advice);
    }
    const long fd = view.OpenToRead(path, true);
    if (fd == -ENXIO || fd == -EISDIR) throw std::runtime_error("no file");
    errno = static_cast<int>(-fd);
    Check(fd >= 0, "cannot be opened");
    return unique_fd(static_cast<int>(fd));
}

class Opener {
  public:
    Opener(const std::string& device, const View& view, const Options& options, int nothing,
           const std::function<void(const std::string& what)>& on_damage)
            : device_(device),
              view_(view),
              options_(options),
              nothing_(nothing),
              on_damage_(on_damage) {}

    Images Open() {
        const std::vector<ImageFile> files = Files();
        if (files.size() > limits::kReaders) {
            throw std::runtime_error(device_ + ": more than " + std::to_string(limits::kReaders) +
                                     " images");
        }
        if (!files.empty()) {
            reader_memory_ =
                    std::min<uint64_t>(reader_memory_, limits::kReadersMemory / files.size());
        }
        std::vector<ImageFile> without_slot;
        std::optional<ImageFile> super;
        for (const ImageFile& file : files) {
            std::string partition = file.name;
            const char slot = TakeSlot(&partition);
            if (partition == kSuper && slot == 0) {
                super = file;
            } else if (ParentOfPartition(partition) == nullptr) {
                if (!file.is_devices) {
                    throw std::runtime_error("--image " + file.name +
                                             ": named like no partition that is shown");
                }
                unknown_.push_back(file.name + kExtension);
                continue;
            } else if (slot == 0) {
                without_slot.push_back(file);
            } else {
                Offer(partition, slot, {file.path, [this, file] { return FileSystemOf(file); }});
            }
            images_.files.push_back(file.name + kExtension);
        }
        for (const ImageFile& file : without_slot) {
            Offer(file.name, 0, {file.path, [this, file] { return FileSystemOf(file); }});
        }
        if (super) OfferSuper(*super);
        if (!other_slot_.empty()) {
            images_.notes.push_back(Join(other_slot_, ", ") + ": of the other slot, not read");
        }
        if (!unknown_.empty()) {
            images_.notes.push_back(Join(unknown_, ", ") +
                                    ": named like no partition that is shown, not read");
        }
        for (const auto& [partition, image] : chosen_) Show(partition, image);
        return std::move(images_);
    }

  private:
    // One of those that stand for the same partition.
    struct Candidate {
        std::string path;
        std::function<std::unique_ptr<images::FileSystem>()> open;
    };

    // Returns the image files in the device directory, in the order of their names, those in their
    // place that the user named instead of them.
    std::vector<ImageFile> Files() {
        Entry root;
        std::vector<Listed> names;
        const long error = view_.Find("/", true, &root) < 0 ? -EIO : view_.List(root, &names);
        errno = static_cast<int>(-error);
        Check(error >= 0, device_);
        std::map<std::string, ImageFile> files;
        std::set<std::string> sorted;
        for (const auto& listed : names) sorted.insert(listed.name);
        for (const std::string& name : sorted) {
            const std::string path = device_ + "/" + name;
            for (const auto& known : kArchives) {
                if (fnmatch(known.name, name.c_str(), FNM_CASEFOLD) != 0) continue;
                images_.notes.push_back(path + " is not looked into: it is " + known.advice);
                break;
            }
            if (!EndsWith(name, kExtension)) continue;
            const std::string partition = name.substr(0, name.size() - strlen(kExtension));
            files[partition] = {partition, path, true};
        }
        for (const auto& [name, path] : options_.images) files[name] = {name, path, false};
        std::vector<ImageFile> all;
        for (const auto& [name, file] : files) all.push_back(file);
        return all;
    }

    images::Reader ReaderOf(const ImageFile& file) const {
        std::vector<unique_fd> parts;
        parts.push_back(file.is_devices ? OpenInDevice(view_, file.name) : OpenNamed(file.path));
        return images::Reader(std::move(parts), options_.slot, reader_memory_);
    }

    std::unique_ptr<images::FileSystem> FileSystemOf(const ImageFile& file) const {
        const images::Reader reader = ReaderOf(file);
        if (reader.contained().kind == images::Kind::kSuper) {
            throw std::runtime_error("a super partition, which is named super.img");
        }
        if (reader.contained().kind != images::Kind::kFileSystem) {
            throw std::runtime_error("no image of a file system");
        }
        return reader.Open(0);
    }

    void OfferSuper(const ImageFile& file) {
        const auto reader = Naming(file.path, [&] {
            return std::shared_ptr<const images::Reader>(new images::Reader(ReaderOf(file)));
        });
        const std::vector<images::Volume>& volumes = reader->contained().volumes;
        if (reader->contained().kind != images::Kind::kSuper) {
            throw std::runtime_error(file.path + ": no super partition");
        }
        for (size_t i = 0; i < volumes.size(); ++i) {
            std::string name = volumes[i].name;
            const char slot = TakeSlot(&name);
            if (!IsPartitionName(name)) {
                unknown_.push_back(file.path + "(" + volumes[i].name + ")");
            }
            // The other slot of a new phone is empty.
            if (ParentOfPartition(name) == nullptr || volumes[i].size == 0) continue;
            Offer(name, slot, {file.path + "(" + volumes[i].name + ")", [reader, i] {
                                   return reader->Open(i);
                               }});
        }
    }

    // Offers an image of the partition, which earlier ones go before.
    void Offer(const std::string& partition, char slot, const Candidate& image) {
        if (slot != 0 && slot != options_.slot) {
            other_slot_.push_back(image.path);
            return;
        }
        const auto [chosen, is_first] = chosen_.try_emplace(partition, image);
        if (is_first) return;
        images_.notes.push_back(image.path + " is not read: " + chosen->second.path +
                                " stands for the same partition");
    }

    void Show(const std::string& partition, const Candidate& image) {
        const auto tree = Naming(image.path, [&] {
            return std::make_shared<ImageTree>(
                    image.open(), nothing_,
                    [tell = on_damage_, name = image.path](const std::string& path,
                                                           const std::string& what) {
                        tell(name + ": " + (path.empty() ? "/" : path) + ": " + what);
                    });
        });
        const std::string parent = ParentOfPartition(partition);
        ShownImage shown = {image.path, tree, "", parent + partition, ""};
        if (parent != "/") shown.link = "/" + partition;
        // The system's image is that of the root, where there is one.
        const std::string inner = "/" + partition;
        struct stat status;
        if (partition == "system" && tree->Status(inner, &status) == 0 && S_ISDIR(status.st_mode)) {
            shown.root = inner;
        }
        images_.shown.push_back(shown);
    }

    const std::string& device_;
    const View& view_;
    const Options& options_;
    int nothing_;
    const std::function<void(const std::string& what)>& on_damage_;
    uint64_t reader_memory_ = limits::kReaderMemory;
    Images images_;
    std::map<std::string, Candidate> chosen_;
    std::vector<std::string> other_slot_, unknown_;
};

}  // namespace

Images OpenImages(const std::string& device, const View& view, const Options& options, int nothing,
                  const std::function<void(const std::string& what)>& on_damage) {
    return Opener(device, view, options, nothing, on_damage).Open();
}

}  // namespace sandbox
