/*
 * Hand-written EGL config entry points: the Android config attributes answered by the layer and
 * honoured when choosing.
 */
#include "ConfigAttributes.h"
#include "DisplayRegistry.h"
#include "EglError.h"
#include "MesaDriver.h"

using zel::hostgpu::ConfigAttributes;
using zel::hostgpu::DisplayRegistry;
using zel::hostgpu::DisplayState;
using zel::hostgpu::EglError;
using zel::hostgpu::mesa;

extern "C" {

EGLBoolean EGLAPIENTRY eglChooseConfig(EGLDisplay dpy, const EGLint* attrib_list,
                                       EGLConfig* configs, EGLint config_size, EGLint* num_config) {
    DisplayState* display = DisplayRegistry::instance().initialized(dpy);
    if (display == nullptr) {
        return EGL_FALSE;
    }
    return ConfigAttributes::choose(*display, attrib_list, configs, config_size, num_config);
}

EGLBoolean EGLAPIENTRY eglGetConfigAttrib(EGLDisplay dpy, EGLConfig config, EGLint attribute,
                                          EGLint* value) {
    DisplayState* display = nullptr;
    if (ConfigAttributes::answeredByLayer(attribute) && value != nullptr) {
        display = DisplayRegistry::instance().initialized(dpy);
    }
    if (display == nullptr) {
        EglError::deferToDriver();
        return mesa().eglGetConfigAttrib(dpy, config, attribute, value);
    }
    return ConfigAttributes::query(*display, config, attribute, value) ? EGL_TRUE : EGL_FALSE;
}

}  // extern "C"
