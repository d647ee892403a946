// The company's boot logo, copied into the splash partition.

#include <unistd.h>

#include <fstream>
#include <memory>
#include <new>

#include <android-base/logging.h>

#include "../InitExtensionPropertyImpl.h"
#include "commands.h"

namespace android {
namespace init {

namespace {

constexpr const char* kCompanyLogos[] = {
        "/my_company/media/logo/logo.img",
        "/my_company/media/logo/logo.bin",
};

constexpr char kCopiedDate[] = "persist.record.my_company.date.forlogo";

std::string companyLogo() {
    for (const char* path : kCompanyLogos) {
        if (access(path, F_OK) == 0) return path;
    }
    return "";
}

std::string triggeredLogo(const std::string& trigger) {
    size_t slash = trigger.find('/');
    if (slash == std::string::npos) return "";
    const std::string path = trigger.substr(slash);
    return access(path.c_str(), F_OK) == 0 ? path : "";
}

// kNotTried: the partition cannot be opened or is too small, and is unchanged.
enum class CopyResult { kCopied, kFailed, kNotTried };

// Copies the whole source file to the start of the splash partition.
CopyResult copyLogo(const std::string& source) {
    std::ifstream in(source, std::ios::in | std::ios::binary);
    in.seekg(0, std::ios::end);
    const std::streamoff sourceSize = in.tellg();
    in.seekg(0, std::ios::beg);

    std::ofstream out(kSplashPartition, std::ios::out | std::ios::binary);
    if (!out.is_open()) return CopyResult::kNotTried;
    out.seekp(0, std::ios::end);
    const std::streamoff partitionSize = out.tellp();
    out.seekp(0, std::ios::beg);

    if (partitionSize < sourceSize) {
        LOG(INFO) << "Logo resource is too large";
        return CopyResult::kNotTried;
    }
    if (sourceSize < 0) return CopyResult::kFailed;
    std::unique_ptr<char[]> logo(new (std::nothrow) char[sourceSize]);
    if (logo == nullptr || !in.read(logo.get(), sourceSize)) return CopyResult::kFailed;
    if (!out.write(logo.get(), sourceSize).flush()) return CopyResult::kFailed;
    return CopyResult::kCopied;
}

}  // namespace

void InitExtensionPropertyImpl::copyLogoIfNeeded(std::string trigger) {
    if (access(kSplashPartition, F_OK) != 0) {
        LOG(INFO) << "Can not access the target Partition";
        return;
    }
    const bool fromCompany = trigger == kBootTrigger || trigger == kCompanyTrigger;
    const std::string companyDate = readProperty("ro.tesvo.image.my_company.date.utc");
    if (fromCompany) {
        if (companyDate.empty()) {
            LOG(INFO) << "Missing component information";
            return;
        }
        if (trigger == kBootTrigger && readProperty(kCopiedDate) == companyDate) {
            LOG(INFO) << "Logo copied, no need to process again";
            return;
        }
    }
    const std::string source = fromCompany ? companyLogo() : triggeredLogo(trigger);
    if (source.empty()) {
        LOG(INFO) << "No logo resource found";
        return;
    }
    const CopyResult result = copyLogo(source);
    // QUIRK: the text names an info file, but it is the copy that failed.
    if (result == CopyResult::kFailed) LOG(ERROR) << "Unable to write logo copy info file";
    if (result == CopyResult::kCopied && fromCompany) {
        property_set(kCopiedDate, companyDate.c_str());
    }
}

}  // namespace init
}  // namespace android
