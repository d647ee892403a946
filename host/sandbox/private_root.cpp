// The kernel's way: a private root in namespaces of its own.

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
#include "device_files.h"
#include "loop_device.h"
#include "root.h"
#include "snapshot.h"

using android::base::unique_fd;

namespace sandbox {

namespace {

// The places of a sandbox in its own mount namespace, on a tmpfs that nobody else sees.
constexpr char kScratch[] = "/tmp";
constexpr char kDevice[] = "/tmp/device";
constexpr char kUpper[] = "/tmp/upper";
constexpr char kWork[] = "/tmp/work";
constexpr char kRoot[] = "/tmp/root";

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

// Shows the unpacked images, read-only, where a phone has them, and no longer the images. The
// calling process is taken into the root.
void ShowImages(const DeviceFiles& files, const std::vector<unique_fd>& contents) {
    // From here on a symbolic link of the device leads to where it leads on the phone.
    Check(chroot(kRoot) == 0 && chdir("/") == 0, kRoot);
    constexpr unsigned long kReadOnly = MS_RDONLY | MS_NOSUID | MS_NODEV;
    for (size_t i = 0; i < contents.size(); ++i) {
        const UnpackedImage& image = files.unpacked()[i];
        const char* place = image.place.c_str();
        std::error_code error;
        std::filesystem::create_directories(place, error);
        errno = error.value();
        Check(!error &&
                      move_mount(contents[i].get(), "", AT_FDCWD, place,
                                 MOVE_MOUNT_F_EMPTY_PATH | MOVE_MOUNT_T_SYMLINKS) == 0 &&
                      mount(nullptr, place, nullptr, MS_REMOUNT | MS_BIND | kReadOnly, nullptr) ==
                              0,
              "an image cannot be shown at " + image.place);
        const bool linked =
                image.link.empty() || symlink(place, image.link.c_str()) == 0 || errno == EEXIST;
        Check(linked, "an image cannot be linked to " + image.link);
    }
    for (const std::string& name : files.hidden()) unlink(("/" + name).c_str());
}

// Builds the root, around the calling process, and returns descriptors of it and the namespaces.
std::vector<int> BuildRoot(const std::string& device, const DeviceFiles& files, bool copied) {
    const bool as_root = geteuid() == 0;
    EnterOwnNamespaces(as_root);
    // Kept open, because the scratch file system may cover the paths that lead there.
    unique_fd device_fd(OpenOrThrow(device, O_PATH | O_DIRECTORY));
    std::vector<unique_fd> contents;
    for (const UnpackedImage& image : files.unpacked()) {
        const char* directory = image.directory.c_str();
        contents.emplace_back(open_tree(AT_FDCWD, directory, OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC));
        Check(contents.back().ok(), directory);
    }
    Check(mount("tmpfs", kScratch, "tmpfs", 0, "mode=0755") == 0, "cannot mount a tmpfs");
    for (const char* directory : {kDevice, kUpper, kWork, kRoot}) {
        Check(mkdir(directory, 0755) == 0, directory);
    }
    const std::string source = "/proc/self/fd/" + std::to_string(device_fd.get());
    Check(mount(source.c_str(), kDevice, nullptr, MS_BIND | MS_REC, nullptr) == 0,
          "cannot bind the device directory");
    if (copied) {
        CopyDevice(as_root);
    } else {
        Check(MountOverlay(as_root), "cannot mount an overlay");
    }

    std::vector<int> fds = {OpenOrThrow(kRoot, O_RDONLY),
                            OpenOrThrow("/proc/self/ns/mnt", O_RDONLY),
                            OpenOrThrow("/proc/self/ns/user", O_RDONLY)};
    ShowImages(files, contents);
    return fds;
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

class PrivateRoot : public Root {
  public:
    PrivateRoot(const std::string& device, const Options& options, bool copied)
            : device_files_(device, options) {
        // What keeps the namespaces is that this process holds them open, so they end with it,
        // however it ends.
        std::vector<unique_fd> fds =
                FromChild([&] { return BuildRoot(device, device_files_, copied); });
        root_ = std::move(fds[0]);
        mount_namespace_ = std::move(fds[1]);
        if (geteuid() != 0) user_namespace_ = std::move(fds[2]);
        files_ = TakeSnapshot(PrivateRoot::Outside(""));
    }

    bool Enter() override {
        device_files_.LeaveInChild();
        // Mounts made from here on are this process's own: its namespace is a copy.
        return EnterNamespaces() && fchdir(root_.get()) == 0 && unshare(CLONE_NEWNS) == 0 &&
               chroot(".") == 0;
    }

    void AttachBlockDevice(const std::string& path) override {
        std::vector<unique_fd> fds = FromChild([&] {
            Check(EnterNamespaces(), "cannot enter the private root");
            const std::string file = kRoot + path;
            LoopDevice loop = AttachLoopDevice(OpenOrThrow(file, O_RDWR), O_RDWR);
            Check(mount(loop.path.c_str(), file.c_str(), nullptr, MS_BIND, nullptr) == 0,
                  "cannot bind " + loop.path);
            return std::vector<int>{loop.fd.release()};
        });
        block_devices_.push_back(std::move(fds[0]));
    }

    std::string Outside(const std::string& path) const override {
        return "/proc/self/fd/" + std::to_string(root_.get()) + path;
    }

    std::vector<FileChange> TakeChanges() override {
        Snapshot now = TakeSnapshot(Outside(""));
        std::vector<FileChange> changes = Changes(files_, now);
        files_ = std::move(now);
        return changes;
    }

    std::optional<ImagePlace> ImageOf(const std::string& path) const override {
        return device_files_.ImageOf(path);
    }

    std::vector<std::string> Notes() const override { return device_files_.Notes(); }

  private:
    bool EnterNamespaces() const {
        // A sanitizer's own thread shares the root and working directory, which namespaces forbid.
        return unshare(CLONE_FS) == 0 &&
               (!user_namespace_.ok() || setns(user_namespace_.get(), CLONE_NEWUSER) == 0) &&
               setns(mount_namespace_.get(), CLONE_NEWNS) == 0;
    }

    DeviceFiles device_files_;  // for the images
    unique_fd user_namespace_;  // none when run as root
    unique_fd mount_namespace_;
    unique_fd root_;
    std::vector<unique_fd> block_devices_;  // each lives as long as it is open
    Snapshot files_;                        // as they were when changes were last taken
};

}  // namespace

std::unique_ptr<Root> MakePrivateRoot(const std::string& device, const Options& options,
                                      bool copied) {
    return std::make_unique<PrivateRoot>(device, options, copied);
}

}  // namespace sandbox
