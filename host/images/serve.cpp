// The worker's side of the protocol, which reads the image.

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
#include "contents.h"
#include "decoders.h"
#include "protocol.h"
#include "sources.h"
#include "spool.h"

namespace images {

namespace {

// The contents of the image file, and of the files inside it that clients have opened as images.
class Files {
  public:
    // `parts` is the image, or the parts of a split sparse image.
    Files(std::vector<std::unique_ptr<Source>> parts, char slot, Spool* spool)
            : slot_(slot), spool_(spool) {
        Add(std::move(parts), 0);
    }

    // Opens the volume's files as one image. Returns its number. Throws Damage.
    size_t AddInside(size_t volume, const std::vector<uint64_t>& files) {
        CheckParts(files.size());
        File& file = FileOf(volume);
        std::vector<std::unique_ptr<Source>> parts;
        for (const uint64_t node : files) parts.push_back(file.contents->Inside(node));
        Add(std::move(parts), file.depth + 1);
        return files_.size() - 1;
    }

    const Contents& ContentsOf(size_t volume) { return *FileOf(volume).contents; }
    const Contents& ContentsAt(size_t file) const { return *files_[file].contents; }
    size_t FirstVolume(size_t file) const { return files_[file].first_volume; }

    const FileSystem& FileSystemIn(size_t volume) {
        File& file = FileOf(volume);
        return file.contents->Open(volume - file.first_volume);
    }

  private:
    struct File {
        std::unique_ptr<Contents> contents;
        size_t first_volume;  // volumes of all files are numbered one after the other
        int depth;
    };

    void Add(std::vector<std::unique_ptr<Source>> parts, int depth) {
        if (files_.size() >= limits::kFilesInside) {
            throw Damage("more than " + std::to_string(limits::kFilesInside) + " images in it");
        }
        auto contents = std::make_unique<Contents>(std::move(parts), slot_, spool_);
        if (depth > kDeepestArchive && contents->kind() == Kind::kArchive) {
            throw Damage("an archive in an archive in an archive; unpack the outer ones first");
        }
        files_.push_back({std::move(contents), volumes_, depth});
        volumes_ += files_.back().contents->volumes().size();
    }

    File& FileOf(size_t volume) {
        for (File& file : files_) {
            if (volume - file.first_volume < file.contents->volumes().size()) return file;
        }
        throw Damage("no such volume");
    }

    static constexpr int kDeepestArchive = 1;

    char slot_;
    Spool* spool_;
    std::vector<File> files_;
    size_t volumes_ = 0;
};

// Answers requests. Answers that are computed as a whole are cached, for requests for their next
// part and for repeated ones: many boots read the same files.
class Answers {
  public:
    Answers(const Descriptors& descriptors, char slot)
            : descriptors_(descriptors), slot_(slot), spool_(kSpoolFile, [this](uint64_t unpacked) {
                  // So that the client does not take the reader for hung.
                  LimitUnpacking();
                  Send(Packet(Outcome::kWorking, unpacked, ""));
              }) {}

    // Answers the request, which `nodes` followed. Returns false if the client does not take the
    // answer.
    bool Answer(int channel, const Request& request, std::vector<uint64_t> nodes) {
        channel_ = channel;
        nodes_ = std::move(nodes);
        Limit();
        return Send(To(request));
    }

  private:
    static constexpr int64_t kSecond = 1'000'000;

    using Key = std::tuple<Question, uint32_t, uint64_t>;

    // Starts the time limit of a request; a signal ends the process when it expires. Returns what
    // was left of the previous limit, in microseconds of processor time.
    static int64_t Limit() {
        const itimerval limit = {{}, {limits::kRequestSeconds, 0}};
        itimerval left = {};
        setitimer(ITIMER_PROF, &limit, &left);
        return left.it_value.tv_sec * kSecond + left.it_value.tv_usec;
    }

