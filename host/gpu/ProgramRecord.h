/*
 * What the layer knows about a linked client program that declares external samplers: the
 * samplers (name, type, uniform locations), the client's shader text of each stage as linked, and
 * the program variants made for the kinds of images its samplers have sampled (one driver program
 * per combination, kept until the program is deleted or linked again).
 */
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ImageFormat.h"
#include "KhronosApi.h"
#include "ProgramVariant.h"
#include "ShaderRewriter.h"
#include "YuvConversion.h"

namespace zel {
namespace hostgpu {

// What an external sampler samples in a draw: a packed image (or none), or a YUV image with the
// conversion of its dataspace.
struct SamplerKind {
    ImageLayout layout = ImageLayout::Rgba;
    YuvConversion conversion = YuvConversion::Bt601;
};

class ProgramRecord {
public:
    struct Sampler {
        ExternalSampler declaration;
        std::vector<GLint> locations;  // one per element of arrays
    };

    ProgramRecord(std::vector<Sampler> samplers, std::vector<ProgramVariant::Stage> stages)
        : mSamplers(std::move(samplers)), mStages(std::move(stages)) {}
    ProgramRecord(const ProgramRecord&) = delete;
    ProgramRecord& operator=(const ProgramRecord&) = delete;

    const std::vector<Sampler>& samplers() const { return mSamplers; }

    // The variant of `base` for `kinds` (one per sampler), made on first use; null when every
    // kind is packed or the variant cannot be built (a failure is not retried).
    const ProgramVariant* variant(GLuint base, const std::vector<SamplerKind>& kinds);
    size_t variantCount() const { return mVariants.size(); }

    // Deletes the variants' driver programs (a context of the share group current).
    void release();

private:
    std::vector<Sampler> mSamplers;
    std::vector<ProgramVariant::Stage> mStages;
    std::map<std::string, std::unique_ptr<ProgramVariant>> mVariants;
};

}  // namespace hostgpu
}  // namespace zel
