#include <zel/Renderer.h>

#include "GLESRenderer.h"
#include "Log.h"
#include "RendererThreaded.h"

namespace kav {
namespace zel {

std::shared_ptr<Renderer> Renderer::create(const Args& args) {
    if (args.rendererType == kTypeGlesThreaded) {
        ZEL_LOGD("GLES Renderer Threaded");
        RendererThreaded::Factory factory = [](const Renderer::Args& innerArgs) {
            return std::shared_ptr<Renderer>(GLESRenderer::create(innerArgs));
        };
        // The threaded renderer takes type, priority and protection in its constructor, before
        // its worker starts and reads them to build the inner renderer: writing them again here
        // would race with that worker.
        return RendererThreaded::create(std::move(factory), args);
    }
    if (args.rendererType != kTypeGles) {
        return nullptr;
    }
    ZEL_LOGD("GLES Renderer");
    std::shared_ptr<Renderer> renderer = GLESRenderer::create(args);
    if (renderer) {
        renderer->mRendererType = args.rendererType;
        renderer->mContextPriority = args.contextPriority;
        renderer->mProtection = args.enableProtectedContext ? PROTECTED : UNPROTECTED;
    }
    return renderer;
}

Renderer::~Renderer() = default;

Protection Renderer::getProtection() {
    return mProtection;
}

Renderer::ContextPriority Renderer::getContextPriority() {
    return mContextPriority;
}

Status Renderer::setProtection(Protection protection) {
    mProtection = protection;
    return OK;
}

Status Renderer::setContextPriority(ContextPriority priority) {
    mContextPriority = priority;
    return OK;
}

Status Renderer::setConfig(Config /*key*/, void* /*value*/) {
    return NOT_IMPLEMENTED;
}

Status Renderer::genTexture(uint32_t* /*texName*/, uint32_t /*width*/, uint32_t /*height*/,
                            uint32_t /*format*/, uint32_t /*type*/, const void* /*data*/) {
    return NOT_IMPLEMENTED;
}

Status Renderer::deleteTexture(const uint32_t* /*texName*/) {
    return NOT_IMPLEMENTED;
}

Status Renderer::setListener(const android::wp<Listener>& listener) {
    android::Mutex::Autolock lock(mListenerLock);
    mListener = listener;
    return OK;
}

android::sp<Renderer::Listener> Renderer::promoteListener() {
    android::Mutex::Autolock lock(mListenerLock);
    return mListener.promote();
}

}  // namespace zel
}  // namespace kav
