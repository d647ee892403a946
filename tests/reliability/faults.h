// Wraps functions of libc in a test program: records each call that is made while armed, when only
// the extension library should run, and can make some of them fail, cut them short, or kill the
// process at them.

#pragma once

#include <string>
#include <vector>

namespace faults {

struct Call {
    std::string name;        // of the system call, such as "open"
    std::string path;        // also of a call by descriptor, if that was opened while armed
    bool writes = false;     // an open that may change its file
    bool succeeded = false;  // as the kernel answered it
};

// Returns whether the call changes the file system.
bool Changes(const Call& call);

// What happens at the call with the index `call`, counted from 0 since Arm(), and at all calls for
// `path` or, if `name` is not empty, those of them with that name. A fault with its defaults does
// nothing.
struct Fault {
    int call = -1;
    std::string path, name;
    int error = 0;     // the errno with which the call fails; a failing close still closes its file
    bool cut = false;  // a read or write transfers one byte at most
    enum { kNever, kBefore, kAfter } kill = kNever;  // SIGKILL, before or after the call is made
};

// Forgets the recorded calls and begins to record, with this fault.
void Arm(const Fault& fault);

// Stops recording and returns the calls. To be called once all threads of the library have ended.
std::vector<Call> Disarm();

// Returns whether all threads that the library has started have ended.
bool ThreadsEnded();

}  // namespace faults
