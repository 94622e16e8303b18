/*
 * Hand-written EGL surface entry points: pbuffers accept EGL_PROTECTED_CONTENT_EXT, which the
 * layer records and answers (the driver never sees it).
 */
#include "AttribList.h"
#include "DisplayRegistry.h"
#include "EglError.h"
#include "MesaDriver.h"
#include "SurfaceRegistry.h"

using zel::hostgpu::AttribList;
using zel::hostgpu::DisplayRegistry;
using zel::hostgpu::DisplayState;
using zel::hostgpu::EglError;
using zel::hostgpu::mesa;
using zel::hostgpu::SurfaceRegistry;

extern "C" {

EGLSurface EGLAPIENTRY eglCreatePbufferSurface(EGLDisplay dpy, EGLConfig config,
                                               const EGLint* attrib_list) {
    AttribList attribs = AttribList::fromInts(attrib_list);
    EGLint isProtected = EGL_FALSE;
    const bool protectionGiven = attribs.take(EGL_PROTECTED_CONTENT_EXT, &isProtected);
    if (protectionGiven && isProtected != EGL_TRUE && isProtected != EGL_FALSE) {
        EglError::set(EGL_BAD_ATTRIBUTE);
        return EGL_NO_SURFACE;
    }
    // The Khronos texts take the attribute on surfaces only with EGL_EXT_protected_surface.
    if (protectionGiven) {
        DisplayState* display = DisplayRegistry::instance().initialized(dpy);
        if (display != nullptr && display->profile().conformant &&
            !display->hasExtension("EGL_EXT_protected_surface")) {
            EglError::set(EGL_BAD_ATTRIBUTE);
            return EGL_NO_SURFACE;
        }
    }
    EglError::deferToDriver();
    const std::vector<EGLint> driverList = attribs.ints();
    EGLSurface surface = mesa().eglCreatePbufferSurface(dpy, config, driverList.data());
    if (surface != EGL_NO_SURFACE) {
        SurfaceRegistry::instance().add(dpy, surface, isProtected == EGL_TRUE);
    }
    return surface;
}

EGLBoolean EGLAPIENTRY eglDestroySurface(EGLDisplay dpy, EGLSurface surface) {
    EglError::deferToDriver();
    EGLBoolean result = mesa().eglDestroySurface(dpy, surface);
    if (result) {
        SurfaceRegistry::instance().remove(surface);
    }
    return result;
}

EGLBoolean EGLAPIENTRY eglQuerySurface(EGLDisplay dpy, EGLSurface surface, EGLint attribute,
                                       EGLint* value) {
    bool isProtected = false;
    if (attribute != EGL_PROTECTED_CONTENT_EXT || value == nullptr ||
        !SurfaceRegistry::instance().isProtected(surface, &isProtected)) {
        EglError::deferToDriver();
        return mesa().eglQuerySurface(dpy, surface, attribute, value);
    }
    *value = isProtected ? EGL_TRUE : EGL_FALSE;
    EglError::set(EGL_SUCCESS);
    return EGL_TRUE;
}

}  // extern "C"
