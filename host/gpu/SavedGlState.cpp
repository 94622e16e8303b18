#include "SavedGlState.h"

#include "MesaDriver.h"

namespace zel {
namespace hostgpu {

namespace {

constexpr GLenum kUnpackSettings[] = {GL_UNPACK_ROW_LENGTH,   GL_UNPACK_SKIP_ROWS,
                                      GL_UNPACK_SKIP_PIXELS,  GL_UNPACK_ALIGNMENT,
                                      GL_UNPACK_IMAGE_HEIGHT, GL_UNPACK_SKIP_IMAGES};
constexpr GLint kUnpackDefaults[] = {0, 0, 0, 4, 0, 0};
constexpr GLenum kPackSettings[] = {GL_PACK_ROW_LENGTH, GL_PACK_SKIP_ROWS, GL_PACK_SKIP_PIXELS,
                                    GL_PACK_ALIGNMENT};
constexpr GLint kPackDefaults[] = {0, 0, 0, 4};

}  // namespace

SavedGlState::~SavedGlState() {
    const MesaFunctions& gl = mesa();
    if (mReadFramebufferSaved) {
        gl.glBindFramebuffer(GL_READ_FRAMEBUFFER, static_cast<GLuint>(mReadFramebuffer));
    }
    if (mPackSaved) {
        for (size_t i = 0; i < 4; ++i) {
            gl.glPixelStorei(kPackSettings[i], mPack[i]);
        }
        gl.glBindBuffer(GL_PIXEL_PACK_BUFFER, static_cast<GLuint>(mPack[4]));
    }
    if (mUnpackSaved) {
        for (size_t i = 0; i < 6; ++i) {
            gl.glPixelStorei(kUnpackSettings[i], mUnpack[i]);
        }
        gl.glBindBuffer(GL_PIXEL_UNPACK_BUFFER, static_cast<GLuint>(mUnpack[6]));
    }
    if (mTexture2DSaved) {
        gl.glBindTexture(GL_TEXTURE_2D, static_cast<GLuint>(mTexture2D));
    }
}

void SavedGlState::saveTexture2D() {
    if (!mTexture2DSaved) {
        mesa().glGetIntegerv(GL_TEXTURE_BINDING_2D, &mTexture2D);
        mTexture2DSaved = true;
    }
}

void SavedGlState::saveUnpack() {
    const MesaFunctions& gl = mesa();
    if (!mUnpackSaved) {
        for (size_t i = 0; i < 6; ++i) {
            gl.glGetIntegerv(kUnpackSettings[i], &mUnpack[i]);
        }
        gl.glGetIntegerv(GL_PIXEL_UNPACK_BUFFER_BINDING, &mUnpack[6]);
        mUnpackSaved = true;
    }
    for (size_t i = 0; i < 6; ++i) {
        gl.glPixelStorei(kUnpackSettings[i], kUnpackDefaults[i]);
    }
    gl.glBindBuffer(GL_PIXEL_UNPACK_BUFFER, 0);
}

void SavedGlState::savePack() {
    const MesaFunctions& gl = mesa();
    if (!mPackSaved) {
        for (size_t i = 0; i < 4; ++i) {
            gl.glGetIntegerv(kPackSettings[i], &mPack[i]);
        }
        gl.glGetIntegerv(GL_PIXEL_PACK_BUFFER_BINDING, &mPack[4]);
        mPackSaved = true;
    }
    for (size_t i = 0; i < 4; ++i) {
        gl.glPixelStorei(kPackSettings[i], kPackDefaults[i]);
    }
    gl.glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
}

void SavedGlState::saveReadFramebuffer() {
    if (!mReadFramebufferSaved) {
        mesa().glGetIntegerv(GL_READ_FRAMEBUFFER_BINDING, &mReadFramebuffer);
        mReadFramebufferSaved = true;
    }
}

}  // namespace hostgpu
}  // namespace zel
