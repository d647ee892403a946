// Stands before libc in a test program: notes each call that the extension library makes, and fails
// one of them, interrupts it, cuts it short, or kills the process at it.

#pragma once

#include <string>
#include <vector>

namespace faults {

struct Call {
    std::string name;  // of the system call behind it, such as "open"
    std::string path;
    bool writes = false;     // an open that may change its file
    bool succeeded = false;  // on its own account, not because it was failed
};

// Whether the call changes the file system.
bool Changes(const Call& call);

// What to do at the call with the index `call`, or at all calls for the path `path`, perhaps only
// those of the name `name`.
struct Fault {
    int call = -1;
    std::string path, name;
    int error = 0;  // the errno that the call fails with; a failing close has closed all the same
    bool cut = false;  // a read or write moves one byte
    enum { kNever, kBefore, kAfter } kill = kNever;
};

// From here on calls are noted.
void Arm(const Fault& fault);

// Ends that, when all threads of the library have ended, and returns what was noted.
std::vector<Call> Disarm();

// Whether all threads that the library has started have ended.
bool ThreadsEnded();

}  // namespace faults
