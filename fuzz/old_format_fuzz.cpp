// A switch key's file in any format: which key a boot takes from it, and what the next boots find.

#include "TesvoExtensionProperty/names.h"
#include "device.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace android::init;
    static constexpr struct {
        const char *path, *property;
    } kFiles[] = {{kReserveFirstFile, kSimSwitchFirst},
                  {kReserveCurrentFile, kSimSwitchCurrent},
                  {kReserveRegionFile, kRegionSwitchFirst}};
    fuzz::Clear();
    const auto& file = kFiles[size % 3];
    const std::string content = fuzz::Parts(data, size, 1)[0];
    if (content.find("import ") != std::string::npos) return -1;
    fuzz::Put(file.path, content);
    PropertyMap expected = fuzz::Parse(content);
    const bool is_old = expected.count(file.property) == 0 && !content.empty();
    if (is_old) expected[file.property] = content;
    const std::string line = file.property + ("=" + content + "\n");

    for (int boot = 0; boot < 3; ++boot) {
        PropertyMap properties;
        InitExtensionPropertyImpl().loadExtensionSimswitchKeyInfo(&properties);
        expected.emplace("ro.sys.customize.flashback.company", "invalid");  // unless it is set
        fuzz::Expect(properties == expected, "the properties");
        fuzz::Expect(fuzz::Get(file.path) == (is_old ? line : content), "the file");
        if (is_old) expected = fuzz::Parse(line);
    }
    return 0;
}
