// The vendor metadata query, answered from the ints of the handle.

#include <bufmeta.h>

#include <errno.h>
#include <string.h>

#include "BufferHandle.h"
#include "BufferRegistry.h"

using zel::host::BufferHandle;
using zel::host::BufferHandleInfo;
using zel::host::BufferRegistry;

namespace {

int put32(void* out, uint32_t value) {
    memcpy(out, &value, sizeof(value));
    return 0;
}

bool knownCode(int code) {
    switch (code) {
        case BUFMETA_GET_WIDTH:
        case BUFMETA_GET_HEIGHT:
        case BUFMETA_GET_STRIDE:
        case BUFMETA_GET_ALLOC_SIZE:
        case BUFMETA_GET_FORMAT:
        case BUFMETA_GET_USAGE:
        case BUFMETA_GET_BUFFER_ID:
            return true;
        default:
            return false;
    }
}

}  // namespace

extern "C" int bufmeta_query(const native_handle_t* handle, int code, void* out) {
    BufferHandleInfo info;
    if (out == nullptr || !BufferHandle::decode(handle, &info) || !knownCode(code)) {
        return -EINVAL;
    }
    if (BufferRegistry::get().consumeQueryFailure(code)) {
        return -EIO;
    }
    switch (code) {
        case BUFMETA_GET_WIDTH:
            return put32(out, info.width);
        case BUFMETA_GET_HEIGHT:
            return put32(out, info.height);
        case BUFMETA_GET_STRIDE:
            return put32(out, info.stride);
        case BUFMETA_GET_ALLOC_SIZE:
            return put32(out, info.allocationSize);
        case BUFMETA_GET_FORMAT:
            return put32(out, info.format);
        case BUFMETA_GET_USAGE:
            return put32(out, static_cast<uint32_t>(info.usage));
        case BUFMETA_GET_BUFFER_ID:
            memcpy(out, &info.bufferId, sizeof(info.bufferId));
            return 0;
    }
    return -EINVAL;
}
