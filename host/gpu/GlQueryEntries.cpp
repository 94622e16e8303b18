/*
 * Hand-written GL query entry points: injected errors, the GL_VERSION a driver profile gives the
 * current context, and the GL extensions the layer implements on top of the driver's
 * (GL_EXT_YUV_target), in glGetString(GL_EXTENSIONS) and, after the driver's own, in
 * glGetStringi(GL_EXTENSIONS, i) and GL_NUM_EXTENSIONS.
 */
#include <string>

#include "CurrentContext.h"
#include "GlErrorQueue.h"
#include "MesaDriver.h"
#include "StringPool.h"

using zel::hostgpu::ContextState;
using zel::hostgpu::CurrentContext;
using zel::hostgpu::GlErrorQueue;
using zel::hostgpu::mesa;
using zel::hostgpu::StringPool;

namespace {

constexpr const char* kLayerExtensions[] = {"GL_EXT_YUV_target"};
constexpr GLint kLayerExtensionCount = sizeof(kLayerExtensions) / sizeof(kLayerExtensions[0]);

GLint driverExtensionCount() {
    GLint count = 0;
    mesa().glGetIntegerv(GL_NUM_EXTENSIONS, &count);
    return count;
}

}  // namespace

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
    const GLubyte* value = mesa().glGetString(name);
    if (name != GL_EXTENSIONS || value == nullptr || context == nullptr) {
        return value;
    }
    std::string extensions = reinterpret_cast<const char*>(value);
    for (const char* extension : kLayerExtensions) {
        if (!extensions.empty() && extensions.back() != ' ') {
            extensions += ' ';
        }
        extensions += extension;
    }
    return reinterpret_cast<const GLubyte*>(StringPool::intern(extensions));
}

GL_APICALL const GLubyte* GL_APIENTRY glGetStringi(GLenum name, GLuint index) {
    if (name == GL_EXTENSIONS && CurrentContext::get() != nullptr) {
        const GLint driverCount = driverExtensionCount();
        const GLint layerIndex = static_cast<GLint>(index) - driverCount;
        if (index >= static_cast<GLuint>(driverCount) && layerIndex < kLayerExtensionCount) {
            return reinterpret_cast<const GLubyte*>(kLayerExtensions[layerIndex]);
        }
    }
    return mesa().glGetStringi(name, index);
}

GL_APICALL void GL_APIENTRY glGetIntegerv(GLenum pname, GLint* data) {
    mesa().glGetIntegerv(pname, data);
    if (pname == GL_NUM_EXTENSIONS && data != nullptr && CurrentContext::get() != nullptr) {
        *data += kLayerExtensionCount;
    }
}

GL_APICALL void GL_APIENTRY glGetInteger64v(GLenum pname, GLint64* data) {
    mesa().glGetInteger64v(pname, data);
    if (pname == GL_NUM_EXTENSIONS && data != nullptr && CurrentContext::get() != nullptr) {
        *data += kLayerExtensionCount;
    }
}

}  // extern "C"
