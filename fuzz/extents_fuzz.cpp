// Any bytes as a sparse image or, if the first is odd, as the metadata of a super partition, with
// corrected checksums, so that the parser gets past them.

#include <openssl/sha.h>
#include <string.h>

#include <algorithm>

#include "image.h"
#include "sources.h"
#include "super.h"

namespace {

constexpr size_t kMetadata = 4096;

void PutDigest(std::string* bytes, size_t place, size_t begin, size_t size) {
    memset(&(*bytes)[place], 0, SHA256_DIGEST_LENGTH * (place >= begin && place < begin + size));
    unsigned char digest[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<unsigned char*>(&(*bytes)[begin]), size, digest);
    memcpy(&(*bytes)[place], digest, sizeof(digest));
}

// Returns a super partition with the metadata in its only slot, and in the backup copy.
std::string SuperWith(std::string metadata) {
    metadata.resize(kMetadata);
    uint32_t header_size, tables_size;
    memcpy(&header_size, &metadata[8], sizeof(header_size));
    memcpy(&tables_size, &metadata[44], sizeof(tables_size));
    if (header_size <= kMetadata && tables_size <= kMetadata - header_size && header_size >= 80) {
        PutDigest(&metadata, 48, header_size, tables_size);
        PutDigest(&metadata, 12, 0, header_size);
    }
    const uint32_t geometry[] = {0x616c4467, 52, 0, 0, 0, 0, 0, 0, 0, 0, kMetadata, 1, 4096};
    std::string super(12288, '\0');
    memcpy(&super[4096], geometry, sizeof(geometry));
    PutDigest(&super, 4096 + 8, 4096, sizeof(geometry));
    return super + metadata + metadata;
}

void ReadSome(const images::Source& source) {
    constexpr size_t kMost = 1 << 16;
    const size_t size = std::min<uint64_t>(source.size(), kMost);
    fuzz::ReadInPieces(source, 0, size);
    fuzz::ReadInPieces(source, source.size() - size, size);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) try {
    if (size == 0) return -1;
    const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    const fuzz::Bytes source(data[0] % 2 == 0 ? bytes : SuperWith(bytes));
    if (data[0] % 2 == 0) {
        const auto sparse = images::OpenSparse(source);
        if (sparse == nullptr) return -1;
        ReadSome(*sparse);
        return 0;
    }
    const auto super = images::Super::Open(source, 'a');
    for (size_t i = 0; i < super->volumes().size(); ++i) {
        try {
            const auto content = super->OpenVolume(i);
            fuzz::ExpectOfImage(content->size() == super->volumes()[i].size, "a partition's size");
            ReadSome(*content);
        } catch (const images::Damage&) {
        }
    }
    return 0;
} catch (const images::Damage&) {
    return 0;
}
