#define LOG_TAG "ZelGralloc"

#include "BufferRegistry.h"

#include <errno.h>
#include <fcntl.h>
#include <inttypes.h>
#include <unistd.h>

#include <hardware/gralloc.h>
#include <log/log.h>

namespace zel::host {

using android::BAD_VALUE;
using android::INVALID_OPERATION;
using android::NO_ERROR;
using android::NO_MEMORY;
using android::PERMISSION_DENIED;
using android::status_t;

BufferRegistry& BufferRegistry::get() {
    // Never destroyed: buffers held by static objects may be released during exit.
    static BufferRegistry* registry = new BufferRegistry();
    return *registry;
}

void BufferRegistry::rememberLocked(const std::shared_ptr<Allocation>& allocation) {
    for (auto it = mById.begin(); it != mById.end();) {
        it = it->second.expired() ? mById.erase(it) : std::next(it);
    }
    mById[allocation->bufferId()] = allocation;
}

status_t BufferRegistry::allocate(uint32_t width, uint32_t height, uint32_t format,
                                  uint32_t layerCount, uint64_t usage, const std::string& name,
                                  const native_handle_t** outHandle, uint32_t* outStride) {
    BufferLayout layout;
    if (!computeBufferLayout(format, width, height, layerCount, &layout)) {
        ALOGE("cannot allocate %ux%u format %#x layers %u", width, height, format, layerCount);
        return BAD_VALUE;
    }
    // Allocation ids are (pid << 32) | n with bit 31 of n set, so that they never equal a
    // GraphicBuffer id of the same process.
    const uint32_t n = 0x80000000u | (mNextId.fetch_add(1) & 0x7fffffffu);
    const uint64_t bufferId = (static_cast<uint64_t>(getpid()) << 32) | n;

    int fd = -1;
    std::shared_ptr<Allocation> allocation = Allocation::create(layout, bufferId, name, &fd);
    if (allocation == nullptr) {
        return NO_MEMORY;
    }
    BufferHandleInfo info;
    info.width = width;
    info.height = height;
    info.stride = layout.stride;
    info.format = format;
    info.usage = usage;
    info.allocationSize = layout.allocationSize;
    info.bufferId = bufferId;
    info.layerCount = layout.layerCount;
    native_handle_t* handle = BufferHandle::create(fd, info);
    if (handle == nullptr) {
        close(fd);
        return NO_MEMORY;
    }
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mHandles[handle] = HandleEntry{Owner::Allocator, allocation};
        rememberLocked(allocation);
    }
    *outHandle = handle;
    *outStride = layout.stride;
    return NO_ERROR;
}

status_t BufferRegistry::forgetLocked(const native_handle_t* handle, Owner owner,
                                      std::shared_ptr<Allocation>* outAllocation) {
    auto it = mHandles.find(handle);
    if (it == mHandles.end() || it->second.owner != owner) {
        return BAD_VALUE;
    }
    *outAllocation = std::move(it->second.allocation);
    mHandles.erase(it);
    if (auto lockIt = mLocks.find(handle); lockIt != mLocks.end()) {
        ALOGW("handle %p released with %zu CPU lock(s) outstanding", handle,
              lockIt->second.writes.size());
        mLocks.erase(lockIt);
    }
    return NO_ERROR;
}

void BufferRegistry::closeHandle(const native_handle_t* handle) {
    native_handle_close(handle);
    native_handle_delete(const_cast<native_handle_t*>(handle));
}

status_t BufferRegistry::releaseAllocation(const native_handle_t* handle) {
    std::shared_ptr<Allocation> allocation;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (status_t err = forgetLocked(handle, Owner::Allocator, &allocation); err != NO_ERROR) {
            return err;
        }
    }
    closeHandle(handle);
    return NO_ERROR;
}

status_t BufferRegistry::importHandle(const native_handle_t* rawHandle,
                                      const native_handle_t** outHandle) {
    BufferHandleInfo info;
    if (!BufferHandle::decode(rawHandle, &info)) {
        return BAD_VALUE;
    }
    std::shared_ptr<Allocation> allocation = find(rawHandle);
    if (allocation == nullptr) {
        return BAD_VALUE;
    }
    const int fd = fcntl(info.fd, F_DUPFD_CLOEXEC, 0);
    if (fd < 0) {
        return errno == EBADF ? BAD_VALUE : NO_MEMORY;
    }
    native_handle_t* handle = BufferHandle::create(fd, info);
    if (handle == nullptr) {
        close(fd);
        return NO_MEMORY;
    }
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mHandles[handle] = HandleEntry{Owner::Mapper, allocation};
    }
    *outHandle = handle;
    return NO_ERROR;
}

