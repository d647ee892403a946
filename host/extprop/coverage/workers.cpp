#include "coverage/workers.h"

#include <errno.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <android-base/cmsg.h>
#include <android-base/unique_fd.h>
#include <nlohmann/json.hpp>

#include "boot/ending.h"
#include "boot/message.h"
#include "budget.h"
#include "process.h"

namespace extprop {

namespace {

using android::base::unique_fd;
using nlohmann::json;

// The next number to work on, shared by all processes.
class SharedCounter {
  public:
    SharedCounter() {
        void* memory = mmap(nullptr, sizeof(std::atomic<size_t>), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) throw std::bad_alloc();
        next_ = new (memory) std::atomic<size_t>(0);
    }
    ~SharedCounter() { munmap(next_, sizeof(*next_)); }
    SharedCounter& operator=(SharedCounter&&) = delete;

    size_t Take() { return (*next_)++; }

  private:
    std::atomic<size_t>* next_;
};

// A worker's last document. Without it a result may be lost.
const json kNoMore = nullptr;

class Worker {
  public:
    Worker(SharedCounter* counter, size_t count, uint64_t memory,
           const std::function<json(size_t)>& work) {
        unique_fd theirs;
        if (!android::base::Socketpair(SOCK_STREAM | SOCK_CLOEXEC, &channel_, &theirs)) {
            throw std::runtime_error(std::string("socketpair: ") + strerror(errno));
        }
        const pid_t parent = getpid();
        pid_ = fork();
        if (pid_ == -1) throw std::runtime_error(std::string("fork: ") + strerror(errno));
        if (pid_ != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(EXIT_FAILURE);
        channel_.reset();
        sandbox::LimitMemory(memory);
        try {
            for (size_t number; (number = counter->Take()) < count;) {
                if (!SendDocument(theirs.get(), {number, work(number)})) _exit(EXIT_FAILURE);
            }
            SendDocument(theirs.get(), kNoMore);
        } catch (const std::bad_alloc&) {
            SendDocument(theirs.get(), MemoryError());
        } catch (const std::exception& error) {
            SendDocument(theirs.get(), error.what());
        }
        _exit(EXIT_SUCCESS);
    }

    ~Worker() {
        if (pid_ == -1) return;
        kill(pid_, SIGKILL);
        TEMP_FAILURE_RETRY(waitpid(pid_, nullptr, 0));
    }

    Worker(Worker&& other) noexcept : pid_(other.pid_), channel_(std::move(other.channel_)) {
        other.pid_ = -1;
    }
    Worker& operator=(Worker&&) = delete;

    int channel() const { return channel_.get(); }

    // Returns false if there is no more.
    bool Receive(json* document) {
        constexpr auto kForever = std::chrono::steady_clock::time_point::max();
        const Received received = ReceiveDocument(channel_.get(), kForever, document);
        if (received == Received::kMessage && *document != kNoMore) return true;
        channel_.reset();  // a worker that still sends what is too large fails
        if (received == Received::kMessage) return false;
        int status = 0;
        TEMP_FAILURE_RETRY(waitpid(pid_, &status, 0));
        pid_ = -1;
        if (WIFSIGNALED(status)) throw std::runtime_error("a worker process was killed");
        throw std::runtime_error("the result of one boot has more than " +
                                 std::to_string(limits::kEvents) +
                                 " bytes, which is the limit; ask for fewer properties");
    }

  private:
    pid_t pid_ = -1;
    unique_fd channel_;
};

}  // namespace

void ForEachInParallel(size_t count, int jobs, const std::function<json(size_t)>& work,
                       const std::function<void(size_t, json)>& done) {
    // Each worker has a boot of its own, which may use as much memory again.
    const uint64_t memory = std::max(limits::kWorkerMemory, limits::kWorkersMemory / (2 * jobs));
    SharedCounter counter;
    std::vector<Worker> workers;
    for (size_t i = 0; i < std::min<size_t>(count, jobs); ++i) {
        workers.emplace_back(&counter, count, memory, work);
    }
    for (size_t running = workers.size(); running > 0;) {
        std::vector<pollfd> channels;  // those of ended workers are negative, which poll() skips
        for (const Worker& worker : workers) channels.push_back({worker.channel(), POLLIN, 0});
        TEMP_FAILURE_RETRY(poll(channels.data(), channels.size(), -1));
        for (size_t i = 0; i < workers.size(); ++i) {
            if (channels[i].revents == 0) continue;
            json document;
            if (!workers[i].Receive(&document)) {
                --running;
            } else if (document.is_string()) {
                throw std::runtime_error(document.get<std::string>());
            } else {
                done(document.at(0), std::move(document.at(1)));
            }
        }
    }
}

int ProcessorCount() {
    cpu_set_t processors;
    if (sched_getaffinity(0, sizeof(processors), &processors) != 0) return 1;
    return CPU_COUNT(&processors);
}

}  // namespace extprop
