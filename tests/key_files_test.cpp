#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include <android-base/strings.h>
#include <gtest/gtest.h>

#include "device.h"

namespace {

namespace fs = std::filesystem;

using android::base::WriteStringToFile;
using android::init::InitExtensionPropertyImpl;
using std::string;

const string kReserve = "/mnt/vendor/tesvoreserve";
const string kSsv = kReserve + "/system/ssv/";
const string kConvert = kSsv + "sim_switch_convert_file";
const string kAction = kSsv + "sim_action_file";
const string kFirst = kSsv + "sim_switch_first_file";
const string kNoneClear = kSsv + "first_switch_none_clear";
const string kCurrent = kSsv + "sim_switch_current_file";
const string kRegion = kSsv + "region_switch_file";
const string kCustomize = "/data/system/customize/";
const string kDataRegion = kCustomize + "sim_switch/region_switch_file";

const string kStores[] = {kReserve + "/radio/exp_operator_switch.config",
                          "/dev/block/platform/bootdevice/by-name/reserve_exp1",
                          "/dev/block/bootdevice/by-name/reserve_exp1"};

const string kMissing = "(missing)";
const PropertyMap kFlashBack = {{"ro.sys.customize.flashback.company", "invalid"}};
const PropertyMap kNewFirst = {{"sys.sim.switch.first", "NEW"}};
const string kFirstLine = "sys.sim.switch.first=NEW\n";
const string kConvertLine = "sys.sim.switch.convert= true\n";

const string kNoAction = "I payjoy_status :0\nI payjoy_status_operator :\n";
const string kFirstFound = "I sim_switch_first_file is exist!!!\n";
const string kCurrentFound = "I sim_switch_current_file is exist!!!\n";
const string kRegionFound = "I region_switch_file exists!!!\n";
const string kSimFailed = "sim switch key property failed:";
const string kRegionFailed = "region switch key property failed:";

PropertyMap operator+(PropertyMap a, const PropertyMap& b) {
    a.insert(b.begin(), b.end());
    return a;
}

string Log(Init& init) {
    string log;
    for (const string& line : init.TakeLog()) log += line + "\n";
    return log;
}

string CannotLoad(const string& path, const string& text,
                  const string& why = "Unable to read file contents: Is a directory") {
    return "W Couldn't load property file '" + path + "': " + why + "\nE " + text + path + "\n";
}

string StoreFailed(int i) {
    return "E read nv_flag failed :" + kStores[i] + "\n";
}

// Makes a file, inside a boot. A content "->x" makes a link to x, kMissing makes nothing.
void Put(const string& path, const string& content) {
    fs::create_directories(fs::path(path).parent_path());
    fs::remove(path);
    if (android::base::StartsWith(content, "->")) {
        fs::create_symlink(content.substr(2), path);
    } else if (content != kMissing) {
        ASSERT_TRUE(WriteStringToFile(content, path));
    }
}

// A device whose carrier code, see LoadKeys, is mapped to the switch key "NEW". The radio's key is
// mapped by nobody, and so leaves the log alone.
void WriteCarrierMap(Device* device) {
    device->Write(kStores[0], "unmapped");
    device->Write("/mnt/vendor/my_company/etc/nvmap.prop", "carrier=NEW\n");
}

PropertyMap LoadKeys(PropertyMap props = {}) {
    platform::StoreProperty("ro.boot.vxcarrier", "carrier");
    InitExtensionPropertyImpl::getInstance()->loadExtensionSimswitchKeyInfo(&props);
    return props;
}

// Expects the extension to select the directories of these keys, given by their leaf.
void ExpectKeys(const PropertyMap& keys) {
    fs::remove_all("/probe");
    PropertyMap expected, found;
    for (const auto& [leaf, key] : keys) {
        if (key.empty()) continue;
        Put("/probe/properties/" + key + "/" + leaf + "/a.prop", leaf + "=1");
        expected[leaf] = "1";
    }
    auto* extension = InitExtensionPropertyImpl::getInstance();
    extension->loadExtensionPartitionSimswitchProperties("/probe", &found);
    EXPECT_EQ(found, expected);
}

// Returns owner, group and mode, such as "0:0 755".
string Owner(const string& path) {
    struct stat status;
    if (lstat(path.c_str(), &status) != 0) return kMissing;
    char text[32];
    snprintf(text, sizeof(text), "%u:%u %o", status.st_uid, status.st_gid, status.st_mode & 07777);
    return text;
}

void MakeReadOnly(const string& path) {
    const char* const target = path.c_str();
    ASSERT_EQ(mount(target, target, nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(mount(nullptr, target, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
}

TEST(KeyStores, LastPartitionIsAskedFirst) {
    Device device;
    device.Write("/odm/etc/flags.prop", "K=odm\nonly=odm\nempty=odm\n=nameless\n");
    device.MakeDirectory("/mnt/vendor/my_region/etc/flags.prop");
    device.Write("/mnt/vendor/my_carrier/etc/flags.prop", "K=carrier\nempty=\n");
    device.Write("/mnt/vendor/my_manifest/etc/flags.prop", "K=manifest\n");
    device.Boot([](Init& init) {
        const auto find = [&init](const string& key) {
            string target = "old";
            android::init::find_nv_ssv_target_key(key, "flags.prop", &target);
            return target + "|" + Log(init);
        };
        // Without a brand the region's root is in the list with and without a slash.
        const string broken =
                CannotLoad("/mnt/vendor/my_region//etc/flags.prop", "map file load failed:") +
                CannotLoad("/mnt/vendor/my_region/etc/flags.prop", "map file load failed:");
        EXPECT_EQ(find("K"), "manifest|");
        EXPECT_EQ(find("empty"), "|");  // a mapping to nothing ends the search too
        EXPECT_EQ(find(""), "|");
        EXPECT_EQ(find("only"), "odm|" + broken);
        EXPECT_EQ(find(string("only\0\0\0x", 8)), "odm|" + broken);
        EXPECT_EQ(find("unknown"), "|" + broken);
    });
}

TEST(KeyStores, FirstStoreWithContentCounts) {
    Device device;
    device.Write("/odm/etc/flags.prop", "abc=short\n12345678=long\n");
    device.Boot([](Init& init) {
        const auto load = [&init](const string& a, const string& b, const string& c) {
            Put(kStores[0], a), Put(kStores[1], b), Put(kStores[2], c);
            string key = "old-", target = "old";
            android::init::load_old_nv_key(&key, &target);
            return key + "|" + target + "|" + Log(init);
        };
        const auto empty = [](int i) { return "W Couldn't file" + kStores[i] + "\n"; };
        const string to_third = "->" + kStores[2];
        const string failed = StoreFailed(0) + StoreFailed(1);
        EXPECT_EQ(load("abc", "xyz", "xyz"), "old-abc|short|");
        EXPECT_EQ(load("12345678901234567890", "", ""), "old-12345678|long|");
        EXPECT_EQ(load("", "abc", "xyz"), "old-abc|short|" + empty(0));
        EXPECT_EQ(load(kMissing, to_third, "xyz"), "old-xyz||" + failed);
        EXPECT_EQ(load("", kMissing, ""), "old-|old|" + empty(0) + StoreFailed(1) + empty(2));
    });
}

TEST(KeyStores, CarrierBeforeRadioBeforeActionFile) {
    const string longest(91, 'x');
    Device device;
    device.Write("/odm/etc/nvmap.prop", "carrier=C\nnv=N\nssv=S\nempty=\n=0\n" + longest + "=L\n");
    device.Boot([&](Init& init) {
        const auto load = [&init](const string& carrier, string nv, string ssv, string first = "") {
            init.Set("ro.boot.vxcarrier", carrier);
            android::init::load_convert_first_key(&first, &nv, &ssv);
            return first;
        };
        EXPECT_EQ(load("carrier", "nv", "ssv"), "C");
        EXPECT_EQ(load("carrier", "nv", "ssv", "set"), "set");
        EXPECT_EQ(load("", "nv", "ssv"), "N");
        EXPECT_EQ(load("empty", "nv", "ssv"), "N");
        EXPECT_EQ(load("unknown", "unknown", "ssv"), "S");
        EXPECT_EQ(load("", "", "ssv\n"), "");
        EXPECT_EQ(load(longest + "y", "nv", "ssv"), "L");
        const auto read = [&init](const string& content) {
            Put(kAction, content);
            string key = "old";
            android::init::read_old_ssv_key(&key);
            return key + "|" + Log(init);
        };
        EXPECT_EQ(read(kMissing), "old|");
        EXPECT_EQ(read("a\n b\n"), "a\n b\n|");
        EXPECT_EQ(read("->/odm/etc/nvmap.prop"), "|E read old ssv failed :" + kAction + "\n");
    });
}

TEST(KeyFiles, FactoryStateStaysAsItIs) {
    Device device;
    device.Boot([](Init& init) {
        EXPECT_EQ(LoadKeys(), kFlashBack);
        EXPECT_EQ(Log(init), StoreFailed(0) + StoreFailed(1) + StoreFailed(2) + kNoAction);
        EXPECT_TRUE(fs::is_empty("/"));
        const string& company = kFlashBack.begin()->first;
        EXPECT_EQ(LoadKeys({{company, ""}}), (PropertyMap{{company, ""}}));
        init.Set(company, "set");
        EXPECT_EQ(LoadKeys(), PropertyMap());
    });
}

TEST(KeyFiles, MigratesFromEachOlderStoreOnce) {
    const string system = "I make dir: " + kReserve + "/system/\nI make dir: " + kSsv +
                          "\nI create ssv dir: " + kSsv + "\n";
    const string no_ssv = "I there is no ssv dir\n";
    const string no_reserve = no_ssv + "I make dir: " + kReserve + "/\n";
    const string two_failed = StoreFailed(0) + StoreFailed(1);
    const string failed = two_failed + StoreFailed(2);
    const struct {
        string store;  // empty: the carrier code
        string read_log, directory_log;
        string none_clear, mark_before, mark, mark_owner;
    } cases[] = {{kStores[0], kNoAction, no_ssv + system, "true", kMissing, "1", "1000:1000"},
                 {kStores[1], StoreFailed(0) + kNoAction, no_reserve + system, "1", kMissing,
                  kMissing, kMissing},
                 {kStores[2], two_failed + kNoAction, no_reserve + system, "TRUE", kMissing,
                  kMissing, kMissing},
                 {kAction, failed + "I read ssv file\n", "", "", kMissing, kMissing, kMissing},
                 {"", failed + kNoAction, "", "true", "0", "0", "1000:1000"}};
    const PropertyMap done = {{"sys.sim.switch.convert", "true"}};
    for (const auto& known : cases) {
        SCOPED_TRACE(known.store);
        Device device;
        device.Write("/mnt/vendor/my_company/etc/nvmap.prop",
                     known.store.empty() ? "carrier=NEW" : "old key=NEW");
        if (!known.store.empty()) device.Write(known.store, "old key");
        if (known.mark_before != kMissing) device.Write(kNoneClear, known.mark_before);
        const PropertyMap given =
                kFlashBack + PropertyMap{{"ro.none.clear.switch.first", known.none_clear}};
        const struct {
            string deleted;
            PropertyMap props;
            string log, first_file;
        } boots[] = {{"", kNewFirst, known.directory_log + kFirstFound, kFirstLine},
                     {"", done + kNewFirst, kFirstFound, kFirstLine},
                     {kFirst, done, "", kMissing},  // the mark is enough
                     {kConvert, kNewFirst, kFirstFound, kFirstLine}};
        for (const auto& boot : boots) {
            device.Boot([&](Init& init) {
                unlink(boot.deleted.c_str());
                EXPECT_EQ(LoadKeys(given), given + boot.props);
                EXPECT_EQ(Log(init), known.read_log + boot.log);
                if (boot.first_file == kMissing) return;
                ExpectKeys({{"SimSwitchFirstTime", "NEW"}});
                EXPECT_EQ(Owner(kFirst), "1000:1000 600");
                EXPECT_EQ(Owner(kConvert), "1000:1000 600");
                EXPECT_EQ(Owner(kNoneClear).substr(0, 9), known.mark_owner);
                EXPECT_EQ(Owner(kSsv), known.directory_log.empty() ? "0:0 755" : "0:0 771");
            });
            EXPECT_EQ(device.Read(kFirst), boot.first_file);
            EXPECT_EQ(device.Read(kConvert), kConvertLine);
            EXPECT_EQ(device.Read(kNoneClear), known.mark);
        }
    }
}

TEST(KeyFiles, MigrationIsDecidedBeforeTheActionFile) {
    Device device;
    WriteCarrierMap(&device);
    device.Boot([](Init&) {
        const string name = "sys.sim.switch.convert";
        const auto migrates = [&](const string& given, const string& mark, const string& action) {
            Put(kFirst, kMissing), Put(kConvert, mark), Put(kAction, action);
            LoadKeys({{name, given}});
            return fs::exists(kFirst);
        };
        EXPECT_FALSE(migrates("true", "", ""));
        EXPECT_TRUE(migrates("true ", "", ""));
        EXPECT_FALSE(migrates("", name + "=true", name + "=false"));
        EXPECT_TRUE(migrates("", name + "=1", name + "=true"));
        EXPECT_TRUE(migrates("true", name + "=false", ""));
    });
}

TEST(KeyFiles, FailedMigrationIsTriedAgain) {
    const string key = "E Unable to write sim_action_first_file open() failed: ";
    const string mark = "E Unable to write first_switch_none_clear open() failed: ";
    const PropertyMap given = {{"ro.none.clear.switch.first", "true"}};
    const string read_only = kSsv + "other", file = kReserve + "/system";
    const struct {
        string obstacle, log, mark;
    } cases[] = {{read_only, key + "Read-only file system\n" + mark + "Read-only file system\n",
                  kMissing},
                 // The mark of the kind does not depend on the key's file.
                 {kFirst, key + "Too many levels of symbolic links\n", "1"},
                 {file,
                  "I there is no ssv dir\nI make dir: " + file + "/\n" + key + "Not a directory\n" +
                          mark + "Not a directory\n",
                  kMissing}};
    for (const auto& known : cases) {
        SCOPED_TRACE(known.obstacle);
        Device device;
        WriteCarrierMap(&device);
        device.Boot([&](Init& init) {
            Put(known.obstacle, known.obstacle == kFirst ? "->/nowhere" : "");
            if (known.obstacle == read_only) MakeReadOnly(kReserve);
            EXPECT_EQ(LoadKeys(given), given + kFlashBack);
            EXPECT_EQ(Log(init), kNoAction + known.log);
        });
        EXPECT_EQ(device.Read(kConvert), kMissing);
        EXPECT_EQ(device.Read(kNoneClear), known.mark);
        device.Boot([&](Init&) {
            fs::remove(known.obstacle);
            EXPECT_EQ(LoadKeys(given), given + kNewFirst + kFlashBack);
        });
        EXPECT_EQ(device.Read(kFirst), kFirstLine);
        EXPECT_EQ(device.Read(kConvert), kConvertLine);
    }
}

TEST(KeyFiles, KeyWithoutTheMarkIsMigratedAgainOnlyWhenItIsGone) {
    Device device;
    WriteCarrierMap(&device);
    device.MakeDirectory(kConvert);
    const string failed = CannotLoad(kConvert, "sim switch convert property load failed:");
    const string no_mark =
            "E Unable to write sim_switch_convert_file open() failed: Is a directory\n";
    for (const string& migration : {no_mark, string(), no_mark}) {
        device.Boot([&](Init& init) {
            EXPECT_EQ(LoadKeys(), kFlashBack + kNewFirst);
            EXPECT_EQ(Log(init), failed + kNoAction + migration + kFirstFound);
            if (migration.empty()) unlink(kFirst.c_str());
        });
    }
}

TEST(KeyFiles, FullReservePartitionDoesNotStopTheBoot) {
    Device device;
    WriteCarrierMap(&device);
    device.Boot([](Init& init) {
        ASSERT_EQ(mount("tmpfs", kReserve.c_str(), "tmpfs", 0, "size=4096"), 0);
        fs::create_directories(kSsv);
        Put(kStores[0], string(4096, 'x'));
        init.Set("persist.sys.payjoy.status_change", "1");
        const PropertyMap given = {{"ro.none.clear.switch.first", "true"}};
        EXPECT_EQ(LoadKeys(given), given + kFlashBack);
        const string full = " Unable to write file contents: No space left on device\n";
        const std::vector<string> expected = {"I payjoy_status :1\nI payjoy_status_operator :\n",
                                              "E Unable to write ssv_file" + full,
                                              "I re-read ssv file\n",
                                              "E Unable to write sim_action_first_file" + full,
                                              "E Unable to write first_switch_none_clear" + full,
                                              kFirstFound};
        EXPECT_EQ(Log(init), android::base::Join(expected, ""));
        EXPECT_EQ(Owner(kFirst), "1000:1000 600");
        EXPECT_EQ(Owner(kConvert), kMissing);
    });
}

TEST(KeyFiles, OldFormatIsConvertedOnce) {
    const struct {
        string path, property, leaf, log, write_failed;
    } files[] = {{kFirst, "sys.sim.switch.first", "SimSwitchFirstTime",
                  kFirstFound + "E Convert tmp_first_key to SIM_SWITCH_FIRST_PROPERTY\n",
                  "E Unable to write sim_switch_first_file"},
                 {kCurrent, "sys.sim.switch.current", "SimSwitchCurrentTime",
                  kCurrentFound + "E Convert tmp_current_key to SIM_SWITCH_CURRENT_PROPERTY\n",
                  "E Unable to write sim_switch_current_file"},
                 {kRegion, "sys.region.switch.first", "regionSwitch",
                  kRegionFound + "E Convert tmp_region_key to REGION_SWITCH_PROPERTY\n",
                  "E Unable to write region_switch_file"}};
    for (const auto& file : files) {
        const string found = file.log.substr(0, file.log.find('\n') + 1);
        const string failed = file.write_failed + "open() failed: Read-only file system\n" +
                              "E Unable to chown file " + file.path + "\n";
        const struct {
            string content;
            PropertyMap given;
            string key, log, content_then;
        } boots[] = {{"A1B2", {}, "A1B2", file.log + failed, "A1B2"},
                     {"", {}, "A1B2", file.log, file.property + "=A1B2\n"},
                     {"", {}, "A1B2", found, file.property + "=A1B2\n"},
                     {"C3\n", {}, "C3\n", file.log, file.property + "=C3\n\n"},
                     {"", {}, "C3", found, file.property + "=C3\n\n"},
                     // A key that init knows is not looked for in the file.
                     {"D4", {{file.property, "known"}}, "known", found, "D4"}};
        Device device;
        device.Write(kStores[0], "unmapped");
        for (const auto& boot : boots) {
            SCOPED_TRACE(file.path + " " + boot.key);
            device.Boot([&](Init& init) {
                if (!boot.content.empty()) Put(file.path, boot.content);
                if (&boot == &boots[0]) MakeReadOnly(kReserve);
                const PropertyMap key = {{file.property, boot.key}};
                EXPECT_EQ(LoadKeys(boot.given), kFlashBack + key);
                EXPECT_EQ(Log(init), kNoAction + boot.log);
                ExpectKeys({{file.leaf, boot.key}});
                const string owner = Owner(file.path).substr(0, 4);
                EXPECT_EQ(owner, boot.content_then.size() < 5 ? "0:0 " : "1000");
            });
            EXPECT_EQ(device.Read(file.path), boot.content_then);
        }
        device.Boot([&](Init& init) {
            Put(file.path, "");
            EXPECT_EQ(LoadKeys(), kFlashBack);
            EXPECT_EQ(Log(init), kNoAction + found);
        });
    }
}

// All files that are read, in order, with what is logged before and after a failed loading.
const struct {
    string path, property, found, failed;
} kKeyFiles[] = {
        {kConvert, "sys.sim.switch.convert", "", "sim switch convert property load failed:"},
        {kAction, "sys.sim.switch.first", "I read ssv file\n", "read ssv failed :"},
        {kFirst, "sys.sim.switch.first", kFirstFound, kSimFailed},
        {kCurrent, "sys.sim.switch.current", kCurrentFound, kSimFailed},
        {kRegion, "sys.region.switch.first", kRegionFound, kRegionFailed},
        {kCustomize + "sim_switch/sim_switch_current_file", "sys.sim.switch.current", "",
         kSimFailed},
        {kSsv + "sim_switch_common_prop_file", "count", "", "reboot count key property failed:"},
        {kCustomize + "sim_switch/sim_switch_first_file", "sys.sim.switch.first", "", kSimFailed},
        {kDataRegion, "sys.region.switch.first", "", kRegionFailed},
        {kCustomize + "data_common_prop_file.prop", "persist.sys.channel.info", "", kSimFailed},
        {kSsv + "force_connect_internet_prop_file", "force", "",
         "force connect internet property failed:"},
        {kReserve + "/system/flag/flashback.cfg", "ro.sys.customize.flashback.company", "",
         "flash back property failed:"},
};

TEST(KeyFiles, LaterFilesWinAndDataCopiesAreLater) {
    Device device;
    WriteCarrierMap(&device);
    string log;
    PropertyMap props;
    const auto expect = [&](const string& name, const string& value) {
        if (props.count(name) != 0) {
            log += "W Overriding previous 'ro.' property '" + name + "':'" + props[name] +
                   "' with new value '" + value + "'\n";
        }
        props[name] = value;
    };
    for (const auto& file : kKeyFiles) {
        device.Write(file.path, "last=" + file.path + "\n" + file.property + "=" + file.path);
        log += file.found;
        expect("last", file.path);
        expect(file.property, file.path);
    }
    device.Boot([&](Init& init) {
        init.Set("persist.sys.remove.region.apk", "EU");  // the file is there already
        EXPECT_EQ(LoadKeys(), props);
        EXPECT_EQ(Log(init), log);
        ExpectKeys({{"SimSwitchFirstTime", kCustomize + "sim_switch/sim_switch_first_file"},
                    {"SimSwitchCurrentTime", kCustomize + "sim_switch/sim_switch_current_file"},
                    {"regionSwitch", kDataRegion},
                    {"switchCarrierChannel", kCustomize + "data_common_prop_file.prop"}});
    });
}

TEST(KeyFiles, UnreadableFilesAreReportedAndSkipped) {
    Device device;
    WriteCarrierMap(&device);
    string log;
    for (const auto& file : kKeyFiles) {
        device.MakeDirectory(file.path);
        log += file.found + CannotLoad(file.path, file.failed);
    }
    // The channel is taken only with its file loaded.
    device.Write("/p/properties/X/switchCarrierChannel/a.prop", "channel=1");
    device.Write("/p/properties/X/SimSwitchFirstTime/a.prop", "first=1");
    device.Boot([&](Init& init) {
        const PropertyMap given = {{"persist.sys.channel.info", "X"},
                                   {"sys.sim.switch.first", "X"}};
        EXPECT_EQ(LoadKeys(given), given);
        EXPECT_EQ(Log(init), log);
        PropertyMap overlay;
        auto* extension = InitExtensionPropertyImpl::getInstance();
        extension->loadExtensionPartitionSimswitchProperties("/p", &overlay);
        EXPECT_EQ(overlay, (PropertyMap{{"first", "1"}}));
    });
}

// Deletes a file when it is about to be opened for the nth time.
struct Vanishing : platform::Observer {
    Vanishing(const string& path, int opens) : path(path), opens_left(opens) {}
    void OnOpen(const char* opened, int) override {
        if (opened == path && --opens_left == 0) unlink(opened);
    }
    void OnMount(const char*, const char*, unsigned long, int, int) override {}
    void OnPropertySet(const string&, const string&) override {}
    void OnRestorecon(const char*, unsigned, int) override {}

    string path;
    int opens_left;
};

TEST(KeyFiles, VanishedFileIsNotConverted) {
    Device device;
    device.Write(kStores[0], "unmapped");
    device.Boot([](Init& init) {
        const auto load = [&init](const string& path, int opens) {
            Put(path, "A1B2");
            Vanishing vanishing(path, opens);
            platform::SetObserver(&vanishing);
            EXPECT_EQ(LoadKeys(), kFlashBack);
            platform::SetObserver(nullptr);
            return Log(init).substr(kNoAction.size());
        };
        const string first = "E read sim switch first file failed :";
        const string current = "E read sim switch current file failed :";
        EXPECT_EQ(load(kFirst, 2), kFirstFound + first + kFirst + "\n");
        EXPECT_EQ(load(kCurrent, 2), kCurrentFound + current + kCurrent + "\n");
        EXPECT_EQ(load(kRegion, 3), kRegionFound + first + kRegion + "\n");
    });
}

TEST(KeyFiles, OnlyTheReserveRegionFileMustOpen) {
    Device device;
    device.Write(kStores[0], "unmapped");
    device.Boot([](Init& init) {
        const auto log = [&init](const string& why, const string& region) {
            LoadKeys();
            EXPECT_EQ(Log(init), kNoAction + kCurrentFound + CannotLoad(kCurrent, kSimFailed, why) +
                                         region + CannotLoad(kDataRegion, kRegionFailed, why));
        };
        for (const string& path : {kCurrent, kRegion, kDataRegion}) Put(path, "->" + kStores[0]);
        const string link = "open() failed: Too many levels of symbolic links";
        log(link, kRegionFound + CannotLoad(kRegion, kRegionFailed, link));
        for (const string& path : {kCurrent, kRegion, kDataRegion}) {
            Put(path, kMissing);  // a socket instead, which exists but cannot be opened
            ASSERT_EQ(mknod(path.c_str(), S_IFSOCK, 0), 0);
        }
        log("open() failed: No such device or address", "");
    });
}

TEST(KeyFiles, ActionFileIsWrittenForOneStatusOnly) {
    Device device;
    device.Write(kStores[1], "unmapped");
    const PropertyMap payjoy = {{"sys.tesvo.switch.operator", "payjoy"}};
    device.Boot([&](Init& init) {
        const auto load = [&init](const string& status, const string& switch_operator) {
            init.Set("persist.sys.payjoy.status_change", status);
            init.Set("sys.tesvo.switch.operator", switch_operator);
            EXPECT_EQ(LoadKeys(), kFlashBack);
            return Log(init);
        };
        const string status = "I payjoy_status :1\nI payjoy_status_operator :";
        // The radio store is read once.
        EXPECT_EQ(load("10", ""),
                  StoreFailed(0) + "I payjoy_status :10\nI payjoy_status_operator :\n");
        EXPECT_EQ(load("1", "other"), status + "other\n");
        EXPECT_EQ(load("1", ""), status + "\nE Unable to write ssv_file open() failed: "
                                          "No such file or directory\n");
        fs::create_directories(kSsv);
        init.Set("sys.tesvo.switch.operator", "");
        EXPECT_EQ(LoadKeys(), kFlashBack + payjoy);
        EXPECT_EQ(Log(init), status + "\nI re-read ssv file\n");
    });
    EXPECT_EQ(device.Read(kAction), "sys.tesvo.switch.operator=payjoy\n");
    device.Boot([&](Init& init) {
        EXPECT_EQ(LoadKeys(), kFlashBack + payjoy);
        EXPECT_EQ(Log(init), StoreFailed(0) + "I read ssv file\n");
    });
}

TEST(KeyFiles, RemovedRegionBecomesTheRegion) {
    Device device;
    device.Write(kStores[0], "unmapped");
    device.Boot([](Init& init) {
        const string line = "sys.region.switch.first=";
        const auto load = [&init](const string& removed) {
            init.Set("persist.sys.remove.region.apk", removed);
            const string region = LoadKeys()["sys.region.switch.first"];
            string content = kMissing;
            android::base::ReadFileToString(kDataRegion, &content);
            ExpectKeys({{"regionSwitch", region}});
            return region + "|" + content + "|" + Log(init).substr(kNoAction.size());
        };
        EXPECT_EQ(load(""), "||");
        EXPECT_EQ(load("false"), "||");
        EXPECT_EQ(load("EU"),
                  "EU||E Unable to write region_switch_file_data_path open() failed: "
                  "No such file or directory\n");
        fs::create_directories(kCustomize + "sim_switch");
        EXPECT_EQ(load("0"), "0|" + line + "0\n|");
        EXPECT_EQ(load("EU"), "0|" + line + "0\n|");  // the file is there now
        fs::remove(kDataRegion);
        EXPECT_EQ(load("False"), "False|" + line + "False\n|");
        // The reserve partition's region lasts for this boot, then the data copy wins.
        fs::remove(kDataRegion);
        Put(kRegion, line + "R\n");
        EXPECT_EQ(load("EU"), "R|" + line + "EU\n|" + kRegionFound);
        EXPECT_EQ(load("EU"), "EU|" + line + "EU\n|" + kRegionFound +
                                      "W Overriding previous 'ro.' property "
                                      "'sys.region.switch.first':'R' with new value 'EU'\n");
    });
}

}  // namespace
