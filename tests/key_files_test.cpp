#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "device.h"

namespace {

namespace fs = std::filesystem;

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
const string kData = "/data/system/customize/";
const string kDataFirst = kData + "sim_switch/sim_switch_first_file";
const string kDataCurrent = kData + "sim_switch/sim_switch_current_file";
const string kDataRegion = kData + "sim_switch/region_switch_file";

const string kStores[] = {kReserve + "/radio/exp_operator_switch.config",
                          "/dev/block/platform/bootdevice/by-name/reserve_exp1",
                          "/dev/block/bootdevice/by-name/reserve_exp1"};

const string kMissing = "(missing)";
const PropertyMap kFlashBack = {{"ro.sys.customize.flashback.company", "invalid"}};
const PropertyMap kNewFirst = {{"sys.sim.switch.first", "NEW"}};
const string kFirstLine = "sys.sim.switch.first=NEW\n";

const string kNoAction = "I payjoy_status :0\nI payjoy_status_operator :\n";
const string kFirstFound = "I sim_switch_first_file is exist!!!\n";
const string kCurrentFound = "I sim_switch_current_file is exist!!!\n";
const string kRegionFound = "I region_switch_file exists!!!\n";
const string kSimFailed = "sim switch key property failed:";

PropertyMap operator+(PropertyMap a, const PropertyMap& b) {
    a.insert(b.begin(), b.end());
    return a;
}

string Log(Init& init) {
    string log;
    for (const string& line : init.TakeLog()) log += line + "\n";
    return log;
}

string CannotLoad(const string& path, const string& text) {
    return "W Couldn't load property file '" + path +
           "': Unable to read file contents: Is a directory\nE " + text + path + "\n";
}

// The log of the radio's stores from one to another, none of which is there.
string NoStores(int first, int last) {
    string log;
    for (int i = first; i <= last; i++) log += "E read nv_flag failed :" + kStores[i] + "\n";
    return log;
}

// Makes a file, inside a boot, or makes sure that there is none.
void Put(const string& path, const string& content) {
    fs::create_directories(fs::path(path).parent_path());
    fs::remove(path);
    if (content != kMissing) android::base::WriteStringToFile(content, path);
}

// The carrier code is mapped to a key by some tests. A radio's key that nobody maps leaves the log
// alone.
PropertyMap LoadKeys(PropertyMap props = {}) {
    platform::StoreProperty("ro.boot.vxcarrier", "carrier");
    InitExtensionPropertyImpl::getInstance()->loadExtensionSimswitchKeyInfo(&props);
    return props;
}

// Tells whether the extension holds the key of which this is the directory.
bool Selects(const string& key, const string& leaf) {
    Put("/probe/properties/" + key + "/" + leaf + "/a.prop", "a=1");
    PropertyMap found;
    auto* extension = InitExtensionPropertyImpl::getInstance();
    extension->loadExtensionPartitionSimswitchProperties("/probe", &found);
    fs::remove_all("/probe");
    return !found.empty();
}

bool IsSystems(const string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0 && status.st_uid == 1000 && status.st_gid == 1000;
}

void MakeReadOnly(const string& path) {
    ASSERT_EQ(mount(path.c_str(), path.c_str(), nullptr, MS_BIND, nullptr), 0);
    const unsigned long flags = MS_REMOUNT | MS_BIND | MS_RDONLY;
    ASSERT_EQ(mount(nullptr, path.c_str(), nullptr, flags, nullptr), 0);
}

TEST(KeyStores, LastPartitionAndFirstStoreCount) {
    const string broken = "/mnt/vendor/my_stock/etc/flags.prop";
    Device device;
    device.Write("/odm/etc/flags.prop", "K=odm\nonly=odm\nempty=odm\nabc=short\n12345678=long\n");
    device.MakeDirectory(broken);
    device.Write("/mnt/vendor/my_manifest/etc/flags.prop", "K=manifest\nempty=\n");
    device.Boot([&](Init& init) {
        const auto find = [&init](const string& key) {
            string target = "old";
            android::init::find_nv_ssv_target_key(key, "flags.prop", &target);
            return target + "|" + Log(init);
        };
        const string failed = CannotLoad(broken, "map file load failed:");
        EXPECT_EQ(find("K"), "manifest|");
        EXPECT_EQ(find("empty"), "|");  // a mapping to nothing ends the search too
        EXPECT_EQ(find(string("only\0\0\0x", 8)), "odm|" + failed);
        fs::remove(broken);

        const auto radio = [&init](const string& a, const string& b, const string& c) {
            Put(kStores[0], a), Put(kStores[1], b), Put(kStores[2], c);
            string key = "old-", target = "old";
            android::init::load_old_nv_key(&key, &target);
            return key + "|" + target + "|" + Log(init);
        };
        const string empty = "W Couldn't file" + kStores[0] + "\n";
        EXPECT_EQ(radio("12345678901234567890", "", ""), "old-12345678|long|");
        EXPECT_EQ(radio("", "abc", "xyz"), "old-abc|short|" + empty);
        EXPECT_EQ(radio("", kMissing, kMissing), "old-|old|" + empty + NoStores(1, 2));

        fs::create_directories(kAction);
        string key;
        android::init::read_old_ssv_key(&key);
        EXPECT_EQ(Log(init), "E read old ssv failed :" + kAction + "\n");
    });
}

TEST(KeyFiles, MigratesFromEachOlderStoreOnce) {
    const string made = "I there is no ssv dir\nI make dir: " + kReserve +
                        "/system/\nI make dir: " + kSsv + "\nI create ssv dir: " + kSsv + "\n";
    const struct {
        string store, map, read_log, directory_log, none_clear, mark;
    } cases[] = {{kStores[0], "carrier=NEW\nold key=OLD", kNoAction, made, "true", "1"},
                 {kStores[2], "old key=NEW", NoStores(0, 1) + kNoAction, made, "TRUE", kMissing},
                 {kAction, "carrier=\nold key=NEW", NoStores(0, 2) + "I read ssv file\n", "", "",
                  kMissing}};
    const PropertyMap done = {{"sys.sim.switch.convert", "true"}};
    for (const auto& known : cases) {
        Device device;
        device.MakeDirectory(kReserve);
        device.Write("/odm/etc/nvmap.prop", known.map);
        device.Write(known.store, "old key");
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
                EXPECT_EQ(Selects("NEW", "SimSwitchFirstTime"), boot.first_file != kMissing);
                EXPECT_EQ(IsSystems(kFirst), boot.first_file != kMissing);
                EXPECT_TRUE(IsSystems(kConvert));
                EXPECT_EQ(IsSystems(kNoneClear), known.mark != kMissing);
            });
            EXPECT_EQ(device.Read(kFirst), boot.first_file);
            EXPECT_EQ(device.Read(kConvert), "sys.sim.switch.convert= true\n");
            EXPECT_EQ(device.Read(kNoneClear), known.mark);
        }
    }
}

