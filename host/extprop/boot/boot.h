// Boots DEVICE and reports what happened.

#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "boot/init_process.h"
#include "boot/message.h"
#include "boot/what_if.h"

namespace extprop {

struct BootOptions {
    std::string device;                   // DEVICE, as the user names it
    sandbox::Options images;              // which images are read
    BootPlan plan;                        // its properties are set again after each reboot
    bool uses_default_steps = false;      // the plan has the default steps
    WhatIf what_if;                       // applied before the first boot
    std::chrono::seconds time_limit{30};  // for each step
};

// Receives what happens in a boot, in the order of time, on the thread that calls
// PreparedDevice::Boot(). A boot after a reboot begins with OnBoot() again; what a boot reports at
// its end comes after its last OnStepEnd(), which follows a failed step, too.
class BootListener {
  public:
    virtual ~BootListener() = default;
    virtual void OnBoot(const BootStart& start) = 0;
    virtual void OnStep(const std::string& step) = 0;
    virtual void OnEvent(const Event& event) = 0;
    virtual void OnLines(const LinesRead& lines) = 0;
    virtual void OnStepEnd() = 0;
};

// What can be added to a command line: what-if options for the variant, --set, and steps.
struct Addition {
    Variant variant;
    PropertyMap settings;
    std::vector<std::string> steps;
};

// Adds it to the options, as its words would on the command line: values replace those that the
// options have, steps follow theirs. Throws InputError for a step that ParseStep() refuses.
void Add(const Addition& addition, BootOptions* options);

// Returns its words, options first, such as {"--region", "IN", "sim"}. If steps are added to a
// command line that names none, the words begin with the default steps.
std::vector<std::string> WordsOf(const Addition& addition, bool uses_default_steps);

// DEVICE with a copy-on-write layer in which the what-if options are applied.
class PreparedDevice {
  public:
    // Throws InputError if DEVICE cannot be read or a what-if change cannot be made,
    // std::runtime_error if its files or images cannot be used, the sandbox cannot be set up or the
    // library cannot be loaded. A directory that is no device's root is only noted in the reports.
    explicit PreparedDevice(const BootOptions& options);

    // Prepares the same for a device whose files are open already. Does not use the options' device
    // and images; the reports name no device. Throws as above.
    PreparedDevice(const BootOptions& options, std::shared_ptr<sandbox::DeviceFiles> files);

    const sandbox::Sandbox& root() const { return root_; }

    // Makes it like a new one, with other options for the same device; their device and images are
    // not used. Discards all changes of files. Throws as above. A process that has inherited it
    // must call this first.
    void Reset(const BootOptions& options);

    // Performs the steps and returns the report; a crash, hang or limit of the library is part of
    // it. Call it once, or once for each Reset. `listener` may be null; with `traced` it also
    // receives the lines of files whose names that takes. Throws InputError if a what-if change or
    // the file of a step `write` cannot be written, std::runtime_error if no process can be started
    // or an image is damaged.
    Report Boot(BootListener* listener = nullptr,
                const std::function<bool(const std::string& name)>& traced = nullptr);

  private:
    bool reports_files() const { return options_.plan.detail != Detail::kNothing; }

    void Prepare();
    void PrepareSplashPartition();
    void NoteOverridden();

    BootOptions options_;
    FetchExtension fetch_;
    std::string path_;
    std::vector<std::string> notes_;                               // with which each report begins
    std::map<std::pair<std::string, std::string>, bool> changed_;  // as BootStart::changed
    Report report_;
    sandbox::Sandbox root_;
};

}  // namespace extprop
