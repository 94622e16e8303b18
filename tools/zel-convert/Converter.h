/*
 * The renderer and the graphic buffers a conversion runs through: a few slots, each a source and
 * a destination buffer, so that the next frame can be put into one slot while the GPU converts
 * another. The blit goes through the entry point the command line chose: synchronous, with a
 * Fence, or asynchronous with a listener.
 */
#pragma once

#include <memory>
#include <vector>

#include <ui/Fence.h>
#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

#include <zel/ExternalTexture.h>
#include <zel/Renderer.h>

#include "ConversionListener.h"
#include "Options.h"
#include "PixelFormat.h"
#include "ToolError.h"

namespace zel::convert {

struct ConversionSetup {
    int rendererType = kav::zel::Renderer::kTypeGles;
    BlitMode mode = BlitMode::Sync;
    const PixelFormat* from = nullptr;
    const PixelFormat* to = nullptr;
    int sourceWidth = 0;
    int sourceHeight = 0;
    int destinationWidth = 0;
    int destinationHeight = 0;
    int32_t sourceDataspace = 0;
    int32_t destinationDataspace = 0;
    std::shared_ptr<kav::zel::BufferSettings> settings;  // may be empty
    int slots = 2;
};

class Converter {
public:
    static ToolError create(const ConversionSetup& setup, std::unique_ptr<Converter>* out);
    ~Converter();
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    int slots() const { return static_cast<int>(mSlots.size()); }
    android::GraphicBuffer& source(int slot) { return *mSlots[slot].source; }
    android::GraphicBuffer& destination(int slot) { return *mSlots[slot].destination; }

    // Starts converting the slot's source into its destination; the synchronous entry point
    // also finishes it.
    kav::zel::Status submit(int slot);
    // Waits until the slot's conversion is in the destination's memory.
    kav::zel::Status finish(int slot);

    static const char* statusName(kav::zel::Status status);

private:
    struct Slot {
        android::sp<android::GraphicBuffer> source;
        android::sp<android::GraphicBuffer> destination;
        std::vector<kav::zel::Buffer> inputs;
        kav::zel::Buffer output;
        android::sp<android::Fence> fence;
        std::unique_ptr<BlitCompletion> completion = std::make_unique<BlitCompletion>();
    };

    explicit Converter(const ConversionSetup& setup) : mSetup(setup) {}

    ConversionSetup mSetup;
    std::shared_ptr<kav::zel::Renderer> mRenderer;
    android::sp<ConversionListener> mListener;
    // Declared after the renderer: buffers and settings (a mesh holds GL buffers) go first.
    std::vector<Slot> mSlots;
};

}  // namespace zel::convert
