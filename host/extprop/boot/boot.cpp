#include "boot/boot.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <memory>

#include <android-base/unique_fd.h>

#include "TesvoExtensionProperty/names.h"
#include "boot/ending.h"
#include "boot/import_cycle.h"
#include "budget.h"
#include "device/device_root.h"
#include "device/legal.h"
#include "input_error.h"
#include "led_calls.h"
#include "named_file.h"
#include "platform.h"
#include "printable.h"

namespace extprop {

namespace {

using android::base::unique_fd;
using android::init::kSplashPartition;
using std::chrono::steady_clock;

// One boot: the process that plays init, and what it has sent.
class BootedDevice {
  public:
    // Makes the changes of `what_if` in that process first, unless it is null.
    BootedDevice(const sandbox::Sandbox& root, FetchExtension fetch, const BootPlan& plan,
                 const WhatIf* what_if, BootListener* listener)
            : root_(root),
              process_(Start(root, fetch, plan, what_if)),
              listener_(listener),
              properties_(plan.properties) {}

    // Performs the step, whose `index` is that of EmulateInit(), and adds its events to `*events`.
    // Waits for the bind thread if the step starts it. Sets `*performed` to false if the step was
    // not needed. Returns the failure if the process crashed, hung or reached a limit.
    std::optional<BootFailure> Perform(const Step& step, int index, std::chrono::seconds limit,
                                       std::vector<Event>* events, bool* performed) {
        const auto deadline = steady_clock::now() + limit;
        Received received = Await(index, deadline, events);
        *performed = performed_;
        if (received == Received::kMessage && step.starts_bind_thread()) {
            received = process_.WaitForThreads(deadline) ? Await(kNoStep, deadline, events)
                                                         : Received::kTimeOut;
        }
        return FailureUnlessDone(received, step.text, limit);
    }

    // Requests the end of the boot, and so what no step has reported yet. Returns the failure in
    // the same way, as one of the boot's last step.
    std::optional<BootFailure> End(const std::string& last_step, std::chrono::seconds limit,
                                   std::vector<Event>* events) {
        const auto deadline = steady_clock::now() + limit;
        return FailureUnlessDone(Await(kEndOfBoot, deadline, events), last_step, limit);
    }

    // Returns the system's properties after the last step that succeeded.
    const PropertyMap& properties() const { return properties_; }
    const std::vector<std::string>& removed() const { return removed_; }

    // Returns what the boot has read, after its end, if the plan has a record made.
    BootRecord& record() { return record_; }

    // Returns whether the failure is that a change could not be made.
    bool changes_failed() const { return changes_failed_; }

  private:
    sandbox::Process Start(const sandbox::Sandbox& root, FetchExtension fetch, const BootPlan& plan,
                           const WhatIf* what_if) {
        unique_fd theirs;
        if (!android::base::Socketpair(SOCK_STREAM | SOCK_CLOEXEC, &channel_, &theirs)) {
            throw std::runtime_error(std::string("socketpair: ") + strerror(errno));
        }
        return root.Start([&] {
            channel_.reset();
            platform::SetSystemCalls(sandbox::LeadCall);
            EndAtMemoryLimit();
            if (what_if != nullptr && !MakeChangesHere(*what_if)) return kChangesFailed;
            return EmulateInit(fetch, plan, theirs.get(), &last_file_);
        });
    }

    // Sends the request and collects events until it is done. Returns kMessage if that succeeds.
    Received Await(int request, steady_clock::time_point deadline, std::vector<Event>* events) {
        if (!SendMessage(channel_, StepRequest{request})) return Received::kEnd;
        Message message;
        Received received;
        bool done = false;
        while (!done && (received = ReceiveMessage(channel_, deadline, &message, &left_)) ==
                                Received::kMessage) {
            std::visit(Overloaded{
                               [](const StepRequest&) {},
                               [&](StepDone& step) {
                                   properties_ = std::move(step.delta.changed);
                                   removed_ = std::move(step.delta.removed);
                                   performed_ = step.performed;
                                   record_ = std::move(step.record);
                                   done = true;
                               },
                               [&](Event& event) {
                                   FindImage(&event);
                                   if (listener_ != nullptr) listener_->OnEvent(event);
                                   events->push_back(std::move(event));
                               },
                               [&](const LinesRead& lines) {
                                   if (listener_ != nullptr) listener_->OnLines(lines);
                               },
                       },
                       message);
        }
        return received;
    }

