/*
 * Hand-written EGL context entry points: every context the driver creates is registered, so that
 * the layer can count them and, later, answer for attributes the driver never sees.
 */
#include "ContextRegistry.h"
#include "EglError.h"
#include "MesaDriver.h"

using zel::hostgpu::ContextRecord;
using zel::hostgpu::ContextRegistry;
using zel::hostgpu::EglError;
using zel::hostgpu::mesa;

extern "C" {

EGLContext EGLAPIENTRY eglCreateContext(EGLDisplay dpy, EGLConfig config, EGLContext share_context,
                                        const EGLint* attrib_list) {
    EglError::deferToDriver();
    EGLContext context = mesa().eglCreateContext(dpy, config, share_context, attrib_list);
    if (context != EGL_NO_CONTEXT) {
        ContextRecord record;
        record.display = dpy;
        ContextRegistry::instance().add(context, record);
    }
    return context;
}

EGLBoolean EGLAPIENTRY eglDestroyContext(EGLDisplay dpy, EGLContext ctx) {
    EglError::deferToDriver();
    EGLBoolean result = mesa().eglDestroyContext(dpy, ctx);
    if (result) {
        ContextRegistry::instance().remove(ctx);
    }
    return result;
}

}  // extern "C"
