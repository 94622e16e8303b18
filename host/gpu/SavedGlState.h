/*
 * GL state the layer changes behind the client's back (to upload or read back buffer pixels),
 * saved on request and restored when the object goes out of scope, so that the client sees its
 * own bindings and pixel-store settings afterwards. Calls the driver directly.
 */
#pragma once

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

private:
    bool mTexture2DSaved = false;
    GLint mTexture2D = 0;
    bool mUnpackSaved = false;
    GLint mUnpack[7] = {};
    bool mPackSaved = false;
    GLint mPack[5] = {};
    bool mReadFramebufferSaved = false;
    GLint mReadFramebuffer = 0;
};

}  // namespace hostgpu
}  // namespace zel
