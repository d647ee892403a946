#include "random_device.h"

#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <map>
#include <random>

namespace {

namespace fs = std::filesystem;

using Strings = std::vector<std::string>;

// Names that decide what a boot does, with values that matter.
const std::vector<std::pair<std::string, Strings>> kSteering = {
        {"ro.tesvo.image.system_ext.brand", {"quba", "Lumora", "other"}},
        {"ro.tesvo.pipeline.region", {"IN", "EU"}},
        {"sys.sim.switch.first", {"north", "south", "a/b"}},
        {"sys.sim.switch.current", {"north", "south"}},
        {"sys.region.switch.first", {"north", "south"}},
        {"persist.sys.channel.info", {"north", "a/b"}},
        {"sys.sim.switch.convert", {"true"}},
        {"ro.none.clear.switch.first", {"true"}},
        {"sys.tesvo.switch.operator", {"payjoy"}},
        {"persist.sys.payjoy.status_change", {"1"}},
        {"persist.sys.tesvo.operator.opta", {"Op"}},
        {"persist.sys.tesvo.operator.optb", {"Ta"}},
        {"persist.sys.remove.region.apk", {"north", "false"}},
        {"ro.boot.vxcarrier", {"nvkey", "T1"}},
        {"ro.sys.customize.flashback.company", {"flash"}},
        {"ro.tesvo.image.my_company.date", {"day1", "day2"}},
        {"persist.sys.tesvo.company.ota.version.backup", {"day1"}},
        {"ro.tesvo.image.my_carrier.type", {"empty", "full"}},
        {"ro.tesvo.cust.ver", {"0"}},
        {"ro.tesvo.image.my_carrier.version_name", {"C-1PM", "C-2CT"}},
        {"ro.tesvo.image.my_carrier.date.utc", {"11"}},
        {"ro.tesvo.image.my_bigball.version_name", {"B-1PM"}},
        {"ro.tesvo.image.my_bigball.date.utc", {"22"}},
        {"ro.tesvo.image.my_region.version_name", {"R-1"}},
        {"ro.tesvo.customize.display.version_name", {"shownPM"}},
        {"ro.build.cota.version_name", {"X_13_COTA_5"}},
        {"ro.vendor.tesvo.version_suffix", {"-exp"}},
        {"ro.build.display.id", {"A_1"}},
        {"persist.sys.911.shutdown", {"1", "0"}},
        {"ro.tesvo.internet.whether.force.connect", {"1"}},
        {"ro.tesvo.internet.force.connect", {"1"}},
        {"persist.sys.recopy.preload.opinstalled", {"none"}},
        {"sys.cotaimg.verify", {"1"}},
        {"sys.cota.load.properties", {"/mnt/cota/package", "/mnt/staging/settings"}},
        {"ro.sys.custommedia.sourcepath", {"/mnt/cota/package/media"}},
        {"persist.sys.customize.media", {"/my_media"}},
        {"dev.mnt.blk.userdata", {"sda"}},
        {"ro.ref.0", {"a", "b", "none"}},
        {"ro.ref.1", {"a", "b"}},
};

const Strings kRoots = {"/odm",
                        "/mnt/vendor/my_preload",
                        "/mnt/vendor/my_zorlin",
                        "/mnt/vendor/my_stock",
                        "/mnt/vendor/my_region/global",
                        "/mnt/vendor/my_region/global/Q",
                        "/mnt/vendor/my_region/global/L",
                        "/mnt/vendor/my_product",
                        "/mnt/vendor/my_region",
                        "/mnt/vendor/my_region/Q",
                        "/mnt/vendor/my_region/V",
                        "/mnt/vendor/my_product/cust/IN",
                        "/mnt/vendor/my_product/cust/EU",
                        "/mnt/vendor/my_carrier",
                        "/mnt/vendor/my_carrier/cust",
                        "/mnt/vendor/my_bigball",
                        "/mnt/vendor/my_company",
                        "/mnt/vendor/my_engineering",
                        "/mnt/vendor/my_manifest",
                        "/my_company",
                        "/my_carrier",
                        "/my_region",
                        "/my_stock",
                        "/system",
                        "/mnt/vendor/my_other",
                        "/mnt/vendor/my_product/cust",
                        "/mnt/cota/package",
                        "/mnt/cota/package/cust",
                        "/mnt/staging/settings",
                        "/mnt/cota/settings",
                        "/my_bound"};

// What import lines name; a file imports those behind it only, so that no import is endless.
const Strings kImported = {"/odm/etc/i0.prop",
                           "/my_product/etc/i1.prop",
                           "/mnt/vendor/my_region/etc/i2",
                           "/mnt/vendor/my_stock/etc/i3.prop",
                           "/odm/etc/i4.cfg",
                           "/my_company/etc/i5.prop",
                           "/mnt/vendor/my_carrier/etc/i6.prop",
                           "/data/system/i7.prop"};

const std::pair<std::string, std::string> kKeyFiles[] = {
        {"/mnt/vendor/tesvoreserve/system/ssv/sim_switch_first_file", "sys.sim.switch.first"},
        {"/mnt/vendor/tesvoreserve/system/ssv/sim_switch_current_file", "sys.sim.switch.current"},
        {"/mnt/vendor/tesvoreserve/system/ssv/region_switch_file", "sys.region.switch.first"},
        {"/mnt/vendor/tesvoreserve/system/ssv/sim_switch_common_prop_file", "ro.ref.0"},
        {"/mnt/vendor/tesvoreserve/system/ssv/sim_switch_convert_file", "sys.sim.switch.convert"},
        {"/mnt/vendor/tesvoreserve/system/ssv/sim_action_file", "sys.tesvo.switch.operator"},
        {"/mnt/vendor/tesvoreserve/system/ssv/force_connect_internet_prop_file",
         "ro.tesvo.internet.force.connect"},
        {"/mnt/vendor/tesvoreserve/system/flag/flashback.cfg",
         "ro.sys.customize.flashback.company"},
        {"/data/system/customize/sim_switch/sim_switch_first_file", "sys.sim.switch.first"},
        {"/data/system/customize/sim_switch/sim_switch_current_file", "sys.sim.switch.current"},
        {"/data/system/customize/sim_switch/region_switch_file", "sys.region.switch.first"},
};

const Strings kLeaves = {"SimSwitchFirstTime", "SimSwitchCurrentTime", "switchCarrierChannel",
                         "regionSwitch"};
const Strings kKeys = {"north", "south", "a/b", "none"};

class Maker {
  public:
    Maker(const std::string& root, uint64_t seed) : root_(root), random_(seed) {}

