/*
 * A current EGL context for tests that need a GPU: ES 3 on the default display, made current
 * without a surface. Everything it creates is released by the destructor.
 */
#pragma once

#include <EGL/egl.h>

namespace zel {
namespace test {

class EglContext {
public:
    explicit EglContext(int clientVersion = 3);
    ~EglContext();
    EglContext(const EglContext&) = delete;
    EglContext& operator=(const EglContext&) = delete;

    // False when no context could be made current; failure() then says why.
    bool ok() const { return mContext != EGL_NO_CONTEXT && mCurrent; }
    const char* failure() const { return mFailure; }
    EGLDisplay display() const { return mDisplay; }
    EGLContext context() const { return mContext; }

private:
    EGLDisplay mDisplay = EGL_NO_DISPLAY;
    EGLContext mContext = EGL_NO_CONTEXT;
    bool mCurrent = false;
    const char* mFailure = "";
};

}  // namespace test
}  // namespace zel
