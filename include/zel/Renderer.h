/*
 * The interface through which a video codec component drives libcodec2_zel: it hands over source
 * frame buffers and a destination frame buffer, and the renderer converts and copies the sources
 * into the destination on the GPU.
 *
 *     kav::zel::Renderer::Args args{1, false, kav::zel::Renderer::HIGH};
 *     std::shared_ptr<kav::zel::Renderer> renderer = kav::zel::Renderer::create(args);
 *     if (!renderer) { ... creation failed, the reason is in the log ... }
 *
 * Type 1 is a GLES renderer bound to the creating thread; type 2 runs one on a worker thread of
 * its own and may be called from any thread.
 */
#pragma once

#include <stdint.h>

#include <memory>
#include <vector>

#include <ui/Fence.h>
#include <ui/Rect.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

namespace kav {
namespace zel {

class ExternalTexture;
class Mesh;
class Texture;

// Whether content (and the EGL context, surface and images that carry it) is protected.
enum Protection : int32_t {
    UNPROTECTED = 1,
    PROTECTED = 2,
};

// The result of every renderer operation.
enum Status : int32_t {
    OK = 0,
    NOT_IMPLEMENTED = 1,
    UNSUPPORTED_FORMAT = 2,
    BAD_VALUE = -1,
    RENDER_FAILED = -3,
    TIMED_OUT = -4,
};

// The client application a frame belongs to. The values are the client's; the renderer serves
// application 0.
enum AppInside : int32_t {
    APP_INSIDE_DEFAULT = 0,
};

// Optional per-frame instructions from the client, read-only to the renderer.
struct BufferSettings {
    // When both are non-zero the picture is rendered at this size instead of the destination's.
    int32_t forceWidth = 0;
    int32_t forceHeight = 0;
    // Crop of the source buffer, applied when its EGL image is created. INVALID_RECT: no crop.
    android::Rect crop = android::Rect::INVALID_RECT;
    // Region of the source to sample, in source pixels. INVALID_RECT: all of it.
    android::Rect region = android::Rect::INVALID_RECT;
    // Rotation of the picture in degrees; 0 for none.
    float rotation = 0.0f;
    // A mesh to draw instead of the renderer's own rectangle.
    std::shared_ptr<Mesh> mesh;
    // Belongs to the client; the renderer never reads it.
    uint64_t clientValue = 0;
    // Auxiliary textures travelling with the source; the renderer waits on their fences.
    std::shared_ptr<Texture> auxTexture0;
    std::shared_ptr<Texture> auxTexture1;
};

// One frame buffer and its optional settings. Copies share both handles.
struct Buffer {
    std::shared_ptr<ExternalTexture> texture;
    std::shared_ptr<BufferSettings> settings;
};

class Renderer {
public:
    enum ContextPriority : int32_t {
        LOW = 1,
        MEDIUM = 2,
        HIGH = 3,
        REALTIME = 4,
    };

    // Keys of setConfig.
    enum Config : int32_t {
        // value: pointer to a uint32_t mask; bit 0 enables the mesh cache, bit 1 the program cache.
        ENABLE = 1,
    };

    // Renderer types of Args::rendererType.
    static constexpr int32_t kTypeGles = 1;
    static constexpr int32_t kTypeGlesThreaded = 2;

    struct Args {
        int32_t rendererType = 0;
        bool enableProtectedContext = false;
        ContextPriority contextPriority = HIGH;
    };

    // Receives the outcome of asyncBlit. The renderer holds it only weakly.
    class Listener : public virtual android::RefBase {
    public:
        virtual void onBlitDone(Buffer& output, void* data) = 0;
        virtual void onBlitError(Status status, void* data) = 0;
    };

    // Builds the renderer that args.rendererType names; empty when the type is unknown or
    // creation failed (the reason is logged).
    static std::shared_ptr<Renderer> create(const Args& args);

    virtual ~Renderer();

    virtual Protection getProtection();
    virtual ContextPriority getContextPriority();
    // Both change the stored value only; the EGL context keeps what it was created with.
    virtual Status setProtection(Protection protection);
    virtual Status setContextPriority(ContextPriority priority);

    virtual Status setConfig(Config key, void* value);
    virtual Status genTexture(uint32_t* texName, uint32_t width, uint32_t height, uint32_t format,
                              uint32_t type, const void* data);
    virtual Status deleteTexture(const uint32_t* texName);

    // Converts inputs into output and waits up to timeout milliseconds for the GPU.
    virtual Status blit(const std::vector<Buffer>& inputs, Buffer& output, int timeout,
                        AppInside appId) = 0;
    // Converts inputs into output and hands back a fence that signals when the GPU is done.
    virtual Status blit(const std::vector<Buffer>& inputs, Buffer& output,
                        android::sp<android::Fence>& fence, AppInside appId) = 0;

    virtual Status setListener(const android::wp<Listener>& listener);
    // Converts inputs into output and reports the outcome to the listener with data.
    virtual Status asyncBlit(const std::vector<Buffer>& inputs, Buffer& output, void* data,
                             AppInside appId) = 0;

    // cacheType 0 is the source-image cache, any other value the destination-image cache.
    virtual Status cacheNewImage(unsigned long id, Buffer buffer, android::Rect crop,
                                 long cacheType) = 0;
    virtual Status releaseCache() = 0;

protected:
    Renderer() = default;

    // The listener as a strong reference, taken under mListenerLock; null when none is alive.
    // Callbacks run on the returned reference after the lock is released.
    android::sp<Listener> promoteListener();

    int32_t mRendererType = 0;
    ContextPriority mContextPriority = HIGH;
    Protection mProtection = UNPROTECTED;
    android::Mutex mListenerLock;
    android::wp<Listener> mListener;
};

}  // namespace zel
}  // namespace kav