    // Adds the image that holds a loaded file, which the process cannot see.
    void FindImage(Event* event) const {
        if (auto* load = std::get_if<LoadEvent>(event)) {
            load->image = root_.ImageOf(load->source.value_or(load->path));
        } else if (auto* look_up = std::get_if<LookUpEvent>(event)) {
            look_up->image = root_.ImageOf(look_up->source.value_or(look_up->path));
        }
    }

    // Returns how the process ended, or is ended here, unless it has done what was requested.
    std::optional<BootFailure> FailureUnlessDone(Received received, const std::string& step,
                                                 std::chrono::seconds limit) {
        if (received == Received::kMessage) return std::nullopt;
        channel_.reset();  // a process that still sends what is too large must not wait
        const sandbox::Ending ending =
                process_.Wait(received == Received::kTimeOut ? std::chrono::seconds(0) : limit);
        changes_failed_ = ending.exit_status == kChangesFailed;
        const std::string met = LimitOf(ending.exit_status);
        BootFailure failure;
        failure.step = step;
        failure.timed_out = ending.timed_out;
        if (!met.empty()) failure.limit = met;
        if (!ending.timed_out && ending.signal != 0) {
            failure.signal = std::string("SIG") + sigabbrev_np(ending.signal);
        }
        if (const std::string file = last_file_.Get(); !file.empty()) failure.last_file = file;
        return failure;
    }

