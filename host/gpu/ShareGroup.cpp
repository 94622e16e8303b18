#include "ShareGroup.h"

#include <algorithm>

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
        dropFreedStorage();
        const NativeBufferImage::Crop& crop = image->crop();
        auto kept = std::find_if(mKept.begin(), mKept.end(), [&](const KeptStorage& candidate) {
            return candidate.bufferId == image->bufferId() &&
                   candidate.format == &image->format() && candidate.crop.left == crop.left &&
                   candidate.crop.top == crop.top && candidate.crop.width == crop.width &&
                   candidate.crop.height == crop.height;
        });
        if (kept == mKept.end()) {
            entry = std::make_unique<ImageTexture>(std::move(image));
        } else {
            entry = std::make_unique<ImageTexture>(std::move(image), std::move(kept->storage));
            mKept.erase(kept);
        }
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
        const NativeBufferImage& image = it->second->image();
        KeptStorage kept{image.bufferId(), &image.format(), image.crop(), image.lifetime(),
                         it->second->releaseStorage()};
        mImageTextures.erase(it);
        if (kept.allocation.expired()) {
            deleteStorage(kept.storage);
            continue;
        }
        mKept.push_back(std::move(kept));
        if (mKept.size() > kKeptStorageCap) {
            deleteStorage(mKept.front().storage);
            mKept.erase(mKept.begin());
        }
    }
    dropFreedStorage();
}

void ShareGroup::deleteStorage(const ImageTexture::Storage& storage) {
    const std::vector<GLuint> textures = storage.names();
    if (!textures.empty()) {
        mesa().glDeleteTextures(static_cast<GLsizei>(textures.size()), textures.data());
    }
}

void ShareGroup::dropFreedStorage() {
    auto freed = std::remove_if(mKept.begin(), mKept.end(), [](const KeptStorage& kept) {
        if (!kept.allocation.expired()) {
            return false;
        }
        deleteStorage(kept.storage);
        return true;
    });
    mKept.erase(freed, mKept.end());
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

void ShareGroup::setShaderPlacement(GLuint shader, ShaderPlacement placement) {
    mShaderPlacements[shader] = std::move(placement);
}

const ShareGroup::ShaderPlacement* ShareGroup::shaderPlacement(GLuint shader) const {
    auto it = mShaderPlacements.find(shader);
    return it == mShaderPlacements.end() ? nullptr : &it->second;
}

void ShareGroup::setCoverage(GLuint program, const DrawCoverage::Program* coverage) {
    if (coverage == nullptr) {
        mCoverage.erase(program);
    } else {
        mCoverage[program] = *coverage;
    }
}

const DrawCoverage::Program* ShareGroup::coverage(GLuint program) const {
    auto it = mCoverage.find(program);
    return it == mCoverage.end() ? nullptr : &it->second;
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

void ShareGroup::deleted(GLuint name) {
    if (std::find(mDeletedInUse.begin(), mDeletedInUse.end(), name) == mDeletedInUse.end()) {
        mDeletedInUse.push_back(name);
    }
    releaseFreed();
}

void ShareGroup::releaseFreed(GLuint created) {
    const MesaFunctions& gl = mesa();
    auto freed = std::remove_if(mDeletedInUse.begin(), mDeletedInUse.end(), [&](GLuint name) {
        // A name that serves a new object has let go of the old one. Shaders and programs share
        // one name space.
        if (name != created &&
            (gl.glIsProgram(name) == GL_TRUE || gl.glIsShader(name) == GL_TRUE)) {
            return false;
        }
        setProgram(name, nullptr);
        mCoverage.erase(name);
        mYuvOutputPrograms.erase(name);
        mShaders.erase(name);
        mYuvOutputShaders.erase(name);
        return true;
    });
    mDeletedInUse.erase(freed, mDeletedInUse.end());
}

}  // namespace hostgpu
}  // namespace zel
