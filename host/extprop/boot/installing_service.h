// The carrier-package installer, as the bind thread knows it.

#pragma once

#include <string>
#include <vector>

#include "boot/reporter.h"

namespace extprop {

// Hands the bind thread its requests, each once the one before is acknowledged or has not been for
// 5 s.
void PlayInstallingService(const std::vector<std::string>& requests, Reporter* reporter);

}  // namespace extprop
