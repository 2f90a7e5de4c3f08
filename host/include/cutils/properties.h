// The platform's property calls, over a store of files: see host/properties.cpp.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Bytes of a value, its terminating zero byte included.
#define PROPERTY_VALUE_MAX 92

// Copies the value of `key` to `value`, a buffer of PROPERTY_VALUE_MAX bytes, and returns its
// length. An unset or empty property gives `default_value`, truncated to fit; no default gives ""
// and 0.
int property_get(const char* key, char* value, const char* default_value);

// Sets `key` to `value` (none counts as empty). Returns 0; a negative number when the value is too
// long, with the old one kept, or when the store cannot be written.
int property_set(const char* key, const char* value);

#ifdef __cplusplus
}
#endif
