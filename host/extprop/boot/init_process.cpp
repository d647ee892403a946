#include "boot/init_process.h"

#include <dlfcn.h>

#include <algorithm>
#include <stdexcept>

#include <android-base/logging.h>
#include <android-base/properties.h>

#include "boot/call_chain.h"
#include "boot/ending.h"
#include "boot/installing_service.h"
#include "boot/message.h"
#include "boot/property_delta.h"
#include "boot/reporter.h"
#include "boot/what_if.h"
#include "device/legal.h"
#include "platform.h"

namespace extprop {

namespace {

constexpr char kFetchFunction[] = "KSVI_FETCH_IInitExtensionProperty";

// The extension's callback is a plain function, so it finds its reporter here.
Reporter* g_reporter = nullptr;

void OnProperties(int mode, PropertyMap properties) {
    g_reporter->OnCallback(mode, std::move(properties), __builtin_frame_address(0));
}

class Init {
  public:
    Init(FetchExtension fetch, const BootPlan& plan, Reporter* reporter)
            : plan_(plan),
              reporter_(reporter),
              context_{fetch(kLibrary), &early_properties_, OnProperties,
                       [this](const std::string& name, const std::string& value) {
                           overtaken_.insert(name);
                           reporter_->OnKey(name, value);
                       },
                       [this](const std::string& path, const std::string& text) {
                           reporter_->OnWrite(WholeFile(path, text));
                       }} {}

    void Perform(const Step& step) {
        // The stored properties take effect after step early.
        if (step.is_early()) early_done_ = true;
        if (!step.is_early() && (early_done_ || !step.is_others())) TakeStored();
        if (step.switches_keys()) SetKeys();
        reporter_->OnStep(step.text);
        reporter_->tracker()->ForgetMaps(&early_properties_);
        if (step.is_early()) {
            PerformEarly(step);
        } else {
            step.kind->perform(context_, step.argument);
        }
        if (step.starts_bind_thread()) EmulateInstallingService(plan_.requests, reporter_);
        reporter_->OnStepEnd();
    }

    // Returns whether the key's property has lost its value, other than by a step that sets it.
    bool IsLost(const KeyInForce& key) const {
        return overtaken_.count(key.property) == 0 &&
               android::base::GetProperty(key.property, "") != key.value;
    }

    // Sets the stored persistent properties, which no early step sees.
    void TakeStored() {
        if (!stored_taken_ && !plan_.stored.empty()) reporter_->OnStored(plan_.stored);
        stored_taken_ = true;
    }

  private:
    void SetKeys() {
        for (const KeyInForce& key : plan_.keys) {
            if (IsLost(key)) reporter_->OnKey(key.property, key.value);
        }
    }

    // Performs the step. Then init sets what the step has added to init's own map.
    void PerformEarly(const Step& step) {
        LoadTracker* tracker = reporter_->tracker();
        const PropertyMap before = early_properties_;
        if (!before.empty()) tracker->NoteNames(&early_properties_);
        step.kind->perform(context_, step.argument);
        PropertyMap loaded;
        if (!before.empty()) loaded = DeltaFrom(before, early_properties_).changed;
        tracker->NoteNames(nullptr);
        for (const std::string& name : tracker->TakeNames()) {
            loaded.emplace(name, early_properties_.at(name));
        }
        const PropertyMap& taken = before.empty() ? early_properties_ : loaded;
        if (!taken.empty()) reporter_->OnMap(taken, &early_properties_, step.kind->operation);
    }

    const BootPlan& plan_;
    Reporter* reporter_;
    PropertyMap early_properties_;
    StepContext context_;
    std::set<std::string> overtaken_;  // properties that steps set
    bool early_done_ = false;
    bool stored_taken_ = false;
};

}  // namespace

FetchExtension LoadExtension() {
    void* library = dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) throw std::runtime_error(dlerror());
    void* fetch = dlsym(library, kFetchFunction);
    if (fetch == nullptr) throw std::runtime_error(dlerror());
    return reinterpret_cast<FetchExtension>(fetch);
}

platform::ExpectedProperties Expect(const PropertyMap& properties) {
    platform::ExpectedProperties expected;
    for (const auto& [name, value] : properties) {
        expected.push_back({&name, &value, !WhyRefused(name, value)});
    }
    return expected;
}

int EmulateInit(FetchExtension fetch, const BootPlan& plan, int channel, LastFile* last_file) {
    Reporter reporter(channel, plan.detail, plan.traced, last_file);
    if (plan.imports != nullptr) reporter.MakeRecord(*plan.imports, *plan.watched);
    for (const std::string& path : plan.written) reporter.tracker()->Written(path);
    g_reporter = &reporter;
    const bool logs = plan.detail == Detail::kEverything;
    android::base::SetMinimumLogSeverity(logs ? android::base::VERBOSE : android::base::FATAL);
    android::base::SetLogger(
            [&reporter](android::base::LogId, android::base::LogSeverity severity, const char*,
                        const char* file, unsigned line,
                        const char* message) { reporter.OnLog(severity, file, line, message); });
    platform::SetObserver(&reporter);
    platform::ResetProperties(plan.properties, plan.expected);

    Init init(fetch, plan, &reporter);
    Message message;
    constexpr auto kForever = std::chrono::steady_clock::time_point::max();
    while (ReceiveMessage(channel, kForever, &message) == Received::kMessage) {
        const int index = std::get<StepRequest>(message).index;
        const int key = index - static_cast<int>(plan.steps.size());
        StepDone done;
        if (index >= 0 && key < 0) {
            init.Perform(plan.steps[index]);
        } else if (index >= 0 && init.IsLost(plan.keys[key])) {
            init.Perform(plan.keys[key].step);
        } else {
            done.performed = false;
        }
        if (index == kEndOfBoot) init.TakeStored();
        if (index == kEndOfBoot) done.record = reporter.TakeRecord();
        if (plan.detail == Detail::kEverything || index == kEndOfBoot) {
            platform::CompareProperties(&done.delta.changed, &done.delta.removed);
        }
        reporter.Send(std::move(done));
    }
    return 0;
}

}  // namespace extprop
