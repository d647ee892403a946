// Any bytes as an update's payload: two bytes for the size of the manifest, the manifest, and the
// data.

#include <endian.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>

#include "image.h"
#include "payload.h"

namespace {

constexpr uint64_t kMostBytes = 1 << 16;  // of a partition; larger ones take too long

std::string PayloadOf(const uint8_t* data, size_t size) {
    const size_t manifest = std::min<size_t>(data[0] << 8 | data[1], size - 2);
    std::string bytes = "CrAU";
    const uint64_t numbers[] = {htobe64(2), htobe64(manifest)};
    bytes.append(reinterpret_cast<const char*>(numbers), sizeof(numbers));
    bytes.append(sizeof(uint32_t), '\0');  // no signature
    return bytes.append(reinterpret_cast<const char*>(data) + 2, size - 2);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return -1;
    static const int file = memfd_create("spool", MFD_CLOEXEC);
    if (ftruncate(file, 0) != 0) return -1;
    images::Spool spool(file);
    const fuzz::Bytes source(PayloadOf(data, size));
    std::unique_ptr<images::Payload> payload;
    try {
        payload = images::OpenPayload(source, &spool);
    } catch (const images::Damage&) {
        return 0;
    }
    fuzz::ExpectOfImage(payload != nullptr, "the magic");
    const auto partitions = payload->partitions();
    for (size_t i = 0; i < partitions.size(); ++i) {
        if (partitions[i].size > kMostBytes) continue;
        try {
            const auto content = payload->Open(i);
            fuzz::ExpectOfImage(content->size() == partitions[i].size, "a partition's size");
            fuzz::ReadInPieces(*content, 0, content->size());
        } catch (const images::Damage&) {
        }
    }
    return 0;
}