    Strings Make() {
        ChooseLinks();
        MakePartitions();
        MakeImported();
        MakeKeyDirectories();
        MakeKeyFiles();
        MakeOldStores();
        MakePackage();
        MakeOthers();
        MakeLinks();
        return Words();
    }

  private:
    size_t Below(size_t limit) { return random_() % limit; }
    bool Chance(size_t percent) { return Below(100) < percent; }
    template <typename List>
    const auto& Pick(const List& list) {
        return list[Below(std::size(list))];
    }
    std::string Pick(std::initializer_list<const char*> list) {
        return list.begin()[Below(list.size())];
    }

    std::string Setting() {
        const auto& [name, values] = Pick(kSteering);
        return name + "=" + Pick(values);
    }

    std::string Name() {
        return Pick({"ro.t.", "persist.t.", "sys.t.", "debug.t."}) + std::to_string(Below(8));
    }

    std::string Value() {
        const size_t roll = Below(100);
        if (roll < 12) return "same";
        if (roll < 16) return "";
        if (roll < 20) return std::string(92, 'x') + std::to_string(++last_value_);
        if (roll < 23) return "\xff\xfe" + std::to_string(++last_value_);
        return (roll < 27 ? "\u00fc=" : "v") + std::to_string(++last_value_);
    }

