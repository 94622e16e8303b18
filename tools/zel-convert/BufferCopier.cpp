#include "BufferCopier.h"

#include <algorithm>

#include <hardware/gralloc.h>
#include <libyuv/planar_functions.h>
#include <system/graphics.h>

namespace zel::convert {

namespace {

constexpr int kTenBits = 10;

const uint16_t* words(const uint8_t* bytes) {
    return reinterpret_cast<const uint16_t*>(bytes);
}
uint16_t* words(uint8_t* bytes) {
    return reinterpret_cast<uint16_t*>(bytes);
}

// The planes of a locked YUV buffer.
YuvPlanes planesOf(const android_ycbcr& ycbcr, int32_t format) {
    YuvPlanes planes;
    planes.y = static_cast<uint8_t*>(ycbcr.y);
    planes.cb = static_cast<uint8_t*>(ycbcr.cb);
    planes.cr = static_cast<uint8_t*>(ycbcr.cr);
    planes.yPitch = ycbcr.ystride;
    planes.cPitch = ycbcr.cstride;
    planes.chromaStep = static_cast<int>(ycbcr.chroma_step);
    planes.highBits = format == HAL_PIXEL_FORMAT_YCBCR_P010;
    return planes;
}

// A CPU lock of a graphic buffer for the life of the object.
class CpuLock {
public:
    CpuLock(android::GraphicBuffer& buffer, uint32_t usage, bool yuv) : mBuffer(buffer) {
        mOk = (yuv ? buffer.lockYCbCr(usage, &mYcbcr) : buffer.lock(usage, &mPixels)) ==
              android::NO_ERROR;
    }
    ~CpuLock() {
        if (mOk) {
            mBuffer.unlock();
        }
    }
    CpuLock(const CpuLock&) = delete;
    CpuLock& operator=(const CpuLock&) = delete;

