/*
 * Hand-written GL texture and framebuffer entry points: targeting an Android-buffer EGLImage onto
 * an external texture, and attaching such a texture to a framebuffer (the driver has no external
 * render targets: the layer attaches the texture that holds the image's pixels instead). The layer
 * follows deletions and re-attachments to know which framebuffers render into buffers, and the
 * client's texture and framebuffer names for the live counters.
 */
#include "ContextState.h"
#include "CurrentContext.h"
#include "GlErrorQueue.h"
#include "HandleRegistry.h"
#include "MesaDriver.h"
#include "NativeBufferImage.h"

using zel::hostgpu::ContextState;
using zel::hostgpu::CurrentContext;
using zel::hostgpu::GlErrorQueue;
using zel::hostgpu::ImageTexture;
using zel::hostgpu::mesa;
using zel::hostgpu::NativeBufferImage;

namespace {

using Images = zel::hostgpu::HandleRegistry<NativeBufferImage>;

GLuint boundFramebuffer(GLenum target) {
    GLint framebuffer = 0;
    mesa().glGetIntegerv(
        target == GL_READ_FRAMEBUFFER ? GL_READ_FRAMEBUFFER_BINDING : GL_DRAW_FRAMEBUFFER_BINDING,
        &framebuffer);
    return static_cast<GLuint>(framebuffer);
}

// Something other than an image texture goes to `attachment`.
void replaceAttachment(GLenum target, GLenum attachment) {
    ContextState* context = CurrentContext::get();
    if (context != nullptr && context->hasAttachments() &&
        (target == GL_FRAMEBUFFER || target == GL_DRAW_FRAMEBUFFER ||
         target == GL_READ_FRAMEBUFFER)) {
        context->clearAttachment(boundFramebuffer(target), attachment);
    }
}

// True, with GL_OUT_OF_MEMORY raised, when the current context's profile has no texture memory.
bool storageRunsOut() {
    ContextState* context = CurrentContext::get();
    if (context == nullptr || !context->attributes().failTextureStorage) {
        return false;
    }
    GlErrorQueue::push(GL_OUT_OF_MEMORY);
    return true;
}

}  // namespace

