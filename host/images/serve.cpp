// The side of the protocol that reads the image.

#include <errno.h>
#include <openssl/sha.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <map>
#include <new>
#include <tuple>

#include "../budget.h"
#include "confine.h"
#include "protocol.h"
#include "reader.h"
#include "sources.h"
#include "super.h"

namespace images {

namespace {

class Image {
  public:
    Image(int fd, char slot) : file_(fd), sparse_(OpenSparse(file_)) {
        // A file system may have anything where a super partition has its magic.
        auto file_system = OpenFileSystem(content());
        if (file_system == nullptr) super_ = Super::Open(content(), slot);
        volumes_ =
                super_ != nullptr ? super_->volumes() : std::vector<Volume>{{"", content().size()}};
        opened_.resize(volumes_.size());
        if (file_system != nullptr) opened_[0].file_system = std::move(file_system);
    }

    const std::vector<Volume>& volumes() const { return volumes_; }

    const FileSystem& FileSystemIn(size_t volume) {
        if (volume >= opened_.size()) throw Damage("no such volume");
        Opened& opened = opened_[volume];
        if (opened.file_system != nullptr) return *opened.file_system;
        if (super_ != nullptr) opened.content = super_->OpenVolume(volume);
        opened.file_system = OpenFileSystem(super_ != nullptr ? *opened.content : content());
        if (opened.file_system == nullptr) {
            throw Damage("neither an ext4 nor an EROFS nor an Android sparse image");
        }
        return *opened.file_system;
    }

  private:
    struct Opened {
        std::unique_ptr<Source> content;  // of a volume of a super partition
        std::unique_ptr<FileSystem> file_system;
    };

    static std::unique_ptr<FileSystem> OpenFileSystem(const Source& source) {
        auto erofs = OpenErofs(source);
        return erofs != nullptr ? std::move(erofs) : OpenExt4(source);
    }

    const Source& content() const {
        if (sparse_ != nullptr) return *sparse_;
        return file_;
    }

    FileSource file_;
    std::unique_ptr<Source> sparse_;
    std::unique_ptr<Super> super_;
    std::vector<Volume> volumes_;
    std::vector<Opened> opened_;
};

// Answers questions. What is read as a whole is kept for whoever asks for the next part of it, or
// for the same: many boots read the same files.
class Answers {
  public:
    Answers(int fd, char slot) : fd_(fd), slot_(slot) {}

    // Returns a reply's packet.
    std::string To(const Request& request) try {
        if (image_ == nullptr) image_ = std::make_unique<Image>(fd_, slot_);
        if (request.question == Question::kRead) {
            if (request.offset > limits::kImageFile) FailLarge(request);
            const Node node = FileSystemOf(request).Look(request.node);
            if (node.size > limits::kReaderCachedFile) {
                const size_t size = std::min<uint64_t>(request.size, kPacketBytes);
                return Packet(Outcome::kDone, node.size,
                              FileSystemOf(request).Read(request.node, request.offset, size));
            }
        }
        const std::string& whole = Whole(request);
        if (request.offset > whole.size()) return Packet(Outcome::kDone, whole.size(), "");
        return Packet(Outcome::kDone, whole.size(),
                      std::string_view(whole).substr(
                              request.offset, std::min<uint64_t>(request.size, kPacketBytes)));
    } catch (const Damage& damage) {
        return Packet(Outcome::kDamage, 0, damage.what());
    } catch (const std::bad_alloc&) {
        return Packet(Outcome::kDamage, 0,
                      "takes more than " + std::to_string(limits::kReaderMemory >> 20) +
                              " MiB of memory");
    }

  private:
    using Key = std::tuple<Question, uint32_t, uint64_t>;

    static std::string Packet(Outcome outcome, uint64_t size, std::string_view bytes) {
        const ReplyHeader header = {outcome, 0, size};
        std::string packet(reinterpret_cast<const char*>(&header), sizeof(header));
        return packet.append(bytes.substr(0, kPacketBytes));
    }

    [[noreturn]] static void FailLarge(const Request& request) {
        throw Damage("inode " + std::to_string(request.node) + ": a file of more than " +
                     std::to_string(limits::kImageFile) + " bytes");
    }

    const FileSystem& FileSystemOf(const Request& request) const {
        return image_->FileSystemIn(request.volume);
    }

