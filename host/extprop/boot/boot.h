// Boots a device directory and tells what happened.

#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "boot/init_process.h"
#include "boot/message.h"
#include "boot/what_if.h"

namespace extprop {

struct BootOptions {
    std::string device;                   // the device directory
    sandbox::Options images;              // which are read
    BootPlan plan;                        // its properties are set again after a reboot
    bool names_no_steps = false;          // the plan's are those that go without saying
    WhatIf what_if;                       // made so before the first boot
    std::chrono::seconds time_limit{30};  // for each step
};

// Is told of a boot as it happens, in the order of time.
class BootListener {
  public:
    virtual ~BootListener() = default;
    virtual void OnBoot(const BootStart& start) = 0;
    virtual void OnStep(const std::string& step) = 0;
    virtual void OnEvent(const Event& event) = 0;
    virtual void OnLines(const LinesRead& lines) = 0;
    virtual void OnStepEnd() = 0;
};

// What a command line can be given besides: what if the device were so, --set, and steps.
struct Addition {
    Variant variant;
    PropertyMap settings;
    std::vector<std::string> steps;
};

// Adds it to the options, as the command line with its words would have them.
void Add(const Addition& addition, BootOptions* options);

// Returns its words, options first, such as {"--region", "IN", "sim"}. A command line that names no
// steps and gets some has to name those that go without saying, too.
std::vector<std::string> WordsOf(const Addition& addition, bool names_no_steps);

// A device directory with a throw-away layer, and the changes that were asked for made in it.
class PreparedDevice {
  public:
    // Throws InputError if the directory cannot be used, std::runtime_error if the sandbox or
    // library cannot be had.
    explicit PreparedDevice(const BootOptions& options);

    // The same of a device whose files are read already.
    PreparedDevice(const BootOptions& options, std::shared_ptr<sandbox::DeviceFiles> files);

    const sandbox::Sandbox& root() const { return root_; }

    // Makes it as new, with other options for the same device. Throws as above. A process that has
    // it from its parent has to do so first.
    void Reset(const BootOptions& options);

    // Performs the steps. A crash or hang of the library is part of the report. Call it once,
    // or once for each Reset. The listener is told of the lines, too, if it is told which are
    // `traced`.
    Report Boot(BootListener* listener = nullptr,
                const std::function<bool(const std::string& name)>& traced = nullptr);

  private:
    bool tells_files() const { return options_.plan.detail != Detail::kNothing; }

    void Prepare();
    void PrepareSplashPartition();
    void NoteOverridden();

    BootOptions options_;
    FetchExtension fetch_;
    std::string path_;
    std::vector<std::string> notes_;  // that each report begins with
    std::map<std::pair<std::string, std::string>, bool> changed_;
    Report report_;
    sandbox::Sandbox root_;
};

}  // namespace extprop
