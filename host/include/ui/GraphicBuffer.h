/*
 * Host version of Android's <ui/GraphicBuffer.h> (Android 14 signatures) over the host gralloc of
 * libzel_host; the CPU layout of each format is described in <zel/host/Gralloc.h>.
 *
 * getId() is per object ((pid << 32) | a per-process counter), as on Android: two GraphicBuffers
 * wrapping handles of one allocation have different ids. The id of the allocation itself comes
 * from bufmeta_query(BUFMETA_GET_BUFFER_ID) or GraphicBufferMapper::getBufferId().
 */
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <string>

#include <cutils/native_handle.h>
#include <hardware/gralloc.h>
#include <nativebase/nativebase.h>
#include <system/graphics.h>
#include <ui/GraphicBufferMapper.h>
#include <ui/PixelFormat.h>
#include <ui/Rect.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

namespace android {

class GraphicBuffer : public ANativeWindowBuffer, public RefBase {
public:
    enum {
        USAGE_SW_READ_NEVER = GRALLOC_USAGE_SW_READ_NEVER,
        USAGE_SW_READ_RARELY = GRALLOC_USAGE_SW_READ_RARELY,
        USAGE_SW_READ_OFTEN = GRALLOC_USAGE_SW_READ_OFTEN,
        USAGE_SW_READ_MASK = GRALLOC_USAGE_SW_READ_MASK,

        USAGE_SW_WRITE_NEVER = GRALLOC_USAGE_SW_WRITE_NEVER,
        USAGE_SW_WRITE_RARELY = GRALLOC_USAGE_SW_WRITE_RARELY,
        USAGE_SW_WRITE_OFTEN = GRALLOC_USAGE_SW_WRITE_OFTEN,
        USAGE_SW_WRITE_MASK = GRALLOC_USAGE_SW_WRITE_MASK,

        USAGE_SOFTWARE_MASK = USAGE_SW_READ_MASK | USAGE_SW_WRITE_MASK,

        USAGE_PROTECTED = GRALLOC_USAGE_PROTECTED,

        USAGE_HW_TEXTURE = GRALLOC_USAGE_HW_TEXTURE,
        USAGE_HW_RENDER = GRALLOC_USAGE_HW_RENDER,
        USAGE_HW_2D = GRALLOC_USAGE_HW_2D,
        USAGE_HW_COMPOSER = GRALLOC_USAGE_HW_COMPOSER,
        USAGE_HW_VIDEO_ENCODER = GRALLOC_USAGE_HW_VIDEO_ENCODER,
        USAGE_HW_MASK = GRALLOC_USAGE_HW_MASK,

        USAGE_CURSOR = GRALLOC_USAGE_CURSOR,
    };

    static sp<GraphicBuffer> from(ANativeWindowBuffer* buffer);

    // An empty buffer (no handle).
    GraphicBuffer();

    // Allocates a buffer; initCheck() tells whether that worked.
    GraphicBuffer(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat, uint32_t inLayerCount,
                  uint64_t inUsage, std::string requestorName = "<Unknown>");

    enum HandleWrapMethod : uint8_t {
        // Uses the handle as it is, without owning it: it must outlive this object.
        WRAP_HANDLE,
        // Owns an imported handle and frees it (GraphicBufferMapper::freeBuffer) when destroyed.
        TAKE_HANDLE,
        // Imports the handle, then closes and deletes it; owns the imported handle. Nothing
        // changes hands when the import fails.
        TAKE_UNREGISTERED_HANDLE,
        // Imports a copy of the handle and owns the copy; the handle stays the caller's.
        CLONE_HANDLE,
    };

    GraphicBuffer(const native_handle_t* inHandle, HandleWrapMethod method, uint32_t inWidth,
                  uint32_t inHeight, PixelFormat inFormat, uint32_t inLayerCount, uint64_t inUsage,
                  uint32_t inStride);

