#include "stranger.h"

#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include <android-base/strings.h>
#include <gmock/gmock.h>

#include "budget.h"
#include "sanitized.h"

namespace fs = std::filesystem;

namespace {

constexpr int kMostSeconds = 30;  // of processor time
constexpr int kLongest = 300;     // seconds; on a machine of its own each run takes a few

// Returns the first line with a control character, or that is a command to a CI runner. Without
// regular expressions, which take seconds for the largest allowed texts.
std::string Unprintable(const std::string& text) {
    for (size_t begin = 0, i = 0; i < text.size(); ++i) {
        const unsigned char first = text[i], second = text[i + 1];
        if (first == '\n') begin = i + 1;
        if ((first < ' ' && first != '\n') || first == 0x7f ||
            (first == 0xc2 && second >= 0x80 && second < 0xa0) ||
            (first == 0xe2 && second == 0x80 && (text[i + 2] & 0xff) >= 0xa8 &&
             (text[i + 2] & 0xff) <= 0xae) ||
            (first == ':' && second == ':' && text.find_first_not_of(' ', begin) == i)) {
            return text.substr(begin, text.find('\n', i) - begin);
        }
    }
    return "";
}

}  // namespace

StrangerTest::StrangerTest() {
    Write("/outside/kept", "kept");
    Write("/d/odm/build.prop", "ro.a=1\n");
    fs::create_directory(Path("/temporary"));
    fs::permissions(Path("/temporary"), fs::perms::all);
}

Output StrangerTest::RunWords(const Words& words, uid_t user) {
    const TemporaryFile out, err;
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(out.fd, STDOUT_FILENO);
        dup2(err.fd, STDERR_FILENO);
        std::vector<char*> arguments = {const_cast<char*>(EXTPROP)};
        for (const std::string& word : words) {
            arguments.push_back(const_cast<char*>(word.c_str()));
        }
        arguments.push_back(nullptr);
        setenv("TMPDIR", Path("/temporary").c_str(), 1);
        if (user != 0 && geteuid() == 0 && (setgid(user) != 0 || setuid(user) != 0)) _exit(98);
        if (chdir(Path("").c_str()) == 0) execv(EXTPROP, arguments.data());
        _exit(99);
    }
    int status = 0;
    rusage used{};
    for (int tenths = 0; wait4(pid, &status, WNOHANG, &used) == 0; ++tenths) {
        if (tenths == kLongest * 10) kill(pid, SIGKILL);
        usleep(100'000);
    }
    EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    // Includes the program's code. A few such processes together stay below 1.5 GB.
    constexpr long kMost = (std::max(limits::kToolMemory, limits::kMemory) >> 10) + 50'000;
    EXPECT_TRUE(kIsSanitized || used.ru_maxrss < kMost) << used.ru_maxrss << " KiB";

    EXPECT_TRUE(kIsSanitized || used.ru_utime.tv_sec < kMostSeconds)
            << used.ru_utime.tv_sec << " s";

    Output output{WEXITSTATUS(status), "", ""};
    android::base::ReadFileToString(out.path, &output.out);
    android::base::ReadFileToString(err.path, &output.err);
    for (const std::string* text : {&output.out, &output.err}) {
        EXPECT_EQ(Unprintable(*text), "");
    }
    for (const std::string& line : android::base::Split(output.err, "\n")) {
        EXPECT_TRUE(line.empty() || android::base::StartsWith(line, "extprop: ")) << line;
    }
    EXPECT_EQ(Content("/outside/kept"), "kept");
    EXPECT_EQ(std::distance(fs::directory_iterator(Path("/outside")), {}), 1);
    for (int i = 0; i < 200 && !fs::is_empty(Path("/temporary")); ++i) usleep(10'000);
    EXPECT_TRUE(fs::is_empty(Path("/temporary")));
    return output;
}

std::string StrangerTest::Content(const std::string& path) const {
    std::string content;
    android::base::ReadFileToString(Path(path), &content, true);
    return content;
}

void StrangerTest::Link(const std::string& target, const std::string& path) const {
    fs::create_directories(fs::path(Path(path)).parent_path());
    fs::create_symlink(target, Path(path));
}

void StrangerTest::MakeHole(const std::string& path) const {
    constexpr off_t kHole = off_t{3} << 30;
    Write(path, "");
    ASSERT_EQ(truncate(Path(path).c_str(), kHole), 0);
}

void StrangerTest::Shell(const std::string& command) const {
    const std::string line = "{ PATH=$PATH:/usr/sbin; cd " + Path("") + "; " + command + "; }";
    ASSERT_EQ(system((line + " >/dev/null 2>&1").c_str()), 0) << command;
}
