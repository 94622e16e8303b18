// Frames a buggy or hostile client may hand over: each gets a clear Status and, when refused, one
// error line, never a crash; the destination of a refused frame is left alone, and the renderer
// goes on converting correctly afterwards. Both renderer types.
#include <cmath>
#include <functional>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include <bufmeta.h>

#include <zel/ExternalTexture.h>
#include <zel/Renderer.h>
#include <zel/host/Gpu.h>
#include <zel/host/Gralloc.h>

#include "Frames.h"
#include "LogCapture.h"
#include "Mesh.h"

namespace kav {
namespace zel {
namespace {

using namespace ::zel::test;

constexpr int kSize = 32;
constexpr int kHuge = 1 << 15;  // beyond any GL_MAX_TEXTURE_SIZE and viewport of the host

// A frame as a client hands it over: a gradient source and a poisoned RGBA destination, which
// each case then spoils in one way.
struct Frame {
    Frame() {
        picture = gradient(kSize, kSize);
        sourceBuffer = allocateBuffer(kSize, kSize, 0x1);
        writeRgba(*sourceBuffer, picture);
        targetBuffer = allocateBuffer(kSize, kSize, 0x1);
        poisonBuffer(*targetBuffer);
        source = bufferOf(sourceBuffer, std::make_shared<BufferSettings>());
        source.settings->crop = android::Rect::INVALID_RECT;
        source.settings->region = android::Rect::INVALID_RECT;
        output = bufferOf(targetBuffer);
    }
    BufferSettings& settings() { return *source.settings; }

