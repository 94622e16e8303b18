/*
 * Hand-written GL buffer-object entry points: forwarded to the driver, and followed per share
 * group for the live-buffer counter.
 */
#include "ContextState.h"
#include "CurrentContext.h"
#include "MesaDriver.h"

using zel::hostgpu::ContextState;
using zel::hostgpu::CurrentContext;
using zel::hostgpu::mesa;

extern "C" {

GL_APICALL void GL_APIENTRY glGenBuffers(GLsizei n, GLuint* buffers) {
    mesa().glGenBuffers(n, buffers);
    ContextState* context = CurrentContext::get();
    if (context != nullptr && n > 0 && buffers != nullptr) {
        std::lock_guard<std::mutex> lock(context->shareGroup().mutex());
        context->shareGroup().buffers().add(n, buffers);
    }
}

GL_APICALL void GL_APIENTRY glDeleteBuffers(GLsizei n, const GLuint* buffers) {
    ContextState* context = CurrentContext::get();
    if (context != nullptr && n > 0 && buffers != nullptr) {
        std::lock_guard<std::mutex> lock(context->shareGroup().mutex());
        context->shareGroup().buffers().forget(n, buffers);
    }
    mesa().glDeleteBuffers(n, buffers);
}

}  // extern "C"
