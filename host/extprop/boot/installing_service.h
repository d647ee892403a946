// Plays the service that installs carrier packages, as the bind thread sees it.

#pragma once

#include <string>
#include <vector>

#include "boot/reporter.h"

namespace extprop {

// Sends the requests to the bind thread, each after the one before is acknowledged or has been
// ignored for 5 s, and reports them and which were ignored. Returns after the last. The request to
// stop is not acknowledged, so it is not waited for. Without a bind thread all others are ignored.
void EmulateInstallingService(const std::vector<std::string>& requests, Reporter* reporter);

}  // namespace extprop
