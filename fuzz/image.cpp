#include "image.h"

#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <iostream>

namespace fuzz {

namespace {

using images::Damage;
using images::FileSystem;
using images::Node;

constexpr int kDepth = 4;
constexpr int kNodes = 64;
constexpr size_t kFile = 1 << 16;

// The content of a node is refused, or is the same in whatever pieces it is read.
void ReadNode(const FileSystem& files, const Node& node) try {
    if (S_ISLNK(node.mode)) {
        const std::string target = files.Target(node.id);
        ExpectOfImage(
                !target.empty() && target.size() < 4096 && target.find('\0') == std::string::npos,
                "a link's target");
    }
    if (!S_ISREG(node.mode)) return;
    const std::string whole = files.Read(node.id, 0, kFile);
    ExpectOfImage(whole.size() == std::min<uint64_t>(node.size, kFile), "the size");
    ExpectOfImage(files.Read(node.id, node.size, 1).empty(), "the end");
    const size_t step = whole.size() / 5 + 1;
    for (size_t end = whole.size(); end != 0;) {
        const size_t begin = end - std::min(end, step);
        ExpectOfImage(files.Read(node.id, begin, end - begin) == whole.substr(begin, end - begin),
                      "a piece of a file");
        end = begin;
    }
    if (node.size > kFile) files.Read(node.id, node.size - 100, 200);
} catch (const Damage& damage) {
    const auto begins = [&damage](const char* text) {
        return strncmp(damage.what(), text, strlen(text)) == 0;
    };
    // For a member of a tar archive the message is only that its data are truncated.
    ExpectOfImage(begins("inode ") || begins("metabox inode ") || begins("member '") ||
                          begins("truncated"),
                  "where damage was met");
}

void Walk(const FileSystem& files, uint64_t id, int depth, int* nodes) try {
    if (depth > kDepth || ++*nodes > kNodes) return;
    const Node node = files.Look(id);
    ReadNode(files, node);
    if (!S_ISDIR(node.mode)) return;
    const auto names = files.List(id);
    images::CheckNames(id, names);
    for (const auto& name : names) Walk(files, name.node, depth + 1, nodes);
} catch (const Damage&) {
}

}  // namespace

void ExpectOfImage(bool holds, const char* what) {
    if (holds) return;
    std::cerr << "differs: " << what << "\n";
    abort();
}

void Bytes::Read(uint64_t offset, void* to, size_t size) const {
    if (offset > bytes_.size() || size > bytes_.size() - offset) throw Damage("truncated");
    memcpy(to, bytes_.data() + offset, size);
}

void WalkAll(const FileSystem& system) {
    int nodes = 0;
    Walk(system, system.root(), 0, &nodes);
}

void ReadInPieces(const images::Source& source, uint64_t offset, size_t size) {
    const std::string whole = images::ReadBytes(source, offset, size);
    const size_t step = size / 7 + 1;
    for (size_t at = 0; at < size; at += step) {
        const size_t part = std::min(step, size - at);
        ExpectOfImage(images::ReadBytes(source, offset + at, part) == whole.substr(at, part),
                      "a piece of the content");
    }
}

}  // namespace fuzz