    bool ok() const { return mOk; }
    uint8_t* pixels() const { return static_cast<uint8_t*>(mPixels); }
    const android_ycbcr& ycbcr() const { return mYcbcr; }

private:
    android::GraphicBuffer& mBuffer;
    bool mOk = false;
    void* mPixels = nullptr;
    android_ycbcr mYcbcr = {};
};

bool fits(const Frame& frame, android::GraphicBuffer& buffer) {
    const bool yuvFrame = frame.layout() != FrameLayout::Rgba;
    const bool yuvBuffer = buffer.getPixelFormat() != HAL_PIXEL_FORMAT_RGBA_8888;
    const bool tenBitFrame = Frame::bytesPerSample(frame.layout()) == 2;
    const bool tenBitBuffer = buffer.getPixelFormat() == HAL_PIXEL_FORMAT_YCBCR_P010;
    return frame.width() == static_cast<int>(buffer.getWidth()) &&
           frame.height() == static_cast<int>(buffer.getHeight()) && yuvFrame == yuvBuffer &&
           (!yuvFrame || tenBitFrame == tenBitBuffer);
}

}  // namespace

void BufferCopier::copyPlanes(const YuvPlanes& from, const YuvPlanes& to, int width, int height,
                              int sampleBytes) {
    const int fromPitch = static_cast<int>(from.yPitch);
    const int toPitch = static_cast<int>(to.yPitch);
    if (sampleBytes == 1 || from.highBits == to.highBits) {
        libyuv::CopyPlane(from.y, fromPitch, to.y, toPitch, width * sampleBytes, height);
    } else if (to.highBits) {
        libyuv::ConvertToMSBPlane_16(words(from.y), fromPitch / 2, words(to.y), toPitch / 2, width,
                                     height, kTenBits);
    } else {
        libyuv::ConvertToLSBPlane_16(words(from.y), fromPitch / 2, words(to.y), toPitch / 2, width,
                                     height, kTenBits);
    }

    const int chromaWidth = (width + 1) / 2;
    const int chromaHeight = (height + 1) / 2;
    const int fromC = static_cast<int>(from.cPitch);
    const int toC = static_cast<int>(to.cPitch);
    const bool fromPairs = from.chromaStep == 2 * sampleBytes;
    const bool toPairs = to.chromaStep == 2 * sampleBytes;
    if (fromPairs && toPairs) {
        const uint8_t* fromBase = std::min(from.cb, from.cr);
        uint8_t* toBase = std::min(to.cb, to.cr);
        if ((from.cb < from.cr) == (to.cb < to.cr)) {
            libyuv::CopyPlane(fromBase, fromC, toBase, toC, chromaWidth * 2 * sampleBytes,
                              chromaHeight);
        } else {
            libyuv::SwapUVPlane(fromBase, fromC, toBase, toC, chromaWidth, chromaHeight);
        }
    } else if (toPairs) {
        // Separate planes into pairs: the pair order follows the destination.
        const bool cbFirst = to.cb < to.cr;
        const uint8_t* first = cbFirst ? from.cb : from.cr;
        const uint8_t* second = cbFirst ? from.cr : from.cb;
        uint8_t* base = std::min(to.cb, to.cr);
        if (sampleBytes == 1) {
            libyuv::MergeUVPlane(first, fromC, second, fromC, base, toC, chromaWidth, chromaHeight);
        } else {
            libyuv::MergeUVPlane_16(words(first), fromC / 2, words(second), fromC / 2, words(base),
                                    toC / 2, chromaWidth, chromaHeight, kTenBits);
        }
    } else if (fromPairs) {
        const bool cbFirst = from.cb < from.cr;
        uint8_t* first = cbFirst ? to.cb : to.cr;
        uint8_t* second = cbFirst ? to.cr : to.cb;
        const uint8_t* base = std::min(from.cb, from.cr);
        if (sampleBytes == 1) {
            libyuv::SplitUVPlane(base, fromC, first, toC, second, toC, chromaWidth, chromaHeight);
        } else {
            libyuv::SplitUVPlane_16(words(base), fromC / 2, words(first), toC / 2, words(second),
                                    toC / 2, chromaWidth, chromaHeight, kTenBits);
        }
    } else {
        libyuv::CopyPlane(from.cb, fromC, to.cb, toC, chromaWidth * sampleBytes, chromaHeight);
        libyuv::CopyPlane(from.cr, fromC, to.cr, toC, chromaWidth * sampleBytes, chromaHeight);
    }
}

bool BufferCopier::upload(const Frame& frame, android::GraphicBuffer& buffer) {
    if (!fits(frame, buffer)) {
        return false;
    }
    const bool yuv = frame.layout() != FrameLayout::Rgba;
    CpuLock lock(buffer, GRALLOC_USAGE_SW_WRITE_OFTEN, yuv);
    if (!lock.ok()) {
        return false;
    }
    if (!yuv) {
        libyuv::CopyPlane(frame.data(), frame.width() * 4, lock.pixels(),
                          static_cast<int>(buffer.getStride()) * 4, frame.width() * 4,
                          frame.height());
        return true;
    }
    copyPlanes(frame.planes(), planesOf(lock.ycbcr(), buffer.getPixelFormat()), frame.width(),
               frame.height(), Frame::bytesPerSample(frame.layout()));
    return true;
}

bool BufferCopier::download(android::GraphicBuffer& buffer, Frame& frame) {
    if (!fits(frame, buffer)) {
        return false;
    }
    const bool yuv = frame.layout() != FrameLayout::Rgba;
    CpuLock lock(buffer, GRALLOC_USAGE_SW_READ_OFTEN, yuv);
    if (!lock.ok()) {
        return false;
    }
    if (!yuv) {
        libyuv::CopyPlane(lock.pixels(), static_cast<int>(buffer.getStride()) * 4, frame.data(),
                          frame.width() * 4, frame.width() * 4, frame.height());
        return true;
    }
    copyPlanes(planesOf(lock.ycbcr(), buffer.getPixelFormat()), frame.planes(), frame.width(),
               frame.height(), Frame::bytesPerSample(frame.layout()));
    return true;
}

}  // namespace zel::convert
