/*
 * What the layer keeps per GL share group (the contexts that share textures, shaders and
 * programs): the client textures that have an Android-buffer image targeted onto them, what the
 * shader rewriting learnt about external samplers in shaders and programs (with the programs'
 * YUV variants), and the programs of the layer's own YUV passes.
 *
 * Lives as long as one of its contexts does. Guarded by its mutex: entry points take it for as
 * long as they work on the group.
 */
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "DrawCoverage.h"
#include "ImageTexture.h"
#include "KhronosApi.h"
#include "LiveNames.h"
#include "PositionForm.h"
#include "ProgramRecord.h"
#include "ShaderRewriter.h"
#include "YuvPassPrograms.h"

namespace zel {
namespace hostgpu {

class ShareGroup {
public:
    // A shader with external samplers: the client's text and what it declares.
    struct ShaderRecord {
        std::string source;
        std::vector<ExternalSampler> samplers;
    };

    ShareGroup() = default;
    ~ShareGroup();
    ShareGroup(const ShareGroup&) = delete;
    ShareGroup& operator=(const ShareGroup&) = delete;

    std::mutex& mutex() { return mMutex; }

    bool hasImageTextures() const { return !mImageTextures.empty(); }
    // The image texture of a client texture, or null.
    ImageTexture* find(GLuint clientTexture);
    // Targets `image` onto the client texture. `resources` serve the write-back of rendering
    // still pending in the texture's previous image.
    ImageTexture& target(GLuint clientTexture, std::shared_ptr<NativeBufferImage> image,
                         const PassResources& resources);
    // The client deleted these textures: after a pending write-back their driver textures are kept
    // for the next texture of the same allocation (see ImageTexture::Storage), until the
    // allocation is freed or more than kKeptStorageCap are kept (least recently kept first).
    void forget(GLsizei count, const GLuint* clientTextures, const PassResources& resources);

    // Writes back every texture with rendering pending; with `bufferId` non-zero only those of that
    // buffer other than `except`. Returns how many were written back.
    size_t writeBack(const PassResources& resources, uint64_t bufferId = 0,
                     const ImageTexture* except = nullptr);

    // What a shader declares (replaces what was known; a record without samplers forgets it).
    void setShader(GLuint shader, ShaderRecord record);
    const ShaderRecord* shader(GLuint shader) const;
    // A linked program's external samplers and variants (replaces what was known, deleting the
    // old variants; null forgets the program). A context of the group must be current.
    void setProgram(GLuint program, std::unique_ptr<ProgramRecord> record);
    ProgramRecord* program(GLuint program);
    // The client deleted this shader or program (the driver has been told). The driver keeps a
    // program while it is current and a shader while it is attached, and the layer keeps their
    // records as long: they go at a later deletion or creation once the driver has freed the
    // object. Waiting for the name to serve another object instead would keep them for good, as
    // the driver does not reuse these names.
    void deleted(GLuint name);
    // Drops the records of deleted shaders and programs that the driver has freed since, those of
    // `created` (a name that serves a new object now) included. A context of the group must be
    // current.
    void releaseFreed(GLuint created = 0);
    // Whether a shader, and a linked program through its shaders, declares a layout(yuv) output.
    void setYuvOutput(GLuint shader, bool yuvOutput);
    void linkYuvOutput(GLuint program, const std::vector<GLuint>& shaders);
    bool writesYuv(GLuint program) const { return mYuvOutputPrograms.count(program) != 0; }

    // What a shader's text proves about where its draws go (PositionForm); a shader the layer
    // knows nothing about proves nothing.
    struct ShaderPlacement {
        std::optional<PositionForm> position;
        bool dropsFragments = true;
    };
    void setShaderPlacement(GLuint shader, ShaderPlacement placement);
    const ShaderPlacement* shaderPlacement(GLuint shader) const;
    // A linked program whose draws DrawCoverage can check (null forgets it).
    void setCoverage(GLuint program, const DrawCoverage::Program* coverage);
    const DrawCoverage::Program* coverage(GLuint program) const;

    YuvPassPrograms& passPrograms() { return mPassPrograms; }

    // The client's buffer objects, textures and programs in the group, for the live counters.
    LiveNames& buffers() { return mBuffers; }
    LiveNames& textures() { return mTextures; }
    LiveNames& programs() { return mProgramNames; }

private:
    static constexpr size_t kKeptStorageCap = 64;
    // Driver textures whose client texture was deleted, kept for their allocation.
    struct KeptStorage {
        uint64_t bufferId = 0;
        const ImageFormat* format = nullptr;
        NativeBufferImage::Crop crop;
        std::weak_ptr<const void> allocation;
        ImageTexture::Storage storage;
    };
    // Deletes kept storage whose allocation is gone.
    void dropFreedStorage();
    static void deleteStorage(const ImageTexture::Storage& storage);

    std::mutex mMutex;
    std::vector<KeptStorage> mKept;  // least recently kept first
    std::map<GLuint, std::unique_ptr<ImageTexture>> mImageTextures;
    std::unordered_map<GLuint, ShaderRecord> mShaders;
    std::unordered_set<GLuint> mYuvOutputShaders;
    std::unordered_set<GLuint> mYuvOutputPrograms;
    std::unordered_map<GLuint, ShaderPlacement> mShaderPlacements;
    std::unordered_map<GLuint, DrawCoverage::Program> mCoverage;
    std::unordered_map<GLuint, std::unique_ptr<ProgramRecord>> mPrograms;
    std::vector<GLuint> mDeletedInUse;  // deleted shaders and programs the driver may still hold
    YuvPassPrograms mPassPrograms;
    LiveNames mBuffers{Counter::BuffersAlive};
    LiveNames mTextures{Counter::TexturesAlive};
    LiveNames mProgramNames{Counter::ProgramsAlive};
};

}  // namespace hostgpu
}  // namespace zel
