// The commands of the carrier-package service, and the thread that serves its requests at boot.

#include <chrono>
#include <thread>

#include <android-base/logging.h>

#include "commands.h"
#include "cota.h"

namespace android {
namespace init {

namespace {

// Returns the operation whose command is exactly `word`, or null.
template <size_t N>
CotaOperation findOperation(const NamedOperation (&operations)[N], const std::string& word) {
    for (const NamedOperation& named : operations) {
        if (word == named.word) return named.operation;
    }
    return nullptr;
}

// Serves the installing service's requests until the service reports that it is done, or for 20
// seconds without a request. Takes no lock, so it may run in parallel with a service command; only
// the request property coordinates the two.
void doBindCotaMountThread(InitExtensionPropertyImpl* object, PropertyCallback callback) {
    using namespace std::chrono_literals;
    constexpr int kMaxEmptyPolls = 100;

    LOG(INFO) << "check cota bind mount start";
    for (int emptyPolls = 0; emptyPolls < kMaxEmptyPolls;) {
        const std::string request = readProperty(kCotaBindRequest);
        if (request.empty()) {
            std::this_thread::sleep_for(200ms);
            ++emptyPolls;
        } else if (request == kBindComplete) {
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
    // QUIRK: if no thread can be created, the exception passes through here and the lock stays
    // taken.
    std::lock_guard<std::mutex> lock(mutex);
    if (command == kCheckMount) {
        std::thread(doBindCotaMountThread, this, callback).detach();
    } else if (CotaOperation operation = findOperation(kServiceCommands, command)) {
        (this->*operation)(callback);
    } else {
        LOG(ERROR) << "not valid cota mount bind command:" << command;
    }
}

}  // namespace init
}  // namespace android
