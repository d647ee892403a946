// A device directory made by a test, and boots of it with the real library.

#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
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

// init, inside the sandbox: the extension, and what has come from it so far.
class Init {
  public:
    Init();

    IInitExtensionProperty* extension;

    // The callback to hand to the extension: it keeps the call and sets the properties.
    static void Callback(int mode, PropertyMap properties);

    // Returns the calls since the last time it was asked.
    std::vector<Call> TakeCalls();

    // Returns the log lines of the severity and above, such as "E text", since the last time.
    std::vector<std::string> TakeLog(android::base::LogSeverity least = android::base::INFO);

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

    // Changes the device before its first boot.
    void Write(const std::string& path, const std::string& content);
    void MakeDirectory(const std::string& path);

    // Boots the device and runs `body` as init; its failed expectations fail the test. Written
    // files stay for the next boot.
    void Boot(const std::function<void(Init&)>& body);

    // Boots the device for a `body` that does not come back as it should.
    sandbox::Ending BootToTheEnd(const std::function<void(Init&)>& body,
                                 std::chrono::milliseconds limit = std::chrono::seconds(60));

    // A file's content after a boot; "(missing)" if there is none.
    std::string Read(const std::string& path);

  private:
    std::string Prepare(const std::string& path);
    KernelRoot& root();

    TemporaryDir directory_;
    std::unique_ptr<KernelRoot> root_;  // from the first boot on
};
