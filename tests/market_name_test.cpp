#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device.h"

namespace {

using android::base::WriteStringToFile;
using android::init::updateMarketName;
using testing::ElementsAre;
using namespace std::string_literals;

constexpr char kConfig[] = "/my_product/cust/EU/etc/devicename.cfg";
constexpr char kSize[] = "/sys/block/sda/size";
constexpr char kBlock[] = "dev.mnt.blk.userdata";
constexpr char kMarket[] = "ro.vendor.tesvo.market.name";
constexpr char kType[] = "ro.product.littletail_type";
constexpr char kModel[] = "ro.product.littletail_model";
constexpr char kRegionRead[] = "W Loading property from /mnt/vendor/my_region/build.prop: EU";
constexpr char kNoSize[] = "E can not convert block size: /sys/block/";
constexpr long kGib = 2097152;  // in sectors

// Boots a device whose region is EU and that has block devices of all kinds.
void Boot(const std::function<void(Init&)>& body) {
    Device device;
    device.Write("/mnt/vendor/my_region/build.prop", "ro.tesvo.pipeline.region=EU\n");
    device.Write(kConfig, "");
    device.Write(kSize, "");
    device.Write("/sys/block/size", "text");
    device.Link("/sys/block/link/size", kSize);
    device.Boot(body);
}

// Returns what is handed on by a device that is so configured and so large.
std::vector<Call> CallsOf(Init& init, const std::string& config, const std::string& size) {
    EXPECT_TRUE(WriteStringToFile(config, kConfig) && WriteStringToFile(size, kSize));
    init.Set(kBlock, "sda");
    init.TakeLog();
    updateMarketName(Init::Callback);
    return init.TakeCalls();
}

void Expect(Init& init, bool named, const std::string& rom, const std::string& size) {
    SCOPED_TRACE(rom + "," + size);
    EXPECT_EQ(CallsOf(init, "ROM=" + rom, size).size(), named ? 1u : 0u);
    EXPECT_THAT(init.TakeLog(android::base::ERROR), ElementsAre());
}

TEST(MarketName, MeasuredSizeIsNearTheConfiguredOne) {
    const struct {
        const char* rom;
        long least, most;  // GiB
    } cases[] = {{"128", 79, 177}, {"256", 207, 305}, {"512", 413, 611}, {"1024", 925, 1023}};
    Boot([&](Init& init) {
        for (const auto& [rom, least, most] : cases) {
            // What is no whole GiB does not count.
            const long end = (most + 1) * kGib;
            Expect(init, false, rom, std::to_string(least * kGib - 1));
            Expect(init, true, rom, std::to_string(least * kGib));
            Expect(init, true, rom, std::to_string(end - 1) + "\n");
            if (most < 1023) Expect(init, false, rom, std::to_string(end));
        }
    });
}

TEST(MarketName, OddNumbers) {
    const std::string size = std::to_string(256 * kGib);
    const std::string digits(100, '1');
    Boot([&](Init& init) {
        for (const auto& text : {" \t\n" + size, "+0" + size, size + "x"}) {
            Expect(init, true, "256", text);
        }
        for (const char* text : {"0x20000000", "-536870912"}) Expect(init, false, "256", text);
        for (const auto& text : {"2147483648"s, "-2147483649"s, "4831838208"s, digits, "-" + digits,
                                 ""s, "\n"s, "-"s, "size " + size}) {
            EXPECT_THAT(CallsOf(init, "ROM=256", text), ElementsAre()) << text;
            // Nothing is looked up for a size that is none.
            EXPECT_THAT(init.TakeLog(), ElementsAre(kRegionRead, kNoSize + "sda/size"s));
        }
        // White space around a property's value is not part of it.
        for (const char* rom : {" 256 ", "000256"}) Expect(init, true, rom, size);
        for (const auto& rom : {"256GB"s, "2 56"s, "+256"s, "0x100"s, "0400"s, digits,
                                "4294967552"s, "18446744073709551872"s, ""s}) {
            Expect(init, false, rom, size);
        }
    });
}

TEST(MarketName, HandsOnTheNamesOfTheRegionOrNothing) {
    Boot([](Init& init) {
        init.Set("ro.tesvo.pipeline.region", "US");  // the file decides, not the property
        const auto expect = [&init](const char* config, const PropertyMap& names) {
            EXPECT_THAT(CallsOf(init, config, "250069680\n"), ElementsAre(Call{0, names}));
        };
        expect("model = M 1 \nROM=128\nmarket=a=b\n#type=T\n",
               {{kMarket, "a=b"}, {kType, ""}, {kModel, "M 1"}});
        // The first line that begins with the name counts.
        expect("ROM_SIZE=128\nROM=1\nmarketing=a\nmarket=b\ntype=\ntype=T\n",
               {{kMarket, "a"}, {kType, ""}, {kModel, ""}});

        init.TakeLog();
        for (const char* block : {"missing", "link"}) {
            init.Set(kBlock, block);
            updateMarketName(Init::Callback);
            EXPECT_THAT(init.TakeLog(), ElementsAre(kRegionRead)) << block;
        }
        init.Set(kBlock, "");
        updateMarketName(Init::Callback);
        EXPECT_THAT(init.TakeLog(), ElementsAre(kRegionRead, kNoSize + "/size"s));
        // The configuration is looked for first.
        EXPECT_EQ(unlink("/mnt/vendor/my_region/build.prop"), 0);
        updateMarketName(Init::Callback);
        EXPECT_THAT(init.TakeLog(android::base::ERROR),
                    ElementsAre("E there is no config file: /my_product/cust//etc/devicename.cfg"));
        EXPECT_THAT(init.TakeCalls(), ElementsAre());
    });
}

}  // namespace
