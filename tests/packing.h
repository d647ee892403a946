// Archives, payloads and sparse images, built in memory.

#pragma once

#include <archive.h>
#include <stdint.h>
#include <sys/stat.h>

#include <string>
#include <utility>
#include <vector>

#include "payload.pb.h"

// Returns bytes that cannot be compressed, always the same ones.
std::string Noise(size_t size);

struct Member {
    std::string name;
    mode_t mode;
    std::string content;  // or the target of a link
};

inline constexpr mode_t kFile = S_IFREG | 0640, kLink = S_IFLNK | 0777, kDirectory = S_IFDIR | 0750;

// Writes an archive with libarchive's own writer.
std::string Pack(int (*format)(archive*), int (*filter)(archive*), const char* options,
                 const std::vector<Member>& members);
std::string Zip(const std::vector<Member>& members, const char* options = nullptr);
std::string Tar(const std::vector<Member>& members);

// Compresses one file.
std::string Packed(int (*filter)(archive*), const std::string& content);

inline constexpr size_t kBlock = 4096;

// An update's payload.
class PayloadMaker {
  public:
    // Adds a partition with one operation for each piece, which is its type and its content.
    void Add(const std::string& name, const std::vector<std::pair<uint32_t, std::string>>& pieces);

    std::string Write() const;

    images::payload::Manifest manifest;
    std::string data;
};

// Returns a sparse image of the size of `image` with only the blocks from `first` on.
std::string SparsePart(const std::string& image, uint32_t first, uint32_t blocks);
