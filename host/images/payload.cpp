#include "payload.h"

#include <endian.h>
#include <openssl/evp.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <memory>
#include <set>

#include "../budget.h"
#include "payload.pb.h"
#include "sources.h"
#include "streams.h"

namespace images {

namespace {

constexpr char kPayloadMagic[] = {'C', 'r', 'A', 'U'};
constexpr uint64_t kVersion = 2;

struct [[gnu::packed]] Header {
    char magic[sizeof(kPayloadMagic)];
    uint64_t version, manifest_size;  // the most significant byte first
    uint32_t signature_size;
};

enum Type : uint32_t { kPlain = 0, kBzip2 = 1, kZero = 6, kDiscard = 7, kXz = 8 };

class Sha256 {
  public:
    Sha256() : context_(EVP_MD_CTX_new(), EVP_MD_CTX_free) {
        if (context_ == nullptr || EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) != 1) {
            throw std::bad_alloc();
        }
    }

    void Add(const void* bytes, size_t size) { EVP_DigestUpdate(context_.get(), bytes, size); }

    std::string Take() {
        std::string digest(EVP_MAX_MD_SIZE, '\0');
        unsigned size = 0;
        EVP_DigestFinal_ex(context_.get(), reinterpret_cast<unsigned char*>(digest.data()), &size);
        digest.resize(size);
        return digest;
    }

  private:
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context_;
};

std::string DigestOf(const Source& source, Spool* spool) {
    Sha256 digest;
    std::vector<char> buffer(std::min<uint64_t>(source.size(), Spool::kChunkSize));
    for (uint64_t at = 0; at < source.size();) {
        const size_t part = std::min<uint64_t>(buffer.size(), source.size() - at);
        source.Read(at, buffer.data(), part);
        digest.Add(buffer.data(), part);
        spool->Count(part);
        at += part;
    }
    return digest.Take();
}

// The extents of a partition that an operation fills, in order.
class Destination {
  public:
    // Throws Damage if an extent lies outside the partition.
    Destination(SpooledBytes* partition, const payload::Operation& operation, uint64_t block_size)
            : partition_(partition) {
        const uint64_t blocks = partition->size() / block_size;
        for (const payload::Extent& extent : operation.destination_extents()) {
            if (extent.start_block() > blocks || extent.blocks() > blocks - extent.start_block()) {
                throw Damage("beyond the end of the partition");
            }
            extents_.push_back({extent.start_block() * block_size, extent.blocks() * block_size});
        }
    }

    void Write(const char* bytes, size_t size) {
        while (size != 0) {
            if (at_ == extents_.size()) throw Damage("more data than it has blocks");
            auto& [offset, left] = extents_[at_];
            const size_t part = std::min<uint64_t>(size, left);
            partition_->Write(offset, bytes, part);
            bytes += part;
            size -= part;
            offset += part;
            left -= part;
            if (left == 0) ++at_;
        }
    }

    bool is_full() const {
        return std::all_of(extents_.begin() + static_cast<ptrdiff_t>(at_), extents_.end(),
                           [](const auto& extent) { return extent.second == 0; });
    }

  private:
    SpooledBytes* partition_;
    std::vector<std::pair<uint64_t, uint64_t>> extents_;  // offset and bytes that are left
    size_t at_ = 0;
};

class FullPayload : public Payload {
  public:
    FullPayload(const Source& source, uint64_t data, payload::Manifest manifest, Spool* spool)
            : source_(source), data_(data), manifest_(std::move(manifest)), spool_(spool) {
        const uint64_t block_size = manifest_.block_size();
        if (block_size < 512 || block_size > 1 << 20 || (block_size & (block_size - 1)) != 0) {
            throw Damage("payload: blocks of " + std::to_string(block_size) + " bytes");
        }
        constexpr size_t kLongestName = 255;
        if (static_cast<size_t>(manifest_.partitions_size()) > limits::kSuperPartitions) {
            throw Damage("payload: more than " + std::to_string(limits::kSuperPartitions) +
                         " partitions");
        }
        std::set<std::string> names;
        for (const payload::Partition& partition : manifest_.partitions()) {
            if (partition.name().size() > kLongestName) {
                throw Damage("payload: a partition's name of more than 255 bytes");
            }
            if (!names.insert(partition.name()).second) {
                throw Damage("payload: partition '" + partition.name() + "' is there twice");
            }
            if (partition.new_info().size() > limits::kArchiveMember) {
                throw Damage("payload: partition '" + partition.name() + "' of more than " +
                             std::to_string(limits::kArchiveMember >> 30) + " GiB");
            }
        }
        CheckIsFull();
    }

