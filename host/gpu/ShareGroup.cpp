#include "ShareGroup.h"

#include "Counters.h"
#include "MesaDriver.h"

namespace zel {
namespace hostgpu {

ShareGroup::~ShareGroup() = default;

ImageTexture* ShareGroup::find(GLuint clientTexture) {
    auto it = mImageTextures.find(clientTexture);
    return it == mImageTextures.end() ? nullptr : it->second.get();
}

ImageTexture& ShareGroup::target(GLuint clientTexture, std::shared_ptr<NativeBufferImage> image,
                                 const PassResources& resources) {
    std::unique_ptr<ImageTexture>& entry = mImageTextures[clientTexture];
    if (!entry) {
        entry = std::make_unique<ImageTexture>(std::move(image));
    } else if (&entry->image() != image.get()) {
        entry->writeBack(resources);
        entry->retarget(std::move(image));
    }
    return *entry;
}

void ShareGroup::forget(GLsizei count, const GLuint* clientTextures,
                        const PassResources& resources) {
    for (GLsizei i = 0; i < count; ++i) {
        auto it = mImageTextures.find(clientTextures[i]);
        if (it == mImageTextures.end()) {
            continue;
        }
        it->second->writeBack(resources);
        const std::vector<GLuint> textures = it->second->releaseTextures();
        if (!textures.empty()) {
            mesa().glDeleteTextures(static_cast<GLsizei>(textures.size()), textures.data());
        }
        mImageTextures.erase(it);
    }
}

size_t ShareGroup::writeBack(const PassResources& resources, uint64_t bufferId,
                             const ImageTexture* except) {
    size_t written = 0;
    for (auto& [clientTexture, texture] : mImageTextures) {
        if (!texture->dirty() || texture.get() == except ||
            (bufferId != 0 && texture->image().bufferId() != bufferId)) {
            continue;
        }
        texture->writeBack(resources);
        ++written;
    }
    return written;
}

void ShareGroup::setShader(GLuint shader, ShaderRecord record) {
    if (record.samplers.empty()) {
        mShaders.erase(shader);
    } else {
        mShaders[shader] = std::move(record);
    }
}

void ShareGroup::setYuvOutput(GLuint shader, bool yuvOutput) {
    if (yuvOutput) {
        mYuvOutputShaders.insert(shader);
    } else {
        mYuvOutputShaders.erase(shader);
    }
}

void ShareGroup::linkYuvOutput(GLuint program, const std::vector<GLuint>& shaders) {
    mYuvOutputPrograms.erase(program);
    for (GLuint shader : shaders) {
        if (mYuvOutputShaders.count(shader) != 0) {
            mYuvOutputPrograms.insert(program);
        }
    }
}

const ShareGroup::ShaderRecord* ShareGroup::shader(GLuint shader) const {
    auto it = mShaders.find(shader);
    return it == mShaders.end() ? nullptr : &it->second;
}

void ShareGroup::setProgram(GLuint program, std::unique_ptr<ProgramRecord> record) {
    auto it = mPrograms.find(program);
    if (it != mPrograms.end()) {
        it->second->release();
        mPrograms.erase(it);
    }
    if (record) {
        mPrograms.emplace(program, std::move(record));
    }
}

ProgramRecord* ShareGroup::program(GLuint program) {
    auto it = mPrograms.find(program);
    return it == mPrograms.end() ? nullptr : it->second.get();
}

}  // namespace hostgpu
}  // namespace zel
