#include "utils.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>

#include <android-base/chrono_utils.h>
#include <android-base/logging.h>
#include <android-base/properties.h>
#include <android-base/strings.h>
#include <cutils/properties.h>
#include <selinux/android.h>

using android::base::borrowed_fd;
using android::base::ErrnoError;
using android::base::Error;
using android::base::GetProperty;
using android::base::Result;
using android::base::StartsWith;
using android::base::Timer;
using android::base::unique_fd;
using android::init::PropertyMap;

namespace {

constexpr size_t kReadSize = 1024;

// The size of a file is only a hint: that of a sparse file may exceed any memory.
constexpr off_t kMaxReservation = 16 * 1024 * 1024;

constexpr char kOpenFailed[] = "open() failed";
constexpr char kReadFailed[] = "Unable to read file contents";
constexpr char kWriteFailed[] = "Unable to write file contents";

void ReserveFileSize(int fd, std::string* content) {
    struct stat st;
    if (fstat(fd, &st) != 0 || st.st_size <= 0) return;
    content->reserve(std::min<off_t>(st.st_size, kMaxReservation));
}

bool IsSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

std::string_view TrimLeft(std::string_view text) {
    while (!text.empty() && IsSpace(text.front())) text.remove_prefix(1);
    return text;
}

std::string_view TrimRight(std::string_view text) {
    while (!text.empty() && IsSpace(text.back())) text.remove_suffix(1);
    return text;
}

// The lines of a property file that are neither empty nor comments, trimmed of white space.
class PropertyLines {
  public:
    explicit PropertyLines(std::string_view content) : rest_(content) {}

    bool Next(std::string_view* line) {
        while (!rest_.empty()) {
            size_t end = rest_.find('\n');
            *line = TrimLeft(rest_.substr(0, end));
            rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
            if (line->empty() || line->front() == '#') continue;
            *line = TrimRight(*line);
            return true;
        }
        return false;
    }

  private:
    std::string_view rest_;
};

// Follows one import. `target` is what follows the keyword: a file name and perhaps a filter.
void ImportProperties(std::string_view target, PropertyMap* properties) {
    target = TrimLeft(target);
    size_t blank = target.find(' ');
    Result<std::string> expanded = ExpandProps(std::string(target.substr(0, blank)));
    if (!expanded.ok()) {
        // QUIRK: an opening quote is missing in this text.
        LOG(ERROR) << "Could not expand filename ': " << expanded.error();
        return;
    }
    std::string filter;
    if (blank != std::string_view::npos) filter = TrimLeft(target.substr(blank));
    if (!load_properties_from_file_without_se(expanded->c_str(), filter.c_str(), properties)) {
        LOG(ERROR) << "expand filename load failed : " << *expanded;
    }
}

bool PassesFilter(const std::string& key, const char* filter, size_t filter_length) {
    if (filter_length == 0) return true;
    if (filter[filter_length - 1] == '*') {
        return strncmp(key.c_str(), filter, filter_length - 1) == 0;
    }
    return strcmp(key.c_str(), filter) == 0;
}

void StoreProperty(const std::string& key, std::string_view value, PropertyMap* properties) {
    auto [entry, inserted] = properties->try_emplace(key, value);
    if (inserted || entry->second == value) return;
    // QUIRK: every name is replaced and reported as 'ro.', whatever it begins with.
    LOG(WARNING) << "Overriding previous 'ro.' property '" << entry->first << "':'" << entry->second
                 << "' with new value '" << value << "'";
    entry->second = value;
}

}  // namespace

Result<std::string> ReadFile(const std::string& path) {
    unique_fd fd(TEMP_FAILURE_RETRY(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW)));
    if (!fd.ok()) return ErrnoError() << kOpenFailed;

    std::string content;
    ReserveFileSize(fd.get(), &content);

    char buffer[kReadSize] = {};
    ssize_t n;
    while ((n = TEMP_FAILURE_RETRY(read(fd.get(), buffer, sizeof(buffer)))) > 0) {
        content.append(buffer, n);
    }
    if (n == -1) return ErrnoError() << kReadFailed;
    return content;
}

