/*
 * Steady-state cost of one frame through the public blit on the host GPU, as a matrix: format
 * pair, frame size, direct (GLES) or threaded renderer, entry point (waiting with a time-out,
 * handing back a fence, or asynchronous through the listener with two destinations in flight),
 * cached or uncached source (CPU usage bits keep a source out of the source cache), the number
 * of distinct source buffers cycled through, and (at 1080p) a destination the CPU writes before
 * every frame, as a decoder recycling its buffers does. Program and mesh caches are on. Each case
 * reports the time per frame, the cost per output pixel and, per frame, what the GPU layer did.
 *
 * The 4K cases, the 720p cases of pairs other than NV21->RGBA and the 400-source case are
 * registered only with --zel_full (bench/README.md), so that the default run stays short enough
 * for the tests.
 */
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <ui/Fence.h>
#include <ui/GraphicBuffer.h>

#include "BenchPairs.h"

#include <zel/ExternalTexture.h>
#include <zel/Renderer.h>
#include <zel/host/Gpu.h>

namespace {

using kav::zel::Buffer;
using kav::zel::ExternalTexture;
using kav::zel::Renderer;

using namespace zel_bench;

constexpr uint64_t kCpuReadUsage = 0x3;  // read often by the CPU: never cached

struct Size {
    const char* name;
    uint32_t width;
    uint32_t height;
};
const Size kSizes[] = {{"720p", 1280, 720}, {"1080p", 1920, 1080}, {"4K", 3840, 2160}};

enum class Entry { kSync, kFence, kAsync };
constexpr const char* entryName(Entry entry) {
    return entry == Entry::kSync ? "sync" : entry == Entry::kFence ? "fence" : "async";
}

// Destinations the asynchronous entry point keeps in flight.
constexpr size_t kAsyncSlots = 2;

struct Case {
    Pair pair;
    Size size;
    int32_t rendererType;
    Entry entry;
    bool cached;
    size_t sources;
    bool cpuWritesDestination = false;
};

android::sp<android::GraphicBuffer> allocate(int32_t format, const Size& size, uint64_t usage) {
    android::sp<android::GraphicBuffer> buffer =
        new android::GraphicBuffer(size.width, size.height, format, 1, usage, "zel-bench");
    // Non-zero contents so that nothing is special-cased.
    void* pixels = nullptr;
    if (buffer->lock(0x33, &pixels) == android::OK && pixels != nullptr) {
        unsigned char* bytes = static_cast<unsigned char*>(pixels);
        for (size_t i = 0; i < size_t(size.width) * size.height; ++i) {
            bytes[i] = static_cast<unsigned char>(i * 7);
        }
        buffer->unlock();
    }
    return buffer;
}

// Hears asynchronous blits finish; the data pointer carries the destination slot.
class SlotListener : public Renderer::Listener {
public:
    void onBlitDone(Buffer&, void* data) override { finish(reinterpret_cast<uintptr_t>(data)); }
    void onBlitError(kav::zel::Status, void* data) override {
        std::lock_guard<std::mutex> lock(mMutex);
        mFailed = true;
        mPending[reinterpret_cast<uintptr_t>(data)] = false;
        mChanged.notify_all();
    }

    void start(size_t slot) {
        std::lock_guard<std::mutex> lock(mMutex);
        mPending[slot] = true;
    }
    // Waits until the slot's blit has been reported; false when it failed.
    bool waitFor(size_t slot) {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait(lock, [&] { return !mPending[slot]; });
        return !mFailed;
    }

private:
    void finish(size_t slot) {
        std::lock_guard<std::mutex> lock(mMutex);
        mPending[slot] = false;
        mChanged.notify_all();
    }

