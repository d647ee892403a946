#include "random_device.h"

#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>

namespace {

namespace fs = std::filesystem;

using Strings = std::vector<std::string>;

Strings Split(const std::string& text, char separator = ' ') {
    Strings parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);) {
        if (!part.empty()) parts.push_back(part);
    }
    return parts;
}

// Names of properties that decide what a boot does, with values that matter.
const Strings kSettings = Split(
        "ro.tesvo.image.system_ext.brand=quba|Lumora|other ro.tesvo.pipeline.region=IN|EU "
        "sys.sim.switch.first=north|south|a/b sys.sim.switch.current=north|south "
        "sys.region.switch.first=north|south persist.sys.channel.info=north|a/b "
        "sys.sim.switch.convert=true ro.none.clear.switch.first=true "
        "sys.tesvo.switch.operator=payjoy persist.sys.payjoy.status_change=1 "
        "persist.sys.tesvo.operator.opta=Op persist.sys.tesvo.operator.optb=Ta "
        "persist.sys.remove.region.apk=north|false ro.boot.vxcarrier=nvkey|T1 "
        "ro.sys.customize.flashback.company=flash ro.tesvo.image.my_company.date=day1|day2 "
        "persist.sys.tesvo.company.ota.version.backup=day1 ro.tesvo.cust.ver=0 "
        "ro.tesvo.image.my_carrier.type=empty|full ro.tesvo.image.my_carrier.date.utc=11 "
        "ro.tesvo.image.my_carrier.version_name=C-1PM|C-2CT ro.build.display.id=A_1 "
        "ro.tesvo.image.my_bigball.version_name=B-1PM ro.tesvo.image.my_bigball.date.utc=22 "
        "ro.tesvo.image.my_region.version_name=R-1 ro.build.cota.version_name=X_13_COTA_5 "
        "ro.tesvo.customize.display.version_name=shownPM ro.vendor.tesvo.version_suffix=-exp "
        "persist.sys.911.shutdown=1|0 persist.sys.recopy.preload.opinstalled=none "
        "ro.tesvo.internet.whether.force.connect=1 ro.tesvo.internet.force.connect=1 "
        "sys.cotaimg.verify=1 sys.cota.load.properties=/mnt/cota/package|/mnt/staging/settings "
        "ro.sys.custommedia.sourcepath=/mnt/cota/package/media dev.mnt.blk.userdata=sda "
        "persist.sys.customize.media=/my_media ro.ref.0=a|b|none ro.ref.1=a|b");

const Strings kRoots =
        Split("/odm /mnt/vendor/my_preload /mnt/vendor/my_zorlin /mnt/vendor/my_stock "
              "/mnt/vendor/my_region/global /mnt/vendor/my_region/global/Q "
              "/mnt/vendor/my_region/global/L /mnt/vendor/my_product /mnt/vendor/my_region "
              "/mnt/vendor/my_region/Q /mnt/vendor/my_region/V /mnt/vendor/my_product/cust/IN "
              "/mnt/vendor/my_product/cust/EU /mnt/vendor/my_product/cust/early "
              "/mnt/vendor/my_carrier /mnt/vendor/my_carrier/cust "
              "/mnt/vendor/my_bigball /mnt/vendor/my_company /mnt/vendor/my_engineering "
              "/mnt/vendor/my_manifest /my_company /my_carrier /my_region /my_stock /system "
              "/mnt/vendor/my_other /mnt/vendor/my_product/cust /mnt/cota/package "
              "/mnt/cota/package/cust /mnt/staging/settings /mnt/cota/settings /my_bound");

// The files that import lines name. A file imports only later ones, so that no import is endless.
const Strings kImported =
        Split("/odm/etc/i0.prop /my_product/etc/i1.prop /mnt/vendor/my_region/etc/i2 "
              "/mnt/vendor/my_stock/etc/i3.prop /odm/etc/i4.cfg /my_company/etc/i5.prop "
              "/mnt/vendor/my_carrier/etc/i6.prop /data/system/i7.prop");

// The key files on the reserve and the data partition, each with its property.
const Strings kKeyFiles =
        Split("ssv/sim_switch_first_file=sys.sim.switch.first "
              "ssv/sim_switch_current_file=sys.sim.switch.current "
              "ssv/region_switch_file=sys.region.switch.first "
              "ssv/sim_switch_common_prop_file=ro.ref.0 "
              "ssv/sim_switch_convert_file=sys.sim.switch.convert "
              "ssv/sim_action_file=sys.tesvo.switch.operator "
              "ssv/force_connect_internet_prop_file=ro.tesvo.internet.force.connect "
              "flag/flashback.cfg=ro.sys.customize.flashback.company "
              "sim_switch/sim_switch_first_file=sys.sim.switch.first "
              "sim_switch/sim_switch_current_file=sys.sim.switch.current "
              "sim_switch/region_switch_file=sys.region.switch.first");

