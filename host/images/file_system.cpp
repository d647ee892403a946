#include "file_system.h"

#include <algorithm>
#include <string_view>

#include "../budget.h"

namespace images {

void CheckNames(uint64_t directory, const std::vector<Name>& names) {
    const auto fail = [directory](const std::string& what) {
        throw Damage("inode " + std::to_string(directory) + ": " + what);
    };
    if (names.size() > limits::kImageNames) {
        fail("more than " + std::to_string(limits::kImageNames) + " names");
    }
    constexpr size_t kLongest = 255;
    constexpr std::string_view kNoParts("/\0", 2);
    std::vector<std::string_view> sorted;
    sorted.reserve(names.size());
    for (const auto& [name, node] : names) {
        if (name.empty()) fail("an empty name");
        if (name.size() > kLongest) fail("a name of more than 255 bytes");
        if (name.find_first_of(kNoParts) != std::string::npos) {
            fail("a name with a '/' or a zero byte");
        }
        if (name == "." || name == "..") fail("the name '" + name + "' where it is not allowed");
        sorted.push_back(name);
    }
    std::sort(sorted.begin(), sorted.end());
    if (std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end()) {
        fail("the same name twice");
    }
}

}  // namespace images
