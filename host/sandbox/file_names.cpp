#include "file_names.h"

#include <ctype.h>
#include <fnmatch.h>
#include <string.h>

#include <algorithm>
#include <iterator>
#include <string_view>

#include <android-base/strings.h>

namespace sandbox {

namespace {

constexpr Partition kPartitions[] = {
        {"my_*", kPartitionMounts, true},
        {"odm", "/", true},
        {"system_ext", "/", true},
        {"system", "/", false},
        {"vendor", "/", false},
        {"product", "/", false},
        {"oem", "/", false},
        {"odm_dlkm", "/", false},
        {"vendor_dlkm", "/", false},
        {"system_dlkm", "/", false},
};

// Directories of a device's root besides those of the partitions above.
constexpr const char* kDirectories[] = {"data", "dev", "mnt", "sys"};

// What tools add to the name of a file that they compress.
constexpr const char* kPacked[] = {".gz", ".xz", ".zst", ".lz4", ".bz2"};

constexpr const char* kArchives[] = {"*.zip",     "*.tar",     "*.tar.gz",  "*.tar.xz",
                                     "*.tar.zst", "*.tar.lz4", "*.tar.bz2", "*.tar.md5",
                                     "*.tgz",     "*.txz",     "*.tzst",    "*.tbz2"};

constexpr struct {
    const char* name;
    const char* what;
} kUnread[] = {
        {"*.7z", "a 7z archive, which 7z unpacks"},
        {"*.rar", "a RAR archive, which unrar unpacks"},
        {"*.z[0-9][0-9]", "a part of a split zip archive, which zip -s 0 puts together"},
        {"*.[0-9][0-9][0-9]", "a part of a split file, which cat puts together"},
};

bool Fits(const char* pattern, const std::string& name) {
    return fnmatch(pattern, name.c_str(), FNM_CASEFOLD) == 0;
}

// Removes the ending, in any case, from the name. Returns false if the name has another ending.
bool TakeEnding(std::string_view ending, std::string* name) {
    if (!android::base::EndsWithIgnoreCase(*name, ending)) return false;
    name->resize(name->size() - ending.size());
    return true;
}

// Removes a number from the end of the name and returns it.
std::optional<int> TakeNumber(std::string* name) {
    constexpr size_t kMostDigits = 4;
    size_t digits = 0;
    while (digits < name->size() &&
           isdigit(static_cast<unsigned char>((*name)[name->size() - digits - 1])) != 0)
        ++digits;
    if (digits == 0 || digits > kMostDigits) return std::nullopt;
    const int number = std::stoi(name->substr(name->size() - digits));
    name->resize(name->size() - digits);
    return number;
}

// Returns the name in lower case if builds name an image so, otherwise as it is.
std::string WithoutCapitals(const std::string& name) {
    std::string lower = name;
    for (char& letter : lower) {
        if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
    }
    std::string bare = lower;
    if (TakeNumber(&bare) && bare == std::string(kSuper) + "_") return lower;
    return IsOfPartitions(lower) && !IsOfPartitions(name) ? lower : name;
}

}  // namespace

bool IsPartitionName(const std::string& name) {
    return std::all_of(name.begin(), name.end(), [](unsigned char letter) {
        return letter < 0x80 && (isalnum(letter) != 0 || letter == '_');
    });
}

const Partition* FindPartition(const std::string& name) {
    const auto* found = std::find_if(
            std::begin(kPartitions), std::end(kPartitions), [&name](const Partition& known) {
                return IsPartitionName(name) && fnmatch(known.name, name.c_str(), 0) == 0;
            });
    return found == std::end(kPartitions) ? nullptr : found;
}

char TakeSlot(std::string* name) {
    if (!android::base::EndsWith(*name, "_a") && !android::base::EndsWith(*name, "_b")) return 0;
    const char slot = name->back();
    name->resize(name->size() - 2);
    return slot;
}

std::string PartitionOfTargetFiles(const std::string& directory) {
    std::string lower = directory;
    for (char& letter : lower) {
        if (letter >= 'a' && letter <= 'z') return "";
        if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
    }
    return FindPartition(lower) != nullptr ? lower : "";
}

bool IsOfDevice(const std::string& directory) {
    return FindPartition(directory) != nullptr || !PartitionOfTargetFiles(directory).empty() ||
           directory == kImagesDirectory ||
           std::find(std::begin(kDirectories), std::end(kDirectories), directory) !=
                   std::end(kDirectories);
}

FileName ParseFileName(const std::string& name) {
    FileName parsed;
    std::string rest = name;
    parsed.part = TakeNumber(&rest);
    if (parsed.part && TakeEnding(".img_sparsechunk.", &rest)) {
        parsed.image = WithoutCapitals(rest);
        return parsed;
    }
    parsed.part.reset();
    for (const char* pattern : kArchives) {
        if (!Fits(pattern, name)) continue;
        parsed.is_archive = true;
        return parsed;
    }
    for (const auto& [pattern, what] : kUnread) {
        if (!Fits(pattern, name)) continue;
        parsed.whats_unread = what;
        return parsed;
    }
    rest = name;
    for (const char* ending : kPacked) {
        if (TakeEnding(ending, &rest)) break;
    }
    rest = WithoutCapitals(rest);
    if (rest == kPayload) {
        parsed.image = kPayload;
        return parsed;
    }
    if (!TakeEnding(".img", &rest)) return parsed;
    parsed.image = WithoutCapitals(rest);
    rest = parsed.image;
    const std::optional<int> part = TakeNumber(&rest);
    if (part && rest == std::string(kSuper) + "_") {
        parsed.image = kSuper;
        parsed.part = part;
    }
    return parsed;
}

bool IsOfPartitions(const std::string& image) {
    std::string partition = image;
    TakeSlot(&partition);
    return image == kSuper || image == kPayload || FindPartition(partition) != nullptr;
}

}  // namespace sandbox