// The switch keys, some of which are also words of the command line.
constexpr char kKeys[] = "north south a/b none sim";

class Maker {
  public:
    Maker(const std::string& root, uint64_t seed) : root_(root), random_(seed) {}

    Strings Make(bool with_what_if) {
        ChooseLinks();
        MakePartitions();
        MakeImported();
        MakeKeyDirectories();
        MakeKeyFiles();
        MakePackage();
        MakeOthers();
        MakeLinks();
        return Words(with_what_if);
    }

  private:
    size_t Below(size_t limit) { return random_() % limit; }
    bool Chance(size_t percent) { return Below(100) < percent; }
    const std::string& Pick(const Strings& list) { return list[Below(list.size())]; }
    std::string Pick(const char* words) { return Pick(Split(words)); }
    std::string Number(size_t limit) { return std::to_string(Below(limit)); }

    std::string Setting() {
        const std::string setting = Pick(kSettings);
        const size_t value = setting.find('=') + 1;
        return setting.substr(0, value) + Pick(Split(setting.substr(value), '|'));
    }

    std::string Name() { return Pick("ro.t. persist.t. sys.t. debug.t.") + Number(8); }

    std::string Value() {
        const size_t roll = Below(100);
        if (roll < 12) return "same";
        if (roll < 16) return "";
        const std::string fresh = std::to_string(++last_value_);
        if (roll < 20) return std::string(92, 'x') + fresh;
        if (roll < 23) return "\xff\xfe" + fresh;
        return (roll < 27 ? "\u00fc=" : "v") + fresh;
    }

    std::string Line() {
        const size_t roll = Below(100);
        if (roll < 10) return Setting();
        if (roll < 13) return Pick({"# ro.t.1=comment", "no equals sign", "", "import"});
        if (roll < 17) return Pick({"ro..t=", "t 1=", ".t.1=", "t.1.=", "t/1=", "="}) + Value();
        if (roll < 25) return "  " + Name() + Pick({" = ", "\t=", "= "}) + Value() + " \r";
        return Name() + "=" + Value();
    }

    // Returns a line that imports a file at the index `first` or after it.
    std::string Import(size_t first) {
        std::string filter;
        if (Chance(40)) filter = Pick({" ro.t.1", " ro.t.*", " persist.*", " *", "  sys.t.2", " "});
        const size_t roll = Below(100);
        if (roll < 20) {
            return "import /odm/etc/" +
                   Pick("${ro.ref.0}.prop ${ro.ref.1}.prop ${ro.ref.0:-b}.prop $ro.ref.0.prop "
                        "${ro.ref.0}/${ro.ref.1}.prop ${ro.ref.0}-${ro.ref.1}.prop "
                        "${ro.ref.0 ${ro.none} ${:-a}.prop") +
                   filter;
        }
        if (roll < 36) return "import /odm/etc/" + Pick("missing link") + ".prop" + filter;
        if (roll < 46) return "import " + Pick(kRoots) + "/build.prop ro.t.*";
        if (first >= kImported.size()) return Line();
        return "import  " + kImported[first + Below(kImported.size() - first)] + filter;
    }

    Strings Lines(size_t most, size_t first = 0) {
        Strings lines(1 + Below(most));
        for (std::string& line : lines) line = Chance(13) ? Import(first) : Line();
        return lines;
    }

    void File(const std::string& path, const Strings& lines, const char* end = "\n") {
        const fs::path outside = Outside(path);
        fs::create_directories(outside.parent_path());
        std::ofstream file(outside);
        for (const std::string& line : lines) file << line << end;
    }

