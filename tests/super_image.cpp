#include "super_image.h"

#include <stdint.h>

#include <initializer_list>

#include <openssl/sha.h>

namespace {

template <typename Number>
void Put(std::string* bytes, std::initializer_list<Number> numbers) {
    for (const Number number : numbers) {
        bytes->append(reinterpret_cast<const char*>(&number), sizeof(number));
    }
}

void PutDigest(std::string* bytes, size_t place, const std::string& of) {
    unsigned char digest[32];
    SHA256(reinterpret_cast<const unsigned char*>(of.data()), of.size(), digest);
    bytes->replace(place, 32, reinterpret_cast<const char*>(digest), 32);
}

}  // namespace

std::string SuperImage(const std::vector<std::pair<std::string, std::string>>& partitions) {
    constexpr uint32_t kMetadataSize = 65536;
    std::string content, names, extents;
    const uint64_t first_sector = 2048;
    for (uint32_t i = 0; i < partitions.size(); ++i) {
        std::string name = partitions[i].first, image = partitions[i].second;
        name.resize(36);
        names += name;
        Put<uint32_t>(&names, {1, 2 * i, 2, 0});
        const size_t half = image.size() / 1024 * 512;
        const uint64_t at = first_sector + content.size() / 512;
        content += image.substr(half) + image.substr(0, half);
        const uint64_t rest = (image.size() - half) / 512;
        for (const auto& [sectors, sector] :
             {std::pair<uint64_t, uint64_t>(half / 512, at + rest), {rest, at}}) {
            Put<uint64_t>(&extents, {sectors});
            Put<uint32_t>(&extents, {0});
            Put<uint64_t>(&extents, {sector});
            Put<uint32_t>(&extents, {0});
        }
    }
    const std::string tables = names + extents;
    std::string header;
    Put<uint32_t>(&header, {0x414c5030});
    Put<uint16_t>(&header, {10, 0});
    Put<uint32_t>(&header, {128});
    header.append(32, 0);
    Put<uint32_t>(&header, {static_cast<uint32_t>(tables.size())});
    header.append(32, 0);
    const uint32_t count = partitions.size(), end = tables.size();
    Put<uint32_t>(&header, {0, count, 52, static_cast<uint32_t>(names.size()), 2 * count, 24, end,
                            0, 48, end, 0, 64});
    PutDigest(&header, 48, tables);
    PutDigest(&header, 12, header);

    std::string geometry;
    Put<uint32_t>(&geometry, {0x616c4467, 52});
    geometry.append(32, 0);
    Put<uint32_t>(&geometry, {kMetadataSize, 2, 4096});
    PutDigest(&geometry, 8, geometry);

    std::string super(first_sector * 512, '\0');
    for (const size_t at : {4096, 8192}) super.replace(at, geometry.size(), geometry);
    for (size_t i = 0; i < 4; ++i) {
        super.replace(12288 + i * kMetadataSize, header.size() + tables.size(), header + tables);
    }
    return super + content;
}