    const sandbox::Sandbox& root_;
    unique_fd channel_;
    size_t left_ = 2 * limits::kEvents;  // more than the limit in the process itself
    LastFile last_file_;
    sandbox::Process process_;
    BootListener* listener_;
    PropertyMap properties_;
    std::vector<std::string> removed_;
    BootRecord record_;
    bool performed_ = true;
    bool changes_failed_ = false;
};

// Moves the persistent properties to the stored ones, which take effect later in a boot.
void SeparateStored(BootPlan* plan) {
    for (auto property = plan->properties.begin(); property != plan->properties.end();) {
        if (!IsPersistent(property->first)) {
            ++property;
            continue;
        }
        plan->stored.insert(*property);
        property = plan->properties.erase(property);
    }
}

bool HasChanges(const WhatIf& what_if) {
    return what_if.variant != Variant() || !what_if.edits.empty();
}

// Adds the variant's switch keys to the plan, which keeps them in force.
void AddKeys(const Variant& variant, BootPlan* plan) {
    for (int axis = kFirstKeyAxis; axis < kAxisCount; ++axis) {
        if (!variant[axis]) continue;
        const SwitchKey& key = KeyOf(axis);
        plan->keys.push_back(
                {key.property, *variant[axis], ParseStep(std::string("sim:") + key.command)});
    }
}

// Adds the persistent keys to the stored properties, as the phone's system stores them.
void StoreKeys(BootPlan* plan) {
    for (const KeyInForce& key : plan->keys) {
        if (IsPersistent(key.property)) plan->stored[key.property] = key.value;
    }
}

std::vector<FileEffect> FileChanges(sandbox::Sandbox* root) {
    std::vector<FileEffect> files;
    for (const sandbox::FileChange& change : root->TakeChanges()) {
        files.push_back({change.path, sandbox::Name(change.kind)});
    }
    return files;
}

}  // namespace

PreparedDevice::PreparedDevice(const BootOptions& options)
        : options_(options),
          fetch_(LoadExtension()),
          path_(DevicePath(options.device)),
          root_(path_, options.images) {
    const Utf8Locale loaded;
    if (const auto why = WhyNoDevice(DeviceTree(root_.view()))) {
        notes_.push_back(options.device + ": " + *why);
    }
    Prepare();
}

PreparedDevice::PreparedDevice(const BootOptions& options,
                               std::shared_ptr<sandbox::DeviceFiles> files)
        : options_(options), fetch_(LoadExtension()), root_(std::move(files)) {
    const Utf8Locale loaded;
    Prepare();
}

void PreparedDevice::Reset(const BootOptions& options) {
    options_ = options;
    root_.Reset();
    Prepare();
}

void PreparedDevice::Prepare() {
    report_ = {path_, notes_, {}, {}, std::nullopt, {}};
    const auto& steps = options_.plan.steps;
    if (std::all_of(steps.begin(), steps.end(), std::mem_fn(&Step::is_reboot))) {
        report_.notes.emplace_back("no step but reboot is given, so no step calls the library");
    }
    changed_.clear();
    if (reports_files() && HasChanges(options_.what_if)) {
        changed_ = MakeChanges(options_.what_if, root_);
    }
    SeparateStored(&options_.plan);
    AddKeys(options_.what_if.variant, &options_.plan);
    PrepareSplashPartition();
}

// If the plan writes to the splash partition, makes that a block device, as on a phone. In a device
// directory it is a regular file.
void PreparedDevice::PrepareSplashPartition() {
    const std::vector<Step>& steps = options_.plan.steps;
    const bool wanted = std::any_of(steps.begin(), steps.end(),
                                    [](const Step& step) { return step.copies_logo(); });
    if (wanted) root_.AttachBlockDevice(kSplashPartition);
}

Report PreparedDevice::Boot(BootListener* listener,
                            const std::function<bool(const std::string& name)>& traced) {
    BootPlan plan = options_.plan;
    plan.traced = traced;
    std::unique_ptr<BootedDevice> booted;
    std::string last_step;
    const auto start = [&] {
        booted.reset();  // no process of the old boot may still change files
        StoreKeys(&plan);
        // If changes of files are not reported, the process itself makes the what-if changes, which
        // is faster.
        const bool changes =
                !reports_files() && report_.boots.empty() && HasChanges(options_.what_if);
        booted = std::make_unique<BootedDevice>(root_, fetch_, plan,
                                                changes ? &options_.what_if : nullptr, listener);
        report_.boots.push_back({plan.properties, plan.stored, changed_});
        if (listener != nullptr) listener->OnBoot(report_.boots.back());
    };
    const auto end = [&] {
        std::vector<Event> none;
        const bool same_boot = !report_.steps.empty() &&
                               report_.steps.back().boot == static_cast<int>(report_.boots.size());
        report_.failure = booted->End(last_step, options_.time_limit,
                                      same_boot ? &report_.steps.back().events : &none);
        report_.record.Add(std::move(booted->record()));
    };
    const auto perform = [&](const Step& step, int index) {
        // A property that a step sets is no longer kept at the what-if option's value.
        if (const auto setting = step.setting()) {
            const auto is_set = [&](const KeyInForce& key) {
                return key.property == setting->first;
            };
            plan.keys.erase(std::remove_if(plan.keys.begin(), plan.keys.end(), is_set),
                            plan.keys.end());
        }
        last_step = step.text;
        if (listener != nullptr) listener->OnStep(step.text);
        StepReport done{static_cast<int>(report_.boots.size()), step.text, {}, {}};
        bool performed = true;
        report_.failure =
                booted->Perform(step, index, options_.time_limit, &done.events, &performed);
        if (report_.failure && report_.failure->signal) {
            report_.failure->cycle = ImportCycle(done.events);
            // The stack overflows in any file of the cycle by chance, so the first is reported.
            const auto& cycle = report_.failure->cycle;
            if (!cycle.empty()) {
                report_.failure->last_file = cycle.front().substr(0, cycle.front().rfind(':'));
            }
        }
        if (listener != nullptr) listener->OnStepEnd();
        if (!performed) return;
        if (reports_files()) done.files = FileChanges(&root_);
        for (const FileEffect& file : done.files) plan.written.insert(file.path);
        report_.steps.push_back(std::move(done));
    };

    start();
    if (reports_files()) root_.TakeChanges();  // discards those that prepared the boot
    for (size_t i = 0; i < plan.steps.size() && !report_.failure; ++i) {
        const Step& step = plan.steps[i];
        if (step.is_reboot()) {
            last_step = step.text;
            end();
            if (report_.failure) break;
            // Persistent properties are kept, and given properties are set again.
            plan.properties = options_.plan.properties;
            plan.stored = options_.plan.stored;
            for (const auto& [name, value] : booted->properties()) {
                if (IsPersistent(name)) plan.stored[name] = value;
            }
            start();
            continue;
        }
        perform(step, static_cast<int>(i));
    }
    // A boot may delete key files before it reads them. After the default steps, the steps of such
    // keys are performed, as init does when a key changes.
    for (size_t i = 0; i < plan.keys.size() && options_.uses_default_steps && !report_.failure;
         ++i) {
        perform(plan.keys[i].step, static_cast<int>(plan.steps.size() + i));
    }
    if (!report_.failure) end();
    if (booted->changes_failed()) {
        if (HasChanges(options_.what_if)) MakeChanges(options_.what_if, root_);  // which throws
        throw InputError("step " + report_.failure->step + ": " +
                         report_.failure->last_file.value_or("") + " cannot be written");
    }
    report_.properties = booted->properties();
    report_.removed = booted->removed();
    if (!report_.failure && plan.expected == nullptr) NoteOverridden();
    for (const std::string& note : root_.Notes()) report_.notes.push_back(note);
    return std::move(report_);
}

// Adds a note on given properties that have other values at the end.
void PreparedDevice::NoteOverridden() {
    constexpr size_t kMostListed = 5;
    PropertyMap given = options_.plan.properties;
    given.insert(options_.plan.stored.begin(), options_.plan.stored.end());
    std::vector<std::string> overridden;
    for (const auto& [name, value] : given) {
        const auto found = report_.properties.find(name);
        if (found == report_.properties.end() || found->second != value) overridden.push_back(name);
    }
    if (overridden.empty()) return;
    const size_t listed = std::min(overridden.size(), kMostListed);
    std::string note = std::to_string(overridden.size()) + " of " +
                       Count(given.size(), "given value was", "given values were") +
                       " overridden: ";
    for (size_t i = 0; i < listed; ++i) note += (i == 0 ? "" : ", ") + overridden[i];
    const size_t more = overridden.size() - listed;
    report_.notes.push_back(more == 0 ? note : note + " and " + std::to_string(more) + " more");
}

void BootRecord::Add(BootRecord more) {
    loads.merge(more.loads);
    imports.merge(more.imports);
    asked.merge(more.asked);
    for (auto& [name, values] : more.given) given[name].merge(values);
}

void Add(const Addition& addition, BootOptions* options) {
    for (int axis = 0; axis < kAxisCount; ++axis) {
        if (addition.variant[axis]) options->what_if.variant[axis] = addition.variant[axis];
    }
    for (const auto& [name, value] : addition.settings) options->plan.properties[name] = value;
    for (const std::string& step : addition.steps) {
        options->plan.steps.push_back(ParseStep(step));
        options->uses_default_steps = false;
    }
}

std::vector<std::string> WordsOf(const Addition& addition, bool uses_default_steps) {
    std::vector<std::string> words;
    for (int axis = 0; axis < kAxisCount; ++axis) {
        if (!addition.variant[axis]) continue;
        words.insert(words.end(), {std::string("--") + kAxes[axis].name, *addition.variant[axis]});
    }
    for (const auto& [name, value] : addition.settings) {
        words.insert(words.end(), {"--set", name + "=" + value});
    }
    if (uses_default_steps && !addition.steps.empty()) {
        words.insert(words.end(), std::begin(kDefaultSteps), std::end(kDefaultSteps));
    }
    words.insert(words.end(), addition.steps.begin(), addition.steps.end());
    return words;
}

}  // namespace extprop
