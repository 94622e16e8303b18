/*
 * The vendor gralloc metadata query, host version: answers for any handle of a host buffer,
 * the handle of an allocation as well as every handle imported from it.
 *
 * Every code writes a uint32_t to `out`, except BUFMETA_GET_BUFFER_ID, which writes a uint64_t:
 * the id of the allocation, shared by all its handles and never reused in the process (unlike
 * android::GraphicBuffer::getId(), which is per object). BUFMETA_GET_STRIDE is in pixels, as
 * GraphicBuffer::getStride(); BUFMETA_GET_ALLOC_SIZE is the byte size of the image data;
 * BUFMETA_GET_USAGE is the low 32 bits of the usage.
 */
#pragma once

#include <stdint.h>

#include <cutils/native_handle.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    BUFMETA_GET_WIDTH = 10,
    BUFMETA_GET_HEIGHT = 11,
    BUFMETA_GET_STRIDE = 12,
    BUFMETA_GET_ALLOC_SIZE = 14,
    BUFMETA_GET_FORMAT = 15,
    BUFMETA_GET_USAGE = 17,
    BUFMETA_GET_BUFFER_ID = 50,
};

/* Returns 0 on success; non-zero for a null handle or out, a foreign handle or an unknown code. */
int bufmeta_query(const native_handle_t* handle, int code, void* out);

#ifdef __cplusplus
}
#endif
