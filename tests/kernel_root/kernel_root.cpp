#include "kernel_root.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <vector>

#include <android-base/cmsg.h>

#include "checks.h"

using android::base::unique_fd;
using sandbox::Check;
using sandbox::OpenOrThrow;

namespace {

namespace fs = std::filesystem;

// The mount point of the copy, a private file system in memory.
constexpr char kRoot[] = "/tmp";

void WriteProcFile(const std::string& path, const std::string& content) {
    // These files must be opened without O_CREAT and take one write.
    const unique_fd fd(OpenOrThrow(path, O_WRONLY));
    Check(write(fd.get(), content.data(), content.size()) != -1, path);
}

// Moves the process to a mount namespace of its own, whose mounts stay in it. An ordinary user
// becomes root of a user namespace without other users.
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

void Copy(const fs::path& from, const fs::path& to, bool owners) {
    struct stat status;
    Check(lstat(from.c_str(), &status) == 0, from);
    if (S_ISDIR(status.st_mode)) {
        fs::create_directory(to);
        for (const auto& entry : fs::directory_iterator(from)) {
            Copy(entry.path(), to / entry.path().filename(), owners);
        }
    } else if (S_ISLNK(status.st_mode)) {
        fs::copy_symlink(from, to);
    } else if (S_ISREG(status.st_mode)) {
        fs::copy_file(from, to);
    } else {
        Check(mknod(to.c_str(), status.st_mode, status.st_rdev) == 0, to);
    }
    if (owners) Check(lchown(to.c_str(), status.st_uid, status.st_gid) == 0, to);
    if (!S_ISLNK(status.st_mode)) Check(chmod(to.c_str(), status.st_mode & 07777) == 0, to);
}

// Builds the root, moves the calling process into it, and returns descriptors of the root and the
// namespaces.
std::vector<int> BuildRoot(const std::string& directory) {
    const bool as_root = geteuid() == 0;
    EnterOwnNamespaces(as_root);
    // Kept open, because the new file system may cover the path that leads there.
    const unique_fd source(OpenOrThrow(directory, O_PATH | O_DIRECTORY));
    Check(mount("tmpfs", kRoot, "tmpfs", MS_NODEV | MS_NOSUID, "mode=0755") == 0,
          "cannot mount a tmpfs");
    Copy("/proc/self/fd/" + std::to_string(source.get()) + "/.", kRoot, as_root);
    return {OpenOrThrow(kRoot, O_RDONLY), OpenOrThrow("/proc/self/ns/mnt", O_RDONLY),
            OpenOrThrow("/proc/self/ns/user", O_RDONLY)};
}

}  // namespace

KernelRoot::KernelRoot(const std::string& directory) {
    // The namespaces live while this process holds their descriptors, and so end with it however it
    // ends.
    unique_fd ours, theirs;
    Check(android::base::Socketpair(SOCK_SEQPACKET | SOCK_CLOEXEC, &ours, &theirs), "socketpair");
    const pid_t child = fork();
    Check(child != -1, "fork");
    if (child == 0) {
        std::vector<int> fds;
        std::string message = "done";
        try {
            fds = BuildRoot(directory);
        } catch (const std::exception& error) {
            message = error.what();
        }
        android::base::SendFileDescriptorVector(theirs, message.data(), message.size(), fds);
        _exit(0);
    }
    theirs.reset();
    constexpr size_t kFds = 3;
    char message[512];
    std::vector<unique_fd> fds;
    const ssize_t size =
            android::base::ReceiveFileDescriptorVector(ours, message, sizeof(message), kFds, &fds);
    TEMP_FAILURE_RETRY(waitpid(child, nullptr, 0));
    if (size <= 0) throw std::runtime_error("the private root could not be built");
    if (fds.size() != kFds) throw std::runtime_error(std::string(message, size));
    root_ = std::move(fds[0]);
    mount_namespace_ = std::move(fds[1]);
    if (geteuid() != 0) user_namespace_ = std::move(fds[2]);
}

bool KernelRoot::Enter() const {
    const pid_t parent = getppid();
    // First stops sharing the root and the working directory with other threads, such as a
    // sanitizer's: otherwise no namespace can be entered. In the end enters a copy of the mount
    // namespace, so that the mounts that follow are this process's own.
    const bool entered =
            unshare(CLONE_FS) == 0 &&
            (!user_namespace_.ok() || setns(user_namespace_.get(), CLONE_NEWUSER) == 0) &&
            setns(mount_namespace_.get(), CLONE_NEWNS) == 0 && fchdir(root_.get()) == 0 &&
            unshare(CLONE_NEWNS) == 0 && chroot(".") == 0;
    sandbox::EndWith(parent);
    return entered;
}

sandbox::Ending KernelRoot::Run(const std::function<int()>& function,
                                std::chrono::milliseconds limit) const {
    return sandbox::StartProcess([this] { return Enter(); }, function).Wait(limit);
}

std::string KernelRoot::Outside(const std::string& path) const {
    return "/proc/self/fd/" + std::to_string(root_.get()) + path;
}
