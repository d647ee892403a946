// The limits on all that untrusted input can make the tool use, in one place. Ordinary devices
// never exceed them. What exceeds one is refused with an error that names the limit, except that a
// cache drops what it holds, and a report leaves out the rest.

#pragma once

#include <stddef.h>
#include <stdint.h>

namespace limits {

// Files of the device, sizes in bytes.
inline constexpr uint64_t kPropertyFile = uint64_t{16} << 20;    // one that the library reads whole
inline constexpr uint64_t kPartitionFile = uint64_t{256} << 20;  // of partitions, or a logo
inline constexpr uint64_t kPrivateBytes = uint64_t{256} << 20;   // copied on write by a boot
inline constexpr size_t kDeviceFiles = 1'000'000;                // where a command looks at all
inline constexpr size_t kDevicePaths = size_t{64} << 20;         // bytes of all their paths

// Images.
inline constexpr size_t kImageKept = 64 << 20;  // names and nodes, cached by each process, in bytes
inline constexpr uint64_t kImageBytes = uint64_t{64} << 30;      // read from one image, in bytes
inline constexpr uint64_t kImageFile = uint64_t{1} << 30;        // one file of an image, in bytes
inline constexpr uint64_t kImageDirectory = uint64_t{32} << 20;  // a directory's data, in bytes
inline constexpr size_t kImageNames = 200'000;                   // in one directory
inline constexpr size_t kSparseChunks = 1 << 20;                 // of a sparse image
inline constexpr uint32_t kSuperMetadata = 16 << 20;             // of a super image, in bytes
inline constexpr size_t kSuperPartitions = 1024;                 // of a super image or payload
inline constexpr size_t kSuperExtents = 65536;    // of all partitions of a super image together
inline constexpr uint64_t kExt4Groups = 1 << 18;  // of blocks; as many take 16 MiB of descriptors

// The process that reads an image.
inline constexpr uint64_t kReaderMemory = uint64_t{256} << 20;  // beyond what it starts with, bytes
inline constexpr uint64_t kReadersMemory = uint64_t{448} << 20;   // of all that run, in bytes
inline constexpr size_t kReaders = 32;                            // of one device
inline constexpr uint64_t kReaderCache = uint64_t{16} << 20;      // data read already, in bytes
inline constexpr uint64_t kReaderCachedFile = uint64_t{1} << 20;  // a file in that cache, in bytes
inline constexpr int kReaderDescriptors = 1024;  // one for each process that sends requests
inline constexpr int kRequestSeconds = 10;       // of processor time for one request
inline constexpr int kReplySeconds = 30;         // until a reply must have arrived
inline constexpr int kUnpackSeconds = 1800;      // the same where it takes unpacking
inline constexpr int kReaderSeconds = 3600;      // of processor time in all

// EROFS. Its extents are decoded as a whole, so that these bound what one file takes in memory.
inline constexpr uint64_t kErofsClusters = 1 << 18;    // of one file: kImageFile in blocks of 4 KiB
inline constexpr uint64_t kErofsCompressed = 1 << 20;  // one extent as it is stored, in bytes
inline constexpr uint64_t kErofsDecoded = 12 << 20;    // one extent decoded, in bytes
inline constexpr size_t kErofsOpen = 2;  // files whose extents are cached for the next call

// Archives and compressed files.
inline constexpr size_t kArchiveMembers = 300'000;
inline constexpr size_t kArchiveNameBytes = size_t{64} << 20;  // of all members together
inline constexpr size_t kFilesInside = 1024;  // of an archive, opened to see what they hold
inline constexpr uint64_t kArchiveMember = uint64_t{16} << 30;    // one member, in bytes
inline constexpr uint64_t kSpool = uint64_t{8} << 30;             // unpacked by a reader, in bytes
inline constexpr uint64_t kPayloadManifest = uint64_t{16} << 20;  // in bytes

// How much unpacking may produce. Firmware is packed to a half or a quarter of its size. Images
// that are nearly empty are packed to a thousandth, but are either few or lie among others. So
// output that is larger than the first limit and kUnpackedTimes its packed input together was made
// to exhaust the machine.
inline constexpr uint64_t kUnpacked = uint64_t{1} << 30;        // by a reader, in bytes
inline constexpr uint64_t kDeviceUnpacked = uint64_t{4} << 30;  // by all readers of a device
inline constexpr uint64_t kUnpackedTimes = 64;
// The slowest compression, bzip2, takes a fifth of these.
inline constexpr int kUnpackTime = 10;    // of processor time by a reader, in seconds
inline constexpr int kUnpackTimeMiB = 1;  // more for each MiB of packed input

// What is read from a phone.
inline constexpr size_t kPhone = size_t{192} << 20;  // a bug report, unpacked too, in bytes
inline constexpr size_t kPhoneProperties = size_t{16} << 20;  // the properties in it, in bytes
inline constexpr size_t kPhoneFiles = 100'000;                // of a directory, a property each
inline constexpr size_t kPhoneValue = size_t{64} << 10;       // such a file, in bytes

// Other texts that are read. A device's property files have their limits above.
inline constexpr size_t kProperties = 100'000;     // of one phone, or of --props
inline constexpr size_t kText = size_t{16} << 20;  // a file of expectations, in bytes
inline constexpr size_t kYamlNodes = 1'000'000;    // of expectations, each as often as it is read
inline constexpr size_t kErrors = 100;             // reported for one file
inline constexpr size_t kPatterns = 2'048;         // regular expressions in one file
inline constexpr int64_t kPattern = int64_t{128} << 10;  // memory to match one, in bytes
inline constexpr uint64_t kMatching = 10'000'000'000;    // bytes of values times size of patterns
inline constexpr size_t kLine = size_t{64} << 20;        // a line of --merge, in bytes
inline constexpr size_t kJsonDepth = 64;                 // of a line's arrays and objects
inline constexpr size_t kJsonValues = 4'000'000;         // in a line

// Variants.
inline constexpr size_t kVariants = 100'000;           // of one choice
inline constexpr size_t kStopped = 16;                 // that reached a limit or hung
inline constexpr size_t kSummary = size_t{256} << 20;  // what differs between them, in bytes
inline constexpr size_t kChecked = size_t{256} << 20;  // what a check reports, in bytes

// lint.
inline constexpr size_t kFindings = 100'000;          // that are reported
inline constexpr size_t kLinted = size_t{256} << 20;  // of property files, in bytes

// A boot, and other calls of the library inside the sandbox.
inline constexpr size_t kOpens = 40'000;                     // files opened
inline constexpr uint64_t kOpenedBytes = uint64_t{1} << 30;  // their sizes added up
inline constexpr size_t kEvents = size_t{64} << 20;          // what it sends to the tool, in bytes
inline constexpr uint64_t kMemory = uint64_t{448} << 20;     // its data, in bytes

// The tool's own processes. Together with a boot and the image readers they use less than 1.5 GB.
inline constexpr uint64_t kToolMemory = uint64_t{448} << 20;     // the data of each, in bytes
inline constexpr uint64_t kWorkersMemory = uint64_t{512} << 20;  // of those that boot variants
inline constexpr uint64_t kWorkerMemory = uint64_t{128} << 20;   // of each with its boot, at least
static_assert(kReadersMemory + kMemory + kToolMemory < 1'500'000'000);

}  // namespace limits
