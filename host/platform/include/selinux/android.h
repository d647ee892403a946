// The labelling function that libselinux provides on a device.

#pragma once

#define SELINUX_ANDROID_RESTORECON_RECURSE 4

#ifdef __cplusplus
extern "C" {
#endif

// Restores the label of `path`; with the flag above, of all below it too. Returns 0, or a negative
// number with errno set. On a workstation it changes nothing and does not look at the path; it
// fails, with EIO, only after platform::FailRestorecon(true).
int selinux_android_restorecon(const char* path, unsigned int flags);

#ifdef __cplusplus
}
#endif
