#include "images.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>

#include "../budget.h"
#include "checks.h"
#include "directory_tree.h"
#include "file_names.h"
#include "image_tree.h"
#include "reader.h"
#include "sandbox.h"

using android::base::Join;
using android::base::unique_fd;

namespace sandbox {

namespace {

using OnDamage = std::function<void(const std::string& what)>;

template <typename Function>
auto Naming(const std::string& image, Function function) try {
    return function();
} catch (const std::runtime_error& error) {
    throw std::runtime_error(image + ": " + error.what());
}

// What a process has found in a file.
struct Looked {
    std::shared_ptr<const images::Reader> reader;
    images::Contained contained;

    std::unique_ptr<images::FileSystem> Open(size_t volume) const {
        return reader->Open(contained.first_volume + volume);
    }
};

// A file system from one of its directories on.
class PartOfFileSystem : public images::FileSystem {
  public:
    PartOfFileSystem(std::unique_ptr<images::FileSystem> files, uint64_t root)
            : files_(std::move(files)), root_(root) {}

    uint64_t root() const override { return root_; }
    images::Node Look(uint64_t node) const override { return files_->Look(node); }
    std::vector<images::Name> List(uint64_t node) const override { return files_->List(node); }
    std::string Read(uint64_t node, uint64_t offset, size_t size) const override {
        return files_->Read(node, offset, size);
    }
    std::string Target(uint64_t node) const override { return files_->Target(node); }

  private:
    std::unique_ptr<images::FileSystem> files_;
    uint64_t root_;
};

// A file system that is opened by the first who looks into its root directory: what it is packed in
// may be large.
class LazyFileSystem : public images::FileSystem {
  public:
    using Open = std::function<std::unique_ptr<images::FileSystem>()>;

    explicit LazyFileSystem(Open open) : open_(std::move(open)) {}

    uint64_t root() const override { return kRoot; }
    images::Node Look(uint64_t node) const override {
        if (node != kRoot) return opened().Look(node);
        images::Node root;
        root.id = kRoot;
        root.mode = S_IFDIR | 0755;
        return root;
    }
    std::vector<images::Name> List(uint64_t node) const override {
        return opened().List(node == kRoot ? opened().root() : node);
    }
    std::string Read(uint64_t node, uint64_t offset, size_t size) const override {
        return opened().Read(node, offset, size);
    }
    std::string Target(uint64_t node) const override { return opened().Target(node); }

  private:
    static constexpr uint64_t kRoot = ~uint64_t{0};  // which no image has

    const images::FileSystem& opened() const {
        if (files_ == nullptr) files_ = open_();
        return *files_;
    }

