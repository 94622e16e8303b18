#include "SavedGlState.h"

#include "MesaDriver.h"
#include "YuvPassPrograms.h"

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
    if (mPassSaved) {
        gl.glUseProgram(static_cast<GLuint>(mPass.program));
        gl.glBindVertexArray(static_cast<GLuint>(mPass.vertexArray));
        gl.glBindFramebuffer(GL_DRAW_FRAMEBUFFER, static_cast<GLuint>(mPass.drawFramebuffer));
        gl.glViewport(mPass.viewport[0], mPass.viewport[1], mPass.viewport[2], mPass.viewport[3]);
        auto restore = [&gl](GLenum capability, GLboolean enabled) {
            if (enabled) {
                gl.glEnable(capability);
            } else {
                gl.glDisable(capability);
            }
        };
        restore(GL_SCISSOR_TEST, mPass.scissor);
        restore(GL_CULL_FACE, mPass.cullFace);
        restore(GL_RASTERIZER_DISCARD, mPass.rasterizerDiscard);
        for (GLuint i = 0; i < 2; ++i) {
            if (mPass.blend[i]) {
                gl.glEnablei(GL_BLEND, i);
            }
            const GLboolean* mask = mPass.colorMask[i];
            gl.glColorMaski(i, mask[0], mask[1], mask[2], mask[3]);
        }
        for (uint32_t i = 0; i < mPass.unitCount; ++i) {
            gl.glActiveTexture(YuvPassPrograms::reservedUnit(i));
            gl.glBindTexture(GL_TEXTURE_2D, static_cast<GLuint>(mPass.units[i]));
        }
        gl.glActiveTexture(static_cast<GLenum>(mPass.activeTexture));
    }
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

void SavedGlState::savePassState(uint32_t reservedUnits) {
    const MesaFunctions& gl = mesa();
    if (!mPassSaved) {
        gl.glGetIntegerv(GL_CURRENT_PROGRAM, &mPass.program);
        gl.glGetIntegerv(GL_VERTEX_ARRAY_BINDING, &mPass.vertexArray);
        gl.glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &mPass.drawFramebuffer);
        gl.glGetIntegerv(GL_VIEWPORT, mPass.viewport);
        mPass.scissor = gl.glIsEnabled(GL_SCISSOR_TEST);
        mPass.cullFace = gl.glIsEnabled(GL_CULL_FACE);
        mPass.rasterizerDiscard = gl.glIsEnabled(GL_RASTERIZER_DISCARD);
        for (GLuint i = 0; i < 2; ++i) {
            mPass.blend[i] = gl.glIsEnabledi(GL_BLEND, i);
            gl.glGetBooleani_v(GL_COLOR_WRITEMASK, i, mPass.colorMask[i]);
        }
        gl.glGetIntegerv(GL_ACTIVE_TEXTURE, &mPass.activeTexture);
        mPassSaved = true;
    }
    for (uint32_t i = mPass.unitCount; i < reservedUnits && i < 3; ++i) {
        gl.glActiveTexture(YuvPassPrograms::reservedUnit(i));
        gl.glGetIntegerv(GL_TEXTURE_BINDING_2D, &mPass.units[i]);
        mPass.unitCount = i + 1;
    }
    gl.glDisable(GL_SCISSOR_TEST);
    gl.glDisable(GL_CULL_FACE);
    gl.glDisable(GL_RASTERIZER_DISCARD);
    gl.glDisable(GL_BLEND);
    gl.glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
}

void SavedGlState::saveReadFramebuffer() {
    if (!mReadFramebufferSaved) {
        mesa().glGetIntegerv(GL_READ_FRAMEBUFFER_BINDING, &mReadFramebuffer);
        mReadFramebufferSaved = true;
    }
}

}  // namespace hostgpu
}  // namespace zel