extern "C" {

GL_APICALL void GL_APIENTRY glEGLImageTargetTexture2DOES(GLenum target, GLeglImageOES image) {
    std::shared_ptr<NativeBufferImage> ours = Images::instance().find(image);
    ContextState* context = CurrentContext::get();
    if (!ours) {
        if (context != nullptr && target == GL_TEXTURE_EXTERNAL_OES) {
            // The driver's image replaces any of the layer's on the texture.
            GLint clientTexture = 0;
            mesa().glGetIntegerv(GL_TEXTURE_BINDING_EXTERNAL_OES, &clientTexture);
            const GLuint texture = static_cast<GLuint>(clientTexture);
            std::lock_guard<std::mutex> lock(context->shareGroup().mutex());
            context->shareGroup().forget(1, &texture, context->passResources());
        }
        mesa().glEGLImageTargetTexture2DOES(target, image);
        return;
    }
    if (context == nullptr) {
        return;  // GL calls without a current context do nothing
    }
    if (target != GL_TEXTURE_EXTERNAL_OES && target != GL_TEXTURE_2D) {
        GlErrorQueue::push(GL_INVALID_ENUM);
        return;
    }
    // An RGBA buffer may also be a GL_TEXTURE_2D (OES_EGL_image), which the layer supports as a
    // render target only (draws sample external textures); YUV buffers are external textures.
    if (target == GL_TEXTURE_2D && ours->format().isYuv()) {
        GlErrorQueue::push(GL_INVALID_OPERATION);
        return;
    }
    GLint clientTexture = 0;
    mesa().glGetIntegerv(
        target == GL_TEXTURE_2D ? GL_TEXTURE_BINDING_2D : GL_TEXTURE_BINDING_EXTERNAL_OES,
        &clientTexture);
    // Protected images only go into protected contexts; the default texture takes no image.
    if ((ours->isProtected() && !context->attributes().isProtected) || clientTexture == 0) {
        GlErrorQueue::push(GL_INVALID_OPERATION);
        return;
    }
    std::lock_guard<std::mutex> lock(context->shareGroup().mutex());
    context->shareGroup().target(static_cast<GLuint>(clientTexture), std::move(ours),
                                 context->passResources());
}

GL_APICALL void GL_APIENTRY glGenTextures(GLsizei n, GLuint* textures) {
    mesa().glGenTextures(n, textures);
    ContextState* context = CurrentContext::get();
    if (context != nullptr && n > 0 && textures != nullptr) {
        std::lock_guard<std::mutex> lock(context->shareGroup().mutex());
        context->shareGroup().textures().add(n, textures);
    }
}

GL_APICALL void GL_APIENTRY glDeleteTextures(GLsizei n, const GLuint* textures) {
    ContextState* context = CurrentContext::get();
    if (context != nullptr && n > 0 && textures != nullptr) {
        std::lock_guard<std::mutex> lock(context->shareGroup().mutex());
        context->shareGroup().textures().forget(n, textures);
        if (context->shareGroup().hasImageTextures()) {
            context->shareGroup().forget(n, textures, context->passResources());
            for (GLsizei i = 0; i < n; ++i) {
                context->forgetTexture(textures[i]);
            }
        }
    }
    mesa().glDeleteTextures(n, textures);
}

GL_APICALL void GL_APIENTRY glFramebufferTexture2D(GLenum target, GLenum attachment,
                                                   GLenum textarget, GLuint texture, GLint level) {
    ContextState* context = CurrentContext::get();
    if (context != nullptr &&
        (textarget == GL_TEXTURE_EXTERNAL_OES || textarget == GL_TEXTURE_2D) && texture != 0) {
        std::lock_guard<std::mutex> lock(context->shareGroup().mutex());
        if (context->attributes().failImageAttachment &&
            context->shareGroup().find(texture) != nullptr) {
            // Whatever was attached goes, and nothing takes its place.
            replaceAttachment(target, attachment);
            mesa().glFramebufferTexture2D(target, attachment, GL_TEXTURE_2D, 0, level);
            return;
        }
        if (ImageTexture* imageTexture = context->shareGroup().find(texture)) {
            // GL_EXT_YUV_target makes external textures render targets for YUV images only; the
            // phone-driver superset takes RGBA ones as well.
            if (textarget == GL_TEXTURE_EXTERNAL_OES && !imageTexture->isYuv() &&
                context->attributes().conformant) {
                GlErrorQueue::push(GL_INVALID_OPERATION);
                return;
            }
            mesa().glFramebufferTexture2D(target, attachment, GL_TEXTURE_2D,
                                          imageTexture->renderTexture(), level);
            context->setAttachment(boundFramebuffer(target), attachment, texture);
            return;
        }
    }
    replaceAttachment(target, attachment);
    mesa().glFramebufferTexture2D(target, attachment, textarget, texture, level);
}

GL_APICALL void GL_APIENTRY glFramebufferTexture(GLenum target, GLenum attachment, GLuint texture,
                                                 GLint level) {
    replaceAttachment(target, attachment);
    mesa().glFramebufferTexture(target, attachment, texture, level);
}

GL_APICALL void GL_APIENTRY glFramebufferTextureLayer(GLenum target, GLenum attachment,
                                                      GLuint texture, GLint level, GLint layer) {
    replaceAttachment(target, attachment);
    mesa().glFramebufferTextureLayer(target, attachment, texture, level, layer);
}

GL_APICALL void GL_APIENTRY glFramebufferRenderbuffer(GLenum target, GLenum attachment,
                                                      GLenum renderbuffertarget,
                                                      GLuint renderbuffer) {
    replaceAttachment(target, attachment);
    mesa().glFramebufferRenderbuffer(target, attachment, renderbuffertarget, renderbuffer);
}

GL_APICALL void GL_APIENTRY glGenFramebuffers(GLsizei n, GLuint* framebuffers) {
    mesa().glGenFramebuffers(n, framebuffers);
    ContextState* context = CurrentContext::get();
    if (context != nullptr && n > 0 && framebuffers != nullptr) {
        context->framebuffers().add(n, framebuffers);
    }
}

GL_APICALL void GL_APIENTRY glDeleteFramebuffers(GLsizei n, const GLuint* framebuffers) {
    ContextState* context = CurrentContext::get();
    if (context != nullptr && n > 0 && framebuffers != nullptr) {
        context->framebuffers().forget(n, framebuffers);
        for (GLsizei i = 0; i < n; ++i) {
            context->forgetFramebuffer(framebuffers[i]);
        }
    }
    mesa().glDeleteFramebuffers(n, framebuffers);
}

// Texture storage: a driver profile can make it run out.
GL_APICALL void GL_APIENTRY glTexImage2D(GLenum target, GLint level, GLint internalformat,
                                         GLsizei width, GLsizei height, GLint border, GLenum format,
                                         GLenum type, const void* pixels) {
    if (storageRunsOut()) {
        return;
    }
    mesa().glTexImage2D(target, level, internalformat, width, height, border, format, type, pixels);
}

GL_APICALL void GL_APIENTRY glTexStorage2D(GLenum target, GLsizei levels, GLenum internalformat,
                                           GLsizei width, GLsizei height) {
    if (storageRunsOut()) {
        return;
    }
    mesa().glTexStorage2D(target, levels, internalformat, width, height);
}

}  // extern "C"
