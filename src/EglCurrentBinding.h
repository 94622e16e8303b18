/*
 * What a thread has current in EGL: display, draw and read surfaces, and context. Renderer
 * creation and destruction save it before they touch anything, so that another renderer whose
 * context was current on the same thread finds it current again afterwards.
 */
#pragma once

#include <EGL/egl.h>

#include "Log.h"

namespace kav {
namespace zel {

class EglCurrentBinding {
public:
    // The calling thread's binding now.
    static EglCurrentBinding ofThisThread() {
        EglCurrentBinding binding;
        binding.mDisplay = eglGetCurrentDisplay();
        binding.mDraw = eglGetCurrentSurface(EGL_DRAW);
        binding.mRead = eglGetCurrentSurface(EGL_READ);
        binding.mContext = eglGetCurrentContext();
        return binding;
    }

    EGLContext context() const { return mContext; }

    // Makes this binding current again on the calling thread, or releases whatever is current
    // when there was none. Nothing is called when it is current already.
    void restore() const {
        const EglCurrentBinding now = ofThisThread();
        if (now.mContext == mContext && now.mDraw == mDraw && now.mRead == mRead) {
            return;
        }
        if (mContext != EGL_NO_CONTEXT) {
            eglMakeCurrent(mDisplay, mDraw, mRead, mContext);
        } else {
            eglMakeCurrent(now.mDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        }
        ZEL_CheckEGLError(kBindingLogFile, __func__, __LINE__);
    }

private:
    static constexpr const char* kBindingLogFile = "src/EglCurrentBinding.h";

    EGLDisplay mDisplay = EGL_NO_DISPLAY;
    EGLSurface mDraw = EGL_NO_SURFACE;
    EGLSurface mRead = EGL_NO_SURFACE;
    EGLContext mContext = EGL_NO_CONTEXT;
};

}  // namespace zel
}  // namespace kav
