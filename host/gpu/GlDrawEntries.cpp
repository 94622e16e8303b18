/*
 * Hand-written GL entry points that draw, clear, read or flush: each runs inside a DrawScope, so
 * external samplers sample the buffers' current pixels and rendering into buffers is tracked;
 * glFlush and glFinish write rendering back into buffer memory first.
 */
#include "Counters.h"
#include "CurrentContext.h"
#include "DrawScope.h"
#include "MesaDriver.h"
#include "YuvTargetReader.h"

using zel::hostgpu::ContextState;
using zel::hostgpu::Counter;
using zel::hostgpu::Counters;
using zel::hostgpu::CurrentContext;
using zel::hostgpu::DrawCoverage;
using zel::hostgpu::DrawScope;
using zel::hostgpu::mesa;
using zel::hostgpu::YuvTargetReader;

namespace {

constexpr unsigned kDraw = DrawScope::Samples | DrawScope::Renders;

DrawScope drawScope(const DrawCoverage::DrawArrays* draw = nullptr) {
    Counters::add(Counter::Draws);
    return DrawScope(CurrentContext::get(), kDraw, draw);
}

}  // namespace

extern "C" {

GL_APICALL void GL_APIENTRY glDrawArrays(GLenum mode, GLint first, GLsizei count) {
    const DrawCoverage::DrawArrays draw = {mode, first, count};
    DrawScope scope = drawScope(&draw);
    if (scope.refused()) {
        return;
    }
    mesa().glDrawArrays(mode, first, count);
}

GL_APICALL void GL_APIENTRY glDrawArraysInstanced(GLenum mode, GLint first, GLsizei count,
                                                  GLsizei instancecount) {
    DrawScope scope = drawScope();
    if (scope.refused()) {
        return;
    }
    mesa().glDrawArraysInstanced(mode, first, count, instancecount);
}

GL_APICALL void GL_APIENTRY glDrawArraysIndirect(GLenum mode, const void* indirect) {
    DrawScope scope = drawScope();
    if (scope.refused()) {
        return;
    }
    mesa().glDrawArraysIndirect(mode, indirect);
}

GL_APICALL void GL_APIENTRY glDrawElements(GLenum mode, GLsizei count, GLenum type,
                                           const void* indices) {
    DrawScope scope = drawScope();
    if (scope.refused()) {
        return;
    }
    mesa().glDrawElements(mode, count, type, indices);
}

GL_APICALL void GL_APIENTRY glDrawElementsInstanced(GLenum mode, GLsizei count, GLenum type,
                                                    const void* indices, GLsizei instancecount) {
    DrawScope scope = drawScope();
    if (scope.refused()) {
        return;
    }
    mesa().glDrawElementsInstanced(mode, count, type, indices, instancecount);
}

GL_APICALL void GL_APIENTRY glDrawElementsIndirect(GLenum mode, GLenum type, const void* indirect) {
    DrawScope scope = drawScope();
    if (scope.refused()) {
        return;
    }
    mesa().glDrawElementsIndirect(mode, type, indirect);
}

GL_APICALL void GL_APIENTRY glDrawElementsBaseVertex(GLenum mode, GLsizei count, GLenum type,
                                                     const void* indices, GLint basevertex) {
    DrawScope scope = drawScope();
    if (scope.refused()) {
        return;
    }
    mesa().glDrawElementsBaseVertex(mode, count, type, indices, basevertex);
}

GL_APICALL void GL_APIENTRY glDrawElementsInstancedBaseVertex(GLenum mode, GLsizei count,
                                                              GLenum type, const void* indices,
                                                              GLsizei instancecount,
                                                              GLint basevertex) {
    DrawScope scope = drawScope();
    if (scope.refused()) {
        return;
    }
    mesa().glDrawElementsInstancedBaseVertex(mode, count, type, indices, instancecount, basevertex);
}

GL_APICALL void GL_APIENTRY glDrawRangeElements(GLenum mode, GLuint start, GLuint end,
                                                GLsizei count, GLenum type, const void* indices) {
    DrawScope scope = drawScope();
    if (scope.refused()) {
        return;
    }
    mesa().glDrawRangeElements(mode, start, end, count, type, indices);
}

GL_APICALL void GL_APIENTRY glDrawRangeElementsBaseVertex(GLenum mode, GLuint start, GLuint end,
                                                          GLsizei count, GLenum type,
                                                          const void* indices, GLint basevertex) {
    DrawScope scope = drawScope();
    if (scope.refused()) {
        return;
    }
    mesa().glDrawRangeElementsBaseVertex(mode, start, end, count, type, indices, basevertex);
}

GL_APICALL void GL_APIENTRY glClear(GLbitfield mask) {
    DrawScope scope(CurrentContext::get(), DrawScope::Renders);
    if (scope.refused()) {
        return;
    }
    mesa().glClear(mask);
}

GL_APICALL void GL_APIENTRY glClearBufferiv(GLenum buffer, GLint drawbuffer, const GLint* value) {
    DrawScope scope(CurrentContext::get(), DrawScope::Renders);
    if (scope.refused()) {
        return;
    }
    mesa().glClearBufferiv(buffer, drawbuffer, value);
}

GL_APICALL void GL_APIENTRY glClearBufferuiv(GLenum buffer, GLint drawbuffer, const GLuint* value) {
    DrawScope scope(CurrentContext::get(), DrawScope::Renders);
    if (scope.refused()) {
        return;
    }
    mesa().glClearBufferuiv(buffer, drawbuffer, value);
}

GL_APICALL void GL_APIENTRY glClearBufferfv(GLenum buffer, GLint drawbuffer, const GLfloat* value) {
    DrawScope scope(CurrentContext::get(), DrawScope::Renders);
    if (scope.refused()) {
        return;
    }
    mesa().glClearBufferfv(buffer, drawbuffer, value);
}

GL_APICALL void GL_APIENTRY glClearBufferfi(GLenum buffer, GLint drawbuffer, GLfloat depth,
                                            GLint stencil) {
    DrawScope scope(CurrentContext::get(), DrawScope::Renders);
    if (scope.refused()) {
        return;
    }
    mesa().glClearBufferfi(buffer, drawbuffer, depth, stencil);
}

GL_APICALL void GL_APIENTRY glBlitFramebuffer(GLint srcX0, GLint srcY0, GLint srcX1, GLint srcY1,
                                              GLint dstX0, GLint dstY0, GLint dstX1, GLint dstY1,
                                              GLbitfield mask, GLenum filter) {
    DrawScope scope(CurrentContext::get(),
                    DrawScope::Reads | DrawScope::Renders | DrawScope::Copies);
    if (scope.refused()) {
        return;
    }
    mesa().glBlitFramebuffer(srcX0, srcY0, srcX1, srcY1, dstX0, dstY0, dstX1, dstY1, mask, filter);
}

GL_APICALL void GL_APIENTRY glReadPixels(GLint x, GLint y, GLsizei width, GLsizei height,
                                         GLenum format, GLenum type, void* pixels) {
    ContextState* context = CurrentContext::get();
    DrawScope scope(context, DrawScope::Reads);
    if (scope.holdsLock() &&
        YuvTargetReader::read(*context, x, y, width, height, format, type, -1, pixels)) {
        return;
    }
    mesa().glReadPixels(x, y, width, height, format, type, pixels);
}

GL_APICALL void GL_APIENTRY glReadnPixels(GLint x, GLint y, GLsizei width, GLsizei height,
                                          GLenum format, GLenum type, GLsizei bufSize, void* data) {
    ContextState* context = CurrentContext::get();
    DrawScope scope(context, DrawScope::Reads);
    if (scope.holdsLock() && bufSize >= 0 &&
        YuvTargetReader::read(*context, x, y, width, height, format, type, bufSize, data)) {
        return;
    }
    mesa().glReadnPixels(x, y, width, height, format, type, bufSize, data);
}

GL_APICALL void GL_APIENTRY glCopyTexImage2D(GLenum target, GLint level, GLenum internalformat,
                                             GLint x, GLint y, GLsizei width, GLsizei height,
                                             GLint border) {
    DrawScope scope(CurrentContext::get(), DrawScope::Reads | DrawScope::Copies);
    if (scope.refused()) {
        return;
    }
    mesa().glCopyTexImage2D(target, level, internalformat, x, y, width, height, border);
}

GL_APICALL void GL_APIENTRY glCopyTexSubImage2D(GLenum target, GLint level, GLint xoffset,
                                                GLint yoffset, GLint x, GLint y, GLsizei width,
                                                GLsizei height) {
    DrawScope scope(CurrentContext::get(), DrawScope::Reads | DrawScope::Copies);
    if (scope.refused()) {
        return;
    }
    mesa().glCopyTexSubImage2D(target, level, xoffset, yoffset, x, y, width, height);
}

GL_APICALL void GL_APIENTRY glFlush(void) {
    if (ContextState* context = CurrentContext::get()) {
        context->flush();
    } else {
        mesa().glFlush();
    }
}

GL_APICALL void GL_APIENTRY glFinish(void) {
    if (ContextState* context = CurrentContext::get()) {
        context->finish();
    } else {
        mesa().glFinish();
    }
}

}  // extern "C"
