// Archives, payloads and sparse images, made in memory as others make them.

#pragma once

#include <archive.h>
#include <stdint.h>
#include <sys/stat.h>

#include <string>
#include <utility>
#include <vector>

#include "payload.pb.h"

// Returns what cannot be packed smaller, always the same.
std::string Noise(size_t size);

struct Member {
    std::string name;
    mode_t mode;
    std::string content;  // or where a link leads
};

inline constexpr mode_t kFile = S_IFREG | 0640, kLink = S_IFLNK | 0777, kDirectory = S_IFDIR | 0750;

// Writes an archive with libarchive's own writer.
std::string Pack(int (*format)(archive*), int (*filter)(archive*), const char* options,
                 const std::vector<Member>& members);
std::string Zip(const std::vector<Member>& members, const char* options = nullptr);
std::string Tar(const std::vector<Member>& members);

// Packs one file.
std::string Packed(int (*filter)(archive*), const std::string& content);

inline constexpr size_t kBlock = 4096;

// An update's payload.
class PayloadMaker {
  public:
    // Adds a partition of one operation a piece: its type, and its content.
    void Add(const std::string& name, const std::vector<std::pair<uint32_t, std::string>>& pieces);

    std::string Write() const;

    images::payload::Manifest manifest;
    std::string data;
};

// Returns the part of an image from `first` on, as a sparse image of all of it.
std::string SparsePart(const std::string& image, uint32_t first, uint32_t blocks);
