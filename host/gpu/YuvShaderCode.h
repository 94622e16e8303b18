/*
 * GLSL that the layer writes for YUV images:
 * - the GL_EXT_YUV_target built-ins (yuvCscStandardEXT constants, rgb_2_yuv, yuv_2_rgb), injected
 *   into shaders that enable the extension;
 * - the sampling function that stands for an external sampler bound to a YUV image in a program
 *   variant: extra per-plane samplers and a chroma transform uniform, and a function that samples
 *   every plane (chroma sited at the midpoint, the texture's filter) and converts or not;
 * - the layer's own passes: unpacking the planes into the full-resolution intermediate that
 *   rendering goes to, and packing the intermediate back into the planes.
 *
 * Injected names start with "zelYuv" and never contain "__" (reserved in GLSL). Snippets meant for
 * client shaders hold no newline, so that the client's line numbers stay right.
 */
#pragma once

#include <string>

#include "ImageFormat.h"
#include "YuvConversion.h"

namespace zel {
namespace hostgpu {

class YuvShaderCode {
public:
    // How an external sampler bound to a YUV image returns its samples.
    enum class Output : uint8_t {
        Rgb,  // converted to RGB (the conversion's), clamped to [0,1], alpha 1: samplerExternalOES
        Raw,  // the normalised codes (Y, Cb, Cr, 1): __samplerExternal2DY2YEXT
    };

    // The built-ins of GL_EXT_YUV_target (ESSL 3.00 and later), one line. `textsOnly`: only the
    // colour standards the extension defines (itu_601, itu_601_full_range, itu_709), not the
    // phone drivers' further ones (itu_709_full_range, itu_2020, itu_2020_full_range).
    static std::string builtIns(bool textsOnly = false);

    // Declarations and functions that follow the declaration of the external sampler `name` (one
    // line). `essl3`: the shader is ESSL 3.00 or later (texture() rather than texture2D()).
    static std::string samplingCode(const std::string& name, ImageLayout layout, Output output,
                                    YuvConversion conversion, bool essl3);
    // The function that replaces texture(name, ...) calls, and the uniforms the layer sets.
    static std::string samplingFunction(const std::string& name);
    // Extra plane `plane` (1 or 2) of `name`.
    static std::string planeSampler(const std::string& name, uint32_t plane);
    static std::string chromaTransform(const std::string& name);

    // The passes between the planes and the intermediate: a vertex shader that covers the
    // viewport with one triangle (three vertices, no attributes) and the fragment shaders.
    // Unpack: uniforms uPlane0..2 (the planes), uParity (crop origin & 1); writes (Y, Cb, Cr, 1).
    // Pack luma: uSource (the intermediate); writes plane 0. Pack chroma: uSource, uParity; writes
    // the chroma planes (P010: the RG16 plane, then its bytes as RGBA8 for the read-back).
    static const char* passVertexShader();
    static std::string unpackShader(ImageLayout layout);
    static std::string packLumaShader(ImageLayout layout);
    // Pack luma into the memory bytes of the Y plane, four per RGBA8 texel (four 8-bit samples or
    // two 16-bit ones), which reads back as they are; a quarter (a half) of the fragments. For
    // widths that are a multiple of 4 (of 2 for P010).
    static std::string packLumaBytesShader(ImageLayout layout);
    // Luma samples per texel of packLumaBytesShader.
    static uint32_t lumaSamplesPerByteTexel(ImageLayout layout) {
        return layout == ImageLayout::P010 ? 2 : 4;
    }
    static std::string packChromaShader(ImageLayout layout, bool topLeftSample);

private:
    static std::string prefixed(const char* prefix, const std::string& name);
};

}  // namespace hostgpu
}  // namespace zel