TEST(KeyFiles, FailedMigrationIsTriedAgain) {
    const string read_only = " open() failed: Read-only file system\n";
    const PropertyMap given = {{"ro.none.clear.switch.first", "true"}};
    Device device;
    device.Write(kStores[0], "unmapped");
    device.Write("/odm/etc/nvmap.prop", "carrier=NEW\n");
    device.Boot([&](Init& init) {
        fs::create_directories(kSsv);
        MakeReadOnly(kReserve);
        EXPECT_EQ(LoadKeys(given), given + kFlashBack);
        EXPECT_EQ(Log(init), kNoAction + "E Unable to write sim_action_first_file" + read_only +
                                     "E Unable to write first_switch_none_clear" + read_only);
    });
    EXPECT_EQ(device.Read(kConvert), kMissing);
    device.Write(kNoneClear, "0");
    device.Boot([&](Init& init) {
        fs::create_symlink("/nowhere", kConvert);
        EXPECT_EQ(LoadKeys(given), given + kFlashBack + kNewFirst);
        EXPECT_EQ(Log(init), kNoAction +
                                     "E Unable to write sim_switch_convert_file open() failed: "
                                     "Too many levels of symbolic links\n" +
                                     kFirstFound);
    });
    EXPECT_EQ(device.Read(kNoneClear), "0");  // one that is there stays
}

