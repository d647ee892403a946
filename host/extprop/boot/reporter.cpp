#include "boot/reporter.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <string_view>

#include <android-base/file.h>
#include <android-base/properties.h>
#include <android-base/strings.h>

#include "TesvoExtensionProperty/names.h"
#include "boot/call_chain.h"
#include "boot/ending.h"
#include "budget.h"
#include "device/legal.h"
#include "device/places.h"
#include "device/property_lines.h"

namespace extprop {

namespace {

using android::init::kSplashPartition;

constexpr struct {
    unsigned long flag;
    const char* name;
} kMountFlags[] = {
        {MS_RDONLY, "MS_RDONLY"},   {MS_NOSUID, "MS_NOSUID"},   {MS_NODEV, "MS_NODEV"},
        {MS_NOEXEC, "MS_NOEXEC"},   {MS_REMOUNT, "MS_REMOUNT"}, {MS_DIRSYNC, "MS_DIRSYNC"},
        {MS_NOATIME, "MS_NOATIME"}, {MS_BIND, "MS_BIND"},       {MS_REC, "MS_REC"},
};

std::vector<std::string> FlagNames(unsigned long flags) {
    std::vector<std::string> names;
    for (const auto& known : kMountFlags) {
        if ((flags & known.flag) != 0) names.emplace_back(known.name);
    }
    return names;
}

const char* SeverityName(android::base::LogSeverity severity) {
    constexpr const char* kNames[] = {"VERBOSE", "DEBUG", "INFO", "WARNING",
                                      "ERROR",   "FATAL", "FATAL"};
    return kNames[severity];
}

// While an object of this exists, the tool itself acts on this thread, and nothing is reported.
class Unobserved {
  public:
    Unobserved() { ++depth; }
    ~Unobserved() { --depth; }
    Unobserved& operator=(Unobserved&&) = delete;
    static bool IsOn() { return depth > 0; }