Result<std::string> ReadFileWithOffset(const std::string& path, int offset, int nbytes) {
    // QUIRK: unlike ReadFile this follows symbolic links: by-name links lead to the raw partitions.
    unique_fd fd(TEMP_FAILURE_RETRY(open(path.c_str(), O_RDONLY | O_CLOEXEC)));
    if (!fd.ok()) return ErrnoError() << kOpenFailed;

    std::string content;
    if (!ReadFdToStringWithOffset(fd.get(), &content, offset, nbytes)) {
        return ErrnoError() << kReadFailed;
    }
    return content;
}

bool ReadFdToStringWithOffset(int fd, std::string* content, int offset, int nbytes) {
    content->clear();
    ReserveFileSize(fd, content);
    if (lseek(fd, offset, SEEK_SET) == -1) {
        LOG(ERROR) << "lseek() failed";
        return false;
    }
    // As a fortified read(2) does, also where the compiler does not fortify it.
    if (static_cast<size_t>(nbytes) > kReadSize) abort();
    char buffer[kReadSize] = {};
    ssize_t n = TEMP_FAILURE_RETRY(read(fd, buffer, nbytes));
    // QUIRK: a short read is padded with zero bytes, as callers read records of a fixed size.
    content->append(buffer, nbytes);
    return n != -1;
}

Result<void> WriteFile(const std::string& path, const std::string& content) {
    unique_fd fd(TEMP_FAILURE_RETRY(
            open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600)));
    if (!fd.ok()) return ErrnoError() << kOpenFailed;
    if (!WriteStringToFd(content, fd)) return ErrnoError() << kWriteFailed;
    return {};
}

bool WriteStringToFd(const std::string& content, borrowed_fd fd) {
    std::string_view rest = content;
    while (!rest.empty()) {
        ssize_t n = TEMP_FAILURE_RETRY(write(fd.get(), rest.data(), rest.size()));
        if (n == -1) return false;
        rest.remove_prefix(n);
    }
    return true;
}

bool WriteStringToFile(const std::string& content, const std::string& path, bool follow_symlinks) {
    int flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | (follow_symlinks ? 0 : O_NOFOLLOW);
    unique_fd fd(TEMP_FAILURE_RETRY(open(path.c_str(), flags, 0666)));
    if (!fd.ok()) return false;
    if (!WriteStringToFd(content, fd)) {
        int saved_errno = errno;
        unlink(path.c_str());
        errno = saved_errno;
        return false;
    }
    return true;
}

std::string load_property_from_file(const char* path, const char* name) {
    Result<std::string> content = ReadFile(path);
    if (!content.ok()) {
        LOG(WARNING) << "Couldn't load property file '" << path << "': " << content.error();
        return "";
    }
    PropertyLines lines(*content);
    std::string_view line;
    while (lines.Next(&line)) {
        size_t equals = line.find('=');
        // QUIRK: a prefix is enough; what follows the name is not checked.
        if (equals == std::string_view::npos || !StartsWith(line, name)) continue;
        std::string value(TrimLeft(line.substr(equals + 1)));
        LOG(WARNING) << "Loading property from " << path << ": " << value;
        return value;
    }
    LOG(WARNING) << "Loading property from " << path << " failed ";
    return "";
}

bool IsLegalPropertyName(const std::string& name) {
    if (name.empty() || name.front() == '.' || name.back() == '.') return false;
    constexpr std::string_view kLegal =
            "._-@:abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    return name.find_first_not_of(kLegal) == std::string::npos &&
           name.find("..") == std::string::npos;
}

Result<void> IsLegalPropertyValue(const std::string& name, const std::string& value) {
    if (value.size() >= PROPERTY_VALUE_MAX && !StartsWith(name, "ro.")) {
        return ErrnoError() << "Property value too long";
    }
    if (mbstowcs(nullptr, value.c_str(), 0) == static_cast<size_t>(-1)) {
        return ErrnoError() << "Value is not a UTF8 encoded string";
    }
    return {};
}