    Open open_;
    mutable std::unique_ptr<images::FileSystem> files_;
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

// Opens a regular file in the device directory, where links lead within it. `image` is what it
// stands for, empty if that is many.
unique_fd OpenInDevice(const View& view, const std::string& image, const std::string& path) {
    const std::string advice =
            image.empty() ? "" : "; --image " + image + "=FILE reads an image of any place";
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

const char* WhatIs(images::Kind kind) {
    switch (kind) {
        case images::Kind::kFileSystem:
            return "an image of one partition";
        case images::Kind::kSuper:
            return "a super partition";
        case images::Kind::kPayload:
            return "an update's payload";
        case images::Kind::kArchive:
            return "an archive";
        case images::Kind::kUnknown:
            break;
    }
    return "nothing that is read";
}

constexpr char kSystem[] = "system";

// What images lie in: the device directory or an archive. Paths in it begin with a slash.
struct Folder {
    std::shared_ptr<const Tree> tree;
    std::function<ImageName(const std::string& path)> name_of;
    // Looks at a file, or at the parts of one, that stand for the image.
    std::function<Looked(const std::string& image, const std::vector<std::string>& paths)> look;
};

bool IsDirectory(const Tree& tree, const std::string& path) {
    struct stat status;
    return tree.Status(path, &status) == 0 && S_ISDIR(status.st_mode);
}

// Returns the names in the directory, in their order.
std::set<std::string> NamesIn(const Tree& tree, const std::string& directory) {
    std::vector<Listed> listed;
    const long error = tree.List(directory, &listed);
    errno = static_cast<int>(-error);
    Check(error >= 0, "cannot be listed");
    std::set<std::string> names;
    for (auto& [name, type] : listed) names.insert(std::move(name));
    return names;
}

// A file that stands for an image of some name, or the parts of one.
struct ImageFile {
    ImageName name;
    std::vector<std::string> paths;  // in the folder; none if the user named it
    std::function<Looked()> look;
};

// What lies in a directory of a folder.
struct FolderContent {
    std::map<std::string, ImageFile> images;  // by what ParseFileName() calls them
    std::vector<std::string> archives;        // their paths
};

// One of those that stand for the same partition.
struct Candidate {
    ImageName name;
    std::function<std::shared_ptr<const Tree>()> open;
    std::string directory = "";  // that alone stands for it
    bool is_packed = false;      // it is unpacked as a whole when somebody looks into it
};

// The system's image is that of the root, where there is one: returns the directory in it that is
// the system's own, or the root.
std::unique_ptr<images::FileSystem> SystemIn(std::unique_ptr<images::FileSystem> files) {
    uint64_t root = files->root();
    for (const auto& [name, node] : files->List(files->root())) {
        if (name == kSystem && S_ISDIR(files->Look(node).mode)) root = node;
    }
    return std::make_unique<PartOfFileSystem>(std::move(files), root);
}

ImageName VolumeOf(const ImageName& file, const std::string& volume) {
    return {file.path + "(" + volume + ")", volume + " of " + file.name};
}

}  // namespace

class Firmware::Opener {
  public:
    Opener(const std::string& path, const Options& options, int nothing,
           const std::string& nothing_path, OnDamage on_damage)
            : name_({path, path.substr(path.rfind('/') + 1)}),
              options_(options),
              nothing_(nothing),
              on_damage_(std::move(on_damage)) {
        struct stat status;
        Check(stat(path.c_str(), &status) == 0, path);
        if (S_ISDIR(status.st_mode)) {
            tree_ = std::make_shared<DirectoryTree>(path);
            return;
        }
        Naming(path, [&] {
            SetReaders(1 + options_.images.size());
            OpenFile(nothing_path);
        });
    }

    std::shared_ptr<const Tree> tree() const { return tree_; }

