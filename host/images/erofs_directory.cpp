#include "erofs_directory.h"

#include <algorithm>
#include <optional>

#include "../budget.h"
#include "erofs_inode.h"
#include "little_endian.h"

namespace images::erofs {

namespace {

constexpr size_t kEntrySize = 12;
constexpr size_t kNamePlace = 8;

void Require(bool condition, uint64_t directory, const char* what) {
    if (!condition) Fail(directory, std::string("directory, ") + what);
}

// Adds the entries of one block, "." and ".." too.
void ParseBlock(uint64_t directory, std::string_view block, std::vector<Name>* names) {
    Require(block.size() >= kEntrySize, directory, "too short for an entry");
    const size_t first = Little16(block, kNamePlace);
    Require(first >= kEntrySize && first % kEntrySize == 0 && first < block.size(), directory,
            "wrong number of entries");
    const size_t count = first / kEntrySize;
    Require(count <= limits::kImageNames + 2 - names->size(), directory, "too many names");
    for (size_t i = 0, begin = first; i < count; ++i) {
        size_t end = block.size();
        if (i + 1 < count) {
            end = Little16(block, (i + 1) * kEntrySize + kNamePlace);
            Require(end > begin && end < block.size(), directory, "names out of order");
        } else {
            end = std::min(end, block.find('\0', begin));
        }
        names->push_back(
                {std::string(block.substr(begin, end - begin)), Little64(block, i * kEntrySize)});
        begin = end;
    }
}

// Removes the entry "." or ".." and returns its node. A second one stays and is found as damage.
std::optional<uint64_t> TakeOut(std::string_view entry, std::vector<Name>* names) {
    const auto found = std::find_if(names->begin(), names->end(),
                                    [entry](const Name& name) { return name.name == entry; });
    if (found == names->end()) return std::nullopt;
    const uint64_t node = found->node;
    names->erase(found);
    return node;
}

}  // namespace

std::vector<Name> ParseDirectory(const Head& head, uint64_t directory, std::string_view data) {
    std::vector<Name> names;
    for (size_t place = 0; place < data.size(); place += head.block_size()) {
        ParseBlock(directory, data.substr(place, head.block_size()), &names);
    }
    const auto self = TakeOut(".", &names);
    Require(!self || *self == directory, directory, "'.' is something else");
    TakeOut("..", &names);
    CheckNames(directory, names);
    return names;
}

}  // namespace images::erofs