Result<std::string> ExpandProps(const std::string& src) {
    std::string expanded;
    size_t pos = 0;
    while (true) {
        size_t dollar = src.find('$', pos);
        expanded.append(src, pos, dollar - pos);
        if (dollar == std::string::npos || dollar + 1 == src.size()) return expanded;

        size_t next = dollar + 1;
        if (src[next] == '$') {
            expanded += '$';
            pos = next + 1;
            continue;
        }
        if (src[next] != '{') {
            return Error() << "using deprecated syntax for specifying property '"
                           << src.substr(next) << "', use ${name} instead";
        }
        size_t close = src.find('}', next);
        if (close == std::string::npos) {
            return Error() << "unexpected end of string in '" << src << "', looking for }";
        }
        pos = close + 1;

        std::string name = src.substr(next + 1, close - next - 1);
        std::string fallback;
        if (size_t marker = name.find(":-"); marker != std::string::npos) {
            fallback = name.substr(marker + 2);
            name.erase(marker);
        }
        if (name.empty()) {
            return Error() << "invalid zero-length property name in '" << src << "'";
        }
        std::string value = GetProperty(name, "");
        if (value.empty()) value = fallback;
        if (value.empty()) {
            return Error() << "property '" << name << "' doesn't exist while expanding '" << src
                           << "'";
        }
        expanded += value;
    }
}

bool load_properties_from_file_without_se(const char* filename, const char* filter,
                                          PropertyMap* properties) {
    Timer timer;
    Result<std::string> content = ReadFile(filename);
    if (!content.ok()) {
        LOG(WARNING) << "Couldn't load property file '" << filename << "': " << content.error();
        return false;
    }
    const size_t filter_length = filter == nullptr ? 0 : strlen(filter);
    constexpr std::string_view kImport = "import ";

    PropertyLines lines(*content);
    std::string_view line;
    std::string key;  // kept over the lines, so that only a new name costs an allocation
    while (lines.Next(&line)) {
        if (filter_length == 0 && line.substr(0, kImport.size()) == kImport) {
            ImportProperties(line.substr(kImport.size()), properties);
            continue;
        }
        size_t equals = line.find('=');
        if (equals == std::string_view::npos) continue;
        key = TrimRight(line.substr(0, equals));
        if (!PassesFilter(key, filter, filter_length)) continue;
        StoreProperty(key, TrimLeft(line.substr(equals + 1)), properties);
    }
    LOG(VERBOSE) << "(Loading properties from " << filename << " took " << timer << ".)";
    return true;
}

int createCotaDirectory(std::string path) {
    if (path.empty()) return -1;
    std::string parent = path.substr(0, path.rfind('/'));
    LOG(INFO) << "create path: " << path << " sub dir: " << parent;

    if (access(parent.c_str(), F_OK) != 0) {
        // QUIRK: a directory directly under the root is never made: its parent is the empty path.
        if (int result = createCotaDirectory(parent); result != 0) {
            LOG(ERROR) << "create sub dir failed: " << parent;
            return result;
        }
        return createCotaDirectory(path);
    }
    if (int result = mkdir(path.c_str(), 0755); result != 0) {
        LOG(ERROR) << "make dir failed: " << path;
        return result;
    }
    if (lchown(path.c_str(), 0, 0) != 0) LOG(ERROR) << "Unable to chown file: " << path;
    if (selinux_android_restorecon(path.c_str(), SELINUX_ANDROID_RESTORECON_RECURSE) < 0) {
        LOG(ERROR) << "Failed to restorecon: " << path;
    }
    return 0;
}

std::string trimPath(std::string path) {
    if (path.empty() || path.front() != '/') path.insert(0, 1, '/');
    if (path.back() == '/') path.pop_back();
    return path;
}

std::string getPathName(std::string path) {
    if (path.empty() || path.front() != '/') path.insert(0, 1, '/');
    while (path.back() != '/') path.pop_back();
    if (path.size() > 1) path.pop_back();
    return path;
}
