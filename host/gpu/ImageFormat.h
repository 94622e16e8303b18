/*
 * How the layer holds the pixels of each Android buffer format it imports as an EGLImage: the GL
 * texture that stands for the buffer on the GPU, and how buffer memory is copied into it (upload)
 * and back (write-back).
 *
 * Packed RGB formats are one texture of whole pixels. YUV formats will add planes (one texture
 * per plane of the buffer layout) and a sampling function that the shader rewriter injects.
 */
#pragma once

#include <cstdint>

#include "KhronosApi.h"

namespace zel {
namespace hostgpu {

struct ImageFormat {
    enum class Kind {
        Packed,  // one plane of whole pixels, sampled as stored
    };

    uint32_t halFormat;
    Kind kind;
    GLenum internalFormat;  // of the texture that holds the pixels
    GLenum format;          // client-memory format and type of uploads and write-backs
    GLenum type;
    uint32_t bytesPerPixel;
    bool opaque;  // alpha samples as 1 whatever memory holds (RGBX)

    // The description of `halFormat`, or null when the layer cannot import it yet.
    static const ImageFormat* find(uint32_t halFormat);
};

}  // namespace hostgpu
}  // namespace zel
