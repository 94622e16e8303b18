/*
 * The layer's own programs that move YUV images between their planes and the full-resolution
 * intermediate that rendering goes to (YuvShaderCode), one per pass and layout, built on first
 * use and kept by the share group (the driver releases them with the group's last context).
 *
 * A pass draws one triangle over the viewport of the layer's framebuffer with the layer's vertex
 * array; it reads its inputs with texelFetch on reserved texture units (the highest ones, which
 * clients are not expected to use; their bindings are restored by the caller's SavedGlState).
 */
#pragma once

#include <string>

#include <cstdint>
#include <map>

#include "ImageFormat.h"
#include "KhronosApi.h"

namespace zel {
namespace hostgpu {

class YuvPassPrograms;

// GL objects of the current context and its share group that the layer's passes and read-backs
// use, and how packing chooses chroma.
struct PassResources {
    GLuint framebuffer = 0;  // the context's framebuffer for the layer's own use
    GLuint vertexArray = 0;  // the context's vertex array for the layer's own use
    YuvPassPrograms* programs = nullptr;
    bool chromaTopLeft = false;  // pack chroma as the top-left sample of each 2x2 block
};

class YuvPassPrograms {
public:
    enum class Pass : uint8_t {
        Unpack,         // planes -> intermediate
        PackLuma,       // intermediate -> the Y plane
        PackLumaBytes,  // intermediate -> the Y plane's bytes, 4 per RGBA8 texel (see
                        // YuvShaderCode)
        PackChroma,     // intermediate -> the chroma planes
    };

    YuvPassPrograms() = default;
    YuvPassPrograms(const YuvPassPrograms&) = delete;
    YuvPassPrograms& operator=(const YuvPassPrograms&) = delete;

    // Texture unit `index` (0, 1, 2 ...) counted down from the highest one the context offers.
    static GLenum reservedUnit(uint32_t index);
    // Compiles one shader on Mesa; 0 (and the info log on stderr, naming |what|) on failure.
    static GLuint compileShader(GLenum type, const std::string& source, const char* what);

    // Runs `pass` for `layout`: `inputs` bound on reserved units 0.. (planes for Unpack, the
    // intermediate for packing), `outputs` attached as colour attachments 0.. of the resources'
    // framebuffer, which stays bound as the draw framebuffer with its attachments removed
    // afterwards. The caller saves the client's state (SavedGlState::savePassState) and restores
    // it. False when the pass program could not be built.
    bool run(const PassResources& resources, Pass pass, ImageLayout layout, const GLuint* inputs,
             uint32_t inputCount, const GLuint* outputs, uint32_t outputCount, uint32_t width,
             uint32_t height, uint32_t parityX, uint32_t parityY);

private:
    struct Program {
        GLuint name = 0;
        GLint parity = -1;  // location of uParity
    };

    const Program& program(Pass pass, ImageLayout layout, bool topLeft);
    static Program build(Pass pass, ImageLayout layout, bool topLeft);

    std::map<uint32_t, Program> mPrograms;
};

}  // namespace hostgpu
}  // namespace zel
