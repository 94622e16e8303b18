/*
 * One Android buffer bound to GL: an EGLImage made from the buffer plus one texture name through
 * which it is sampled as GL_TEXTURE_EXTERNAL_OES (or attached as a colour target by
 * gl::Framebuffer). The conversion pass builds short-lived Images for one frame; the image cache
 * keeps Images keyed by buffer id across frames. Everything here runs on the thread whose EGL
 * context is current.
 */
#pragma once

#include <stdint.h>

#include <mutex>
#include <vector>

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES2/gl2.h>
#include <GLES2/gl2ext.h>
#include <system/window.h>
#include <ui/Rect.h>

#include "Extensions.h"
#include "Log.h"
#include "ScopedTrace.h"

namespace kav {
namespace zel {

class Image {
public:
    Image(EGLDisplay display, uint64_t bufferId)
        : mBufferId(bufferId), mDisplay(display), mImage(EGL_NO_IMAGE_KHR), mProtected(false) {
        ZEL_LOGD("constructor %lu", static_cast<unsigned long>(mBufferId));
        glGenTextures(1, &mTexture);
        ZEL_CheckGLError(kImageLogFile, __func__, __LINE__);
        ZEL_LOGD("Gen Textures: %d", mTexture);
    }

    ~Image() {
        ZEL_LOGD("deconstructor %lu", static_cast<unsigned long>(mBufferId));
        ZEL_LOGD("Del Textures: %d", mTexture);
        // The textures go first, then the EGLImage they were targeted on.
        glDeleteTextures(1, &mTexture);
        ZEL_CheckGLError(kImageLogFile, __func__, __LINE__);
        if (mTexture2D != 0) {
            glDeleteTextures(1, &mTexture2D);
            ZEL_CheckGLError(kImageLogFile, __func__, __LINE__);
        }
        setNativeWindowBuffer(nullptr, android::Rect::INVALID_RECT, false);
        ZEL_LOGD("done deconstructor %lu", static_cast<unsigned long>(mBufferId));
    }

    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;

    // Attaches the Image to |buffer| (destroying the EGLImage it had), or only detaches it when
    // |buffer| is null. A crop with right < left or bottom < top (INVALID_RECT) means no crop.
    bool setNativeWindowBuffer(ANativeWindowBuffer* buffer, const android::Rect& crop,
                               bool protectedContent) {
        ZEL_TRACE_NAME("setNativeWindowBuffer");
        if (mImage != EGL_NO_IMAGE_KHR) {
            ZEL_LOGD("angry if you destroy my image, buffer id: %lu",
                     static_cast<unsigned long>(mBufferId));
            const EGLBoolean destroyed = eglDestroyImageKHR(mDisplay, mImage);
            const EGLint error = checkEglErrorCode(kImageLogFile, __func__, __LINE__);
            if (destroyed == EGL_FALSE) {
                ZEL_LOGE("failed to destroy image: %#x", error);
            }
            mImage = EGL_NO_IMAGE_KHR;
        }
        if (buffer == nullptr) {
            return true;
        }

        std::vector<EGLint> attrs;
        attrs.reserve(13);
        attrs.insert(attrs.end(), {EGL_IMAGE_PRESERVED_KHR, EGL_TRUE});
        if (crop.right >= crop.left && crop.bottom >= crop.top) {
            ZEL_LOGD("image crop (%d,%d,%d,%d)", crop.left, crop.top, crop.right, crop.bottom);
            attrs.insert(attrs.end(),
                         {EGL_IMAGE_CROP_LEFT_ANDROID, crop.left, EGL_IMAGE_CROP_TOP_ANDROID,
                          crop.top, EGL_IMAGE_CROP_RIGHT_ANDROID, crop.right,
                          EGL_IMAGE_CROP_BOTTOM_ANDROID, crop.bottom});
        }
        if (protectedContent && gl::Extensions::getInstance().hasProtectedContent()) {
            attrs.insert(attrs.end(), {EGL_PROTECTED_CONTENT_EXT, EGL_TRUE});
        }
        attrs.push_back(EGL_NONE);

        EGLint error = EGL_SUCCESS;
        {
            ZEL_TRACE_NAME("eglCreateImageKHR");
            ZEL_LOGD("eglCreateImageKHR, buffer id: %lu", static_cast<unsigned long>(mBufferId));
            mImage = eglCreateImageKHR(mDisplay, EGL_NO_CONTEXT, EGL_NATIVE_BUFFER_ANDROID,
                                       static_cast<EGLClientBuffer>(buffer), attrs.data());
            error = checkEglErrorCode(kImageLogFile, __func__, __LINE__);
        }
        if (mImage == EGL_NO_IMAGE_KHR) {
            ZEL_LOGE("failed to create EGLImage: %#x", error);
            return false;
        }
        // Recorded even when the driver lacks protected content and the attribute was left out.
        mProtected = protectedContent;
        return true;
    }

