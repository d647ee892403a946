#include "sandbox.h"

#include <alloca.h>
#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>

#include <gtest/gtest.h>

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <android-base/unique_fd.h>

#include "kernel_root.h"

namespace {

namespace fs = std::filesystem;
using android::base::StringPrintf;
using sandbox::Sandbox;

// Makes a random one of the calls that the library and the tool make, and returns its result.
std::string RandomCall(std::mt19937* random) {
    const auto pick = [random](size_t count) { return (*random)() % count; };
    constexpr const char* kNames[] = {"d",  "d/kept",   "d/sub", "d/sub/gone", "link",   "loop",
                                      "up", "dangling", "n",     "n/m",        "file/x", ""};
    constexpr const char* kWays[] = {"/",   "/link/", "/d/../", "/d/sub/../../",
                                     "/n/", "//./",   "/up/",   "/d/sub/"};
    constexpr const char* kEnds[] = {"", "", "", "/", "/..", "/."};
    const auto path = [&] {
        return std::string(kWays[pick(8)]) + kNames[pick(12)] + kEnds[pick(6)];
    };
    const std::string p = path();
    const char* c = p.c_str();
    const auto result = [](const std::string& call, int value) {
        return call + " " + (value == -1 ? strerrorname_np(errno) : "done") + "\n";
    };
    struct stat status;
    switch (pick(14)) {
        case 0:
        case 1: {
            constexpr int kFlags[] = {O_RDONLY,
                                      O_WRONLY,
                                      O_RDWR,
                                      O_WRONLY | O_CREAT | O_TRUNC,
                                      O_WRONLY | O_CREAT | O_EXCL,
                                      O_RDONLY | O_CREAT,
                                      O_RDONLY | O_NOFOLLOW,
                                      O_WRONLY | O_CREAT | O_NOFOLLOW | O_APPEND,
                                      O_RDONLY | O_DIRECTORY};
            const int flags = kFlags[pick(9)];
            const android::base::unique_fd fd(open(c, flags, 0640));
            std::string line = result(StringPrintf("open %s %x", c, flags), fd.get());
            char content[100];
            const ssize_t size = fd.ok() ? read(fd.get(), content, sizeof(content)) : -1;
            if (size > 0) line += std::string(content, size) + "\n";
            if (fd.ok() && write(fd.get(), "w", 1) == 1) line += "written\n";
            return line;
        }
        case 2:
        case 3:
            return result("mkdir " + p, mkdir(c, 0750));
        case 4:
            return result("unlink " + p, unlink(c));
        case 5:
            return result("rmdir " + p, rmdir(c));
        case 6:
            return result("lchown " + p, lchown(c, 1000, 1000 + pick(2)));
        case 7:
            return result("access " + p, access(c, pick(2) == 0 ? F_OK : R_OK | W_OK));
        case 8:
        case 9: {
            std::string line = result("stat " + p, pick(2) ? stat(c, &status) : lstat(c, &status));
            if (line.find("done") == std::string::npos) return line;
            return line + StringPrintf("%o %u %u %jd\n", status.st_mode, status.st_uid,
                                       status.st_gid, S_ISDIR(status.st_mode) ? 0 : status.st_size);
        }
        case 10: {
            char target[100];
            const ssize_t size = readlink(c, target, sizeof(target));
            return result("readlink " + p, size) + (size > 0 ? std::string(target, size) : "");
        }
        case 11: {
            const std::string to = path();
            const unsigned long flags = MS_BIND | (pick(2) == 0 ? MS_REC : MS_RDONLY);
            return result("mount " + p + " " + to, mount(c, to.c_str(), nullptr, flags, nullptr));
        }
        case 12: {
            DIR* directory = opendir(c);
            std::string line = result("opendir " + p, directory == nullptr ? -1 : 0);
            std::vector<std::string> names;
            while (dirent* entry = directory == nullptr ? nullptr : readdir(directory)) {
                names.push_back(StringPrintf("%d %s\n", entry->d_type, entry->d_name));
            }
            if (directory != nullptr) closedir(directory);
            std::sort(names.begin(), names.end());
            for (const std::string& name : names) line += name;
            return line;
        }
        default:
            return result("chmod " + p, chmod(c, pick(2) == 0 ? 0604 : 0));
    }
}

class SandboxTest : public testing::Test {
  protected:
    SandboxTest() {
        chmod(directory_.path, 0755);
        fs::create_directories(Path("/d/sub"));
        Write(Path("/d/kept"), "kept");
        Write(Path("/d/old"), "old");
        Write(Path("/d/given"), "given");
        Write(Path("/d/sub/gone"), "gone");
        fs::create_symlink("/d", Path("/link"));
    }

