// An archive, zip or tar, as a file system of its members. Its content is untrusted, as that of an
// image is.

#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "file_system.h"
#include "spool.h"

namespace images {

class Archive : public FileSystem {
  public:
    // Returns the bytes of a regular file, for random access. The archive must outlive them. Throws
    // Damage for any other node, and if the file cannot be opened.
    virtual std::unique_ptr<Source> Content(uint64_t file) const = 0;
};

// Returns the archive in the source, or null if there is none. Both arguments must outlive it.
// Throws Damage if the archive is damaged, exceeds a limit or is of an unsupported format.
std::unique_ptr<Archive> OpenArchive(const Source& source, Spool* spool);

// The tree of an archive's members, whatever its format.
class MemberTree {
  public:
    MemberTree();

    // Adds a member at the relative path `name`, and its missing parent directories. Returns its
    // node's number; `node.id` is ignored. A directory that is there already gets the new mode and
    // times, except the root. Throws Damage if the name is illegal, leads out of the archive or
    // belongs to another member, or if the tree exceeds a limit. `target` is a link's.
    uint64_t Add(std::string_view name, const Node& node, std::string_view target = "");

    // Adds another name of a file. Throws Damage as Add does, and if `existing` names no regular
    // file that was added before.
    void AddLink(std::string_view name, std::string_view existing);

    static constexpr uint64_t kRoot = 0;

    // As in FileSystem. References are valid until the next Add.
    const Node& Look(uint64_t node) const;
    std::vector<Name> List(uint64_t directory) const;
    const std::string& Target(uint64_t link) const;

    // As Look, but throws Damage unless the node is a regular file.
    const Node& File(uint64_t node) const;

    // Returns the name with which a node was added, for messages. Throws Damage as Look does.
    const std::string& NameOf(uint64_t node) const;

  private:
    struct Member {
        Node node;
        std::string name;
        std::string target;
        std::map<std::string, uint64_t, std::less<>> names;  // of a directory
    };

    // Where a member belongs: its directory, created if it is missing, and its name there.
    struct Position {
        uint64_t directory;
        std::string_view name;  // empty: the root itself
    };

    void Count(size_t name_bytes);
    Position PositionOf(std::string_view name);
    std::optional<uint64_t> Find(std::string_view name) const;
    uint64_t Make(std::string_view name, const Node& node, std::string_view target);
    const Member& MemberAt(uint64_t node) const;

    std::vector<Member> members_;
    size_t names_ = 0;  // of members, hard links too
    size_t name_bytes_ = 0;
};

}  // namespace images
