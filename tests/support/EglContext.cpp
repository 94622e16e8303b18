#include "EglContext.h"

#include <EGL/eglext.h>

namespace zel {
namespace test {

EglContext::EglContext(int clientVersion) {
    mDisplay = eglGetDisplay(EGL_DEFAULT_DISPLAY);
    if (mDisplay == EGL_NO_DISPLAY || !eglInitialize(mDisplay, nullptr, nullptr)) {
        mFailure = "no EGL display";
        mDisplay = EGL_NO_DISPLAY;
        return;
    }
    eglBindAPI(EGL_OPENGL_ES_API);
    const EGLint attribs[] = {EGL_CONTEXT_CLIENT_VERSION, clientVersion, EGL_NONE};
    mContext = eglCreateContext(mDisplay, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, attribs);
    if (mContext == EGL_NO_CONTEXT) {
        mFailure = "eglCreateContext failed";
        return;
    }
    mCurrent = eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, mContext);
    if (!mCurrent) {
        mFailure = "eglMakeCurrent failed";
    }
}

EglContext::~EglContext() {
    if (mDisplay == EGL_NO_DISPLAY) {
        return;
    }
    if (mCurrent) {
        eglMakeCurrent(mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    }
    if (mContext != EGL_NO_CONTEXT) {
        eglDestroyContext(mDisplay, mContext);
    }
    eglTerminate(mDisplay);
}

}  // namespace test
}  // namespace zel
