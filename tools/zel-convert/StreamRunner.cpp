#include "StreamRunner.h"

#include <chrono>
#include <cstdio>

// The grid mesh is the library's Mesh, which has no public header yet.
#include "Mesh.h"

#include "BufferCopier.h"
#include "Dataspace.h"
#include "HostHooks.h"
#include "ProgressBar.h"
#include "TraceSection.h"
#include "Y4mReader.h"

namespace zel::convert {

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

std::string sizeText(int width, int height) {
    return std::to_string(width) + "x" + std::to_string(height);
}

}  // namespace

ToolError StreamRunner::prepare() {
    if (ToolError error = FrameReader::open(mOptions, &mReader)) {
        return error;
    }
    const PixelFormat* from = mOptions.from != nullptr ? mOptions.from : mReader->format();
    const PixelFormat* to = mOptions.to != nullptr ? mOptions.to : PixelFormat::find("rgba");
    const bool yuvInput = mReader->layout() != FrameLayout::Rgba;
    const bool tenBitInput = Frame::bytesPerSample(mReader->layout()) == 2;
    if (from->isYuv() != yuvInput || (yuvInput && (from->bitDepth() == 10) != tenBitInput)) {
        return ToolError::badInput(std::string("the input's frames cannot go into a ") +
                                   from->name + " source buffer");
    }
    const int width = mReader->width();
    const int height = mReader->height();
    mSetup.rendererType = mOptions.rendererType;
    mSetup.mode = mOptions.blitMode;
    mSetup.from = from;
    mSetup.to = to;
    mSetup.sourceWidth = width;
    mSetup.sourceHeight = height;
    Size destination{width, height};
    if (mOptions.crop) {
        destination = {mOptions.crop->width(), mOptions.crop->height()};
    }
    if (mOptions.outputSize) {
        destination = *mOptions.outputSize;
    }
    mSetup.destinationWidth = destination.width;
    mSetup.destinationHeight = destination.height;
    for (const auto& [format, size] :
         {std::make_pair(from, Size{width, height}), std::make_pair(to, destination)}) {
        if (format->isYuv() && (size.width % 2 != 0 || size.height % 2 != 0)) {
            return ToolError::badInput(sizeText(size.width, size.height) + ": " + format->name +
                                       " needs an even width and height");
        }
    }
    mSetup.sourceDataspace = Dataspace::of(mOptions.sourceColour, mReader->fullRange());
    mSetup.destinationDataspace = Dataspace::of(
        mOptions.destinationColour,
        from->isYuv() ? std::optional<bool>(Dataspace::isFullRange(mSetup.sourceDataspace))
                      : std::nullopt);
    if (mOptions.crop || mOptions.region || mOptions.rotation != 0.0f || mOptions.forceSize ||
        mOptions.grid) {
        auto settings = std::make_shared<kav::zel::BufferSettings>();
        if (mOptions.crop) {
            settings->crop = *mOptions.crop;
        }
        if (mOptions.region) {
            settings->region = *mOptions.region;
        }
        settings->rotation = mOptions.rotation;
        if (mOptions.forceSize) {
            settings->forceWidth = mOptions.forceSize->width;
            settings->forceHeight = mOptions.forceSize->height;
        }
        if (mOptions.grid) {
            settings->mesh = kav::zel::Mesh::buildRect(static_cast<size_t>(mOptions.grid->width),
                                                       static_cast<size_t>(mOptions.grid->height));
        }
        mSetup.settings = settings;
    }
    mFrameCount = mReader->frameCount();
    if (mOptions.frames >= 0 && (mFrameCount < 0 || mOptions.frames < mFrameCount)) {
        mFrameCount = mOptions.frames;
    }
    StreamInfo stream;
    stream.format = to;
    stream.width = destination.width;
    stream.height = destination.height;
    stream.fullRange = Dataspace::isFullRange(mSetup.destinationDataspace);
    stream.frameRate = mReader->frameRate();
    stream.frameCount = mFrameCount;
    stream.inputIsY4m = dynamic_cast<Y4mReader*>(mReader.get()) != nullptr;
    if (ToolError error = FrameWriter::open(mOptions, stream, &mWriter)) {
        return error;
    }
    for (const auto& [key, value] : mOptions.properties) {
        if (ToolError error = HostHooks::setProperty(key, value)) {
            return error;
        }
    }
    if (!mOptions.traceFile.empty()) {
        if (ToolError error = HostHooks::startTrace()) {
            return error;
        }
    }
    return Converter::create(mSetup, &mConverter);
}

bool StreamRunner::load(int slot, FrameTimes* times) {
    const Clock::time_point waitStart = Clock::now();
    std::unique_ptr<Frame> frame = mPrefetcher->next(&mReadError);
    times->waitInput = secondsSince(waitStart);
    if (frame == nullptr) {
        return false;
    }
    const Clock::time_point copyStart = Clock::now();
    {
        TraceSection section("zel-convert copy in");
        BufferCopier::upload(*frame, mConverter->source(slot));
    }
    times->copyIn = secondsSince(copyStart);
    mPrefetcher->recycle(std::move(frame));
    return true;
}

ToolError StreamRunner::convertAll() {
    mPrefetcher = std::make_unique<FramePrefetcher>(*mReader, mOptions.frames);
    FrameStats stats;
    ProgressBar progress(mOptions.progress, mFrameCount);
    Frame output(mWriter->layout(), mSetup.destinationWidth, mSetup.destinationHeight);
    FrameTimes current;
    int slot = 0;
    bool loaded = load(slot, &current);
    for (int64_t index = 0; loaded; ++index) {
        const Clock::time_point submitStart = Clock::now();
        kav::zel::Status status = mConverter->submit(slot);
        current.blit = secondsSince(submitStart);
        // While the GPU works on this slot, the next frame goes into the other one.
        FrameTimes next;
        const int nextSlot = (slot + 1) % mConverter->slots();
        loaded = status == kav::zel::OK && load(nextSlot, &next);
        const Clock::time_point finishStart = Clock::now();
        if (status == kav::zel::OK) {
            status = mConverter->finish(slot);
        }
        current.blit += secondsSince(finishStart);
        if (status != kav::zel::OK) {
            return ToolError(ToolError::kConversionFailed,
                             "frame " + std::to_string(index + 1) +
                                 ": conversion failed: " + Converter::statusName(status));
        }
        Clock::time_point start = Clock::now();
        {
            TraceSection section("zel-convert copy out");
            BufferCopier::download(mConverter->destination(slot), output);
        }
        current.copyOut = secondsSince(start);
        start = Clock::now();
        {
            TraceSection section("zel-convert write");
            if (ToolError error = mWriter->write(output)) {
                return error;
            }
        }
        current.write = secondsSince(start);
        stats.add(current);
        progress.update(index + 1);
        current = next;
        slot = nextSlot;
    }
    if (mReadError) {
        return mReadError;
    }
    if (ToolError error = mWriter->finish()) {
        return error;
    }
    if (mOptions.stats) {
        std::fprintf(stderr, "%s", stats.report(mPrefetcher->readSeconds()).c_str());
    }
    return {};
}

ToolError StreamRunner::run() {
    if (ToolError error = prepare()) {
        return error;
    }
    ToolError error = convertAll();
    mPrefetcher.reset();
    if (!mOptions.traceFile.empty()) {
        if (ToolError traceError = HostHooks::writeTrace(mOptions.traceFile)) {
            return error ? error : traceError;
        }
    }
    return error;
}

}  // namespace zel::convert
