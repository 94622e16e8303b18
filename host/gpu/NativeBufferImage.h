/*
 * An EGLImage made from an Android buffer (EGL_NATIVE_BUFFER_ANDROID): the buffer itself (a
 * reference is held on it while the image lives), its memory and layout, the crop rectangle that
 * the image stands for, and its protection. The pixels live in the buffer's memory; the textures
 * that sample or render the image hold copies (ImageTexture).
 */
#pragma once

#include <cstdint>
#include <memory>

#include <system/window.h>
#include <zel/host/Gralloc.h>

#include "ImageFormat.h"
#include "KhronosApi.h"

namespace zel {
namespace hostgpu {

class NativeBufferImage {
public:
    struct Crop {
        uint32_t left = 0;
        uint32_t top = 0;
        uint32_t width = 0;
        uint32_t height = 0;
    };

    // Takes a reference on `buffer`; null when its memory cannot be mapped.
    static std::shared_ptr<NativeBufferImage> create(EGLDisplay display,
                                                     ANativeWindowBuffer* buffer,
                                                     const ImageFormat& format, const Crop& crop,
                                                     bool isProtected);
    ~NativeBufferImage();
    NativeBufferImage(const NativeBufferImage&) = delete;
    NativeBufferImage& operator=(const NativeBufferImage&) = delete;

    EGLDisplay display() const { return mDisplay; }
    const ImageFormat& format() const { return mFormat; }
    const host::BufferLayout& layout() const { return mMemory.layout(); }
    const Crop& crop() const { return mCrop; }
    bool isProtected() const { return mProtected; }
    // The allocation behind the buffer: images of one buffer share it.
    uint64_t bufferId() const { return mMemory.bufferId(); }
    // Expires with the allocation (not held alive by it).
    std::weak_ptr<const void> lifetime() const { return mMemory.lifetime(); }

    // The first byte of the crop rectangle in plane `plane`, and the bytes between its rows.
    uint8_t* planeData(uint32_t plane) const;
    uint32_t rowPitch(uint32_t plane) const { return layout().planes[plane].rowPitch; }
    // Samples (or chroma pairs) per row and rows of the crop rectangle in plane `plane`: the chroma
    // planes of 4:2:0 layouts hold every chroma sample that covers a pixel of the crop.
    uint32_t planeWidth(uint32_t plane) const;
    uint32_t planeHeight(uint32_t plane) const;
    // Maps a texture coordinate of the image (luma) to one of its chroma planes, chroma sited at
    // the midpoint of its 2x2 block: chroma = luma * (x, y) + (z, w).
    void chromaTransform(float outTransform[4]) const;
    // The buffer's dataspace now (GraphicBufferMapper::getDataspace; 0 when it has none).
    int32_t dataspace() const;

    uint64_t contentGeneration() const { return mMemory.contentGeneration(); }
    uint64_t markContentChanged() { return mMemory.markContentChanged(); }

private:
    NativeBufferImage(EGLDisplay display, ANativeWindowBuffer* buffer, const ImageFormat& format,
                      const Crop& crop, bool isProtected);

    const EGLDisplay mDisplay;
    ANativeWindowBuffer* const mBuffer;
    host::BufferMemory mMemory;
    const ImageFormat& mFormat;
    const Crop mCrop;
    const bool mProtected;
};

}  // namespace hostgpu
}  // namespace zel
