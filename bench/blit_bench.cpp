/*
 * Steady-state cost of one frame through the public blit on the host GPU: a 1080p source of each
 * kind into a destination of each kind, with the program and mesh caches on, waiting on the fence
 * as a codec would. Reports the median per frame and, per frame, what the GPU layer did.
 */
#include <cstdlib>
#include <memory>
#include <vector>

#include <benchmark/benchmark.h>
#include <ui/GraphicBuffer.h>

#include <zel/ExternalTexture.h>
#include <zel/Renderer.h>
#include <zel/host/Gpu.h>

namespace {

using kav::zel::Buffer;
using kav::zel::ExternalTexture;
using kav::zel::Renderer;

constexpr uint32_t kWidth = 1920;
constexpr uint32_t kHeight = 1080;
constexpr uint64_t kGpuUsage = 0x100 | 0x200;

android::sp<android::GraphicBuffer> allocate(int32_t format) {
    android::sp<android::GraphicBuffer> buffer =
        new android::GraphicBuffer(kWidth, kHeight, format, 1, kGpuUsage, "zel-bench");
    // Non-zero contents so that nothing is special-cased.
    void* pixels = nullptr;
    if (buffer->lock(0x33, &pixels) == android::OK && pixels != nullptr) {
        unsigned char* bytes = static_cast<unsigned char*>(pixels);
        for (size_t i = 0; i < size_t(kWidth) * kHeight; ++i) {
            bytes[i] = static_cast<unsigned char>(i * 7);
        }
        buffer->unlock();
    }
    return buffer;
}

void blitFrames(benchmark::State& state) {
    const int32_t srcFormat = static_cast<int32_t>(state.range(0));
    const int32_t dstFormat = static_cast<int32_t>(state.range(1));
    Renderer::Args args;
    args.rendererType = static_cast<int32_t>(state.range(2));
    std::shared_ptr<Renderer> renderer = Renderer::create(args);
    if (renderer == nullptr) {
        state.SkipWithError("no renderer");
        return;
    }
    uint32_t enable = 3;
    renderer->setConfig(Renderer::ENABLE, &enable);
    const std::vector<Buffer> inputs{
        {std::make_shared<ExternalTexture>(allocate(srcFormat)), nullptr}};
    Buffer output{std::make_shared<ExternalTexture>(allocate(dstFormat)), nullptr};
    renderer->blit(inputs, output, -1, kav::zel::APP_INSIDE_DEFAULT);  // warm: program, image

    const zel::host::GpuCounters before = zel::host::gpuCounters();
    for (auto _ : state) {
        if (renderer->blit(inputs, output, -1, kav::zel::APP_INSIDE_DEFAULT) != kav::zel::OK) {
            state.SkipWithError("blit failed");
            break;
        }
    }
    const zel::host::GpuCounters after = zel::host::gpuCounters();
    const double frames = static_cast<double>(state.iterations());
    state.counters["images/frame"] = (after.imagesCreated - before.imagesCreated) / frames;
    state.counters["programs/frame"] = (after.programsLinked - before.programsLinked) / frames;
    state.counters["uploads/frame"] = (after.uploads - before.uploads) / frames;
    state.counters["writeBacks/frame"] = (after.writeBacks - before.writeBacks) / frames;
    const char* threads = std::getenv("LP_NUM_THREADS");
    state.SetLabel(std::string("LP_NUM_THREADS=") + (threads != nullptr ? threads : "unset"));
}

// {source, destination, renderer type}
BENCHMARK(blitFrames)
    ->ArgNames({"src", "dst", "type"})
    ->Args({0x1, 0x1, 1})
    ->Args({0x23, 0x1, 1})
    ->Args({0x1, 0x23, 1})
    ->Args({0x23, 0x23, 1})
    ->Args({0x36, 0x1, 1})
    ->Args({0x23, 0x1, 2})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
