// A device directory that a test writes, and boots of it with the real library. Paths are absolute
// paths on the device.

#pragma once

#include <chrono>
#include <functional>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <android-base/file.h>
#include <android-base/logging.h>

#include "InitExtensionPropertyImpl.h"
#include "kernel_root.h"
#include "platform.h"

using android::init::IInitExtensionProperty;
using android::init::PropertyMap;

// One hand-over of properties to init.
struct Call {
    int mode;
    PropertyMap properties;

    bool operator==(const Call& other) const;
};
std::ostream& operator<<(std::ostream& out, const Call& call);

// init, in the process of a boot: the extension, and what it has handed over and logged so far.
// Only one may exist in a process.
class Init {
  public:
    Init();

    IInitExtensionProperty* extension;

    // The callback to pass to the extension: it records the call and sets the properties.
    static void Callback(int mode, PropertyMap properties);

    // Returns the calls of the callback since the last TakeCalls().
    std::vector<Call> TakeCalls();

    // Returns the log lines of this severity and above since the last TakeLog(), such as "E text".
    // Forgets the others too.
    std::vector<std::string> TakeLog(android::base::LogSeverity least = android::base::INFO);

    // Set and return a system property; "(unset)" if there is none.
    void Set(const std::string& name, const std::string& value);
    std::string Get(const std::string& name);

  private:
    std::mutex mutex_;
    std::vector<Call> calls_;
    std::vector<std::pair<android::base::LogSeverity, std::string>> log_;
};

class Device {
  public:
    Device();

    // Make or replace a file, or make a directory, with the directories above it; before the first
    // boot or between boots.
    void Write(const std::string& path, const std::string& content);
    void MakeDirectory(const std::string& path);

    // Boots the device and runs `body` as init, in a process of its own. Its failed expectations
    // fail the test, as does a crash or a body that takes longer than a minute. Files that it
    // writes stay for the next boot, properties do not. Throws as KernelRoot does.
    void Boot(const std::function<void(Init&)>& body);

    // Boots the device with a `body` that may crash or hang, and returns how it ended: with status
    // 1 if expectations failed, which does not fail the test here.
    sandbox::Ending BootToTheEnd(const std::function<void(Init&)>& body,
                                 std::chrono::milliseconds limit = std::chrono::seconds(60));

    // Returns a file's content, "(missing)" if it cannot be read.
    std::string Read(const std::string& path);

  private:
    std::string Prepare(const std::string& path);
    KernelRoot& root();

    TemporaryDir directory_;
    std::unique_ptr<KernelRoot> root_;  // from the first boot on
};
