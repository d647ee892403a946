// The client's side of the protocol. A reader that has seen an untrusted image is untrusted itself:
// its answers are checked, and waiting for them has a time limit.

#include "reader.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <stdexcept>
#include <type_traits>

#include "../budget.h"
#include "../filter.h"
#include "../kernel.h"
#include "protocol.h"

namespace images {

using android::base::unique_fd;
using sandbox::Kernel;

namespace {

void (*g_show_progress)(uint64_t unpacked_bytes) = nullptr;

int64_t Milliseconds() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

}  // namespace

class Reader::Process {
  public:
    Process(const std::vector<unique_fd>& parts, char slot, size_t readers, ServeFunction* serve);
    ~Process();
    Process& operator=(Process&&) = delete;

    // Returns a part of an answer, at most of the request's size. Sets `*whole` to the answer's
    // size.
    std::string Ask(const Request& request, uint64_t* whole,
                    const std::vector<uint64_t>& nodes = {}) const;

    // Returns a whole answer of at most `most` bytes.
    std::string AskAll(Question question, uint32_t volume, uint64_t node, uint64_t most,
                       const std::vector<uint64_t>& nodes = {}) const;

    // Asks what a file holds.
    Contained AskContained(Question question, uint32_t volume,
                           const std::vector<uint64_t>& nodes) const;

    Contained contained;

  private:
    // The connection of one process to the reader.
    struct Connection {
        pid_t owner;
        long socket = -1;
        std::mutex mutex;
        std::string failed;  // why no more answers are possible
        struct {
            ReplyHeader header;
            char bytes[kPacketBytes];
        } packet;           // the last reply
        Connection* older;  // those of the processes that this one was forked from

        explicit Connection(pid_t pid, Connection* before) : owner(pid), older(before) {}
    };

    Connection* Own() const;
    bool Connect(Connection* connection) const;
    std::string Exchange(Connection* connection, const Request& request,
                         const std::vector<uint64_t>& nodes, size_t* size) const;
    std::string Await(Connection* connection, size_t* size) const;
    std::string HowItEnded() const;

