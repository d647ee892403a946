#include "sandbox.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

#include <android-base/cmsg.h>
#include <android-base/file.h>

using android::base::unique_fd;

namespace sandbox {

namespace {

// The places of a sandbox in its own mount namespace, on a tmpfs that nobody else sees.
constexpr char kScratch[] = "/tmp";
constexpr char kDevice[] = "/tmp/device";
constexpr char kUpper[] = "/tmp/upper";
constexpr char kWork[] = "/tmp/work";
constexpr char kRoot[] = "/tmp/root";

constexpr rlim_t kStackLimit = 8 * 1024 * 1024;

[[noreturn]] void Fail(const std::string& what) {
    throw std::runtime_error(what + ": " + strerror(errno));
}

void Check(bool done, const std::string& what) {
    if (!done) Fail(what);
}

void WriteProcFile(const std::string& path, const std::string& content) {
    // Opened without O_CREAT and in one write, as these files want it.
    unique_fd fd(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    const ssize_t written = fd.ok() ? write(fd.get(), content.data(), content.size()) : -1;
    Check(written == static_cast<ssize_t>(content.size()), path);
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

// Builds the root in the calling process. Returns whether it is an overlay.
bool BuildRoot(const std::string& device, Layer layer) {
    const bool as_root = geteuid() == 0;
    EnterOwnNamespaces(as_root);
    // Kept open, because the scratch file system may cover the path that leads to it.
    unique_fd device_fd(open(device.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    Check(device_fd.ok(), device);
    Check(mount("tmpfs", kScratch, "tmpfs", 0, "mode=0755") == 0, "cannot mount a tmpfs");
    for (const char* directory : {kDevice, kUpper, kWork, kRoot}) {
        Check(mkdir(directory, 0755) == 0, directory);
    }
    const std::string source = "/proc/self/fd/" + std::to_string(device_fd.get());
    Check(mount(source.c_str(), kDevice, nullptr, MS_BIND | MS_REC, nullptr) == 0,
          "cannot bind the device directory");
    if (layer != Layer::kCopy && MountOverlay(as_root)) return true;
    CopyDevice(as_root);
    return false;
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

}  // namespace

Process::Process(pid_t pid) : pid_(pid), pidfd_(syscall(SYS_pidfd_open, pid, 0)) {}

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

Sandbox::Sandbox(const std::string& device, Layer layer) {
    int sockets[2];
    Check(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets) == 0, "socketpair");
    unique_fd ours(sockets[0]);
    unique_fd theirs(sockets[1]);

    // A short-lived process builds the root in namespaces of its own; what keeps them is that this
    // process holds them open, so they end with it, however it ends.
    const pid_t builder = fork();
    Check(builder != -1, "fork");
    if (builder == 0) {
        std::string message;
        std::vector<int> fds;
        try {
            message = BuildRoot(device, layer) ? "overlay" : "copy";
            const char* const kept[] = {kRoot, "/proc/self/ns/mnt", "/proc/self/ns/user"};
            for (const char* path : kept) fds.push_back(open(path, O_RDONLY | O_CLOEXEC));
            android::base::SendFileDescriptorVector(theirs, message.data(), message.size(), fds);
        } catch (const std::exception& error) {
            message = error.what();
            android::base::SendFileDescriptorVector(theirs, message.data(), message.size(), {});
        }
        _exit(0);
    }
    theirs.reset();

    char message[512];
    std::vector<unique_fd> fds;
    const ssize_t size =
            android::base::ReceiveFileDescriptorVector(ours, message, sizeof(message), 3, &fds);
    WaitFor(builder);
    if (size <= 0) throw std::runtime_error("the private root could not be built");
    if (fds.size() != 3) throw std::runtime_error(std::string(message, size));
    has_overlay_ = std::string(message, size) == "overlay";
    root_ = std::move(fds[0]);
    mount_namespace_ = std::move(fds[1]);
    if (geteuid() != 0) user_namespace_ = std::move(fds[2]);
}

Process Sandbox::Start(const std::function<int()>& function) const {
    const pid_t pid = fork();
    Check(pid != -1, "fork");
    if (pid != 0) return Process(pid);

    unique_fd no_input(open("/dev/null", O_RDONLY | O_CLOEXEC));
    dup2(no_input.get(), STDIN_FILENO);
    // Mounts made from here on are this process's own: its namespace is a copy.
    const bool entered =
            (!user_namespace_.ok() || setns(user_namespace_.get(), CLONE_NEWUSER) == 0) &&
            setns(mount_namespace_.get(), CLONE_NEWNS) == 0 && unshare(CLONE_NEWNS) == 0 &&
            chdir(kRoot) == 0 && chroot(".") == 0;
    if (!entered) {
        perror("cannot enter the private root");
        _exit(EXIT_FAILURE);
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
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