  private:
    static thread_local int depth;
};

thread_local int Unobserved::depth = 0;

// The paths, without links, of the mount that this thread is about to make.
thread_local struct { std::optional<std::string> source, target; } mounting;

// Returns the content of a regular file or block device; "" for anything else, which might have no
// end.
std::string LogoContent(const std::string& path) {
    struct stat status;
    std::string content;
    if (stat(path.c_str(), &status) != 0) return "";
    if (!S_ISREG(status.st_mode) && !S_ISBLK(status.st_mode)) return "";
    android::base::ReadFileToString(path, &content, true);
    return content;
}

}  // namespace

void Reporter::Send(Message message) {
    std::lock_guard<std::mutex> lock(mutex_);
    SendMessage(channel_, std::move(message), &emitted_bytes_);
    if (emitted_bytes_ > limits::kEvents) EndAt(Limit::kEvents);
}

void Reporter::Emit(Event event) {
    if (reports_events()) Send(std::move(event));
}

void Reporter::MakeRecord(const DeviceImports& imports, const std::set<std::string>& watched) {
    recorder_.emplace(tracker_, imports);
    watched_ = &watched;
}

BootRecord Reporter::TakeRecord() {
    std::lock_guard<std::mutex> lock(record_mutex_);
    BootRecord record = std::exchange(record_, {});
    if (recorder_) record.Add(recorder_->Take());
    return record;
}

void Reporter::OnStep(const std::string& step) {
    std::lock_guard<std::mutex> lock(record_mutex_);
    if (recorder_) recorder_->OnStep(step);
}

void Reporter::Note(const std::string& name, const std::string& value) const {
    if (watched_ == nullptr || watched_->count(name) == 0) return;
    std::lock_guard<std::mutex> lock(record_mutex_);
    record_.given[name].insert(value);
}

bool Reporter::IsReported(const std::string& name) const {
    return detail_ == Detail::kEverything || (wanted_ && wanted_(name));
}

PropertyMap Reporter::Reported(PropertyMap properties) const {
    for (auto property = properties.begin(); property != properties.end();) {
        property = IsReported(property->first) ? std::next(property) : properties.erase(property);
    }
    return properties;
}

// Sets the properties, except those that init refuses. Returns what became of those that are
// reported; the properties are copied only if they are reported and used later.
template <typename Properties>
Handover Reporter::Apply(Properties&& properties) const {
    Handover handover;
    for (const auto& [name, value] : properties) {
        const auto reason =
                platform::IsExpected(name, value) ? std::nullopt : WhyRefused(name, value);
        if (reason) {
            if (IsReported(name)) handover.refused.push_back({name, value, *reason});
            continue;
        }
        std::optional<std::string> previous = platform::StoreProperty(name, value);
        Note(name, value);
        if (previous == value || !IsReported(name)) continue;
        handover.changes.push_back({name, std::move(previous)});
    }
    if (reports_events()) {
        handover.properties = Reported(std::forward<Properties>(properties));
    }
    return handover;
}

void Reporter::OnCallback(int mode, PropertyMap properties, const void* frame) {
    const Unobserved unobserved;
    CallbackEvent event;
    event.mode = mode;
    if (reports_events()) {
        event.operations = CallChain();
        event.map = tracker_.HandedOver(event.operations, frame);
        event.inputs = TakeReads(event.operations);
    }
    std::lock_guard<std::mutex> change(platform::ChangeMutex());
    static_cast<Handover&>(event) = Apply(std::move(properties));
    Emit(std::move(event));
}

void Reporter::OnMap(const PropertyMap& loaded, const PropertyMap* map, const char* operation) {
    MapEvent event;
    event.operations = {operation};
    event.map = tracker_.TakenOver(map);
    std::lock_guard<std::mutex> change(platform::ChangeMutex());
    static_cast<Handover&>(event) = Apply(loaded);
    Emit(std::move(event));
}

void Reporter::OnStored(const PropertyMap& stored) {
    std::lock_guard<std::mutex> change(platform::ChangeMutex());
    Emit(StoredEvent{Apply(stored)});
}

void Reporter::OnRequest(const std::string& name, const std::string& value) {
    std::lock_guard<std::mutex> change(platform::ChangeMutex());
    platform::StoreProperty(name, value);
    Emit(RequestEvent{name, value});
}

void Reporter::OnKey(const std::string& name, const std::string& value) {
    std::lock_guard<std::mutex> change(platform::ChangeMutex());
    platform::StoreProperty(name, value);
    Emit(KeyEvent{name, value});
}

void Reporter::OnWrite(const Edit& edit) {
    const Unobserved unobserved;
    if (!MakeEdit(edit)) {
        last_file_->Set(edit.path.c_str());
        _exit(kChangesFailed);
    }
    tracker_.Written(edit.path);
}

void Reporter::OnLog(android::base::LogSeverity severity, const char* file, unsigned line,
                     const char* message) {
    if (detail_ != Detail::kEverything) return;
    Send(LogEvent{SeverityName(severity), file, static_cast<int>(line), message});
}

void Reporter::OnStepEnd() {
    EmitIdle();
    ReportLogo();
}

void Reporter::ReportLogo() {
    if (logo_source_.empty()) return;
    const Unobserved unobserved;
    const std::string logo = LogoContent(logo_source_);
    if (!logo.empty() && android::base::StartsWith(LogoContent(kSplashPartition), logo)) {
        Emit(LogoEvent{logo_source_, static_cast<int>(logo.size())});
    }
    logo_source_.clear();
}

void Reporter::OnOpen(const char* path, int flags) {
    if (Unobserved::IsOn()) return;
    const Unobserved unobserved;
    const bool writes = (flags & O_ACCMODE) != O_RDONLY;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        last_file_->Set(path);
        if (++opens_ > limits::kOpens) EndAt(Limit::kOpens);
        if (!writes) {
            last_read_ = path;
        } else if (std::string_view(path) == kSplashPartition) {
            logo_source_ = last_read_;
        }
    }
    if (writes) tracker_.Written(path);
    if (!writes && wanted_ && reports_events()) AddSmallFile(path);
    if (detail_ == Detail::kEverything) Send(OpenEvent{path, writes});
}

void Reporter::OnOpened(int fd) {
    if (Unobserved::IsOn()) return;
    // A directory's end may be anywhere; a file beyond the limit cannot be opened.
    const off_t size = lseek(fd, 0, SEEK_END);
    if (size <= 0) return;
    lseek(fd, 0, SEEK_SET);
    if (size > static_cast<off_t>(limits::kPartitionFile)) return;
    if ((opened_bytes_ += size) > limits::kOpenedBytes) EndAt(Limit::kOpenedBytes);
}

void Reporter::OnLoad(const char* path, const char* filter, const PropertyMap* properties) {
    const Unobserved unobserved;
    if (recorder_) {
        std::lock_guard<std::mutex> lock(record_mutex_);
        recorder_->Begin(path, filter == nullptr ? "" : filter);
    }
    if (follows_loads()) tracker_.Begin(path, filter, properties);
}

void Reporter::OnLoaded(const PropertyMap* properties, bool loaded) {
    const Unobserved unobserved;
    if (follows_loads()) tracker_.End(properties);
    if (recorder_) {
        std::lock_guard<std::mutex> lock(record_mutex_);
        recorder_->End(loaded);
    }
}

void Reporter::AddRead(std::vector<std::string> operations, OperationInput input) {
    constexpr size_t kMost = 1000;
    std::lock_guard<std::mutex> lock(reads_mutex_);
    if (reads_.size() < kMost) reads_.push_back({std::move(operations), std::move(input)});
}