    std::string Path(const std::string& path) const { return directory_.path + path; }

    static void Write(const std::string& path, const std::string& content) {
        std::ofstream(path) << content;
    }

    static std::string Read(const std::string& path) {
        std::string content;
        return android::base::ReadFileToString(path, &content) ? content : "(missing)";
    }

    // Returns the results of random calls in a root of their own.
    template <typename Root>
    std::string Said(unsigned seed) const {
        const TemporaryFile out;
        const Root root(directory_.path);
        // In two processes, because files stay after the first and mounts do not.
        for (int part = 0; part < 2; ++part) {
            EXPECT_TRUE(root.Run([&] {
                                std::mt19937 random(2 * seed + part);
                                std::string lines;
                                for (int i = 0; i < 60; ++i) lines += RandomCall(&random);
                                return android::base::WriteStringToFd(lines, out.fd) ? 0 : 1;
                            }).ok());
        }
        return Read(out.path);
    }

    // Returns everything in the device directory, with all attributes.
    std::string State() const {
        const TemporaryFile state;
        const std::string command =
                "cd " + Path("") + " && find . -printf '%p %M %U %G %s %T@ %l\n' | sort >" +
                state.path + " && find . -type f | sort | xargs md5sum >>" + state.path;
        EXPECT_EQ(system(command.c_str()), 0);
        return Read(state.path);
    }

    static std::string Listing(const std::vector<sandbox::FileChange>& changes) {
        std::string listing;
        for (const auto& change : changes) {
            listing += std::string(Name(change.kind)) + " " + change.path + "\n";
        }
        return listing;
    }

    TemporaryDir directory_;
};

TEST_F(SandboxTest, ChangesAreListedAndTheDeviceStaysAsItWas) {
    const std::string before = State();
    Sandbox root(directory_.path);
    const auto changes = [&root](const std::function<int()>& function) {
        EXPECT_EQ(root.Run(function).exit_status, 0);
        return Listing(root.TakeChanges());
    };
    EXPECT_EQ(changes([] {
                  if (Read("/link/old") != "old") return 1;
                  Write("/d/new", "new");
                  struct stat was;
                  stat("/d/old", &was);
                  Write("/link/old", "odd");
                  // As if all changes fell into one tick of the clock, where times can be set.
                  const timespec times[] = {was.st_atim, was.st_mtim};
                  utimensat(AT_FDCWD, "/d/old", times, 0);
                  if (unlink("/d/sub/gone") != 0 || rmdir("/d/sub") != 0) return 2;
                  if (lchown("/d/given", 1000, 1000) != 0) return 4;
                  if (mkdir("/made", 0777) != 0 || chmod("/d/kept", 0600) != 0) return 3;
                  return 0;
              }),
              "changed /d/given\nchanged /d/kept\ncreated /d/new\nchanged /d/old\ndeleted /d/sub\n"
              "deleted /d/sub/gone\ncreated /made\n");
    EXPECT_EQ(root.Read("/d/old", 100), "odd");
    EXPECT_THROW(root.Read("/d/old", 2), std::runtime_error);
    EXPECT_THROW(root.Read("/made", 100), std::runtime_error);

    // The next process finds the files as the last one left them; a new sandbox does not.
    EXPECT_EQ(changes([] {
                  if (Read("/d/new") != "new" || access("/d/sub", F_OK) == 0) return 1;
                  if (fs::status("/made").permissions() != fs::perms::all) return 2;  // umask 0
                  return mkdir("/d/sub", 0755) | unlink("/d/new") | rmdir("/made");
              }),
              "deleted /d/new\ncreated /d/sub\ndeleted /made\n");
    const Sandbox other(directory_.path);
    EXPECT_TRUE(other.Run([] { return Read("/d/old") == "old" ? 0 : 1; }).ok());
    EXPECT_EQ(State(), before);
}

TEST_F(SandboxTest, MountsAreRealAndEndWithTheirProcess) {
    const Sandbox root(directory_.path);
    const auto mount_counts = [] {
        return std::count_if(fs::directory_iterator("/d/sub"), fs::directory_iterator(),
                             [](const auto& entry) { return entry.path().filename() == "old"; });
    };
    EXPECT_TRUE(root.Run([&] {
                        if (mount("/d", "/d/sub", nullptr, MS_BIND, nullptr) != 0) return 1;
                        return mount_counts() == 1 ? 0 : 2;
                    }).ok());
    EXPECT_TRUE(root.Run([&] { return static_cast<int>(mount_counts()); }).ok());
}

TEST_F(SandboxTest, EndingsAreReported) {
    using namespace std::chrono_literals;
    const Sandbox root(directory_.path);
    EXPECT_EQ(root.Run([] { return 7; }).exit_status, 7);
    EXPECT_EQ(root.Run([]() -> int { abort(); }).signal, SIGABRT);
    EXPECT_EQ(root.Run([] { return raise(SIGSEGV); }).signal, SIGSEGV);
    EXPECT_EQ(root.Run([]() -> int { throw std::runtime_error("thrown"); }).signal, SIGABRT);
    const sandbox::Ending hung = root.Run([] { return pause(); }, 50ms);
    EXPECT_TRUE(hung.timed_out);
    EXPECT_FALSE(hung.ok());

    signal(SIGCHLD, SIG_IGN);
    EXPECT_THROW(root.Run([] { return 0; }), std::runtime_error);
    signal(SIGCHLD, SIG_DFL);
    rlimit files;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &files), 0);
    const android::base::unique_fd free(dup(STDERR_FILENO));
    const rlimit none{static_cast<rlim_t>(free.get()), files.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_THROW(root.Run([] { return 0; }), std::runtime_error);
    setrlimit(RLIMIT_NOFILE, &files);
}

