/*
 * Hand-written GL query entry points: injected errors, and the GL_VERSION a driver profile gives
 * the current context.
 */
#include "CurrentContext.h"
#include "GlErrorQueue.h"
#include "MesaDriver.h"

using zel::hostgpu::ContextState;
using zel::hostgpu::CurrentContext;
using zel::hostgpu::GlErrorQueue;
using zel::hostgpu::mesa;

extern "C" {

GL_APICALL GLenum GL_APIENTRY glGetError(void) {
    GLenum error = GL_NO_ERROR;
    if (GlErrorQueue::take(&error)) {
        return error;
    }
    return mesa().glGetError();
}

GL_APICALL const GLubyte* GL_APIENTRY glGetString(GLenum name) {
    ContextState* context = CurrentContext::get();
    if (name == GL_VERSION && context != nullptr && context->attributes().glVersion != nullptr) {
        return reinterpret_cast<const GLubyte*>(context->attributes().glVersion);
    }
    return mesa().glGetString(name);
}

}  // extern "C"
