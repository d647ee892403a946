#include "device/phone_zip.h"

#include <errno.h>
#include <signal.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

#include <android-base/file.h>
#include <android-base/unique_fd.h>

#include "../../budget.h"
#include "../../filter.h"
#include "decoders.h"
#include "device/phone.h"
#include "input_error.h"
#include "texts.h"

namespace extprop {

namespace {

using android::base::unique_fd;
using images::TextPacket;

[[noreturn]] void FailWithErrno(const std::string& name) {
    throw std::runtime_error(name + ": the zip cannot be read: " + strerror(errno));
}

// The reading process; it ends with this object.
class ZipReader {
  public:
    ZipReader(const std::string& name, const std::string& zip) : name_(name) {
        if (!filter::IsPossible()) {
            throw std::runtime_error(name + ": the zip cannot be read: " + filter::kNotPossible);
        }
        const unique_fd file(memfd_create("zip", MFD_CLOEXEC));
        int ends[2];
        if (!file.ok() || !android::base::WriteStringToFd(zip, file) ||
            socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
            FailWithErrno(name);
        }
        socket_.reset(ends[0]);
        const unique_fd theirs(ends[1]);
        pid_ = fork();
        if (pid_ == 0) images::ServeTexts({{file.get()}, theirs.get(), -1}, 'a');
        if (pid_ == -1) FailWithErrno(name);
    }

    ~ZipReader() {
        kill(pid_, SIGKILL);
        TEMP_FAILURE_RETRY(waitpid(pid_, nullptr, 0));
    }

    ZipReader& operator=(ZipReader&&) = delete;

    // Returns the next packet, an empty one if the process is gone. Throws std::runtime_error if it
    // did not begin to read.
    std::string_view Receive() {
        const ssize_t size = TEMP_FAILURE_RETRY(recv(socket_.get(), packet_, sizeof(packet_), 0));
        if (size <= 0) CheckServed();
        return {packet_, static_cast<size_t>(std::max<ssize_t>(size, 0))};
    }

  private:
    void CheckServed() const {
        siginfo_t info = {};
        if (waitid(P_PID, pid_, &info, WEXITED | WNOWAIT) != 0 || info.si_code != CLD_EXITED)
            return;
        const std::string why = images::WhyNotServed(info.si_status);
        if (!why.empty()) throw std::runtime_error(name_ + ": the zip cannot be read: " + why);
    }

    const std::string name_;
    unique_fd socket_;
    pid_t pid_ = -1;
    char packet_[images::kTextPacketBytes];
};

[[noreturn]] void FailAsDamaged(const std::string& name, const std::string& why) {
    throw InputError(name + ": the zip is truncated, damaged or encrypted" +
                     (why.empty() ? "" : " (" + why + ")"));
}

}  // namespace

std::string UnpackBugReport(const std::string& name, const std::string& zip) {
    ZipReader reader(name, zip);
    size_t left = limits::kPhone;  // of all texts together
    std::string text;
    while (true) {
        std::string_view packet = reader.Receive();
        if (packet.empty()) FailAsDamaged(name, "");
        const auto kind = static_cast<TextPacket>(packet[0]);
        packet.remove_prefix(1);
        switch (kind) {
            case TextPacket::kBytes:
                if (packet.size() > left) {
                    throw InputError(name + ": more than " + std::to_string(limits::kPhone) +
                                     " bytes of text, which is the limit");
                }
                left -= packet.size();
                text += packet;
                break;
            case TextPacket::kText:
            case TextPacket::kEnd:
                if (FindSystemProperties(text) != std::string::npos) return text;
                text.clear();
                if (kind == TextPacket::kText) break;
                throw InputError(name +
                                 ": it looks like a zip, but no text in it has a bug "
                                 "report's section SYSTEM PROPERTIES");
            default:
                FailAsDamaged(name, std::string(packet));
        }
    }
}

}  // namespace extprop
