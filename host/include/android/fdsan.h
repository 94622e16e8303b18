/*
 * Host version of bionic's <android/fdsan.h>: file descriptor ownership tags.
 *
 * The host keeps a real table fd -> owner tag. Closing a descriptor through
 * android_fdsan_close_with_tag() with a tag other than its owner's, exchanging a tag that does not
 * match, or closing an owned descriptor with plain close() (libzel_host routes close() through the
 * same check, as bionic does) is reported: an error line "fdsan: ..." through liblog (tag "libc"),
 * counted (zel::host::fdsanErrorCount() in <zel/host/Sync.h>), and an abort at the FATAL level.
 *
 * The host starts at ANDROID_FDSAN_ERROR_LEVEL_WARN_ALWAYS, so that every error is counted; the
 * environment variable ZEL_HOST_FDSAN (disabled, warn_once, warn_always, fatal) overrides it.
 */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum android_fdsan_owner_type {
    ANDROID_FDSAN_OWNER_TYPE_GENERIC_00 = 0,
    ANDROID_FDSAN_OWNER_TYPE_GENERIC_FF = 255,
    ANDROID_FDSAN_OWNER_TYPE_FILE = 1,
    ANDROID_FDSAN_OWNER_TYPE_DIR = 2,
    ANDROID_FDSAN_OWNER_TYPE_UNIQUE_FD = 3,
    ANDROID_FDSAN_OWNER_TYPE_SQLITE = 4,
    ANDROID_FDSAN_OWNER_TYPE_FILEINPUTSTREAM = 5,
    ANDROID_FDSAN_OWNER_TYPE_FILEOUTPUTSTREAM = 6,
    ANDROID_FDSAN_OWNER_TYPE_RANDOMACCESSFILE = 7,
    ANDROID_FDSAN_OWNER_TYPE_PARCELFILEDESCRIPTOR = 8,
    ANDROID_FDSAN_OWNER_TYPE_ART_FDFILE = 9,
    ANDROID_FDSAN_OWNER_TYPE_DATAGRAMSOCKETIMPL = 10,
    ANDROID_FDSAN_OWNER_TYPE_SOCKETIMPL = 11,
    ANDROID_FDSAN_OWNER_TYPE_ZIPARCHIVE = 12,
    ANDROID_FDSAN_OWNER_TYPE_NATIVE_HANDLE = 13,
    ANDROID_FDSAN_OWNER_TYPE_PARCEL = 14,
};

/* Builds a tag: the type in the top byte, the low 56 bits of `tag` below it; 0 stays 0. */
uint64_t android_fdsan_create_owner_tag(enum android_fdsan_owner_type type, uint64_t tag);

/* Hands `fd` from the owner `expected_tag` to `new_tag`; reports a mismatch and changes nothing. */
void android_fdsan_exchange_owner_tag(int fd, uint64_t expected_tag, uint64_t new_tag);

/* Closes `fd` on behalf of the owner `tag`; reports a mismatch (and a double close), then closes.
 */
int android_fdsan_close_with_tag(int fd, uint64_t tag);

/* The current owner of `fd` (0 when unowned). */
uint64_t android_fdsan_get_owner_tag(int fd);

/* A readable name of the tag's type ("unique_fd", "FILE*", ...). */
const char* android_fdsan_get_tag_type(uint64_t tag);

/* The value part of a tag, sign-extended from 56 bits. */
uint64_t android_fdsan_get_tag_value(uint64_t tag);

enum android_fdsan_error_level {
    ANDROID_FDSAN_ERROR_LEVEL_DISABLED,
    ANDROID_FDSAN_ERROR_LEVEL_WARN_ONCE,
    ANDROID_FDSAN_ERROR_LEVEL_WARN_ALWAYS,
    ANDROID_FDSAN_ERROR_LEVEL_FATAL,
};

enum android_fdsan_error_level android_fdsan_get_error_level(void);

/* Sets the level and returns the previous one. */
enum android_fdsan_error_level android_fdsan_set_error_level(
    enum android_fdsan_error_level new_level);

/* Sets the level from ZEL_HOST_FDSAN when set, else to `default_level`; returns the previous one.
 */
enum android_fdsan_error_level android_fdsan_set_error_level_from_property(
    enum android_fdsan_error_level default_level);

#ifdef __cplusplus
}
#endif