    // Binds the buffer to this Image's texture on |textureUnit| (GL_TEXTURE0 + n), re-targeting
    // the EGLImage on every call.
    bool bindTextureImage(GLenum textureUnit) {
        ZEL_TRACE_NAME("bindTextureImage");
        if (mImage == EGL_NO_IMAGE_KHR) {
            ZEL_LOGE("bindTextureImage get EGL_NO_IMAGE_KHR");
            return false;
        }
        glActiveTexture(textureUnit);
        ZEL_CheckGLError(kImageLogFile, __func__, __LINE__);
        glBindTexture(GL_TEXTURE_EXTERNAL_OES, mTexture);
        ZEL_CheckGLError(kImageLogFile, __func__, __LINE__);
        glEGLImageTargetTexture2DOES(GL_TEXTURE_EXTERNAL_OES, static_cast<GLeglImageOES>(mImage));
        ZEL_CheckGLError(kImageLogFile, __func__, __LINE__);
        glTexParameteri(GL_TEXTURE_EXTERNAL_OES, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        ZEL_CheckGLError(kImageLogFile, __func__, __LINE__);
        glTexParameteri(GL_TEXTURE_EXTERNAL_OES, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
        ZEL_CheckGLError(kImageLogFile, __func__, __LINE__);
        glTexParameteri(GL_TEXTURE_EXTERNAL_OES, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        ZEL_CheckGLError(kImageLogFile, __func__, __LINE__);
        glTexParameteri(GL_TEXTURE_EXTERNAL_OES, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
        ZEL_CheckGLError(kImageLogFile, __func__, __LINE__);
        return true;
    }

    // The EGLImage targeted onto a GL_TEXTURE_2D of its own (OES_EGL_image), made on first use:
    // how an RGBA buffer becomes a render target on a driver that takes external textures as
    // render targets for YUV images only. 0 when the driver refuses.
    GLuint bindTexture2D() {
        if (mImage == EGL_NO_IMAGE_KHR) {
            return 0;
        }
        if (mTexture2D == 0) {
            glGenTextures(1, &mTexture2D);
            ZEL_CheckGLError(kImageLogFile, __func__, __LINE__);
        }
        glBindTexture(GL_TEXTURE_2D, mTexture2D);
        glEGLImageTargetTexture2DOES(GL_TEXTURE_2D, static_cast<GLeglImageOES>(mImage));
        const GLenum error = glGetError();
        glBindTexture(GL_TEXTURE_2D, 0);
        if (error != GL_NO_ERROR) {
            ZEL_LOGE("GL_TEXTURE_2D does not take the image: %#x", error);
            return 0;
        }
        return mTexture2D;
    }

    uint64_t getBufferId() const { return mBufferId; }
    GLuint getTexture() const { return mTexture; }
    EGLImageKHR getEGLImage() const { return mImage; }
    bool isProtected() const { return mProtected; }

private:
    static constexpr const char* kImageLogFile = "src/Image.h";

    uint64_t mBufferId;
    EGLDisplay mDisplay;
    std::mutex mLock;  // kept for owners that share an Image; none of its own operations take it
    EGLImageKHR mImage;
    GLuint mTexture = 0;
    GLuint mTexture2D = 0;  // see bindTexture2D()
    bool mProtected;
};

}  // namespace zel
}  // namespace kav
