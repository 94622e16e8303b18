/*
 * The renderer that owns an EGL context: one display connection, one context and, where the
 * driver needs one, a 1x1 stub pbuffer, all current on the thread that created it. Every call on
 * a GLESRenderer must come from that thread; RendererThreaded exists to guarantee that.
 */
#pragma once

#include <stdint.h>

#include <memory>
#include <mutex>
#include <optional>

#include <EGL/egl.h>
#include <EGL/eglext.h>

#include <zel/Renderer.h>

namespace kav {
namespace zel {

class GLESRenderer : public Renderer {
public:
    // Brings up display, config, context and surface; empty on failure (the reason is logged).
    // Aborts the process when EGL cannot be initialised, no config fits or GLES is below 3.0.
    static std::shared_ptr<GLESRenderer> create(const Renderer::Args& args);

    GLESRenderer(EGLDisplay display, EGLConfig config, EGLContext context, EGLSurface stubSurface);
    ~GLESRenderer() override;

    // Display and config selection.
    static EGLDisplay initEglDisplay();
    static EGLConfig initEglConfig(EGLDisplay display);
    static EGLConfig chooseEglConfig(EGLDisplay display, int format, bool logConfig);
    static int selectEGLConfig(EGLDisplay display, EGLint format, EGLint renderableType,
                               EGLConfig* config);
    static int selectConfigForAttribute(EGLDisplay display, const EGLint attrs[], EGLint attribute,
                                        EGLint wanted, EGLConfig* outConfig);

    // Context and surface creation.
    static EGLContext createEglContext(EGLDisplay display, EGLConfig config,
                                       EGLContext shareContext,
                                       std::optional<Renderer::ContextPriority> priority,
                                       Protection protection);
    static EGLSurface createEglSurface(EGLDisplay display, EGLConfig config, Protection protection);
    static EGLSurface createStubEglPbufferSurface(EGLDisplay display, EGLConfig config,
                                                  int hwcFormat, Protection protection);
    // 0x10000 (1.0), 0x10001 (1.x), 0x20000 (2.x) or 0x30000 (3.x); 0x10000 when unreadable.
    static int parseGlesVersion(const char* str);

    // Texture service and configuration.
    Status setConfig(Renderer::Config key, void* value) override;
    Status genTexture(uint32_t* texName, uint32_t width, uint32_t height, uint32_t format,
                      uint32_t type, const void* data) override;
    Status deleteTexture(const uint32_t* texName) override;

    Status blit(const std::vector<Buffer>& inputs, Buffer& output, int timeout,
                AppInside appId) override;
    Status blit(const std::vector<Buffer>& inputs, Buffer& output,
                android::sp<android::Fence>& fence, AppInside appId) override;
    Status asyncBlit(const std::vector<Buffer>& inputs, Buffer& output, void* data,
                     AppInside appId) override;
    Status cacheNewImage(unsigned long id, Buffer buffer, android::Rect crop,
                         long cacheType) override;
    Status releaseCache() override;

    EGLDisplay getDisplay() const { return mDisplay; }
    EGLContext getContext() const { return mContext; }
    EGLSurface getStubSurface() const { return mStubSurface; }
    uint32_t getEnable() const { return mEnable; }
    bool isProtectedContext() const { return mProtectedContext; }

private:
    EGLDisplay mDisplay = EGL_NO_DISPLAY;
    EGLContext mContext = EGL_NO_CONTEXT;
    EGLSurface mStubSurface = EGL_NO_SURFACE;
    int32_t mMaxViewportDims[2] = {0, 0};
    int32_t mMaxTextureSize = 0;
    bool mProtectedContext = false;

    // Drawing state.
    int32_t mVpWidth = 0;
    int32_t mVpHeight = 0;

    // Per-blit settings.
    AppInside mAppId = APP_INSIDE_DEFAULT;
    uint32_t mEnable = 0;

    bool mDebugDetect = false;
    bool mDstCacheEnabled = true;
    std::mutex mImageCacheMutex;
};

}  // namespace zel
}  // namespace kav
