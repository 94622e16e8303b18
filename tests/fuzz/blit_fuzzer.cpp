/*
 * Blits of small buffers (up to 64x64) with settings drawn from the input: formats, usage
 * (cached or per-pass source), forced size, crop, sampled region, rotation, a client mesh, the
 * cache switches and the entry point. One GLES renderer serves the whole process, as in a codec,
 * so faults that build up across frames (caches, fences, GL state) show too. Besides sanitizer
 * reports, a blit must answer one of the library's status codes and leave no fence descriptor
 * open once its fence is dropped.
 */
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>
#include <ui/GraphicBuffer.h>

#include <zel/ExternalTexture.h>
#include <zel/Renderer.h>
#include <zel/host/Gpu.h>
#include <zel/host/Log.h>

#include "Mesh.h"

namespace {

using kav::zel::Buffer;
using kav::zel::BufferSettings;
using kav::zel::ExternalTexture;
using kav::zel::Mesh;
using kav::zel::Renderer;

constexpr int32_t kFormats[] = {
    1,      0x11,       0x23,       0x36,         0x32315659,
    0x1000, 0x7f000010, 0x7f000030, 2 /* RGBX */, 4 /* RGB_565: not supported */};
constexpr uint64_t kGpuUsage = 0x100 | 0x200;
constexpr uint64_t kCpuUsage = kGpuUsage | 0x3 | 0x30;

void check(bool condition) {
    if (!condition) {
        __builtin_trap();
    }
}

Renderer& renderer() {
    static std::shared_ptr<Renderer> instance = [] {
        Renderer::Args args;
        args.rendererType = Renderer::kTypeGles;
        return Renderer::create(args);
    }();
    check(instance != nullptr);
    return *instance;
}

android::sp<android::GraphicBuffer> allocate(FuzzedDataProvider& input) {
    const int32_t format = input.PickValueInArray(kFormats);
    const uint32_t width = input.ConsumeIntegralInRange<uint32_t>(1, 64);
    const uint32_t height = input.ConsumeIntegralInRange<uint32_t>(1, 64);
    const uint64_t usage = input.ConsumeBool() ? kCpuUsage : kGpuUsage;
    android::sp<android::GraphicBuffer> buffer =
        new android::GraphicBuffer(width, height, format, 1, usage, "zel-fuzz");
    if (buffer->initCheck() != android::OK) {
        return nullptr;
    }
    return buffer;
}

void fill(android::GraphicBuffer& buffer, FuzzedDataProvider& input) {
    void* pixels = nullptr;
    if (buffer.lock(0x33, &pixels) != android::OK || pixels == nullptr) {
        return;
    }
    const uint8_t seed = input.ConsumeIntegral<uint8_t>();
    // Enough bytes for every layout of 64x64, 16-bit samples included.
    auto* bytes = static_cast<uint8_t*>(pixels);
    const size_t size = size_t(buffer.getStride()) * buffer.getHeight() * 3;
    for (size_t i = 0; i < size / 2; ++i) {
        bytes[i] = static_cast<uint8_t>(seed + i * 13);
    }
    buffer.unlock();
}

android::Rect rectOf(FuzzedDataProvider& input) {
    if (input.ConsumeBool()) {
        return android::Rect::INVALID_RECT;
    }
    const int32_t left = input.ConsumeIntegralInRange<int32_t>(-8, 72);
    const int32_t top = input.ConsumeIntegralInRange<int32_t>(-8, 72);
    const int32_t right = input.ConsumeIntegralInRange<int32_t>(-8, 72);
    const int32_t bottom = input.ConsumeIntegralInRange<int32_t>(-8, 72);
    return android::Rect(left, top, right, bottom);
}

std::shared_ptr<Mesh> meshOf(FuzzedDataProvider& input) {
    static constexpr Mesh::Primitive kPrimitives[] = {Mesh::TRIANGLES, Mesh::TRIANGLE_STRIP,
                                                      Mesh::TRIANGLE_FAN};
    if (input.ConsumeBool()) {
        return Mesh::buildRect(input.ConsumeIntegralInRange<size_t>(1, 9),
                               input.ConsumeIntegralInRange<size_t>(1, 9));
    }
    const size_t vertexCount = input.ConsumeIntegralInRange<size_t>(0, 24);
    const size_t indexCount = input.ConsumeIntegralInRange<size_t>(0, 24);
    auto mesh =
        std::make_shared<Mesh>(input.PickValueInArray(kPrimitives), vertexCount, 2, 2, indexCount);
    for (float& value : mesh->mVertices) {
        value = input.ConsumeFloatingPointInRange<float>(-2.0f, 2.0f);
    }
    // Indices name existing vertices: that is the caller's side of the contract.
    for (uint32_t& index : mesh->mIndices) {
        index = vertexCount == 0 ? 0 : input.ConsumeIntegral<uint32_t>() % vertexCount;
    }
    return vertexCount == 0 && indexCount != 0 ? nullptr : mesh;
}

std::shared_ptr<BufferSettings> settingsOf(FuzzedDataProvider& input) {
    if (input.ConsumeBool()) {
        return nullptr;
    }
    auto settings = std::make_shared<BufferSettings>();
    settings->forceWidth = input.ConsumeIntegralInRange<int32_t>(-2, 96);
    settings->forceHeight = input.ConsumeIntegralInRange<int32_t>(-2, 96);
    settings->crop = rectOf(input);
    settings->region = rectOf(input);
    static constexpr float kRotations[] = {0.0f, 90.0f, 180.0f, 270.0f, -90.0f, 45.0f, 360.0f};
    settings->rotation = input.ConsumeBool() ? input.PickValueInArray(kRotations)
                                             : input.ConsumeFloatingPoint<float>();
    if (input.ConsumeBool()) {
        settings->mesh = meshOf(input);
    }
    return settings;
}

bool isStatus(kav::zel::Status status) {
    switch (status) {
        case kav::zel::OK:
        case kav::zel::NOT_IMPLEMENTED:
        case kav::zel::UNSUPPORTED_FORMAT:
        case kav::zel::BAD_VALUE:
        case kav::zel::RENDER_FAILED:
        case kav::zel::TIMED_OUT:
            return true;
    }
    return false;
}

// One blit through the entry point the input picks; its status must be one of the library's.
void blit(Renderer& zel, FuzzedDataProvider& input,
          const android::sp<android::GraphicBuffer>& source,
          const android::sp<android::GraphicBuffer>& destination) {
    const std::vector<Buffer> inputs{
        {std::make_shared<ExternalTexture>(source), settingsOf(input)}};
    Buffer output{std::make_shared<ExternalTexture>(destination), settingsOf(input)};
    kav::zel::Status status = kav::zel::OK;
    switch (input.ConsumeIntegralInRange<int>(0, 2)) {
        case 0:
            status = zel.blit(inputs, output, -1, kav::zel::APP_INSIDE_DEFAULT);
            break;
        case 1: {
            android::sp<android::Fence> fence;
            status = zel.blit(inputs, output, fence, kav::zel::APP_INSIDE_DEFAULT);
            if (fence != nullptr) {
                fence->wait(-1);
            }
            break;
        }
        default:
            status = zel.asyncBlit(inputs, output, nullptr, kav::zel::APP_INSIDE_DEFAULT);
            break;
    }
    check(isStatus(status));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    ::zel::host::setLogToStderr(false);
    check(::zel::host::gpuAvailable());
    renderer();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    Renderer& zel = renderer();
    uint32_t enable = input.ConsumeIntegralInRange<uint32_t>(0, 3);
    zel.setConfig(Renderer::ENABLE, &enable);

    android::sp<android::GraphicBuffer> source = allocate(input);
    android::sp<android::GraphicBuffer> destination = allocate(input);
    if (source == nullptr || destination == nullptr) {
        return 0;
    }
    fill(*source, input);
    blit(zel, input, source, destination);
    // Fences go with the buffers that carry them (asyncBlit leaves its fence on the output).
    check(::zel::host::gpuCounters().fenceFdsOpen == 0);
    return 0;
}
