#include "player.h"

namespace player {

namespace {

using std::string;

const string kReserve = "/mnt/vendor/tesvoreserve";
const string kSsv = kReserve + "/system/ssv/";
const string kCustomize = "/data/system/customize/";
const string kRegionDir = "/mnt/vendor/my_region";
const string kCarrierDir = "/mnt/vendor/my_carrier";
const string kMountInfo = "/data/cota/cota_mount_info.prop";
const string kModuleInfo = "/data/cota/cota_module_info.prop";
const string kSplash = "/dev/block/by-name/splash_odm";

// Returns a file that takes more than one read, with properties before, across and after the end of
// the first read.
string Long(const string& tag) {
    return "ro." + tag + ".a=1\n#" + string(1100, '-') + "\nro." + tag + ".b=2\n#" +
           string(1100, '-') + "\nro." + tag + ".c=3\n";
}

// Returns a partition's properties for a switch key, in two files.
Files KeyFiles(const string& root, const string& key, const string& leaf) {
    const string directory = root + "/properties/" + key + "/" + leaf + "/";
    return {{directory + "a.prop", Long(key + "." + leaf)},
            {directory + "b.prop", "ro." + key + "." + leaf + ".d=" + root + "\n"},
            {directory + "skipped", "ro.skipped=1\n"},
            {directory + "deeper.prop/", ""}};
}

Files operator+(Files files, const Files& more) {
    files.insert(more.begin(), more.end());
    return files;
}

// The files that every device has: those with brand and region, and the directory of the keys.
const Files kDevice =
        Files{{"/system_ext/etc/build.prop", "ro.tesvo.image.system_ext.brand=Quba\n"},
              {kRegionDir + "/build.prop", "ro.tesvo.pipeline.region=EU\n"},
              {kReserve + "/", ""},
              {kCustomize + "sim_switch/", ""}} +
        KeyFiles("/odm", "NEW", "SimSwitchFirstTime") +
        KeyFiles(kCarrierDir, "NEW", "SimSwitchFirstTime");

const Files kMaps = {{"/odm/etc/nvmap.prop", "OLDKEY=NEW\n"},
                     {"/mnt/vendor/my_stock/etc/nvmap.prop", "other=OTHER\n"},
                     {"/odm/etc/flags.prop", "OLDKEY=north\n"},
                     {"/odm/etc/build.north.prop", Long("north")}};

const PropertyMap kNoneClear = {{"ro.none.clear.switch.first", "true"}};
const std::vector<string> kBoot = {"early", "persist"};

Life Migration(const char* name, const string& store) {
    return {name, kNoneClear, kDevice + kMaps + Files{{store, "OLDKEY"}}, kBoot};
}

const PropertyMap kPackageProperties = {
        {"persist.sys.customize.media", "/my_media"},
        {"ro.build.cota.version_name", "X_13_COTA_5"},
        {"ro.tesvo.customize.display.version_name", "1.0_PM"},
        {"ro.vendor.tesvo.version_suffix", "_EX"},
        {"ro.build.display.id", "id_1"},
};

const Files kPackage =
        kDevice + KeyFiles("/mnt/cota/p", "first", "SimSwitchFirstTime") +
        Files{{"/my_carrier/", ""},
              {"/my_media/", ""},
              {"/mnt/cota/p/ring/tone", "x"},
              {"/mnt/cota/p/build.prop", Long("package") +
                                                 "ro.sys.custommedia.sourcepath=/mnt/cota/p/ring\n"
                                                 "ro.tesvo.image.my_bigball.version_name=B-2_PM\n"
                                                 "ro.tesvo.image.my_bigball.date.utc=7\n"},
              {"/mnt/cota/p/cust/build.prop", "ro.cust=1\n"},
              {kMountInfo, Long("info") + "sys.cotaimg.verify=1\nbind_point=/my_carrier\n"
                                          "sys.cota.load.properties=/mnt/cota/p\n"}};

}  // namespace

const std::vector<Life>& Lives() {
    static const std::vector<Life> lives = {
            {"overlay",
             {{"ro.sample.word", "common"}},
             kDevice + Files{{"/odm/build.prop", Long("odm") +
                                                         "import /odm/etc/${ro.sample.word}.prop"
                                                         "\nimport /odm/etc/some.prop ro.x*\n"},
                             {"/odm/etc/common.prop", Long("common")},
                             {"/odm/etc/some.prop", "ro.xa=1\nro.ya=1\n"},
                             {kRegionDir + "/global/Q/build.prop", "ro.q=1\nro.odm.b=Q\n"},
                             {"/mnt/vendor/my_product/cust/EU/build.prop", "ro.eu=1\n"},
                             {kCarrierDir + "/build.prop", "ro.tesvo.image.my_carrier.type=x\n"},
                             {"/my_company/etc/build.prop", Long("limited")}},
             {"early", "early:/odm", "duskrider"}},
            Migration("migration from the radio's file",
                      kReserve + "/radio/exp_operator_switch.config"),
            Migration("migration from the raw store", "/dev/block/bootdevice/by-name/reserve_exp1"),
            Migration("migration from the old action file", kSsv + "sim_action_file"),
            {"migration from the carrier code",
             {{"ro.boot.vxcarrier", "OLDKEY"},
              {"persist.sys.payjoy.status_change", "1"},
              {"persist.sys.remove.region.apk", "IN"}},
             kDevice + kMaps + KeyFiles("/odm", "IN", "regionSwitch") + Files{{kSsv, ""}},
             kBoot},
            {"conversion of the old format",
             {},
             kDevice + KeyFiles("/odm", "now", "SimSwitchCurrentTime") +
                     KeyFiles("/odm", "IN", "regionSwitch") +
                     Files{{kSsv + "sim_switch_first_file", "NEW"},
                           {kSsv + "sim_switch_current_file", "now"},
                           {kSsv + "region_switch_file", "IN"}},
             kBoot},
            {"switched",
             {{"persist.sys.tesvo.operator.opta", "A"}, {"persist.sys.tesvo.operator.optb", "B"}},
             kDevice + kMaps + KeyFiles("/odm", "now", "SimSwitchCurrentTime") +
                     KeyFiles("/odm", "IN", "regionSwitch") +
                     KeyFiles("/odm", "shop", "switchCarrierChannel") +
                     Files{{kSsv + "sim_switch_convert_file", "sys.sim.switch.convert= true\n"},
                           {kSsv + "sim_action_file", "sys.tesvo.switch.operator=payjoy\n"},
                           {kSsv + "sim_switch_first_file", "sys.sim.switch.first=OLD\n"},
                           {kSsv + "sim_switch_current_file", "sys.sim.switch.current=now\n"},
                           {kSsv + "region_switch_file", "sys.region.switch.first=EU\n"},
                           {kSsv + "sim_switch_common_prop_file", "sys.reboot.count=1\n"},
                           {kSsv + "force_connect_internet_prop_file", "ro.forced=1\n"},
                           {kReserve + "/system/flag/flashback.cfg", "ro.flashback=1\n"},
                           {kCustomize + "sim_switch/sim_switch_first_file",
                            "sys.sim.switch.first=NEW\n"},
                           {kCustomize + "sim_switch/sim_switch_current_file",
                            "sys.sim.switch.current=now\n"},
                           {kCustomize + "sim_switch/region_switch_file",
                            "sys.region.switch.first=IN\n"},
                           {kCustomize + "data_common_prop_file.prop",
                            Long("common") + "persist.sys.channel.info=shop\n"},
                           {kCustomize + "empty_appchannel_prop_file.prop", Long("channel")}},
             {"persist", "sim", "sim:simSwitchCurrent", "sim:simSwitchFirst",
              "sim:switchCarrierChannel", "sim:regionSwitch", "sim:updateDataCommonProp",
              "sim:emptyAppchannelProp"}},
            {"emergency restore",
             {{"persist.sys.911.shutdown", "1"},
              {"persist.sys.channel.info", "shop"},
              {"persist.sys.remove.carrier.apk", "true"},
              {"ro.tesvo.internet.whether.force.connect", "1"}},
             kDevice + KeyFiles("/odm", "IN", "regionSwitch") +
                     Files{{kSsv + "region_switch_file", "sys.region.switch.first=IN\n"},
                           {kSsv + "sim_switch_common_prop_file", "sys.reboot.count=1\n"},
                           {kCustomize + "sim_switch/region_switch_file",
                            "sys.region.switch.first=IN\n"},
                           {kCustomize + "data_common_prop_file.prop", "ro.common=1\n"},
                           {kCustomize + "empty_appchannel_prop_file.prop", "ro.channel=1\n"}},
             kBoot},
            {"market name and company image",
             {{"dev.mnt.blk.userdata", "sda"}, {"ro.tesvo.image.my_company.date", "2"}},
             kDevice +
                     Files{{"/my_product/cust/EU/etc/devicename.cfg",
                            "ROM=128\nmarket=Name\n#" + string(1100, '-') + "\ntype=T\nmodel=M\n"},
                           {"/sys/block/sda/size", "250069680\n"},
                           {"/my_company/build.prop", Long("company") + "persist.company=1\n"}},
             kBoot},
            {"company logo",
             {{"ro.tesvo.image.my_company.date.utc", "1"}},
             {{kSplash, string(16384, '0')},
              {"/my_company/media/logo/logo.bin", string(12000, 'b')}},
             {"sim:triggerLogoCopyFromCompanyBoot", "sim:triggerLogoCopyFromCompanyBoot"}},
            {"other logo",
             {},
             {{kSplash, string(16384, '0')}, {"/data/logo", string(9000, 'p')}},
             {"sim:triggerLogoCopy:/data/logo"}},
            {"carrier package",
             kPackageProperties,
             kPackage,
             {"cota-service:mount_and_check_load", "cota", "media:/my_media"}},
            {"bind thread",
             {{"sys.cota.bind.load.properties", "boot_mount"}},
             kPackage,
             {"cota-service:check_mount"}},
            {"modules",
             {{"ro.build.cota.version_name", "X_13_COTA_5"}},
             kDevice +
                     Files{{kMountInfo, "a=/mnt/cota/new/a\nb=/data/system/customize/b\nsys.i=1\n"},
                           {"/mnt/cota/", ""},
                           {kModuleInfo, Long("module") + "mount_point=/p\nmodule_type=configure\n"
                                                          "bind_point=/mnt/cota/new/a\n"},
                           {"/p/build.prop", Long("configured")}},
             {"cota-service:bind_basic_point"}},
            {"single module",
             {},
             {{kModuleInfo, "mount_point=/p\nmodule_type=other\nbind_point=/m\nsys.m=1\n"},
              {"/p/", ""},
              {"/m/", ""}},
             {"cota-service:module_bind_single"}},
            {"package information",
             {{"ro.tesvo.customize.display.version_name", "1.0_PM"},
              {"ro.build.cota.version_name", "X_13_COTA_5"}},
             {{kMountInfo, Long("info")}},
             {"cota-service:update_cota_info", "cota-service:unknown"}},
    };
    return lives;
}

}  // namespace player