TEST(KeyFiles, FullReservePartitionDoesNotStopTheBoot) {
    Device device;
    device.Write(kStores[0], "unmapped");
    device.Write("/odm/etc/nvmap.prop", "carrier=NEW\n");
    device.Boot([](Init& init) {
        ASSERT_EQ(mount("tmpfs", kReserve.c_str(), "tmpfs", 0, "size=4096"), 0);
        fs::create_directories(kSsv);
        Put(kStores[0], string(4096, 'x'));
        EXPECT_EQ(LoadKeys(), kFlashBack);
        EXPECT_EQ(Log(init), kNoAction +
                                     "E Unable to write sim_action_first_file Unable to write file "
                                     "contents: No space left on device\n" +
                                     kFirstFound);
        // What was opened for the key stays, empty, and is the system's; the mark is not made.
        EXPECT_TRUE(IsSystems(kFirst));
        EXPECT_FALSE(fs::exists(kConvert));
    });
}

// The old action file is loaded behind the mark and has no say in whether keys are migrated.
TEST(KeyFiles, OnlyTheMarkEndsTheMigration) {
    const struct {
        const char* mark;
        const char* action;
        bool migrates;
    } cases[] = {
            {" true", "sys.sim.switch.convert=false\n", false},
            {"truely", "sys.sim.switch.convert=true\n", true},
            {"", "", true},
    };
    for (const auto& known : cases) {
        SCOPED_TRACE(known.mark);
        Device device;
        device.Write(kStores[0], "unmapped");
        device.Write("/odm/etc/nvmap.prop", "carrier=NEW\n");
        device.Write(kAction, known.action);
        device.Write(kConvert, string("sys.sim.switch.convert=") + known.mark + "\n");
        device.Boot([](Init&) { LoadKeys(); });
        EXPECT_EQ(device.Read(kFirst), known.migrates ? kFirstLine : kMissing);
    }
}