    Images Open(const View& view) {
        images_ = {};
        if (file_) {
            std::map<std::string, ImageFile> files = {{image_, *file_}};
            AddNamed(&files);
            OfferFiles(files);
        } else if (archive_) {
            OfferFolder(*archive_, true);
        } else {
            OfferFolder(DeviceFolder(view), true);
        }
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
    // --- A device that is a file ----------------------------------------------------------------

    void OpenFile(const std::string& nothing_path) {
        const FileName parsed = ParseFileName(name_.name);
        if (parsed.whats_unread != nullptr) throw std::runtime_error(parsed.whats_unread);
        if (parsed.part) {
            throw std::runtime_error(
                    "one part of a split image; a directory with all parts can be DEVICE");
        }
        std::vector<unique_fd> files;
        files.push_back(OpenNamed(name_.path));
        Looked looked = Start(std::move(files));
        tree_ = std::make_shared<DirectoryTree>(nothing_path);
        file_ = {name_, {}, [looked] { return looked; }};
        switch (looked.contained.kind) {
            case images::Kind::kArchive:
                file_.reset();
                archive_ = ArchiveFolder(looked, name_);
                if (!HasPartitions(*archive_->tree)) {
                    throw std::runtime_error(
                            "an archive with no image or directory of a partition in it");
                }
                tree_ = archive_->tree;
                break;
            case images::Kind::kSuper:
                image_ = kSuper;
                break;
            case images::Kind::kPayload:
                image_ = kPayload;
                break;
            case images::Kind::kFileSystem:
                image_ = parsed.image;
                if (IsOfPartitions(image_) && image_ != kSuper && image_ != kPayload) break;
                throw std::runtime_error(
                        "an image whose file is not named as a partition that is shown, such as "
                        "my_region.img");
            case images::Kind::kUnknown:
                throw std::runtime_error(
                        "no image, no super partition, no payload of an update and no archive that "
                        "is read");
        }
    }

    // --- Folders --------------------------------------------------------------------------------

    void SetReaders(size_t readers) {
        if (readers > limits::kReaders) {
            throw std::runtime_error("more than " + std::to_string(limits::kReaders) +
                                     " images and archives");
        }
        readers_ = std::max<size_t>(readers, 1);
    }

    Looked Start(std::vector<unique_fd> files) const {
        auto reader =
                std::make_shared<const images::Reader>(std::move(files), options_.slot, readers_);
        const images::Contained contained = reader->contained();
        return {std::move(reader), contained};
    }

    Folder DeviceFolder(const View& view) const {
        return {tree_,
                [device = name_.path](const std::string& path) {
                    return ImageName{device + path, path.substr(1)};
                },
                [this, &view](const std::string& image, const std::vector<std::string>& paths) {
                    std::vector<unique_fd> files;
                    for (const std::string& path : paths) {
                        files.push_back(OpenInDevice(view, image, path));
                    }
                    return Start(std::move(files));
                }};
    }

    // Returns what the archive holds: without the directory that is around everything, and of an
    // archive that only holds another one what is in that.
    Folder ArchiveFolder(const Looked& looked, const ImageName& name) const {
        auto files = looked.Open(0);
        uint64_t root = files->root();
        for (auto names = files->List(root); names.size() == 1 && !IsOfDevice(names[0].name) &&
                                             S_ISDIR(files->Look(names[0].node).mode);
             names = files->List(root)) {
            root = names[0].node;
        }
        const auto tree = TreeOf(name, std::make_unique<PartOfFileSystem>(std::move(files), root));
        Folder folder = {
                tree,
                [name](const std::string& path) {
                    return ImageName{name.path + "(" + path.substr(1) + ")",
                                     path.substr(1) + " in " + name.name};
                },
                [looked, tree](const std::string&, const std::vector<std::string>& paths) {
                    std::vector<uint64_t> nodes;
                    for (const std::string& path : paths) {
                        struct stat status;
                        const long error = tree->Status(path, &status);
                        errno = static_cast<int>(-error);
                        Check(error >= 0, "cannot be opened");
                        nodes.push_back(status.st_ino);
                    }
                    return Looked{looked.reader,
                                  looked.reader->LookInside(looked.contained.first_volume, nodes)};
                }};
        if (HasPartitions(*tree)) return folder;
        std::vector<std::string> archives;
        for (const std::string& inner : NamesIn(*tree, "")) {
            if (ParseFileName(inner).is_archive) archives.push_back(inner);
        }
        if (archives.empty()) return folder;
        if (archives.size() > 1) {
            throw std::runtime_error("an archive of several archives (" + Join(archives, ", ") +
                                     "); the one that is wanted has to be unpacked");
        }
        const std::string path = "/" + archives[0];
        const ImageName inner = folder.name_of(path);
        return Naming(archives[0], [&] {
            const Looked found = folder.look("", {path});
            if (found.contained.kind != images::Kind::kArchive) return folder;
            return ArchiveFolder(found, inner);
        });
    }

    // Whether anything in the archive is of a device.
    static bool HasPartitions(const Tree& archive) {
        const std::set<std::string> names = NamesIn(archive, "");
        return std::any_of(names.begin(), names.end(), [&](const std::string& name) {
            return IsOfPartitions(ParseFileName(name).image) ||
                   (IsOfDevice(name) && IsDirectory(archive, "/" + name));
        });
    }

    // --- What a folder offers -------------------------------------------------------------------

    FolderContent ContentOf(const Folder& folder, const std::string& directory) {
        FolderContent content;
        std::map<std::string, std::map<int, std::string>> split;  // paths by number
        for (const std::string& file : NamesIn(*folder.tree, directory)) {
            const FileName parsed = ParseFileName(file);
            const std::string path = directory + "/" + file;
            const ImageName name = folder.name_of(path);
            if (parsed.whats_unread != nullptr) {
                images_.notes.push_back(name.path + " is not looked into: it is " +
                                        parsed.whats_unread);
            }
            if (parsed.is_archive) content.archives.push_back(path);
            if (parsed.image.empty()) continue;
            if (parsed.part) {
                if (!split[parsed.image].emplace(*parsed.part, path).second) {
                    throw std::runtime_error(name.path + ": this part is there twice");
                }
                continue;
            }
            AddFile(folder, parsed.image, name, {path}, &content);
        }
        for (const auto& [image, parts] : split) {
            std::vector<std::string> paths;
            for (const auto& [number, path] : parts) {
                const int expected = parts.begin()->first + static_cast<int>(paths.size());
                if (parts.begin()->first > 1 || number != expected) {
                    throw std::runtime_error(folder.name_of(path).path +
                                             ": a part of a split image, and one before it is "
                                             "missing");
                }
                paths.push_back(path);
            }
            AddFile(folder, image, folder.name_of(paths[0]), paths, &content);
        }
        return content;
    }

    void AddFile(const Folder& folder, const std::string& image, const ImageName& name,
                 const std::vector<std::string>& paths, FolderContent* content) {
        const auto [known, is_new] = content->images.try_emplace(
                image, ImageFile{name, paths,
                                 [folder, image, paths] { return folder.look(image, paths); }});
        if (!is_new) TellUnread(name, known->second.name, "image");
    }

    void AddNamed(std::map<std::string, ImageFile>* files) const {
        for (const auto& [image, path] : options_.images) {
            const auto look = [this, file = path] {
                std::vector<unique_fd> opened;
                opened.push_back(OpenNamed(file));
                return Start(std::move(opened));
            };
            (*files)[image] = {{path, path.substr(path.rfind('/') + 1)}, {}, look};
        }
    }

    void OfferFolder(const Folder& folder, bool is_device) {
        FolderContent content = ContentOf(folder, "");
        if (is_device) AddNamed(&content.images);
        if (is_device && !archive_) {
            Naming(name_.path,
                   [&] { SetReaders(content.images.size() + content.archives.size()); });
        }
        if (is_device) {
            for (const auto& [image, file] : content.images) {
                if (!IsOfPartitions(image)) continue;
                images_.files.insert(images_.files.end(), file.paths.begin(), file.paths.end());
            }
        }
        OfferFiles(content.images);
        OfferDirectories(folder, is_device);
        const std::string directory = std::string("/") + kImagesDirectory;
        if (IsDirectory(*folder.tree, directory)) {
            OfferFiles(ContentOf(folder, directory).images);
            if (is_device) images_.covered.push_back(directory);
        }
        if (!is_device || archive_) return;
        for (const std::string& path : content.archives) {
            const ImageName name = folder.name_of(path);
            const Folder archive = Naming(name.path, [&] {
                const Looked looked = folder.look("", {path});
                if (looked.contained.kind != images::Kind::kArchive) {
                    throw std::runtime_error("no archive that is read");
                }
                return ArchiveFolder(looked, name);
            });
            if (HasPartitions(*archive.tree)) {
                images_.files.push_back(path);
                OfferFolder(archive, false);
            } else {
                images_.notes.push_back(
                        name.path + " is not read: no image or directory of a partition is in it");
            }
        }
    }

    // Offers directories that stand for partitions: those of target files and, if it is not the
    // device's own folder, those that lie in it as on a device.
    void OfferDirectories(const Folder& folder, bool is_device) {
        std::vector<std::string> parents = {""};
        if (!is_device && IsDirectory(*folder.tree, "/mnt/vendor"))
            parents.push_back("/mnt/vendor");
        for (const std::string& parent : parents) {
            for (const std::string& name : NamesIn(*folder.tree, parent)) {
                const std::string path = parent + "/" + name;
                std::string partition = PartitionOfTargetFiles(name);
                if (partition.empty() && !is_device && FindPartition(name) != nullptr) {
                    partition = name;
                }
                if (partition.empty() || !IsDirectory(*folder.tree, path)) continue;
                if (is_device) images_.covered.push_back(path);
                Offer(partition, 0,
                      {folder.name_of(path), [tree = folder.tree] { return tree; }, path});
            }
        }
    }

    // Those of a slot go before those without, and those of one partition before those of many.
    void OfferFiles(const std::map<std::string, ImageFile>& files) {
        std::vector<std::pair<std::string, const ImageFile*>> without_slot, of_many;
        for (const auto& [image, file] : files) {
            std::string partition = image;
            const char slot = TakeSlot(&partition);
            if (image == kSuper || image == kPayload) {
                of_many.emplace_back(image, &file);
            } else if (FindPartition(partition) == nullptr) {
                if (file.paths.empty()) {
                    throw std::runtime_error("--image " + image +
                                             ": named like no partition that is shown");
                }
                for (const std::string& path : file.paths) unknown_.push_back(path.substr(1));
            } else if (slot == 0) {
                without_slot.emplace_back(image, &file);
            } else {
                Offer(partition, slot, Single(partition, file));
            }
        }
        for (const auto& [image, file] : without_slot) Offer(image, 0, Single(image, *file));
        for (const auto& [image, file] : of_many) OfferAll(image, *file);
    }

    // A file of one partition.
    Candidate Single(const std::string& partition, const ImageFile& file) const {
        const auto open = [this, partition, file]() -> std::shared_ptr<const Tree> {
            const Looked looked = file.look();
            const images::Kind kind = looked.contained.kind;
            if (kind != images::Kind::kFileSystem && kind != images::Kind::kUnknown) {
                throw std::runtime_error(std::string(WhatIs(kind)) + ", where an image of " +
                                         partition + " is wanted");
            }
            auto files = looked.Open(0);
            // Not in the time of a boot.
            if (FindPartition(partition)->is_always_read) {
                looked.reader->Unpack(looked.contained.first_volume);
            }
            return TreeOf(file.name, std::move(files));
        };
        return {file.name, open};
    }

    // A file of many partitions.
    void OfferAll(const std::string& image, const ImageFile& file) {
        const Looked looked = Naming(file.name.path, file.look);
        const images::Kind wanted = image == kSuper ? images::Kind::kSuper : images::Kind::kPayload;
        if (looked.contained.kind != wanted) {
            throw std::runtime_error(file.name.path + ": " + WhatIs(looked.contained.kind) +
                                     ", where " + WhatIs(wanted) + " is wanted");
        }
        for (size_t i = 0; i < looked.contained.volumes.size(); ++i) {
            const auto& [volume, size] = looked.contained.volumes[i];
            const ImageName name = VolumeOf(file.name, volume);
            std::string partition = volume;
            const char slot = TakeSlot(&partition);
            if (!IsPartitionName(partition)) unknown_.push_back(name.path);
            // The other slot of a new phone is empty.
            const Partition* known = FindPartition(partition);
            if (known == nullptr || size == 0) continue;
            const bool is_packed = wanted == images::Kind::kPayload && !known->is_always_read;
            const auto open = [this, looked, name, i, is_packed, partition] {
                if (!is_packed) return TreeOf(name, looked.Open(i));
                return TreeOf(name, std::make_unique<LazyFileSystem>([looked, i, partition] {
                                  return partition == kSystem ? SystemIn(looked.Open(i))
                                                              : looked.Open(i);
                              }));
            };
            Offer(partition, slot, {name, open, "", is_packed});
        }
    }

    // Offers an image of the partition, which earlier ones go before.
    void Offer(const std::string& partition, char slot, const Candidate& image) {
        if (slot != 0 && slot != options_.slot) {
            other_slot_.push_back(image.name.path);
            return;
        }
        const auto [chosen, is_first] = chosen_.try_emplace(partition, image);
        if (!is_first) TellUnread(image.name, chosen->second.name, "partition");
    }

    void TellUnread(const ImageName& unread, const ImageName& chosen, const std::string& of_what) {
        images_.notes.push_back(unread.path + " is not read: " + chosen.path +
                                " stands for the same " + of_what);
    }

    std::shared_ptr<const Tree> TreeOf(const ImageName& name,
                                       std::unique_ptr<images::FileSystem> files) const {
        return std::make_shared<ImageTree>(
                std::move(files), nothing_,
                [tell = on_damage_, image = name.path](const std::string& path,
                                                       const std::string& what) {
                    tell(image + ": " + (path.empty() ? "/" : path) + ": " + what);
                });
    }

    void Show(const std::string& partition, const Candidate& image) {
        const auto tree = Naming(image.name.path, image.open);
        const std::string parent = FindPartition(partition)->parent;
        ShownImage shown = {image.name,         tree, image.directory, image.directory,
                            parent + partition, ""};
        if (parent != "/") shown.link = "/" + partition;
        if (image.is_packed) images_.packed.push_back(shown.place);
        const std::string inner = image.directory + "/" + partition;
        if (partition == kSystem && !image.is_packed && IsDirectory(*tree, inner)) {
            shown.root = inner;
        }
        images_.shown.push_back(shown);
    }

    const ImageName name_;
    const Options options_;
    const int nothing_;
    const OnDamage on_damage_;
    size_t readers_ = 1;  // that share what the device may take

    // What the device is, if it is no directory.
    std::optional<Folder> archive_;
    std::optional<ImageFile> file_;
    std::string image_;  // what the file stands for

    std::shared_ptr<const Tree> tree_;
    Images images_;
    std::map<std::string, Candidate> chosen_;  // by partition
    std::vector<std::string> other_slot_, unknown_;
};

Firmware::Firmware(const std::string& path, const Options& options, int nothing,
                   const std::string& nothing_path, const OnDamage& on_damage)
        : opener_(std::make_unique<Opener>(path, options, nothing, nothing_path, on_damage)) {}

Firmware::~Firmware() = default;

std::shared_ptr<const Tree> Firmware::tree() const {
    return opener_->tree();
}

Images Firmware::OpenImages(const View& view) const {
    return opener_->Open(view);
}

}  // namespace sandbox
