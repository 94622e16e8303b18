#include "NativeBufferImage.h"

#include <ui/GraphicBufferMapper.h>

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

uint32_t NativeBufferImage::planeWidth(uint32_t plane) const {
    if (plane == 0 || !mFormat.isYuv()) {
        return mCrop.width;
    }
    return ((mCrop.left + mCrop.width + 1) >> 1) - (mCrop.left >> 1);
}

uint32_t NativeBufferImage::planeHeight(uint32_t plane) const {
    if (plane == 0 || !mFormat.isYuv()) {
        return mCrop.height;
    }
    return ((mCrop.top + mCrop.height + 1) >> 1) - (mCrop.top >> 1);
}

void NativeBufferImage::chromaTransform(float outTransform[4]) const {
    // Luma pixel p of the buffer (continuous, crop-relative coordinate t * size + crop origin)
    // lies at p / 2 in chroma samples, counted from the plane's first sample floor(origin / 2).
    const float chromaWidth = static_cast<float>(planeWidth(1));
    const float chromaHeight = static_cast<float>(planeHeight(1));
    outTransform[0] = static_cast<float>(mCrop.width) / (2.0f * chromaWidth);
    outTransform[1] = static_cast<float>(mCrop.height) / (2.0f * chromaHeight);
    outTransform[2] = static_cast<float>(mCrop.left & 1) / (2.0f * chromaWidth);
    outTransform[3] = static_cast<float>(mCrop.top & 1) / (2.0f * chromaHeight);
}

int32_t NativeBufferImage::dataspace() const {
    android::ui::Dataspace dataspace = android::ui::Dataspace::UNKNOWN;
    if (android::GraphicBufferMapper::get().getDataspace(mBuffer->handle, &dataspace) !=
        android::NO_ERROR) {
        return 0;
    }
    return static_cast<int32_t>(dataspace);
}

}  // namespace hostgpu
}  // namespace zel