    // Deprecated forms, taking 32 bits of usage.
    GraphicBuffer(const native_handle_t* inHandle, HandleWrapMethod method, uint32_t inWidth,
                  uint32_t inHeight, PixelFormat inFormat, uint32_t inLayerCount, uint32_t inUsage,
                  uint32_t inStride)
        : GraphicBuffer(inHandle, method, inWidth, inHeight, inFormat, inLayerCount,
                        static_cast<uint64_t>(inUsage), inStride) {}
    GraphicBuffer(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat, uint32_t inLayerCount,
                  uint32_t inUsage, uint32_t inStride, native_handle_t* inHandle,
                  bool keepOwnership);
    GraphicBuffer(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat, uint32_t inUsage,
                  std::string requestorName = "<Unknown>");

    status_t initCheck() const;

    uint32_t getWidth() const { return static_cast<uint32_t>(width); }
    uint32_t getHeight() const { return static_cast<uint32_t>(height); }
    uint32_t getStride() const { return static_cast<uint32_t>(stride); }
    uint64_t getUsage() const { return usage; }
    PixelFormat getPixelFormat() const { return format; }
    uint32_t getLayerCount() const { return static_cast<uint32_t>(layerCount); }
    Rect getBounds() const { return Rect(width, height); }
    uint64_t getId() const { return mId; }

    uint32_t getGenerationNumber() const { return mGenerationNumber; }
    void setGenerationNumber(uint32_t generation) { mGenerationNumber = generation; }

    status_t reallocate(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                        uint32_t inLayerCount, uint64_t inUsage);

    bool needsReallocation(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                           uint32_t inLayerCount, uint64_t inUsage);

    // Bytes per pixel and per stride are reported as -1 (as with gralloc 4): use getStride().
    status_t lock(uint32_t inUsage, void** vaddr, int32_t* outBytesPerPixel = nullptr,
                  int32_t* outBytesPerStride = nullptr);
    status_t lock(uint32_t inUsage, const Rect& rect, void** vaddr,
                  int32_t* outBytesPerPixel = nullptr, int32_t* outBytesPerStride = nullptr);
    // For the YUV formats.
    status_t lockYCbCr(uint32_t inUsage, android_ycbcr* ycbcr);
    status_t lockYCbCr(uint32_t inUsage, const Rect& rect, android_ycbcr* ycbcr);
    status_t unlock();
    status_t lockAsync(uint32_t inUsage, void** vaddr, int fenceFd,
                       int32_t* outBytesPerPixel = nullptr, int32_t* outBytesPerStride = nullptr);
    status_t lockAsync(uint32_t inUsage, const Rect& rect, void** vaddr, int fenceFd,
                       int32_t* outBytesPerPixel = nullptr, int32_t* outBytesPerStride = nullptr);
    status_t unlockAsync(int* fenceFd);

    status_t isSupported(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                         uint32_t inLayerCount, uint64_t inUsage, bool* outSupported) const;

    ANativeWindowBuffer* getNativeBuffer() const;

    // Both bases count references; the RefBase count is the one that matters.
    void incStrong(const void* id) const { RefBase::incStrong(id); }
    void decStrong(const void* id) const { RefBase::decStrong(id); }

private:
    ~GraphicBuffer() override;

    enum {
        ownNone = 0,
        ownHandle = 1,
        ownData = 2,
    };

    GraphicBuffer(const GraphicBuffer& rhs) = delete;
    GraphicBuffer& operator=(const GraphicBuffer& rhs) = delete;

    status_t initWithSize(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                          uint32_t inLayerCount, uint64_t inUsage, std::string requestorName);

    status_t initWithHandle(const native_handle_t* inHandle, HandleWrapMethod method,
                            uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                            uint32_t inLayerCount, uint64_t inUsage, uint32_t inStride);

    void free_handle();

    static void incRef(android_native_base_t* base);
    static void decRef(android_native_base_t* base);

    uint8_t mOwner = ownNone;
    GraphicBufferMapper& mBufferMapper;
    status_t mInitCheck = NO_ERROR;
    uint64_t mId;
    uint32_t mGenerationNumber = 0;
};

}  // namespace android
