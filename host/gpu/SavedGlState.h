/*
 * GL state the layer changes behind the client's back (to upload or read back buffer pixels),
 * saved on request and restored when the object goes out of scope, so that the client sees its
 * own bindings and pixel-store settings afterwards. Calls the driver directly.
 */
#pragma once

#include <cstdint>

#include "KhronosApi.h"

namespace zel {
namespace hostgpu {

class SavedGlState {
public:
    SavedGlState() = default;
    ~SavedGlState();
    SavedGlState(const SavedGlState&) = delete;
    SavedGlState& operator=(const SavedGlState&) = delete;

    // The GL_TEXTURE_2D binding of the active unit.
    void saveTexture2D();
    // The unpack settings and unpack buffer; then sets tight defaults for client memory.
    void saveUnpack();
    // The pack settings and pack buffer; then sets tight defaults for client memory.
    void savePack();
    // The read framebuffer binding.
    void saveReadFramebuffer();
    // What the layer's passes (YuvPassPrograms) change: the program, vertex array, draw
    // framebuffer, viewport, scissor, blending, culling and rasterizer discard (then turned off),
    // colour masks (then all on), the active unit and the GL_TEXTURE_2D bindings of the first
    // `reservedUnits` reserved units.
    void savePassState(uint32_t reservedUnits);

private:
    bool mTexture2DSaved = false;
    GLint mTexture2D = 0;
    bool mUnpackSaved = false;
    GLint mUnpack[7] = {};
    bool mPackSaved = false;
    GLint mPack[5] = {};
    bool mReadFramebufferSaved = false;
    GLint mReadFramebuffer = 0;

    struct PassState {
        GLint program = 0;
        GLint vertexArray = 0;
        GLint drawFramebuffer = 0;
        GLint viewport[4] = {};
        GLboolean scissor = GL_FALSE;
        GLboolean blend[2] = {};
        GLboolean cullFace = GL_FALSE;
        GLboolean rasterizerDiscard = GL_FALSE;
        GLboolean colorMask[2][4] = {};
        GLint activeTexture = GL_TEXTURE0;
        uint32_t unitCount = 0;
        GLint units[3] = {};
    };
    bool mPassSaved = false;
    PassState mPass;
};

}  // namespace hostgpu
}  // namespace zel
