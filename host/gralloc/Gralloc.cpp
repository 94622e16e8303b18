// The gralloc part of the host control interface (<zel/host/Gralloc.h>).

#include <zel/host/Gralloc.h>

#include "Allocation.h"
#include "BufferHandle.h"
#include "BufferRegistry.h"

namespace zel::host {

bool getBufferLayout(const native_handle_t* handle, BufferLayout* outLayout) {
    BufferHandleInfo info;
    if (outLayout == nullptr || !BufferHandle::decode(handle, &info)) {
        return false;
    }
    BufferLayout layout;
    if (!computeBufferLayout(info.format, info.width, info.height, info.layerCount, &layout) ||
        layout.stride != info.stride || layout.allocationSize != info.allocationSize) {
        return false;
    }
    *outLayout = layout;
    return true;
}

uint64_t contentGeneration(const native_handle_t* handle) {
    std::shared_ptr<Allocation> allocation = BufferRegistry::get().find(handle);
    return allocation ? allocation->generation() : 0;
}

size_t liveAllocationCount() {
    return Allocation::liveCount();
}

size_t openBufferFdCount() {
    return BufferRegistry::get().openFdCount();
}

void failBufmetaQuery(int code, int count) {
    BufferRegistry::get().failQuery(code, count);
}

void clearBufmetaFailures() {
    BufferRegistry::get().clearQueryFailures();
}

void failUnlock(int count) {
    BufferRegistry::get().failUnlock(count);
}

}  // namespace zel::host
