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
    mode_t mode;          // kFile, kLink, kDirectory or the like; 0 makes a hard link
    std::string content;  // or the target of a link
};

inline constexpr mode_t kFile = S_IFREG | 0640, kLink = S_IFLNK | 0777, kDirectory = S_IFDIR | 0750;

// Return an archive, made with libarchive's own writer; a member that this refuses, or an archive
// of more than 16 MiB, fails the test. `filter` and `options`, as of archive_write_set_options(3),
// may be null; the passphrase of encrypted archives is "secret".
std::string Pack(int (*format)(archive*), int (*filter)(archive*), const char* options,
                 const std::vector<Member>& members);
std::string Zip(const std::vector<Member>& members, const char* options = nullptr);
std::string Tar(const std::vector<Member>& members);

// Returns the content compressed by the filter, without an archive around it; otherwise as Pack().
std::string Packed(int (*filter)(archive*), const std::string& content);

inline constexpr size_t kBlock = 4096;  // bytes

// An update's payload.
class PayloadMaker {
  public:
    // Adds a partition with one operation for each piece: the number of the operation's type, and
    // the content, which must be whole blocks. Types 1 and 8 compress the content, with bzip2 and
    // xz; types 6 and 7 have no data, and their content must be zeros; all others store it.
    void Add(const std::string& name, const std::vector<std::pair<uint32_t, std::string>>& pieces);

    // Returns the payload: header, manifest, a signature of five bytes, and the data.
    std::string Write() const;

    images::payload::Manifest manifest;
    std::string data;
};

// Returns a sparse image of the size of `image`, which must be whole blocks, with the content of
// only the `blocks` blocks from number `first` on, which must lie in it.
std::string SparsePart(const std::string& image, uint32_t first, uint32_t blocks);
