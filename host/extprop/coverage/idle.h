// Which what-if options change nothing.

#pragma once

#include "boot/boot.h"

namespace extprop {

// Adds a note to the report of a boot with these options for each of its what-if options that
// changes nothing, as a boot without it shows, and for brands and regions that nothing belongs to.
// The device is as for another boot then.
void NoteIdleWhatIfs(PreparedDevice* device, const BootOptions& options, Report* report);

}  // namespace extprop
