/*
 * Hand-written EGL context entry points: every context the driver creates is registered with the
 * attributes the driver never sees (priority, protected content), which are answered by
 * eglQueryContext; the driver profile may refuse contexts or making them current. Making another
 * context current (or none) first writes back rendering into buffers, as the implicit flush of
 * eglMakeCurrent would make it visible on Android.
 */
#include <mutex>

#include "AttribList.h"
#include "ConfigAttributes.h"
#include "ContextRegistry.h"
#include "CurrentContext.h"
#include "DisplayRegistry.h"
#include "DriverProfileStore.h"
#include "EglError.h"
#include "MesaDriver.h"
#include "StringPool.h"

using zel::hostgpu::AttribList;
using zel::hostgpu::ConfigAttributes;
using zel::hostgpu::ContextAttributes;
using zel::hostgpu::ContextRegistry;
using zel::hostgpu::ContextState;
using zel::hostgpu::CurrentContext;
using zel::hostgpu::DisplayRegistry;
using zel::hostgpu::DisplayState;
using zel::hostgpu::DriverProfileStore;
using zel::hostgpu::EglError;
using zel::hostgpu::mesa;
using zel::hostgpu::ShareGroup;
using zel::hostgpu::StringPool;

namespace {

bool validPriority(EGLint priority) {
    switch (priority) {
        case EGL_CONTEXT_PRIORITY_HIGH_IMG:
        case EGL_CONTEXT_PRIORITY_MEDIUM_IMG:
        case EGL_CONTEXT_PRIORITY_LOW_IMG:
        case EGL_CONTEXT_PRIORITY_REALTIME_NV:
            return true;
        default:
            return false;
    }
}

// Whether `config` offers the API version asked for (a config-less context offers every one).
bool configOffersVersion(DisplayState& display, EGLConfig config, EGLint version) {
    if (config == EGL_NO_CONFIG_KHR || version < 3) {
        return true;
    }
    EGLint renderable = 0;
    return ConfigAttributes::query(display, config, EGL_RENDERABLE_TYPE, &renderable) &&
           (renderable & EGL_OPENGL_ES3_BIT) != 0;
}

// The Khronos texts accept priority and protection attributes only where the display advertises
// their extensions (the phone-driver superset takes them anyway).
bool conformantAttributes(DisplayState& display, bool priorityGiven,
                          const ContextAttributes& attributes) {
    if (priorityGiven && !display.hasExtension("EGL_IMG_context_priority")) {
        return false;
    }
    if (attributes.priority == EGL_CONTEXT_PRIORITY_REALTIME_NV &&
        !display.hasExtension("EGL_NV_context_priority_realtime")) {
        return false;
    }
    return !attributes.isProtected || display.hasExtension("EGL_EXT_protected_content");
}

}  // namespace