    std::vector<Volume> partitions() const override {
        std::vector<Volume> partitions;
        for (const payload::Partition& partition : manifest_.partitions()) {
            partitions.push_back({partition.name(), partition.new_info().size()});
        }
        return partitions;
    }

    std::unique_ptr<Source> Open(size_t index) const override {
        const payload::Partition& partition = manifest_.partitions(static_cast<int>(index));
        const payload::PartitionInfo& info = partition.new_info();
        auto content = std::make_unique<SpooledBytes>(spool_, info.size());
        for (int i = 0; i < partition.operations_size(); ++i) {
            try {
                Perform(partition.operations(i), content.get());
            } catch (const Damage& damage) {
                throw Damage("payload: operation " + std::to_string(i) + ": " + damage.what());
            }
        }
        if (DigestOf(*content, spool_) != info.sha256()) {
            throw Damage("payload: the partition has a wrong SHA-256");
        }
        return content;
    }

  private:
    // An incremental payload changes the images of an older release and holds none itself.
    void CheckIsFull() const {
        std::string changed;
        for (const payload::Partition& partition : manifest_.partitions()) {
            const bool is_change = std::any_of(
                    partition.operations().begin(), partition.operations().end(),
                    [](const auto& operation) { return operation.source_extents_size() != 0; });
            if (is_change) changed += (changed.empty() ? "" : ", ") + partition.name();
        }
        if (manifest_.minor_version() == 0 || changed.empty()) return;
        throw Damage("a delta payload, which changes the images of an older release (" + changed +
                     ") and holds none; give a full update");
    }

    void Perform(const payload::Operation& operation, SpooledBytes* partition) const {
        Destination destination(partition, operation, manifest_.block_size());
        if (operation.type() == kZero || operation.type() == kDiscard) return;
        if (operation.type() != kPlain && operation.type() != kBzip2 && operation.type() != kXz) {
            throw Damage("type " + std::to_string(operation.type()) + " is not known");
        }
        ExtentSource data(source_);
        if (operation.data_offset() > source_.size()) throw Damage("truncated");
        data.AddPart(operation.data_length(), data_ + operation.data_offset());
        if (operation.has_data_sha256() && DigestOf(data, spool_) != operation.data_sha256()) {
            throw Damage("its data have a wrong SHA-256");
        }
        std::vector<char> buffer(Spool::kChunkSize);
        if (operation.type() == kPlain) {
            for (uint64_t at = 0; at < data.size();) {
                const size_t got = data.ReadUpTo(at, buffer.data(), buffer.size());
                destination.Write(buffer.data(), got);
                at += got;
            }
        } else {
            const char* wanted = operation.type() == kXz ? "xz" : "bzip2";
            const char* found = CompressionOf(data);
            if (found == nullptr || strcmp(found, wanted) != 0) {
                throw Damage(std::string("its data are not packed by ") + wanted);
            }
            const std::unique_ptr<Stream> unpacked = Unpacked(data);
            while (const size_t got = unpacked->Next(buffer.data(), buffer.size())) {
                destination.Write(buffer.data(), got);
            }
        }
        if (!destination.is_full()) throw Damage("fewer data than it has blocks");
    }

    const Source& source_;
    uint64_t data_;
    payload::Manifest manifest_;
    Spool* spool_;
};

}  // namespace

std::unique_ptr<Payload> OpenPayload(const Source& source, Spool* spool) {
    Header header = {};
    const size_t got = source.ReadUpTo(0, &header, sizeof(header));
    if (memcmp(header.magic, kPayloadMagic, sizeof(kPayloadMagic)) != 0) return nullptr;
    if (got < sizeof(header)) throw Damage("payload: truncated");
    if (be64toh(header.version) != kVersion) {
        throw Damage("payload: of version " + std::to_string(be64toh(header.version)));
    }
    const uint64_t size = be64toh(header.manifest_size);
    if (size > limits::kPayloadManifest) throw Damage("payload: its manifest is too large");
    const std::string bytes = ReadBytes(source, sizeof(header), size);
    payload::Manifest manifest;
    if (!manifest.ParseFromString(bytes)) throw Damage("payload: its manifest is damaged");
    const uint64_t data = sizeof(header) + size + be32toh(header.signature_size);
    return std::make_unique<FullPayload>(source, data, std::move(manifest), spool);
}

}  // namespace images
