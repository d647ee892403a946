// A budget for all that strangers can ask for, in one place. Ordinary devices never meet these
// limits; whatever does is an error that names the limit and the file that met it.

#pragma once

#include <stddef.h>
#include <stdint.h>

namespace limits {

// Images.
inline constexpr uint64_t kImageBytes = uint64_t{64} << 30;      // read of one image in all
inline constexpr uint64_t kImageFile = uint64_t{1} << 30;        // one file of an image, in bytes
inline constexpr uint64_t kImageDirectory = uint64_t{32} << 20;  // a directory's data, in bytes
inline constexpr size_t kImageNames = 200'000;                   // in one directory
inline constexpr size_t kSparseChunks = 1 << 20;                 // of a sparse image
inline constexpr uint32_t kSuperMetadata = 16 << 20;             // of a super image, in bytes
inline constexpr size_t kSuperPartitions = 1024;                 // of a super image
inline constexpr size_t kSuperExtents = 65536;    // of all partitions of a super image together
inline constexpr uint64_t kExt4Groups = 1 << 18;  // of blocks; as many take 16 MiB of descriptors

// The process that reads an image.
inline constexpr uint64_t kReaderMemory = uint64_t{192} << 20;  // beyond what it starts with, bytes
inline constexpr uint64_t kReaderCache = uint64_t{16} << 20;  // of what was read already, in bytes
inline constexpr uint64_t kReaderCachedFile = uint64_t{1} << 20;  // a file kept there, in bytes
inline constexpr int kReaderDescriptors = 1024;  // so many processes can ask at the same time
inline constexpr int kRequestSeconds = 10;       // of processor time for one answer
inline constexpr int kReplySeconds = 30;         // until an answer must have come
inline constexpr int kReaderSeconds = 3600;      // of processor time in all

// EROFS. Its extents are decoded as a whole, so that these bound what one file takes in memory.
inline constexpr uint64_t kErofsClusters = 1 << 18;    // of one file: kImageFile in blocks of 4 KiB
inline constexpr uint64_t kErofsCompressed = 1 << 20;  // one extent as it is stored, in bytes
inline constexpr uint64_t kErofsDecoded = 12 << 20;    // one extent decoded, in bytes
inline constexpr size_t kErofsOpen = 2;  // files whose extents are remembered for the next call

// Archives and what is packed.
inline constexpr size_t kArchiveMembers = 1'000'000;
inline constexpr size_t kArchiveNameBytes = size_t{64} << 20;     // of all members together
inline constexpr uint64_t kArchiveMember = uint64_t{16} << 30;    // one member, in bytes
inline constexpr uint64_t kSpool = uint64_t{8} << 30;             // unpacked by a reader, in bytes
inline constexpr uint64_t kPayloadManifest = uint64_t{16} << 20;  // in bytes

// What is read of a phone.
inline constexpr size_t kPhone = size_t{512} << 20;  // a bug report, unpacked too, in bytes
inline constexpr size_t kPhoneProperties = size_t{16} << 20;  // the properties in it, in bytes
inline constexpr size_t kPhoneFiles = 100'000;                // of a directory, a property each
inline constexpr size_t kPhoneValue = size_t{64} << 10;       // such a file, in bytes

}  // namespace limits
