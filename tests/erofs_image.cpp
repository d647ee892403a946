#include "erofs_image.h"

#include <algorithm>
#include <stdexcept>

#include <lz4.h>
#include <lzma.h>
#include <zlib.h>
#include <zstd.h>

namespace erofs_image {

namespace {

constexpr uint64_t kPackedId = 8;
constexpr uint64_t kMetaboxId = 10;
constexpr uint64_t kIdSize = 32;

std::string Number(uint64_t number, int size) {
    std::string bytes;
    for (int i = 0; i < size; ++i) bytes += static_cast<char>(number >> 8 * i);
    return bytes;
}

void Put(std::string* image, uint64_t place, const std::string& bytes) {
    image->resize(std::max<uint64_t>(image->size(), place + bytes.size()));
    image->replace(place, bytes.size(), bytes);
}

uint64_t Up(uint64_t number, uint64_t unit) {
    return (number + unit - 1) / unit * unit;
}

std::string Directory(uint64_t file) {
    return P64(kRootId) + P16(36) + P16(2) + P64(kRootId) + P16(37) + P16(2) + P64(file) + P16(39) +
           P16(1) + "...file";
}

}  // namespace

std::string P16(uint64_t number) {
    return Number(number, 2);
}

std::string P32(uint64_t number) {
    return Number(number, 4);
}

std::string P64(uint64_t number) {
    return Number(number, 8);
}

std::string Text(size_t size) {
    std::string text;
    for (uint32_t i = 1; text.size() < size; ++i) {
        text += "ro.line." + std::to_string(i * 2654435761U) + "=" + std::to_string(i) + "\n";
    }
    text.resize(size);
    return text;
}

std::string Compress(int algorithm, const std::string& content) {
    std::string bytes(content.size() + 4096, '\0');
    auto* const out = reinterpret_cast<uint8_t*>(bytes.data());
    const auto* const in = reinterpret_cast<const uint8_t*>(content.data());
    switch (algorithm) {
        case kLz4:
            bytes.resize(LZ4_compress_default(content.data(), bytes.data(),
                                              static_cast<int>(content.size()),
                                              static_cast<int>(bytes.size())));
            return bytes;
        case kMicroLzma: {
            lzma_options_lzma options;
            lzma_lzma_preset(&options, 6);
            lzma_stream stream = LZMA_STREAM_INIT;
            if (lzma_microlzma_encoder(&stream, &options) != LZMA_OK) break;
            stream.next_in = in;
            stream.avail_in = content.size();
            stream.next_out = out;
            stream.avail_out = bytes.size();
            const bool is_done = lzma_code(&stream, LZMA_FINISH) == LZMA_STREAM_END;
            bytes.resize(stream.total_out);
            lzma_end(&stream);
            if (!is_done) break;
            return bytes;
        }
        case kDeflate: {
            z_stream stream = {};
            deflateInit2(&stream, 9, Z_DEFLATED, -15, 9, Z_DEFAULT_STRATEGY);
            stream.next_in = const_cast<uint8_t*>(in);
            stream.avail_in = content.size();
            stream.next_out = out;
            stream.avail_out = bytes.size();
            deflate(&stream, Z_FINISH);
            bytes.resize(stream.total_out);
            deflateEnd(&stream);
            return bytes;
        }
        case kZstd:
            bytes.resize(ZSTD_compress(bytes.data(), bytes.size(), in, content.size(), 3));
            return bytes;
        default:
            break;
    }
    throw std::logic_error("compression");
}

std::string PadFront(const std::string& bytes, size_t size) {
    return std::string(size - bytes.size(), '\0') + bytes;
}

std::string PadBack(const std::string& bytes, size_t size) {
    return bytes + std::string(size - bytes.size(), '\0');
}

std::string Inode(unsigned format, uint64_t size, uint64_t start, uint16_t high, uint16_t mode) {
    const std::string head = P16(format) + P16(0) + P16(mode) + P16(high);
    if ((format & kExtended) == 0) {
        return head + P32(size) + P32(5) + P32(start) + P32(0) + P16(7) + P16(8) + P32(0);
    }
    return head + P64(size) + P32(start) + P32(0) + P32(7) + P32(8) + P64(1'700'000'000) +
           P32(123) + P32(1) + std::string(16, '\0');
}

std::string MapHeader(uint32_t first, uint16_t advice, uint8_t algorithms, uint8_t bits) {
    return P32(first) + P16(advice) + static_cast<char>(algorithms) + static_cast<char>(bits);
}

std::string Index(uint16_t type, uint16_t low, uint32_t block) {
    return P16(type) + P16(low) + P32(block);
}

uint64_t Image::Inodes() const {
    return Up(1216, block());  // after the largest superblock
}

uint64_t Image::FilePlace() const {
    return Inodes() + kFileId * kIdSize;
}

uint64_t Image::DataPlace() const {
    return Up(Inodes() + 1536, block());
}

std::string Image::Write() const {
    const uint64_t file_id = is_in_metabox ? uint64_t{1} << 63 | 1 : kFileId;
    const uint64_t packed_place = Up(DataPlace() + data.size(), block());
    const uint64_t metabox_place = Up(packed_place + packed.size(), block());
    std::string image;
    Put(&image, kSuperblock,
        P32(0xE0F5E1E2) + P32(0) + P32(0) + static_cast<char>(block_bits) + '\1' + P16(kRootId));
    Put(&image, kSuperblock + 24, P64(1'600'000'000) + P32(77));
    Put(&image, kSuperblock + 40, P32(Inodes() / block()));
    Put(&image, kSuperblock + 80, P32(features) + P16((features & 2) != 0 ? 0xF : 14));
    Put(&image, kSuperblock + 96, P64(packed.empty() ? 0 : kPackedId));
    Put(&image, kSuperblock + 128, P64(kMetaboxId));
    if ((features & 2) != 0) {
        Put(&image, kSuperblock + 144,
            P16(14) + std::string(14, '\0') + P16(14) + P32(1 << 20) + std::string(10, '\0') +
                    P16(6) + '\17' + std::string(5, '\0') + P16(6) + P16(0) + P32(0));
    }
    const std::string directory = Directory(file_id);
    Put(&image, Inodes() + kRootId * kIdSize,
        Inode(kInline, directory.size(), 0, 2, 040755) + directory);
    Put(&image, Inodes() + kPackedId * kIdSize,
        Inode(kPlain, packed.size(), packed_place / block()));
    Put(&image, Inodes() + kMetaboxId * kIdSize,
        Inode(kPlain, kIdSize + file.size(), metabox_place / block()));
    if (!is_in_metabox) Put(&image, FilePlace(), file);
    Put(&image, DataPlace(), data);
    Put(&image, packed_place, packed);
    Put(&image, metabox_place, is_in_metabox ? std::string(kIdSize, '\0') + file : "");
    return image;
}

}  // namespace erofs_image
