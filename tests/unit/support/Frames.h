/*
 * Frames for renderer tests: graphic buffers filled with test images, wrapped as the Buffer
 * records a codec hands the renderer, and the expected picture of a draw computed independently
 * of the library, from where each destination pixel lands in the source.
 */
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <string>

#include <ui/GraphicBuffer.h>

#include <zel/ExternalTexture.h>
#include <zel/Renderer.h>

#include "PixelMatch.h"

namespace zel {
namespace test {

// GPU-only usage (texture + render target): such a source is cached by the renderer.
constexpr uint64_t kGpuUsage = 0x100 | 0x200;
// CPU read/write usage besides: never cached.
constexpr uint64_t kCpuUsage = kGpuUsage | 0x3 | 0x30;

android::sp<android::GraphicBuffer> allocateBuffer(int width, int height, int32_t format,
                                                   uint64_t usage = kGpuUsage);

// A Buffer record around `buffer`, with settings when given.
kav::zel::Buffer bufferOf(const android::sp<android::GraphicBuffer>& buffer,
                          std::shared_ptr<kav::zel::BufferSettings> settings = nullptr);

void setDataspace(android::GraphicBuffer& buffer, int32_t dataspace);

// The source picture of `format` filled from `image`: RGBA as it is, YUV encoded in `space`.
// Returns what sampling it as RGBA yields per pixel (for YUV, the decoded planes).
RgbImage fillSource(android::GraphicBuffer& buffer, const RgbImage& image,
                    const ColourSpace& space);

// Where a destination pixel centre (x, y) samples the source, in normalised texture coordinates;
// false when the pixel is not covered by the draw.
using SampleMap = std::function<bool(double x, double y, double* s, double* t)>;

// Checks an RGBA destination against `source` through `map`: a covered pixel must match, within
// `tolerance`, one of the source texels around (s, t) (a texel edge may fall on a pixel centre);
// a pixel not covered must still hold `poison`. Pixels within half a pixel of the coverage edge
// may be either.
testing::AssertionResult drawMatches(const RgbImage& actual, const RgbImage& source,
                                     const SampleMap& map, const Rgb8& poison, int tolerance);

// Test names for the renderer type a parameterised test runs on: "Direct" or "Threaded".
std::string rendererTypeName(const testing::TestParamInfo<int>& info);

// Descriptors this process has open now.
size_t openFdCount();
// Threads of this process now.
size_t threadCount();
// Threads of this process whose name (/proc/self/task/*/comm) is |name|.
size_t threadsNamed(const std::string& name);

// What a renderer may leave behind, counted now: GPU objects the layer follows, fence
// descriptors, all descriptors and threads of the process.
struct LiveResources {
    uint64_t contexts = 0;
    uint64_t images = 0;
    uint64_t textures = 0;
    uint64_t framebuffers = 0;
    uint64_t programs = 0;
    uint64_t buffers = 0;
    uint64_t fenceFds = 0;
    size_t descriptors = 0;
    size_t threads = 0;

    static LiveResources now();
    bool operator==(const LiveResources& other) const;
    bool operator!=(const LiveResources& other) const { return !(*this == other); }
};
std::ostream& operator<<(std::ostream& out, const LiveResources& live);

// Blits a small gradient (a GPU-only source, so it is cached) through `renderer` into a poisoned
// RGBA destination; success when every pixel arrived.
testing::AssertionResult blitsCorrectly(kav::zel::Renderer& renderer);

}  // namespace test
}  // namespace zel
