/**
 * System properties, for C and C++: short texts by name, shared by everything in the process.
 * Initial values come from the file that the environment variable STREAMPROXY_PROPERTIES names, see
 * property_load(). Threads: any, also after exit() has begun.
 */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/** Room for a value and its terminating NUL. */
#define PROPERTY_VALUE_MAX 92

/**
 * Copies the value of `key` into `value` (PROPERTY_VALUE_MAX bytes) and returns its length. An
 * unset or empty property gives `defaultValue`, cut to fit, or length 0 when that is null.
 */
int property_get(const char* key, char* value, const char* defaultValue);

/** Sets a property. 0; -EINVAL: a null or empty key, or a value longer than 91 characters. Null
 *  counts as the empty value. */
int property_set(const char* key, const char* value);

/** A line of a file that sets nothing. */
typedef struct property_bad_line {
    int number;         // from 1
    const char* text;   // without the blanks around it
    const char* key;    // null: the line is not key=value
    const char* value;  // null: likewise; otherwise it is too long
} property_bad_line;

/**
 * Sets the properties that a file lists as key=value lines. Blanks around a line, a key and a value
 * don't count; empty lines and lines that begin with '#' are skipped. Each bad line is handed to
 * `badLine` during the call, and the rest is set all the same. 0; a negative errno value: the file
 * can't be read, and nothing was set; -ENOMEM: also when only a part was.
 */
int property_load(const char* path, void (*badLine)(const property_bad_line* line, void* cookie),
                  void* cookie);

#ifdef __cplusplus
}
#endif
