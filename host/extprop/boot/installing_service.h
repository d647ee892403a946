// Plays the service that installs carrier packages, as the bind thread sees it.

#pragma once

#include <string>
#include <vector>

#include "boot/reporter.h"

namespace extprop {

// Sends the requests to the bind thread, each after the one before is acknowledged or has been
// ignored for 5 s, and reports them.
void EmulateInstallingService(const std::vector<std::string>& requests, Reporter* reporter);

}  // namespace extprop
