#include "Framebuffer.h"

#include <GLES2/gl2ext.h>

#include "ScopedTrace.h"

namespace kav {
namespace zel {
namespace gl {

namespace {

constexpr const char kLogFile[] = "src/Framebuffer";

}  // namespace

void Framebuffer::allocateBuffers(uint32_t width, uint32_t height, void* data) {
    ZEL_TRACE_NAME("allocateBuffers");
    glBindTexture(GL_TEXTURE_2D, mTexture);
    ZEL_CHECK_GL();
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGB, static_cast<GLsizei>(width),
                 static_cast<GLsizei>(height), 0, GL_RGB, GL_UNSIGNED_BYTE, data);
    ZEL_CHECK_GL();
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    ZEL_CHECK_GL();
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    ZEL_CHECK_GL();
    // GL refuses GL_LINEAR as a wrap mode; the checks log it and the defaults stay.
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_LINEAR);
    ZEL_CHECK_GL();
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_LINEAR);
    ZEL_CHECK_GL();

    mHeight = height;
    mWidth = width;
    bind();
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, mTexture, 0);
    ZEL_CHECK_GL();
    mStatus = glCheckFramebufferStatus(GL_FRAMEBUFFER);
    ZEL_CHECK_GL();
    unbind();
    glBindTexture(GL_TEXTURE_2D, 0);
    ZEL_CHECK_GL();

    if (mStatus != GL_FRAMEBUFFER_COMPLETE) {
        ZEL_LOGE("Frame buffer is not complete. Error %d", mStatus);
    }
}

void Framebuffer::bindTextureImageAsFramebuffer(Image& image, bool plainTarget) {
    if (!plainTarget) {
        bindTextureImageAsFramebuffer(image);
        return;
    }
    ZEL_TRACE_NAME("bindTextureImageAsFramebuffer");
    const GLuint texture = image.bindTexture2D();
    bind();
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture, 0);
    ZEL_CHECK_GL();
    mStatus = glCheckFramebufferStatus(GL_FRAMEBUFFER);
    ZEL_CHECK_GL();
    unbind();
    if (mStatus != GL_FRAMEBUFFER_COMPLETE) {
        ZEL_LOGE("Frame buffer is not complete. Error %d", mStatus);
    }
}

void Framebuffer::bindTextureImageAsFramebuffer(Image& image) {
    ZEL_TRACE_NAME("bindTextureImageAsFramebuffer");
    const GLuint texture = image.getTexture();
    glBindTexture(GL_TEXTURE_EXTERNAL_OES, texture);
    ZEL_CHECK_GL();
    bind();
    {
        ZEL_TRACE_NAME("glFramebufferTexture2D");
        glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_EXTERNAL_OES,
                               texture, 0);
        ZEL_CHECK_GL();
    }
    mStatus = glCheckFramebufferStatus(GL_FRAMEBUFFER);
    ZEL_CHECK_GL();
    unbind();
    glBindTexture(GL_TEXTURE_EXTERNAL_OES, 0);
    ZEL_CHECK_GL();

    if (mStatus != GL_FRAMEBUFFER_COMPLETE) {
        ZEL_LOGE("Frame buffer is not complete. Error %d", mStatus);
    }
}

void Framebuffer::bindTextureImageAsFramebuffer(const std::shared_ptr<Image>& image) {
    ZEL_LOGD1("bindTextureImageAsFramebuffer image:%p", image.get());
    if (image == nullptr) {
        return;
    }
    bindTextureImageAsFramebuffer(*image);
}

}  // namespace gl
}  // namespace zel
}  // namespace kav
