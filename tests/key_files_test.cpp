#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "device.h"

namespace {

namespace fs = std::filesystem;

using std::string;

const string kReserve = "/mnt/vendor/tesvoreserve";
const string kSsv = kReserve + "/system/ssv/";
const string kConvert = kSsv + "sim_switch_convert_file";
const string kAction = kSsv + "sim_action_file";
const string kFirst = kSsv + "sim_switch_first_file";
const string kNoneClear = kSsv + "first_switch_none_clear";
const string kRegion = kSsv + "region_switch_file";
const string kData = "/data/system/customize/";
const string kDataRegion = kData + "sim_switch/region_switch_file";

const string kStores[] = {kReserve + "/radio/exp_operator_switch.config",
                          "/dev/block/platform/bootdevice/by-name/reserve_exp1",
                          "/dev/block/bootdevice/by-name/reserve_exp1"};

const string kMissing = "(missing)";
const PropertyMap kFlashBack = {{"ro.sys.customize.flashback.company", "invalid"}};
const string kFirstLine = "sys.sim.switch.first=NEW\n";

const string kNoAction = "I payjoy_status :0\nI payjoy_status_operator :\n";
const string kFirstFound = "I sim_switch_first_file is exist!!!\n";
const string kRegionFound = "I region_switch_file exists!!!\n";
const string kFirstKey = "sys.sim.switch.first";
const string kCurrentKey = "sys.sim.switch.current";
const string kRegionKey = "sys.region.switch.first";
const string kConverted = "sys.sim.switch.convert";
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
    android::init::InitExtensionPropertyImpl::getInstance()->loadExtensionSimswitchKeyInfo(&props);
    return props;
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
    device.Write("/odm/etc/flags.prop", "K=odm\nonly=odm\nempty=odm\n12345678=long\n");
    device.MakeDirectory(broken);
    device.Write("/mnt/vendor/my_manifest/etc/flags.prop", "K=manifest\nempty=\n");
    device.Boot([&](Init& init) {
        const auto find = [&init](const string& key) {
            string target = "old";
            android::init::find_nv_ssv_target_key(key, "flags.prop", &target);
            return target + "|" + Log(init);
        };
        EXPECT_EQ(find("K"), "manifest|");
        EXPECT_EQ(find("empty"), "|");  // a mapping to nothing ends the search too
        EXPECT_EQ(find(string("only\0\0\0x", 8)),
                  "odm|" + CannotLoad(broken, "map file load failed:"));
        fs::remove(broken);

        const auto radio = [&init](const string& first, const string& second) {
            Put(kStores[0], first), Put(kStores[1], second);
            string key = "old-", target = "old";
            android::init::load_old_nv_key(&key, &target);
            return key + "|" + target + "|" + Log(init);
        };
        EXPECT_EQ(radio("12345678901234567890", "K"), "old-12345678|long|");
        EXPECT_EQ(radio("", kMissing),
                  "old-|old|W Couldn't file" + kStores[0] + "\n" + NoStores(1, 2));
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
    for (const auto& known : cases) {
        Device device;
        device.MakeDirectory(kReserve);
        device.Write("/odm/etc/nvmap.prop", known.map);
        device.Write(known.store, "old key");
        const PropertyMap given =
                kFlashBack + PropertyMap{{"ro.none.clear.switch.first", known.none_clear}};
        const struct {
            string mark;
            PropertyMap props;
            string log, first_file;
        } boots[] = {
                {"", {{kFirstKey, "NEW"}}, known.directory_log + kFirstFound, kFirstLine},
                {"", {{kConverted, "true"}}, "", kMissing},  // the mark is enough
                {"truely", {{kConverted, "truely"}, {kFirstKey, "NEW"}}, kFirstFound, kFirstLine}};
        for (const auto& boot : boots) {
            device.Boot([&](Init& init) {
                fs::remove(kFirst);
                if (!boot.mark.empty()) Put(kConvert, kConverted + "=" + boot.mark);
                EXPECT_EQ(LoadKeys(given), given + boot.props);
                EXPECT_EQ(Log(init), known.read_log + boot.log);
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
    device.MakeDirectory(kSsv);
    device.Boot([](Init& init) {
        ASSERT_EQ(mount("tmpfs", kReserve.c_str(), "tmpfs", 0, "size=8192"), 0);
        fs::create_directories(kSsv);
        Put(kStores[0], string(8192, 'x'));
        EXPECT_EQ(LoadKeys(), kFlashBack);
        EXPECT_EQ(Log(init), kNoAction +
                                     "E Unable to write sim_action_first_file Unable to write file "
                                     "contents: No space left on device\n");
        // What the write made is gone again: an empty file would pass for a key.
        EXPECT_TRUE(fs::is_empty(kSsv));
        Put(kStores[0], kMissing);
        EXPECT_EQ(LoadKeys(), (kFlashBack + PropertyMap{{kFirstKey, "NEW"}}));
        EXPECT_TRUE(IsSystems(kConvert));
    });
    device.Boot([&](Init& init) {
        MakeReadOnly(kReserve);
        EXPECT_EQ(LoadKeys(given), given + kFlashBack);
        EXPECT_EQ(Log(init), kNoAction + "E Unable to write sim_action_first_file" + read_only +
                                     "E Unable to write first_switch_none_clear" + read_only);
    });
    device.Write(kNoneClear, "0");
    // The old action file is loaded behind the mark and has no say in whether keys are migrated.
    device.Write(kAction, kConverted + "=true\n");
    device.Boot([&](Init&) { LoadKeys(given); });
    EXPECT_EQ(device.Read(kFirst), kFirstLine);
    EXPECT_EQ(device.Read(kNoneClear), "0");  // one that is there stays
}

// All files that are read, in order, with what is logged before and after a failed loading, and
// with the names in the log of those that may be in the format of older software.
const struct {
    string path, property, found, failed, old_name = "";
} kKeyFiles[] = {
        {kConvert, kConverted, "", "sim switch convert property load failed:"},
        {kAction, kFirstKey, "I read ssv file\n", "read ssv failed :"},
        {kFirst, kFirstKey, kFirstFound, kSimFailed, "first_key to SIM_SWITCH_FIRST"},
        {kSsv + "sim_switch_current_file", kCurrentKey, "I sim_switch_current_file is exist!!!\n",
         kSimFailed, "current_key to SIM_SWITCH_CURRENT"},
        {kRegion, kRegionKey, kRegionFound,
         "region switch key property failed:", "region_key to REGION_SWITCH"},
        {kData + "sim_switch/sim_switch_current_file", kCurrentKey, "", kSimFailed},
        {kSsv + "sim_switch_common_prop_file", "count", "", "reboot count key property failed:"},
        {kData + "sim_switch/sim_switch_first_file", kFirstKey, "", kSimFailed},
        {kDataRegion, kRegionKey, "", "region switch key property failed:"},
        {kData + "data_common_prop_file.prop", "persist.sys.channel.info", "", kSimFailed},
        {kSsv + "force_connect_internet_prop_file", "force", "",
         "force connect internet property failed:"},
        {kReserve + "/system/flag/flashback.cfg", "ro.sys.customize.flashback.company", "",
         "flash back property failed:"},
};

TEST(KeyFiles, OldFormatIsConvertedOnce) {
    for (const auto& file : kKeyFiles) {
        if (file.old_name.empty()) continue;
        const string converts = file.found + "E Convert tmp_" + file.old_name + "_PROPERTY\n";
        const string failed = "E Unable to write " + file.path.substr(kSsv.size()) +
                              "open() failed: Read-only file system\nE Unable to chown file " +
                              file.path + "\n";
        const struct {
            string content, key, log, content_then;
        } boots[] = {{"A1B2", "A1B2", converts + failed, "A1B2"},
                     {"", "A1B2", converts, file.property + "=A1B2\n"},
                     {"C3\n", "C3\n", converts, file.property + "=C3\n\n"},
                     {"", "C3", file.found, file.property + "=C3\n\n"}};
        Device device;
        device.Write(kStores[0], "unmapped");
        for (const auto& boot : boots) {
            SCOPED_TRACE(file.path + " " + boot.key);
            device.Boot([&](Init& init) {
                if (!boot.content.empty()) Put(file.path, boot.content);
                if (&boot == &boots[0]) MakeReadOnly(kReserve);
                EXPECT_EQ(LoadKeys(), (kFlashBack + PropertyMap{{file.property, boot.key}}));
                EXPECT_EQ(Log(init), kNoAction + boot.log);
                EXPECT_EQ(IsSystems(file.path), &boot != &boots[0]);
            });
            EXPECT_EQ(device.Read(file.path), boot.content_then);
        }
    }
}

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
    good.Boot([&](Init&) { EXPECT_EQ(LoadKeys(), props); });
    bad.Boot([&](Init& init) {
        LoadKeys();
        EXPECT_EQ(Log(init), bad_log);
    });
}

TEST(KeyFiles, PropertiesBecomeFilesOnce) {
    Device device;
    device.Write(kStores[0], "unmapped");
    device.Boot([&](Init& init) {
        const auto load = [&init](const string& name, const string& value) {
            init.Set(name, value);
            const string key = LoadKeys()[kRegionKey];
            return key + "|" + Log(init);
        };
        const string status = "persist.sys.payjoy.status_change";
        const string switch_operator = "sys.tesvo.switch.operator";
        const string removed = "persist.sys.remove.region.apk";
        const string paid = "|I payjoy_status :1\nI payjoy_status_operator :\n";
        const string missing = " open() failed: No such file or directory\n";
        const string action = "I read ssv file\n";
        EXPECT_EQ(load(status, "10"), "|I payjoy_status :10\nI payjoy_status_operator :\n");
        EXPECT_EQ(load(status, "1"), paid + "E Unable to write ssv_file" + missing);
        fs::create_directories(kSsv);
        EXPECT_EQ(load(switch_operator, "x"), "|I payjoy_status :1\nI payjoy_status_operator :x\n");
        EXPECT_EQ(load(switch_operator, ""), paid + "I re-read ssv file\n");
        EXPECT_EQ(load(removed, "false"), "|" + action);
        EXPECT_EQ(load(removed, "EU"),
                  "EU|" + action + "E Unable to write region_switch_file_data_path" + missing);
        fs::create_directories(kData + "sim_switch");
        // The reserve partition's region lasts for this boot.
        Put(kRegion, "sys.region.switch.first=R");
        EXPECT_EQ(load(removed, "False"), "R|" + action + kRegionFound);
    });
    EXPECT_EQ(device.Read(kAction), "sys.tesvo.switch.operator=payjoy\n");
    EXPECT_EQ(device.Read(kDataRegion), "sys.region.switch.first=False\n");
}

}  // namespace
