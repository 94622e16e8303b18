#include "Frames.h"

#include <dirent.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include <ui/GraphicBufferMapper.h>

#include <zel/host/Gpu.h>

namespace zel {
namespace test {

android::sp<android::GraphicBuffer> allocateBuffer(int width, int height, int32_t format,
                                                   uint64_t usage) {
    android::sp<android::GraphicBuffer> buffer = new android::GraphicBuffer(
        static_cast<uint32_t>(width), static_cast<uint32_t>(height), format, 1, usage, "zel-test");
    EXPECT_EQ(buffer->initCheck(), android::OK);
    return buffer;
}

kav::zel::Buffer bufferOf(const android::sp<android::GraphicBuffer>& buffer,
                          std::shared_ptr<kav::zel::BufferSettings> settings) {
    return kav::zel::Buffer{std::make_shared<kav::zel::ExternalTexture>(buffer),
                            std::move(settings)};
}

void setDataspace(android::GraphicBuffer& buffer, int32_t dataspace) {
    EXPECT_EQ(android::GraphicBufferMapper::get().setDataspace(
                  buffer.handle, static_cast<android::ui::Dataspace>(dataspace)),
              android::OK);
}

RgbImage fillSource(android::GraphicBuffer& buffer, const RgbImage& image,
                    const ColourSpace& space) {
    fillBuffer(buffer, image, dataspaceOf(space));
    if (!isYuvFormat(static_cast<int32_t>(buffer.getPixelFormat()))) {
        return image;
    }
    return decode(readPlanes(buffer), space, ChromaFilter::Nearest);
}

namespace {

bool close(const Rgb8& a, const Rgb8& b, int tolerance) {
    return std::abs(a.r - b.r) <= tolerance && std::abs(a.g - b.g) <= tolerance &&
           std::abs(a.b - b.b) <= tolerance;
}

std::string text(const Rgb8& p) {
    std::ostringstream out;
    out << "(" << int(p.r) << "," << int(p.g) << "," << int(p.b) << ")";
    return out.str();
}

}  // namespace

testing::AssertionResult drawMatches(const RgbImage& actual, const RgbImage& source,
                                     const SampleMap& map, const Rgb8& poison, int tolerance) {
    int wrong = 0;
    std::ostringstream first;
    for (int y = 0; y < actual.height; ++y) {
        for (int x = 0; x < actual.width; ++x) {
            const Rgb8& got = actual.at(x, y);
            double s = 0, t = 0;
            const bool covered = map(x + 0.5, y + 0.5, &s, &t);
            // Pixels on the edge of the covered area may go either way.
            bool edge = false;
            for (double dx : {-0.5, 0.5}) {
                for (double dy : {-0.5, 0.5}) {
                    double s2 = 0, t2 = 0;
                    edge |= map(x + 0.5 + dx, y + 0.5 + dy, &s2, &t2) != covered;
                }
            }
            bool ok = false;
            std::string expected = "poison";
            if (!covered || edge) {
                ok = close(got, poison, 0);
            }
            if (covered || edge) {
                if (!covered) {
                    map(x + 0.5, y + 0.5, &s, &t);
                }
                // Any texel around the sample point: a texel edge may fall on the pixel centre.
                const double fx = s * source.width, fy = t * source.height;
                for (double ex : {-1e-3, 0.0, 1e-3}) {
                    for (double ey : {-1e-3, 0.0, 1e-3}) {
                        const int tx =
                            std::clamp(static_cast<int>(std::floor(fx + ex)), 0, source.width - 1);
                        const int ty =
                            std::clamp(static_cast<int>(std::floor(fy + ey)), 0, source.height - 1);
                        ok |= close(got, source.at(tx, ty), tolerance);
                        expected = text(source.at(tx, ty));
                    }
                }
            }
            if (!ok && wrong++ < 5) {
                first << " (" << x << "," << y << ") got " << text(got) << " expected " << expected
                      << ";";
            }
        }
    }
    if (wrong == 0) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << wrong << " pixels differ:" << first.str();
}

namespace {

size_t entriesIn(const char* directory) {
    size_t count = 0;
    if (DIR* dir = opendir(directory)) {
        while (readdir(dir) != nullptr) {
            ++count;
        }
        closedir(dir);
    }
    return count;
}

}  // namespace

std::string rendererTypeName(const testing::TestParamInfo<int>& info) {
    return info.param == kav::zel::Renderer::kTypeGles ? "Direct" : "Threaded";
}

size_t openFdCount() {
    return entriesIn("/proc/self/fd");
}

size_t threadCount() {
    return entriesIn("/proc/self/task");
}

size_t threadsNamed(const std::string& name) {
    // The kernel keeps 15 characters of a thread's name.
    const std::string shown = name.substr(0, 15);
    size_t count = 0;
    DIR* tasks = opendir("/proc/self/task");
    if (tasks == nullptr) {
        return 0;
    }
    while (const dirent* entry = readdir(tasks)) {
        if (entry->d_name[0] == '.') {
            continue;
        }
        std::ifstream comm(std::string("/proc/self/task/") + entry->d_name + "/comm");
        std::string line;
        if (std::getline(comm, line) && line == shown) {
            ++count;
        }
    }
    closedir(tasks);
    return count;
}

LiveResources LiveResources::now() {
    // Fences still pending hold a descriptor in the GPU layer's completion thread.
    ::zel::host::waitGpuIdle();
    const ::zel::host::GpuCounters counters = ::zel::host::gpuCounters();
    LiveResources live;
    live.contexts = counters.contextsAlive;
    live.images = counters.imagesAlive;
    live.textures = counters.texturesAlive;
    live.framebuffers = counters.framebuffersAlive;
    live.programs = counters.programsAlive;
    live.buffers = counters.buffersAlive;
    live.fenceFds = counters.fenceFdsOpen;
    live.descriptors = openFdCount();
    live.threads = threadCount();
    return live;
}

bool LiveResources::operator==(const LiveResources& o) const {
    return contexts == o.contexts && images == o.images && textures == o.textures &&
           framebuffers == o.framebuffers && programs == o.programs && buffers == o.buffers &&
           fenceFds == o.fenceFds && descriptors == o.descriptors && threads == o.threads;
}

std::ostream& operator<<(std::ostream& out, const LiveResources& l) {
    return out << l.contexts << " contexts, " << l.images << " images, " << l.textures
               << " textures, " << l.framebuffers << " framebuffers, " << l.programs
               << " programs, " << l.buffers << " buffers, " << l.fenceFds << " fence fds, "
               << l.descriptors << " descriptors, " << l.threads << " threads";
}

testing::AssertionResult blitsCorrectly(kav::zel::Renderer& renderer) {
    constexpr int kSide = 16;
    const RgbImage picture = gradient(kSide, kSide);
    android::sp<android::GraphicBuffer> source = allocateBuffer(kSide, kSide, 0x1);
    writeRgba(*source, picture);
    android::sp<android::GraphicBuffer> target = allocateBuffer(kSide, kSide, 0x1);
    poisonBuffer(*target);
    kav::zel::Buffer output = bufferOf(target);
    const kav::zel::Status status =
        renderer.blit({bufferOf(source)}, output, 1000, kav::zel::APP_INSIDE_DEFAULT);
    if (status != kav::zel::OK) {
        return testing::AssertionFailure() << "blit answered " << status;
    }
    return imagesMatch(readRgba(*target), picture, 0);
}

}  // namespace test
}  // namespace zel
