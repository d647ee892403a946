#include "boot/load_tracker.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <list>
#include <utility>

#include <android-base/file.h>
#include <android-base/unique_fd.h>

#include "boot/call_chain.h"
#include "device/imports.h"
#include "device/property_lines.h"

namespace extprop {

namespace {

// How many lines are reported together at most: a large file takes no more memory than a small one.
constexpr size_t kLinesAtOnce = 1000;

}  // namespace

// A load that is under way.
struct LoadTracker::Load {
    int number;
    std::string path;
    std::string filter;
    const PropertyMap* map;
    std::string content;
    std::vector<PropertyLine> lines;
    size_t next = 0;  // the first line that is not yet reported
};

// One of the library's maps, which live on its stack, so an address may be used again.
struct LoadTracker::Map {
    int number;
    const PropertyMap* address;
    size_t size = 0;            // at the end of the last load
    bool loaded_since = false;  // since it was handed over
    std::vector<std::string> chain;
};

struct LoadTracker::ThreadLoads {
    std::list<Load> loading;  // each imported by the one before
    std::vector<Map> maps;    // in the order of their last loads
};

LoadTracker::ThreadLoads& LoadTracker::Loads() {
    static thread_local ThreadLoads loads;
    return loads;
}

std::optional<std::string> LoadTracker::Content(const std::string& path) {
    const android::base::unique_fd fd(
            open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat status;
    std::string content;
    if (!fd.ok() || fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        !android::base::ReadFdToString(fd, &content)) {
        return std::nullopt;
    }
    return content;
}

int LoadTracker::MapFor(const PropertyMap* map) {
    std::vector<Map>& maps = Loads().maps;
    auto known = std::find_if(maps.begin(), maps.end(),
                              [&](const Map& other) { return other.address == map; });
    // A map never shrinks between two loads, so one that is smaller is another at its address.
    if (known != maps.end() && !map->empty() && map->size() >= known->size) {
        std::rotate(known, known + 1, maps.end());
    } else {
        if (known != maps.end()) maps.erase(known);
        std::lock_guard<std::mutex> lock(mutex_);
        maps.push_back({maps_++, map, 0, false, {}});
    }
    return maps.back().number;
}

void LoadTracker::Begin(const std::string& path, const char* filter, const PropertyMap* map) {
    std::list<Load>& loading = Loads().loading;
    LoadEvent event;
    event.path = PlainPath(path);
    event.source = SourceOf(path);
    if (filter != nullptr && *filter != '\0') event.filter = filter;
    if (loading.empty()) {
        event.map = MapFor(map);
        Loads().maps.back().chain = CallChain();
    } else {
        Load& importer = loading.back();
        ReadLines(&importer, &path);
        event.map = Loads().maps.back().number;
        event.imported_by =
                importer.path + ":" +
                std::to_string(importer.next > 0 ? importer.lines[importer.next - 1].number : 0);
    }
    event.operations = Loads().maps.back().chain;
    event.written = WasWritten(event.source.value_or(event.path));
    Load load{0, event.path, event.filter.value_or(""), map, "", {}};
    {
        std::lock_guard<std::mutex> lock(mutex_);
        load.number = loads_++;
    }
    loading.push_back(std::move(load));
    listener_->OnLoadBegun(std::move(event));
    Load& begun = loading.back();
    begun.content = Content(path).value_or("");
    begun.lines = PropertyLines(begun.content, !begun.filter.empty());
}

// Reports the lines up to the import that leads to `import_path`, or all that are left if it is
// null.
void LoadTracker::ReadLines(Load* load, const std::string* import_path) {
    LinesRead read{load->number, {}};
    bool arrived = false;
    while (!arrived && load->next < load->lines.size()) {
        const PropertyLine& line = load->lines[load->next++];
        const std::string name(line.name);
        if (line.kind == PropertyLine::kProperty) {
            const bool passed = PassesFilter(name, load->filter);
            if (passed && noted_map_ == load->map) noted_names_.insert(name);
            if (wanted_ && wanted_(name)) {
                read.lines.push_back({line.number, name, std::string(line.value), passed});
                if (read.lines.size() == kLinesAtOnce) {
                    listener_->OnLinesRead(std::exchange(read, {load->number, {}}));
                }
            }
        } else if (line.kind == PropertyLine::kImport) {
            // The loader goes on after an import whose name cannot be expanded.
            const Expansion expansion = Expand(name);
            arrived = import_path != nullptr && expansion.fault.empty() &&
                      expansion.path.c_str() == *import_path;
        }
    }
    if (!read.lines.empty()) listener_->OnLinesRead(std::move(read));
}

void LoadTracker::End(const PropertyMap* map) {
    ThreadLoads& loads = Loads();
    ReadLines(&loads.loading.back(), nullptr);
    loads.loading.pop_back();
    if (!loads.loading.empty()) return;
    loads.maps.back().size = map->size();
    loads.maps.back().loaded_since = true;
}

std::optional<int> LoadTracker::HandedOver(const std::vector<std::string>& chain,
                                           const void* frame) {
    std::vector<Map>& maps = Loads().maps;
    for (auto map = maps.rbegin(); map != maps.rend(); ++map) {
        // A map that is handed over is on a stack frame that still exists, was loaded by the
        // function that hands it over or by one that this called, and is not empty.
        const bool alive = static_cast<const void*>(map->address) > frame;
        const bool is_callers = !chain.empty() && std::find(map->chain.begin(), map->chain.end(),
                                                            chain.front()) != map->chain.end();
        if (!alive || !is_callers || !map->loaded_since || map->size == 0) continue;
        map->loaded_since = false;
        return map->number;
    }
    return std::nullopt;
}

void LoadTracker::ForgetMaps(const PropertyMap* kept) {
    std::vector<Map>& maps = Loads().maps;
    maps.erase(std::remove_if(maps.begin(), maps.end(),
                              [&](const Map& map) { return map.address != kept; }),
               maps.end());
}

void LoadTracker::NoteNames(const PropertyMap* map) {
    noted_map_ = map;
}

std::set<std::string> LoadTracker::TakeNames() {
    return std::exchange(noted_names_, {});
}

std::optional<int> LoadTracker::TakenOver(const PropertyMap* map) {
    for (Map& known : Loads().maps) {
        if (known.address != map) continue;
        known.loaded_since = false;
        return known.number;
    }
    return std::nullopt;
}

bool LoadTracker::WasWritten(const std::string& own) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return written_.count(own) != 0;
}

void LoadTracker::Written(const std::string& path) {
    const std::string own = SourceOf(path).value_or(PlainPath(path));
    std::lock_guard<std::mutex> lock(mutex_);
    written_.insert(own);
}

void LoadTracker::Bound(const std::string& source, const std::string& target, bool recursive) {
    std::lock_guard<std::mutex> lock(mutex_);
    binds_.Add(source, target, recursive);
}

std::optional<std::string> LoadTracker::SourceOf(const std::string& path) const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::string own = binds_.OwnPath(path);
    if (own == PlainPath(path)) return std::nullopt;
    return own;
}

}  // namespace extprop
