// The commands explain and diff: where values come from, and what differs between two boots.

#include <filesystem>
#include <regex>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tool.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;

class ExplainTest : public ToolTest {
  protected:
    // Returns the text without the numbers of boots.
    static std::string WithoutCounts(const std::string& text) {
        return std::regex_replace(text, std::regex("[0-9]+ boots"), "N boots");
    }

    // Returns the origins of the property that explain prints, in short.
    static std::string Origins(const std::string& arguments, const std::string& name) {
        const json document = json::parse(Run("explain --json " + arguments + " " + name).out);
        std::string text;
        for (const json& origin : document["properties"][0]["origins"]) {
            text += origin.value("file", origin.value("operations", json("given")).dump()) + ":" +
                    origin.value("line", json(0)).dump() + " " + origin["fate"].get<std::string>() +
                    ";";
        }
        return text;
    }
};

TEST_F(ExplainTest, NamesPlacesInOrderOfTime) {
    Write("/odm/build.prop",
          "a=1\na=2\nimport /odm/in.prop\nimport /none/${none}\nimport /odm/in.prop b*\na=5\n");
    Write("/odm/in.prop", "a=3\nb1=x\nc=out\nimport /odm/deep.prop\n");
    Write("/odm/deep.prop", "a=4\nb2=y\n");
    Write("/odm/only.prop", "c=in\n");
    Write("/odm/filter.prop", "import /odm/only.prop d\n");
    Write("/other/properties/key/regionSwitch/r.prop", "a=6\n");
    const Output output = Run("explain " + Path("") + " a 'b[12]' early:/odm early:/odm --set a=0");
    EXPECT_EQ(output.status, 0);
    EXPECT_EQ(output.err, "extprop: note: 1 of 1 given value was overridden: a\n");
    EXPECT_EQ(WithoutCounts(output.out),
              "a=5\n"
              "    earlier to later:\n"
              "    given                                                      0  [overridden]\n"
              "    early:/odm /odm/build.prop:1                               1  [overridden]\n"
              "    early:/odm /odm/build.prop:2                               2  [overridden]\n"
              "    early:/odm /odm/in.prop:1 (imported by /odm/build.prop:3)  3  [overridden]\n"
              "    early:/odm /odm/deep.prop:1 (imported by /odm/in.prop:4)   4  [overridden]\n"
              "  * early:/odm /odm/build.prop:6                               5\n"
              "    /other/properties/key/regionSwitch/r.prop:1                6  [not loaded; "
              "none of N boots loads it]\n"
              "b1=x\n"
              "  * early:/odm /odm/in.prop:2 (imported by /odm/build.prop:5)  x\n"
              "b2=y\n"
              "  * early:/odm /odm/deep.prop:2 (imported by /odm/in.prop:4)  y\n");
    EXPECT_EQ(WithoutCounts(Run("explain " + Path("") + " c early:/odm").out),
              "c=out\n"
              "  * early:/odm /odm/in.prop:3 (imported by /odm/build.prop:3)  out\n"
              "    /odm/only.prop:1                                           in  [not loaded; "
              "none of N boots loads it]\n");
}

