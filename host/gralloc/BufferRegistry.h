// The host gralloc of this process: allocates buffers, imports and frees handles, keeps CPU lock
// state and knows which handles it created (so that a foreign or stale handle is refused instead
// of being closed).
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include <cutils/native_handle.h>
#include <utils/Errors.h>

#include "Allocation.h"

namespace zel::host {

class BufferRegistry {
public:
    static BufferRegistry& get();

    // A new allocation and its handle, owned by the caller until releaseAllocation().
    android::status_t allocate(uint32_t width, uint32_t height, uint32_t format,
                               uint32_t layerCount, uint64_t usage, const std::string& name,
                               const native_handle_t** outHandle, uint32_t* outStride);
    // Closes and deletes a handle that allocate() returned; BAD_VALUE for any other handle.
    android::status_t releaseAllocation(const native_handle_t* handle);

    // A new handle (with its own descriptor) of the allocation behind `rawHandle`.
    android::status_t importHandle(const native_handle_t* rawHandle,
                                   const native_handle_t** outHandle);
    // Closes and deletes a handle that importHandle() returned; BAD_VALUE for any other handle.
    android::status_t freeImportedHandle(const native_handle_t* handle);
    bool isImportedHandle(const native_handle_t* handle);

    // The allocation behind any handle of a host buffer; nullptr for other handles.
    std::shared_ptr<Allocation> find(const native_handle_t* handle);

    // CPU locks, per handle and nestable. Unlocking a lock taken with a SW write bit bumps the
    // content generation of the allocation.
    android::status_t lock(const native_handle_t* handle, uint64_t usage, void** outAddress);
    android::status_t unlock(const native_handle_t* handle);

    size_t openFdCount();

    void failUnlock(int count);
    void failQuery(int code, int count);
    void clearQueryFailures();
    bool consumeQueryFailure(int code);

private:
    enum class Owner { Allocator, Mapper };
    struct HandleEntry {
        Owner owner;
        std::shared_ptr<Allocation> allocation;
    };
    struct LockEntry {
        std::shared_ptr<Allocation> allocation;
        std::vector<bool> writes;  // one per outstanding lock, innermost last
    };

    BufferRegistry() = default;

    // With mMutex held.
    void rememberLocked(const std::shared_ptr<Allocation>& allocation);
    android::status_t forgetLocked(const native_handle_t* handle, Owner owner,
                                   std::shared_ptr<Allocation>* outAllocation);
    static void closeHandle(const native_handle_t* handle);

    std::mutex mMutex;
    std::unordered_map<const native_handle_t*, HandleEntry> mHandles;
    std::unordered_map<uint64_t, std::weak_ptr<Allocation>> mById;
    std::unordered_map<const native_handle_t*, LockEntry> mLocks;
    std::unordered_map<int, int> mQueryFailures;
    int mUnlockFailures = 0;
    std::atomic<uint32_t> mNextId{1};
};

}  // namespace zel::host