TEST_F(SandboxTest, LedCallsDoWhatTheKernelDoes) {
    if (geteuid() != 0) GTEST_SKIP() << "an ordinary user cannot give files away to compare with";
    fs::create_symlink("/loop", Path("/loop"));
    fs::create_symlink("d/..", Path("/up"));
    fs::create_symlink("/d/../n/new", Path("/dangling"));
    Write(Path("/file"), "file");
    ASSERT_EQ(chown(Path("/d/kept").c_str(), 1000, 2000) | chmod(Path("/d/sub").c_str(), 0711), 0);
    const std::string before = State();
    // EXTPROP_TEST_SEEDS is the number of seeds, EXTPROP_TEST_SEED the first of them.
    const auto number = [](const char* variable, unsigned normal) -> unsigned {
        const char* text = getenv(variable);
        return text == nullptr ? normal : strtoul(text, nullptr, 10);
    };
    // In these, what is removed is seen by a mount.
    std::vector<unsigned> seeds = {299, 3475, 4397, 4673, 4947, 5616};
    for (unsigned i = 0; i < number("EXTPROP_TEST_SEEDS", 100); ++i) {
        seeds.push_back(number("EXTPROP_TEST_SEED", 0) + i);
    }
    for (const unsigned seed : seeds) {
        EXPECT_EQ(Said<Sandbox>(seed), Said<KernelRoot>(seed)) << "seed " << seed;
    }
    EXPECT_EQ(State(), before);
}

TEST_F(SandboxTest, ALinkItselfIsNeverOpened) {
    const Sandbox root(directory_.path);
    for (const int flags : {O_RDONLY | O_NOFOLLOW, O_PATH | O_NOFOLLOW}) {
        EXPECT_EQ(root.Run([flags] { return open("/link", flags) == -1 ? errno : 0; }).exit_status,
                  ELOOP);
    }
}

