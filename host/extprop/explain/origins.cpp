#include "explain/origins.h"

#include <algorithm>
#include <tuple>

#include "TesvoExtensionProperty/names.h"
#include "device/legal.h"

namespace extprop {

namespace {

// Returns the rank by which one of a line's several fates is chosen: winning comes first.
int Weight(Fate fate) {
    switch (fate) {
        case Fate::kWins:
            return 5;
        case Fate::kRefused:
            return 4;
        case Fate::kOverridden:
        case Fate::kGone:
            return 3;
        case Fate::kNotHandedOn:
            return 2;
        case Fate::kFilteredOut:
            return 1;
        case Fate::kLookedUp:
        case Fate::kNotLoaded:
            return 0;
    }
    return 0;
}

// Returns the origins with each line of a file once. A file may be loaded several times or under
// several names, and looked up, too.
std::vector<Origin> OncePerLine(const std::vector<Origin>& origins) {
    std::map<std::pair<std::string, int>, size_t> kept;
    for (size_t i = 0; i < origins.size(); ++i) {
        const Origin& origin = origins[i];
        if (origin.kind != OriginKind::kFile) continue;
        auto [entry, is_new] = kept.try_emplace({origin.own_file(), origin.line}, i);
        if (is_new || origin.fate == Fate::kLookedUp) continue;
        if (Weight(origin.fate) >= Weight(origins[entry->second].fate)) entry->second = i;
    }
    std::vector<Origin> once;
    for (size_t i = 0; i < origins.size(); ++i) {
        const Origin& origin = origins[i];
        const bool is_file = origin.kind == OriginKind::kFile;
        if (!is_file || kept.at({origin.own_file(), origin.line}) == i) once.push_back(origin);
    }
    return once;
}

// Returns whether the operation hands over the property as it has read it, so that an unchanged
// value keeps its origin.
bool PassesOn(const std::vector<std::string>& operations, const std::string& name,
              bool has_carrier_version) {
    const std::string operation = operations.empty() ? "" : operations.front();
    if (operation == "loadCustomizeDisplayVersionName") return !has_carrier_version;
    if (operation != "loadSwitchKeys" && operation != "settleSwitchKeys") return false;
    // The current switch key is never read: an unchanged value comes from a key file again.
    return name != android::init::kSimSwitchCurrent;
}

}  // namespace

void Tracer::OnBoot(const BootStart& start) {
    ++boot_;
    step_.reset();
    loads_.clear();
    maps_.clear();
    own_map_.reset();
    stored_.clear();
    changed_ = start.changed;
    for (const auto& [name, index] : winners_) {
        if (IsPersistent(name)) {
            stored_[name] = index;
        } else {
            origins_[name][index].fate = Fate::kGone;
        }
    }
    winners_.clear();
    for (const auto& [name, value] : start.properties) {
        Origin origin;
        origin.value = value;
        origin.boot = boot_;
        Add(name, std::move(origin));
    }
}

void Tracer::OnStep(const std::string& step) {
    step_ = step;
}

Origin* Tracer::FindWinner(const std::string& name) {
    auto index = winners_.find(name);
    return index == winners_.end() ? nullptr : &origins_[name][index->second];
}

const Origin* Tracer::Winner(const std::string& name) const {
    auto index = winners_.find(name);
    return index == winners_.end() ? nullptr : &origins_.at(name)[index->second];
}

void Tracer::Add(const std::string& name, Origin origin) {
    std::vector<Origin>& origins = origins_[name];
    if (origin.fate == Fate::kWins) {
        if (Origin* winner = FindWinner(name)) winner->fate = Fate::kOverridden;
        winners_[name] = origins.size();
    }
    origins.push_back(std::move(origin));
}

void Tracer::AddOperation(OriginKind kind, const std::string& name, const std::string& value,
                          const std::vector<std::string>& operations) {
    // Handing over the same value again adds no origin.
    const Origin* winner = FindWinner(name);
    const Origin* version = FindWinner(android::init::kCarrierVersionName);
    if (winner != nullptr && winner->value == value &&
        PassesOn(operations, name, version != nullptr && !version->value.empty())) {
        return;
    }
    if (winner != nullptr && winner->kind == kind && winner->value == value &&
        winner->step == step_ && winner->operations == operations) {
        return;
    }
    Origin origin;
    origin.kind = kind;
    origin.value = value;
    origin.boot = boot_;
    origin.step = step_;
    origin.operations = operations;
    if (inputs_ != nullptr) origin.inputs = *inputs_;
    Add(name, std::move(origin));
}

void Tracer::OnEvent(const Event& event) {
    std::visit(Overloaded{
                       [&](const CallbackEvent& callback) {
                           inputs_ = &callback.inputs;
                           HandOver(callback, callback.operations, callback.map);
                       },
                       [&](const MapEvent& map) {
                           own_map_ = map.map;
                           HandOver(map, map.operations, map.map);
                       },
                       [&](const StoredEvent& stored) {
                           for (const auto& [name, value] : stored.properties) {
                               auto kept = stored_.find(name);
                               if (kept != stored_.end()) {
                                   if (Origin* winner = FindWinner(name)) {
                                       winner->fate = Fate::kOverridden;
                                   }
                                   winners_[name] = kept->second;
                                   continue;
                               }
                               Origin origin;
                               origin.value = value;
                               origin.boot = boot_;
                               Add(name, std::move(origin));
                           }
                       },
                       [&](const PropertyEvent& property) {
                           inputs_ = &property.inputs;
                           AddOperation(OriginKind::kOperation, property.name, property.value,
                                        property.operations);
                       },
                       [&](const RequestEvent& request) {
                           AddOperation(OriginKind::kRequest, request.name, request.value, {});
                       },
                       [&](const LoadEvent& load) { loads_.push_back(load); },
                       [&](const LookUpEvent& look_up) { look_up_ = look_up; },
                       [&](const KeyEvent& key) {
                           Origin origin;
                           origin.value = key.value;
                           origin.boot = boot_;
                           origin.step = step_;
                           Add(key.name, std::move(origin));
                       },
                       [](const MountEvent&) {},
                       [](const LogEvent&) {},
                       [](const OpenEvent&) {},
                       [](const RestoreconEvent&) {},
                       [](const LogoEvent&) {},
                       [](const UnacknowledgedEvent&) {},
                       [&](const IdleEvent& idle) {
                           if (!idle.operations.empty()) {
                               idle_[idle.operations.front()] = idle.inputs;
                           }
                       },
               },
               event);
    inputs_ = nullptr;
}

void Tracer::OnLines(const LinesRead& read) {
    const bool looked_up = read.load < 0;
    Origin origin;
    origin.kind = OriginKind::kFile;
    origin.boot = boot_;
    origin.step = step_;
    if (looked_up) {
        origin.file = look_up_.path;
        origin.source = look_up_.source;
        origin.image = look_up_.image;
        origin.operations = look_up_.operations;
        origin.fate = Fate::kLookedUp;
    } else {
        const LoadEvent& load = loads_.at(read.load);
        origin.file = load.path;
        origin.source = load.source;
        origin.image = load.image;
        origin.imported_by = load.imported_by;
        origin.filter = load.filter;
        origin.written = load.written;
        origin.operations = load.operations;
    }
    for (const LineRead& line : read.lines) {
        origin.line = line.number;
        origin.value = line.value;
        const auto changed = changed_.find({origin.own_file(), line.name});
        const bool is_changed = changed != changed_.end() && !origin.written;
        origin.changed_for = !is_changed ? "" : changed->second ? "variant" : "edit";
        if (looked_up) {
            Add(line.name, origin);
        } else if (!line.passed) {
            origin.fate = Fate::kFilteredOut;
            Add(line.name, origin);
        } else {
            Map& map = maps_[loads_.at(read.load).map];
            map.last[line.name] = map.lines.size();
            map.lines.push_back({line.name, origin});
        }
    }
}

// Adds the origins of what init was given: for each name the map's last line if that has the value,
// else the operation itself.
void Tracer::HandOver(const Handover& handover, const std::vector<std::string>& operations,
                      std::optional<int> number) {
    Map none;
    Map& map = number ? maps_[*number] : none;
    std::set<std::string> refused;
    for (const Refusal& refusal : handover.refused) refused.insert(refusal.name);

    // Earlier lines of a name lose to its last one.
    for (size_t i = 0; i < map.lines.size(); ++i) {
        Assignment& line = map.lines[i];
        if (line.handed || handover.properties.count(line.name) == 0) continue;
        if (map.last[line.name] == i) continue;
        line.handed = true;
        line.origin.fate = Fate::kOverridden;
        Add(line.name, line.origin);
    }
    for (const auto& [name, value] : handover.properties) {
        auto last = map.last.find(name);
        const bool is_refused = refused.count(name) != 0;
        if (last == map.last.end() || map.lines[last->second].origin.value != value) {
            if (last != map.last.end()) {
                map.lines[last->second].origin.fate = Fate::kOverridden;
                map.lines[last->second].handed = true;
                Add(name, map.lines[last->second].origin);
                map.last.erase(last);
            }
            if (!is_refused) AddOperation(OriginKind::kOperation, name, value, operations);
            continue;
        }
        Assignment& line = map.lines[last->second];
        const Origin* winner = Winner(name);
        const bool stands = line.handed && winner != nullptr && winner->kind == OriginKind::kFile &&
                            winner->line == line.origin.line &&
                            winner->own_file() == line.origin.own_file();
        line.handed = true;
        if (stands) continue;
        line.origin.fate = is_refused ? Fate::kRefused : Fate::kWins;
        Add(name, line.origin);
    }
}

void Tracer::OnStepEnd() {
    for (auto map = maps_.begin(); map != maps_.end();) {
        for (Assignment& line : map->second.lines) {
            if (line.handed) continue;
            line.handed = true;
            line.origin.fate = Fate::kNotHandedOn;
            Add(line.name, line.origin);
        }
        map = own_map_ && map->first == *own_map_ ? std::next(map) : maps_.erase(map);
    }
}

Origins Tracer::Origins() const {
    extprop::Origins once;
    for (const auto& [name, origins] : origins_) once[name] = OncePerLine(origins);
    return once;
}

}  // namespace extprop
