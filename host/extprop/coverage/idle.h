// Finds what-if options that change nothing.

#pragma once

#include "boot/boot.h"

namespace extprop {

// Adds notes to the report of a boot with these options: for each what-if option without which a
// boot has the same result, and for brands and regions to which nothing belongs. Boots the device
// once without each of these options and then resets it; does nothing if the reported boot failed.
// If it cannot be prepared, booted or surveyed for one of them, adds no note and does not reset it.
void NoteIdleWhatIfs(PreparedDevice* device, const BootOptions& options, Report* report);

}  // namespace extprop
