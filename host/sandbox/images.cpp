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

#include "checks.h"
#include "directory_tree.h"
#include "file_names.h"
#include "folders.h"
#include "sandbox.h"

using android::base::Join;
using android::base::unique_fd;

namespace sandbox {

namespace {

constexpr char kSystem[] = "system";
constexpr char kNoPartition[] = "the name must be that of a partition, such as my_region";

// One of the images or directories that could stand for a partition.
struct Candidate {
    ImageName name;
    std::function<std::shared_ptr<const Tree>()> open;
    std::string directory = "";                    // that alone stands for it
    bool is_packed = false;                        // it is unpacked as a whole on the first look-up
    bool is_named = false;                         // by the user
    std::function<std::string()> above = nullptr;  // as in ShownImage
};

// Returns the directory in the system's image that is the partition's root: the image may hold the
// whole root of the device.
uint64_t SystemIn(const images::FileSystem& files) {
    for (const auto& [name, node] : files.List(files.root())) {
        if (name == kSystem && S_ISDIR(files.Look(node).mode)) return node;
    }
    return files.root();
}

// Returns the part of the volume's files that belongs to the partition.
std::unique_ptr<images::FileSystem> OpenedVolume(const OpenedFile& opened, size_t volume,
                                                 const std::string& partition) {
    auto files = opened.Open(volume);
    if (partition != kSystem) return files;
    const uint64_t root = SystemIn(*files);
    return PartOf(std::move(files), root);
}

// Returns the path of the system's own directory in the image, "" for one that could not be opened.
std::string AboveSystem(const OpenedFile& opened, size_t volume) try {
    if (opened.reader == nullptr) return "";
    const auto files = opened.Open(volume);
    return SystemIn(*files) == files->root() ? "" : std::string("/") + kSystem;
} catch (const images::Damage&) {
    return "";  // the look-up of its files reports why
}

ImageName VolumeOf(const ImageName& file, const std::string& volume) {
    return {file.path + "(" + volume + ")", volume + " of " + file.name};
}

}  // namespace

class Firmware::Opener {
  public:
    Opener(const std::string& path, const Options& options, int nothing,
           const std::string& nothing_path, Folders::OnDamage on_damage)
            : name_({path, path.substr(path.rfind('/') + 1)}),
              options_(options),
              folders_(options.slot, nothing, std::move(on_damage)) {
        struct stat status;
        Check(stat(path.c_str(), &status) == 0, path);
        if (S_ISDIR(status.st_mode)) {
            tree_ = std::make_shared<DirectoryTree>(path);
            return;
        }
        Naming(path, [&] {
            folders_.SetReaders(1 + options_.images.size());
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
            OfferFolder(folders_.OfDevice(name_.path, tree_, view), true);
        }
        if (!other_slot_.empty()) {
            images_.notes.push_back(Join(other_slot_, ", ") + ": of the other slot, not read");
        }
        if (!unknown_.empty()) {
            images_.notes.push_back(Join(unknown_, ", ") + ": not read; " + kNoPartition);
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
                    "one part of a split image; give the directory with all parts as DEVICE");
        }
        std::vector<unique_fd> files;
        files.push_back(OpenNamed(name_.path));
        OpenedFile opened = folders_.Start(std::move(files));
        tree_ = std::make_shared<DirectoryTree>(nothing_path);
        file_ = {name_, {}, [opened] { return opened; }};
        switch (opened.contained.kind) {
            case images::Kind::kArchive:
                file_.reset();
                archive_ = folders_.OfArchive(opened, name_);
                if (!HasPartitions(*archive_->tree)) {
                    throw std::runtime_error(
                            "an archive without an image or directory of a partition");
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
                throw std::runtime_error(std::string("an image of one partition; ") + kNoPartition);
            case images::Kind::kUnknown:
                throw std::runtime_error(
                        "neither an image nor a super partition, an update's payload or an archive "
                        "of a known format");
        }
    }

    // --- What a folder offers -------------------------------------------------------------------

    void AddNamed(std::map<std::string, ImageFile>* files) const {
        for (const auto& [image, path] : options_.images) {
            const auto open = [this, file = path] {
                std::vector<unique_fd> opened;
                opened.push_back(OpenNamed(file));
                return folders_.Start(std::move(opened));
            };
            (*files)[image] = {{path, path.substr(path.rfind('/') + 1)}, {}, open};
        }
    }

    void OfferFolder(const Folder& folder, bool is_device) {
        FolderContent content = ContentOf(folder, "", &images_.notes);
        if (is_device) AddNamed(&content.images);
        if (is_device && !archive_) {
            const auto read =
                    std::count_if(content.images.begin(), content.images.end(),
                                  [](const auto& image) { return IsOfPartitions(image.first); });
            Naming(name_.path, [&] { folders_.SetReaders(read + content.archives.size()); });
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
            OfferFiles(ContentOf(folder, directory, &images_.notes).images);
            if (is_device) images_.covered.push_back(directory);
        }
        if (!is_device || archive_) return;
        for (const std::string& path : content.archives) {
            const ImageName name = folder.name_of(path);
            const Folder archive = Naming(name.path, [&] {
                const OpenedFile opened = folder.open("", {path});
                if (opened.contained.kind != images::Kind::kArchive) {
                    throw std::runtime_error("not an archive of a known format");
                }
                return folders_.OfArchive(opened, name);
            });
            if (HasPartitions(*archive.tree)) {
                images_.files.push_back(path);
                OfferFolder(archive, false);
            } else {
                images_.notes.push_back(
                        name.path + " is not read: it has no image or directory of a partition");
            }
        }
    }

    // Offers directories that stand for partitions: those of target files and, unless this is the
    // device's own folder, those that lie as on a device.
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

    // Offers files with a slot before files without, and files of one partition before files of
    // many.
    void OfferFiles(const std::map<std::string, ImageFile>& files) {
        std::vector<std::pair<std::string, const ImageFile*>> without_slot, of_many;
        for (const auto& [image, file] : files) {
            std::string partition = image;
            const char slot = TakeSlot(&partition);
            if (image == kSuper || image == kPayload) {
                of_many.emplace_back(image, &file);
            } else if (FindPartition(partition) == nullptr) {
                if (file.paths.empty()) {
                    throw std::runtime_error("--image " + image + ": " + kNoPartition);
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

    // Returns the candidate of a file of one partition.
    Candidate Single(const std::string& partition, const ImageFile& file) const {
        Candidate image = {file.name, nullptr, "", false, file.paths.empty()};
        const auto kept = std::make_shared<OpenedFile>();
        image.open = [this, partition, file, kept] {
            const OpenedFile opened = *kept = file.open();
            const images::Kind kind = opened.contained.kind;
            if (kind != images::Kind::kFileSystem && kind != images::Kind::kUnknown) {
                throw std::runtime_error(std::string(WhatIs(kind)) + "; expected an image of " +
                                         partition);
            }
            // Every boot reads it, and unpacking must not count as the boot's time.
            if (FindPartition(partition)->is_always_read) {
                opened.reader->Unpack(opened.contained.first_volume);
            }
            return folders_.TreeOf(file.name, OpenedVolume(opened, 0, partition));
        };
        if (partition == kSystem) image.above = [kept] { return AboveSystem(*kept, 0); };
        return image;
    }

    // Offers each partition of a file of many.
    void OfferAll(const std::string& image, const ImageFile& file) {
        const OpenedFile opened = Naming(file.name.path, file.open);
        const images::Kind wanted = image == kSuper ? images::Kind::kSuper : images::Kind::kPayload;
        if (opened.contained.kind != wanted) {
            throw std::runtime_error(file.name.path + ": " + WhatIs(opened.contained.kind) +
                                     "; expected " + WhatIs(wanted));
        }
        for (size_t i = 0; i < opened.contained.volumes.size(); ++i) {
            const auto& [volume, size] = opened.contained.volumes[i];
            const ImageName name = VolumeOf(file.name, volume);
            std::string partition = volume;
            const char slot = TakeSlot(&partition);
            if (!IsPartitionName(partition)) unknown_.push_back(name.path);
            // The other slot of a new phone is empty.
            const Partition* known = FindPartition(partition);
            if (known == nullptr || size == 0) continue;
            const bool is_packed = wanted == images::Kind::kPayload && !known->is_always_read;
            Candidate image = {name, nullptr, "", is_packed};
            image.open = [this, opened, name, i, is_packed, partition] {
                const auto open = [opened, i, partition] {
                    return OpenedVolume(opened, i, partition);
                };
                return folders_.TreeOf(name, is_packed ? OpenedLater(open) : open());
            };
            if (partition == kSystem) image.above = [opened, i] { return AboveSystem(opened, i); };
            Offer(partition, slot, image);
        }
    }

    // Takes the image for the partition unless an earlier one was offered.
    void Offer(const std::string& partition, char slot, const Candidate& image) {
        if (slot != 0 && slot != options_.slot) {
            other_slot_.push_back(image.name.path);
            return;
        }
        const auto [chosen, is_first] = chosen_.try_emplace(partition, image);
        if (!is_first) {
            images_.notes.push_back(Unread(image.name, chosen->second.name, "partition"));
        }
    }

    // Opens the candidate's files. An image that is damaged or of no known format is an error here
    // only if the user named it; otherwise the look-up of a file in it reports that.
    std::shared_ptr<const Tree> OpenCandidate(const Candidate& image) {
        try {
            return image.open();
        } catch (const images::Damage& damage) {
            if (image.is_named) throw;
            images_.notes.push_back(image.name.path +
                                    " was not needed, and cannot be read: " + damage.what());
            return folders_.DamagedTree(image.name, damage.what());
        }
    }

    void Show(const std::string& partition, const Candidate& image) {
        const auto tree = Naming(image.name.path, [&] { return OpenCandidate(image); });
        const std::string place = FindPartition(partition)->parent + partition;
        const ShownImage shown = {image.name, tree, image.directory, place, image.above};
        if (image.is_packed) images_.packed.push_back(shown.place);
        images_.shown.push_back(shown);
    }

    const ImageName name_;
    const Options options_;
    Folders folders_;

    // The device, if it is no directory.
    std::optional<Folder> archive_;
    std::optional<ImageFile> file_;
    std::string image_;  // the image that the file stands for

    std::shared_ptr<const Tree> tree_;
    Images images_;
    std::map<std::string, Candidate> chosen_;  // by partition
    std::vector<std::string> other_slot_, unknown_;
};

Firmware::Firmware(const std::string& path, const Options& options, int nothing,
                   const std::string& nothing_path, const Folders::OnDamage& on_damage)
        : opener_(std::make_unique<Opener>(path, options, nothing, nothing_path, on_damage)) {}

Firmware::~Firmware() = default;

std::shared_ptr<const Tree> Firmware::tree() const {
    return opener_->tree();
}

Images Firmware::OpenImages(const View& view) const {
    return opener_->Open(view);
}

}  // namespace sandbox
