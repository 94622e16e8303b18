#include "DrawScope.h"

#include <algorithm>

#include "MesaDriver.h"

namespace zel {
namespace hostgpu {

DrawScope::DrawScope(ContextState* context, unsigned uses) {
    if (context == nullptr) {
        return;
    }
    ShareGroup& group = context->shareGroup();
    mLock = std::unique_lock<std::mutex>(group.mutex());
    if (!group.hasImageTextures()) {
        mLock.unlock();
        return;
    }
    mContext = context;
    if ((uses & Reads) != 0 && context->hasAttachments()) {
        prepareAttachments(GL_READ_FRAMEBUFFER_BINDING, false);
    }
    if ((uses & Renders) != 0 && context->hasAttachments()) {
        prepareAttachments(GL_DRAW_FRAMEBUFFER_BINDING, true);
    }
    if ((uses & Samples) != 0) {
        bindExternalSamplers();
    }
}

DrawScope::~DrawScope() {
    if (mRestore.empty()) {
        return;
    }
    const MesaFunctions& gl = mesa();
    for (const auto& [unit, texture] : mRestore) {
        gl.glActiveTexture(unit);
        gl.glBindTexture(GL_TEXTURE_2D, static_cast<GLuint>(texture));
    }
    gl.glActiveTexture(static_cast<GLenum>(mActiveTexture));
}

void DrawScope::refresh(ImageTexture& texture) {
    mContext->shareGroup().writeBack(mContext->writeBackFramebuffer(), texture.image().bufferId(),
                                     &texture);
    texture.refresh();
}

void DrawScope::prepareAttachments(GLenum binding, bool rendered) {
    GLint framebuffer = 0;
    mesa().glGetIntegerv(binding, &framebuffer);
    for (GLuint clientTexture : mContext->attachedTextures(static_cast<GLuint>(framebuffer))) {
        ImageTexture* texture = mContext->shareGroup().find(clientTexture);
        if (texture == nullptr) {
            continue;
        }
        refresh(*texture);
        if (rendered) {
            texture->markRendered();
        }
    }
}

void DrawScope::bindExternalSamplers() {
    const MesaFunctions& gl = mesa();
    GLint program = 0;
    gl.glGetIntegerv(GL_CURRENT_PROGRAM, &program);
    const std::vector<GLint>* locations =
        program == 0 ? nullptr
                     : mContext->shareGroup().programExternals(static_cast<GLuint>(program));
    if (locations == nullptr) {
        return;
    }
    gl.glGetIntegerv(GL_ACTIVE_TEXTURE, &mActiveTexture);
    for (GLint location : *locations) {
        GLint unitIndex = 0;
        gl.glGetUniformiv(static_cast<GLuint>(program), location, &unitIndex);
        const GLenum unit = GL_TEXTURE0 + static_cast<GLenum>(unitIndex);
        if (std::any_of(mRestore.begin(), mRestore.end(),
                        [unit](const auto& entry) { return entry.first == unit; })) {
            continue;
        }
        gl.glActiveTexture(unit);
        GLint clientTexture = 0;
        gl.glGetIntegerv(GL_TEXTURE_BINDING_EXTERNAL_OES, &clientTexture);
        ImageTexture* texture = mContext->shareGroup().find(static_cast<GLuint>(clientTexture));
        if (texture == nullptr) {
            continue;
        }
        refresh(*texture);
        GLint sampling[4] = {};
        gl.glGetTexParameteriv(GL_TEXTURE_EXTERNAL_OES, GL_TEXTURE_MIN_FILTER, &sampling[0]);
        gl.glGetTexParameteriv(GL_TEXTURE_EXTERNAL_OES, GL_TEXTURE_MAG_FILTER, &sampling[1]);
        gl.glGetTexParameteriv(GL_TEXTURE_EXTERNAL_OES, GL_TEXTURE_WRAP_S, &sampling[2]);
        gl.glGetTexParameteriv(GL_TEXTURE_EXTERNAL_OES, GL_TEXTURE_WRAP_T, &sampling[3]);
        GLint previous = 0;
        gl.glGetIntegerv(GL_TEXTURE_BINDING_2D, &previous);
        mRestore.emplace_back(unit, previous);
        gl.glBindTexture(GL_TEXTURE_2D, texture->texture());
        texture->applySampling(sampling);
    }
    if (mRestore.empty()) {
        gl.glActiveTexture(static_cast<GLenum>(mActiveTexture));
    }
}

}  // namespace hostgpu
}  // namespace zel
