#include "BufferHandle.h"

namespace zel::host {
namespace {

constexpr int kMagic = 0x7a656c62;  // 'zelb'

enum Int {
    kIntMagic,
    kIntWidth,
    kIntHeight,
    kIntStride,
    kIntFormat,
    kIntUsageLow,
    kIntUsageHigh,
    kIntAllocationSize,
    kIntIdLow,
    kIntIdHigh,
    kIntLayerCount,
};

uint32_t u32(int v) {
    return static_cast<uint32_t>(v);
}

int i32(uint32_t v) {
    return static_cast<int>(v);
}

}  // namespace

bool BufferHandle::decode(const native_handle_t* handle, BufferHandleInfo* outInfo) {
    if (handle == nullptr || handle->version != static_cast<int>(sizeof(native_handle_t)) ||
        handle->numFds != kNumFds || handle->numInts != kNumInts) {
        return false;
    }
    const int* ints = handle->data + kNumFds;
    if (ints[kIntMagic] != kMagic) {
        return false;
    }
    BufferHandleInfo info;
    info.fd = handle->data[0];
    info.width = u32(ints[kIntWidth]);
    info.height = u32(ints[kIntHeight]);
    info.stride = u32(ints[kIntStride]);
    info.format = u32(ints[kIntFormat]);
    info.usage = uint64_t{u32(ints[kIntUsageLow])} | (uint64_t{u32(ints[kIntUsageHigh])} << 32);
    info.allocationSize = u32(ints[kIntAllocationSize]);
    info.bufferId = uint64_t{u32(ints[kIntIdLow])} | (uint64_t{u32(ints[kIntIdHigh])} << 32);
    info.layerCount = u32(ints[kIntLayerCount]);
    if (outInfo != nullptr) {
        *outInfo = info;
    }
    return true;
}

native_handle_t* BufferHandle::create(int fd, const BufferHandleInfo& info) {
    native_handle_t* handle = native_handle_create(kNumFds, kNumInts);
    if (handle == nullptr) {
        return nullptr;
    }
    handle->data[0] = fd;
    int* ints = handle->data + kNumFds;
    ints[kIntMagic] = kMagic;
    ints[kIntWidth] = i32(info.width);
    ints[kIntHeight] = i32(info.height);
    ints[kIntStride] = i32(info.stride);
    ints[kIntFormat] = i32(info.format);
    ints[kIntUsageLow] = i32(static_cast<uint32_t>(info.usage));
    ints[kIntUsageHigh] = i32(static_cast<uint32_t>(info.usage >> 32));
    ints[kIntAllocationSize] = i32(info.allocationSize);
    ints[kIntIdLow] = i32(static_cast<uint32_t>(info.bufferId));
    ints[kIntIdHigh] = i32(static_cast<uint32_t>(info.bufferId >> 32));
    ints[kIntLayerCount] = i32(info.layerCount);
    return handle;
}

}  // namespace zel::host
