#include "archives.h"

#include <sys/stat.h>

#include <algorithm>
#include <string_view>

#include "../budget.h"
#include "tar_archive.h"
#include "zip_archive.h"

namespace images {

namespace {

constexpr mode_t kDirectoryMode = S_IFDIR | 0755;

// Archive formats that are recognised but not supported.
constexpr struct {
    size_t offset;
    std::string_view magic;
    const char* what;
} kOthers[] = {
        {0, std::string_view("7z\xbc\xaf\x27\x1c", 6), "a 7z archive, which 7z unpacks"},
        {0, "Rar!\x1a\x07", "a RAR archive, which unrar unpacks"},
        {0, "PK\x07\x08", "a part of a split zip archive, which zip -s 0 puts together"},
        {0, "070701", "a cpio archive, which cpio unpacks"},
};

// Returns the components of a path without empty ones and ".".
std::vector<std::string_view> Parts(std::string_view name) {
    std::vector<std::string_view> parts;
    while (!name.empty()) {
        const size_t slash = std::min(name.find('/'), name.size());
        const std::string_view part = name.substr(0, slash);
        name.remove_prefix(std::min(slash + 1, name.size()));
        if (!part.empty() && part != ".") parts.push_back(part);
    }
    return parts;
}

[[noreturn]] void Refuse(std::string_view name, const std::string& why) {
    throw Damage("member '" + std::string(name) + "': " + why);
}

}  // namespace

MemberTree::MemberTree() {
    Node root;
    root.mode = kDirectoryMode;
    members_.push_back({root, "", "", {}});
}

// Counts one more name of a member, and the bytes that it takes.
void MemberTree::Count(size_t name_bytes) {
    name_bytes_ += name_bytes;
    if (++names_ > limits::kArchiveMembers || name_bytes_ > limits::kArchiveNameBytes) {
        throw Damage("an archive of more than " + std::to_string(limits::kArchiveMembers) +
                     " members, or with too many bytes of names");
    }
}

uint64_t MemberTree::Make(std::string_view name, const Node& node, std::string_view target) {
    Count(name.size() + target.size());
    members_.push_back({node, std::string(name), std::string(target), {}});
    members_.back().node.id = members_.size() - 1;
    return members_.size() - 1;
}

MemberTree::Position MemberTree::PositionOf(std::string_view name) {
    constexpr size_t kMostParts = 256;
    constexpr size_t kLongestName = 255;
    if (!name.empty() && name[0] == '/') Refuse(name, "a name that leads out of the archive");
    if (name.find('\0') != std::string_view::npos) Refuse(name, "a name with a zero byte");
    const std::vector<std::string_view> parts = Parts(name);
    if (parts.size() > kMostParts) Refuse(name, "too deep in directories");
    Position position = {kRoot, ""};
    for (const std::string_view part : parts) {
        if (part == "..") Refuse(name, "a name that leads out of the archive");
        if (part.size() > kLongestName) Refuse(name, "a name of more than 255 bytes");
        if (!position.name.empty()) {
            auto known = members_[position.directory].names.find(position.name);
            if (known == members_[position.directory].names.end()) {
                Node directory;
                directory.mode = kDirectoryMode;
                const size_t end = position.name.data() + position.name.size() - name.data();
                const uint64_t made = Make(name.substr(0, end), directory, "");
                members_[position.directory].names.emplace(position.name, made);
                position.directory = made;
            } else {
                position.directory = known->second;
            }
        }
        if (!S_ISDIR(members_[position.directory].node.mode)) Refuse(name, "it lies below a file");
        position.name = part;
    }
    return position;
}

uint64_t MemberTree::Add(std::string_view name, const Node& node, std::string_view target) {
    const Position position = PositionOf(name);
    const bool is_directory = S_ISDIR(node.mode);
    if (position.name.empty()) {
        if (!is_directory) Refuse(name, "its name is no file's");
        return kRoot;
    }
    auto known = members_[position.directory].names.find(position.name);
    if (known == members_[position.directory].names.end()) {
        const uint64_t made = Make(name, node, target);
        members_[position.directory].names.emplace(position.name, made);
        return made;
    }
    // An archive may list a directory after its content.
    Node& there = members_[known->second].node;
    if (!is_directory || !S_ISDIR(there.mode)) Refuse(name, "there are two of this name");
    there = node;
    there.id = known->second;
    return known->second;
}

void MemberTree::AddLink(std::string_view name, std::string_view existing) {
    const std::optional<uint64_t> node = Find(existing);
    if (!node || !S_ISREG(members_[*node].node.mode)) {
        Refuse(name, "a hard link to '" + std::string(existing) +
                             "', but no file before it has this name");
    }
    const Position position = PositionOf(name);
    if (position.name.empty()) Refuse(name, "its name is no file's");
    Count(name.size());
    if (!members_[position.directory].names.emplace(position.name, *node).second) {
        Refuse(name, "there are two of this name");
    }
}

std::optional<uint64_t> MemberTree::Find(std::string_view name) const {
    uint64_t at = kRoot;
    for (const std::string_view part : Parts(name)) {
        auto known = members_[at].names.find(part);
        if (known == members_[at].names.end()) return std::nullopt;
        at = known->second;
    }
    return at;
}

const MemberTree::Member& MemberTree::MemberAt(uint64_t node) const {
    if (node >= members_.size()) throw Damage("no member has the number " + std::to_string(node));
    return members_[node];
}

const Node& MemberTree::Look(uint64_t node) const {
    return MemberAt(node).node;
}

std::vector<Name> MemberTree::List(uint64_t directory) const {
    const Member& member = MemberAt(directory);
    if (!S_ISDIR(member.node.mode)) Refuse(member.name, "not a directory");
    std::vector<Name> names;
    names.reserve(member.names.size());
    for (const auto& [name, node] : member.names) names.push_back({name, node});
    return names;
}

const std::string& MemberTree::Target(uint64_t link) const {
    constexpr size_t kLongestTarget = 4095;
    const Member& member = MemberAt(link);
    const bool usable = S_ISLNK(member.node.mode) && !member.target.empty() &&
                        member.target.size() <= kLongestTarget &&
                        member.target.find('\0') == std::string::npos;
    if (!usable) Refuse(member.name, "not a link with a target");
    return member.target;
}

const Node& MemberTree::File(uint64_t node) const {
    const Member& member = MemberAt(node);
    if (!S_ISREG(member.node.mode)) Refuse(member.name, "not a regular file");
    return member.node;
}

const std::string& MemberTree::NameOf(uint64_t node) const {
    return MemberAt(node).name;
}

std::unique_ptr<Archive> OpenArchive(const Source& source, Spool* spool) {
    std::string head(16, '\0');
    head.resize(source.ReadUpTo(0, head.data(), head.size()));
    for (const auto& [offset, magic, what] : kOthers) {
        if (head.compare(offset, magic.size(), magic) == 0) throw Damage(what);
    }
    if (std::unique_ptr<Archive> zip = OpenZip(source, spool)) return zip;
    return OpenTar(source, spool);
}

}  // namespace images
