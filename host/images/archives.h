// An archive, zip or tar, as the directories and files in it. Its names come from strangers, as
// those of an image do.

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
    // Returns the bytes of a regular file, to be read at any place. The archive must live as long.
    virtual std::unique_ptr<Source> Content(uint64_t file) const = 0;
};

// Returns the archive in the source, or null if it is none. Both the source and the spool must live
// as long. Throws Damage if it is an archive that cannot be used, or of a kind that is not read.
std::unique_ptr<Archive> OpenArchive(const Source& source, Spool* spool);

// The tree that an archive's members make, whatever its format.
class MemberTree {
  public:
    MemberTree();

    // Adds a member at the path `name`, and the directories on the way where they are missing.
    // Returns its node. Throws Damage if the name leads up or cannot be one, if there is one of the
    // name already, or if the tree meets a limit.
    uint64_t Add(std::string_view name, const Node& node, std::string_view target = "");

    // Adds another name of a file that is there already. Throws Damage as above, or if it is not.
    void AddLink(std::string_view name, std::string_view existing);

    static constexpr uint64_t kRoot = 0;

    // As FileSystem has them.
    const Node& Look(uint64_t node) const;
    std::vector<Name> List(uint64_t directory) const;
    const std::string& Target(uint64_t link) const;

    // Returns the node, which must be a regular file. Throws Damage.
    const Node& File(uint64_t node) const;

    // The name that a node was added by, for messages.
    const std::string& NameOf(uint64_t node) const;

  private:
    struct Member {
        Node node;
        std::string name;
        std::string target;
        std::map<std::string, uint64_t, std::less<>> names;  // of a directory
    };

    // Where a member belongs: its directory, made where it is missing, and its name there.
    struct Place {
        uint64_t directory;
        std::string_view name;  // empty: the root itself
    };

    Place PlaceOf(std::string_view name);
    std::optional<uint64_t> Find(std::string_view name) const;
    uint64_t Make(std::string_view name, const Node& node, std::string_view target);
    const Member& MemberAt(uint64_t node) const;

    std::vector<Member> members_;
    size_t name_bytes_ = 0;
};

}  // namespace images
