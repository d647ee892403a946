#include "utils.h"

#include <errno.h>
#include <fcntl.h>
#include <locale.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/properties.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "InitExtensionPropertyImpl.h"

namespace {

using android::base::SetProperty;
using android::init::createDirectory;
using android::init::PropertyMap;
using testing::ElementsAre;
using testing::Pair;

class UtilsTest : public testing::Test {
  protected:
    UtilsTest() {
        umask(022);
        android::base::SetMinimumLogSeverity(android::base::INFO);
        android::base::SetLogger([this](android::base::LogId, android::base::LogSeverity severity,
                                        const char*, const char*, unsigned, const char* message) {
            log_.push_back(std::string(1, "VDIWEFF"[severity]) + " " + message);
        });
    }
    ~UtilsTest() override { android::base::SetLogger(android::base::StderrLogger); }

    std::string Path(const std::string& name) { return std::string(directory_.path) + "/" + name; }

    std::string Write(const std::string& name, const std::string& content) {
        EXPECT_TRUE(android::base::WriteStringToFile(content, Path(name)));
        return Path(name);
    }

    std::string Link(const std::string& name, const std::string& target) {
        EXPECT_EQ(symlink(target.c_str(), Path(name).c_str()), 0);
        return Path(name);
    }

    PropertyMap Load(const std::string& path, const char* filter = nullptr) {
        PropertyMap properties;
        EXPECT_TRUE(load_properties_from_file_without_se(path.c_str(), filter, &properties));
        return properties;
    }

    std::vector<std::string> TakeLog() { return std::exchange(log_, {}); }

