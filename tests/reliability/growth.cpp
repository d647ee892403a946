// The memory that operations take: many times in one process, and once with a huge file.

#include <fcntl.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <iostream>

#include "player.h"
#include "reliability.h"

namespace {

using player::Life;
using player::World;

// Returns what the process holds: the bytes of its heap, and its next free descriptor.
std::pair<size_t, int> Held() {
    const int next = dup(STDERR_FILENO);
    close(next);
    return {mallinfo2().uordblks, next};
}

}  // namespace

int Growth(int argc, char** argv) {
    const int boots = argc > 0 ? atoi(argv[0]) : 100000;
    const std::vector<Life>& lives = player::Lives();
    const int rounds = boots / static_cast<int>(lives.size()) + 1;
    // The first rounds allocate everything that is allocated once.
    const int first_rounds = rounds / 10 + 1;
    std::pair<size_t, int> before;
    for (int round = 0; round < first_rounds + rounds; ++round) {
        if (round == first_rounds) before = Held();
        for (const Life& life : lives) World(life.files).BootHere(life);
    }
    const std::pair<size_t, int> after = Held();
    std::cout << rounds * lives.size()
              << " boots in one process: " << static_cast<long>(after.first - before.first)
              << " bytes and " << after.second - before.second << " descriptors more" << std::endl;
    // A thread that is ending may still hold a little; a leak of one allocation a round would be
    // more.
    constexpr size_t kThreadsEnd = 1024;
    const bool grows = after.first > before.first + kThreadsEnd || after.second != before.second;
    return grows ? 1 : 0;
}

int Huge(int argc, char** argv) {
    const size_t mib = argc > 0 ? atoi(argv[0]) : 64;
    const size_t size = mib * 1024 * 1024;
    const struct {
        const char* what;
        std::function<std::string(size_t)> line;
        int limit;  // of memory, in sizes of the file
    } kinds[] = {
            {"one value", [&](size_t) { return "ro.a=" + std::string(size - 5, 'x'); }, 3},
            {"comments", [](size_t) { return "#" + std::string(98, 'x') + "\n"; }, 3},
            {"one name again and again", [](size_t) { return "ro.a=1\n"; }, 3},
            {"properties of 32 bytes each",
             [](size_t i) {
                 const std::string number = std::to_string(i);
                 return "ro." + std::string(12 - number.size(), 'x') + number + "=" +
                        std::string(15, 'v') + "\n";
             },
             9},
    };
    bool is_small = true;
    for (const auto& kind : kinds) {
        const Life life = {"huge", {}, {{"/odm/build.prop", ""}}, {"early"}};
        World world(life.files);
        std::ofstream file(World::Outside("/odm/build.prop"));
        for (size_t i = 0; static_cast<size_t>(file.tellp()) < size; ++i) file << kind.line(i);
        file.close();
        malloc_trim(0);
        rusage usage;
        const pid_t pid = fork();
        if (pid == 0) {
            world.BootHere(life);
            _exit(0);
        }
        int status = 0;
        wait4(pid, &status, 0, &usage);
        const long kib = usage.ru_maxrss;
        const double sizes = static_cast<double>(kib) / 1024 / mib;
        std::cout << "| " << kind.what << " | " << kib / 1024 << " MiB | " << sizes << " |\n";
        is_small &= status == 0 && sizes < kind.limit;
    }
    return is_small ? 0 : 1;
}