    pid_t starter_;
    pid_t pid_;
    unique_fd control_;
    mutable std::atomic<Connection*> connection_{nullptr};
};

// Returns an unnamed temporary file, or nothing if none can be created. It may become larger than
// what a directory in memory, such as /tmp may be, should hold.
unique_fd TemporaryFile() {
    unique_fd file;
    for (const char* directory : {static_cast<const char*>(getenv("TMPDIR")), "/var/tmp", "/tmp"}) {
        if (directory == nullptr || file.ok()) continue;
        file.reset(open(directory, O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    }
    return file;
}

Reader::Process::Process(const std::vector<unique_fd>& parts, char slot, size_t readers,
                         ServeFunction* serve)
        : starter_(getpid()) {
    if (!filter::IsPossible()) {
        throw std::runtime_error(std::string("images cannot be read: ") + filter::kNotPossible);
    }
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        throw std::runtime_error(std::string("images cannot be read: ") + strerror(errno));
    }
    control_.reset(ends[0]);
    const unique_fd other(ends[1]);
    const unique_fd spool = TemporaryFile();
    pid_ = fork();
    if (pid_ == 0) {
        Descriptors descriptors = {{}, other.get(), spool.get()};
        descriptors.memory = std::min(limits::kReaderMemory, limits::kReadersMemory / readers);
        descriptors.unpacked = std::min(limits::kUnpacked, limits::kDeviceUnpacked / readers);
        for (const unique_fd& part : parts) descriptors.images.push_back(part.get());
        serve(descriptors, slot);
        _exit(0);
    }
    if (pid_ == -1) {
        throw std::runtime_error(std::string("images cannot be read: ") + strerror(errno));
    }
}

Reader::Process::~Process() {
    Connection* connection = connection_;
    while (connection != nullptr) {
        if (connection->owner == getpid() && connection->socket >= 0) {
            close(static_cast<int>(connection->socket));
        }
        Connection* older = connection->older;
        delete connection;
        connection = older;
    }
    if (getpid() != starter_) return;
    kill(pid_, SIGKILL);
    while (waitpid(pid_, nullptr, 0) == -1 && errno == EINTR) continue;
}

// Returns this process's connection. One that a fork copied belongs to the other process: its mutex
// may be held by a thread that does not exist in this one.
Reader::Process::Connection* Reader::Process::Own() const {
    const auto pid = static_cast<pid_t>(Kernel(SYS_getpid));
    Connection* current = connection_;
    while (current == nullptr || current->owner != pid) {
        auto* made = new Connection(pid, current);
        if (connection_.compare_exchange_strong(current, made)) {
            // While this copy of the owner's socket is open, the reader takes its owner for alive.
            if (current != nullptr && current->socket >= 0) Kernel(SYS_close, current->socket);
            return made;
        }
        delete made;
    }
    return current;
}

bool Reader::Process::Connect(Connection* connection) const {
    int ends[2];
    if (Kernel(SYS_socketpair, AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return false;
    char byte = 0;
    iovec data = {&byte, sizeof(byte)};
    alignas(cmsghdr) char space[CMSG_SPACE(sizeof(int))] = {};
    msghdr message = {};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = space;
    message.msg_controllen = sizeof(space);
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    memcpy(CMSG_DATA(header), &ends[1], sizeof(int));
    const long sent = Kernel(SYS_sendmsg, control_.get(), &message, MSG_NOSIGNAL);
    Kernel(SYS_close, ends[1]);
    if (sent != sizeof(byte)) {
        Kernel(SYS_close, ends[0]);
        return false;
    }
    connection->socket = ends[0];
    return true;
}

// Sends the request and stores its reply in the connection's packet. Returns the error, or "".
std::string Reader::Process::Exchange(Connection* connection, const Request& request,
                                      const std::vector<uint64_t>& nodes, size_t* size) const {
    if (connection->socket < 0 && !Connect(connection)) return HowItEnded();
    iovec data[] = {{const_cast<Request*>(&request), sizeof(request)},
                    {const_cast<uint64_t*>(nodes.data()), nodes.size() * sizeof(uint64_t)}};
    msghdr message = {};
    message.msg_iov = data;
    message.msg_iovlen = std::size(data);
    const auto sent = static_cast<long>(data[0].iov_len + data[1].iov_len);
    if (Kernel(SYS_sendmsg, connection->socket, &message, MSG_NOSIGNAL) != sent) {
        return HowItEnded();
    }
    const int64_t deadline = Milliseconds() + int64_t{limits::kUnpackSeconds} * 1000;
    const bool shows = g_show_progress != nullptr && Kernel(SYS_getpid) == starter_;
    for (bool shown = false;; shown = true) {
        std::string failed = Await(connection, size);
        const bool works = failed.empty() && connection->packet.header.outcome == Outcome::kWorking;
        if (works && Milliseconds() > deadline) {
            failed = "unpacking takes longer than " + std::to_string(limits::kUnpackSeconds) +
                     " seconds";
        }
        if (!works || !failed.empty()) {
            if (shows && shown) g_show_progress(0);
            return failed;
        }
        if (shows) g_show_progress(connection->packet.header.size);
    }
}

// Stores the next packet that arrives in the connection's. Returns the error, or "".
std::string Reader::Process::Await(Connection* connection, size_t* size) const {
    const int64_t deadline = Milliseconds() + int64_t{limits::kReplySeconds} * 1000;
    while (true) {
        const int64_t left = std::max<int64_t>(deadline - Milliseconds(), 0);
        const timespec timeout = {static_cast<time_t>(left / 1000), left % 1000 * 1'000'000};
        pollfd ready = {static_cast<int>(connection->socket), POLLIN, 0};
        const long count = Kernel(SYS_ppoll, &ready, 1, &timeout, nullptr, 0);
        if (count == -EINTR) continue;
        if (count == 0) {
            return "reading takes longer than " + std::to_string(limits::kReplySeconds) +
                   " seconds";
        }
        break;
    }
    iovec data = {&connection->packet, sizeof(connection->packet)};
    msghdr message = {};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    const long received = Kernel(SYS_recvmsg, connection->socket, &message, MSG_DONTWAIT);
    if (received <= 0) return HowItEnded();
    if (received < static_cast<long>(sizeof(ReplyHeader))) return kInvalidAnswer;
    *size = received - sizeof(ReplyHeader);
    return "";
}

std::string Reader::Process::Ask(const Request& request, uint64_t* whole,
                                 const std::vector<uint64_t>& nodes) const {
    Connection* connection = Own();
    const std::lock_guard<std::mutex> lock(connection->mutex);
    size_t size = 0;
    // After a failure the next reply may belong to an earlier request.
    if (connection->failed.empty()) {
        connection->failed = Exchange(connection, request, nodes, &size);
    }
    if (!connection->failed.empty()) throw Damage(connection->failed);
    const auto& [header, bytes] = connection->packet;
    if (header.outcome != Outcome::kDone) {
        constexpr size_t kMostText = 1000;
        throw Damage(std::string(bytes, std::min(size, kMostText)));
    }
    if (size > request.size) throw Damage(kInvalidAnswer);
    *whole = header.size;
    return std::string(bytes, size);
}

std::string Reader::Process::AskAll(Question question, uint32_t volume, uint64_t node,
                                    uint64_t most, const std::vector<uint64_t>& nodes) const {
    std::string answer;
    uint64_t whole = 0;
    do {
        const std::string part =
                Ask({question, volume, node, answer.size(), kPacketBytes}, &whole, nodes);
        answer += part;
        if (whole > most || (part.size() < kPacketBytes && answer.size() < whole)) {
            throw Damage(kInvalidAnswer);
        }
    } while (answer.size() < whole);
    return answer;
}

Contained Reader::Process::AskContained(Question question, uint32_t volume,
                                        const std::vector<uint64_t>& nodes) const {
    constexpr uint64_t kMostName = 256;
    const std::string answer = AskAll(question, volume, nodes.empty() ? 0 : nodes[0],
                                      limits::kSuperPartitions * (kMostName + 16), nodes);
    Parser parser(answer);
    const uint64_t kind = parser.Number();
    if (kind > static_cast<uint64_t>(Kind::kUnknown)) throw Damage(kInvalidAnswer);
    Contained contained = {static_cast<Kind>(kind), parser.Number(), {}};
    while (!parser.is_done()) {
        std::string name = parser.Text();
        contained.volumes.push_back({std::move(name), parser.Number()});
    }
    if (contained.volumes.empty() && contained.kind != Kind::kSuper &&
        contained.kind != Kind::kPayload) {
        throw Damage(kInvalidAnswer);
    }
    return contained;
}

std::string Reader::Process::HowItEnded() const {
    std::string ended = "the process that reads it ended";
    siginfo_t info = {};
    if (Kernel(SYS_getpid) != starter_) return ended;
    // It may live on and answer no more; one that is ending keeps its own status.
    Kernel(SYS_kill, pid_, SIGKILL);
    if (waitid(P_PID, pid_, &info, WEXITED | WNOWAIT) != 0) return ended;
    if (info.si_code == CLD_EXITED) {
        const std::string why = WhyNotServed(info.si_status);
        if (!why.empty()) throw std::runtime_error("images cannot be read: " + why);
        return ended;
    }
    if (info.si_status == SIGPROF || info.si_status == SIGXCPU) {
        return "reading takes longer than " + std::to_string(limits::kRequestSeconds) + " seconds";
    }
    return ended + ": " + strsignal(info.si_status);
}

namespace {

// A file system that reads by requests to the reader.
template <typename Process>
class Remote : public FileSystem {
  public:
    Remote(std::shared_ptr<Process> process, uint32_t volume)
            : process_(std::move(process)), volume_(volume) {
        root_ = Parser(process_->AskAll(Question::kRoot, volume_, 0, sizeof(root_))).Number();
    }

    uint64_t root() const override { return root_; }

    Node Look(uint64_t number) const override {
        static_assert(std::is_trivially_copyable_v<Node>);
        Node node;
        const std::string answer = process_->AskAll(Question::kLook, volume_, number, sizeof(node));
        if (answer.size() != sizeof(node)) throw Damage(kInvalidAnswer);
        memcpy(&node, answer.data(), sizeof(node));
        node.id = number;
        for (const mode_t type : {S_IFREG, S_IFDIR, S_IFLNK, S_IFCHR, S_IFBLK, S_IFIFO, S_IFSOCK}) {
            if ((node.mode & S_IFMT) == type) return node;
        }
        throw Damage("inode " + std::to_string(number) + ": of no known type");
    }

    std::vector<Name> List(uint64_t directory) const override {
        constexpr uint64_t kMost = limits::kImageDirectory + limits::kImageNames * 16;
        const std::string answer = process_->AskAll(Question::kList, volume_, directory, kMost);
        std::vector<Name> names;
        for (Parser parser(answer); !parser.is_done();) {
            std::string name = parser.Text();
            names.push_back({std::move(name), parser.Number()});
        }
        CheckNames(directory, names);
        return names;
    }

    std::string Read(uint64_t file, uint64_t offset, size_t size) const override {
        std::string content;
        while (content.size() < size) {
            const uint64_t at = offset + content.size();
            const uint64_t wanted = std::min(size - content.size(), kPacketBytes);
            uint64_t whole = 0;
            const std::string part =
                    process_->Ask({Question::kRead, volume_, file, at, wanted}, &whole);
            content += part;
            if (part.size() == wanted) continue;
            if (at < whole && at + part.size() != whole) throw Damage(kInvalidAnswer);
            break;
        }
        return content;
    }

    std::string Target(uint64_t link) const override {
        constexpr uint64_t kLongest = 4095;
        std::string target = process_->AskAll(Question::kTarget, volume_, link, kLongest);
        if (target.empty() || target.find('\0') != std::string::npos) throw Damage(kInvalidAnswer);
        return target;
    }

  private:
    std::shared_ptr<Process> process_;
    uint32_t volume_;
    uint64_t root_ = 0;
};

}  // namespace

Reader::Reader(std::vector<unique_fd> parts, char slot, size_t readers, ServeFunction* serve) {
    CheckParts(parts.size());
    process_ = std::make_shared<Process>(parts, slot, readers, serve);
    process_->contained = process_->AskContained(Question::kContents, 0, {});
}

Reader::~Reader() = default;

const Contained& Reader::contained() const {
    return process_->contained;
}

Contained Reader::OpenInside(size_t volume, const std::vector<uint64_t>& files) const {
    CheckParts(files.size());
    return process_->AskContained(Question::kInside, static_cast<uint32_t>(volume), files);
}

void Reader::Unpack(size_t volume) const {
    process_->AskAll(Question::kUnpack, static_cast<uint32_t>(volume), 0, 0);
}

void Reader::ShowProgress(void (*show)(uint64_t unpacked_bytes)) {
    g_show_progress = show;
}

std::unique_ptr<FileSystem> Reader::Open(size_t volume) const {
    return std::make_unique<Remote<Process>>(process_, volume);
}

}  // namespace images
