#include "boot/installing_service.h"

#include <chrono>
#include <thread>

#include <android-base/properties.h>

#include "TesvoExtensionProperty/commands.h"

namespace extprop {

void EmulateInstallingService(const std::vector<std::string>& requests, Reporter* reporter) {
    using namespace std::chrono_literals;
    using android::init::kBindComplete;
    using android::init::kCotaBindRequest;
    constexpr char kAcknowledged[] = "null";
    constexpr auto kPatience = 5s;
    for (const std::string& request : requests) {
        reporter->OnRequest(kCotaBindRequest, request);
        bool acknowledged = request == kBindComplete;  // the thread ends without acknowledging it
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        while (!acknowledged && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(1ms);
            acknowledged = android::base::GetProperty(kCotaBindRequest, "") == kAcknowledged;
        }
        if (!acknowledged) reporter->Emit(UnacknowledgedEvent{request});
    }
}

}  // namespace extprop
