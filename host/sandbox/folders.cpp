#include "folders.h"

#include <errno.h>
#include <sys/stat.h>

#include <algorithm>

#include <android-base/strings.h>

#include "../budget.h"
#include "checks.h"
#include "file_names.h"
#include "image_tree.h"

using android::base::Join;
using android::base::unique_fd;

namespace sandbox {

void Folders::SetReaders(size_t readers) {
    if (readers > limits::kReaders) {
        throw std::runtime_error("more than " + std::to_string(limits::kReaders) +
                                 " images and archives, which is the limit");
    }
    readers_ = std::max<size_t>(readers, 1);
}

OpenedFile Folders::Start(std::vector<unique_fd> files) const {
    auto reader = std::make_shared<const images::Reader>(std::move(files), slot_, readers_);
    const images::Contained contained = reader->contained();
    return {std::move(reader), contained};
}

Folder Folders::OfDevice(const std::string& device, std::shared_ptr<const Tree> tree,
                         const View& view) const {
    return {std::move(tree),
            [device](const std::string& path) {
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

Folder Folders::OfArchive(const OpenedFile& opened, const ImageName& name) const {
    auto files = opened.Open(0);
    uint64_t root = files->root();
    for (auto names = files->List(root); names.size() == 1 && !IsOfDevice(names[0].name) &&
                                         S_ISDIR(files->Look(names[0].node).mode);
         names = files->List(root)) {
        root = names[0].node;
    }
    const auto tree = TreeOf(name, PartOf(std::move(files), root));
    Folder folder = {tree,
                     [name](const std::string& path) {
                         return ImageName{name.path + "(" + path.substr(1) + ")",
                                          path.substr(1) + " in " + name.name};
                     },
                     [opened, tree](const std::string&, const std::vector<std::string>& paths) {
                         std::vector<uint64_t> nodes;
                         for (const std::string& path : paths) {
                             struct stat status;
                             const long error = tree->Status(path, &status);
                             errno = static_cast<int>(-error);
                             Check(error >= 0, "cannot be opened");
                             nodes.push_back(status.st_ino);
                         }
                         return OpenedFile{
                                 opened.reader,
                                 opened.reader->OpenInside(opened.contained.first_volume, nodes)};
                     }};
    if (HasPartitions(*tree)) return folder;
    std::vector<std::string> archives;
    for (const std::string& inner : NamesIn(*tree, "")) {
        if (ParseFileName(inner).is_archive) archives.push_back(inner);
    }
    if (archives.empty()) return folder;
    if (archives.size() > 1) {
        throw std::runtime_error("an archive of several archives (" + Join(archives, ", ") +
                                 "); unpack the one that you want");
    }
    const std::string path = "/" + archives[0];
    const ImageName inner = folder.name_of(path);
    return Naming(archives[0], [&] {
        const OpenedFile inside = folder.open("", {path});
        if (inside.contained.kind != images::Kind::kArchive) return folder;
        return OfArchive(inside, inner);
    });
}

std::shared_ptr<const Tree> Folders::TreeOf(const ImageName& name,
                                            std::unique_ptr<images::FileSystem> files) const {
    return std::make_shared<ImageTree>(
            std::move(files), nothing_,
            [report = on_damage_, image = name.path](const std::string& path,
                                                     const std::string& what) {
                report(image + ": " + (path.empty() ? "/" : path) + ": " + what);
            });
}

std::shared_ptr<const Tree> Folders::DamagedTree(const ImageName& name,
                                                 const std::string& what) const {
    const auto open = [what]() -> std::unique_ptr<images::FileSystem> {
        throw images::Damage(what);
    };
    return std::make_shared<ImageTree>(OpenedLater(open), nothing_,
                                       [report = on_damage_, image = name.path](
                                               const std::string&, const std::string& damage) {
                                           report(image + ": " + damage);
                                       });
}

bool IsDirectory(const Tree& tree, const std::string& path) {
    struct stat status;
    return tree.Status(path, &status) == 0 && S_ISDIR(status.st_mode);
}

std::set<std::string> NamesIn(const Tree& tree, const std::string& directory) {
    std::vector<Listed> listed;
    const long error = tree.List(directory, &listed);
    errno = static_cast<int>(-error);
    Check(error >= 0, "cannot be listed");
    std::set<std::string> names;
    for (auto& [name, type] : listed) names.insert(std::move(name));
    return names;
}

bool HasPartitions(const Tree& archive) {
    const std::set<std::string> names = NamesIn(archive, "");
    return std::any_of(names.begin(), names.end(), [&](const std::string& name) {
        return IsOfPartitions(ParseFileName(name).image) ||
               (IsOfDevice(name) && IsDirectory(archive, "/" + name));
    });
}

std::string Unread(const ImageName& unread, const ImageName& chosen, const std::string& of_what) {
    return unread.path + " is not read: " + chosen.path + " is read for the same " + of_what;
}

namespace {

void AddFile(const Folder& folder, const std::string& image, const ImageName& name,
             const std::vector<std::string>& paths, FolderContent* content,
             std::vector<std::string>* notes) {
    const auto [known, is_new] = content->images.try_emplace(
            image,
            ImageFile{name, paths, [folder, image, paths] { return folder.open(image, paths); }});
    if (!is_new) notes->push_back(Unread(name, known->second.name, "image"));
}

}  // namespace

FolderContent ContentOf(const Folder& folder, const std::string& directory,
                        std::vector<std::string>* notes) {
    FolderContent content;
    std::map<std::string, std::map<int, std::string>> split;  // paths by number
    for (const std::string& file : NamesIn(*folder.tree, directory)) {
        const FileName parsed = ParseFileName(file);
        const std::string path = directory + "/" + file;
        const ImageName name = folder.name_of(path);
        if (parsed.whats_unread != nullptr) {
            notes->push_back(name.path + " is not read: it is " + parsed.whats_unread);
        }
        if (parsed.is_archive) content.archives.push_back(path);
        if (parsed.image.empty()) continue;
        if (parsed.part) {
            if (!split[parsed.image].emplace(*parsed.part, path).second) {
                throw std::runtime_error(name.path +
                                         ": another file is the same part of the image");
            }
            continue;
        }
        AddFile(folder, parsed.image, name, {path}, &content, notes);
    }
    for (const auto& [image, parts] : split) {
        std::vector<std::string> paths;
        for (const auto& [number, path] : parts) {
            const int expected = parts.begin()->first + static_cast<int>(paths.size());
            if (parts.begin()->first > 1 || number != expected) {
                throw std::runtime_error(
                        folder.name_of(path).path +
                        ": a part of a split image, of which an earlier part is missing");
            }
            paths.push_back(path);
        }
        AddFile(folder, image, folder.name_of(paths[0]), paths, &content, notes);
    }
    return content;
}

}  // namespace sandbox
