/*
 * How the layer holds the pixels of each Android buffer format it imports as an EGLImage: the GL
 * textures that stand for the buffer on the GPU (one per plane of the buffer's memory layout), and
 * how buffer memory is copied into them (upload) and back (write-back).
 *
 * Packed RGB formats are one texture of whole pixels, sampled and rendered as stored. YUV formats
 * are one texture per plane, in the order of the host layout (<zel/host/Gralloc.h>): semi-planar
 * Y then the interleaved chroma pairs (R8 + RG8, or R16 + RG16 for P010), planar Y then Cr then Cb
 * (three R8). Shaders sample them through a function that the shader rewriter injects; rendering
 * goes to a full-resolution intermediate that the write-back packs into the planes.
 */
#pragma once

#include <cstdint>

#include "KhronosApi.h"

namespace zel {
namespace hostgpu {

// The memory layouts the sampling functions and the packing passes know. The values are part of
// the program variant keys.
enum class ImageLayout : uint8_t {
    Rgba,  // one plane of whole pixels
    Nv12,  // Y, then Cb,Cr pairs (8 bit)
    Nv21,  // Y, then Cr,Cb pairs (8 bit)
    P010,  // Y, then Cb,Cr pairs, 16-bit containers holding 10 bits in bits 15..6
    Yv12,  // Y, then a Cr plane, then a Cb plane (8 bit)
};

struct PlaneFormat {
    GLenum internalFormat;  // of the texture that holds the plane
    GLenum format;          // client-memory format and type of uploads and write-backs
    GLenum type;
    uint32_t bytesPerTexel;
};

struct ImageFormat {
    uint32_t halFormat;
    ImageLayout layout;
    bool opaque;  // alpha samples as 1 whatever memory holds (RGBX)
    uint32_t planeCount;
    PlaneFormat planes[3];

    bool isYuv() const { return layout != ImageLayout::Rgba; }
    // The format of the full-resolution texture that rendering into a YUV image goes to: its
    // red, green and blue hold Y, Cb and Cr with at least the bits of the buffer's samples.
    GLenum intermediateFormat() const {
        return layout == ImageLayout::P010 ? GL_RGB10_A2 : GL_RGBA8;
    }

    // The description of `halFormat`, or null when the layer cannot import it.
    static const ImageFormat* find(uint32_t halFormat);
};

}  // namespace hostgpu
}  // namespace zel