// A boot with the words that explain prints for a line loads that line, and the words are such as
// belong to a phone.
TEST_F(ExplainTest, RequiredWordsLoadTheLine) {
    constexpr char kModule[] =
            "mount_point=/mnt/m\nmodule_type=configure\nbind_point=/mnt/vendor/my_carrier\n";
    constexpr bool kNothingLoads = false;
    const struct {
        std::string path;
        const char* steps = "early";
        std::vector<std::pair<const char*, const char*>> others = {};  // files of the device
        bool is_loaded = true;
    } cases[] = {
            {"/mnt/vendor/my_region/global/L/build.prop"},
            {"/mnt/vendor/my_product/cust/IN/build.prop"},
            {"/mnt/vendor/my_product/cust/IN/build.prop", "cota"},
            {"/mnt/vendor/my_product/cust/sim/build.prop", ""},  // the name of a step
            {"/mnt/vendor/my_product/cust/sim/properties/early/SimSwitchFirstTime/a.prop", ""},
            {"/odm/properties/k/SimSwitchFirstTime/a.prop"},
            {"/odm/properties/a/b/switchCarrierChannel/a.prop"},
            {"/odm/properties/k/SimSwitchCurrentTime/a.prop", ""},
            {"/odm/properties/k/regionSwitch/none", "early", {}, kNothingLoads},
            {"/my_company/etc/build.prop"},
            {"/my_company/build.prop"},
            {"/my_company/properties/k/regionSwitch/a.prop", ""},
            {"/data/cota/cota_mount_info.prop"},
            {"/data/system/customize/data_common_prop_file.prop"},
            {"/mnt/vendor/tesvoreserve/system/ssv/sim_switch_current_file"},
            {"/my_carrier/build.prop"},
            {"/odm/etc/more.prop", "early", {}, kNothingLoads},
            {"/odm/etc/flags.prop"},
            {"/odm/etc/build.T.prop", "", {{"/odm/etc/flags.prop", "nvkey=T\n"}}},
            {"/odm/etc/build.T.prop",
             "",
             {{"/mnt/vendor/my_product/cust/IN/etc/flags.prop", "nvkey=T\n"}}},
            {"/mnt/m/etc/e.prop",
             "early persist",
             {{"/data/cota/cota_module_info.prop", kModule},
              {"/mnt/vendor/my_carrier/x", ""},
              {"/mnt/m/build.prop", "import /mnt/vendor/my_carrier/etc/e.prop\n"}}},
            {"/mnt/vendor/my_carrier/properties/k/regionSwitch/a.prop",  // which is covered
             "early persist cota-service:module_bind_single",
             {{"/data/cota/cota_module_info.prop", kModule}, {"/mnt/m/x", ""}}},
            {"/odm/etc/d/e.prop",
             "early",
             {{"/odm/build.prop", "import /odm/etc/${ro.a}/${ro.b}.prop\n"}}},
            {"/odm/etc/p/r",  // which takes two values at once
             "early",
             {{"/odm/build.prop", "import /odm/etc/${ro.a}.prop\n"},
              {"/odm/etc/q.prop", "import /odm/etc/${ro.a}/r\n"}},
             kNothingLoads},
            {"/odm/etc/p/r",
             "early",
             {{"/odm/build.prop", "import /odm/etc/${ro.a}.prop\n"},
              {"/odm/etc/q.prop", "import /odm/etc/${ro.b}/r\n"}}},
            {"/odm/etc/$1-b.prop",
             "early",
             {{"/odm/build.prop",
               "import $\nimport /odm/${x\nimport /odm/etc/$$1-${ro.a}.prop\n"}}},
            {"/odm/etc/p/r.prop",
             "early",
             {{"/odm/build.prop", "import /odm/etc/${ro.a}.prop\n"},
              {"/odm/etc/q.prop", "import /odm/etc/${ro.a}/r.prop\n"}}},
            {"/odm/etc/late.prop",  // properties of the first step early are set only after it
             "early",
             {{"/odm/build.prop", "import /odm/etc/${ro.a}.prop\nro.a=late\n"}}},
            {"/odm/etc/hi.prop",  // which one axis names and the other reaches
             "early persist",
             {{"/mnt/vendor/my_product/cust/IN/build.prop", "ro.a=hi\n"},
              {"/mnt/vendor/my_product/cust/EU/build.prop", "ro.a=en\n"},
              {"/mnt/vendor/my_region/build.prop", "ro.tesvo.pipeline.region=EU\n"},
              {"/odm/properties/k/regionSwitch/a.prop", "import /odm/etc/${ro.a}.prop\n"}}},
            {"/mnt/vendor/my_product/cust/IN/build.prop",  // where the library does not crash
             "early",
             {{"/mnt/vendor/my_region/build.prop", "ro.tesvo.pipeline.region=EU\n"},
              {"/mnt/vendor/my_product/cust/EU/build.prop",
               "import /mnt/vendor/my_product/cust/EU/build.prop\n"}}},
    };
    for (const auto& known : cases) {
        SCOPED_TRACE(known.path);
        const std::string device = "/" + std::to_string(&known - cases);
        Write(device + known.path, "sys.wanted=yes\n");
        for (const auto& [path, content] : known.others) Write(device + path, content);
        const std::string explain =
                "explain --json " + Path(device) + " sys.wanted " + known.steps + " ";
        const json origin = json::parse(Run(explain).out)["properties"][0]["origins"][0];
        EXPECT_EQ(origin["fate"], "not loaded");
        EXPECT_GT(origin["tried"], 0);
        EXPECT_EQ(!origin["requires"].is_null(), known.is_loaded) << origin["requires"];
        if (origin["requires"].is_null()) continue;
        std::string words;
        for (const std::string word : origin["requires"]) words += "'" + word + "' ";
        EXPECT_THAT(words, testing::Not(HasSubstr("--edit")));
        const json tried = json::parse(Run(explain + words).out)["properties"][0]["origins"][0];
        EXPECT_NE(tried["fate"], "not loaded") << words;
    }
}

