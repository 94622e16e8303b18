/*
 * Soak run: many blits cycling 16 sources and 16 destinations (RGBA and YUV, small by default)
 * through a GLES renderer and a threaded one in turn, with the fence-returning and the waiting
 * entry points, sources rewritten by the CPU now and then, every third frame drawn through a client
 * grid mesh (its vertex buffers live for one pass). Samples resident memory, open
 * descriptors and the GPU layer's live objects along the way and reports each as a least-squares
 * slope per 10 000 frames over the samples after the first tenth of the run (caches fill there):
 * a leak shows as a steady positive slope.
 *
 *     zel_soak [--frames N] [--size PIXELS] [--samples N]
 *
 * Exits 1 when a blit fails or a renderer cannot be made, 2 on bad usage. The slopes are reported,
 * not judged.
 */
#include <dirent.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <ui/GraphicBuffer.h>

#include <zel/ExternalTexture.h>
#include <zel/Renderer.h>
#include <zel/host/Gpu.h>
#include <zel/host/Log.h>

#include "Mesh.h"

namespace {

using kav::zel::Buffer;
using kav::zel::ExternalTexture;
using kav::zel::Renderer;

constexpr int kBuffers = 16;
constexpr uint64_t kGpuUsage = 0x100 | 0x200;

struct Sample {
    double frame;
    double values[5];
};
constexpr const char* kNames[] = {"RSS (KiB)", "open fds", "live images", "open fence fds",
                                  "live GL buffers"};

double residentKiB() {
    long pages = 0;
    long resident = 0;
    if (FILE* file = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(file, "%ld %ld", &pages, &resident) != 2) {
            resident = 0;
        }
        std::fclose(file);
    }
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024.0;
}

double openFds() {
    double count = 0;
    if (DIR* dir = opendir("/proc/self/fd")) {
        while (readdir(dir) != nullptr) {
            ++count;
        }
        closedir(dir);
    }
    return count;
}

Sample sample(long frame) {
    const zel::host::GpuCounters counters = zel::host::gpuCounters();
    return Sample{
        static_cast<double>(frame),
        {residentKiB(), openFds(), static_cast<double>(counters.imagesAlive),
         static_cast<double>(counters.fenceFdsOpen), static_cast<double>(counters.buffersAlive)}};
}

// Least-squares slope of value `index` against the frame number, per 10 000 frames.
double slopePer10k(const std::vector<Sample>& samples, int index) {
    double n = 0, sx = 0, sy = 0, sxx = 0, sxy = 0;
    for (const Sample& s : samples) {
        n += 1;
        sx += s.frame;
        sy += s.values[index];
        sxx += s.frame * s.frame;
        sxy += s.frame * s.values[index];
    }
    const double denominator = n * sxx - sx * sx;
    return denominator == 0 ? 0.0 : (n * sxy - sx * sy) / denominator * 10000.0;
}

void fill(android::GraphicBuffer& buffer, unsigned seed) {
    void* pixels = nullptr;
    if (buffer.lock(0x33, &pixels) != android::OK || pixels == nullptr) {
        return;
    }
    auto* bytes = static_cast<unsigned char*>(pixels);
    for (size_t i = 0; i < size_t(buffer.getStride()) * buffer.getHeight(); ++i) {
        bytes[i] = static_cast<unsigned char>(seed + i * 7);
    }
    buffer.unlock();
}

