// The property functions that libcutils provides on a device.

#pragma once

#define PROPERTY_VALUE_MAX 92

#ifdef __cplusplus
extern "C" {
#endif

// Copies the value of `key`, at most 91 bytes and a terminating zero, to `value`; if the property
// is unset or empty, copies `default_value` instead (null means ""). Returns the length.
int property_get(const char* key, char* value, const char* default_value);

// Sets `key` to `value`. Returns 0, or a negative number if the key is empty, or the value has more
// than 91 bytes and the key does not begin with "ro.".
int property_set(const char* key, const char* value);

#ifdef __cplusplus
}
#endif
