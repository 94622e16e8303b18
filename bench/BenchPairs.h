/*
 * The format pairs the benchmarks measure, and their helpers, shared by zel_compare and
 * zel_blit_bench.
 */
#pragma once

#include <cstdint>

#include <ui/GraphicBuffer.h>

namespace zel_bench {

constexpr int32_t kRgba = 0x1;
constexpr int32_t kNv21 = 0x11;
constexpr int32_t kP010 = 0x36;
constexpr int32_t kYv12 = 0x32315659;
constexpr uint64_t kGpuUsage = 0x100 | 0x200;  // sampled and rendered by the GPU

struct Pair {
    const char* name;
    int32_t src;
    int32_t dst;
};

constexpr Pair kPairs[] = {{"NV21->RGBA", kNv21, kRgba},
                           {"RGBA->NV21", kRgba, kNv21},
                           {"P010->RGBA", kP010, kRgba},
                           {"YV12->RGBA", kYv12, kRgba},
                           {"NV21->NV21", kNv21, kNv21}};

// The CPU writes one byte of the buffer, as a decoder recycling it would write all of them: its
// memory is new to the GPU.
inline void touch(const android::sp<android::GraphicBuffer>& buffer) {
    void* pixels = nullptr;
    if (buffer->lock(0x33, &pixels) == android::OK && pixels != nullptr) {
        static_cast<unsigned char*>(pixels)[0] ^= 1;
        buffer->unlock();
    }
}

}  // namespace zel_bench