    const std::string& Whole(const Request& request) {
        const Key key(request.question, request.volume, request.node);
        const auto kept = kept_.find(key);
        if (kept != kept_.end()) return kept->second;
        std::string whole = Read(request);
        for (kept_bytes_ += whole.size(); kept_bytes_ > limits::kReaderCache && !order_.empty();) {
            const auto oldest = kept_.find(order_.front());
            kept_bytes_ -= oldest->second.size();
            kept_.erase(oldest);
            order_.pop_front();
        }
        order_.push_back(key);
        return kept_.emplace(key, std::move(whole)).first->second;
    }

    std::string Read(const Request& request) const {
        std::string answer;
        switch (request.question) {
            case Question::kVolumes:
                for (const auto& [name, size] : image_->volumes()) {
                    PutText(&answer, name);
                    PutNumber(&answer, size);
                }
                return answer;
            case Question::kRoot:
                PutNumber(&answer, FileSystemOf(request).root());
                return answer;
            case Question::kLook: {
                const Node node = FileSystemOf(request).Look(request.node);
                return std::string(reinterpret_cast<const char*>(&node), sizeof(node));
            }
            case Question::kList:
                for (const auto& [name, node] : FileSystemOf(request).List(request.node)) {
                    PutText(&answer, name);
                    PutNumber(&answer, node);
                }
                return answer;
            case Question::kRead:
                return FileSystemOf(request).Read(request.node, 0, limits::kReaderCachedFile);
            case Question::kTarget:
                return FileSystemOf(request).Target(request.node);
        }
        throw Damage("no such question");
    }

    int fd_;
    char slot_;
    std::unique_ptr<Image> image_;
    std::map<Key, std::string> kept_;
    std::deque<Key> order_;  // of what is kept, the oldest first
    size_t kept_bytes_ = 0;
};

// Receives an asker's end of a channel. Returns -1 if there is none, and closes the control socket
// when nobody is left who could send one.
int ReceiveChannel(pollfd* control) {
    char byte;
    iovec data = {&byte, sizeof(byte)};
    alignas(cmsghdr) char space[CMSG_SPACE(sizeof(int))];
    msghdr message = {};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = space;
    message.msg_controllen = sizeof(space);
    const ssize_t size = recvmsg(control->fd, &message, MSG_CMSG_CLOEXEC | MSG_DONTWAIT);
    if (size == 0) control->fd = -1;
    const cmsghdr* header = size > 0 ? CMSG_FIRSTHDR(&message) : nullptr;
    if (header == nullptr || header->cmsg_type != SCM_RIGHTS) return -1;
    int channel;
    memcpy(&channel, CMSG_DATA(header), sizeof(channel));
    return channel;
}

// Answers the next question of a channel. Returns false if nobody asks there any more.
bool AnswerNext(int channel, Answers* answers) {
    Request request;
    iovec data = {&request, sizeof(request)};
    msghdr message = {};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    const ssize_t size = recvmsg(channel, &message, MSG_DONTWAIT);
    if (size == -1 && (errno == EAGAIN || errno == EINTR)) return true;
    if (size != sizeof(request)) return false;

    const itimerval limit = {{}, {limits::kRequestSeconds, 0}};
    setitimer(ITIMER_PROF, &limit, nullptr);  // its signal ends the process
    std::string reply = answers->To(request);
    data = {reply.data(), reply.size()};
    // Who asks one question at a time has room for the answer.
    return sendmsg(channel, &message, MSG_NOSIGNAL | MSG_DONTWAIT) ==
           static_cast<ssize_t>(reply.size());
}

}  // namespace

void Serve(int image, int control, char slot) {
    // The digests' library opens files when it is used for the first time.
    unsigned char digest[SHA256_DIGEST_LENGTH];
    SHA256(nullptr, 0, digest);
    if (!Confine(image, control)) _exit(kNotConfined);

    Answers answers(kImage, slot);
    std::vector<pollfd> sockets = {{kControl, POLLIN, 0}};
    while (sockets.size() > 1 || sockets[0].fd != -1) {
        if (ppoll(sockets.data(), sockets.size(), nullptr, nullptr) == -1) continue;
        for (size_t i = sockets.size() - 1; i > 0; --i) {
            if (sockets[i].revents == 0 || AnswerNext(sockets[i].fd, &answers)) continue;
            close(sockets[i].fd);
            sockets.erase(sockets.begin() + static_cast<ptrdiff_t>(i));
        }
        if (sockets[0].revents == 0) continue;
        const int channel = ReceiveChannel(&sockets[0]);
        if (channel != -1) sockets.push_back({channel, POLLIN, 0});
    }
    _exit(0);
}

}  // namespace images
