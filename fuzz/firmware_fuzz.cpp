// Any bytes as a device in one file: an archive, compressed files and archives in it, and so on
// down to the files of its images.

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "contents.h"
#include "file_names.h"
#include "image.h"

namespace {

using images::Contents;
using images::Damage;
using images::FileSystem;
using images::Source;

constexpr int kDeepest = 2;
constexpr int kVolumes = 8;

void LookAt(std::unique_ptr<Source> source, images::Spool* spool, int depth);

// Opens those of the archive's files that the tool would open.
void OpenInside(const Contents& archive, const FileSystem& files, uint64_t directory,
                images::Spool* spool, int depth) {
    for (const auto& [name, node] : files.List(directory)) {
        const images::Node found = files.Look(node);
        if (S_ISDIR(found.mode)) OpenInside(archive, files, node, spool, depth);
        const sandbox::FileName parsed = sandbox::ParseFileName(name);
        if (!parsed.is_archive && parsed.image.empty()) continue;
        try {
            LookAt(archive.Inside(node), spool, depth + 1);
        } catch (const Damage&) {
        }
    }
}

void LookAt(std::unique_ptr<Source> source, images::Spool* spool, int depth) {
    if (depth > kDeepest) return;
    std::vector<std::unique_ptr<Source>> parts;
    parts.push_back(std::move(source));
    Contents contents(std::move(parts), 'a', spool);
    for (size_t i = 0; i < contents.volumes().size() && i < kVolumes; ++i) {
        try {
            const FileSystem& files = contents.Open(i);
            fuzz::WalkAll(files);
            if (contents.kind() != images::Kind::kArchive) continue;
            OpenInside(contents, files, files.root(), spool, depth);
        } catch (const Damage&) {
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const int file = memfd_create("spool", MFD_CLOEXEC);
    if (ftruncate(file, 0) != 0) return -1;
    images::Spool spool(file);
    try {
        LookAt(std::make_unique<fuzz::Bytes>(
                       std::string(reinterpret_cast<const char*>(data), size)),
               &spool, 0);
    } catch (const Damage&) {
    }
    return 0;
}
