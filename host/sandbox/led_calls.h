// Leads the calls of a process that has no root of its own into a view.

#pragma once

#include "view.h"

namespace sandbox {

// Whether the kernel can lead calls here.
bool CanLeadCalls();

// From here on this process's calls by which files are found, made or changed act on the view, for
// good; those that the view does not know fail. Returns false, with errno set, if that cannot be.
// The view must live as long as the process.
bool LeadCalls(View* view);

}  // namespace sandbox
