#include "Converter.h"

#include <ui/GraphicBufferMapper.h>

#include "TraceSection.h"

namespace zel::convert {

using kav::zel::Buffer;
using kav::zel::ExternalTexture;
using kav::zel::Renderer;
using kav::zel::Status;

namespace {

// GPU texture and render target, CPU reads and writes often: the tool fills sources and reads
// destinations through CPU locks.
constexpr uint64_t kUsage = 0x100 | 0x200 | 0x3 | 0x30;
// How long the synchronous entry point waits for the GPU.
constexpr int kTimeoutMs = 10000;

android::sp<android::GraphicBuffer> allocate(int width, int height, const PixelFormat& format,
                                             int32_t dataspace) {
    android::sp<android::GraphicBuffer> buffer =
        new android::GraphicBuffer(static_cast<uint32_t>(width), static_cast<uint32_t>(height),
                                   format.android, 1, kUsage, "zel-convert");
    if (buffer == nullptr || buffer->initCheck() != android::NO_ERROR) {
        return nullptr;
    }
    android::GraphicBufferMapper::get().setDataspace(
        buffer->handle, static_cast<android::ui::Dataspace>(dataspace));
    return buffer;
}

}  // namespace

ToolError Converter::create(const ConversionSetup& setup, std::unique_ptr<Converter>* out) {
    std::unique_ptr<Converter> converter(new Converter(setup));
    Renderer::Args args;
    args.rendererType = setup.rendererType;
    converter->mRenderer = Renderer::create(args);
    if (converter->mRenderer == nullptr) {
        return ToolError(ToolError::kConversionFailed,
                         "cannot create the renderer (the log above says why)");
    }
    uint32_t enable = 3;  // mesh and program caches: a stream compiles once
    converter->mRenderer->setConfig(Renderer::ENABLE, &enable);
    if (setup.mode == BlitMode::Async) {
        converter->mListener = new ConversionListener();
        converter->mRenderer->setListener(converter->mListener);
    }
    for (int i = 0; i < setup.slots; ++i) {
        Slot slot;
        slot.source =
            allocate(setup.sourceWidth, setup.sourceHeight, *setup.from, setup.sourceDataspace);
        slot.destination = allocate(setup.destinationWidth, setup.destinationHeight, *setup.to,
                                    setup.destinationDataspace);
        if (slot.source == nullptr || slot.destination == nullptr) {
            return ToolError(ToolError::kConversionFailed, "cannot allocate graphic buffers");
        }
        slot.inputs = {Buffer{std::make_shared<ExternalTexture>(slot.source), setup.settings}};
        slot.output = Buffer{std::make_shared<ExternalTexture>(slot.destination), nullptr};
        converter->mSlots.push_back(std::move(slot));
    }
    *out = std::move(converter);
    return {};
}

Converter::~Converter() {
    // The renderer's context must outlive the GL buffers of a client mesh: release the buffers
    // and settings while it still exists.
    mSlots.clear();
    mSetup.settings.reset();
}

Status Converter::submit(int slot) {
    TraceSection section("zel-convert blit");
    Slot& s = mSlots[slot];
    switch (mSetup.mode) {
        case BlitMode::Sync:
            return mRenderer->blit(s.inputs, s.output, kTimeoutMs, kav::zel::APP_INSIDE_DEFAULT);
        case BlitMode::Fence:
            return mRenderer->blit(s.inputs, s.output, s.fence, kav::zel::APP_INSIDE_DEFAULT);
        case BlitMode::Async: {
            s.completion->reset();
            return mRenderer->asyncBlit(s.inputs, s.output, s.completion.get(),
                                        kav::zel::APP_INSIDE_DEFAULT);
        }
    }
    return kav::zel::BAD_VALUE;
}

Status Converter::finish(int slot) {
    TraceSection section("zel-convert wait");
    Slot& s = mSlots[slot];
    android::sp<android::Fence> fence;
    if (mSetup.mode == BlitMode::Fence) {
        fence = s.fence;
        s.fence.clear();
    } else if (mSetup.mode == BlitMode::Async) {
        const Status status = s.completion->wait(std::chrono::milliseconds(kTimeoutMs));
        if (status != kav::zel::OK) {
            return status;
        }
        fence = s.output.texture->getFence();
        s.output.texture->setFence(nullptr);
    }
    if (fence != nullptr && fence->wait(kTimeoutMs) != android::NO_ERROR) {
        return kav::zel::TIMED_OUT;
    }
    return kav::zel::OK;
}

const char* Converter::statusName(Status status) {
    switch (status) {
        case kav::zel::OK:
            return "OK";
        case kav::zel::NOT_IMPLEMENTED:
            return "NOT_IMPLEMENTED";
        case kav::zel::UNSUPPORTED_FORMAT:
            return "UNSUPPORTED_FORMAT";
        case kav::zel::BAD_VALUE:
            return "BAD_VALUE";
        case kav::zel::RENDER_FAILED:
            return "RENDER_FAILED";
        case kav::zel::TIMED_OUT:
            return "TIMED_OUT";
    }
    return "unknown status";
}

}  // namespace zel::convert