// Records a small file that an operation opens by itself, such as one with a size, as one value.
void Reporter::AddSmallFile(const char* path) {
    constexpr size_t kSmall = 64;
    // Lines of other files are reported; only a key file may hold nothing but the key.
    if (UseOf(path).value_or(FileUse::kKeyFile) != FileUse::kKeyFile) return;
    std::vector<std::string> operations = CallChain();
    if (operations.empty()) return;
    const std::string content = LoadTracker::Content(path).value_or(std::string(kSmall + 1, '\0'));
    if (content.size() > kSmall) return;
    AddRead(std::move(operations), {path, android::base::Trim(content), path, 0});
}

// Returns and removes what was read by these functions before they handed something to init.
std::vector<OperationInput> Reporter::TakeReads(const std::vector<std::string>& operations) {
    std::lock_guard<std::mutex> lock(reads_mutex_);
    std::vector<OperationInput> inputs;
    for (auto read = reads_.begin(); read != reads_.end() && !operations.empty();) {
        const auto& chain = read->operations;
        if (std::find(chain.begin(), chain.end(), operations.front()) == chain.end()) {
            ++read;
            continue;
        }
        inputs.push_back(std::move(read->input));
        read = reads_.erase(read);
    }
    return inputs;
}

// Reports, for each innermost function, what was read without setting a property.
void Reporter::EmitIdle() {
    std::map<std::string, IdleEvent> idle;
    {
        std::lock_guard<std::mutex> lock(reads_mutex_);
        for (Read& read : reads_) {
            // What no named function of the library has read belongs to no operation.
            auto& operations = read.operations;
            if (operations.empty()) continue;
            IdleEvent& event = idle[operations.front()];
            event.operations = std::move(operations);
            event.inputs.push_back(std::move(read.input));
        }
        reads_.clear();
    }
    for (auto& [operation, event] : idle) Emit(std::move(event));
}

void Reporter::OnPropertyGet(const std::string& name) {
    if (wanted_ && reports_events() && !Unobserved::IsOn()) {
        const Unobserved unobserved;
        AddRead(CallChain(), {name, android::base::GetProperty(name, ""), std::nullopt, 0});
    }
    if (!recorder_ || Unobserved::IsOn()) return;
    std::lock_guard<std::mutex> lock(record_mutex_);
    record_.asked.insert(name);
}

void Reporter::OnLookUp(const char* path, const char* name) {
    if (!reports_events()) return;
    const Unobserved unobserved;
    LookUpEvent event;
    event.path = PlainPath(path);
    event.source = tracker_.SourceOf(path);
    event.name = name;
    event.operations = CallChain();
    LinesRead read{-1, {}};
    const std::string content = LoadTracker::Content(path).value_or("");
    // As in the library's look-up: the first line that begins so and has an "=".
    for (const PropertyLine& line : PropertyLines(content, true)) {
        if (line.kind != PropertyLine::kProperty) continue;
        if (!android::base::StartsWith(line.text, name)) continue;
        event.line = line.number;
        const std::string full_name(line.name);
        if (wanted_ && wanted_(full_name)) {
            read.lines.push_back({line.number, full_name, std::string(line.value), true});
        }
        break;
    }
    if (wanted_) {
        OperationInput input{event.name, "", event.source.value_or(event.path), 0};
        for (const PropertyLine& line : PropertyLines(content, true)) {
            if (line.number != event.line) continue;
            input.name = line.name;
            input.value = line.value;
            input.line = line.number;
        }
        AddRead(event.operations, std::move(input));
    }
    Send(std::move(event));
    if (!read.lines.empty()) Send(std::move(read));
}

void Reporter::OnMounting(const char* source, const char* target) {
    const Unobserved unobserved;
    mounting = {RealPath(source, true), RealPath(target, true)};
}

void Reporter::OnMount(const char* source, const char* target, unsigned long flags, int result,
                       int error) {
    const Unobserved unobserved;
    MountEvent event{source, target, FlagNames(flags), std::nullopt, std::nullopt};
    if (result != 0) {
        event.error = strerror(error);
    } else {
        event.covers = mounting.target.value_or(target);
        tracker_.Bound(mounting.source.value_or(source), *event.covers, (flags & MS_REC) != 0);
    }
    Emit(std::move(event));
}

void Reporter::OnPropertySet(const std::string& name, const std::string& value) {
    Note(name, value);
    if (!reports_events()) return;
    const Unobserved unobserved;
    PropertyEvent event{name, value, CallChain(), {}};
    event.inputs = TakeReads(event.operations);
    Send(std::move(event));
}

void Reporter::OnRestorecon(const char* path, unsigned int flags, int result) {
    Emit(RestoreconEvent{path, static_cast<int>(flags), result});
}

}  // namespace extprop
