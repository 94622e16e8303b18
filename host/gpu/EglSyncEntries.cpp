/*
 * Hand-written EGL sync entry points: native fence syncs (EGL_ANDROID_native_fence_sync) are the
 * layer's own; other sync types are the driver's.
 *
 * A native fence made for GPU work behaves as on a phone: it is unsignalled when made, has no
 * descriptor until its context is flushed (glFlush, glFinish, a client wait with
 * EGL_SYNC_FLUSH_COMMANDS_BIT_KHR, another context made current), and is signalled afterwards by
 * the completion thread, once the work is in buffer memory and the profile's fence delay has
 * passed. eglWaitSyncKHR returns at once: the context's later work waits for the fence instead.
 * Any other sync creation writes back first, so that a client that waits on the driver's fences
 * also finds the pixels in memory.
 */
#include <zel/host/Sync.h>

#include "AttribList.h"
#include "Counters.h"
#include "CurrentContext.h"
#include "DisplayRegistry.h"
#include "EglError.h"
#include "FenceFdTracker.h"
#include "HandleRegistry.h"
#include "MesaDriver.h"
#include "NativeFence.h"

using zel::hostgpu::AttribList;
using zel::hostgpu::ContextState;
using zel::hostgpu::Counter;
using zel::hostgpu::Counters;
using zel::hostgpu::CurrentContext;
using zel::hostgpu::DisplayRegistry;
using zel::hostgpu::DisplayState;
using zel::hostgpu::EglError;
using zel::hostgpu::FenceFdTracker;
using zel::hostgpu::mesa;
using zel::hostgpu::NativeFence;

namespace {

using Fences = zel::hostgpu::HandleRegistry<NativeFence>;

EGLSyncKHR failure(EGLint error) {
    EglError::set(error);
    return EGL_NO_SYNC_KHR;
}

void writeBackCurrent() {
    if (ContextState* current = CurrentContext::get()) {
        current->writeBackAll();
    }
}

EGLSyncKHR createNativeFence(EGLDisplay dpy, const AttribList& attribs) {
    DisplayState* display = DisplayRegistry::instance().initialized(dpy);
    if (display == nullptr) {
        return EGL_NO_SYNC_KHR;
    }
    if (!display->hasExtension("EGL_ANDROID_native_fence_sync")) {
        return failure(EGL_BAD_ATTRIBUTE);
    }
    for (const auto& [name, value] : attribs.pairs()) {
        if (name != EGL_SYNC_NATIVE_FENCE_FD_ANDROID) {
            return failure(EGL_BAD_ATTRIBUTE);
        }
    }
    const int clientFd =
        attribs.get(EGL_SYNC_NATIVE_FENCE_FD_ANDROID, EGL_NO_NATIVE_FENCE_FD_ANDROID);
    if (clientFd != EGL_NO_NATIVE_FENCE_FD_ANDROID) {
        // The client's fence: the sync takes it over.
        EglError::set(EGL_SUCCESS);
        return Fences::instance().add(std::make_shared<NativeFence>(dpy, clientFd, true));
    }
    ContextState* current = CurrentContext::get();
    if (current == nullptr || current->display() != dpy) {
        return failure(EGL_BAD_MATCH);
    }
    if (display->profile().failFenceCreation) {
        return failure(EGL_BAD_ALLOC);
    }
    auto fence = std::make_shared<NativeFence>(dpy, -1, false);
    current->addUnflushedFence(fence);
    EglError::set(EGL_SUCCESS);
    return Fences::instance().add(std::move(fence));
}

// The layer's fence behind `sync` on `dpy`; null (with EGL_BAD_PARAMETER) when `sync` is one of the
// layer's syncs on another display. `*ours` tells whether the layer answers at all.
std::shared_ptr<NativeFence> findFence(EGLDisplay dpy, EGLSyncKHR sync, bool* ours) {
    std::shared_ptr<NativeFence> fence = Fences::instance().find(sync);
    *ours = fence != nullptr;
    if (fence && fence->display() != dpy) {
        EglError::set(EGL_BAD_PARAMETER);
        return nullptr;
    }
    return fence;
}

// `timeout` in nanoseconds, as EGLTimeKHR is.
EGLint clientWait(EGLDisplay dpy, const NativeFence& fence, EGLint flags, EGLTimeKHR timeout) {
    ContextState* current = CurrentContext::get();
    if ((flags & EGL_SYNC_FLUSH_COMMANDS_BIT_KHR) != 0 && current != nullptr &&
        current->display() == dpy) {
        current->flush();
    }
    EglError::set(EGL_SUCCESS);
    return fence.wait(timeout) ? EGL_CONDITION_SATISFIED_KHR : EGL_TIMEOUT_EXPIRED_KHR;
}

EGLBoolean serverWait(EGLDisplay dpy, const std::shared_ptr<NativeFence>& fence, EGLint flags) {
    if (flags != 0) {
        EglError::set(EGL_BAD_PARAMETER);
        return EGL_FALSE;
    }
    ContextState* current = CurrentContext::get();
    if (current == nullptr || current->display() != dpy) {
        EglError::set(EGL_BAD_MATCH);
        return EGL_FALSE;
    }
    // The CPU goes on; the context's later work waits on the GPU side.
    current->addServerWait(fence);
    EglError::set(EGL_SUCCESS);
    return EGL_TRUE;
}

bool syncAttribute(const NativeFence& fence, EGLint attribute, EGLint* value) {
    switch (attribute) {
        case EGL_SYNC_TYPE_KHR:
            *value = EGL_SYNC_NATIVE_FENCE_ANDROID;
            break;
        case EGL_SYNC_STATUS_KHR:
            *value = fence.signaled() ? EGL_SIGNALED_KHR : EGL_UNSIGNALED_KHR;
            break;
        case EGL_SYNC_CONDITION_KHR:
            *value = static_cast<EGLint>(fence.condition());
            break;
        default:
            EglError::set(EGL_BAD_ATTRIBUTE);
            return false;
    }
    EglError::set(EGL_SUCCESS);
    return true;
}

EGLBoolean destroyFence(EGLSyncKHR sync) {
    Fences::instance().remove(sync);
    EglError::set(EGL_SUCCESS);
    return EGL_TRUE;
}

}  // namespace

