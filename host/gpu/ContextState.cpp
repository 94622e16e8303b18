#include "ContextState.h"

#include "MesaDriver.h"

namespace zel {
namespace hostgpu {

ContextState::ContextState(const ContextAttributes& attributes,
                           std::shared_ptr<ShareGroup> shareGroup)
    : mAttributes(attributes), mShareGroup(std::move(shareGroup)) {}

const PassResources& ContextState::passResources() {
    if (mPassResources.framebuffer == 0) {
        mesa().glGenFramebuffers(1, &mPassResources.framebuffer);
        mesa().glGenVertexArrays(1, &mPassResources.vertexArray);
        mPassResources.programs = &mShareGroup->passPrograms();
        mPassResources.chromaTopLeft = mAttributes.chromaTopLeft;
    }
    return mPassResources;
}

size_t ContextState::writeBackAll() {
    std::lock_guard<std::mutex> lock(mShareGroup->mutex());
    if (!mShareGroup->hasImageTextures()) {
        return 0;
    }
    return mShareGroup->writeBack(passResources());
}

void ContextState::setAttachment(GLuint framebuffer, GLenum attachment, GLuint clientTexture) {
    mAttachments[framebuffer][attachment] = clientTexture;
}

void ContextState::clearAttachment(GLuint framebuffer, GLenum attachment) {
    auto it = mAttachments.find(framebuffer);
    if (it == mAttachments.end()) {
        return;
    }
    it->second.erase(attachment);
    if (it->second.empty()) {
        mAttachments.erase(it);
    }
}

void ContextState::forgetFramebuffer(GLuint framebuffer) {
    mAttachments.erase(framebuffer);
}

void ContextState::forgetTexture(GLuint clientTexture) {
    for (auto it = mAttachments.begin(); it != mAttachments.end();) {
        for (auto point = it->second.begin(); point != it->second.end();) {
            point = point->second == clientTexture ? it->second.erase(point) : std::next(point);
        }
        it = it->second.empty() ? mAttachments.erase(it) : std::next(it);
    }
}

std::vector<GLuint> ContextState::attachedTextures(GLuint framebuffer) const {
    std::vector<GLuint> textures;
    auto it = mAttachments.find(framebuffer);
    if (it != mAttachments.end()) {
        for (const auto& [attachment, texture] : it->second) {
            textures.push_back(texture);
        }
    }
    return textures;
}

}  // namespace hostgpu
}  // namespace zel
