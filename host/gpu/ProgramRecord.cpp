#include "ProgramRecord.h"

#include "Counters.h"

namespace zel {
namespace hostgpu {

const ProgramVariant* ProgramRecord::variant(GLuint base, const std::vector<SamplerKind>& kinds) {
    std::string key;
    std::map<std::string, YuvSampling> yuvSamplers;
    std::vector<std::string> order;
    for (size_t i = 0; i < mSamplers.size() && i < kinds.size(); ++i) {
        const ExternalSampler& sampler = mSamplers[i].declaration;
        const SamplerKind& kind = kinds[i];
        order.push_back(sampler.name);
        if (kind.layout == ImageLayout::Rgba || sampler.array) {
            key += "..";
            continue;
        }
        YuvSampling sampling;
        sampling.layout = kind.layout;
        sampling.output = sampler.type == ExternalSampler::Type::Y2y ? YuvShaderCode::Output::Raw
                                                                     : YuvShaderCode::Output::Rgb;
        sampling.conversion = kind.conversion;
        yuvSamplers[sampler.name] = sampling;
        key += static_cast<char>('A' + static_cast<int>(kind.layout));
        key += sampling.output == YuvShaderCode::Output::Raw
                   ? 'r'
                   : static_cast<char>('0' + static_cast<int>(kind.conversion));
    }
    if (yuvSamplers.empty()) {
        return nullptr;
    }
    auto it = mVariants.find(key);
    if (it == mVariants.end()) {
        it = mVariants.emplace(key, ProgramVariant::build(base, mStages, yuvSamplers, order)).first;
        if (it->second) {
            Counters::add(Counter::ProgramVariants);
        }
    }
    return it->second.get();
}

void ProgramRecord::release() {
    for (auto& [key, variant] : mVariants) {
        if (variant) {
            variant->release();
        }
    }
    mVariants.clear();
}

}  // namespace hostgpu
}  // namespace zel