bool parse(int argc, char** argv, long* frames, uint32_t* size, long* samples) {
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (i + 1 >= argc) {
            return false;
        }
        const long value = std::strtol(argv[++i], nullptr, 10);
        if (value <= 0) {
            return false;
        }
        if (option == "--frames") {
            *frames = value;
        } else if (option == "--size") {
            *size = static_cast<uint32_t>(value);
        } else if (option == "--samples") {
            *samples = value;
        } else {
            return false;
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    long frames = 100000;
    uint32_t size = 64;
    long sampleCount = 50;
    if (!parse(argc, argv, &frames, &size, &sampleCount)) {
        std::fprintf(stderr, "usage: %s [--frames N] [--size PIXELS] [--samples N]\n", argv[0]);
        return 2;
    }
    zel::host::setLogToStderr(false);

    std::shared_ptr<Renderer> renderers[2];
    for (int type : {Renderer::kTypeGles, Renderer::kTypeGlesThreaded}) {
        Renderer::Args args;
        args.rendererType = type;
        renderers[type - 1] = Renderer::create(args);
        if (renderers[type - 1] == nullptr) {
            std::fprintf(stderr, "soak: no renderer of type %d\n", type);
            return 1;
        }
        uint32_t enable = 3;
        renderers[type - 1]->setConfig(Renderer::ENABLE, &enable);
    }

    // Sources and destinations alternate RGBA and YCbCr 4:2:0.
    std::vector<android::sp<android::GraphicBuffer>> sources;
    std::vector<Buffer> destinations;
    for (int i = 0; i < kBuffers; ++i) {
        const int32_t format = i % 2 == 0 ? 0x23 : 0x1;
        sources.push_back(new android::GraphicBuffer(size, size, format, 1, kGpuUsage, "soak"));
        fill(*sources.back(), static_cast<unsigned>(i));
        destinations.push_back(
            Buffer{std::make_shared<ExternalTexture>(new android::GraphicBuffer(
                       size, size, i % 4 < 2 ? 0x1 : 0x23, 1, kGpuUsage, "soak")),
                   nullptr});
    }

    auto meshed = std::make_shared<kav::zel::BufferSettings>();
    meshed->mesh = kav::zel::Mesh::buildRect(5, 4);

    const long every = std::max(1L, frames / sampleCount);
    std::vector<Sample> samples;
    const auto start = std::chrono::steady_clock::now();
    for (long frame = 0; frame < frames; ++frame) {
        if (frame % every == 0) {
            samples.push_back(sample(frame));
        }
        const int index = static_cast<int>(frame % kBuffers);
        if (frame % 97 == 0) {
            fill(*sources[index], static_cast<unsigned>(frame));
        }
        // A fresh ExternalTexture per frame, as a codec wraps each buffer it hands over.
        const std::vector<Buffer> inputs{
            {std::make_shared<ExternalTexture>(sources[index]), frame % 3 == 0 ? meshed : nullptr}};
        Buffer& output = destinations[(frame * 5 + frame / kBuffers) % kBuffers];
        Renderer& renderer = *renderers[frame % 2];
        kav::zel::Status status;
        if ((frame / 2) % 2 == 0) {
            status = renderer.blit(inputs, output, -1, kav::zel::APP_INSIDE_DEFAULT);
        } else {
            android::sp<android::Fence> fence;
            status = renderer.blit(inputs, output, fence, kav::zel::APP_INSIDE_DEFAULT);
            if (status == kav::zel::OK && fence != nullptr) {
                fence->wait(-1);
            }
        }
        if (status != kav::zel::OK) {
            std::fprintf(stderr, "soak: frame %ld failed with status %d\n", frame, status);
            return 1;
        }
    }
    samples.push_back(sample(frames));
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    // The first tenth fills the caches; the slope is taken over the rest.
    std::vector<Sample> steady;
    for (const Sample& s : samples) {
        if (s.frame >= frames / 10) {
            steady.push_back(s);
        }
    }
    const char* threads = std::getenv("LP_NUM_THREADS");
    std::printf("soak: %ld frames of %ux%u in %.1f s (%.0f frames/s), LP_NUM_THREADS=%s\n", frames,
                size, size, seconds, frames / seconds, threads != nullptr ? threads : "unset");
    std::printf("%-16s %12s %12s %12s %16s\n", "quantity", "first", "at 10%", "last",
                "slope/10k frames");
    const Sample& firstSteady = steady.empty() ? samples.front() : steady.front();
    for (int i = 0; i < 5; ++i) {
        std::printf("%-16s %12.0f %12.0f %12.0f %16.2f\n", kNames[i], samples.front().values[i],
                    firstSteady.values[i], samples.back().values[i], slopePer10k(steady, i));
    }
    return 0;
}
