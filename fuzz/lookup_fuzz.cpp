// The look-up of one name in a property file.

#include "device.h"
#include "utils.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    // As far as a zero byte, as the library takes it.
    const std::string name = input.ConsumeRandomLengthString(8).c_str();
    const std::string content = input.ConsumeRemainingBytesAsString();
    fuzz::Put("/file", content);
    const std::string found = load_property_from_file("/file", name.c_str());
    fuzz::Expect(found == fuzz::LookUp(content, name), "the value");
    fuzz::Clear();
    return 0;
}
