// The native handle of a host buffer: one descriptor (the memfd) and the ints below.
#pragma once

#include <stdint.h>

#include <cutils/native_handle.h>

namespace zel::host {

struct BufferHandleInfo {
    int fd = -1;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t stride = 0;  // pixels
    uint32_t format = 0;
    uint64_t usage = 0;
    uint32_t allocationSize = 0;  // bytes of image data, all layers
    uint64_t bufferId = 0;        // per allocation, shared by every import
    uint32_t layerCount = 1;
};

class BufferHandle {
public:
    // Ints after the descriptor: magic, width, height, stride, format, usage (low, high),
    // allocation size, buffer id (low, high), layer count.
    static constexpr int kNumFds = 1;
    static constexpr int kNumInts = 11;

    // Reads a handle; false when it is not the handle of a host buffer (never touches a null or
    // malformed handle beyond its header).
    static bool decode(const native_handle_t* handle, BufferHandleInfo* outInfo);

    // A new handle holding `fd` (which it then owns) and the ints of `info`; nullptr on failure.
    static native_handle_t* create(int fd, const BufferHandleInfo& info);
};

}  // namespace zel::host