    // Makes links between the two names of a partition, in either direction.
    void ChooseLinks() {
        for (const std::string& name :
             Split("my_region my_product my_carrier my_company my_stock")) {
            const std::string names[] = {"/" + name, "/mnt/vendor/" + name};
            if (const size_t link = Below(4); link < 2) links_[names[link]] = names[1 - link];
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

    void MakeLinks() {
        for (const auto& [link, target] : links_) {
            fs::create_directories(root_ + target);
            fs::create_directories(fs::path(root_ + link).parent_path());
            const std::string up = link.compare(0, 5, "/mnt/") == 0 ? "../.." : ".";
            fs::create_symlink(Chance(50) ? target : up + target, root_ + link);
        }
    }

    void MakePartitions() {
        for (const std::string& path : Split("/my_carrier /my_bound /my_media /mnt/cota/settings "
                                             "/mnt/cota/package/media /odm/etc /data/cota")) {
            fs::create_directories(Outside(path));
        }
        const auto with = [&](Strings lines, const std::string& line) {
            lines.insert(lines.begin() + Below(lines.size()), line);
            return lines;
        };
        if (Chance(75)) {
            File("/system_ext/etc/build.prop",
                 with(Lines(3),
                      "ro.tesvo.image.system_ext.brand=" + Pick("quba LUMORA vantrix x")));
        }
        for (const std::string& root : kRoots) {
            if (Chance(60)) File(root + "/build.prop", Lines(8));
            if (Chance(12)) File(root + "/etc/flags.prop", {Line(), "nvkey=" + Pick("T1 T2")});
            if (Chance(12)) File(root + "/etc/nvmap.prop", {"nvkey=" + Pick(kKeys), "none=south"});
            if (Chance(15)) File(root + "/etc/build." + Pick({"T1", "T2", ""}) + ".prop", Lines(3));
        }
        if (Chance(80)) {
            File("/mnt/vendor/my_region/build.prop",
                 with(Lines(5), "ro.tesvo.pipeline.region=" + Pick("IN EU XX")));
        }
    }

    void MakeImported() {
        for (size_t i = 0; i < kImported.size(); ++i) {
            if (Chance(80)) File(kImported[i], Lines(6, i + 1));
        }
        for (const char* name : {"a", "b"}) {
            File(std::string("/odm/etc/") + name + ".prop", {Line(), Line()});
        }
        // Files that pairs of references lead to, and chains of references.
        if (Chance(50)) File("/odm/etc/a/b.prop", {Line(), "import /odm/etc/${ro.ref.2}.cfg"});
        if (Chance(50)) File("/odm/etc/b-a.prop", {Line(), "import /odm/etc/c.cfg"});
        if (Chance(50)) File("/odm/etc/c.cfg", {Line(), Line()});
        fs::create_symlink(Pick("a.prop /odm/etc/i0.prop gone"), Outside("/odm/etc/link.prop"));
        if (!Chance(2)) return;
        const auto deep = [](int i) { return "/odm/etc/deep" + std::to_string(i) + ".prop"; };
        for (int i = 0; i < 70; ++i) File(deep(i), {Line(), "import " + deep(i + 1), Line()});
        File("/odm/build.prop", {Line(), "import " + deep(0)});
        File("/my_engineering/build.prop", {"import " + deep(0)});
    }

    void MakeKeyDirectories() {
        for (const std::string& root : kRoots) {
            for (size_t count = Chance(45) ? 1 + Below(3) : 0; count > 0; --count) {
                const std::string directory =
                        root + "/properties/" + Pick(kKeys) + "/" +
                        Pick("SimSwitchFirstTime SimSwitchCurrentTime switchCarrierChannel "
                             "regionSwitch");
                File(directory + "/" + Pick("x.prop y.prop z.prop.bak other"), Lines(4));
                const fs::path link = Outside(directory + "/link.prop");
                if (Chance(92) || fs::is_symlink(link)) continue;
                fs::create_symlink(Pick("x.prop other /odm/etc/a.prop"), link);
            }
        }
    }

    void MakeKeyFiles() {
        const std::string reserve = "/mnt/vendor/tesvoreserve/";
        const size_t percent = Chance(30) ? 5 : 35;
        for (const std::string& entry : kKeyFiles) {
            if (!Chance(percent)) continue;
            const Strings parts = Split(entry, '=');
            const bool is_data = parts[0].compare(0, 4, "sim_") == 0;
            const std::string path =
                    (is_data ? "/data/system/customize/" : reserve + "system/") + parts[0];
            const bool is_mark = parts[1] == "sys.sim.switch.convert";
            Strings lines = {parts[1] + "=" + (is_mark ? " true" : Pick(kKeys))};
            while (Chance(30)) lines.push_back(Line());
            if (!is_mark && Chance(30)) lines = {Pick(kKeys)};  // the format of older software
            File(path, lines, lines.size() == 1 && Chance(30) ? "" : "\n");
        }
        if (Chance(25)) File(reserve + "radio/exp_operator_switch.config", {"nvkey"}, "");
    }

    void MakePackage() {
        const auto perhaps = [&](size_t percent, const std::string& line, Strings* lines) {
            if (Chance(percent)) lines->push_back(line);
        };
        Strings mount = Lines(4);
        perhaps(90, "sys.cotaimg.verify=1", &mount);
        perhaps(90, "sys.cota.load.properties=/mnt/cota/package", &mount);
        perhaps(40,
                "bind_point=" + Pick("/my_bound /mnt/vendor/my_carrier /none /mnt/cota/package"),
                &mount);
        perhaps(30, "settings=/mnt/cota/settings", &mount);
        if (Chance(60)) File("/data/cota/cota_mount_info.prop", mount);

        Strings module = Lines(3);
        perhaps(90, "module_type=" + Pick("configure configure other"), &module);
        perhaps(95, "mount_point=/mnt/staging/settings", &module);
        perhaps(90, "bind_point=" + Pick("/mnt/cota/settings /my_bound"), &module);
        if (Chance(50)) File("/data/cota/cota_module_info.prop", module);
    }

    void MakeOthers() {
        if (Chance(40)) File("/my_company/etc/build.prop", Lines(5));
        for (const std::string& name : Split("empty_appchannel_prop_file data_common_prop_file")) {
            Strings lines = Lines(4);
            if (Chance(40)) lines.push_back("persist.sys.channel.info=" + Pick(kKeys));
            if (Chance(40)) File("/data/system/customize/" + name + ".prop", lines);
        }
        if (Chance(30)) File("/odm/etc/stray.prop", Lines(3));
        if (Chance(30)) File("/vendor/deep/down/build.prop", Lines(3));
        if (Chance(80)) return;
        File("/my_product/cust/" + Pick({"IN", "EU", ""}) + "/etc/devicename.cfg",
             {"ROM=128", "market=Name", "type=t", "model=m"});
        File("/sys/block/sda/size", {"268435456"});
    }

    std::string Step() {
        return Pick({"early", "early:" + Pick(kRoots), "duskrider", "cota", "sim", "persist",
                     "media:/my_media",
                     "sim:" + Pick("simSwitchCurrent simSwitchFirst switchCarrierChannel "
                                   "regionSwitch updateDataCommonProp emptyAppchannelProp"),
                     "cota-service:" + Pick("mount_and_check_load mount_must_load bind_basic_point "
                                            "update_cota_info module_bind_single")});
    }

    Strings Words(bool with_what_if) {
        Strings words;
        for (int boot = 0; boot == 0 ? !Chance(20) : !words.empty() && Chance(25); ++boot) {
            if (boot != 0) words.push_back("reboot");
            if (Chance(88)) words.push_back("early");
            if (Chance(25)) words.push_back(Step());
            if (Chance(85)) words.push_back("persist");
            while (Chance(60)) words.push_back(Step());
        }
        if (!words.empty() && Chance(2)) {
            words.push_back("cota-service:check_mount");
            for (const char* request : {"bind_basic_point_boot", "boot_mount"}) {
                if (Chance(60)) words.insert(words.end(), {"--request", request});
            }
        }
        std::map<std::string, std::string> settings;
        while (Chance(65)) {
            const std::string setting = Chance(60) ? Setting() : Name() + "=s" + Number(99);
            settings.emplace(setting.substr(0, setting.find('=')), setting);
        }
        Strings options;
        for (const auto& [name, setting] : settings) {
            options.insert(options.end(), {"--set", setting});
        }
        const auto what_if = [&](const char* option, const std::string& value) {
            if (with_what_if && Chance(8)) options.insert(options.end(), {option, value});
        };
        what_if("--brand", Pick("quba vantrix"));
        what_if("--region", Pick("IN EU"));
        what_if("--nv", "nvkey");
        what_if("--sim-first", Pick(kKeys));
        what_if("--channel", Pick(kKeys));
        what_if("--edit", Pick(kRoots) + "/build.prop:" + Name() + "=edited");
        words.insert(Chance(50) ? words.begin() : words.end(), options.begin(), options.end());
        return words;
    }

    const std::string root_;
    std::mt19937_64 random_;
    std::map<std::string, std::string> links_;
    int last_value_ = 0;
};

}  // namespace

std::vector<std::string> MakeRandomDevice(const std::string& root, uint64_t seed,
                                          bool with_what_if) {
    return Maker(root, seed).Make(with_what_if);
}