// Regressions: each of these origins was wrong once.
TEST_F(ExplainTest, TellsTrueOrigins) {
    EXPECT_EQ(Origins(Sample("overlay") + " early", "ro.tesvo.cust.ver"),
              "[\"loadExtensionPartitionProperties\"]:0 wins;");

    // A name in the one-shot message and in the package, which are loaded into different maps.
    const std::string cota = Path("/cota");
    Write("/cota/data/cota/cota_mount_info.prop",
          "sys.cotaimg.verify=1\nsys.cota.load.properties=/mnt/cota/p\nro.both=message\n");
    Write("/cota/mnt/cota/p/build.prop", "ro.both=message\nro.mine=1\n");
    Write("/cota/my_carrier/build.prop", "ro.mine=0\n");
    const std::string mounted = cota + " cota-service:mount_must_load";
    EXPECT_EQ(Origins(mounted, "ro.both"),
              "/my_carrier/build.prop:1 overridden;/data/cota/cota_mount_info.prop:3 wins;");
    const json bound = json::parse(Run("explain --json " + mounted + " ro.mine").out);
    EXPECT_EQ(bound["properties"][0]["origins"][0]["source"], "/mnt/cota/p/build.prop");

    // Lines that are filtered, refused, only looked up, or reached by a link.
    const std::string device = Path("/phone");
    Write("/phone/odm/build.prop", "import /odm/in.prop ro.x*\nill egal=1\nsys.long=" +
                                           std::string(92, 'x') + "\npersist.early=file\n");
    Write("/phone/odm/in.prop", "ro.out=1\nro.x=1\n");
    Write("/phone/system_ext/etc/build.prop", "ro.tesvo.image.system_ext.brand=quba\n");
    Write("/phone/my_region/build.prop", "ro.tesvo.pipeline.region=EU\nro.r=1\n");
    std::filesystem::create_directories(Path("/phone/mnt/vendor"));
    std::filesystem::create_symlink("/my_region", Path("/phone/mnt/vendor/my_region"));
    EXPECT_EQ(Origins(device + " early", "ro.out"), "/odm/in.prop:1 filtered out;");
    EXPECT_EQ(Origins(device + " early", "'ill egal'"), "/odm/build.prop:2 refused;");
    EXPECT_EQ(Origins(device + " early", "sys.long"), "/odm/build.prop:3 refused;");
    EXPECT_EQ(Origins(device + " early", "ro.tesvo.image.system_ext.brand"),
              "/system_ext/etc/build.prop:1 looked up;");
    EXPECT_EQ(Origins(device + " early --brand none", "ro.r"),
              "/mnt/vendor/my_region/build.prop:2 wins;");
    EXPECT_EQ(Origins(device + " early reboot --brand none", "ro.r"),
              "/mnt/vendor/my_region/build.prop:2 gone with the reboot;");

    // Stored persistent properties take effect after `early`, also after a reboot.
    EXPECT_EQ(Origins(device + " early --set persist.early=stored", "persist.early"),
              "/odm/build.prop:4 overridden;\"given\":0 wins;");
    EXPECT_EQ(Origins(device + " early reboot early", "persist.early"), "/odm/build.prop:4 wins;");

    // A key file in the old format repeats a partition's value.
    Write("/old/odm/build.prop", "sys.sim.switch.current=k\nsys.sim.switch.first=k\n");
    const std::string reserve = "/old/mnt/vendor/tesvoreserve/system/ssv/sim_switch_";
    for (const char* key : {"current", "first"}) Write(reserve + key + "_file", "k");
    EXPECT_EQ(Origins(Path("/old") + " early persist", "sys.sim.switch.current"),
              "/odm/build.prop:1 overridden;[\"loadSwitchKeys\",\"settleSwitchKeys\","
              "\"loadPersistOverrideProperties\"]:0 wins;");
    EXPECT_EQ(Origins(Path("/old") + " early persist", "sys.sim.switch.first"),
              "/odm/build.prop:2 wins;");

    std::string deep = "ro.deep=1\n";
    for (int i = 0; i < 70; ++i) {
        Write("/deep/odm/" + std::to_string(i), deep);
        deep = "import /odm/" + std::to_string(i) + "\n";
    }
    Write("/deep/odm/build.prop", deep);
    EXPECT_EQ(Origins(Path("/deep") + " early", "ro.deep"), "/odm/0:1 wins;");
}

