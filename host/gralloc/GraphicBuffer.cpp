#define LOG_TAG "GraphicBuffer"

#include <ui/GraphicBuffer.h>

#include <inttypes.h>
#include <unistd.h>

#include <atomic>

#include <log/log.h>

#include "BufferRegistry.h"

namespace android {

using zel::host::BufferRegistry;

namespace {

uint64_t nextObjectId() {
    static std::atomic<uint32_t> counter{0};
    return (static_cast<uint64_t>(getpid()) << 32) | (counter.fetch_add(1) + 1);
}

}  // namespace

sp<GraphicBuffer> GraphicBuffer::from(ANativeWindowBuffer* buffer) {
    return static_cast<GraphicBuffer*>(buffer);
}

void GraphicBuffer::incRef(android_native_base_t* base) {
    GraphicBuffer* self = static_cast<GraphicBuffer*>(reinterpret_cast<ANativeWindowBuffer*>(base));
    self->incStrong(self);
}

void GraphicBuffer::decRef(android_native_base_t* base) {
    GraphicBuffer* self = static_cast<GraphicBuffer*>(reinterpret_cast<ANativeWindowBuffer*>(base));
    self->decStrong(self);
}

GraphicBuffer::GraphicBuffer() : mBufferMapper(GraphicBufferMapper::get()), mId(nextObjectId()) {
    common.incRef = incRef;
    common.decRef = decRef;
}

GraphicBuffer::GraphicBuffer(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                             uint32_t inLayerCount, uint64_t inUsage, std::string requestorName)
    : GraphicBuffer() {
    mInitCheck =
        initWithSize(inWidth, inHeight, inFormat, inLayerCount, inUsage, std::move(requestorName));
}

GraphicBuffer::GraphicBuffer(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                             uint32_t inUsage, std::string requestorName)
    : GraphicBuffer(inWidth, inHeight, inFormat, 1, static_cast<uint64_t>(inUsage),
                    std::move(requestorName)) {}

GraphicBuffer::GraphicBuffer(const native_handle_t* inHandle, HandleWrapMethod method,
                             uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                             uint32_t inLayerCount, uint64_t inUsage, uint32_t inStride)
    : GraphicBuffer() {
    mInitCheck = initWithHandle(inHandle, method, inWidth, inHeight, inFormat, inLayerCount,
                                inUsage, inStride);
}

GraphicBuffer::GraphicBuffer(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                             uint32_t inLayerCount, uint32_t inUsage, uint32_t inStride,
                             native_handle_t* inHandle, bool keepOwnership)
    : GraphicBuffer(inHandle, keepOwnership ? TAKE_HANDLE : WRAP_HANDLE, inWidth, inHeight,
                    inFormat, inLayerCount, static_cast<uint64_t>(inUsage), inStride) {}

GraphicBuffer::~GraphicBuffer() {
    free_handle();
}

void GraphicBuffer::free_handle() {
    if (handle == nullptr) {
        return;
    }
    if (mOwner == ownHandle) {
        if (mBufferMapper.freeBuffer(handle) != NO_ERROR) {
            ALOGE("buffer %" PRIx64 " owned handle %p, which was not imported: leaked", mId,
                  handle);
        }
    } else if (mOwner == ownData) {
        BufferRegistry::get().releaseAllocation(handle);
    }
    handle = nullptr;
    mOwner = ownNone;
}

status_t GraphicBuffer::initCheck() const {
    return mInitCheck;
}

status_t GraphicBuffer::initWithSize(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                                     uint32_t inLayerCount, uint64_t inUsage,
                                     std::string requestorName) {
    const uint32_t layers = inLayerCount == 0 ? 1 : inLayerCount;
    const native_handle_t* newHandle = nullptr;
    uint32_t newStride = 0;
    status_t err =
        BufferRegistry::get().allocate(inWidth, inHeight, static_cast<uint32_t>(inFormat), layers,
                                       inUsage, requestorName, &newHandle, &newStride);
    if (err != NO_ERROR) {
        ALOGE("allocation of %ux%u format %#x usage %#" PRIx64 " for %s failed: %d", inWidth,
              inHeight, inFormat, inUsage, requestorName.c_str(), err);
        return err;
    }
    width = static_cast<int>(inWidth);
    height = static_cast<int>(inHeight);
    format = inFormat;
    layerCount = layers;
    usage = inUsage;
    usage_deprecated = static_cast<int>(inUsage);
    stride = static_cast<int>(newStride);
    handle = newHandle;
    mOwner = ownData;
    return NO_ERROR;
}

status_t GraphicBuffer::initWithHandle(const native_handle_t* inHandle, HandleWrapMethod method,
                                       uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                                       uint32_t inLayerCount, uint64_t inUsage, uint32_t inStride) {
    if (method == TAKE_UNREGISTERED_HANDLE || method == CLONE_HANDLE) {
        buffer_handle_t imported = nullptr;
        status_t err = mBufferMapper.importBuffer(inHandle, inWidth, inHeight, inLayerCount,
                                                  inFormat, inUsage, inStride, &imported);
        if (err != NO_ERROR) {
            return err;
        }
        if (method == TAKE_UNREGISTERED_HANDLE) {
            if (BufferRegistry::get().isImportedHandle(inHandle)) {
                mBufferMapper.freeBuffer(inHandle);
            } else {
                native_handle_close(inHandle);
                native_handle_delete(const_cast<native_handle_t*>(inHandle));
            }
        }
        inHandle = imported;
    }
    width = static_cast<int>(inWidth);
    height = static_cast<int>(inHeight);
    stride = static_cast<int>(inStride);
    format = inFormat;
    layerCount = inLayerCount;
    usage = inUsage;
    usage_deprecated = static_cast<int>(inUsage);
    handle = inHandle;
    mOwner = method == WRAP_HANDLE ? ownNone : ownHandle;
    return NO_ERROR;
}

bool GraphicBuffer::needsReallocation(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                                      uint32_t inLayerCount, uint64_t inUsage) {
    return static_cast<int>(inWidth) != width || static_cast<int>(inHeight) != height ||
           inFormat != format || inLayerCount != layerCount || (usage & inUsage) != inUsage ||
           (usage & USAGE_PROTECTED) != (inUsage & USAGE_PROTECTED);
}

status_t GraphicBuffer::reallocate(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                                   uint32_t inLayerCount, uint64_t inUsage) {
    if (mOwner != ownData && handle != nullptr) {
        return INVALID_OPERATION;
    }
    if (handle != nullptr &&
        !needsReallocation(inWidth, inHeight, inFormat, inLayerCount, inUsage)) {
        return NO_ERROR;
    }
    free_handle();
    mInitCheck = initWithSize(inWidth, inHeight, inFormat, inLayerCount, inUsage, "<Unknown>");
    return mInitCheck;
}

status_t GraphicBuffer::lock(uint32_t inUsage, void** vaddr, int32_t* outBytesPerPixel,
                             int32_t* outBytesPerStride) {
    return lock(inUsage, getBounds(), vaddr, outBytesPerPixel, outBytesPerStride);
}

status_t GraphicBuffer::lock(uint32_t inUsage, const Rect& rect, void** vaddr,
                             int32_t* outBytesPerPixel, int32_t* outBytesPerStride) {
    if (rect.left < 0 || rect.right > width || rect.top < 0 || rect.bottom > height) {
        ALOGE("lock of (%d,%d,%d,%d) outside of the %dx%d buffer", rect.left, rect.top, rect.right,
              rect.bottom, width, height);
        return BAD_VALUE;
    }
    return mBufferMapper.lock(handle, inUsage, rect, vaddr, outBytesPerPixel, outBytesPerStride);
}

status_t GraphicBuffer::lockYCbCr(uint32_t inUsage, android_ycbcr* ycbcr) {
    return lockYCbCr(inUsage, getBounds(), ycbcr);
}

status_t GraphicBuffer::lockYCbCr(uint32_t inUsage, const Rect& rect, android_ycbcr* ycbcr) {
    if (rect.left < 0 || rect.right > width || rect.top < 0 || rect.bottom > height) {
        ALOGE("lockYCbCr of (%d,%d,%d,%d) outside of the %dx%d buffer", rect.left, rect.top,
              rect.right, rect.bottom, width, height);
        return BAD_VALUE;
    }
    return mBufferMapper.lockYCbCr(handle, inUsage, rect, ycbcr);
}

status_t GraphicBuffer::unlock() {
    return mBufferMapper.unlock(handle);
}

status_t GraphicBuffer::lockAsync(uint32_t inUsage, void** vaddr, int fenceFd,
                                  int32_t* outBytesPerPixel, int32_t* outBytesPerStride) {
    return lockAsync(inUsage, getBounds(), vaddr, fenceFd, outBytesPerPixel, outBytesPerStride);
}

status_t GraphicBuffer::lockAsync(uint32_t inUsage, const Rect& rect, void** vaddr, int fenceFd,
                                  int32_t* outBytesPerPixel, int32_t* outBytesPerStride) {
    if (rect.left < 0 || rect.right > width || rect.top < 0 || rect.bottom > height) {
        if (fenceFd >= 0) {
            close(fenceFd);
        }
        return BAD_VALUE;
    }
    return mBufferMapper.lockAsync(handle, inUsage, rect, vaddr, fenceFd, outBytesPerPixel,
                                   outBytesPerStride);
}

status_t GraphicBuffer::unlockAsync(int* fenceFd) {
    return mBufferMapper.unlockAsync(handle, fenceFd);
}

status_t GraphicBuffer::isSupported(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                                    uint32_t inLayerCount, uint64_t inUsage,
                                    bool* outSupported) const {
    return mBufferMapper.isSupported(inWidth, inHeight, inFormat, inLayerCount, inUsage,
                                     outSupported);
}

ANativeWindowBuffer* GraphicBuffer::getNativeBuffer() const {
    return static_cast<ANativeWindowBuffer*>(const_cast<GraphicBuffer*>(this));
}

}  // namespace android
