/*
 * Moves frames into and out of graphic buffers through CPU locks, whatever the buffer's strides:
 * the buffer's planes come from the mapper (lock, lockYCbCr), as on a phone. Plane copies,
 * interleaving and 10-bit repacking are libyuv's.
 */
#pragma once

#include <ui/GraphicBuffer.h>

#include "Frame.h"

namespace zel::convert {

class BufferCopier {
public:
    // False when the buffer cannot be locked or the frame does not fit its format.
    static bool upload(const Frame& frame, android::GraphicBuffer& buffer);
    // Fills frame (already sized, in the layout wanted) from the buffer.
    static bool download(android::GraphicBuffer& buffer, Frame& frame);
    // Copies a 4:2:0 picture between plane sets of the same bit depth, interleaving, splitting and
    // moving 10-bit samples between the low and high bits as the two sides need.
    static void copyPlanes(const YuvPlanes& from, const YuvPlanes& to, int width, int height,
                           int sampleBytes);
};

}  // namespace zel::convert
