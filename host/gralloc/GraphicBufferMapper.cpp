#define LOG_TAG "GraphicBufferMapper"

#include <ui/GraphicBufferMapper.h>

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <log/log.h>
#include <sync/sync.h>
#include <zel/host/Gralloc.h>

#include "BufferHandle.h"
#include "BufferRegistry.h"

namespace android {

ANDROID_SINGLETON_STATIC_INSTANCE(GraphicBufferMapper)

using zel::host::BufferHandle;
using zel::host::BufferHandleInfo;
using zel::host::BufferLayout;
using zel::host::BufferRegistry;

namespace {

bool boundsInside(const Rect& bounds, const BufferHandleInfo& info) {
    return bounds.left >= 0 && bounds.top >= 0 && bounds.left <= bounds.right &&
           bounds.top <= bounds.bottom && bounds.right <= static_cast<int32_t>(info.width) &&
           bounds.bottom <= static_cast<int32_t>(info.height);
}

// Waits for and closes the acquire fence of an asynchronous lock.
void consumeFence(int fenceFd) {
    if (fenceFd >= 0) {
        if (sync_wait(fenceFd, -1) != 0) {
            ALOGW("waiting for the lock fence %d failed: %s", fenceFd, strerror(errno));
        }
        close(fenceFd);
    }
}

}  // namespace

status_t GraphicBufferMapper::importBuffer(const native_handle_t* rawHandle, uint32_t width,
                                           uint32_t height, uint32_t layerCount, PixelFormat format,
                                           uint64_t usage, uint32_t stride,
                                           buffer_handle_t* outHandle) {
    (void)usage;  // A consumer may import with a usage of its own.
    BufferHandleInfo info;
    if (!BufferHandle::decode(rawHandle, &info)) {
        ALOGE("importBuffer: %p is not a host buffer handle", rawHandle);
        return BAD_VALUE;
    }
    const uint32_t layers = layerCount == 0 ? 1 : layerCount;
    if (info.width != width || info.height != height ||
        info.format != static_cast<uint32_t>(format) || info.layerCount != layers ||
        (stride != 0 && info.stride != stride)) {
        ALOGE(
            "importBuffer: %ux%u format %#x layers %u stride %u does not describe buffer "
            "%ux%u format %#x layers %u stride %u",
            width, height, format, layers, stride, info.width, info.height, info.format,
            info.layerCount, info.stride);
        return BAD_VALUE;
    }
    return importBufferNoValidate(rawHandle, outHandle);
}

status_t GraphicBufferMapper::importBufferNoValidate(const native_handle_t* rawHandle,
                                                     buffer_handle_t* outHandle) {
    if (outHandle == nullptr) {
        return BAD_VALUE;
    }
    status_t err = BufferRegistry::get().importHandle(rawHandle, outHandle);
    if (err != NO_ERROR) {
        ALOGE("importBuffer(%p) failed: %d", rawHandle, err);
    }
    return err;
}

status_t GraphicBufferMapper::freeBuffer(buffer_handle_t handle) {
    status_t err = BufferRegistry::get().freeImportedHandle(handle);
    if (err != NO_ERROR) {
        ALOGE("freeBuffer(%p): not an imported handle, or already freed", handle);
    }
    return err;
}

void GraphicBufferMapper::getTransportSize(buffer_handle_t handle, uint32_t* outTransportNumFds,
                                           uint32_t* outTransportNumInts) {
    const bool known = BufferHandle::decode(handle, nullptr);
    if (outTransportNumFds != nullptr) {
        *outTransportNumFds = known ? static_cast<uint32_t>(handle->numFds) : 0;
    }
    if (outTransportNumInts != nullptr) {
        *outTransportNumInts = known ? static_cast<uint32_t>(handle->numInts) : 0;
    }
}

status_t GraphicBufferMapper::lock(buffer_handle_t handle, uint32_t usage, const Rect& bounds,
                                   void** vaddr, int32_t* outBytesPerPixel,
                                   int32_t* outBytesPerStride) {
    if (outBytesPerPixel != nullptr) {
        *outBytesPerPixel = -1;
    }
    if (outBytesPerStride != nullptr) {
        *outBytesPerStride = -1;
    }
    BufferHandleInfo info;
    if (vaddr == nullptr || !BufferHandle::decode(handle, &info)) {
        return BAD_VALUE;
    }
    if (!boundsInside(bounds, info)) {
        ALOGE("lock(%p): bounds (%d,%d,%d,%d) outside of %ux%u", handle, bounds.left, bounds.top,
              bounds.right, bounds.bottom, info.width, info.height);
        return BAD_VALUE;
    }
    return BufferRegistry::get().lock(handle, usage, vaddr);
}

status_t GraphicBufferMapper::lockYCbCr(buffer_handle_t handle, uint32_t usage, const Rect& bounds,
                                        android_ycbcr* ycbcr) {
    BufferLayout layout;
    if (ycbcr == nullptr || !zel::host::getBufferLayout(handle, &layout)) {
        return BAD_VALUE;
    }
    if (!layout.isYuv()) {
        ALOGE("lockYCbCr(%p): format %#x is not YUV", handle, layout.format);
        return BAD_VALUE;
    }
    void* base = nullptr;
    if (status_t err = lock(handle, usage, bounds, &base); err != NO_ERROR) {
        return err;
    }
    uint8_t* bytes = static_cast<uint8_t*>(base);
    memset(ycbcr, 0, sizeof(*ycbcr));
    ycbcr->y = bytes + layout.planes[0].offset;
    ycbcr->cb = bytes + layout.cbOffset;
    ycbcr->cr = bytes + layout.crOffset;
    ycbcr->ystride = layout.planes[0].rowPitch;
    ycbcr->cstride = layout.chromaPitch;
    ycbcr->chroma_step = layout.chromaStep;
    return NO_ERROR;
}

status_t GraphicBufferMapper::unlock(buffer_handle_t handle) {
    return BufferRegistry::get().unlock(handle);
}

status_t GraphicBufferMapper::lockAsync(buffer_handle_t handle, uint32_t usage, const Rect& bounds,
                                        void** vaddr, int fenceFd, int32_t* outBytesPerPixel,
                                        int32_t* outBytesPerStride) {
    consumeFence(fenceFd);
    return lock(handle, usage, bounds, vaddr, outBytesPerPixel, outBytesPerStride);
}

status_t GraphicBufferMapper::lockAsync(buffer_handle_t handle, uint64_t producerUsage,
                                        uint64_t consumerUsage, const Rect& bounds, void** vaddr,
                                        int fenceFd, int32_t* outBytesPerPixel,
                                        int32_t* outBytesPerStride) {
    return lockAsync(handle, static_cast<uint32_t>(producerUsage | consumerUsage), bounds, vaddr,
                     fenceFd, outBytesPerPixel, outBytesPerStride);
}

status_t GraphicBufferMapper::lockAsyncYCbCr(buffer_handle_t handle, uint32_t usage,
                                             const Rect& bounds, android_ycbcr* ycbcr,
                                             int fenceFd) {
    consumeFence(fenceFd);
    return lockYCbCr(handle, usage, bounds, ycbcr);
}

status_t GraphicBufferMapper::unlockAsync(buffer_handle_t handle, int* fenceFd) {
    if (fenceFd != nullptr) {
        *fenceFd = -1;
    }
    return unlock(handle);
}

status_t GraphicBufferMapper::isSupported(uint32_t width, uint32_t height, PixelFormat format,
                                          uint32_t layerCount, uint64_t usage, bool* outSupported) {
    (void)usage;
    if (outSupported == nullptr) {
        return BAD_VALUE;
    }
    BufferLayout layout;
    *outSupported = zel::host::computeBufferLayout(static_cast<uint32_t>(format), width, height,
                                                   layerCount, &layout);
    return NO_ERROR;
}

namespace {

template <typename T, typename Getter>
status_t query(buffer_handle_t handle, T* out, Getter getter) {
    BufferHandleInfo info;
    if (out == nullptr || !BufferHandle::decode(handle, &info)) {
        return BAD_VALUE;
    }
    *out = getter(info);
    return NO_ERROR;
}

}  // namespace

status_t GraphicBufferMapper::getBufferId(buffer_handle_t bufferHandle, uint64_t* outBufferId) {
    return query(bufferHandle, outBufferId, [](const BufferHandleInfo& i) { return i.bufferId; });
}

status_t GraphicBufferMapper::getWidth(buffer_handle_t bufferHandle, uint64_t* outWidth) {
    return query(bufferHandle, outWidth, [](const BufferHandleInfo& i) { return i.width; });
}

status_t GraphicBufferMapper::getHeight(buffer_handle_t bufferHandle, uint64_t* outHeight) {
    return query(bufferHandle, outHeight, [](const BufferHandleInfo& i) { return i.height; });
}

status_t GraphicBufferMapper::getLayerCount(buffer_handle_t bufferHandle, uint64_t* outLayerCount) {
    return query(bufferHandle, outLayerCount,
                 [](const BufferHandleInfo& i) { return i.layerCount; });
}

status_t GraphicBufferMapper::getPixelFormatRequested(buffer_handle_t bufferHandle,
                                                      ui::PixelFormat* outPixelFormatRequested) {
    return query(bufferHandle, outPixelFormatRequested,
                 [](const BufferHandleInfo& i) { return static_cast<ui::PixelFormat>(i.format); });
}

status_t GraphicBufferMapper::getUsage(buffer_handle_t bufferHandle, uint64_t* outUsage) {
    return query(bufferHandle, outUsage, [](const BufferHandleInfo& i) { return i.usage; });
}

status_t GraphicBufferMapper::getAllocationSize(buffer_handle_t bufferHandle,
                                                uint64_t* outAllocationSize) {
    return query(bufferHandle, outAllocationSize,
                 [](const BufferHandleInfo& i) { return i.allocationSize; });
}

status_t GraphicBufferMapper::getProtectedContent(buffer_handle_t bufferHandle,
                                                  uint64_t* outProtectedContent) {
    return query(bufferHandle, outProtectedContent, [](const BufferHandleInfo& i) {
        return static_cast<uint64_t>((i.usage & GRALLOC_USAGE_PROTECTED) != 0);
    });
}

status_t GraphicBufferMapper::getDataspace(buffer_handle_t bufferHandle,
                                           ui::Dataspace* outDataspace) {
    if (outDataspace == nullptr) {
        return BAD_VALUE;
    }
    auto allocation = BufferRegistry::get().find(bufferHandle);
    if (allocation == nullptr) {
        return BAD_VALUE;
    }
    *outDataspace = static_cast<ui::Dataspace>(allocation->dataspace());
    return NO_ERROR;
}

status_t GraphicBufferMapper::setDataspace(buffer_handle_t bufferHandle, ui::Dataspace dataspace) {
    auto allocation = BufferRegistry::get().find(bufferHandle);
    if (allocation == nullptr) {
        return BAD_VALUE;
    }
    allocation->setDataspace(static_cast<int32_t>(dataspace));
    return NO_ERROR;
}

}  // namespace android
