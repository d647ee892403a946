// Redirects the file calls of a process into a view, so that it sees the device at "/" though the
// kernel gives it no root of its own. Redirected calls have "lead" and "led" in their names.

#pragma once

#include "view.h"

namespace sandbox {

// Returns whether the kernel supports what redirection needs.
bool CanLeadCalls();

// Makes all later calls of this process that find, make or change files act on the view. Nothing
// undoes this. Calls that the view does not know fail with ENOSYS. Returns false, with errno set,
// if redirection cannot be set up. The view must live as long as the process.
bool LeadCalls(View* view);

// Does at once what a redirected call does by way of a signal. Returns the call's result or a
// negative errno.
using Arguments = unsigned long[6];
long LeadCall(long number, const Arguments& arguments);

}  // namespace sandbox
