// The labelling function that libselinux provides on a device.

#pragma once

#define SELINUX_ANDROID_RESTORECON_RECURSE 4

#ifdef __cplusplus
extern "C" {
#endif

// Restores the label of `path`. Returns 0, or a negative number on failure.
int selinux_android_restorecon(const char* path, unsigned int flags);

#ifdef __cplusplus
}
#endif
