#include "player.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <mutex>
#include <system_error>
#include <thread>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>

#include "TesvoExtensionProperty/commands.h"
#include "boot/installing_service.h"
#include "boot/steps.h"
#include "kernel_root.h"
#include "platform.h"

namespace player {

namespace {

namespace fs = std::filesystem;

constexpr char kWorld[] = "/world";
constexpr char kRequest[] = "sys.cota.bind.load.properties";
constexpr int kMaxSeconds = 60;
constexpr int kMaxDescriptors = 64;

// The messages of a boot's process, in shared memory, so that those from before a kill are kept.
struct Messages {
    size_t size;
    char text[1 << 20];
};

Messages* g_messages = nullptr;

void Record(char kind, const std::string& text) {
    static std::mutex mutex;
    std::lock_guard<std::mutex> lock(mutex);
    if (g_messages->size + text.size() + 2 > sizeof(g_messages->text)) abort();
    g_messages->text[g_messages->size++] = kind;
    g_messages->size += text.copy(g_messages->text + g_messages->size, text.size());
    g_messages->text[g_messages->size++] = '\0';
}

void OnProperties(int mode, PropertyMap properties) {
    Record('e', "callback " + std::to_string(mode));
    for (const auto& [name, value] : properties) {
        platform::StoreProperty(name, value);
        Record('v', "callback " + std::to_string(mode) + " " + name + "=" + value);
        if (android::base::StartsWith(name, "persist.")) Record('p', name + "=" + value);
    }
}

void OnLog(android::base::LogId, android::base::LogSeverity severity, const char*, const char*,
           unsigned, const char* message) {
    if (severity >= android::base::INFO)
        Record('e', "VDIWEFF"[severity] + (" " + std::string(message)));
}

// Reports the library's requests to the system that are not about files.
class Requests : public platform::Observer {
    void OnMount(const char* source, const char* target, unsigned long flags, int result,
                 int) override {
        Record('e', android::base::StringPrintf("mount %s on %s, flags %lu: %d", source, target,
                                                flags, result));
    }
    void OnPropertySet(const std::string& name, const std::string& value) override {
        Record('e', "set " + name + "=" + value);
    }
    void OnRestorecon(const char* path, unsigned int flags, int result) override {
        Record('e', android::base::StringPrintf("label %s, flags %u: %d", path, flags, result));
    }
};

// Plays the installing service: waits until the bind thread has served the present request.
void EndBindThread() {
    while (!faults::ThreadsEnded()) {
        if (platform::AllProperties()[kRequest] == "null") {
            platform::StoreProperty(kRequest, android::init::kBindComplete);
        }
        std::this_thread::yield();
    }
}

std::set<int> OpenDescriptors() {
    std::set<int> open;
    for (int fd = 0; fd < kMaxDescriptors; ++fd) {
        if (fcntl(fd, F_GETFD) != -1) open.insert(fd);
    }
    return open;
}

// Plays the steps with the present system properties.
void PerformSteps(const Life& life) {
    PropertyMap early;
    auto* extension = KSVI_FETCH_IInitExtensionProperty("libtesvoextproperty.so");
    for (const std::string& text : life.steps) {
        const extprop::Step step = extprop::ParseStep(text);
        try {
            step.kind->perform({extension, &early, OnProperties}, step.argument);
        } catch (const std::system_error& error) {
            Record('v', error.what());
            break;
        }
        EndBindThread();
        for (const auto& [name, value] : early) platform::StoreProperty(name, value);
    }
}

void EmulateInit(const Life& life, const faults::Fault& fault, const PropertyMap& persistent) {
    alarm(kMaxSeconds);
    PropertyMap given = persistent;
    given.insert(life.properties.begin(), life.properties.end());
    platform::ResetProperties(given);
    android::base::SetMinimumLogSeverity(android::base::INFO);
    android::base::SetLogger(OnLog);
    const std::set<int> before = OpenDescriptors();

    Requests requests;
    faults::Arm(fault);
    platform::SetObserver(&requests);
    PerformSteps(life);
    platform::SetObserver(nullptr);
    for (const faults::Call& call : faults::Disarm()) {
        Record('c', call.name + "\t" + call.path + "\t" + (call.writes ? "w" : "") + "\t" +
                            (call.succeeded ? "s" : ""));
    }
    if (OpenDescriptors() != before) Record('e', "a descriptor is left open"), abort();
    for (const auto& [name, value] : platform::AllProperties()) {
        if (name != kRequest) Record('v', name + "=" + value);
    }
}

void Take(char kind, const std::string& text, Outcome* outcome) {
    const size_t equals = text.find('=');
    switch (kind) {
        case 'e':
            outcome->events.push_back(text);
            break;
        case 'v':
            outcome->values.insert(text);
            if (text.compare(0, 8, "callback") != 0) break;
            outcome->events.push_back(text);
            outcome->handed.insert(text.substr(text.find(' ', strlen("callback ")) + 1));
            break;
        case 'p':
            outcome->persistent[text.substr(0, equals)] = text.substr(equals + 1);
            break;
        case 'c': {
            const auto parts = android::base::Split(text, "\t");
            outcome->calls.push_back({parts[0], parts[1], parts[2] == "w", parts[3] == "s"});
            if (parts[0] == "mount" && parts[3] == "s") {
                outcome->values.insert("mounted " + parts[1]);
            }
        }
    }
}

}  // namespace

int RunPrivately(int (*body)(int argc, char** argv), int argc, char** argv) {
    TemporaryDir directory;
    chmod(directory.path, 0755);
    // Not in the sandbox, because faults are made in the kernel's own calls.
    const KernelRoot root(directory.path);
    g_messages = static_cast<Messages*>(mmap(nullptr, sizeof(Messages), PROT_READ | PROT_WRITE,
                                             MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    const sandbox::Ending ending = root.Run(
            [&] {
                const int result = mkdir(kWorld, 0755) == 0 ? body(argc, argv) : EXIT_FAILURE;
                std::cout.flush();
                return result;
            },
            std::chrono::hours(24));
    return ending.signal == 0 ? ending.exit_status : EXIT_FAILURE;
}

std::string World::Outside(const std::string& path) {
    return kWorld + path;
}

World::World(const Files& files) {
    if (mount("tmpfs", kWorld, "tmpfs", 0, "mode=0755") != 0) perror("mount"), abort();
    for (const auto& [path, content] : files) {
        const std::string outside = Outside(path);
        fs::create_directories(outside.substr(0, outside.rfind('/')));
        if (path.back() != '/') std::ofstream(outside, std::ios::binary) << content;
    }
}

World::~World() {
    umount2(kWorld, MNT_DETACH);
}

Outcome World::Boot(const Life& life, const faults::Fault& fault,
                    const PropertyMap& persistent) const {
    g_messages->size = 0;
    const pid_t pid = fork();
    if (pid == 0) {
        if (unshare(CLONE_NEWNS) != 0 || chroot(kWorld) != 0) abort();
        EmulateInit(life, fault, persistent);
        _exit(EXIT_SUCCESS);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    Outcome outcome;
    for (const char* message = g_messages->text; message < g_messages->text + g_messages->size;) {
        const std::string text = message;
        Take(text[0], text.substr(1), &outcome);
        message += text.size() + 1;
    }
    if (WIFSIGNALED(status)) outcome.death = strsignal(WTERMSIG(status));
    if (WIFEXITED(status) && WEXITSTATUS(status) != 0) outcome.death = "exit";
    outcome.files = Snapshot();
    return outcome;
}

void World::BootHere(const Life& life) const {
    const android::base::unique_fd outside(open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (chroot(kWorld) != 0) abort();
    android::base::SetLogger(OnLog);
    platform::ResetProperties(life.properties);
    g_messages->size = 0;
    PerformSteps(life);
    if (fchdir(outside.get()) != 0 || chroot(".") != 0) abort();
}

Files World::Snapshot() {
    Files files;
    for (const auto& entry : fs::recursive_directory_iterator(kWorld)) {
        struct stat status;
        std::string content;
        lstat(entry.path().c_str(), &status);
        if (S_ISREG(status.st_mode)) {
            android::base::ReadFileToString(entry.path(), &content);
            content = " " + content;
        }
        files[entry.path().string().substr(strlen(kWorld))] =
                android::base::StringPrintf("%o", status.st_mode & 07777) + content + " " +
                std::to_string(status.st_uid) + ":" + std::to_string(status.st_gid);
    }
    return files;
}

}  // namespace player
