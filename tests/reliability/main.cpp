#include <string.h>

#include <iostream>

#include "player.h"
#include "reliability.h"

namespace {

constexpr struct {
    const char* word;
    int (*run)(int argc, char** argv);
} kCommands[] = {
        {"sweep", Sweep}, {"crashes", Crashes}, {"growth", Growth},
        {"cases", Cases}, {"huge", Huge},
};

}  // namespace

int main(int argc, char** argv) {
    for (const auto& command : kCommands) {
        if (argc > 1 && strcmp(argv[1], command.word) == 0) {
            if (command.run == Cases) return Cases(argc - 2, argv + 2);
            return player::RunPrivately(command.run, argc - 2, argv + 2);
        }
    }
    std::cerr << "usage: reliability sweep [SECONDS [SEED]] | crashes | growth [BOOTS] | huge "
                 "[MIB] | cases <FILE\n";
    return 2;
}
