/*
 * One GL framebuffer object plus one texture name. The conversion pass attaches its destination
 * Image (an EGLImage-backed external texture) as the colour target; allocateBuffers instead gives
 * the framebuffer an RGB texture of its own. An incomplete framebuffer is logged and its status
 * kept for the caller. Everything runs on the renderer's GL thread.
 */
#pragma once

#include <stdint.h>

#include <memory>

#include <GLES3/gl31.h>

#include "Image.h"
#include "Log.h"

namespace kav {
namespace zel {
namespace gl {

class Framebuffer {
public:
    Framebuffer() {
        glGenTextures(1, &mTexture);
        ZEL_CheckGLError(kFramebufferLogFile, __func__, __LINE__);
        glGenFramebuffers(1, &mFramebuffer);
        ZEL_CheckGLError(kFramebufferLogFile, __func__, __LINE__);
    }

    ~Framebuffer() {
        glDeleteTextures(1, &mTexture);
        ZEL_CheckGLError(kFramebufferLogFile, __func__, __LINE__);
        glDeleteFramebuffers(1, &mFramebuffer);
        ZEL_CheckGLError(kFramebufferLogFile, __func__, __LINE__);
    }

    Framebuffer(const Framebuffer&) = delete;
    Framebuffer& operator=(const Framebuffer&) = delete;

    void bind() const {
        glBindFramebuffer(GL_FRAMEBUFFER, mFramebuffer);
        ZEL_CheckGLError(kFramebufferLogFile, __func__, __LINE__);
    }

    void unbind() const {
        glBindFramebuffer(GL_FRAMEBUFFER, 0);
        ZEL_CheckGLError(kFramebufferLogFile, __func__, __LINE__);
    }

    // Attaches the framebuffer's own RGB texture of the given size (|data| may be null).
    void allocateBuffers(uint32_t width, uint32_t height, void* data);

    // Attaches the image's texture as the colour target. The framebuffer is left unbound. A null
    // image attaches nothing.
    void bindTextureImageAsFramebuffer(Image& image);
    // `plainTarget`: through a GL_TEXTURE_2D of the image (OES_EGL_image) rather than its external
    // texture, for an RGBA buffer on a driver that renders into external textures of YUV images
    // only, as GL_EXT_YUV_target has it.
    void bindTextureImageAsFramebuffer(Image& image, bool plainTarget);
    void bindTextureImageAsFramebuffer(const std::shared_ptr<Image>& image);

    // The last glCheckFramebufferStatus result (0 before any attachment).
    GLenum getStatus() const { return mStatus; }
    GLuint getFramebuffer() const { return mFramebuffer; }
    GLuint getTexture() const { return mTexture; }
    uint32_t getWidth() const { return mWidth; }
    uint32_t getHeight() const { return mHeight; }

private:
    static constexpr const char* kFramebufferLogFile = "src/Framebuffer.h";

    GLenum mStatus = 0;
    GLuint mTexture = 0;
    GLuint mFramebuffer = 0;
    uint32_t mHeight = 0;
    uint32_t mWidth = 0;
};

}  // namespace gl
}  // namespace zel
}  // namespace kav
