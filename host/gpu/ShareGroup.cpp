#include "ShareGroup.h"

#include "MesaDriver.h"

namespace zel {
namespace hostgpu {

ImageTexture* ShareGroup::find(GLuint clientTexture) {
    auto it = mImageTextures.find(clientTexture);
    return it == mImageTextures.end() ? nullptr : it->second.get();
}

ImageTexture& ShareGroup::target(GLuint clientTexture, std::shared_ptr<NativeBufferImage> image,
                                 GLuint writeBackFramebuffer) {
    std::unique_ptr<ImageTexture>& entry = mImageTextures[clientTexture];
    if (!entry) {
        entry = std::make_unique<ImageTexture>(std::move(image));
    } else if (&entry->image() != image.get()) {
        entry->writeBack(writeBackFramebuffer);
        entry->retarget(std::move(image));
    }
    return *entry;
}

void ShareGroup::forget(GLsizei count, const GLuint* clientTextures, GLuint writeBackFramebuffer) {
    for (GLsizei i = 0; i < count; ++i) {
        auto it = mImageTextures.find(clientTextures[i]);
        if (it == mImageTextures.end()) {
            continue;
        }
        it->second->writeBack(writeBackFramebuffer);
        const GLuint texture = it->second->releaseTexture();
        if (texture != 0) {
            mesa().glDeleteTextures(1, &texture);
        }
        mImageTextures.erase(it);
    }
}

size_t ShareGroup::writeBack(GLuint framebuffer, uint64_t bufferId, const ImageTexture* except) {
    size_t written = 0;
    for (auto& [clientTexture, texture] : mImageTextures) {
        if (!texture->dirty() || texture.get() == except ||
            (bufferId != 0 && texture->image().bufferId() != bufferId)) {
            continue;
        }
        texture->writeBack(framebuffer);
        ++written;
    }
    return written;
}

void ShareGroup::setShaderExternals(GLuint shader, std::vector<std::string> names) {
    if (names.empty()) {
        mShaderExternals.erase(shader);
    } else {
        mShaderExternals[shader] = std::move(names);
    }
}

const std::vector<std::string>* ShareGroup::shaderExternals(GLuint shader) const {
    auto it = mShaderExternals.find(shader);
    return it == mShaderExternals.end() ? nullptr : &it->second;
}

void ShareGroup::setProgramExternals(GLuint program, std::vector<GLint> locations) {
    if (locations.empty()) {
        mProgramExternals.erase(program);
    } else {
        mProgramExternals[program] = std::move(locations);
    }
}

const std::vector<GLint>* ShareGroup::programExternals(GLuint program) const {
    auto it = mProgramExternals.find(program);
    return it == mProgramExternals.end() ? nullptr : &it->second;
}

}  // namespace hostgpu
}  // namespace zel