extern "C" {

EGLSyncKHR EGLAPIENTRY eglCreateSyncKHR(EGLDisplay dpy, EGLenum type, const EGLint* attrib_list) {
    if (type == EGL_SYNC_NATIVE_FENCE_ANDROID) {
        return createNativeFence(dpy, AttribList::fromInts(attrib_list));
    }
    writeBackCurrent();
    EglError::deferToDriver();
    return mesa().eglCreateSyncKHR(dpy, type, attrib_list);
}

EGLSync EGLAPIENTRY eglCreateSync(EGLDisplay dpy, EGLenum type, const EGLAttrib* attrib_list) {
    if (type == EGL_SYNC_NATIVE_FENCE_ANDROID) {
        return createNativeFence(dpy, AttribList::fromAttribs(attrib_list));
    }
    writeBackCurrent();
    EglError::deferToDriver();
    return mesa().eglCreateSync(dpy, type, attrib_list);
}

EGLBoolean EGLAPIENTRY eglDestroySyncKHR(EGLDisplay dpy, EGLSyncKHR sync) {
    bool ours = false;
    std::shared_ptr<NativeFence> fence = findFence(dpy, sync, &ours);
    if (ours) {
        return fence ? destroyFence(sync) : EGL_FALSE;
    }
    EglError::deferToDriver();
    return mesa().eglDestroySyncKHR(dpy, sync);
}

EGLBoolean EGLAPIENTRY eglDestroySync(EGLDisplay dpy, EGLSync sync) {
    bool ours = false;
    std::shared_ptr<NativeFence> fence = findFence(dpy, sync, &ours);
    if (ours) {
        return fence ? destroyFence(sync) : EGL_FALSE;
    }
    EglError::deferToDriver();
    return mesa().eglDestroySync(dpy, sync);
}

EGLint EGLAPIENTRY eglClientWaitSyncKHR(EGLDisplay dpy, EGLSyncKHR sync, EGLint flags,
                                        EGLTimeKHR timeout) {
    bool ours = false;
    std::shared_ptr<NativeFence> fence = findFence(dpy, sync, &ours);
    if (ours) {
        return fence ? clientWait(dpy, *fence, flags, timeout) : EGL_FALSE;
    }
    EglError::deferToDriver();
    return mesa().eglClientWaitSyncKHR(dpy, sync, flags, timeout);
}

EGLint EGLAPIENTRY eglClientWaitSync(EGLDisplay dpy, EGLSync sync, EGLint flags, EGLTime timeout) {
    bool ours = false;
    std::shared_ptr<NativeFence> fence = findFence(dpy, sync, &ours);
    if (ours) {
        return fence ? clientWait(dpy, *fence, flags, timeout) : EGL_FALSE;
    }
    EglError::deferToDriver();
    return mesa().eglClientWaitSync(dpy, sync, flags, timeout);
}

EGLint EGLAPIENTRY eglWaitSyncKHR(EGLDisplay dpy, EGLSyncKHR sync, EGLint flags) {
    bool ours = false;
    std::shared_ptr<NativeFence> fence = findFence(dpy, sync, &ours);
    if (!ours) {
        EglError::deferToDriver();
        return mesa().eglWaitSyncKHR(dpy, sync, flags);
    }
    return fence ? serverWait(dpy, fence, flags) : EGL_FALSE;
}

EGLBoolean EGLAPIENTRY eglWaitSync(EGLDisplay dpy, EGLSync sync, EGLint flags) {
    bool ours = false;
    std::shared_ptr<NativeFence> fence = findFence(dpy, sync, &ours);
    if (!ours) {
        EglError::deferToDriver();
        return mesa().eglWaitSync(dpy, sync, flags);
    }
    return fence ? serverWait(dpy, fence, flags) : EGL_FALSE;
}

EGLBoolean EGLAPIENTRY eglGetSyncAttribKHR(EGLDisplay dpy, EGLSyncKHR sync, EGLint attribute,
                                           EGLint* value) {
    bool ours = false;
    std::shared_ptr<NativeFence> fence = findFence(dpy, sync, &ours);
    if (!ours) {
        EglError::deferToDriver();
        return mesa().eglGetSyncAttribKHR(dpy, sync, attribute, value);
    }
    if (!fence) {
        return EGL_FALSE;
    }
    if (value == nullptr) {
        EglError::set(EGL_BAD_PARAMETER);
        return EGL_FALSE;
    }
    return syncAttribute(*fence, attribute, value) ? EGL_TRUE : EGL_FALSE;
}

EGLBoolean EGLAPIENTRY eglGetSyncAttrib(EGLDisplay dpy, EGLSync sync, EGLint attribute,
                                        EGLAttrib* value) {
    bool ours = false;
    std::shared_ptr<NativeFence> fence = findFence(dpy, sync, &ours);
    if (!ours) {
        EglError::deferToDriver();
        return mesa().eglGetSyncAttrib(dpy, sync, attribute, value);
    }
    EGLint answer = 0;
    if (!fence || value == nullptr) {
        EglError::set(EGL_BAD_PARAMETER);
        return EGL_FALSE;
    }
    if (!syncAttribute(*fence, attribute, &answer)) {
        return EGL_FALSE;
    }
    *value = answer;
    return EGL_TRUE;
}

EGLint EGLAPIENTRY eglDupNativeFenceFDANDROID(EGLDisplay dpy, EGLSyncKHR sync) {
    bool ours = false;
    std::shared_ptr<NativeFence> fence = findFence(dpy, sync, &ours);
    if (!ours) {
        EglError::deferToDriver();
        return mesa().eglDupNativeFenceFDANDROID(dpy, sync);
    }
    DisplayState* display = fence ? DisplayRegistry::instance().initialized(dpy) : nullptr;
    if (display == nullptr || display->profile().failFenceDup) {
        EglError::set(EGL_BAD_PARAMETER);
        return EGL_NO_NATIVE_FENCE_FD_ANDROID;
    }
    // Before the flush the sync has no descriptor yet.
    const int fd = fence->duplicate();
    if (fd < 0) {
        EglError::set(EGL_BAD_PARAMETER);
        return EGL_NO_NATIVE_FENCE_FD_ANDROID;
    }
    FenceFdTracker::instance().handedOut(fd);
    Counters::add(Counter::FenceFdsCreated);
    EglError::set(EGL_SUCCESS);
    return fd;
}

}  // extern "C"
