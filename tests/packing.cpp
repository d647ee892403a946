#include "packing.h"

#include <archive_entry.h>
#include <endian.h>

#include <initializer_list>

#include <gtest/gtest.h>
#include <openssl/sha.h>

namespace {

std::string Sha256(const std::string& bytes) {
    std::string digest(SHA256_DIGEST_LENGTH, '\0');
    SHA256(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(),
           reinterpret_cast<uint8_t*>(digest.data()));
    return digest;
}

}  // namespace

std::string Noise(size_t size) {
    std::string noise(size, '\0');
    uint32_t state = 1;
    for (char& byte : noise) byte = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
    return noise;
}

std::string Pack(int (*format)(archive*), int (*filter)(archive*), const char* options,
                 const std::vector<Member>& members) {
    archive* writer = archive_write_new();
    format(writer);
    if (filter != nullptr) filter(writer);
    archive_write_set_options(writer, options);
    archive_write_set_passphrase(writer, "secret");
    archive_write_set_bytes_in_last_block(writer, 1);
    std::string bytes(16 << 20, '\0');
    size_t used = 0;
    EXPECT_EQ(archive_write_open_memory(writer, bytes.data(), bytes.size(), &used), ARCHIVE_OK);
    for (const auto& [name, mode, content] : members) {
        archive_entry* entry = archive_entry_new();
        archive_entry_set_pathname(entry, name.c_str());
        archive_entry_set_mode(entry, mode);
        archive_entry_set_mtime(entry, 1000, 0);
        if (S_ISLNK(mode)) {
            archive_entry_set_symlink(entry, content.c_str());
        } else if (mode == 0) {
            archive_entry_set_hardlink(entry, content.c_str());
        } else {
            archive_entry_set_size(entry, static_cast<la_int64_t>(content.size()));
        }
        EXPECT_EQ(archive_write_header(writer, entry), ARCHIVE_OK) << archive_error_string(writer);
        if (S_ISREG(mode)) {
            EXPECT_EQ(archive_write_data(writer, content.data(), content.size()),
                      static_cast<la_ssize_t>(content.size()))
                    << archive_error_string(writer);
        }
        archive_entry_free(entry);
    }
    EXPECT_EQ(archive_write_close(writer), ARCHIVE_OK) << archive_error_string(writer);
    archive_write_free(writer);
    bytes.resize(used);
    return bytes;
}

std::string Zip(const std::vector<Member>& members, const char* options) {
    return Pack(archive_write_set_format_zip, nullptr, options, members);
}

std::string Tar(const std::vector<Member>& members) {
    return Pack(archive_write_set_format_pax_restricted, nullptr, nullptr, members);
}

std::string Packed(int (*filter)(archive*), const std::string& content) {
    return Pack(archive_write_set_format_raw, filter, nullptr, {{"x", kFile, content}});
}

void PayloadMaker::Add(const std::string& name,
                       const std::vector<std::pair<uint32_t, std::string>>& pieces) {
    auto* partition = manifest.add_partitions();
    partition->set_name(name);
    std::string content;
    for (const auto& [type, piece] : pieces) {
        auto* operation = partition->add_operations();
        operation->set_type(type);
        auto* extent = operation->add_destination_extents();
        extent->set_start_block(content.size() / kBlock);
        extent->set_blocks(piece.size() / kBlock);
        content += piece;
        if (type == 6 || type == 7) continue;
        const std::string packed = type == 1   ? Packed(archive_write_add_filter_bzip2, piece)
                                   : type == 8 ? Packed(archive_write_add_filter_xz, piece)
                                               : piece;
        operation->set_data_offset(data.size());
        operation->set_data_length(packed.size());
        operation->set_data_sha256(Sha256(packed));
        data += packed;
    }
    partition->mutable_new_info()->set_size(content.size());
    partition->mutable_new_info()->set_sha256(Sha256(content));
}

std::string PayloadMaker::Write() const {
    const std::string text = manifest.SerializeAsString();
    std::string bytes = "CrAU";
    const uint64_t numbers[] = {htobe64(2), htobe64(text.size())};
    bytes.append(reinterpret_cast<const char*>(numbers), sizeof(numbers));
    const uint32_t signature = htobe32(5);
    bytes.append(reinterpret_cast<const char*>(&signature), sizeof(signature));
    return bytes + text + "signs" + data;
}

std::string SparsePart(const std::string& image, uint32_t first, uint32_t blocks) {
    const auto all = static_cast<uint32_t>(image.size() / kBlock);
    std::string bytes;
    const auto put = [&bytes](std::initializer_list<uint32_t> numbers) {
        for (const uint32_t number : numbers) {
            bytes.append(reinterpret_cast<const char*>(&number), sizeof(number));
        }
    };
    put({0xed26ff3a, 1, 12 << 16 | 28, kBlock, all, 3, 0, 0xcac3, first, 12, 0xcac1, blocks,
         static_cast<uint32_t>(12 + blocks * kBlock)});
    bytes += image.substr(first * kBlock, blocks * kBlock);
    put({0xcac3, all - first - blocks, 12});
    return bytes;
}