    // Starts the time limit again for the next step of unpacking. Throws Damage if all of the
    // unpacking takes too long for the size of the file.
    void LimitUnpacking() {
        unpacking_ += limits::kRequestSeconds * kSecond - Limit();
        const int64_t most =
                limits::kUnpackTime + static_cast<int64_t>(packed_ >> 20) * limits::kUnpackTimeMiB;
        if (unpacking_ > most * kSecond) {
            throw Damage(
                    "unpacking takes longer than " + std::to_string(most) +
                    " seconds, too long for the size of the file; unpack it first if you trust it");
        }
    }

    bool Send(std::string packet) const {
        iovec data = {packet.data(), packet.size()};
        msghdr message = {};
        message.msg_iov = &data;
        message.msg_iovlen = 1;
        // There is room for the answer if the client sends one request at a time.
        return sendmsg(channel_, &message, MSG_NOSIGNAL | MSG_DONTWAIT) ==
               static_cast<ssize_t>(packet.size());
    }

    void Open() {
        std::vector<std::unique_ptr<Source>> parts;
        packed_ = 0;
        for (size_t i = 0; i < descriptors_.images.size(); ++i) {
            parts.push_back(std::make_unique<FileSource>(kFirstImage + static_cast<int>(i)));
            packed_ += std::min(parts.back()->size(), limits::kImageBytes);
        }
        spool_.Allow(descriptors_.unpacked, packed_);
        files_ = std::make_unique<Files>(std::move(parts), slot_, &spool_);
    }

    // Returns the packet of the reply.
    std::string To(const Request& request) try {
        if (files_ == nullptr) Open();
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
                      "reading takes more than " + std::to_string(descriptors_.memory >> 20) +
                              " MiB of memory");
    }

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
        return files_->FileSystemIn(request.volume);
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

    std::string Describe(size_t file) const {
        std::string answer;
        const Contents& contents = files_->ContentsAt(file);
        PutNumber(&answer, static_cast<uint64_t>(contents.kind()));
        PutNumber(&answer, files_->FirstVolume(file));
        for (const auto& [name, size] : contents.volumes()) {
            PutText(&answer, name);
            PutNumber(&answer, size);
        }
        return answer;
    }

    std::string Read(const Request& request) const {
        std::string answer;
        switch (request.question) {
            case Question::kContents:
                return Describe(0);
            case Question::kInside:
                return Describe(files_->AddInside(request.volume, nodes_));
            case Question::kUnpack:
                files_->ContentsOf(request.volume).Unpack();
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
        throw Damage("no such request");
    }

    const Descriptors& descriptors_;
    char slot_;
    int channel_ = -1;
    std::vector<uint64_t> nodes_;
    uint64_t packed_ = 0;    // the image's size, in bytes
    int64_t unpacking_ = 0;  // so far, in microseconds
    Spool spool_;
    std::unique_ptr<Files> files_;
    std::map<Key, std::string> kept_;
    std::deque<Key> order_;  // of kept_, the oldest first
    size_t kept_bytes_ = 0;
};

// Receives a client's socket over the control socket. Returns -1 if there is none, and closes the
// control socket when no client is left that could send one.
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

// Answers the next request of a client. Returns false if the client is gone.
bool AnswerNext(int channel, Answers* answers) {
    struct {
        Request request;
        uint64_t nodes[kMostParts];
    } question;
    iovec data = {&question, sizeof(question)};
    msghdr message = {};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    const ssize_t size = recvmsg(channel, &message, MSG_DONTWAIT);
    if (size == -1 && (errno == EAGAIN || errno == EINTR)) return true;
    if (size < static_cast<ssize_t>(sizeof(Request))) return false;
    const size_t count = (size - sizeof(Request)) / sizeof(uint64_t);
    return answers->Answer(channel, question.request, {question.nodes, question.nodes + count});
}

}  // namespace

}  // namespace images

void extprop_serve_image(const images::Descriptors& descriptors, char slot) {
    using namespace images;

    // libcrypto opens files on first use, which must be before the filter.
    unsigned char digest[SHA256_DIGEST_LENGTH];
    SHA256(nullptr, 0, digest);
    if (!Confine(descriptors)) _exit(kNotConfined);

    Answers answers(descriptors, slot);
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
