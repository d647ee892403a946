#include "coverage/survey.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <stdexcept>

#include <android-base/strings.h>

#include "boot/load_tracker.h"
#include "boot/message.h"
#include "boot/real_path.h"
#include "boot/report_fields.h"
#include "coverage/mounts.h"
#include "device/inside.h"
#include "device/places.h"
#include "device/property_lines.h"
#include "utils.h"

namespace extprop {

namespace {

namespace fs = std::filesystem;

class Surveyor {
  public:
    // Leaves out what lies in the directories.
    Surveyor(const std::function<bool(const std::string& name)>& wanted,
             std::vector<std::string> left_out)
            : wanted_(wanted), left_out_(std::move(left_out)) {
        left_out_.insert(left_out_.end(), {"/proc", "/sys"});
    }

    Survey Take() {
        Walk();
        std::sort(survey_.files.begin(), survey_.files.end(),
                  [](const SurveyedFile& a, const SurveyedFile& b) { return a.path < b.path; });
        FollowImports();
        AddLinks();
        return std::move(survey_);
    }

  private:
    // Opens one directory at a time, so that a deep tree cannot exhaust the descriptors.
    void Walk() {
        for (std::vector<std::string> waiting = {"/"}; !waiting.empty();) {
            const std::string directory = std::move(waiting.back());
            waiting.pop_back();
            std::error_code error;
            for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
                 entry.increment(error)) {
                const std::string& path = entry->path().native();
                std::error_code gone;
                const bool is_link = entry->is_symlink(gone);
                if (!is_link && entry->is_directory(gone)) {
                    const auto left_out = std::find(left_out_.begin(), left_out_.end(), path);
                    if (left_out == left_out_.end()) waiting.push_back(path);
                } else if (UseOf(path) || IsOfSwitchKey(path)) {
                    if (is_link) links_.push_back(path);
                    if (!is_link && entry->is_regular_file(gone)) Read(path, std::nullopt);
                }
            }
        }
        std::sort(links_.begin(), links_.end());
    }

    // Files that property files import may have any name.
    void FollowImports() {
        const auto names_in = [](const std::string& directory) {
            std::vector<std::string> names;
            for (const DirectoryEntry& entry : EntriesIn(directory)) names.push_back(entry.name);
            return names;
        };
        for (size_t i = 0; i < survey_.files.size(); ++i) {
            for (size_t j = 0; j < survey_.files[i].imports.size(); ++j) {
                const std::string name = survey_.files[i].imports[j].name;
                std::vector<std::string> paths = PathsLike(name, names_in);
                // The path by the references' defaults, which may have slashes.
                if (const std::string path = Expand(name).path; !path.empty()) {
                    paths.push_back(path);
                }
                for (const std::string& path : paths) {
                    std::vector<std::optional<std::string>> found = {RealPath(path, false)};
                    for (const Mount& mount : mounts_) found.push_back(mount.Shown(path));
                    for (const auto& own : found) {
                        if (!own || !IsRegular(*own)) continue;
                        survey_.files[i].imports[j].targets.emplace_back(path, *own);
                        Read(*own, std::nullopt);
                    }
                }
            }
        }
    }

    // The library refuses a link, but a user may look for its lines.
    void AddLinks() {
        for (const std::string& link : links_) {
            const auto own = RealPath(link, true);
            if (own && IsRegular(*own)) Read(link, *own);
        }
    }

    void Read(const std::string& path, const std::optional<std::string>& source) {
        const std::string& own = source ? *source : path;
        if (!read_.insert(own).second) return;
        struct stat status;
        const bool is_huge = lstat(own.c_str(), &status) == 0 && status.st_size > kMostBytes;
        const auto content = is_huge ? std::string() : LoadTracker::Content(own);
        if (!content) return;
        SurveyedFile file{path, source, {}, {}};
        const bool has_imports = UseOf(path) != FileUse::kDeviceName;
        for (const PropertyLine& line : PropertyLines(*content, !has_imports)) {
            const std::string name(line.name);
            if (line.kind == PropertyLine::kProperty && wanted_(name)) {
                file.lines.push_back({line.number, name, std::string(line.value), true});
            }
        }
        if (has_imports) {
            for (ImportLine& import : ImportsIn(*content)) {
                file.imports.push_back({std::move(import), {}});
            }
        }
        survey_.files.push_back(std::move(file));
    }

    const std::function<bool(const std::string& name)>& wanted_;
    std::vector<std::string> left_out_;
    Survey survey_;
    std::set<std::string> read_;
    std::vector<std::string> links_;
    const std::vector<Mount> mounts_ = FindMounts();
};

}  // namespace

template <typename Fields>
void Visit(Fields& fields, SurveyedImport& import) {
    fields("line", import.line)("name", import.name)("filter", import.filter)("targets",
                                                                              import.targets);
}

template <typename Fields>
void Visit(Fields& fields, SurveyedFile& file) {
    fields("path", file.path)("source", file.source)("lines", file.lines)("imports", file.imports);
}

template <typename Fields>
void Visit(Fields& fields, Survey& survey) {
    fields("files", survey.files);
}

Survey TakeSurvey(const sandbox::Sandbox& root,
                  const std::function<bool(const std::string& name)>& wanted,
                  std::chrono::seconds limit) {
    auto survey = AskInside(
            root, [&] { return Write(Surveyor(wanted, root.packed()).Take()); }, limit);
    if (!survey) {
        throw std::runtime_error(
                "reading the device's property files takes too long or too much memory");
    }
    return FromJson<Survey>(std::move(*survey));
}

}  // namespace extprop
