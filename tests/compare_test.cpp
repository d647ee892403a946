// Comparisons of a device with phones: with results of its own boots, with such results after known
// changes, and with others.

#include <algorithm>
#include <random>

#include <android-base/strings.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "phone_forms.h"
#include "random_device.h"
#include "tool.h"

namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::StartsWith;

using Words = std::vector<std::string>;

Words operator+(Words words, const Words& more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

std::string Shell(const Words& words) {
    std::string text;
    for (const std::string& word : words) {
        text += " '" + android::base::StringReplace(word, "'", "'\\''", true) + "'";
    }
    return text;
}

bool IsPersistent(const std::string& name) {
    return android::base::StartsWith(name, "persist.");
}

// The properties that identify the variant of a phone.
const std::map<std::string, std::string> kAxes = {
        {"brand", "ro.tesvo.image.system_ext.brand"}, {"region", "ro.tesvo.pipeline.region"},
        {"sim-first", "sys.sim.switch.first"},        {"sim-current", "sys.sim.switch.current"},
        {"channel", "persist.sys.channel.info"},      {"region-key", "sys.region.switch.first"}};

// Properties that every phone has and no image.
const Properties kNoise = {{"init.svc.zygote", "running"},
                           {"ro.boottime.init", "1234567890"},
                           {"persist.vendor.radio.noise", "1"},
                           {"sys.noise.lines", "one\n\ntwo"},
                           {"dev.noise", ""}};

class CompareTest : public ToolTest {
  protected:
    // Returns the document that the tool prints.
    static json Read(const std::string& arguments) {
        const Output output = Run(arguments);
        const json document = json::parse(output.out, nullptr, false);
        if (!document.is_discarded()) return document;
        throw std::runtime_error("extprop " + arguments + ": " + output.err);
    }

    // Returns the properties that the boot results in, nothing if it fails.
    static Properties Boot(const std::string& device, const Words& words) {
        const json report = Read("boot --json " + device + Shell(words));
        if (!report.at("failure").is_null()) return {};
        return report.at("properties").get<Properties>();
    }

    // Returns the device's variant as a phone, after as many boots, but at most `boots`, as its
    // persistent properties need to stay the same; nothing if the phone does not show its variant.
    static Properties PhoneOf(const std::string& device, const Words& words, const json& variant,
                              int boots) {
        const Words own = words + variant.at("words").get<Words>();
        Properties phone = Boot(device, own);
        for (int boot = 1; boot < boots; ++boot) {
            Words again = own;
            for (const auto& [name, value] : phone) {
                if (!IsPersistent(name) || name == kAxes.at("channel")) continue;
                again = again + Words{"--set", name + "=" + value};
            }
            Properties later = Boot(device, again);
            if (later == phone) boots = 0;
            phone = std::move(later);
        }
        for (const auto& [axis, value] : variant.at("variant").items()) {
            if (axis == "nv") return {};
            if (axis == "brand") phone[kAxes.at(axis)] = value;
            if (phone[kAxes.at(axis)] != value) return {};
        }
        return phone;
    }

    // Returns the document, and expects the exit status that belongs to it.
    static json Compare(const std::string& device, const Words& words, const std::string& phone) {
        const Output output = Run("compare --json " + device + " " + phone + Shell(words));
        const json document = json::parse(output.out, nullptr, false);
        if (document.is_discarded()) throw std::runtime_error("compare: " + output.err);
        EXPECT_EQ(output.status, NamesIn(document).empty() ? 0 : 1);
        return document;
    }

    // Returns all differences in the document, such as "differs ro.x".
    static Words NamesIn(const json& document) {
        Words names;
        for (const char* group : {"differs", "only_device", "only_phone"}) {
            for (const json& property : document.at(group)) {
                names.push_back(group + (" " + property.at("name").get<std::string>()));
            }
        }
        return names;
    }

    void CompareWithItsPhone(const std::string& device, const Words& words, Properties phone,
                             uint64_t seed) {
        phone.insert(kNoise.begin(), kNoise.end());
        const json document = Compare(device, words, Write("/phone", ListedForm(phone)));
        EXPECT_THAT(NamesIn(document), IsEmpty());
        EXPECT_GE(document.at("others"), kNoise.size());

        // A boot with the words in the document results in the phone's values.
        const Words as_phone = words + document.at("words").get<Words>();
        const Properties again = Boot(device, as_phone);
        EXPECT_THAT(phone, IsSupersetOf(again));

        Properties lines, persistent;
        const std::string directory = "/stored" + std::to_string(++directories_) + "/";
        for (const auto& [name, value] : phone) {
            if (value.find('\n') == value.npos) lines[name] = value;
            if (!IsPersistent(name)) continue;
            persistent[name] = value;
            Write(directory + name, value);
        }
        const std::string report = BugReportForm(phone);
        for (const std::string& form : {report, Zip({{"bugreport-x.txt", report}})}) {
            json same = Compare(device, words, Write("/form", form));
            same["phone"] = document.at("phone");
            EXPECT_EQ(same, document);
        }
        EXPECT_THAT(NamesIn(Compare(device, words, Write("/form", PropertyFileForm(lines)))),
                    IsEmpty());
        if (persistent.size() > 1) {
            const json stored = Compare(device, words, Write("/form", StoreForm(persistent)));
            json same = Compare(device, words, Path(directory));
            same["phone"] = stored.at("phone");
            EXPECT_EQ(same, stored);
        }

        // Changed properties are reported, and nothing else.
        Words names;
        for (const auto& [name, value] : again) {
            const bool is_axis =
                    std::any_of(kAxes.begin(), kAxes.end(),
                                [&, n = name](const auto& axis) { return axis.second == n; });
            const bool is_given = document.at("given").contains(name);
            if (!is_axis && !is_given && !IsPersistent(name)) names.push_back(name);
        }
        if (names.size() < 2) return;
        std::shuffle(names.begin(), names.end(), std::mt19937_64(seed));
        phone[names[0]] = "changed";
        phone.erase(names[1]);
        const json changed = Compare(device, words, Write("/phone", ListedForm(phone)));
        EXPECT_THAT(NamesIn(changed),
                    ElementsAre("differs " + names[0], "only_device " + names[1]));
        EXPECT_EQ(changed.at("same").get<size_t>() + 2, document.at("same").get<size_t>());
        EXPECT_EQ(changed.at("differs")[0].at("phone"), "changed");
        EXPECT_EQ(changed.at("differs")[0].at("device"), again.at(names[0]));
    }

    // A device with a property for each class.
    std::string Device() const {
        Write("/image/mnt/vendor/my_region/build.prop", "ro.tesvo.pipeline.region=EU\n");
        Write("/image/mnt/vendor/my_product/cust/EU/build.prop", "ro.test.locale=en\n");
        Write("/image/mnt/vendor/my_product/cust/IN/build.prop",
              "ro.test.locale=hi\nro.test.script=deva\n");
        Write("/image/mnt/vendor/my_product/cust/US/build.prop", "ro.build.type=user\n");
        Write("/image/odm/build.prop", "ro.test.theme=stock\nro.test.same=1\n");
        Write("/image/mnt/vendor/my_stock/build.prop", "ro.test.theme=new\n");
        Write("/image/mnt/vendor/my_carrier/properties/north/SimSwitchFirstTime/a.prop",
              "ro.test.apn=north\n");
        Write("/image/system/build.prop",
              "ro.build.id=X1\nro.build.type=user\nro.test.theme=stock\n");
        return Path("/image");
    }

  private:
    int directories_ = 0;
};

TEST_F(CompareTest, APhoneThatIsABootOfTheImageIsAlike) {
    for (const uint64_t seed : {3, 5}) {
        SCOPED_TRACE("the device of the seed " + std::to_string(seed));
        const std::string device = Path("/" + std::to_string(seed));
        const Words words = MakeRandomDevice(device, seed, false);
        json variants = Read("matrix --list --json " + device + Shell(words)).at("variants");
        std::shuffle(variants.begin(), variants.end(), std::mt19937_64(seed));
        for (const int boots : {1, 5}) {
            Properties phone;
            for (size_t i = 0; i < variants.size() && phone.empty(); ++i) {
                phone = PhoneOf(device, words, variants[i], boots);
            }
            ASSERT_FALSE(phone.empty());
            SCOPED_TRACE(boots);
            CompareWithItsPhone(device, words, phone, seed);
        }
    }
}

TEST_F(CompareTest, TellsEachClassWithItsLines) {
    const std::string device = Device();
    const std::string phone = Write("/phone",
                                    "[ro.build.id]: [X2]\n"
                                    "[ro.build.type]: [user]\n"
                                    "[ro.test.apn]: [north]\n"
                                    "[ro.test.locale]: [hi]\n"
                                    "[ro.test.same]: [1]\n"
                                    "[ro.test.theme]: [stock]\n"
                                    "[ro.tesvo.pipeline.region]: [EU]\n"
                                    "[persist.vendor.x]: [1]\n"
                                    "[init.svc.\u202e]: [running]\n");
    const Output output = Run("compare -v " + device + " " + phone);
    EXPECT_EQ(output.status, 1);
    EXPECT_EQ(output.out,
              "2 differ, 1 only in the image, 1 only on the phone, 2 the same, 4 not this "
              "library's\n"
              "\n== differ\n"
              "  ro.test.locale\n"
              "    image  en  (early /mnt/vendor/my_product/cust/EU/build.prop:1)\n"
              "    phone  hi\n"
              "      /mnt/vendor/my_product/cust/IN/build.prop:1  [not loaded; it takes --region "
              "IN]\n"
              "  ro.test.theme\n"
              "    image  new  (early /mnt/vendor/my_stock/build.prop:1)\n"
              "    phone  stock\n"
              "      early /odm/build.prop:1  [overridden by early "
              "/mnt/vendor/my_stock/build.prop:1]\n"
              "      /system/build.prop:3     [not loaded; the system's own, which may load it by "
              "itself]\n"
              "\n== only in the image\n"
              "  ro.sys.customize.flashback.company\n"
              "    image  invalid  (persist derived by loadSwitchKeys < settleSwitchKeys < "
              "loadPersistOverrideProperties)\n"
              "\n== only on the phone\n"
              "  ro.test.apn\n"
              "    phone  north\n"
              "      /mnt/vendor/my_carrier/properties/north/SimSwitchFirstTime/a.prop:1  north  "
              "[not loaded; it takes --sim-first north]\n"
              "\n== the same\n"
              "  ro.test.same=1\n"
              "  ro.tesvo.pipeline.region=EU\n"
              "\n== not this library's\n"
              "  init.svc.\\u{202e}=running\n"
              "  persist.vendor.x=1\n"
              "  ro.build.id=X2  (/system/build.prop:1 has X1)\n"
              "  ro.build.type=user  (/system/build.prop:2)\n");
    // A package is the library's, wherever it lies.
    const Output package = Run("compare " + Sample("carrier-package") + " -",
                               "<" + Write("/package", "[ro.sample.apn]: [internet.ota]\n"));
    EXPECT_THAT(package.out, HasSubstr("1 only on the phone, 0 the same, 0 not this library's"));
    EXPECT_EQ(Run("compare " + device + " - 'ro.test.s*'", "<" + phone).out,
              "0 differ, 0 only in the image, 0 only on the phone, 1 the same, 0 not this "
              "library's\n");
    EXPECT_EQ(Run("compare " + device + " " + phone + " ro.nothing").status, 2);

    // Origins and lines are those of explain.
    const json document = Read("compare --json " + device + " " + phone);
    std::map<std::string, json> explained;
    const json explanation = Read("explain --all --json " + device);
    for (const json& property : explanation.at("properties")) {
        for (const json& origin : property.at("origins")) {
            explained[property.at("name")].push_back(origin);
        }
    }
    size_t origins = 0;
    for (const char* group : {"differs", "only_device", "only_phone"}) {
        for (const json& property : document.at(group)) {
            json lines = property.value("phone_lines", json::array());
            if (property.contains("origin")) lines.push_back(property.at("origin"));
            for (json& origin : lines) {
                const bool is_system = origin.contains("system") && origin.at("system");
                origin.erase("system");
                if (is_system) continue;
                EXPECT_THAT(explained[property.at("name")], testing::Contains(origin));
                ++origins;
            }
        }
    }
    EXPECT_EQ(origins, 6u);
}

TEST_F(CompareTest, BootsThePhonesVariantAsFarAsTheDeviceHasIt) {
    const std::string device = Device();
    const Properties properties = {{"ro.tesvo.pipeline.region", "IN"},
                                   {"sys.sim.switch.first", "north"},
                                   {"ro.test.locale", "hi"},
                                   {"ro.test.script", "deva"},
                                   {"ro.test.apn", "north"},
                                   {"ro.test.theme", "new"},
                                   {"ro.test.same", "1"},
                                   {"ro.sys.customize.flashback.company", "invalid"}};
    const std::string phone = Write("/phone", ListedForm(properties));
    const Output output = Run("compare " + device + " " + phone);
    EXPECT_EQ(output.status, 0);
    EXPECT_EQ(output.out,
              "0 differ, 0 only in the image, 0 only on the phone, 6 the same, 0 not this "
              "library's\n"
              "the device is the phone's variant with --region IN --sim-first north\n"
              "given to the boot, and so not counted as the same: 2 properties\n");
    // Options override what the phone shows, and count as the device's values.
    const Output by_hand = Run("compare " + device + " " + phone + " --region EU");
    EXPECT_THAT(by_hand.out, HasSubstr("  ro.tesvo.pipeline.region\n    image  EU  "));

    Properties other = properties;
    other["ro.tesvo.pipeline.region"] = "XX";
    other["sys.sim.switch.first"] = "west";
    const std::string missing = Write("/other", ListedForm(other));
    EXPECT_THAT(Run("compare " + device + " " + missing).out,
                StartsWith("the device has no region 'XX', which the phone has; the phone probably "
                           "has another image\nthe device has no sim-first 'west', which"));

    const std::string expectations = Write("/expectations.yaml",
                                           "expectations:\n"
                                           "  - name: of all\n"
                                           "    properties: {ro.test.same: '1'}\n"
                                           "  - name: of one\n"
                                           "    variants: {region: IN, sim-first: '*'}\n"
                                           "    complete: true\n"
                                           "    properties:\n"
                                           "      ro.test.locale: {equals: hi, from: "
                                           "/mnt/vendor/my_product/cust/IN/build.prop}\n"
                                           "  - name: of others\n"
                                           "    variants: {sim-first: north}\n"
                                           "    properties: {ro.test.same: '2'}\n");
    const std::string check = "check " + device + " " + expectations + " --phone ";
    const Output complete = Run(check + phone);
    EXPECT_THAT(complete.out, testing::Not(HasSubstr("ro.test.locale")));
    EXPECT_THAT(complete.out, HasSubstr("\n  " + phone +
                                        ": region=IN sim-first=north: ro.test.script is 'deva', "
                                        "expected none"));
    EXPECT_THAT(complete.out, HasSubstr("\n" + phone + ", 9 properties checked, 6 not as"));
    other = properties;
    other["ro.test.locale"] = "en";
    const std::string wrong = Write("/wrong", ListedForm(other));
    const Output failed = Run(check + wrong + " --junit " + Path("/junit.xml"));
    EXPECT_EQ(failed.status, 1);
    EXPECT_THAT(failed.out, HasSubstr("ro.test.locale is 'en', expected 'hi'\n"));
    std::string junit;
    android::base::ReadFileToString(Path("/junit.xml"), &junit);
    EXPECT_THAT(junit, HasSubstr("name=\"" + wrong + ": region=IN sim-first=north\""));
    EXPECT_THAT(Run("check " + device + " " +
                    Write("/none.yaml",
                          "expectations: [{variants: {}, properties: {ro.test.same: '1'}}]\n") +
                    " --phone " + phone)
                        .err,
                HasSubstr("no expectation is about this phone's variant"));
}

// A phone that does not show its brand.
TEST_F(CompareTest, TakesThePhoneForTheNearestThatItCanBe) {
    const std::string device = Device();
    Write("/image/mnt/vendor/my_region/Q/build.prop", "ro.test.brand=q\n");
    Write("/image/mnt/vendor/my_region/L/build.prop", "ro.test.brand=l\n");
    const Words quba = {"--brand", "quba"};
    const std::string phone = Write("/phone", ListedForm(Boot(device, quba)));
    const json document = Compare(device, {}, phone);
    EXPECT_EQ(document.at("words"), json(quba));
    EXPECT_THAT(NamesIn(document), IsEmpty());
    EXPECT_THAT(NamesIn(Compare(device, {"--brand", "lumora"}, phone)),
                ElementsAre("differs ro.test.brand"));
}

// The boot is given a phone's stored properties, if the device uses or sets them.
TEST_F(CompareTest, GivesTheBootWhatThePhoneHasStored) {
    const std::string device = Device();
    Write("/image/mnt/vendor/my_stock/build.prop",
          "persist.test.mode=1\nimport /odm/etc/${persist.test.kind}.prop\n");
    Write("/image/odm/etc/big.prop", "ro.test.size=big\n");
    const std::string phone = Write("/phone", StoreForm({{"persist.test.mode", "2"},
                                                         {"persist.test.kind", "big"},
                                                         {"persist.noise", "x"}}));
    const json document = Compare(device, {}, phone);
    EXPECT_EQ(document.at("given"),
              json({{"persist.test.mode", "2"}, {"persist.test.kind", "big"}}));
    EXPECT_EQ(document.at("words"),
              json({"--set", "persist.test.kind=big", "--set", "persist.test.mode=2"}));
    EXPECT_EQ(document.at("same"), 0);
    EXPECT_EQ(document.at("others"), 1);

    const Output illegal =
            Run("compare " + device + " -",
                "<" + Write("/long", "persist.test.mode=" + std::string(200, 'x') + "\n"));
    EXPECT_EQ(illegal.status, 1);
    EXPECT_THAT(illegal.err, HasSubstr("1 persistent property that no phone can have is not given "
                                       "to the boot, such as"));
}

}  // namespace
