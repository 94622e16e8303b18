/*
 * Hand-written EGL display entry points: display selection, initialise and terminate counted per
 * display as on Android (the driver's display is terminated when every eglInitialize has been
 * matched by an eglTerminate), and the extension string of the emulated driver.
 */
#include "ContextRegistry.h"
#include "Counters.h"
#include "DisplayRegistry.h"
#include "DriverProfileStore.h"
#include "DisplaySelection.h"
#include "EglError.h"
#include "HandleRegistry.h"
#include "MesaDriver.h"
#include "NativeBufferImage.h"
#include "NativeFence.h"
#include "SurfaceRegistry.h"

using zel::hostgpu::ContextRegistry;
using zel::hostgpu::Counter;
using zel::hostgpu::Counters;
using zel::hostgpu::DisplayRegistry;
using zel::hostgpu::DisplayState;
using zel::hostgpu::EglError;
using zel::hostgpu::HandleRegistry;
using zel::hostgpu::mesa;
using zel::hostgpu::NativeBufferImage;
using zel::hostgpu::NativeFence;
using zel::hostgpu::SurfaceRegistry;

extern "C" {

EGLDisplay EGLAPIENTRY eglGetDisplay(EGLNativeDisplayType display_id) {
    // As on Android, the default display is the only one.
    if (display_id != EGL_DEFAULT_DISPLAY) {
        EglError::set(EGL_BAD_PARAMETER);
        return EGL_NO_DISPLAY;
    }
    if (zel::hostgpu::DriverProfileStore::instance().current().noDisplay) {
        // A device whose EGL driver failed to load: no display, and no error either.
        EglError::set(EGL_SUCCESS);
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
        zel::hostgpu::MesaDriver::keepDriverModulesLoaded();
        DisplayRegistry::instance().obtain(dpy).addInitialization();
        Counters::add(Counter::DisplaysInitialized);
    }
    return result;
}

EGLBoolean EGLAPIENTRY eglTerminate(EGLDisplay dpy) {
    DisplayState* display = DisplayRegistry::instance().initialized(dpy);
    if (display != nullptr && !display->dropInitialization()) {
        // Another eglInitialize of this display is still unmatched.
        EglError::set(EGL_SUCCESS);
        return EGL_TRUE;
    }
    EglError::deferToDriver();
    EGLBoolean result = mesa().eglTerminate(dpy);
    if (result && display != nullptr) {
        display->terminated();
        // Terminating releases every object of the display (a current context once it is
        // released; an image once no texture uses it).
        ContextRegistry::instance().removeDisplay(dpy);
        HandleRegistry<NativeBufferImage>::instance().removeDisplay(dpy);
        HandleRegistry<NativeFence>::instance().removeDisplay(dpy);
        SurfaceRegistry::instance().removeDisplay(dpy);
    }
    return result;
}

const char* EGLAPIENTRY eglQueryString(EGLDisplay dpy, EGLint name) {
    EglError::deferToDriver();
    const char* driverValue = mesa().eglQueryString(dpy, name);
    if (driverValue == nullptr || name != EGL_EXTENSIONS || dpy == EGL_NO_DISPLAY) {
        // Client extensions (EGL_NO_DISPLAY) and the other strings are the driver's.
        return driverValue;
    }
    return DisplayRegistry::instance().obtain(dpy).extensions();
}

}  // extern "C"
