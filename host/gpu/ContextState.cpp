#include "ContextState.h"

#include <fcntl.h>
#include <unistd.h>

#include <zel/host/Sync.h>

#include "FenceCompleter.h"
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

void ContextState::addUnflushedFence(std::shared_ptr<NativeFence> fence) {
    mUnflushedFences.push_back(std::move(fence));
}

void ContextState::flush() {
    writeBackAll();
    mesa().glFlush();
    if (mUnflushedFences.empty()) {
        return;
    }
    // One point of the timeline stands for all the work so far; every fence gets a descriptor of
    // it, and the completion thread a descriptor of its own.
    const int point = host::createFenceFd(false);
    if (point < 0) {
        return;  // the fences stay unflushed: a later flush tries again
    }
    std::vector<int> waitFor;
    for (const auto& wait : mServerWaits) {
        const int fd = wait->duplicate();
        if (fd >= 0) {
            waitFor.push_back(fd);
        }
    }
    mServerWaits.clear();
    for (const auto& fence : mUnflushedFences) {
        fence->attach(fcntl(point, F_DUPFD_CLOEXEC, 0));
    }
    if (mAttributes.fenceNeverSignals) {
        // A hung GPU: the work is in memory, but nothing ever signals its fences, and nothing
        // (glFinish included) waits for them.
        for (const int fd : waitFor) {
            close(fd);
        }
        close(point);
        mUnflushedFences.clear();
        return;
    }
    mLastSubmitted = mUnflushedFences.back();
    mUnflushedFences.clear();
    FenceCompleter::instance().submit(point, std::move(waitFor), mAttributes.fenceDelay);
}

void ContextState::finish() {
    flush();
    mesa().glFinish();
    if (mLastSubmitted) {
        mLastSubmitted->wait(EGL_FOREVER_KHR);
        mLastSubmitted.reset();
    }
}

void ContextState::addServerWait(std::shared_ptr<NativeFence> fence) {
    // Work of this context already comes after its own earlier fences.
    for (const auto& own : mUnflushedFences) {
        if (own == fence) {
            return;
        }
    }
    mServerWaits.push_back(std::move(fence));
}

void ContextState::waitForServerWaits() {
    for (const auto& wait : mServerWaits) {
        wait->wait(EGL_FOREVER_KHR);
    }
    mServerWaits.clear();
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

GLuint ContextState::attachedTexture(GLuint framebuffer, GLenum attachment) const {
    auto it = mAttachments.find(framebuffer);
    if (it == mAttachments.end()) {
        return 0;
    }
    auto point = it->second.find(attachment);
    return point == it->second.end() ? 0 : point->second;
}

}  // namespace hostgpu
}  // namespace zel
