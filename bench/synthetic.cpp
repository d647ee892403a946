#include "synthetic.h"

#include "device/property_lines.h"

std::string SyntheticBuildProp(int lines, const std::string& owner) {
    constexpr const char* kPrefixes[] = {
            "ro.product",   "ro.vendor.radio",  "persist.vendor.camera",
            "vendor.audio", "ro.build.version", "media.stagefright"};
    constexpr const char* kWords[] = {"enable",   "policy",       "display.density",
                                      "max_size", "feature.list", "mode"};
    std::string content = "# begin build properties\nro.build.owner=" + owner + "\n";
    for (int i = 2; i < lines; ++i) {
        if (i % 25 == 0) {
            content += i % 50 == 0 ? "\n" : "# the next group\n";
            continue;
        }
        // The stride makes the names unsorted.
        const int number = i * 7919 % lines;
        content += std::string(kPrefixes[i % 6]) + "." + kWords[number % 6] + "." + owner + "." +
                   std::to_string(number) + "=" +
                   (i % 3 == 0 ? "true" : "value-of-some-length-" + std::to_string(i)) + "\n";
    }
    return content;
}

std::vector<std::pair<std::string, std::string>> SplitBuildProp(const std::string& content) {
    std::vector<std::pair<std::string, std::string>> pairs;
    for (const extprop::PropertyLine& line : extprop::PropertyLines(content)) {
        if (line.kind == extprop::PropertyLine::kProperty) {
            pairs.emplace_back(line.name, line.value);
        }
    }
    return pairs;
}