    std::string Line() {
        const size_t roll = Below(100);
        if (roll < 10) return Setting();
        if (roll < 13) return Pick({"# ro.t.1=comment", "no equals sign", "", "import"});
        if (roll < 17) return Pick({"ro..t=", "t 1=", ".t.1=", "t.1.=", "t/1=", "="}) + Value();
        if (roll < 25) return "  " + Name() + Pick({" = ", "\t=", "= "}) + Value() + " \r";
        return Name() + "=" + Value();
    }

    std::string Import(size_t first) {
        const std::string filter =
                Chance(40) ? " " + Pick({"ro.t.1", "ro.t.*", "persist.*", "*", " sys.t.2", ""})
                           : "";
        const size_t roll = Below(100);
        if (roll < 20) {
            return "import " +
                   Pick({"/odm/etc/${ro.ref.0}.prop", "/odm/etc/${ro.ref.1}.prop",
                         "/odm/etc/${ro.ref.0:-b}.prop", "/odm/etc/$ro.ref.0.prop",
                         "/odm/etc/${ro.ref.0", "/${ro.none}", "/odm/etc/${:-a}.prop"}) +
                   filter;
        }
        if (roll < 28) return "import /odm/etc/missing.prop" + filter;
        if (roll < 36) return "import /odm/etc/link.prop" + filter;
        if (roll < 46) return "import " + Pick(kRoots) + "/build.prop ro.t.*";
        if (first >= kImported.size()) return Line();
        return "import  " + kImported[first + Below(kImported.size() - first)] + filter;
    }

    // Random lines, with imports of what stands at `first` or behind it.
    Strings Lines(size_t most, size_t first) {
        Strings lines;
        for (size_t count = 1 + Below(most); count > 0; --count) {
            lines.push_back(Chance(13) ? Import(first) : Line());
        }
        return lines;
    }

    // Partitions of two names, linked one way or the other.
    void ChooseLinks() {
        for (const char* name :
             {"my_region", "my_product", "my_carrier", "my_company", "my_stock"}) {
            const std::string mine = std::string("/") + name;
            const std::string vendor = "/mnt/vendor" + mine;
            const size_t roll = Below(4);
            if (roll == 0) links_[mine] = vendor;
            if (roll == 1) links_[vendor] = mine;
        }
    }

    std::string Outside(const std::string& path) const {
        for (const auto& [link, target] : links_) {
            if (path == link || path.compare(0, link.size() + 1, link + "/") == 0) {
                return root_ + target + path.substr(link.size());
            }
        }
        return root_ + path;
    }

    void File(const std::string& path, const Strings& lines, const char* end = "\n") {
        const fs::path outside = Outside(path);
        fs::create_directories(outside.parent_path());
        if (!fs::is_symlink(outside.parent_path()) && fs::exists(outside) && Chance(50)) return;
        std::ofstream file(outside);
        for (const std::string& line : lines) file << line << end;
    }

    void MakePartitions() {
        for (const char* path : {"/my_carrier", "/my_bound", "/my_media", "/mnt/cota/settings",
                                 "/mnt/cota/package/media", "/odm/etc"}) {
            fs::create_directories(Outside(path));
        }
        if (Chance(75)) {
            Strings lines = Lines(3, 0);
            lines.insert(
                    lines.begin() + Below(lines.size()),
                    "ro.tesvo.image.system_ext.brand=" + Pick({"quba", "LUMORA", "vantrix", "x"}));
            File("/system_ext/etc/build.prop", lines);
        }
        for (const std::string& root : kRoots) {
            if (!Chance(60)) continue;
            Strings lines = Lines(8, 0);
            if (root == "/mnt/vendor/my_region" && Chance(80)) {
                lines.insert(lines.begin() + Below(lines.size()),
                             "ro.tesvo.pipeline.region=" + Pick({"IN", "EU", "XX"}));
            }
            File(root + "/build.prop", lines);
        }
    }

