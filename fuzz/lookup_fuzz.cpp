// The look-up of one name in a property file.

#include "device.h"
#include "utils.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto parts = fuzz::Parts(data, size, 2);
    const std::string name = parts[0].c_str(), content = parts[1];  // a zero byte ends a name
    fuzz::Put("/file", content);
    const std::string found = load_property_from_file("/file", name.c_str());
    fuzz::Expect(found == fuzz::LookUp(content, name), "the value");
    fuzz::Clear();
    return 0;
}
