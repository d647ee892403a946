// Wraps functions of libc in a test program: records each call that the extension library makes,
// and can make one of them fail, cut it short, or kill the process at it.

#pragma once

#include <string>
#include <vector>

namespace faults {

struct Call {
    std::string name;  // of the system call, such as "open"
    std::string path;
    bool writes = false;     // an open that may change its file
    bool succeeded = false;  // as the kernel answered it
};

// Returns whether the call changes the file system.
bool Changes(const Call& call);

// What happens at the call with the index `call`, or at all calls for `path`, or at those of them
// with the name `name`.
struct Fault {
    int call = -1;
    std::string path, name;
    int error = 0;     // the errno that the call fails with; a failing close still closes its file
    bool cut = false;  // a read or write transfers one byte
    enum { kNever, kBefore, kAfter } kill = kNever;
};

// Begins to record calls, with this fault.
void Arm(const Fault& fault);

// Stops recording and returns the calls. To be called once all threads of the library have ended.
std::vector<Call> Disarm();

// Returns whether all threads that the library has started have ended.
bool ThreadsEnded();

}  // namespace faults
