#include "contents.h"

#include <utility>

#include "../budget.h"
#include "sources.h"
#include "streams.h"

namespace images {

namespace {

std::unique_ptr<FileSystem> OpenFileSystem(const Source& source) {
    if (auto ext4 = OpenExt4(source)) return ext4;
    return OpenErofs(source);
}

}  // namespace

Contents::Contents(std::vector<std::unique_ptr<Source>> parts, char slot, Spool* spool)
        : slot_(slot), spool_(spool), sources_(std::move(parts)) {
    if (sources_.size() > 1) {
        std::vector<const Source*> split;
        for (const auto& source : sources_) split.push_back(source.get());
        sources_.push_back(std::make_unique<JoinedSource>(split));
        sources_.push_back(JoinSparse(split, content()));
    }
    Unwrap();
    // File systems are tried first: they may have any bytes where other formats have their magic.
    auto file_system = OpenFileSystem(content());
    if (file_system == nullptr && CompressionOf(content()) != nullptr) {
        AddUnpacked();
        Unwrap();
        file_system = OpenFileSystem(content());
    }
    if (file_system != nullptr) {
        volumes_ = {{"", content().size()}};
    } else if ((payload_ = OpenPayload(content(), spool_)) != nullptr) {
        kind_ = Kind::kPayload;
        volumes_ = payload_->partitions();
    } else if ((archive_ = OpenArchive(content(), spool_)) != nullptr) {
        kind_ = Kind::kArchive;
        volumes_ = {{"", content().size()}};
    } else if ((super_ = Super::Open(content(), slot_)) != nullptr) {
        kind_ = Kind::kSuper;
        volumes_ = super_->volumes();
    } else {
        kind_ = Kind::kUnknown;
        volumes_ = {{"", content().size()}};
    }
    opened_.resize(volumes_.size());
    if (file_system != nullptr) opened_[0].file_system = std::move(file_system);
}

void Contents::Unwrap() {
    if (auto sparse = OpenSparse(content())) sources_.push_back(std::move(sparse));
}

void Contents::AddUnpacked() {
    sources_.push_back(std::make_unique<SpooledStream>(Unpacked(content()), spool_,
                                                       limits::kArchiveMember + 1));
}

const FileSystem& Contents::Open(size_t volume) {
    if (volume >= opened_.size()) throw Damage("no such volume");
    if (archive_ != nullptr) return *archive_;
    Opened& opened = opened_[volume];
    if (opened.file_system != nullptr) return *opened.file_system;
    if (opened.content == nullptr) {
        if (super_ != nullptr) opened.content = super_->OpenVolume(volume);
        if (payload_ != nullptr) opened.content = payload_->Open(volume);
    }
    opened.file_system = OpenFileSystem(opened.content != nullptr ? *opened.content : content());
    if (opened.file_system == nullptr) {
        throw Damage("neither an ext4 nor an EROFS nor an Android sparse image");
    }
    return *opened.file_system;
}

void Contents::Unpack() const {
    for (const auto& source : sources_) {
        char last;
        if (source->size() != 0) source->ReadUpTo(source->size() - 1, &last, sizeof(last));
    }
}

std::unique_ptr<Source> Contents::Inside(uint64_t file) const {
    if (archive_ == nullptr) throw Damage("no archive");
    return archive_->Content(file);
}

}  // namespace images
