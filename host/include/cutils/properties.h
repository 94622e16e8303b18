/*
 * Host version of Android's <cutils/properties.h>: the Android 14 declarations without
 * <sys/system_properties.h>, which glibc lacks. libzel_host implements them over a process-wide
 * store (seeded from the file named by ZEL_HOST_PROPERTIES, writable through
 * <zel/host/Properties.h>).
 */
#ifndef __CUTILS_PROPERTIES_H
#define __CUTILS_PROPERTIES_H

#include <stddef.h>
#include <stdint.h>
#include <sys/cdefs.h>

#ifdef __cplusplus
extern "C" {
#endif

#define PROPERTY_KEY_MAX 32
#define PROPERTY_VALUE_MAX 92

/* Copies the value of key into value (at most PROPERTY_VALUE_MAX - 1 characters, always
 * NUL-terminated) and returns its length. An unset or empty property yields default_value
 * (truncated the same way) when it is not NULL, else "" and 0. */
int property_get(const char* key, char* value, const char* default_value);

/* "1", "true", "y", "yes", "on" are true; "0", "false", "n", "no", "off" are false; anything
 * else, or an unset key, yields default_value. */
int8_t property_get_bool(const char* key, int8_t default_value);

/* strtoimax with the base inferred from the prefix; default_value when the key is unset, holds
 * no number, or the number is out of range. */
int64_t property_get_int64(const char* key, int64_t default_value);
int32_t property_get_int32(const char* key, int32_t default_value);

/* Returns 0 on success, a negative value when key is empty or value too long. */
int property_set(const char* key, const char* value);

/* Calls propfn for every property, in key order. Returns 0. */
int property_list(void (*propfn)(const char* key, const char* value, void* cookie), void* cookie);

#ifdef __cplusplus
}
#endif

#endif /* __CUTILS_PROPERTIES_H */
