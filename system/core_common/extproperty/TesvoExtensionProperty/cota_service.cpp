// The carrier-package service's commands, and the thread that serves its requests at boot.

#include <chrono>
#include <thread>

#include <android-base/logging.h>

#include "cota.h"
#include "names.h"

namespace android {
namespace init {

namespace {

using CotaOperation = void (InitExtensionPropertyImpl::*)(PropertyCallback);

struct NamedOperation {
    const char* word;
    CotaOperation operation;
};

constexpr NamedOperation kRequests[] = {
        {"boot_mount", &InitExtensionPropertyImpl::bindAndLoadCotaOverrideProperties},
        {"module_bind_single_boot", &InitExtensionPropertyImpl::bindCotaModuleMountPoint},
        {"bind_basic_point_boot", &InitExtensionPropertyImpl::bindCotaBasicMountPoint},
};

// QUIRK: two words stand for one operation; nothing checks before the load that either asks for.
constexpr NamedOperation kCommands[] = {
        {"mount_and_check_load", &InitExtensionPropertyImpl::bindAndLoadCotaOverrideProperties},
        {"mount_must_load", &InitExtensionPropertyImpl::bindAndLoadCotaOverrideProperties},
        {"bind_basic_point", &InitExtensionPropertyImpl::bindCotaBasicMountPoint},
        {"update_cota_info", &InitExtensionPropertyImpl::updateCotaInfoProperties},
        {"module_bind_single", &InitExtensionPropertyImpl::bindCotaModuleMountPoint},
};

// Returns the operation that `word` names as a whole, or null.
template <size_t N>
CotaOperation findOperation(const NamedOperation (&operations)[N], const std::string& word) {
    for (const NamedOperation& named : operations) {
        if (word == named.word) return named.operation;
    }
    return nullptr;
}

// Serves the installing service's requests until it says that it is done or never asks. It takes no
// lock, so it may run beside a service command; the request property alone coordinates the two.
void doBindCotaMountThread(InitExtensionPropertyImpl* object, PropertyCallback callback) {
    using namespace std::chrono_literals;
    constexpr int kMaxEmptyPolls = 100;

    LOG(INFO) << "check cota bind mount start";
    for (int emptyPolls = 0; emptyPolls < kMaxEmptyPolls;) {
        const std::string request = readProperty(kCotaBindRequest);
        if (request.empty()) {
            std::this_thread::sleep_for(200ms);
            ++emptyPolls;
        } else if (request == "boot_mount_bind_complete") {
            return;
        } else if (CotaOperation operation = findOperation(kRequests, request)) {
            (object->*operation)(callback);
            property_set(kCotaBindRequest, "null");
        }
        // QUIRK: any other value, the acknowledging "null" too, is read again at once, so the
        // thread spins until the next request.
    }
    LOG(INFO) << "not need do cota bind mount ";
}

}  // namespace

void InitExtensionPropertyImpl::loadCotaServiceOverrideProperties(std::string command,
                                                                  PropertyCallback callback) {
    // QUIRK: a thread that cannot be made throws through here, and the lock then stays taken.
    std::lock_guard<std::mutex> lock(mutex);
    if (command == "check_mount") {
        std::thread(doBindCotaMountThread, this, callback).detach();
    } else if (CotaOperation operation = findOperation(kCommands, command)) {
        (this->*operation)(callback);
    } else {
        LOG(ERROR) << "not valid cota mount bind command:" << command;
    }
}

}  // namespace init
}  // namespace android
