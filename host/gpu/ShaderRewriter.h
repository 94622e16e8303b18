/*
 * Rewrites shader text before it reaches the driver, so that the driver compiles what an Android
 * driver would: external samplers (samplerExternalOES) become sampler2D, which the layer binds to
 * the texture holding the image's pixels at draw time, and the #extension lines of the extensions
 * the layer implements are blanked (line numbers in the driver's messages stay right).
 *
 * Anything the rewriting adds must go after the last #extension line (anything before one is a
 * compile error), and names it adds must not contain "__" (reserved in GLSL).
 */
#pragma once

#include <string>
#include <vector>

namespace zel {
namespace hostgpu {

struct RewrittenShader {
    bool changed = false;
    std::string source;  // the text for the driver when changed
    // Uniforms declared samplerExternalOES, in order of declaration.
    std::vector<std::string> externalSamplers;
};

class ShaderRewriter {
public:
    static RewrittenShader rewrite(const std::string& source);
};

}  // namespace hostgpu
}  // namespace zel
