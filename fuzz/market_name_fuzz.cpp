// The market name for any configuration and size, compared with another computation of the table of
// sizes.

#include <stdlib.h>

#include "device.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto parts = fuzz::Parts(data, size, 2);
    fuzz::Clear();
    const std::string &text = parts[0], &config = parts[1];
    fuzz::Put("/mnt/vendor/my_region/build.prop", "ro.tesvo.pipeline.region=EU\n");
    fuzz::Put("/my_product/cust/EU/etc/devicename.cfg", config);
    fuzz::Put("/sys/block/sda/size", text);
    platform::StoreProperty("dev.mnt.blk.userdata", "sda");
    android::init::updateMarketName(fuzz::Callback);

    // Only the four sizes count, so that a larger number need not be converted.
    std::string rom = fuzz::LookUp(config, "ROM");
    const bool is_number = !rom.empty() && rom.find_first_not_of("0123456789") == std::string::npos;
    rom.erase(0, rom.find_first_not_of('0'));
    const long long sectors = strtoll(text.c_str(), nullptr, 10);
    const long long measured = sectors / (1 << 21);
    const auto is_near = [&](long long to, long long by) { return llabs(measured - to) < by; };
    const bool fits = sectors <= INT32_MAX && sectors >= INT32_MIN;
    const bool matches =
            fits && is_number &&
            ((rom == "128" && is_near(128, 50)) || (rom == "256" && is_near(256, 50)) ||
             (rom == "512" && is_near(512, 100)) ||
             (rom == "1024" && measured >= 925 && measured <= 1024));
    std::vector<fuzz::PropertyMap> expected;
    if (matches) {
        expected = {{{"ro.vendor.tesvo.market.name", fuzz::LookUp(config, "market")},
                     {"ro.product.littletail_type", fuzz::LookUp(config, "type")},
                     {"ro.product.littletail_model", fuzz::LookUp(config, "model")}}};
    }
    fuzz::Expect(fuzz::TakeCalls() == expected, "the market name");
    return 0;
}
