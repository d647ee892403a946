// Where values come from, and what differs between two boots.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tool.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;

class ExplainTest : public ToolTest {};

std::string FileLine(const std::string& path, int number) {
    std::string content;
    android::base::ReadFileToString(path, &content);
    size_t start = 0;
    for (int i = 1; i < number; ++i) start = content.find('\n', start) + 1;
    return content.substr(start, content.find('\n', start) - start);
}

// Whatever a boot does, each property that is set has one origin that wins, with its value; each
// that is not has none; and each line that is named has the name and value in it.
TEST_F(ExplainTest, ExplainsEveryPropertyOfEverySample) {
    const struct {
        const char* sample;
        const char* steps;
    } boots[] = {
            {"overlay", "early persist early:/odm --set ro.sample.apn=given"},
            {"limited-edition", "duskrider"},
            {"boot-logo", "early sim:triggerLogoCopyFromCompanyBoot"},
            {"market-name", "early persist"},
            {"emergency", "early persist reboot early persist"},
            {"sim-keys", "early persist sim --set sys.sim.switch.first=south"},
            {"older-software", "early persist reboot early persist"},
            {"company-image", "early persist reboot early persist"},
            {"carrier-package", "early persist cota-service:check_mount cota --request boot_mount"},
            {"carrier-modules", "early cota-service:bind_basic_point"},
    };
    for (const auto& boot : boots) {
        SCOPED_TRACE(boot.sample);
        const std::string arguments = Sample(boot.sample) + " " + boot.steps;
        const json booted = json::parse(Run("boot --json " + arguments).out)["properties"];
        const json explained = json::parse(Run("explain --all --json " + arguments).out);
        json values = json::object();
        for (const json& property : explained["properties"]) {
            SCOPED_TRACE(property.dump(2));
            if (!property["value"].is_null()) {
                values[property["name"].get<std::string>()] = property["value"];
            }
            int winners = 0;
            for (const json& origin : property["origins"]) {
                if (origin["fate"] == "wins") {
                    ++winners;
                    EXPECT_EQ(origin["value"], property["value"]);
                }
                if (origin["kind"] != "file") continue;
                const std::string file = origin["file"];
                const std::string line = FileLine(Sample(boot.sample) + file, origin["line"]);
                // What the boot itself mounted or rewrote is not what the sample has.
                const bool is_samples =
                        file.find("/my_carrier/") != 0 && origin.value("boot", 1) == 1;
                if (!is_samples || line.empty()) continue;
                EXPECT_THAT(line, HasSubstr(property["name"].get<std::string>()));
                EXPECT_THAT(line, HasSubstr(origin["value"].get<std::string>()));
            }
            EXPECT_EQ(winners, property["value"].is_null() ? 0 : 1);
        }
        EXPECT_EQ(values, booted);
    }
}

TEST_F(ExplainTest, NamesPlacesInOrderOfTime) {
    Write("/odm/build.prop",
          "a=1\na=2\nimport /odm/in.prop\nimport ${none}\nimport /odm/in.prop b*\na=5\n");
    Write("/odm/in.prop", "a=3\nb1=x\nimport /odm/deep.prop\n");
    Write("/odm/deep.prop", "a=4\nb2=y\n");
    Write("/other/properties/key/regionSwitch/r.prop", "a=6\n");
    const Output output = Run("explain " + Path("") + " a 'b[12]' early:/odm --set a=0");
    EXPECT_EQ(output.status, 0);
    EXPECT_EQ(output.err, "");
    EXPECT_EQ(output.out,
              "a=5\n"
              "    given                                                      0  [overridden]\n"
              "    early:/odm /odm/build.prop:1                               1  [overridden]\n"
              "    early:/odm /odm/build.prop:2                               2  [overridden]\n"
              "    early:/odm /odm/in.prop:1 (imported by /odm/build.prop:3)  3  [overridden]\n"
              "    early:/odm /odm/deep.prop:1 (imported by /odm/in.prop:3)   4  [overridden]\n"
              "  * early:/odm /odm/build.prop:6                               5\n"
              "    /other/properties/key/regionSwitch/r.prop:1                6  [not loaded; "
              "it takes sys.region.switch.first=key]\n"
              "b1=x\n"
              "    early:/odm /odm/in.prop:2 (imported by /odm/build.prop:3)  x  [overridden]\n"
              "  * early:/odm /odm/in.prop:2 (imported by /odm/build.prop:5)  x\n"
              "b2=y\n"
              "  * early:/odm /odm/deep.prop:2 (imported by /odm/in.prop:3)  y\n");
}