// Explain reports failed loads and lost values, and no others.
TEST_F(ExplainTest, TellsOfFailuresAndLosses) {
    const std::string module = "cota-service:module_bind_single ";
    Write("/d/data/cota/cota_module_info.prop",
          "mount_point=/gone\nbind_point=/t\nmodule_type=x\n");
    Write("/d/t/build.prop", "ro.t=1\n");
    Write("/d/my_company/build.prop", "ro.company=1\n");
    Write("/d/odm/in.prop", "ro.in=1\n");
    Write("/d/odm/build.prop", "import /odm/link.prop\n");
    Write("/d/loop/build.prop", "import /loop/build.prop\n");
    std::filesystem::create_symlink("/odm/in.prop", Path("/d/odm/link.prop"));
    const struct {
        std::string arguments, name, origins;
    } cases[] = {
            {module + "early:/t", "ro.t", "/t/build.prop:1 wins;"},
            {"persist --set ro.tesvo.image.my_company.date=1", "ro.company",
             "/my_company/build.prop:1 not handed on;"},
            {"early", "ro.in", "/odm/in.prop:1 not loaded;"},
    };
    for (const auto& known : cases) {
        EXPECT_EQ(Origins(Path("/d ") + known.arguments, known.name), known.origins);
    }
    // A boot that crashes counts, whichever of several it is.
    EXPECT_EQ(Run("boot " + Path("/d") + " early reboot early:/loop").status, 3);
    EXPECT_EQ(Run("diff " + Path("/d") + " --b early:/t --a early:/loop").status, 3);
    EXPECT_EQ(Run("diff " + Path("/d") + " --a early:/t --b early:/loop").status, 3);

    // The thread's work belongs to the step that began it, and --no-complete leaves it running.
    const std::string thread = Sample("carrier-package") + " cota-service:check_mount --request ";
    EXPECT_THAT(Origins(thread + "boot_mount", "ro.sample.carrier"), HasSubstr(" wins;"));
    const std::string left = Run("boot " + thread + "boot_mount --no-complete --timeout 2").out;
    EXPECT_THAT(left, HasSubstr("Over-the-air Mobile"));
    EXPECT_THAT(left, testing::Not(HasSubstr("boot_mount_bind_complete")));
}

// Explain prints the same for one name alone as among all names.
TEST_F(ExplainTest, OneNameAloneIsToldAlike) {
    const std::string device = Sample("older-software") + " early persist sim ";
    const json all = json::parse(Run("explain --all --json " + device).out);
    ASSERT_GT(all["properties"].size(), 5u);
    for (const json& property : all["properties"]) {
        const std::string name = property["name"];
        EXPECT_EQ(json::parse(Run("explain --json " + device + name).out)["properties"],
                  json::array({property}));
    }
}

