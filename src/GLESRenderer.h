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
#include <unordered_map>
#include <vector>

#include <android-base/unique_fd.h>

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <ui/FloatRect.h>

#include <zel/Renderer.h>

#include "ChooseProgram.h"
#include "Description.h"
#include "ImageCacheManager.h"
#include "Mesh.h"
#include "RecencyList.h"

namespace kav {
namespace zel {

class Image;

class GLESRenderer : public Renderer {
public:
    // Brings up display, config, context and surface; empty on failure (the reason is logged),
    // leaving the calling thread's current context and other renderers as they were. Aborts the
    // process when EGL cannot be initialised, no config fits or GLES is below 3.0.
    static std::shared_ptr<GLESRenderer> create(const Renderer::Args& args);

    GLESRenderer(EGLDisplay display, EGLConfig config, EGLContext context, EGLSurface stubSurface);
    ~GLESRenderer() override;

    // Display and config selection. initEglDisplay takes one use of the display (initialising it
    // when it is the first); releaseEglDisplay gives it back (terminating it with the last).
    static EGLDisplay initEglDisplay();
    static void releaseEglDisplay(EGLDisplay display);
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

    // The core blit: one source of application 0, waited on, then converted. |fence| (may be
    // null) receives the native fence of the pass, -1 when the driver gives none.
    Status blit(const std::vector<Buffer>& inputs, Buffer& output, android::base::unique_fd* fence,
                AppInside appId);
    // One conversion pass of |src| into |dst|.
    Status convert(const Buffer& src, Buffer& dst, android::base::unique_fd* fence);
    // Blocks until the producer fences of |buffer| and its external auxiliary textures signal.
    void wait(const Buffer& buffer);
    // Submits the GL work; the native fence that signals when it is done, or -1.
    android::base::unique_fd flush();
    size_t getMeshCacheSize() const { return mMeshCache.size(); }

    // Image caches, for tests: the image cached for |id| in the source (cacheType 0) or
    // destination cache, empty when there is none (looking does not count as a use); and the ids
    // a cache holds, least recently used first.
    std::shared_ptr<Image> findCachedImage(unsigned long id, long cacheType);
    std::vector<unsigned long> cachedImageIds(long cacheType);

    // Buffer checker, while dumping: asks the plug-in to get ready for this frame. mDebugDetect
    // follows the answer, and the renderer releases the plug-in at destruction while it is set.
    bool createBufferChecker();
    bool getDebugDetect() const { return mDebugDetect; }

    // Drawing. Sets the GL viewport and writes the orthographic projection of |clip| into the
    // description (without turning mHasProjection on).
    void setViewportAndProjection(android::FloatRect& viewport, android::FloatRect& clip);
    // Draws |mesh| with the program the description selects; false (logged) when nothing was
    // drawn. The mesh's vertex buffer, when it has one, feeds the attributes.
    bool drawMesh(const Mesh* mesh);
    Description& getDescription() { return mDescription; }
    uint32_t getVpWidth() const { return mVpWidth; }
    uint32_t getVpHeight() const { return mVpHeight; }

private:
    // Steps of a conversion pass.
    // False, with an error line, when the frame asks for what no draw can give.
    bool checkRequest(const ExternalTexture& srcTexture, const ExternalTexture& dstTexture,
                      const BufferSettings* settings) const;
    static bool isSourceCacheable(const ExternalTexture& srcTexture);
    bool bindCachedSource(const Buffer& src, const android::Rect& crop);
    std::shared_ptr<Mesh> selectMesh(const BufferSettings* settings);
    void applySourceTransform(const BufferSettings& settings, const ExternalTexture& srcTexture);

    EGLDisplay mDisplay = EGL_NO_DISPLAY;
    EGLContext mContext = EGL_NO_CONTEXT;
    EGLSurface mStubSurface = EGL_NO_SURFACE;
    int32_t mMaxViewportDims[2] = {0, 0};
    int32_t mMaxTextureSize = 0;
    bool mProtectedContext = false;

    // Drawing state.
    uint32_t mVpWidth = 0;
    uint32_t mVpHeight = 0;
    Description mDescription;

    // Per-blit settings.
    AppInside mAppId = APP_INSIDE_DEFAULT;
    uint32_t mEnable = 0;

    // Both hold GL names of this renderer's context; the destructor empties them while that
    // context is still current.
    std::unordered_map<uint64_t, std::shared_ptr<Mesh>> mMeshCache;
    std::shared_ptr<ChooseProgram> mChooseProgram;

    bool mDebugDetect = false;
    bool mDstCacheEnabled = true;
    std::mutex mImageCacheMutex;
    std::unordered_map<unsigned long, std::shared_ptr<Image>> mSrcImageCache;
    std::unordered_map<unsigned long, std::shared_ptr<Image>> mDstImageCache;
    // Use order of each cache's ids, for eviction; under mImageCacheMutex like the caches.
    RecencyList mSrcImageRecency;
    RecencyList mDstImageRecency;
    std::unique_ptr<ImageCacheManager> mImageCacheManager;
};

}  // namespace zel
}  // namespace kav