TEST(KeyFiles, OldFormatIsConvertedOnce) {
    const struct {
        string path, property, leaf, found, converts, write_failed;
    } files[] = {{kFirst, "sys.sim.switch.first", "SimSwitchFirstTime", kFirstFound,
                  "E Convert tmp_first_key to SIM_SWITCH_FIRST_PROPERTY\n",
                  "E Unable to write sim_switch_first_file"},
                 {kCurrent, "sys.sim.switch.current", "SimSwitchCurrentTime", kCurrentFound,
                  "E Convert tmp_current_key to SIM_SWITCH_CURRENT_PROPERTY\n",
                  "E Unable to write sim_switch_current_file"},
                 {kRegion, "sys.region.switch.first", "regionSwitch", kRegionFound,
                  "E Convert tmp_region_key to REGION_SWITCH_PROPERTY\n",
                  "E Unable to write region_switch_file"}};
    for (const auto& file : files) {
        const string converts = file.found + file.converts;
        const string failed = file.write_failed + "open() failed: Read-only file system\n" +
                              "E Unable to chown file " + file.path + "\n";
        const struct {
            string content, key, log, content_then;
        } boots[] = {{"A1B2", "A1B2", converts + failed, "A1B2"},
                     {"", "A1B2", converts, file.property + "=A1B2\n"},
                     {"", "A1B2", file.found, file.property + "=A1B2\n"},
                     {"C3\n", "C3\n", converts, file.property + "=C3\n\n"}};
        Device device;
        device.Write(kStores[0], "unmapped");
        for (const auto& boot : boots) {
            SCOPED_TRACE(file.path + " " + boot.key);
            device.Boot([&](Init& init) {
                if (!boot.content.empty()) Put(file.path, boot.content);
                if (&boot == &boots[0]) MakeReadOnly(kReserve);
                EXPECT_EQ(LoadKeys(), (kFlashBack + PropertyMap{{file.property, boot.key}}));
                EXPECT_EQ(Log(init), kNoAction + boot.log);
                EXPECT_TRUE(Selects(boot.key, file.leaf));
                EXPECT_EQ(IsSystems(file.path), &boot != &boots[0]);
            });
            EXPECT_EQ(device.Read(file.path), boot.content_then);
        }
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
        {kRegion, "sys.region.switch.first", kRegionFound, "region switch key property failed:"},
        {kDataCurrent, "sys.sim.switch.current", "", kSimFailed},
        {kSsv + "sim_switch_common_prop_file", "count", "", "reboot count key property failed:"},
        {kDataFirst, "sys.sim.switch.first", "", kSimFailed},
        {kDataRegion, "sys.region.switch.first", "", "region switch key property failed:"},
        {kData + "data_common_prop_file.prop", "persist.sys.channel.info", "", kSimFailed},
        {kSsv + "force_connect_internet_prop_file", "force", "",
         "force connect internet property failed:"},
        {kReserve + "/system/flag/flashback.cfg", "ro.sys.customize.flashback.company", "",
         "flash back property failed:"},
};

TEST(KeyFiles, LaterFilesWinAndDataCopiesAreLater) {
    Device good, bad;
    string bad_log;
    PropertyMap props;
    for (Device* device : {&good, &bad}) device->Write(kStores[0], "unmapped");
    for (const auto& file : kKeyFiles) {
        good.Write(file.path, "last=" + file.path + "\n" + file.property + "=" + file.path);
        props[file.property] = props["last"] = file.path;
        bad.MakeDirectory(file.path);
        bad_log += file.found + CannotLoad(file.path, file.failed);
    }
    good.Boot([&](Init& init) {
        init.Set("persist.sys.remove.region.apk", "EU");  // the file is there already
        EXPECT_EQ(LoadKeys(), props);
        EXPECT_TRUE(Selects(kDataFirst, "SimSwitchFirstTime"));
        EXPECT_TRUE(Selects(kDataCurrent, "SimSwitchCurrentTime"));
        EXPECT_TRUE(Selects(kDataRegion, "regionSwitch"));
        EXPECT_TRUE(Selects(kData + "data_common_prop_file.prop", "switchCarrierChannel"));
    });
    bad.Boot([&](Init& init) {
        LoadKeys({{"persist.sys.channel.info", "X"}});
        EXPECT_EQ(Log(init), bad_log);
        EXPECT_FALSE(Selects("X", "switchCarrierChannel"));  // taken only with its file loaded
    });
}

TEST(KeyFiles, PropertiesBecomeFilesOnce) {
    Device device;
    device.Write(kStores[1], "unmapped");
    device.Boot([&](Init& init) {
        const auto payjoy = [&init](const string& status, const string& switch_operator) {
            init.Set("persist.sys.payjoy.status_change", status);
            init.Set("sys.tesvo.switch.operator", switch_operator);
            EXPECT_EQ(LoadKeys().count("sys.tesvo.switch.operator"), fs::exists(kSsv));
            return Log(init);
        };
        const string status = "I payjoy_status :1\nI payjoy_status_operator :\n";
        const string missing = " open() failed: No such file or directory\n";
        EXPECT_EQ(payjoy("10", ""), NoStores(0, 0) + "I payjoy_status :10\n" +  // asked once
                                            "I payjoy_status_operator :\n");
        EXPECT_EQ(payjoy("1", "x"), "I payjoy_status :1\nI payjoy_status_operator :x\n");
        EXPECT_EQ(payjoy("1", ""), status + "E Unable to write ssv_file" + missing);
        fs::create_directories(kSsv);
        EXPECT_EQ(payjoy("1", ""), status + "I re-read ssv file\n");
        const string action = "I read ssv file\n";
        const auto region = [&init](const string& removed) {
            init.Set("persist.sys.remove.region.apk", removed);
            const string key = LoadKeys()["sys.region.switch.first"];
            return key + "|" + Log(init);
        };
        EXPECT_EQ(region("false"), "|" + action);
        EXPECT_EQ(region("EU"),
                  "EU|" + action + "E Unable to write region_switch_file_data_path" + missing);
        fs::create_directories(kData + "sim_switch");
        // The reserve partition's region lasts for this boot.
        Put(kRegion, "sys.region.switch.first=R");
        EXPECT_EQ(region("False"), "R|" + action + kRegionFound);
        init.Set("ro.sys.customize.flashback.company", "set");
        EXPECT_EQ(LoadKeys().count("ro.sys.customize.flashback.company"), 0u);
    });
    EXPECT_EQ(device.Read(kAction), "sys.tesvo.switch.operator=payjoy\n");
    EXPECT_EQ(device.Read(kDataRegion), "sys.region.switch.first=False\n");
}

}  // namespace
