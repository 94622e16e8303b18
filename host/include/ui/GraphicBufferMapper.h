/*
 * Host version of Android's <ui/GraphicBufferMapper.h> (Android 14 signatures), backed by the host
 * gralloc of libzel_host.
 *
 * Host behaviour worth knowing:
 * - importBuffer/importBufferNoValidate accept any handle of a host buffer and return a new handle
 *   with its own descriptor; freeBuffer refuses (BAD_VALUE) a handle it did not import, including
 *   one it already freed, and then touches nothing.
 * - Locks return the start of the buffer whatever the bounds (bounds outside the buffer are
 *   BAD_VALUE), need a SW read or write bit, and are refused with PERMISSION_DENIED on buffers
 *   allocated with GRALLOC_USAGE_PROTECTED. As with gralloc 4 and later, bytes per pixel and per
 *   stride are reported as -1: use the stride of the buffer.
 * - The dataspace belongs to the allocation: every handle of it reads what any handle set.
 */
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <string>

#include <cutils/native_handle.h>
#include <hardware/gralloc.h>
#include <system/graphics.h>
#include <ui/GraphicTypes.h>
#include <ui/PixelFormat.h>
#include <ui/Rect.h>
#include <utils/Errors.h>
#include <utils/Singleton.h>

namespace android {

class GraphicBufferMapper : public Singleton<GraphicBufferMapper> {
public:
    enum Version {
        GRALLOC_2 = 2,
        GRALLOC_3,
        GRALLOC_4,
        GRALLOC_5,
    };

    static void preloadHal() {}
    static inline GraphicBufferMapper& get() { return getInstance(); }

    // The imported outHandle must be freed with freeBuffer when no longer needed. rawHandle stays
    // the caller's.
    status_t importBuffer(const native_handle_t* rawHandle, uint32_t width, uint32_t height,
                          uint32_t layerCount, PixelFormat format, uint64_t usage, uint32_t stride,
                          buffer_handle_t* outHandle);

    status_t importBufferNoValidate(const native_handle_t* rawHandle, buffer_handle_t* outHandle);

    status_t freeBuffer(buffer_handle_t handle);

    void getTransportSize(buffer_handle_t handle, uint32_t* outTransportNumFds,
                          uint32_t* outTransportNumInts);

    status_t lock(buffer_handle_t handle, uint32_t usage, const Rect& bounds, void** vaddr,
                  int32_t* outBytesPerPixel = nullptr, int32_t* outBytesPerStride = nullptr);

    status_t lockYCbCr(buffer_handle_t handle, uint32_t usage, const Rect& bounds,
                       android_ycbcr* ycbcr);

    status_t unlock(buffer_handle_t handle);

    // The fence, if any, is waited for and closed before the lock is taken.
    status_t lockAsync(buffer_handle_t handle, uint32_t usage, const Rect& bounds, void** vaddr,
                       int fenceFd, int32_t* outBytesPerPixel = nullptr,
                       int32_t* outBytesPerStride = nullptr);

    status_t lockAsync(buffer_handle_t handle, uint64_t producerUsage, uint64_t consumerUsage,
                       const Rect& bounds, void** vaddr, int fenceFd,
                       int32_t* outBytesPerPixel = nullptr, int32_t* outBytesPerStride = nullptr);

    status_t lockAsyncYCbCr(buffer_handle_t handle, uint32_t usage, const Rect& bounds,
                            android_ycbcr* ycbcr, int fenceFd);

    // Host CPU access is synchronous: *fenceFd is always -1.
    status_t unlockAsync(buffer_handle_t handle, int* fenceFd);

    status_t isSupported(uint32_t width, uint32_t height, PixelFormat format, uint32_t layerCount,
                         uint64_t usage, bool* outSupported);

    // Metadata of the allocation behind any host buffer handle.
    status_t getBufferId(buffer_handle_t bufferHandle, uint64_t* outBufferId);
    status_t getWidth(buffer_handle_t bufferHandle, uint64_t* outWidth);
    status_t getHeight(buffer_handle_t bufferHandle, uint64_t* outHeight);
    status_t getLayerCount(buffer_handle_t bufferHandle, uint64_t* outLayerCount);
    status_t getPixelFormatRequested(buffer_handle_t bufferHandle,
                                     ui::PixelFormat* outPixelFormatRequested);
    status_t getUsage(buffer_handle_t bufferHandle, uint64_t* outUsage);
    status_t getAllocationSize(buffer_handle_t bufferHandle, uint64_t* outAllocationSize);
    status_t getProtectedContent(buffer_handle_t bufferHandle, uint64_t* outProtectedContent);
    status_t getDataspace(buffer_handle_t bufferHandle, ui::Dataspace* outDataspace);
    status_t setDataspace(buffer_handle_t bufferHandle, ui::Dataspace dataspace);

    Version getMapperVersion() const { return GRALLOC_4; }

private:
    friend class Singleton<GraphicBufferMapper>;

    GraphicBufferMapper() = default;
};

}  // namespace android
