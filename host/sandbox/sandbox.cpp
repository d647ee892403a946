#include "sandbox.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include <android-base/cmsg.h>

#include "checks.h"
#include "images.h"
#include "loop_device.h"

using android::base::unique_fd;

namespace sandbox {

namespace {

// The places of a sandbox in its own mount namespace, on a tmpfs that nobody else sees.
constexpr char kScratch[] = "/tmp";
constexpr char kDevice[] = "/tmp/device";
constexpr char kUpper[] = "/tmp/upper";
constexpr char kWork[] = "/tmp/work";
constexpr char kRoot[] = "/tmp/root";
constexpr char kImages[] = "/tmp/images";

constexpr rlim_t kStackLimit = 8 * 1024 * 1024;

void WriteProcFile(const std::string& path, const std::string& content) {
    // Opened without O_CREAT and in one write, as these files want it.
    unique_fd fd(OpenOrThrow(path, O_WRONLY));
    Check(write(fd.get(), content.data(), content.size()) != -1, path);
}

// Gives the process a mount namespace of its own, whose mounts stay in it. An ordinary user becomes
// root in a user namespace that knows no other user.
void EnterOwnNamespaces(bool as_root) {
    const uid_t uid = geteuid();
    const gid_t gid = getegid();
    const int flags = CLONE_NEWNS | (as_root ? 0 : CLONE_NEWUSER);
    Check(unshare(flags) == 0, "cannot make private namespaces");
    if (!as_root) {
        WriteProcFile("/proc/self/setgroups", "deny");
        WriteProcFile("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1");
        WriteProcFile("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
    }
    Check(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0,
          "cannot make the mounts private");
}

bool MountOverlay(bool as_root) {
    const std::string options = std::string("lowerdir=") + kDevice + ",upperdir=" + kUpper +
                                ",workdir=" + kWork + (as_root ? "" : ",userxattr");
    return mount("overlay", kRoot, "overlay", 0, options.c_str()) == 0;
}

void CopyDevice(bool as_root) {
    const std::string command = std::string("cp -a ") +
                                (as_root ? "" : "--no-preserve=ownership ") + kDevice + "/. " +
                                kRoot;
    if (system(command.c_str()) != 0) {
        throw std::runtime_error("cannot copy the device directory");
    }
    // The root is a mount point in either case.
    Check(mount(kRoot, kRoot, nullptr, MS_BIND, nullptr) == 0, "cannot bind the copy");
}

// Builds the root, around the calling process, and returns descriptors of it and the namespaces.
std::vector<int> BuildRoot(const std::string& device, Layer layer) {
    const bool as_root = geteuid() == 0;
    EnterOwnNamespaces(as_root);
    // Kept open, because the scratch file system may cover the paths that lead there.
    unique_fd device_fd(OpenOrThrow(device, O_PATH | O_DIRECTORY));
    std::vector<Image> images = OpenImages(device);
    Check(mount("tmpfs", kScratch, "tmpfs", 0, "mode=0755") == 0, "cannot mount a tmpfs");
    for (const char* directory : {kDevice, kUpper, kWork, kRoot}) {
        Check(mkdir(directory, 0755) == 0, directory);
    }
    const std::string source = "/proc/self/fd/" + std::to_string(device_fd.get());
    Check(mount(source.c_str(), kDevice, nullptr, MS_BIND | MS_REC, nullptr) == 0,
          "cannot bind the device directory");
    if (layer == Layer::kCopy || !MountOverlay(as_root)) CopyDevice(as_root);

    std::vector<int> fds = {OpenOrThrow(kRoot, O_RDONLY),
                            OpenOrThrow("/proc/self/ns/mnt", O_RDONLY),
                            OpenOrThrow("/proc/self/ns/user", O_RDONLY)};
    ShowImages(std::move(images), kImages, kRoot);
    return fds;
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

// Does the job in a short-lived process, which may change its namespaces, and returns the
// descriptors that it opened. What the job throws is thrown here.
std::vector<unique_fd> FromChild(const std::function<std::vector<int>()>& job) {
    unique_fd ours, theirs;
    Check(android::base::Socketpair(SOCK_SEQPACKET | SOCK_CLOEXEC, &ours, &theirs), "socketpair");
    const pid_t child = fork();
    Check(child != -1, "fork");
    if (child == 0) {
        std::vector<int> fds;
        std::string message = "done";
        try {
            fds = job();
        } catch (const std::exception& error) {
            message = error.what();
        }
        android::base::SendFileDescriptorVector(theirs, message.data(), message.size(), fds);
        _exit(0);
    }
    theirs.reset();

    constexpr size_t kMaxFds = 3;
    char message[512];
    std::vector<unique_fd> fds;
    const ssize_t size = android::base::ReceiveFileDescriptorVector(ours, message, sizeof(message),
                                                                    kMaxFds, &fds);
    WaitFor(child);
    if (size <= 0) throw std::runtime_error("the private root could not be built");
    if (fds.empty()) throw std::runtime_error(std::string(message, size));
    return fds;
}

}  // namespace

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

Sandbox::Sandbox(const std::string& device, Layer layer) {
    // What keeps the namespaces is that this process holds them open, so they end with it, however
    // it ends.
    std::vector<unique_fd> fds = FromChild([&] { return BuildRoot(device, layer); });
    root_ = std::move(fds[0]);
    mount_namespace_ = std::move(fds[1]);
    if (geteuid() != 0) user_namespace_ = std::move(fds[2]);
}

void Sandbox::AttachBlockDevice(const std::string& path) {
    std::vector<unique_fd> fds = FromChild([&] {
        Check(Enter(), "cannot enter the private root");
        const std::string file = kRoot + path;
        LoopDevice loop = AttachLoopDevice(OpenOrThrow(file, O_RDWR), O_RDWR);
        Check(mount(loop.path.c_str(), file.c_str(), nullptr, MS_BIND, nullptr) == 0,
              "cannot bind " + loop.path);
        return std::vector<int>{loop.fd.release()};
    });
    block_devices_.push_back(std::move(fds[0]));
}

bool Sandbox::has_overlay() const {
    struct statfs status;
    return fstatfs(root_.get(), &status) == 0 && status.f_type == OVERLAYFS_SUPER_MAGIC;
}

bool Sandbox::Enter() const {
    // A sanitizer's own thread shares the root and working directory, which namespaces forbid.
    return unshare(CLONE_FS) == 0 &&
           (!user_namespace_.ok() || setns(user_namespace_.get(), CLONE_NEWUSER) == 0) &&
           setns(mount_namespace_.get(), CLONE_NEWNS) == 0;
}

Process Sandbox::Start(const std::function<int()>& function) const {
    const pid_t parent = getpid();
    const pid_t pid = fork();
    Check(pid != -1, "fork");
    if (pid != 0) return Process(pid);

    unique_fd no_input(open("/dev/null", O_RDONLY | O_CLOEXEC));
    dup2(no_input.get(), STDIN_FILENO);
    // Mounts made from here on are this process's own: its namespace is a copy.
    if (!Enter() || fchdir(root_.get()) != 0 || unshare(CLONE_NEWNS) != 0 || chroot(".") != 0) {
        perror("cannot enter the private root");
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

std::string Sandbox::Outside(const std::string& path) const {
    return "/proc/self/fd/" + std::to_string(root_.get()) + path;
}

Snapshot Sandbox::TakeSnapshot() const {
    return sandbox::TakeSnapshot(Outside(""));
}

}  // namespace sandbox
