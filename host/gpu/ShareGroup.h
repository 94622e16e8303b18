/*
 * What the layer keeps per GL share group (the contexts that share textures, shaders and
 * programs): the client textures that have an Android-buffer image targeted onto them, and what
 * the shader rewriting learnt about external samplers in shaders and programs.
 *
 * Lives as long as one of its contexts does. Guarded by its mutex: entry points take it for as
 * long as they work on the group.
 */
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "ImageTexture.h"
#include "KhronosApi.h"

namespace zel {
namespace hostgpu {

class ShareGroup {
public:
    ShareGroup() = default;
    ShareGroup(const ShareGroup&) = delete;
    ShareGroup& operator=(const ShareGroup&) = delete;

    std::mutex& mutex() { return mMutex; }

    bool hasImageTextures() const { return !mImageTextures.empty(); }
    // The image texture of a client texture, or null.
    ImageTexture* find(GLuint clientTexture);
    // Targets `image` onto the client texture. `writeBackFramebuffer` serves the write-back of
    // rendering still pending in the texture's previous image.
    ImageTexture& target(GLuint clientTexture, std::shared_ptr<NativeBufferImage> image,
                         GLuint writeBackFramebuffer);
    // The client deleted these textures: their driver textures go too (after a pending
    // write-back).
    void forget(GLsizei count, const GLuint* clientTextures, GLuint writeBackFramebuffer);

    // Writes back every texture with rendering pending; with `bufferId` non-zero only those of that
    // buffer other than `except`. Returns how many were written back.
    size_t writeBack(GLuint framebuffer, uint64_t bufferId = 0,
                     const ImageTexture* except = nullptr);

    // Names of the uniforms a shader declared samplerExternalOES (replaces what was known).
    void setShaderExternals(GLuint shader, std::vector<std::string> names);
    const std::vector<std::string>* shaderExternals(GLuint shader) const;
    // Locations of a linked program's external sampler uniforms (replaces what was known).
    void setProgramExternals(GLuint program, std::vector<GLint> locations);
    const std::vector<GLint>* programExternals(GLuint program) const;

private:
    std::mutex mMutex;
    std::map<GLuint, std::unique_ptr<ImageTexture>> mImageTextures;
    std::unordered_map<GLuint, std::vector<std::string>> mShaderExternals;
    std::unordered_map<GLuint, std::vector<GLint>> mProgramExternals;
};

}  // namespace hostgpu
}  // namespace zel