    RgbImage picture;
    android::sp<android::GraphicBuffer> sourceBuffer;
    android::sp<android::GraphicBuffer> targetBuffer;
    Buffer source;
    Buffer output;
};

struct BadInput {
    const char* name;
    std::function<void(Frame&, Renderer&)> spoil;
    Status expected;
    const char* line;  // logged at error priority; nullptr: no error line
};

const BadInput kBadInputs[] = {
    {"source without texture", [](Frame& f, Renderer&) { f.source.texture.reset(); }, BAD_VALUE,
     "src buffer has no texture"},
    {"destination without texture", [](Frame& f, Renderer&) { f.output.texture.reset(); },
     BAD_VALUE, "dst buffer has no texture"},
    {"source beyond the texture limit",
     [](Frame& f, Renderer&) {
         f.source = bufferOf(allocateBuffer(kHuge, 2, 0x1), f.source.settings);
     },
     BAD_VALUE, "src buffer 32768x2 beyond GL_MAX_TEXTURE_SIZE"},
    {"destination beyond the texture limit",
     [](Frame& f, Renderer&) { f.output = bufferOf(allocateBuffer(2, kHuge, 0x1)); }, BAD_VALUE,
     "dst buffer 2x32768 beyond GL_MAX_TEXTURE_SIZE"},
    {"crop left of the buffer",
     [](Frame& f, Renderer&) { f.settings().crop = android::Rect(-4, 0, 16, 16); }, BAD_VALUE,
     "src crop (-4,0,16,16) outside the 32x32 buffer"},
    {"crop past the buffer's bottom",
     [](Frame& f, Renderer&) { f.settings().crop = android::Rect(0, 0, kSize, kSize + 1); },
     BAD_VALUE, "src crop (0,0,32,33) outside the 32x32 buffer"},
    // A region is a texture transform: one reaching outside the buffer samples its edges.
    {"region around the buffer",
     [](Frame& f, Renderer&) {
         f.settings().region = android::Rect(-kSize, -kSize, 2 * kSize, 2 * kSize);
     },
     OK, nullptr},
    {"NaN rotation",
     [](Frame& f, Renderer&) { f.settings().rotation = std::numeric_limits<float>::quiet_NaN(); },
     BAD_VALUE, "rotation nan is not a number of degrees"},
    {"infinite rotation",
     [](Frame& f, Renderer&) { f.settings().rotation = -std::numeric_limits<float>::infinity(); },
     BAD_VALUE, "rotation -inf is not a number of degrees"},
    {"huge rotation", [](Frame& f, Renderer&) { f.settings().rotation = 1e30f; }, OK, nullptr},
    {"forced width beyond the viewport limit",
     [](Frame& f, Renderer&) {
         f.settings().forceWidth = kHuge;
         f.settings().forceHeight = kSize;
     },
     BAD_VALUE, "forced size 32768x32 outside GL_MAX_VIEWPORT_DIMS"},
    {"negative forced height",
     [](Frame& f, Renderer&) {
         f.settings().forceWidth = kSize;
         f.settings().forceHeight = -1;
     },
     BAD_VALUE, "forced size 32x-1 outside GL_MAX_VIEWPORT_DIMS"},
    // Only one forced dimension: the destination's own size, whatever the other says.
    {"one forced dimension", [](Frame& f, Renderer&) { f.settings().forceHeight = kHuge; }, OK,
     nullptr},
    {"client mesh without vertices",
     [](Frame& f, Renderer&) {
         f.settings().mesh = std::make_shared<Mesh>(Mesh::TRIANGLES, 0, 2, 2, 0);
     },
     BAD_VALUE, "client mesh: 0 vertices"},
    {"client mesh with an index past its vertices",
     [](Frame& f, Renderer&) {
         std::shared_ptr<Mesh> mesh = Mesh::buildRect(3, 3);
         // One past the last vertex.
         mesh->mIndices.back() = static_cast<uint32_t>(mesh->mVertexCount);
         f.settings().mesh = mesh;
     },
     BAD_VALUE, "out of range of"},
    {"client mesh with more indices than its list",
     [](Frame& f, Renderer&) {
         f.settings().mesh = Mesh::buildRect(3, 3);
         f.settings().mesh->mIndexCount += 1;
     },
     BAD_VALUE, "indices in a list of"},
    // The cache keeps the image of a buffer the client freed; other buffers are unaffected.
    {"source freed while its image is cached",
     [](Frame& f, Renderer& renderer) {
         Frame earlier;
         ASSERT_EQ(renderer.blit({earlier.source}, earlier.output, 1000, APP_INSIDE_DEFAULT), OK);
         (void)f;
     },
     OK, nullptr},
    // An id that cannot be read is 0 for every imported buffer: the pass goes on, and says so.
    {"imported source whose id cannot be read",
     [](Frame& f, Renderer&) {
         f.source.texture = std::make_shared<ExternalTexture>(f.sourceBuffer->handle);
         ::zel::host::failBufmetaQuery(BUFMETA_GET_BUFFER_ID);
     },
     OK, "get SRC bufmeta id fail"},
};

class BadInputs : public ::testing::TestWithParam<int> {};

TEST_P(BadInputs, EachGetsItsStatusAndLineAndTheRendererGoesOn) {
    if (!::zel::host::gpuAvailable()) {
        GTEST_SKIP() << ::zel::host::gpuUnavailableReason();
    }
    Renderer::Args args;
    args.rendererType = GetParam();
    std::shared_ptr<Renderer> renderer = Renderer::create(args);
    ASSERT_NE(renderer, nullptr);
    for (const BadInput& input : kBadInputs) {
        SCOPED_TRACE(input.name);
        Frame frame;
        input.spoil(frame, *renderer);
        const RgbImage poisoned = readRgba(*frame.targetBuffer);
        LogCapture logs;
        EXPECT_EQ(renderer->blit({frame.source}, frame.output, 1000, APP_INSIDE_DEFAULT),
                  input.expected);
        if (input.line != nullptr) {
            EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, input.line), 1u) << logs.dump();
        } else {
            EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, ""), 0u) << logs.dump();
        }
        if (input.expected == BAD_VALUE) {
            EXPECT_TRUE(imagesMatch(readRgba(*frame.targetBuffer), poisoned, 0));
        }
        ::zel::host::clearBufmetaFailures();
    }
    // Nothing it refused or survived changed how it converts.
    Frame last;
    ASSERT_EQ(renderer->blit({last.source}, last.output, 1000, APP_INSIDE_DEFAULT), OK);
    EXPECT_TRUE(imagesMatch(readRgba(*last.targetBuffer), last.picture, 0));
}

INSTANTIATE_TEST_SUITE_P(Types, BadInputs,
                         ::testing::Values(Renderer::kTypeGles, Renderer::kTypeGlesThreaded),
                         rendererTypeName);

}  // namespace
}  // namespace zel
}  // namespace kav
