/*
 * Hand-written GL query entry points.
 */
#include "GlErrorQueue.h"
#include "MesaDriver.h"

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

}  // extern "C"
