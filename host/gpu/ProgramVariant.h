/*
 * A driver program that stands in for a client program while some of its external samplers
 * sample YUV images: the client's shader text rewritten for those images (ShaderRewriter), linked
 * with the client program's attribute locations. The client keeps using its own program object;
 * for a draw the layer makes the variant current and copies the client program's uniform values
 * and uniform block bindings into it first, so that the variant draws exactly what the client set.
 *
 * Every GL call needs a context of the program's share group current.
 */
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "KhronosApi.h"
#include "ShaderRewriter.h"

namespace zel {
namespace hostgpu {

class ProgramVariant {
public:
    struct Stage {
        GLenum type;
        std::string source;  // the client's text
    };

    // Builds the variant of `base`; null (with a line on stderr) when it does not compile or link.
    // `yuvSamplers` names the samplers that sample YUV images; sampler k of `samplerOrder` gets
    // its extra planes on reserved units 3 + 2k and 4 + 2k.
    static std::unique_ptr<ProgramVariant> build(
        GLuint base, const std::vector<Stage>& stages,
        const std::map<std::string, YuvSampling>& yuvSamplers,
        const std::vector<std::string>& samplerOrder);
    ~ProgramVariant();  // the driver program is deleted by release()
    ProgramVariant(const ProgramVariant&) = delete;
    ProgramVariant& operator=(const ProgramVariant&) = delete;

    GLuint program() const { return mProgram; }
    // Texture unit of extra plane `plane` (1 or 2) of sampler `index` of the sampler order.
    static GLenum planeUnit(uint32_t index, uint32_t plane);

    // Copies the uniform values and block bindings of `base` and makes the variant current.
    void activate(GLuint base) const;
    // Sets the chroma transform of sampler `index` (see NativeBufferImage::chromaTransform).
    void setChromaTransform(uint32_t index, const float transform[4]) const;

    // Deletes the driver program (a context of the share group current).
    void release();

private:
    struct UniformCopy {
        GLint from;
        GLint to;
        GLenum type;
    };
    struct BlockCopy {
        GLuint from;
        GLuint to;
    };

    explicit ProgramVariant(GLuint program) : mProgram(program) {}
    void collectUniforms(GLuint base);

    GLuint mProgram = 0;
    std::vector<UniformCopy> mUniforms;
    std::vector<BlockCopy> mBlocks;
    std::vector<GLint> mChromaTransforms;  // per sampler of the order; -1: none
};

}  // namespace hostgpu
}  // namespace zel