TEST_F(ExplainTest, NamesOperations) {
    EXPECT_THAT(Run("explain " + Sample("limited-edition") + " '*version*' duskrider").out,
                HasSubstr("* duskrider derived by loadSpecialProperties < "
                          "loadDuskriderOverrideProperties from "
                          "ro.tesvo.image.my_carrier.version_name  V2.1\n"));
    EXPECT_THAT(Run("explain " + Sample("carrier-package") +
                    " '*' cota-service:check_mount --request boot_mount")
                        .out,
                HasSubstr("    cota-service:check_mount requested by the installing service  "
                          "boot_mount  [overridden]\n"
                          "    cota-service:check_mount set by the library's bind thread     null  "
                          "[overridden]\n"));
    const Output missing = Run("explain " + Sample("overlay") + " ro.none ro.product.model");
    EXPECT_EQ(missing.status, 2);
    EXPECT_THAT(missing.out, HasSubstr("ro.product.model=Sample One\n"));
    EXPECT_EQ(missing.err, "extprop: no property file or step has 'ro.none'\n");
    EXPECT_EQ(Run("explain " + Sample("overlay")).err,
              "extprop: NAME, --all or --value is required; see extprop explain --help\n");
}

TEST_F(ExplainTest, DiffShowsBothOrigins) {
    const std::string set = "--set sys.sim.switch.first=";
    const Output output =
            Run("diff " + Sample("sim-keys") + " --a " + set + "north --b " + set + "south");
    EXPECT_EQ(output.status, 1);
    EXPECT_THAT(output.out, HasSubstr("~ ro.sample.carrier\n"
                                      "    a: north mobile  (persist /mnt/vendor/my_carrier/"
                                      "properties/north/SimSwitchFirstTime/carrier.prop:1)\n"
                                      "    b: south mobile  (persist /mnt/vendor/my_carrier/"
                                      "properties/south/SimSwitchFirstTime/carrier.prop:1)\n"));
    const Output alike = Run("diff " + Sample("sim-keys") + " " + Sample("sim-keys"));
    EXPECT_EQ(alike.status, 0);
    EXPECT_EQ(alike.out, "no difference\n");

    Write("/odm/build.prop", "b=2\n");
    const Output devices = Run("diff --json " + Path("") + " " + Sample("market-name") + " early");
    EXPECT_EQ(devices.status, 1);
    const json difference = json::parse(devices.out);
    EXPECT_EQ(difference["changed"], json::array());
    EXPECT_EQ(difference["removed"][0]["name"], "b");
    EXPECT_EQ(difference["removed"][0]["b"], nullptr);
    EXPECT_EQ(difference["added"][0]["b"]["origin"]["file"], "/odm/build.prop");

    EXPECT_EQ(Run("diff " + Path("/none")).status, 2);
    EXPECT_EQ(Run("diff a b c").err, "extprop: diff: more than two devices are given\n");
    EXPECT_EQ(Run("diff early").err, "extprop: DEVICE is required; see extprop diff --help\n");
    Write("/odm/build.prop", "import /odm/build.prop\n");
    EXPECT_EQ(Run("diff " + Path("") + " " + Sample("overlay")).status, 3);
}

TEST_F(ExplainTest, NamesTheFileBehindAMountThatCoversItsOwnSource) {
    Write("/d/my_m/build.prop", "ro.a=covered\n");
    const std::string source = "/my_m/pack/media";
    Write("/d" + source + "/build.prop", "ro.a=shown\n");
    const Output output = Run("explain " + Path("/d") + " ro.a media:/my_m early:/my_m " +
                              "--set ro.sys.custommedia.sourcepath=" + source);
    EXPECT_THAT(output.out,
                HasSubstr("* early:/my_m /my_m/build.prop:1 (" + source + "/build.prop)  shown\n"))
            << output.err;
}

}  // namespace
