#pragma once

// Host system properties with the device's libcutils interface and rules.
//
// The store lives under $ZELD_ROOT/dev/__properties__, one file per property,
// so every process under the same root sees the same values. A write replaces
// the file atomically (write to a private temporary, then rename), so a reader
// never sees a torn value, whatever the number of concurrent writers.

#include <stdint.h>

#define PROP_VALUE_MAX 92
#define PROPERTY_VALUE_MAX PROP_VALUE_MAX
#define PROPERTY_KEY_MAX 32

#ifdef __cplusplus
extern "C" {
#endif

// 0 on success. Refused (-1): a name that is not a legal property name
// (empty, characters other than [A-Za-z0-9_.-:@], a leading or trailing '.',
// ".."), a value of PROP_VALUE_MAX (92) bytes or more, a second write of a
// "ro." property, or a store that cannot be written.
int property_set(const char* key, const char* value);

// Copies the value (or default_value when unset or empty) into value, which
// must hold PROPERTY_VALUE_MAX bytes; returns its length.
int property_get(const char* key, char* value, const char* default_value);

// "1", "y", "yes", "true", "on" read true; "0", "n", "no", "false", "off"
// read false; anything else (case and whitespace count) or unset gives
// default_value.
int8_t property_get_bool(const char* key, int8_t default_value);

#ifdef __cplusplus
}
#endif
