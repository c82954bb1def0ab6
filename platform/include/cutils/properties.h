/**
 * System properties: short texts by name, shared by everything in the process.
 * Initial values come from the file of key=value lines that the environment variable
 * STREAMPROXY_PROPERTIES names ('#' starts a comment line). Threads: any.
 */
#pragma once

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
