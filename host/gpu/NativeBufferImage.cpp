#include "NativeBufferImage.h"

#include "Counters.h"

namespace zel {
namespace hostgpu {

std::shared_ptr<NativeBufferImage> NativeBufferImage::create(EGLDisplay display,
                                                             ANativeWindowBuffer* buffer,
                                                             const ImageFormat& format,
                                                             const Crop& crop, bool isProtected) {
    std::shared_ptr<NativeBufferImage> image(
        new NativeBufferImage(display, buffer, format, crop, isProtected));
    if (!image->mMemory.valid()) {
        return nullptr;
    }
    return image;
}

NativeBufferImage::NativeBufferImage(EGLDisplay display, ANativeWindowBuffer* buffer,
                                     const ImageFormat& format, const Crop& crop, bool isProtected)
    : mDisplay(display),
      mBuffer(buffer),
      mMemory(buffer->handle),
      mFormat(format),
      mCrop(crop),
      mProtected(isProtected) {
    if (mBuffer->common.incRef != nullptr) {
        mBuffer->common.incRef(&mBuffer->common);
    }
    Counters::add(Counter::ImagesAlive);
}

NativeBufferImage::~NativeBufferImage() {
    Counters::add(Counter::ImagesAlive, -1);
    if (mBuffer->common.decRef != nullptr) {
        mBuffer->common.decRef(&mBuffer->common);
    }
}

uint8_t* NativeBufferImage::planeData(uint32_t plane) const {
    const host::PlaneLayout& layout = mMemory.layout().planes[plane];
    // The chroma planes of 4:2:0 layouts have half the resolution.
    const uint32_t shift = plane > 0 && mMemory.layout().isYuv() ? 1 : 0;
    return mMemory.data() + layout.offset +
           static_cast<size_t>(mCrop.top >> shift) * layout.rowPitch +
           static_cast<size_t>(mCrop.left >> shift) * layout.sampleBytes;
}

}  // namespace hostgpu
}  // namespace zel