status_t BufferRegistry::freeImportedHandle(const native_handle_t* handle) {
    std::shared_ptr<Allocation> allocation;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (status_t err = forgetLocked(handle, Owner::Mapper, &allocation); err != NO_ERROR) {
            return err;
        }
    }
    closeHandle(handle);
    return NO_ERROR;
}

bool BufferRegistry::isImportedHandle(const native_handle_t* handle) {
    std::lock_guard<std::mutex> lock(mMutex);
    auto it = mHandles.find(handle);
    return it != mHandles.end() && it->second.owner == Owner::Mapper;
}

std::shared_ptr<Allocation> BufferRegistry::find(const native_handle_t* handle) {
    BufferHandleInfo info;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (auto it = mHandles.find(handle); it != mHandles.end()) {
            return it->second.allocation;
        }
        if (!BufferHandle::decode(handle, &info)) {
            return nullptr;
        }
        if (auto it = mById.find(info.bufferId); it != mById.end()) {
            if (std::shared_ptr<Allocation> allocation = it->second.lock()) {
                return allocation;
            }
        }
    }
    // A handle this process did not create (another process's, or a plain clone): map its memory.
    std::shared_ptr<Allocation> allocation = Allocation::open(info);
    if (allocation == nullptr) {
        return nullptr;
    }
    std::lock_guard<std::mutex> lock(mMutex);
    if (auto it = mById.find(info.bufferId); it != mById.end()) {
        if (std::shared_ptr<Allocation> existing = it->second.lock()) {
            return existing;
        }
    }
    rememberLocked(allocation);
    return allocation;
}

status_t BufferRegistry::lock(const native_handle_t* handle, uint64_t usage, void** outAddress) {
    BufferHandleInfo info;
    if (outAddress == nullptr || !BufferHandle::decode(handle, &info)) {
        return BAD_VALUE;
    }
    if (info.usage & GRALLOC_USAGE_PROTECTED) {
        ALOGE("CPU lock of protected buffer %p refused", handle);
        return PERMISSION_DENIED;
    }
    if ((usage & (GRALLOC_USAGE_SW_READ_MASK | GRALLOC_USAGE_SW_WRITE_MASK)) == 0) {
        ALOGE("CPU lock of %p without a CPU usage (%#" PRIx64 ")", handle, usage);
        return BAD_VALUE;
    }
    std::shared_ptr<Allocation> allocation = find(handle);
    if (allocation == nullptr) {
        return BAD_VALUE;
    }
    std::lock_guard<std::mutex> lock(mMutex);
    LockEntry& entry = mLocks[handle];
    entry.allocation = allocation;
    entry.writes.push_back((usage & GRALLOC_USAGE_SW_WRITE_MASK) != 0);
    *outAddress = allocation->data();
    return NO_ERROR;
}

status_t BufferRegistry::unlock(const native_handle_t* handle) {
    std::shared_ptr<Allocation> allocation;
    bool wrote = false;
    bool failed = false;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        auto it = mLocks.find(handle);
        if (it == mLocks.end()) {
            ALOGE("unlock of %p, which is not locked", handle);
            return BAD_VALUE;
        }
        allocation = it->second.allocation;
        wrote = it->second.writes.back();
        it->second.writes.pop_back();
        if (it->second.writes.empty()) {
            mLocks.erase(it);
        }
        if (mUnlockFailures > 0) {
            --mUnlockFailures;
            failed = true;
        }
    }
    if (wrote) {
        allocation->bumpGeneration();
    }
    return failed ? INVALID_OPERATION : NO_ERROR;
}

void BufferRegistry::failUnlock(int count) {
    std::lock_guard<std::mutex> lock(mMutex);
    mUnlockFailures += count;
}

size_t BufferRegistry::openFdCount() {
    std::lock_guard<std::mutex> lock(mMutex);
    return mHandles.size();
}

void BufferRegistry::failQuery(int code, int count) {
    std::lock_guard<std::mutex> lock(mMutex);
    mQueryFailures[code] += count;
}

void BufferRegistry::clearQueryFailures() {
    std::lock_guard<std::mutex> lock(mMutex);
    mQueryFailures.clear();
}

bool BufferRegistry::consumeQueryFailure(int code) {
    std::lock_guard<std::mutex> lock(mMutex);
    for (int key : {code, -1}) {
        auto it = mQueryFailures.find(key);
        if (it != mQueryFailures.end() && it->second > 0) {
            if (--it->second == 0) {
                mQueryFailures.erase(it);
            }
            return true;
        }
    }
    return false;
}

}  // namespace zel::host
