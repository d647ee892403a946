// Any bytes as an EROFS image, from its superblock on: all of a small tree is looked at and read,
// and the same pieces read in another order are the same bytes.

#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <iostream>
#include <string>

#include "file_system.h"

namespace {

using images::Damage;
using images::FileSystem;
using images::Node;

constexpr size_t kSuperblock = 1024;
constexpr size_t kCompatible = 8;  // features; the first bit says that there is a checksum
constexpr int kDepth = 4;
constexpr int kNodes = 64;
constexpr size_t kFile = 1 << 16;

void Expect(bool alike, const char* what) {
    if (alike) return;
    std::cerr << "differs: " << what << "\n";
    abort();
}

class Image : public images::Source {
  public:
    Image(const uint8_t* data, size_t size) : bytes_(kSuperblock, '\0') {
        bytes_.append(reinterpret_cast<const char*>(data), size);
        if (size > kCompatible) bytes_[kSuperblock + kCompatible] &= ~1;
    }

    uint64_t size() const override { return bytes_.size(); }
    void Read(uint64_t offset, void* to, size_t size) const override {
        Expect(size <= bytes_.size() && offset <= bytes_.size() - size, "a piece of the image");
        memcpy(to, bytes_.data() + offset, size);
    }

  private:
    std::string bytes_;
};

// What a node holds is refused, or is the same however it is read.
void ReadNode(const FileSystem& files, const Node& node) try {
    if (S_ISLNK(node.mode)) {
        const std::string target = files.Target(node.id);
        Expect(!target.empty() && target.size() < 4096 && target.find('\0') == target.npos,
               "a link's target");
    }
    if (!S_ISREG(node.mode)) return;
    const std::string whole = files.Read(node.id, 0, kFile);
    Expect(whole.size() == std::min<uint64_t>(node.size, kFile), "the size");
    Expect(files.Read(node.id, node.size, 1).empty(), "the end");
    const size_t step = whole.size() / 5 + 1;
    for (size_t end = whole.size(); end != 0;) {
        const size_t begin = end - std::min(end, step);
        Expect(files.Read(node.id, begin, end - begin) == whole.substr(begin, end - begin),
               "a piece of a file");
        end = begin;
    }
    if (node.size > kFile) files.Read(node.id, node.size - 100, 200);
} catch (const Damage& damage) {
    Expect(strncmp(damage.what(), "inode ", 6) == 0 ||
                   strncmp(damage.what(), "metabox inode ", 14) == 0,
           "where damage was met");
}

void Walk(const FileSystem& files, uint64_t id, int depth, int* nodes) try {
    if (depth > kDepth || ++*nodes > kNodes) return;
    const Node node = files.Look(id);
    ReadNode(files, node);
    if (!S_ISDIR(node.mode)) return;
    for (const auto& name : files.List(id)) {
        Expect(name.name != "." && name.name != ".." && !name.name.empty() &&
                       name.name.find('/') == std::string::npos,
               "a name");
        Walk(files, name.node, depth + 1, nodes);
    }
} catch (const Damage&) {
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) try {
    const Image image(data, size);
    const auto files = images::OpenErofs(image);
    if (files == nullptr) return -1;
    int nodes = 0;
    Walk(*files, files->root(), 0, &nodes);
    return 0;
} catch (const Damage&) {
    return 0;
}