// What is mounted over the root is seen by a bind of the root, and not by paths.
TEST_F(SandboxTest, ABindOfTheRootTakesWhatIsMountedOverIt) {
    if (geteuid() != 0) GTEST_SKIP() << "there is no root of the kernel's to compare with";
    const auto said = [](const auto& root) {
        const TemporaryFile out;
        EXPECT_TRUE(root.Run([&] {
                            std::string lines;
                            const auto names = [&lines](const char* path) {
                                std::set<std::string> sorted;
                                for (const auto& entry : fs::directory_iterator(path)) {
                                    sorted.insert(entry.path());
                                }
                                for (const std::string& name : sorted) lines += name + "\n";
                            };
                            mkdir("/to", 0755);
                            mkdir("/also", 0755);
                            const bool bound =
                                    mount("/d", "/", nullptr, MS_BIND, nullptr) == 0 &&
                                    mount("/", "/to", nullptr, MS_BIND | MS_REC, nullptr) == 0 &&
                                    mount("/", "/also", nullptr, MS_BIND, nullptr) == 0;
                            for (const char* path : {"/", "/to", "/also", "/d"}) names(path);
                            return bound && android::base::WriteStringToFd(lines, out.fd) ? 0 : 1;
                        }).ok());
        return Read(out.path);
    };
    EXPECT_EQ(said(Sandbox(directory_.path)), said(KernelRoot(directory_.path)));
}

TEST_F(SandboxTest, NoCallReachesThisMachine) {
    const TemporaryDir outside;
    const std::string file = outside.path + std::string("/file"), socket = file + ".socket";
    Write(file, "untouched");
    const std::string to = file + ".new";
    const int device = open(Path("/d/kept").c_str(), O_RDONLY);
    struct stat was;
    ASSERT_EQ(fstat(device, &was), 0);
    const Sandbox root(directory_.path);
    EXPECT_EQ(root.Run([&] {
                      const char* path = file.c_str();
                      const char* other = to.c_str();
                      char* const arguments[] = {const_cast<char*>("true"), nullptr};
                      open_how how = {};
                      char handle[256] = {};
                      sockaddr_un address = {AF_UNIX, ""};
                      strcpy(address.sun_path, path);
                      const rlimit limit = {0, 0};
                      int pair[2];
                      const long results[] = {
                              open(path, O_RDONLY),
                              syscall(SYS_openat, AT_FDCWD, path, O_RDONLY),
                              syscall(SYS_openat2, AT_FDCWD, path, &how, sizeof(how)),
                              open((std::string("/..") + path).c_str(), O_RDONLY),
                              access(path, F_OK),
                              rename(path, other),
                              link(path, other),
                              symlink(path, other),
                              truncate(path, 0),
                              unlink(path),
                              mknod(other, S_IFREG | 0600, 0),
                              chdir(outside.path),
                              chroot(outside.path),
                              execv("/bin/true", arguments),
                              syscall(SYS_name_to_handle_at, AT_FDCWD, path, handle, handle, 0),
                              syscall(SYS_io_uring_setup, 1, handle),
                              syscall(SYS_mount, outside.path, "/d", nullptr, MS_BIND, nullptr),
                              syscall(SYS_open_tree, AT_FDCWD, path, 1),
                              syscall(SYS_landlock_restrict_self + 100, path),
                              bind(0, reinterpret_cast<sockaddr*>(&address), sizeof(address)),
                              ::socket(AF_UNIX, SOCK_STREAM, 0),
                              // Other processes, and ways to reach them.
                              syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0),
                              syscall(SYS_clone, CLONE_VM | CLONE_VFORK | SIGCHLD, 0, 0, 0, 0),
                              kill(getppid(), 0),
                              kill(-1, 0),
                              static_cast<long>(syscall(SYS_tgkill, getppid(), getppid(), 0)),
                              syscall(SYS_pidfd_open, getppid(), 0),
                              syscall(SYS_process_vm_readv, getppid(), nullptr, 0, nullptr, 0, 0),
                              prctl(PR_SET_DUMPABLE, 1),
                              setrlimit(RLIMIT_CORE, &limit),
                              ::socketpair(AF_UNIX, SOCK_STREAM, 0, pair),
                              fcntl(device, F_SETOWN, getppid()),
                              syscall(SYS_memfd_create, "memory", 0),
                              syscall(500, path),
                              // The device directory's files too, which it may read.
                              fchmod(device, 0777),
                              fchown(device, 1, 1),
                              futimens(device, nullptr),
                      };
                      const auto* reached = std::find_if(std::begin(results), std::end(results),
                                                         [](long result) { return result != -1; });
                      return static_cast<int>(
                              reached == std::end(results) ? 0 : 1 + (reached - results));
                  }).exit_status,
              0);
    EXPECT_EQ(Read(file), "untouched");
    EXPECT_EQ(std::distance(fs::directory_iterator(outside.path), {}), 1);
    struct stat is;
    ASSERT_EQ(fstat(device, &is), 0);
    close(device);
    EXPECT_EQ(is.st_mode, was.st_mode);
    EXPECT_EQ(is.st_uid, was.st_uid);
    EXPECT_EQ(is.st_mtim.tv_nsec, was.st_mtim.tv_nsec);
}