    void MakeImported() {
        for (size_t i = 0; i < kImported.size(); ++i) {
            if (Chance(80)) File(kImported[i], Lines(6, i + 1));
        }
        for (const char* path : {"/odm/etc/a.prop", "/odm/etc/b.prop"})
            File(path, {Line(), Line()});
        if (Chance(70))
            fs::create_symlink(Pick({"a.prop", "/odm/etc/i0.prop", "gone"}),
                               Outside("/odm/etc/link.prop"));
        if (!Chance(2)) return;
        const std::string deep = "/odm/etc/deep";
        for (int i = 0; i < 70; ++i) {
            File(deep + std::to_string(i) + ".prop",
                 {Line(), "import " + deep + std::to_string(i + 1) + ".prop", Line()});
        }
        File("/my_engineering/build.prop", {"import " + deep + "0.prop"});
        File("/odm/build.prop", {Line(), "import " + deep + "0.prop"});
    }

    void MakeKeyDirectories() {
        for (const std::string& root : kRoots) {
            for (size_t count = Chance(45) ? 1 + Below(3) : 0; count > 0; --count) {
                const std::string directory =
                        root + "/properties/" + Pick(kKeys) + "/" + Pick(kLeaves);
                File(directory + "/" + Pick({"x.prop", "y.prop", "z.prop.bak", "other"}),
                     Lines(4, 0));
                if (Chance(8) &&
                    !fs::exists(fs::symlink_status(Outside(directory + "/link.prop")))) {
                    fs::create_symlink(Pick({"x.prop", "other", "/odm/etc/a.prop"}),
                                       Outside(directory + "/link.prop"));
                }
            }
        }
    }

    void MakeKeyFiles() {
        const size_t percent = Pick({"5", "20", "60"})[0] == '5' ? 5 : 35;
        for (const auto& [path, property] : kKeyFiles) {
            if (!Chance(percent)) continue;
            const bool is_mark = property == "sys.sim.switch.convert";
            const std::string key = is_mark ? " true" : Pick(kKeys);
            if (!is_mark && Chance(30)) {
                File(path, {key}, Pick({"", "\n"}) == "" ? "" : "\n");
                continue;
            }
            Strings lines = {property + "=" + key};
            while (Chance(30)) lines.push_back(Line());
            File(path, lines);
        }
    }

    void MakeOldStores() {
        if (Chance(25)) {
            File("/mnt/vendor/tesvoreserve/radio/exp_operator_switch.config", {"nvkey"}, "");
        }
        for (const std::string& root : kRoots) {
            if (Chance(12)) File(root + "/etc/flags.prop", {Line(), "nvkey=" + Pick({"T1", "T2"})});
            if (Chance(12)) File(root + "/etc/nvmap.prop", {"nvkey=" + Pick(kKeys), "none=south"});
            if (Chance(15))
                File(root + "/etc/build." + Pick({"T1", "T2", ""}) + ".prop", Lines(3, 0));
        }
    }

    void MakePackage() {
        if (Chance(60)) {
            Strings lines = Lines(4, 0);
            if (Chance(90)) lines.push_back("sys.cotaimg.verify=1");
            if (Chance(90)) lines.push_back("sys.cota.load.properties=/mnt/cota/package");
            if (Chance(40)) {
                lines.push_back("bind_point=" + Pick({"/my_bound", "/mnt/vendor/my_carrier",
                                                      "/none", "/mnt/cota/package"}));
            }
            if (Chance(30)) lines.push_back("settings=/mnt/cota/settings");
            File("/data/cota/cota_mount_info.prop", lines);
        }
        if (!Chance(50)) return;
        Strings lines = Lines(3, 0);
        if (Chance(90)) lines.push_back("module_type=" + Pick({"configure", "configure", "other"}));
        lines.push_back("mount_point=/mnt/staging/settings");
        if (Chance(90)) lines.push_back("bind_point=" + Pick({"/mnt/cota/settings", "/my_bound"}));
        File("/data/cota/cota_module_info.prop", lines);
    }

