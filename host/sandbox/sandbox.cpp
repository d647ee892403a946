#include "sandbox.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "checks.h"
#include "device_files.h"
#include "led_calls.h"
#include "root.h"

using android::base::unique_fd;

namespace sandbox {

namespace {

constexpr char kWayVariable[] = "EXTPROP_SANDBOX";

constexpr struct {
    Way way;
    const char* name;
} kWays[] = {{Way::kRedirect, "redirect"}, {Way::kOverlay, "overlay"}, {Way::kCopy, "copy"}};

constexpr rlim_t kStackLimit = 8 * 1024 * 1024;

// Returns the way that the user asks for, or that the caller does.
Way AskedWay(Way asked) {
    const char* name = getenv(kWayVariable);
    if (asked != Way::kAny || name == nullptr || name[0] == '\0') return asked;
    for (const auto& known : kWays) {
        if (std::string(name) == known.name) return known.way;
    }
    throw std::runtime_error(std::string(kWayVariable) + "=" + name +
                             ": expected redirect, overlay or copy");
}

void SetLimit(int resource, rlim_t soft) {
    rlimit limit;
    if (getrlimit(resource, &limit) != 0) return;
    limit.rlim_cur = std::min(limit.rlim_cur, soft);
    setrlimit(resource, &limit);
}

// Makes a crash look the same whatever the caller or a sanitizer has set up: a signal, no core
// file, and an endless recursion that meets its limit.
void PrepareForCrashes() {
    for (int signal_number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGPIPE}) {
        signal(signal_number, SIG_DFL);
    }
    SetLimit(RLIMIT_CORE, 0);
    SetLimit(RLIMIT_STACK, kStackLimit);
}

Ending EndingOf(int status) {
    Ending ending;
    if (WIFSIGNALED(status)) ending.signal = WTERMSIG(status);
    if (WIFEXITED(status)) ending.exit_status = WEXITSTATUS(status);
    return ending;
}

int WaitFor(pid_t pid) {
    int status = 0;
    TEMP_FAILURE_RETRY(waitpid(pid, &status, 0));
    return status;
}

std::unique_ptr<Root> MakeRoot(Way way, const std::string& device, const Options& options) {
    if (way == Way::kRedirect) {
        return MakeLedRoot(std::make_shared<DeviceFiles>(device, options));
    }
    return MakePrivateRoot(device, options, way == Way::kCopy);
}

}  // namespace

std::string Name(const ImagePlace& place) {
    return place.path + " in " + place.image.substr(place.image.rfind('/') + 1);
}

Process::Process(pid_t pid)
        : pid_(pid), pidfd_(static_cast<int>(syscall(SYS_pidfd_open, pid, 0))) {}

Process::Process(Process&& other) noexcept : pid_(other.pid_), pidfd_(std::move(other.pidfd_)) {
    other.pid_ = -1;
}

Process::~Process() {
    if (pid_ == -1) return;
    kill(pid_, SIGKILL);
    WaitFor(pid_);
}

Ending Process::Wait(std::chrono::milliseconds limit) {
    pollfd ended{pidfd_.get(), POLLIN, 0};
    const bool in_time = TEMP_FAILURE_RETRY(poll(&ended, 1, static_cast<int>(limit.count()))) == 1;
    if (!in_time) kill(pid_, SIGKILL);
    Ending ending = EndingOf(WaitFor(pid_));
    ending.timed_out = !in_time;
    pid_ = -1;
    return ending;
}

bool Process::WaitForThreads(std::chrono::steady_clock::time_point deadline) const {
    const std::string tasks = "/proc/" + std::to_string(pid_) + "/task";
    while (std::chrono::steady_clock::now() < deadline) {
        std::error_code gone;
        const auto threads = std::filesystem::directory_iterator(tasks, gone);
        if (gone || std::distance(begin(threads), end(threads)) <= 1) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
}

Sandbox::Sandbox(const std::string& device, Options options)
        : device_(device), options_(options), way_(AskedWay(options.way)) {
    const bool can_choose = way_ == Way::kAny;
    if (can_choose) way_ = CanLeadCalls() ? Way::kRedirect : Way::kOverlay;
    try {
        root_ = MakeRoot(way_, device, options);
    } catch (const std::runtime_error& error) {
        if (!can_choose || way_ == Way::kRedirect) throw;
        throw std::runtime_error(
                std::string("the kernel takes no filters for system calls here (seccomp), nor can "
                            "there be a private root instead: ") +
                error.what() + "; docs/containers.md tells how to allow either");
    }
}

Sandbox::Sandbox(std::shared_ptr<DeviceFiles> files)
        : way_(Way::kRedirect), root_(MakeLedRoot(std::move(files))) {}

Sandbox::~Sandbox() = default;

void Sandbox::Reset() {
    if (!root_->Reset()) root_ = MakeRoot(way_, device_, options_);
}

const char* Sandbox::way() const {
    for (const auto& known : kWays) {
        if (known.way == way_) return known.name;
    }
    return "";
}

Process Sandbox::Start(const std::function<int()>& function) const {
    const pid_t parent = getpid();
    const pid_t pid = fork();
    Check(pid != -1, "fork");
    if (pid != 0) return Process(pid);

    unique_fd no_input(open("/dev/null", O_RDONLY | O_CLOEXEC));
    dup2(no_input.get(), STDIN_FILENO);
    no_input.reset();
    if (!root_->Enter()) {
        perror("cannot enter the device's root");
        _exit(EXIT_FAILURE);
    }
    // Ends with its parent, also with one that is gone already.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(EXIT_FAILURE);
    PrepareForCrashes();
    umask(0);
    _exit(function());
}

Ending Sandbox::Run(const std::function<int()>& function, std::chrono::milliseconds limit) const {
    return Start(function).Wait(limit);
}

void Sandbox::AttachBlockDevice(const std::string& path) {
    root_->AttachBlockDevice(path);
}

std::string Sandbox::Outside(const std::string& path) const {
    return root_->Outside(path);
}

std::vector<FileChange> Sandbox::TakeChanges() {
    return root_->TakeChanges();
}

std::optional<ImagePlace> Sandbox::ImageOf(const std::string& path) const {
    return root_->ImageOf(path);
}

std::vector<std::string> Sandbox::Notes() const {
    return root_->Notes();
}

}  // namespace sandbox
