#include <zel/host/Gralloc.h>

#include "Allocation.h"
#include "BufferRegistry.h"

namespace zel::host {

BufferMemory::BufferMemory(const native_handle_t* handle)
    : mAllocation(BufferRegistry::get().find(handle)) {}

BufferMemory::~BufferMemory() = default;

uint8_t* BufferMemory::data() const {
    return mAllocation ? mAllocation->data() : nullptr;
}

size_t BufferMemory::size() const {
    return mAllocation ? mAllocation->size() : 0;
}

const BufferLayout& BufferMemory::layout() const {
    static const BufferLayout kNone;
    return mAllocation ? mAllocation->layout() : kNone;
}

uint64_t BufferMemory::bufferId() const {
    return mAllocation ? mAllocation->bufferId() : 0;
}

uint64_t BufferMemory::contentGeneration() const {
    return mAllocation ? mAllocation->generation() : 0;
}

uint64_t BufferMemory::markContentChanged() {
    return mAllocation ? mAllocation->bumpGeneration() : 0;
}

}  // namespace zel::host
