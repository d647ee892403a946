// The property functions that libcutils provides on a device.

#pragma once

#define PROPERTY_VALUE_MAX 92

#ifdef __cplusplus
extern "C" {
#endif

// Copies the value of `key`, at most 91 bytes and a terminating zero, to `value`, which has room
// for PROPERTY_VALUE_MAX bytes; if the property is unset or empty, copies `default_value` instead
// (null means ""). Returns the length without the zero. `key` must not be null.
int property_get(const char* key, char* value, const char* default_value);

// Sets `key`, which must not be null, to `value` (null means ""). Returns 0, or a negative number
// if the key is empty, or the value has more than 91 bytes and the key does not begin with "ro.".
// Sets a property that begins with "ro." again, as init's own code can.
int property_set(const char* key, const char* value);

#ifdef __cplusplus
}
#endif