// Opens the file with the stack moved by `room` bytes. The arguments that are not passed are then
// whatever bytes lie there.
[[gnu::noinline]] bool OpensWithRoom(size_t room, const char* path) {
    volatile char* const taken = static_cast<char*>(alloca(room));
    taken[0] = static_cast<char>(access("/d/kept", F_OK));
    return syscall(SYS_openat, AT_FDCWD, path, O_RDONLY) != -1;
}

TEST_F(SandboxTest, WhatLedCallsLeaveBehindOpensNothing) {
    const TemporaryFile outside;
    const Sandbox root(directory_.path);
    EXPECT_EQ(root.Run([&] {
                      for (size_t room = 8; room < 20'000; room += 8) {
                          if (OpensWithRoom(room, outside.path)) return 1;
                      }
                      return 0;
                  }).exit_status,
              0);
}

TEST_F(SandboxTest, ABlockDeviceKeepsItsSizeForEverybody) {
    Write(Path("/splash"), std::string(1500, 's'));
    Sandbox root(directory_.path);
    EXPECT_TRUE(root.AttachBlockDevice("/splash"));
    EXPECT_FALSE(root.AttachBlockDevice("/d"));
    EXPECT_EQ(Listing(root.TakeChanges()), "");
    const auto write = [] {
        Write("/splash", "logo");
        return 0;
    };
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(root.Run(write).ok());
        EXPECT_EQ(root.Read("/splash", 2000), "logo" + std::string(1020, 's'));
        EXPECT_EQ(Listing(root.TakeChanges()), "changed /splash\n");
    }
}

TEST_F(SandboxTest, NothingIsLeftBehindHoweverItEnds) {
    const TemporaryDir temporary;
    setenv("TMPDIR", temporary.path, 1);
    const auto is_empty = [&] { return fs::is_empty(temporary.path); };
    { const Sandbox root(directory_.path); }
    EXPECT_TRUE(is_empty());
    for (const int signal : {SIGINT, SIGTERM, SIGKILL}) {
        int ready[2];
        ASSERT_EQ(pipe(ready), 0);
        const pid_t pid = fork();
        if (pid == 0) {
            setpgid(0, 0);
            const Sandbox root(directory_.path);
            const auto process = root.Start([&] {
                Write("/d/new", "new");
                if (::write(ready[1], "", 1) != 1) return 1;
                return pause();
            });
            pause();
        }
        char byte;
        EXPECT_EQ(read(ready[0], &byte, 1), 1);
        EXPECT_FALSE(is_empty());
        kill(-pid, signal);
        waitpid(pid, nullptr, 0);
        for (int i = 0; i < 500 && !is_empty(); ++i) usleep(10'000);
        EXPECT_TRUE(is_empty()) << strsignal(signal);
        close(ready[0]);
        close(ready[1]);
    }
    unsetenv("TMPDIR");
}

TEST_F(SandboxTest, WorksForAnOrdinaryUser) {
    if (geteuid() != 0) GTEST_SKIP() << "every other test shows it";
    constexpr uid_t kNobody = 65534;
    Write(Path("/secret"), "secret");
    ASSERT_EQ(chmod(Path("/secret").c_str(), 0600), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        if (setgid(kNobody) != 0 || setuid(kNobody) != 0) _exit(1);
        try {
            const Sandbox root(directory_.path);
            const sandbox::Ending ending = root.Run([] {
                return Read("/d/old") == "old" && chown("/d/old", 1000, 1000) == 0 ? 0 : 1;
            });
            if (!ending.ok() || !root.Notes().empty()) _exit(2);
            // Only this use of the user's rights is left, and it is reported.
            root.Run([] { return Read("/secret") == "secret" ? 0 : 1; });
            _exit(root.Notes().size() == 1 ? 0 : 4);
        } catch (const std::exception&) {
            _exit(3);
        }
    }
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_EQ(status, 0);
}

}  // namespace
