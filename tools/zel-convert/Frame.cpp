#include "Frame.h"

namespace zel::convert {

Frame::Frame(FrameLayout layout, int width, int height)
    : mLayout(layout), mWidth(width), mHeight(height), mBytes(sizeOf(layout, width, height)) {}

int Frame::bytesPerSample(FrameLayout layout) {
    switch (layout) {
        case FrameLayout::Rgba:
            return 4;
        case FrameLayout::P010:
        case FrameLayout::I010:
            return 2;
        default:
            return 1;
    }
}

size_t Frame::sizeOf(FrameLayout layout, int width, int height) {
    const size_t pixels = static_cast<size_t>(width) * height;
    if (layout == FrameLayout::Rgba) {
        return pixels * 4;
    }
    const size_t chroma = static_cast<size_t>((width + 1) / 2) * ((height + 1) / 2);
    return (pixels + 2 * chroma) * bytesPerSample(layout);
}

YuvPlanes Frame::planes() const {
    YuvPlanes planes;
    const int sample = bytesPerSample(mLayout);
    const size_t chromaWidth = static_cast<size_t>((mWidth + 1) / 2);
    const size_t chromaPlane = chromaWidth * ((mHeight + 1) / 2) * sample;
    uint8_t* y = mBytes.data();
    uint8_t* chroma = y + static_cast<size_t>(mWidth) * mHeight * sample;
    planes.y = y;
    planes.yPitch = static_cast<size_t>(mWidth) * sample;
    switch (mLayout) {
        case FrameLayout::Nv12:
        case FrameLayout::P010:
            planes.cb = chroma;
            planes.cr = chroma + sample;
            planes.cPitch = chromaWidth * 2 * sample;
            planes.chromaStep = 2 * sample;
            planes.highBits = mLayout == FrameLayout::P010;
            break;
        case FrameLayout::Nv21:
            planes.cr = chroma;
            planes.cb = chroma + 1;
            planes.cPitch = chromaWidth * 2;
            planes.chromaStep = 2;
            break;
        case FrameLayout::Yv12:
            planes.cr = chroma;
            planes.cb = chroma + chromaPlane;
            planes.cPitch = chromaWidth;
            break;
        case FrameLayout::I420:
        case FrameLayout::I010:
            planes.cb = chroma;
            planes.cr = chroma + chromaPlane;
            planes.cPitch = chromaWidth * sample;
            planes.chromaStep = sample;
            break;
        case FrameLayout::Rgba:
            planes = YuvPlanes();
            break;
    }
    return planes;
}

}  // namespace zel::convert