// Each condition that explain names is tried: with it, the file is loaded.
TEST_F(ExplainTest, ConditionsHold) {
    const std::string brand = "/system_ext/etc/build.prop";
    const std::string region = "/mnt/vendor/my_region/build.prop";
    const struct {
        std::string path;
        const char* condition;
        const char* met_by;  // further steps and options
        std::string changed_file;
        const char* content;
    } cases[] = {
            {"/mnt/vendor/my_region/global/L/build.prop", "a brand with the letter L", "", brand,
             "ro.tesvo.image.system_ext.brand=lumora\n"},
            {"/mnt/vendor/my_region/V/build.prop", "a brand with the letter V", "", brand,
             "ro.tesvo.image.system_ext.brand=vantrix\n"},
            {"/mnt/vendor/my_product/cust/IN/build.prop", "ro.tesvo.pipeline.region=IN", "", region,
             "ro.tesvo.pipeline.region=IN\n"},
            {"/odm/properties/k/SimSwitchFirstTime/a.prop", "sys.sim.switch.first=k",
             "sim --set sys.sim.switch.first=k", "", ""},
            {"/odm/properties/k/SimSwitchCurrentTime/a.prop", "sys.sim.switch.current=k",
             "sim --set sys.sim.switch.current=k", "", ""},
            {"/odm/properties/k/switchCarrierChannel/a.prop", "persist.sys.channel.info=k",
             "sim:switchCarrierChannel --set persist.sys.channel.info=k", "", ""},
            {"/odm/properties/k/regionSwitch/a.prop", "sys.region.switch.first=k",
             "sim --set sys.region.switch.first=k", "", ""},
            {"/my_company/etc/build.prop", "step duskrider", "duskrider", "", ""},
            {"/my_company/build.prop", "step persist with a new ro.tesvo.image.my_company.date",
             "persist --set ro.tesvo.image.my_company.date=2", "", ""},
            {"/data/cota/cota_mount_info.prop", "a step cota-service that takes the package",
             "cota-service:mount_must_load", "", ""},
            {"/data/system/customize/data_common_prop_file.prop", "step persist", "persist", "",
             ""},
            {"/my_carrier/build.prop", "step early:/my_carrier, or a carrier package there",
             "early:/my_carrier", "", ""},
            {"/odm/etc/more.prop", "an import", "", "/odm/build.prop",
             "import /odm/etc/more.prop\n"},
    };
    for (const auto& known : cases) {
        SCOPED_TRACE(known.path);
        const std::string device = "/" + std::to_string(&known - cases);
        Write(device + known.path, "sys.wanted=yes\n");
        const std::string explain = "explain " + Path(device) + " sys.wanted early ";
        EXPECT_THAT(Run(explain).out,
                    HasSubstr(std::string("[not loaded; it takes ") + known.condition + "]\n"));
        if (!known.changed_file.empty()) Write(device + known.changed_file, known.content);
        EXPECT_THAT(Run(explain + known.met_by).out,
                    AllOf(HasSubstr("sys.wanted=yes\n"), HasSubstr("\n  * ")));
    }
}

TEST_F(ExplainTest, NamesOperations) {
    EXPECT_THAT(Run("explain " + Sample("limited-edition") + " '*version*' duskrider").out,
                HasSubstr("* duskrider derived by loadSpecialProperties < "
                          "loadDuskriderOverrideProperties  V2.1\n"));
    EXPECT_THAT(Run("explain " + Sample("carrier-package") +
                    " '*' cota-service:check_mount --request boot_mount")
                        .out,
                HasSubstr("    cota-service:check_mount requested by the installing service  "
                          "boot_mount  [overridden]\n"
                          "    cota-service:check_mount set by the library's bind thread     null  "
                          "[overridden]\n"));
    const Output missing = Run("explain " + Sample("overlay") + " ro.none");
    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.out, "");
    EXPECT_EQ(missing.err, "extprop: no property file or step has 'ro.none'\n");
    EXPECT_EQ(Run("explain " + Sample("overlay")).err,
              "extprop: explain: no NAME is given, nor --all\n");
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
    EXPECT_EQ(alike.out, "");

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
    Write("/odm/build.prop", "import /odm/build.prop\n");
    EXPECT_EQ(Run("diff " + Path("") + " " + Sample("overlay")).status, 3);
}

}  // namespace
