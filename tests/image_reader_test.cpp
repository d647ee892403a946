// The process that reads images, over images of each format, of damaged ones and of those that ask
// for too much.

#include "reader.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <thread>

#include <openssl/sha.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <android-base/file.h>

#include "confine.h"
#include "sources.h"
#include "super.h"

namespace {

namespace fs = std::filesystem;
using android::base::unique_fd;
using images::Damage;
using images::FileSystem;
using images::Node;
using images::Reader;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

void Write(const std::string& path, const std::string& content) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
}

std::string ReadFile(const std::string& path) {
    std::string content;
    return android::base::ReadFileToString(path, &content) ? content : "(missing)";
}

// A long content in few letters.
std::string Short(const std::string& content) {
    if (content.size() < 100) return content;
    return std::to_string(content.size()) + "#" + std::to_string(std::hash<std::string>()(content));
}

// All that is in a file system: paths with types, modes, owners, times, contents and targets.
std::map<std::string, std::string> Everything(const FileSystem& system) {
    std::map<std::string, std::string> all;
    const std::function<void(const std::string&, uint64_t)> walk = [&](const std::string& path,
                                                                       uint64_t number) {
        const Node node = system.Look(number);
        std::string& said = all[path];
        char head[64];
        snprintf(head, sizeof(head), "%o %u:%u %lld ", node.mode, node.user, node.group,
                 static_cast<long long>(node.seconds));
        said = head;
        if (S_ISREG(node.mode)) said += Short(system.Read(number, 0, node.size + 1));
        if (S_ISLNK(node.mode)) said += system.Target(number);
        if (!S_ISDIR(node.mode)) return;
        for (const auto& [name, child] : system.List(number)) walk(path + "/" + name, child);
    };
    walk("", system.root());
    return all;
}

// The same of a directory of this machine.
std::map<std::string, std::string> EverythingIn(const std::string& directory) {
    std::map<std::string, std::string> all;
    const auto look = [&](const fs::path& path, const std::string& name) {
        struct stat status;
        ASSERT_EQ(lstat(path.c_str(), &status), 0);
        char head[64];
        snprintf(head, sizeof(head), "%o %u:%u %lld ", status.st_mode, status.st_uid, status.st_gid,
                 static_cast<long long>(status.st_mtim.tv_sec));
        all[name] = head;
        if (S_ISREG(status.st_mode)) all[name] += Short(ReadFile(path));
        if (S_ISLNK(status.st_mode)) all[name] += fs::read_symlink(path).string();
    };
    for (const auto& entry : fs::recursive_directory_iterator(directory)) {
        look(entry.path(), entry.path().string().substr(directory.size()));
    }
    return all;
}

class ImageReaderTest : public testing::Test {
  protected:
    std::string Path(const std::string& path) const { return directory_.path + path; }

    void Shell(const std::string& command) const {
        const std::string line = "{ PATH=$PATH:/usr/sbin; cd " + Path("") + "; " + command + "; }";
        ASSERT_EQ(system((line + " >" + Path("/log") + " 2>&1").c_str()), 0)
                << command << ReadFile(Path("/log"));
    }

    Reader Open(const std::string& name, char slot = 'a') const {
        return Reader(unique_fd(open(Path("/" + name).c_str(), O_RDONLY | O_CLOEXEC)), slot);
    }

    TemporaryDir directory_;
};

TEST_F(ImageReaderTest, EachFormatReadsAsItsTree) {
    fs::create_directories(Path("/files/etc/empty"));
    Write(Path("/files/etc/inline"), "in=inode\n");
    Write(Path("/files/etc/inline and more"), std::string(100, 'i'));
    std::string numbers;
    for (int i = 0; i < 60'000; ++i) numbers += std::to_string(i) + "\n";
    Write(Path("/files/blocks"), numbers);
    Write(Path("/files/q\" \"<12>"), "quoted");
    Write(Path("/files/bashrc\" .\r"), "returned");
    for (int i = 0; i < 300; ++i) Write(Path("/files/many/a longer name " + std::to_string(i)), "");
    Shell("truncate -s 700000 files/holes; printf end >>files/holes; ln -s ../blocks "
          "files/etc/fast; touch -d '2001-02-03 04:05:06.789' "
          "files/blocks; chmod 4751 files/blocks; chown 1000:70000 files/blocks || true");
    fs::create_symlink(std::string(900, 's'), Path("/files/slow"));
    const auto expected = EverythingIn(Path("/files"));
    for (const std::string options :
         {"-b 1024", "-b 4096", "-b 65536", "-b 1024 -O inline_data", "-b 4096 -O inline_data",
          "-b 1024 -O ^extent,^64bit", "-b 4096 -O ^extent,^64bit", "-O 64bit", "-O ^64bit",
          "-O metadata_csum", "-O ^metadata_csum,uninit_bg", "-O bigalloc",
          "-O ^dir_index,^flex_bg,meta_bg,^resize_inode", "-I 128",
          "-O ^has_journal,encrypt,casefold,verity"}) {
        SCOPED_TRACE(options);
        Shell("rm -f raw; mke2fs -q -F -t ext4 " + options + " -d files raw 64M");
        auto found = Everything(*Open("raw").Open(0));
        found.erase("");
        for (auto path = found.begin(); path != found.end();) {
            path = path->first.find("/lost+found") == 0 ? found.erase(path) : std::next(path);
        }
        EXPECT_EQ(found, expected);
    }
}

}  // namespace
