/*
 * Rewrites shader text before it reaches the driver, so that the driver compiles what an Android
 * driver with GL_OES_EGL_image_external(_essl3) and GL_EXT_YUV_target would:
 * - external samplers (samplerExternalOES, __samplerExternal2DY2YEXT) become sampler2D, which the
 *   layer binds at draw time to the texture holding the image's pixels (a packed image), or to its
 *   Y plane: for samplers that sample YUV images in a program variant, the declaration is followed
 *   by the extra plane samplers and the sampling function (YuvShaderCode), and calls
 *   texture(name, coord) / texture2D(name, coord) become calls of that function (other lookups,
 *   such as texelFetch, textureLod or arrays of external samplers, read the Y plane only);
 * - with GL_EXT_YUV_target enabled, its built-ins are injected after the last #extension line,
 *   yuvCscStandardEXT becomes int, and the yuv layout qualifier is dropped (rendering into YUV
 *   images goes through an intermediate that the layer packs);
 * - the #extension lines of the extensions the layer implements are blanked.
 *
 * Line numbers in the driver's messages stay right: injected code goes on existing lines (or is
 * followed by a #line directive). Nothing goes before an #extension line, and injected names never
 * contain "__" (reserved in GLSL).
 */
#pragma once

#include <map>
#include <string>
#include <vector>

#include "ImageFormat.h"
#include "YuvConversion.h"
#include "YuvShaderCode.h"

namespace zel {
namespace hostgpu {

struct ExternalSampler {
    enum class Type : uint8_t {
        Oes,  // samplerExternalOES: RGB
        Y2y,  // __samplerExternal2DY2YEXT: raw YUV codes
    };
    std::string name;
    Type type = Type::Oes;
    bool array = false;  // arrays sample packed images only (YUV ones show their Y plane)
};

// How a program variant samples an external sampler bound to a YUV image.
struct YuvSampling {
    ImageLayout layout = ImageLayout::Nv12;
    YuvShaderCode::Output output = YuvShaderCode::Output::Rgb;
    YuvConversion conversion = YuvConversion::Bt601;
};

struct RewrittenShader {
    bool changed = false;
    std::string source;  // the text for the driver when changed
    // Uniforms declared with an external sampler type, in order of declaration.
    std::vector<ExternalSampler> externalSamplers;
    bool yuvOutput = false;  // an output was declared layout(yuv)
};

class ShaderRewriter {
public:
    // `yuvSamplers`: the external samplers (by name) that sample YUV images; the others sample
    // packed images.
    // `textsOnly`: follow the Khronos texts: the YUV_target built-ins offer only the colour
    // standards of the extension's text, and what the texts refuse (an external sampler without
    // its #extension, textureLod of one, yuv with another layout qualifier, an integer for a
    // colour standard) fails to compile.
    static RewrittenShader rewrite(const std::string& source,
                                   const std::map<std::string, YuvSampling>& yuvSamplers = {},
                                   bool textsOnly = false);
};

}  // namespace hostgpu
}  // namespace zel