    std::mutex mMutex;
    std::condition_variable mChanged;
    bool mPending[kAsyncSlots] = {};
    bool mFailed = false;
};

void waitFence(const Buffer& output) {
    const android::sp<android::Fence>& fence = output.texture->getFence();
    if (fence != nullptr) {
        fence->wait(-1);
    }
}

void reportCounters(benchmark::State& state, const zel::host::GpuCounters& before,
                    const zel::host::GpuCounters& after, double pixels, double elapsedNs) {
    const double frames = static_cast<double>(state.iterations());
    state.counters["ns/pixel"] = elapsedNs / (frames * pixels);
    state.counters["images/frame"] = (after.imagesCreated - before.imagesCreated) / frames;
    state.counters["compiles/frame"] = (after.shadersCompiled - before.shadersCompiled) / frames;
    state.counters["links/frame"] = (after.programsLinked - before.programsLinked) / frames;
    state.counters["variants/frame"] = (after.programVariants - before.programVariants) / frames;
    state.counters["draws/frame"] = (after.draws - before.draws) / frames;
    state.counters["uploads/frame"] = (after.uploads - before.uploads) / frames;
    state.counters["writeBacks/frame"] = (after.writeBacks - before.writeBacks) / frames;
    state.counters["passes/frame"] = (after.internalPasses - before.internalPasses) / frames;
    state.counters["covered/frame"] = (after.coveredTargets - before.coveredTargets) / frames;
    const char* threads = std::getenv("LP_NUM_THREADS");
    state.SetLabel(std::string("LP_NUM_THREADS=") + (threads != nullptr ? threads : "unset"));
}

void blitFrames(benchmark::State& state, const Case& c) {
    Renderer::Args args;
    args.rendererType = c.rendererType;
    std::shared_ptr<Renderer> renderer = Renderer::create(args);
    if (renderer == nullptr) {
        state.SkipWithError("no renderer");
        return;
    }
    uint32_t enable = 3;
    renderer->setConfig(Renderer::ENABLE, &enable);
    android::sp<SlotListener> listener = new SlotListener;
    renderer->setListener(listener);

    const uint64_t srcUsage = kGpuUsage | (c.cached ? 0 : kCpuReadUsage);
    std::vector<std::vector<Buffer>> inputs;
    for (size_t i = 0; i < c.sources; ++i) {
        inputs.push_back(
            {{std::make_shared<ExternalTexture>(allocate(c.pair.src, c.size, srcUsage)), nullptr}});
    }
    const size_t slots = c.entry == Entry::kAsync ? kAsyncSlots : 1;
    std::vector<Buffer> outputs;
    std::vector<android::sp<android::GraphicBuffer>> outputBuffers;
    for (size_t i = 0; i < slots; ++i) {
        outputBuffers.push_back(allocate(c.pair.dst, c.size, kGpuUsage));
        outputs.push_back({std::make_shared<ExternalTexture>(outputBuffers.back()), nullptr});
    }
    // Warm: programs, every destination and every source once (the cache holds them if it can).
    for (size_t i = 0; i < std::max(inputs.size(), outputs.size()); ++i) {
        if (renderer->blit(inputs[i % inputs.size()], outputs[i % outputs.size()], -1,
                           kav::zel::APP_INSIDE_DEFAULT) != kav::zel::OK) {
            state.SkipWithError("warm-up blit failed");
            return;
        }
    }

    const zel::host::GpuCounters before = zel::host::gpuCounters();
    const auto start = std::chrono::steady_clock::now();
    size_t frame = 0;
    bool ok = true;
    for (auto _ : state) {
        const std::vector<Buffer>& input = inputs[frame % inputs.size()];
        const size_t slot = frame % slots;
        ++frame;
        if (c.cpuWritesDestination) {
            touch(outputBuffers[slot]);
        }
        if (c.entry == Entry::kSync) {
            ok = renderer->blit(input, outputs[slot], -1, kav::zel::APP_INSIDE_DEFAULT) ==
                 kav::zel::OK;
        } else if (c.entry == Entry::kFence) {
            android::sp<android::Fence> fence;
            ok = renderer->blit(input, outputs[slot], fence, kav::zel::APP_INSIDE_DEFAULT) ==
                 kav::zel::OK;
            if (ok && fence != nullptr) {
                fence->wait(-1);
            }
        } else {
            // A destination is reused only once its previous frame has been reported and its
            // fence has signalled; the other one stays in flight meanwhile.
            if (frame > slots) {
                ok = listener->waitFor(slot);
                waitFence(outputs[slot]);
            }
            listener->start(slot);
            ok = ok && renderer->asyncBlit(input, outputs[slot], reinterpret_cast<void*>(slot),
                                           kav::zel::APP_INSIDE_DEFAULT) == kav::zel::OK;
            if (ok && frame == static_cast<size_t>(state.max_iterations)) {
                // The last frame drains everything in flight, inside the timed loop.
                for (size_t s = 0; s < slots && s < frame; ++s) {
                    ok = listener->waitFor(s) && ok;
                    waitFence(outputs[s]);
                }
            }
        }
        if (!ok) {
            state.SkipWithError("blit failed");
            break;
        }
    }
    if (c.entry == Entry::kAsync) {
        // After an early stop the worker may still read inputs and outputs: let it finish.
        for (size_t s = 0; s < slots; ++s) {
            listener->waitFor(s);
        }
    }
    const double elapsedNs =
        std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
    if (ok) {
        reportCounters(state, before, zel::host::gpuCounters(),
                       double(c.size.width) * c.size.height, elapsedNs);
    }
}

void add(const Case& c) {
    const std::string name = std::string(c.pair.name) + "/" + c.size.name + "/" +
                             (c.rendererType == Renderer::kTypeGles ? "direct" : "threaded") + "/" +
                             entryName(c.entry) + "/" + (c.cached ? "cached" : "uncached") +
                             "/sources:" + std::to_string(c.sources) +
                             (c.cpuWritesDestination ? "/dst:cpu-written" : "");
    benchmark::RegisterBenchmark(name.c_str(), blitFrames, c)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
}

// full: also the 4K frames, every pair at 720p and the source count past the source cache's cap.
void registerCases(bool full) {
    const int32_t types[] = {Renderer::kTypeGles, Renderer::kTypeGlesThreaded};
    const Entry entries[] = {Entry::kSync, Entry::kFence, Entry::kAsync};
    for (const Size& size : kSizes) {
        if (!full && size.height > 1080) {
            continue;
        }
        for (const Pair& pair : kPairs) {
            // The short run keeps one pair at 720p: enough to compare the cost per pixel.
            if (!full && size.height < 1080 && &pair != &kPairs[0]) {
                continue;
            }
            for (int32_t type : types) {
                for (Entry entry : entries) {
                    add({pair, size, type, entry, true, 1});
                }
                add({pair, size, type, Entry::kSync, false, 1});
            }
            if (size.height == 1080) {
                add({pair, size, Renderer::kTypeGles, Entry::kSync, true, 1, true});
            }
        }
    }
    // Cost as the number of distinct sources grows: the source cache holds 350 images.
    for (size_t sources : {8, 64, 350, 400}) {
        if (!full && sources > 350) {
            continue;
        }
        add({kPairs[0], kSizes[0], Renderer::kTypeGles, Entry::kSync, true, sources});
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<char*> rest;
    bool full = false;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--zel_full") == 0) {
            full = true;
        } else {
            rest.push_back(argv[i]);
        }
    }
    registerCases(full);
    int restCount = static_cast<int>(rest.size());
    benchmark::Initialize(&restCount, rest.data());
    if (benchmark::ReportUnrecognizedArguments(restCount, rest.data())) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
