/*
 * Host version of Android's <nativebase/nativebase.h>: the reference-counted base of native window
 * objects and ANativeWindowBuffer, laid out as on Android.
 */
#pragma once

#include <stdint.h>
#include <string.h>

#include <cutils/native_handle.h>

#ifdef __cplusplus
extern "C" {
#endif

#define ANDROID_NATIVE_MAKE_CONSTANT(a, b, c, d) \
    ((((unsigned)(a)) << 24) | (((unsigned)(b)) << 16) | (((unsigned)(c)) << 8) | ((unsigned)(d)))

#define ANDROID_NATIVE_BUFFER_MAGIC ANDROID_NATIVE_MAKE_CONSTANT('_', 'b', 'f', 'r')

typedef struct android_native_base_t {
    int magic;   /* identifies the embedding type (ANDROID_NATIVE_*_MAGIC) */
    int version; /* size of the embedding type */
    void* reserved[4];
    /* hooks into the reference count of the embedding object */
    void (*incRef)(struct android_native_base_t* base);
    void (*decRef)(struct android_native_base_t* base);
} android_native_base_t;

typedef struct android_native_rect_t {
    int32_t left;
    int32_t top;
    int32_t right;
    int32_t bottom;
} android_native_rect_t;

typedef struct ANativeWindowBuffer {
#ifdef __cplusplus
    ANativeWindowBuffer() {
        common.magic = ANDROID_NATIVE_BUFFER_MAGIC;
        common.version = sizeof(ANativeWindowBuffer);
        memset(common.reserved, 0, sizeof(common.reserved));
        common.incRef = nullptr;
        common.decRef = nullptr;
        width = height = stride = format = usage_deprecated = 0;
        layerCount = 0;
        reserved[0] = nullptr;
        handle = nullptr;
        usage = 0;
        memset(reserved_proc, 0, sizeof(reserved_proc));
    }

    // Lets sp<ANativeWindowBuffer> hold a reference through the incRef/decRef hooks.
    void incStrong(const void* /*id*/) const {
        common.incRef(const_cast<android_native_base_t*>(&common));
    }
    void decStrong(const void* /*id*/) const {
        common.decRef(const_cast<android_native_base_t*>(&common));
    }
#endif

    struct android_native_base_t common;

    int width;
    int height;
    int stride;
    int format;
    int usage_deprecated;
    uintptr_t layerCount;

    void* reserved[1];

    const native_handle_t* handle;
    uint64_t usage;

    // The 64-bit usage took the place of one or two reserved pointers, depending on the ABI.
    void* reserved_proc[8 - (sizeof(uint64_t) / sizeof(void*))];
} ANativeWindowBuffer_t;

typedef struct ANativeWindowBuffer ANativeWindowBuffer;

// The older name of the same type.
typedef ANativeWindowBuffer_t android_native_buffer_t;

#ifdef __cplusplus
}
#endif
