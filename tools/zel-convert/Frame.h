/*
 * One frame in memory, its samples laid out as in a raw file (planes one after the other, rows
 * without padding), plus where each plane starts.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "PixelFormat.h"

namespace zel::convert {

// The planes of a 4:2:0 picture wherever they live (a frame, a locked graphic buffer).
struct YuvPlanes {
    uint8_t* y = nullptr;
    uint8_t* cb = nullptr;
    uint8_t* cr = nullptr;
    size_t yPitch = 0;      // bytes
    size_t cPitch = 0;      // bytes
    int chromaStep = 1;     // bytes between horizontal chroma neighbours: sample size, or twice it
    bool highBits = false;  // 16-bit samples keep their 10 bits in bits 15..6 (P010)
};

class Frame {
public:
    Frame() = default;
    Frame(FrameLayout layout, int width, int height);

    // Bytes of a frame of this layout and size.
    static size_t sizeOf(FrameLayout layout, int width, int height);
    static int bytesPerSample(FrameLayout layout);

    FrameLayout layout() const { return mLayout; }
    int width() const { return mWidth; }
    int height() const { return mHeight; }
    uint8_t* data() { return mBytes.data(); }
    const uint8_t* data() const { return mBytes.data(); }
    size_t size() const { return mBytes.size(); }
    // The planes of a YUV frame (the Rgba layout has none).
    YuvPlanes planes() const;

private:
    FrameLayout mLayout = FrameLayout::Rgba;
    int mWidth = 0;
    int mHeight = 0;
    mutable std::vector<uint8_t> mBytes;
};

}  // namespace zel::convert
