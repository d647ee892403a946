// Boots a device directory and tells what happened.

#pragma once

#include <chrono>
#include <string>

#include "boot/init_process.h"
#include "boot/message.h"
#include "boot/what_if.h"

namespace extprop {

struct BootOptions {
    std::string device;           // the device directory
    sandbox::Options images;      // which are read
    BootPlan plan;                // its properties are set again after a reboot
    bool names_no_steps = false;  // the plan's are those that go without saying
    // Made before the first boot, those of a brand, region and old key, by their option, first.
    std::map<std::string, Edit> named_edits;
    std::vector<Edit> edits;
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
    virtual void OnImport(const ImportRead& import) = 0;
    virtual void OnStepEnd() = 0;
};

// Adds words of a command line to the options: steps, --set, --edit, --brand, --region and --nv.
void AddWords(const Words& words, BootOptions* options);

// A device directory with a throw-away layer, and the changes that were asked for made in it.
class PreparedDevice {
  public:
    // Throws InputError if the directory cannot be used, std::runtime_error if the sandbox or
    // library cannot be had.
    explicit PreparedDevice(const BootOptions& options);

    const sandbox::Sandbox& root() const { return root_; }

    // Makes it as new, with other options for the same device. Throws as above. A process that has
    // it from its parent has to do so first.
    void Reset(const BootOptions& options);

    // Performs the steps. A crash or hang of the library is part of the report. Call it once,
    // or once for each Reset. The listener is told of the lines and imports, too, if it is told
    // which lines are `traced`.
    Report Boot(BootListener* listener = nullptr,
                const std::function<bool(const std::string& name)>& traced = nullptr);

  private:
    bool tells_files() const { return options_.plan.detail != Detail::kNothing; }

    void Prepare();
    void PrepareSplashPartition();

    // All of them, in their order.
    std::vector<Edit> Edits() const;

    BootOptions options_;
    FetchExtension fetch_;
    std::string path_;
    Report report_;
    sandbox::Sandbox root_;
};

}  // namespace extprop
