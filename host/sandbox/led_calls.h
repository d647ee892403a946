// Redirects the file calls of a process into a view, so that it sees the device at "/" though the
// kernel gives it no root of its own. Redirected calls have "lead" and "led" in their names.

#pragma once

#include "view.h"

namespace sandbox {

// Returns whether the kernel supports what redirection needs.
bool CanLeadCalls();

// Makes all later calls of this process that find, make or change files act on the view, which must
// live as long as the process. Nothing undoes this. Calls that are not on the list in led_calls.cpp
// fail with ENOSYS. Call it once, while the process has one thread; it takes SIGSYS. Returns false,
// with errno set, if redirection cannot be set up.
bool LeadCalls(View* view);

// Does at once what a redirected call does by way of a signal. Returns the call's result or a
// negative errno: -ENOSYS for a number that is not redirected, and before LeadCalls(); -EFAULT for
// a null path. Any other pointer must be valid.
using Arguments = unsigned long[6];
long LeadCall(long number, const Arguments& arguments);

}  // namespace sandbox
