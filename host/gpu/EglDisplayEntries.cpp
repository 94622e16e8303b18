/*
 * Hand-written EGL display entry points: display selection and the bookkeeping of initialise and
 * terminate.
 */
#include "ContextRegistry.h"
#include "Counters.h"
#include "DisplaySelection.h"
#include "EglError.h"
#include "MesaDriver.h"

using zel::hostgpu::ContextRegistry;
using zel::hostgpu::Counter;
using zel::hostgpu::Counters;
using zel::hostgpu::EglError;
using zel::hostgpu::mesa;

extern "C" {

EGLDisplay EGLAPIENTRY eglGetDisplay(EGLNativeDisplayType display_id) {
    // As on Android, the default display is the only one.
    if (display_id != EGL_DEFAULT_DISPLAY) {
        EglError::set(EGL_BAD_PARAMETER);
        return EGL_NO_DISPLAY;
    }
    EglError::deferToDriver();
    return zel::hostgpu::surfacelessDisplay();
}

EGLDisplay EGLAPIENTRY eglGetPlatformDisplay(EGLenum platform, void* native_display,
                                             const EGLAttrib* attrib_list) {
    EglError::deferToDriver();
    if (zel::hostgpu::meansSurfacelessDisplay(platform, native_display)) {
        return zel::hostgpu::surfacelessDisplay();
    }
    return mesa().eglGetPlatformDisplay(platform, native_display, attrib_list);
}

EGLDisplay EGLAPIENTRY eglGetPlatformDisplayEXT(EGLenum platform, void* native_display,
                                                const EGLint* attrib_list) {
    EglError::deferToDriver();
    if (zel::hostgpu::meansSurfacelessDisplay(platform, native_display)) {
        return zel::hostgpu::surfacelessDisplay();
    }
    return mesa().eglGetPlatformDisplayEXT(platform, native_display, attrib_list);
}

EGLBoolean EGLAPIENTRY eglInitialize(EGLDisplay dpy, EGLint* major, EGLint* minor) {
    EglError::deferToDriver();
    EGLBoolean result = mesa().eglInitialize(dpy, major, minor);
    if (result) {
        Counters::add(Counter::DisplaysInitialized);
    }
    return result;
}

EGLBoolean EGLAPIENTRY eglTerminate(EGLDisplay dpy) {
    EglError::deferToDriver();
    EGLBoolean result = mesa().eglTerminate(dpy);
    if (result) {
        // Terminating releases every context of the display (a current one once it is released).
        ContextRegistry::instance().removeDisplay(dpy);
    }
    return result;
}

}  // extern "C"
