// The roots of the extension partitions, which depend on brand and region.

#pragma once

#include <string>
#include <vector>

namespace android {
namespace init {

// A brand that has directories of its own on the region partition, and the name of those.
struct Brand {
    const char* name;  // compared without regard to case
    const char* code;
};

inline constexpr Brand kBrands[] = {{"quba", "Q"}, {"lumora", "L"}, {"vantrix", "V"}};

// Where the brand is looked up.
inline constexpr char kSystemExtBuildProp[] = "/system_ext/etc/build.prop";
inline constexpr char kBrand[] = "ro.tesvo.image.system_ext.brand";

// Returns the sixteen roots for a brand's code and a region, either of which may be empty, lowest
// priority first.
std::vector<std::string> partitionRoots(const std::string& brandCode, const std::string& region);

// Returns the roots for the brand and the region that the device's images name; one that is missing
// counts as empty, and so does an unknown brand. The region may be any text.
std::vector<std::string> findPartitionRoots();

}  // namespace init
}  // namespace android