extern "C" {

EGLContext EGLAPIENTRY eglCreateContext(EGLDisplay dpy, EGLConfig config, EGLContext share_context,
                                        const EGLint* attrib_list) {
    AttribList attribs = AttribList::fromInts(attrib_list);
    ContextAttributes attributes;
    attributes.display = dpy;
    EGLint value = 0;
    const bool priorityGiven = attribs.take(EGL_CONTEXT_PRIORITY_LEVEL_IMG, &value);
    if (priorityGiven) {
        if (!validPriority(value)) {
            EglError::set(EGL_BAD_ATTRIBUTE);
            return EGL_NO_CONTEXT;
        }
        attributes.priority = value;
    }
    if (attribs.take(EGL_PROTECTED_CONTENT_EXT, &value)) {
        if (value != EGL_TRUE && value != EGL_FALSE) {
            EglError::set(EGL_BAD_ATTRIBUTE);
            return EGL_NO_CONTEXT;
        }
        attributes.isProtected = value == EGL_TRUE;
    }
    // EGL_CONTEXT_CLIENT_VERSION and EGL_CONTEXT_MAJOR_VERSION are the same attribute.
    attributes.clientVersion = attribs.get(EGL_CONTEXT_CLIENT_VERSION, 1);

    const zel::host::DriverProfile profile = DriverProfileStore::instance().current();
    DisplayState* display = DisplayRegistry::instance().initialized(dpy);
    if (display != nullptr) {
        if (profile.failAllContexts) {
            EglError::set(EGL_BAD_ALLOC);
            return EGL_NO_CONTEXT;
        }
        if ((profile.failEs3Contexts && attributes.clientVersion >= 3) ||
            !configOffersVersion(*display, config, attributes.clientVersion)) {
            EglError::set(EGL_BAD_MATCH);
            return EGL_NO_CONTEXT;
        }
    }
    if (!profile.glVersion.empty()) {
        attributes.glVersion = StringPool::intern(profile.glVersion);
    }
    attributes.failMakeCurrent = profile.failMakeCurrent;
    attributes.chromaTopLeft = profile.chromaTopLeftSample;
    attributes.failLink = profile.failLink;
    attributes.failImageAttachment = profile.failImageAttachment;
    attributes.failTextureStorage = profile.failTextureStorage;
    attributes.fenceDelay = std::chrono::milliseconds(profile.fenceDelayMs);
    attributes.conformant = profile.conformant;
    attributes.fenceNeverSignals = profile.fenceNeverSignals;
    if (profile.conformant && display != nullptr &&
        !conformantAttributes(*display, priorityGiven, attributes)) {
        EglError::set(EGL_BAD_ATTRIBUTE);
        return EGL_NO_CONTEXT;
    }

    std::shared_ptr<ContextState> shared;
    if (share_context != EGL_NO_CONTEXT) {
        shared = ContextRegistry::instance().find(share_context);
    }
    EglError::deferToDriver();
    const std::vector<EGLint> driverList = attribs.ints();
    EGLContext context = mesa().eglCreateContext(dpy, config, share_context, driverList.data());
    if (context != EGL_NO_CONTEXT) {
        auto group = shared ? shared->sharedGroup() : std::make_shared<ShareGroup>();
        ContextRegistry::instance().add(context, std::make_shared<ContextState>(attributes, group));
    }
    return context;
}

EGLBoolean EGLAPIENTRY eglDestroyContext(EGLDisplay dpy, EGLContext ctx) {
    // A program the client deleted while current goes with the context. Where the context is not
    // current here the driver keeps it until the share group goes.
    ContextState* current = CurrentContext::get();
    if (current != nullptr && current->deferredProgram() != 0 &&
        ContextRegistry::instance().find(ctx).get() == current) {
        std::lock_guard<std::mutex> lock(current->shareGroup().mutex());
        mesa().glUseProgram(0);
        mesa().glDeleteProgram(current->deferredProgram());
        current->shareGroup().deleted(current->deferredProgram());
        current->deferProgramDeletion(0);
    }
    EglError::deferToDriver();
    EGLBoolean result = mesa().eglDestroyContext(dpy, ctx);
    if (result) {
        ContextRegistry::instance().remove(ctx);
    }
    return result;
}

EGLBoolean EGLAPIENTRY eglQueryContext(EGLDisplay dpy, EGLContext ctx, EGLint attribute,
                                       EGLint* value) {
    std::shared_ptr<ContextState> state;
    if ((attribute == EGL_CONTEXT_PRIORITY_LEVEL_IMG || attribute == EGL_PROTECTED_CONTENT_EXT) &&
        value != nullptr) {
        state = ContextRegistry::instance().find(ctx);
    }
    if (!state || state->display() != dpy) {
        EglError::deferToDriver();
        return mesa().eglQueryContext(dpy, ctx, attribute, value);
    }
    *value = attribute == EGL_CONTEXT_PRIORITY_LEVEL_IMG
                 ? state->attributes().priority
                 : (state->attributes().isProtected ? EGL_TRUE : EGL_FALSE);
    EglError::set(EGL_SUCCESS);
    return EGL_TRUE;
}

EGLBoolean EGLAPIENTRY eglMakeCurrent(EGLDisplay dpy, EGLSurface draw, EGLSurface read,
                                      EGLContext ctx) {
    std::shared_ptr<ContextState> next;
    if (ctx != EGL_NO_CONTEXT) {
        next = ContextRegistry::instance().find(ctx);
        if (next && next->attributes().failMakeCurrent) {
            EglError::set(EGL_BAD_ALLOC);
            return EGL_FALSE;
        }
    }
    ContextState* current = CurrentContext::get();
    if (current != nullptr && current != next.get()) {
        current->flush();  // making another context current flushes this one
    }
    EglError::deferToDriver();
    EGLBoolean result = mesa().eglMakeCurrent(dpy, draw, read, ctx);
    if (result) {
        CurrentContext::set(std::move(next));
    }
    return result;
}

EGLBoolean EGLAPIENTRY eglReleaseThread(void) {
    if (ContextState* current = CurrentContext::get()) {
        current->flush();
    }
    EglError::deferToDriver();
    EGLBoolean result = mesa().eglReleaseThread();
    if (result) {
        CurrentContext::set(nullptr);
    }
    return result;
}

}  // extern "C"