    void MakeOthers() {
        if (Chance(40)) File("/my_company/etc/build.prop", Lines(5, 0));
        for (const char* name : {"empty_appchannel_prop_file", "data_common_prop_file"}) {
            Strings lines = Lines(4, 0);
            if (Chance(40)) lines.push_back("persist.sys.channel.info=" + Pick(kKeys));
            if (Chance(40)) File(std::string("/data/system/customize/") + name + ".prop", lines);
        }
        if (Chance(30)) File("/odm/etc/stray.prop", Lines(3, 0));
        if (Chance(30)) File("/vendor/deep/down/build.prop", Lines(3, 0));
        if (Chance(20)) {
            File("/my_product/cust/" + Pick({"IN", "EU", ""}) + "/etc/devicename.cfg",
                 {"ROM=128", "market=Name " + Value(), "type=t", "model=m"});
            File("/sys/block/sda/size", {"268435456"});
        }
    }

    void MakeLinks() {
        for (const auto& [link, target] : links_) {
            const fs::path outside = root_ + link;
            fs::create_directories(root_ + target);
            fs::create_directories(outside.parent_path());
            const bool is_short = link.compare(0, 5, "/mnt/") != 0;
            const std::string relative = is_short ? target.substr(1) : "../.." + target;
            fs::create_symlink(Chance(50) ? target : relative, outside);
        }
    }

    std::string Step() {
        switch (Below(12)) {
            case 0:
                return "early";
            case 1:
                return "early:" + Pick(kRoots);
            case 2:
                return "duskrider";
            case 3:
                return "cota";
            case 4:
                return "sim";
            case 5:
            case 6:
                return "sim:" +
                       Pick({"simSwitchCurrent", "simSwitchFirst", "switchCarrierChannel",
                             "regionSwitch", "updateDataCommonProp", "emptyAppchannelProp"});
            case 7:
            case 8:
            case 9:
                return "cota-service:" +
                       Pick({"mount_and_check_load", "mount_must_load", "bind_basic_point",
                             "update_cota_info", "module_bind_single"});
            case 10:
                return "media:/my_media";
            default:
                return "persist";
        }
    }

    Strings Words() {
        Strings words;
        if (!Chance(8)) {
            for (int boot = 0; boot == 0 || Chance(25); ++boot) {
                if (boot != 0) words.push_back("reboot");
                if (Chance(88)) words.push_back("early");
                if (Chance(25)) words.push_back(Step());
                if (Chance(85)) words.push_back("persist");
                while (Chance(55)) words.push_back(Step());
            }
            if (Chance(2)) {
                words.push_back("cota-service:check_mount");
                for (const char* request : {"bind_basic_point_boot", "boot_mount"}) {
                    if (Chance(60)) words.insert(words.end(), {"--request", request});
                }
            }
        }
        std::map<std::string, std::string> settings;
        while (Chance(65)) {
            const std::string setting =
                    Chance(60) ? Setting() : Name() + "=s" + std::to_string(Below(99));
            settings.emplace(setting.substr(0, setting.find('=')), setting);
        }
        Strings options;
        for (const auto& [name, setting] : settings)
            options.insert(options.end(), {"--set", setting});
        words.insert(Chance(50) ? words.begin() : words.end(), options.begin(), options.end());
        return words;
    }

    const std::string root_;
    std::mt19937_64 random_;
    std::map<std::string, std::string> links_;
    int last_value_ = 0;
};

}  // namespace

std::vector<std::string> MakeRandomDevice(const std::string& root, uint64_t seed) {
    return Maker(root, seed).Make();
}
