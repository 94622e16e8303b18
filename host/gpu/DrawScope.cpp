#include "DrawScope.h"

#include <algorithm>

#include "GlErrorQueue.h"
#include "MesaDriver.h"
#include "ProgramRecord.h"

namespace zel {
namespace hostgpu {

DrawScope::DrawScope(ContextState* context, unsigned uses, const DrawCoverage::DrawArrays* draw)
    : mDraw(draw) {
    if (context == nullptr) {
        return;
    }
    context->waitForServerWaits();
    ShareGroup& group = context->shareGroup();
    mLock = std::unique_lock<std::mutex>(group.mutex());
    if (context->attributes().conformant && breaksYuvTargetRules(*context, uses)) {
        GlErrorQueue::push(GL_INVALID_OPERATION);
        mRefused = true;
        mLock.unlock();
        return;
    }
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
    mDraw = nullptr;
}

DrawScope::~DrawScope() {
    if (!mCovered.empty()) {
        // A draw that was refused or failed wrote nothing: the covered textures hold what they
        // held.
        const GLenum error = mesa().glGetError();
        if (error != GL_NO_ERROR) {
            GlErrorQueue::push(error);
        }
        if (mRefused || error != GL_NO_ERROR) {
            for (const auto& [texture, previous] : mCovered) {
                texture->uncover(previous);
            }
        }
    }
    if (mRestore.empty() && !mVariantActive) {
        return;
    }
    const MesaFunctions& gl = mesa();
    for (const auto& [unit, texture] : mRestore) {
        gl.glActiveTexture(unit);
        gl.glBindTexture(GL_TEXTURE_2D, static_cast<GLuint>(texture));
    }
    gl.glActiveTexture(static_cast<GLenum>(mActiveTexture));
    if (mVariantActive) {
        gl.glUseProgram(mProgram);
    }
}

bool DrawScope::breaksYuvTargetRules(ContextState& context, unsigned uses) const {
    const MesaFunctions& gl = mesa();
    auto yuvAttached = [&](GLenum binding, size_t* attachments) {
        GLint framebuffer = 0;
        gl.glGetIntegerv(binding, &framebuffer);
        const std::vector<GLuint> textures =
            context.attachedTextures(static_cast<GLuint>(framebuffer));
        *attachments = textures.size();
        return std::any_of(textures.begin(), textures.end(), [&](GLuint texture) {
            const ImageTexture* image = context.shareGroup().find(texture);
            return image != nullptr && image->isYuv();
        });
    };
    size_t attachments = 0;
    if ((uses & Copies) != 0 && yuvAttached(GL_READ_FRAMEBUFFER_BINDING, &attachments)) {
        return true;  // a YUV target is never the source of a copy
    }
    if ((uses & Renders) == 0) {
        return false;
    }
    const bool yuvTarget = yuvAttached(GL_DRAW_FRAMEBUFFER_BINDING, &attachments);
    if ((uses & Samples) != 0) {
        // A layout(yuv) output goes into YUV targets only, and only it goes there.
        GLint program = 0;
        gl.glGetIntegerv(GL_CURRENT_PROGRAM, &program);
        if (context.shareGroup().writesYuv(static_cast<GLuint>(program)) != yuvTarget) {
            return true;
        }
    }
    if (!yuvTarget) {
        return false;
    }
    // A YUV target is the only colour attachment, with no blending and every channel written.
    GLint second = GL_NONE;
    gl.glGetFramebufferAttachmentParameteriv(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT1,
                                             GL_FRAMEBUFFER_ATTACHMENT_OBJECT_TYPE, &second);
    GLboolean mask[4] = {GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE};
    gl.glGetBooleanv(GL_COLOR_WRITEMASK, mask);
    const bool blending = (uses & Samples) != 0 && gl.glIsEnabled(GL_BLEND) == GL_TRUE;
    return attachments > 1 || second != GL_NONE || blending ||
           !(mask[0] && mask[1] && mask[2] && mask[3]);
}

void DrawScope::writeBackOthers(ImageTexture& texture) {
    mContext->shareGroup().writeBack(mContext->passResources(), texture.image().bufferId(),
                                     &texture);
}

void DrawScope::prepareAttachments(GLenum binding, bool rendered) {
    GLint framebuffer = 0;
    mesa().glGetIntegerv(binding, &framebuffer);
    for (GLuint clientTexture : mContext->attachedTextures(static_cast<GLuint>(framebuffer))) {
        ImageTexture* texture = mContext->shareGroup().find(clientTexture);
        if (texture == nullptr) {
            continue;
        }
        writeBackOthers(*texture);
        if (rendered && mDraw != nullptr && texture->renderingNeedsMemory() &&
            drawCovers(*texture)) {
            mCovered.emplace_back(texture, texture->cover());
        } else {
            texture->refreshForRendering(mContext->passResources());
        }
        if (rendered) {
            texture->markRendered();
            mRendered.push_back(texture);
        }
    }
}

bool DrawScope::drawCovers(ImageTexture& texture) {
    const MesaFunctions& gl = mesa();
    GLint program = 0;
    gl.glGetIntegerv(GL_CURRENT_PROGRAM, &program);
    const DrawCoverage::Program* coverage =
        mContext->shareGroup().coverage(static_cast<GLuint>(program));
    if (coverage == nullptr ||
        samplesBuffer(static_cast<GLuint>(program), texture.image().bufferId())) {
        return false;
    }
    // The draw's own error tells whether it ran: an earlier one is kept for the client, one
    // raised by the checks' queries makes the answer no.
    const GLenum earlier = gl.glGetError();
    if (earlier != GL_NO_ERROR) {
        GlErrorQueue::push(earlier);
    }
    const bool covered = DrawCoverage::covers(*coverage, static_cast<GLuint>(program), *mDraw,
                                              texture.renderTexture(), texture.image().crop().width,
                                              texture.image().crop().height);
    return gl.glGetError() == GL_NO_ERROR && covered;
}

bool DrawScope::samplesBuffer(GLuint program, uint64_t bufferId) {
    ProgramRecord* record = mContext->shareGroup().program(program);
    if (record == nullptr) {
        return false;
    }
    const MesaFunctions& gl = mesa();
    GLint active = 0;
    gl.glGetIntegerv(GL_ACTIVE_TEXTURE, &active);
    bool found = false;
    for (const ProgramRecord::Sampler& sampler : record->samplers()) {
        for (GLint location : sampler.locations) {
            GLint unit = 0;
            gl.glGetUniformiv(program, location, &unit);
            gl.glActiveTexture(GL_TEXTURE0 + static_cast<GLenum>(unit));
            GLint clientTexture = 0;
            gl.glGetIntegerv(GL_TEXTURE_BINDING_EXTERNAL_OES, &clientTexture);
            const ImageTexture* sampled =
                mContext->shareGroup().find(static_cast<GLuint>(clientTexture));
            found = found || (sampled != nullptr && sampled->image().bufferId() == bufferId);
        }
    }
    gl.glActiveTexture(static_cast<GLenum>(active));
    return found;
}

void DrawScope::bind(GLenum unit, GLuint texture) {
    const MesaFunctions& gl = mesa();
    gl.glActiveTexture(unit);
    if (std::none_of(mRestore.begin(), mRestore.end(),
                     [unit](const auto& entry) { return entry.first == unit; })) {
        GLint previous = 0;
        gl.glGetIntegerv(GL_TEXTURE_BINDING_2D, &previous);
        mRestore.emplace_back(unit, previous);
    }
    gl.glBindTexture(GL_TEXTURE_2D, texture);
}

void DrawScope::bindExternalSamplers() {
    const MesaFunctions& gl = mesa();
    GLint program = 0;
    gl.glGetIntegerv(GL_CURRENT_PROGRAM, &program);
    ProgramRecord* record =
        program == 0 ? nullptr : mContext->shareGroup().program(static_cast<GLuint>(program));
    if (record == nullptr) {
        return;
    }
    gl.glGetIntegerv(GL_ACTIVE_TEXTURE, &mActiveTexture);

    // The images on the samplers' units, brought up to date, and what kind each sampler samples.
    struct Sampled {
        ImageTexture* texture;
        GLenum unit;
        uint32_t sampler;
        bool yuv;  // sampled through the planes and the sampling function
        GLint sampling[4];
        bool ownsUnit;  // the first sampler on its unit: binds plane 0 there
    };
    std::vector<Sampled> sampled;
    std::vector<SamplerKind> kinds(record->samplers().size());
    const PassResources& resources = mContext->passResources();
    for (uint32_t index = 0; index < record->samplers().size(); ++index) {
        const ProgramRecord::Sampler& sampler = record->samplers()[index];
        for (GLint location : sampler.locations) {
            GLint unitIndex = 0;
            gl.glGetUniformiv(static_cast<GLuint>(program), location, &unitIndex);
            const GLenum unit = GL_TEXTURE0 + static_cast<GLenum>(unitIndex);
            gl.glActiveTexture(unit);
            GLint clientTexture = 0;
            gl.glGetIntegerv(GL_TEXTURE_BINDING_EXTERNAL_OES, &clientTexture);
            ImageTexture* texture = mContext->shareGroup().find(static_cast<GLuint>(clientTexture));
            if (texture == nullptr) {
                continue;
            }
            if (mContext->attributes().conformant && !texture->isYuv() &&
                sampler.declaration.type == ExternalSampler::Type::Y2y) {
                // GL_EXT_YUV_target: a YUV sampler samples YUV images only.
                GlErrorQueue::push(GL_INVALID_OPERATION);
                mRefused = true;
            }
            const bool yuv = texture->isYuv() && !sampler.declaration.array;
            if (yuv) {
                kinds[index].layout = texture->image().format().layout;
                kinds[index].conversion = conversionOfDataspace(texture->image().dataspace());
            }
            auto same = std::find_if(sampled.begin(), sampled.end(),
                                     [unit](const Sampled& each) { return each.unit == unit; });
            if (same != sampled.end()) {
                // Another sampler on the unit: the image is up to date, only its own planes
                // remain to bind.
                Sampled entry = *same;
                entry.sampler = index;
                entry.yuv = yuv;
                entry.ownsUnit = false;
                sampled.push_back(entry);
                continue;
            }
            writeBackOthers(*texture);
            const bool renderedHere =
                std::find(mRendered.begin(), mRendered.end(), texture) != mRendered.end();
            texture->refreshForSampling(resources, renderedHere);
            Sampled entry = {texture, unit, index, yuv, {}, true};
            gl.glActiveTexture(unit);
            gl.glGetTexParameteriv(GL_TEXTURE_EXTERNAL_OES, GL_TEXTURE_MIN_FILTER,
                                   &entry.sampling[0]);
            gl.glGetTexParameteriv(GL_TEXTURE_EXTERNAL_OES, GL_TEXTURE_MAG_FILTER,
                                   &entry.sampling[1]);
            gl.glGetTexParameteriv(GL_TEXTURE_EXTERNAL_OES, GL_TEXTURE_WRAP_S, &entry.sampling[2]);
            gl.glGetTexParameteriv(GL_TEXTURE_EXTERNAL_OES, GL_TEXTURE_WRAP_T, &entry.sampling[3]);
            sampled.push_back(entry);
        }
    }
    const ProgramVariant* variant = record->variant(static_cast<GLuint>(program), kinds);

    // Plane 0 (the packed texture or Y) on the sampler's unit, the other planes on the units the
    // variant reads them from.
    for (const Sampled& entry : sampled) {
        ImageTexture& texture = *entry.texture;
        const uint32_t planes = entry.yuv && variant != nullptr ? texture.planeCount() : 1;
        for (uint32_t plane = entry.ownsUnit ? 0 : 1; plane < planes; ++plane) {
            bind(plane == 0 ? entry.unit : ProgramVariant::planeUnit(entry.sampler, plane),
                 texture.planeTexture(plane));
            texture.applySampling(plane, entry.sampling);
        }
    }
    if (variant != nullptr) {
        variant->activate(static_cast<GLuint>(program));
        mProgram = static_cast<GLuint>(program);
        mVariantActive = true;
        for (const Sampled& entry : sampled) {
            if (entry.yuv) {
                float transform[4];
                entry.texture->image().chromaTransform(transform);
                variant->setChromaTransform(entry.sampler, transform);
            }
        }
    }
    gl.glActiveTexture(static_cast<GLenum>(mActiveTexture));
}

}  // namespace hostgpu
}  // namespace zel