  private:
    TemporaryDir directory_;
    std::vector<std::string> log_;
};

std::string Content(const std::string& path) {
    std::string content;
    return android::base::ReadFileToString(path, &content) ? content : "(missing)";
}

mode_t ModeOf(const std::string& path) {
    struct stat status = {};
    stat(path.c_str(), &status);
    return status.st_mode & 07777;
}

TEST_F(UtilsTest, ReadsWholeFiles) {
    const std::string large(5000, 'x');
    EXPECT_EQ(*ReadFile(Write("large", large + '\0' + "end")), large + '\0' + "end");
    EXPECT_EQ(*ReadFile(Write("empty", "")), "");

    const std::string link = Link("link", Path("large"));
    EXPECT_EQ(ReadFile(link).error().message(), "open() failed: Too many levels of symbolic links");
    EXPECT_EQ(ReadFile(link).error().code(), ELOOP);
    EXPECT_EQ(ReadFile(Path("missing")).error().message(),
              "open() failed: No such file or directory");
    EXPECT_EQ(ReadFile(Path("")).error().message(), "Unable to read file contents: Is a directory");
}

TEST_F(UtilsTest, ReadsFixedSizeRecords) {
    const std::string path = Write("file", "0123456789");
    EXPECT_EQ(*ReadFileWithOffset(path, 2, 3), "234");
    EXPECT_EQ(*ReadFileWithOffset(Link("link", path), 8, 4), std::string("89\0\0", 4));
    EXPECT_EQ(*ReadFileWithOffset(path, 100, 2), std::string(2, '\0'));
    EXPECT_EQ(ReadFileWithOffset(Path("missing"), 0, 1).error().message(),
              "open() failed: No such file or directory");
    EXPECT_EQ(ReadFileWithOffset(path, -1, 1).error().message(),
              "Unable to read file contents: Invalid argument");
    EXPECT_THAT(TakeLog(), ElementsAre("E lseek() failed"));

    // The size of a sparse file is beyond any memory.
    ASSERT_EQ(truncate(path.c_str(), off_t{1} << 40), 0);
    EXPECT_EQ(*ReadFileWithOffset(path, 0, 1), "0");

    std::string content = "old";
    android::base::unique_fd directory(open(Path("").c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_FALSE(ReadFdToStringWithOffset(directory.get(), &content, 0, 3));
    EXPECT_EQ(content, std::string(3, '\0'));
    EXPECT_DEATH((void)ReadFileWithOffset(path, 0, 1025), "");
    EXPECT_DEATH((void)ReadFileWithOffset(path, 0, -1), "");
}

TEST_F(UtilsTest, WritesFiles) {
    const std::string path = Path("file");
    EXPECT_TRUE(WriteFile(path, "long content").ok());
    EXPECT_TRUE(WriteFile(path, "short").ok());
    EXPECT_EQ(Content(path), "short");
    EXPECT_EQ(ModeOf(path), 0600u);
    const std::string link = Link("link", path);
    EXPECT_EQ(WriteFile(link, "x").error().message(),
              "open() failed: Too many levels of symbolic links");
    EXPECT_EQ(WriteFile("/dev/full", "x").error().message(),
              "Unable to write file contents: No space left on device");

    EXPECT_TRUE(WriteStringToFile("string", Path("other"), false));
    EXPECT_EQ(ModeOf(Path("other")), 0644u);
    EXPECT_FALSE(WriteStringToFile("string", link, false));
    EXPECT_EQ(errno, ELOOP);
    EXPECT_TRUE(WriteStringToFile("followed", link, true));
    EXPECT_EQ(Content(path), "followed");

    // A file that cannot be written completely is removed.
    const std::string full = Link("full", "/dev/full");
    EXPECT_FALSE(WriteStringToFile("x", full, true));
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_NE(access(full.c_str(), F_OK), 0);
}

TEST_F(UtilsTest, JudgesNamesAndValues) {
    for (const char* name : {"a", "a.b", "vendor.x-y@z:1_2", "Z9"}) {
        EXPECT_TRUE(IsLegalPropertyName(name)) << name;
    }
    for (const char* name : {"", ".", ".a", "a.", "a..b", "a b", "a/b", "a=b", "$a", "#", "\x80"}) {
        EXPECT_FALSE(IsLegalPropertyName(name)) << name;
    }
    EXPECT_FALSE(IsLegalPropertyName(std::string("a\0b", 3)));

    const std::string locale = setlocale(LC_CTYPE, nullptr);
    setlocale(LC_CTYPE, "C.UTF-8");
    EXPECT_TRUE(IsLegalPropertyValue("a", "").ok());
    EXPECT_TRUE(IsLegalPropertyValue("a", std::string(91, 'x')).ok());
    EXPECT_TRUE(IsLegalPropertyValue("ro.a", std::string(92, 'x')).ok());
    EXPECT_TRUE(IsLegalPropertyValue("a", "gr\xc3\xbc\xc3\x9f").ok());
    EXPECT_TRUE(IsLegalPropertyValue("a", std::string("ok\0\xff", 4)).ok());
    errno = EPERM;
    auto too_long = IsLegalPropertyValue("ro", std::string(91, 'x') + "\xff");
    EXPECT_EQ(too_long.error().message(), "Property value too long: Operation not permitted");
    auto malformed = IsLegalPropertyValue("a", "\xff");
    EXPECT_EQ(malformed.error().message(), std::string("Value is not a UTF8 encoded string: ") +
                                                   strerror(malformed.error().code()));
    setlocale(LC_CTYPE, locale.c_str());
}

TEST_F(UtilsTest, ExpandsReferences) {
    SetProperty("debug.ext.v", "$v${debug.ext.v}");
    SetProperty("debug.ext.empty", "");
    const struct {
        const char* text;
        const char* expanded;
    } expansions[] = {
            {"", ""},
            {"plain", "plain"},
            {"$$a$$", "$a$"},
            {"a$", "a"},
            {"$$$", "$"},
            {"<${debug.ext.v}>", "<$v${debug.ext.v}>"},
            {"${debug.ext.v:-x}", "$v${debug.ext.v}"},
            {"${debug.ext.empty:-x}y", "xy"},
            {"${debug.ext.none:-a:-b}", "a:-b"},
    };
    for (const auto& known : expansions) {
        auto expanded = ExpandProps(known.text);
        ASSERT_TRUE(expanded.ok()) << known.text << ": " << expanded.error();
        EXPECT_EQ(*expanded, known.expanded);
    }
    const struct {
        const char* text;
        const char* error;
    } errors[] = {
            {"a${b", "unexpected end of string in 'a${b', looking for }"},
            {"a$ro.a/${b}",
             "using deprecated syntax for specifying property 'ro.a/${b}', use "
             "${name} instead"},
            {"x${}", "invalid zero-length property name in 'x${}'"},
            {"x${:-d}", "invalid zero-length property name in 'x${:-d}'"},
            {"${debug.ext.none}",
             "property 'debug.ext.none' doesn't exist while expanding "
             "'${debug.ext.none}'"},
            {"${debug.ext.empty:-}",
             "property 'debug.ext.empty' doesn't exist while expanding "
             "'${debug.ext.empty:-}'"},
            {"${a${b}}", "property 'a${b' doesn't exist while expanding '${a${b}}'"},
    };
    for (const auto& known : errors) {
        EXPECT_EQ(ExpandProps(known.text).error().message(), known.error);
    }
}

TEST_F(UtilsTest, CreatesTheDirectoriesOfAPath) {
    umask(0);
    EXPECT_EQ(createDirectory(""), 0);
    EXPECT_EQ(createDirectory(Path("a/b/c")), 0);
    EXPECT_EQ(access(Path("a/b/c").c_str(), F_OK), -1);
    EXPECT_EQ(ModeOf(Path("a/b")), 0771u);
    EXPECT_EQ(createDirectory(Path("a/b\\")), 0);
    EXPECT_THAT(TakeLog(), ElementsAre("I make dir: " + Path("a/"), "I make dir: " + Path("a/b/"),
                                       "I make dir: " + Path("a/b\\")));
    Write("file", "");
    EXPECT_EQ(createDirectory(Path("file/x/")), -1);

    const std::string start = Path("long/");
    EXPECT_EQ(createDirectory(start + std::string(256 - start.size(), 'x')), -1);
    EXPECT_EQ(access(start.c_str(), F_OK), -1);
    EXPECT_EQ(createDirectory(start + std::string(255 - start.size(), 'x')), 0);
    EXPECT_EQ(access(start.c_str(), F_OK), 0);
}

TEST_F(UtilsTest, NormalisesPaths) {
    EXPECT_EQ(trimPath("a/b/"), "/a/b");
    EXPECT_EQ(trimPath("/a//"), "/a/");
    EXPECT_EQ(trimPath("/"), "");
    EXPECT_EQ(trimPath(""), "");
    EXPECT_EQ(getPathName("/a/b/c"), "/a/b");
    EXPECT_EQ(getPathName("/a/b/"), "/a/b");
    EXPECT_EQ(getPathName("/a"), "/");
    EXPECT_EQ(getPathName("c"), "/");
    EXPECT_EQ(getPathName(""), "/");
}

}  // namespace
