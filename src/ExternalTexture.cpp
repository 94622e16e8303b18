#include <zel/ExternalTexture.h>

#include <limits.h>
#include <string.h>
#include <sys/types.h>
#include <unistd.h>

#include <fstream>
#include <unordered_map>

#include <hardware/gralloc.h>
#include <ui/GraphicBufferMapper.h>

#include "DumpCounter.h"
#include "GraphicBufferChecker.h"
#include "Log.h"
#include "ScopedTrace.h"

// Where buffer dumps go. It must exist and be writable; the library does not create it.
#ifndef ZEL_DUMP_DIR
#define ZEL_DUMP_DIR "/data/vendor/vcodec/"
#endif

namespace kav {
namespace zel {

namespace {

std::unordered_map<std::string, unsigned int> counter_map;

constexpr uint32_t kUsageGpu = GRALLOC_USAGE_HW_TEXTURE | GRALLOC_USAGE_HW_RENDER;
constexpr uint32_t kUsageGpuAndCpu =
    kUsageGpu | GRALLOC_USAGE_SW_READ_OFTEN | GRALLOC_USAGE_SW_WRITE_OFTEN;

const native_handle* handleOf(const android::sp<android::GraphicBuffer>& buffer) {
    return buffer->getNativeBuffer()->handle;
}

}  // namespace

unsigned int GetDumpCounter(std::string tag) {
    return counter_map.emplace(tag, 1u).first->second;
}

void UpdateDumpCounter(std::string tag) {
    unsigned int& counter = counter_map[tag];
    counter = (counter == UINT_MAX) ? 1u : counter + 1u;
}

void SetDumpCounter(std::string tag, unsigned int value) {
    counter_map[tag] = value;
}

ExternalTexture::ExternalTexture(const android::sp<android::GraphicBuffer>& buffer)
    : mGraphicBuffer(buffer) {
    ZEL_TRACE_NAME("ExternalTexture");
    if (buffer == nullptr) {
        ZEL_LOGE("ExternalTexture(), invalid parameter (%p)", buffer.get());
        return;
    }
    GraphicBufferChecker& checker = GraphicBufferChecker::Get();
    const native_handle* handle = handleOf(buffer);
    mWidth = checker.width(handle);
    mHeight = checker.height(handle);
    mPixelFormat = checker.format(handle);
    mTextureTarget = kTargetExternal;
    const int64_t usage = checker.usage(handle);
    const uint32_t stride = checker.stride(handle);
    ZEL_LOGD("ExternalTexture(%d, %d, %d, %d, %ld)", mWidth, mHeight, mPixelFormat, stride,
             static_cast<long>(usage));
}

ExternalTexture::ExternalTexture(const native_handle* handle) : mImported(true) {
    ZEL_TRACE_NAME("ExternalTexture");
    if (handle == nullptr) {
        ZEL_LOGE("ExternalTexture(), invalid parameter (%p)", handle);
        return;
    }
    GraphicBufferChecker& checker = GraphicBufferChecker::Get();
    checker.importBuffer(handle, &mHandle);
    mWidth = checker.width(handle);
    mHeight = checker.height(handle);
    mPixelFormat = checker.format(handle);

    uint64_t layers = 0;
    android::GraphicBufferMapper::get().getLayerCount(mHandle, &layers);

    const int64_t usage = checker.usage(handle);
    const uint32_t stride = checker.stride(handle);
    ZEL_LOGD("ExternalTexture(%d, %d, %d, %d, %ld)", mWidth, mHeight, mPixelFormat, stride,
             static_cast<long>(usage));

    // The wrapper does not own the imported handle: the destructor frees it.
    mGraphicBuffer =
        new android::GraphicBuffer(mHandle, android::GraphicBuffer::WRAP_HANDLE, mWidth, mHeight,
                                   mPixelFormat, 0, static_cast<uint32_t>(usage), stride);
    mTextureTarget = kTargetExternal;
}

ExternalTexture::ExternalTexture(uint32_t width, uint32_t height, int format, int usage, void* data,
                                 int size) {
    ZEL_TRACE_NAME("ExternalTexture");
    mPixelFormat = format;
    if (width == 0 || height == 0) {
        ZEL_LOGE("ExternalTexture(), invalid parameter (%d,%d,%p,%d)", width, height, data, size);
        return;
    }
    mWidth = width;
    mHeight = height;
    const uint32_t grallocUsage = (usage == kUsageGpuOnly) ? kUsageGpu : kUsageGpuAndCpu;
    mGraphicBuffer = new android::GraphicBuffer(width, height, format, grallocUsage, "<Unknown>");
    if (mGraphicBuffer->initCheck() != android::NO_ERROR) {
        ZEL_LOGE("ExternalTexture(), new GraphicBuffer failed");
        mGraphicBuffer.clear();
        mTextureTarget = kTargetExternal;
        return;
    }

    const uint32_t alloc = GraphicBufferChecker::Get().allocSize(handleOf(mGraphicBuffer));
    ZEL_LOGD("ExternalTexture(), input parameter buffer size : %d", size);
    ZEL_LOGD("GraphicBuffer(), buffer alloc size : %d", alloc);
    if (data != nullptr && alloc >= static_cast<uint32_t>(size)) {
        void* address = nullptr;
        android::status_t status = mGraphicBuffer->lock(GRALLOC_USAGE_SW_WRITE_OFTEN, &address);
        if (status == android::NO_ERROR) {
            memcpy(address, data, static_cast<uint32_t>(size));
            status = mGraphicBuffer->unlock();
            if (status != android::NO_ERROR) {
                ZEL_LOGE("GraphicBuffer unlock failed: %d", status);
            }
        } else {
            ZEL_LOGE("GraphicBuffer lock failed: %d", status);
        }
    }
    mTextureTarget = kTargetExternal;
}

ExternalTexture::~ExternalTexture() {
    ZEL_TRACE_NAME("~ExternalTexture");
    if (mHandle != nullptr) {
        ZEL_LOGD("free buffer");
        GraphicBufferChecker::Get().freeBuffer(mHandle);
    } else {
        ZEL_LOGD("only point to nullptr");
        mGraphicBuffer.clear();
    }
    // The imported handle goes before the graphic buffer that wraps it.
    mFence.clear();
    mGraphicBuffer.clear();
}

int32_t ExternalTexture::getDataspace() {
    if (mGraphicBuffer == nullptr) {
        return 0;
    }
    return GraphicBufferChecker::Get().dataspace(handleOf(mGraphicBuffer));
}

std::string ExternalTexture::DumpBuffer(std::string tag) {
    std::string path = std::string(ZEL_DUMP_DIR) + std::to_string(getpid()) + "_" +
                       std::to_string(gettid()) + "_W_" + std::to_string(mWidth) + "_H_" +
                       std::to_string(mHeight) + "_P_" + std::to_string(mPixelFormat) + "_" + tag +
                       "#" + std::to_string(GetDumpCounter(tag)) + ".raw";
    UpdateDumpCounter(tag);
    ZEL_LOGD1("dump file path:%s", path.c_str());
    if (mGraphicBuffer == nullptr) {
        ZEL_LOGE("no buffer to dump");
        return path;
    }

    const uint32_t size = GraphicBufferChecker::Get().allocSize(handleOf(mGraphicBuffer));
    ZEL_LOGD1("Dump Buffer Size: %d", size);

    void* address = nullptr;
    android::status_t status = mGraphicBuffer->lock(GRALLOC_USAGE_SW_READ_OFTEN, &address);
    if (status != android::NO_ERROR) {
        ZEL_LOGE("GraphicBuffer lock failed: %d", status);
        return path;
    }
    {
        // On a failed open or write the buffer stays locked: this is a debugging path.
        std::ofstream file(path, std::ios::binary | std::ios::out | std::ios::trunc);
        if (!file.is_open()) {
            ZEL_LOGE("fail to open:%s", path.c_str());
            return path;
        }
        const std::streampos before = file.tellp();
        file.write(static_cast<const char*>(address), size);
        const std::streampos after = file.tellp();
        const size_t written = file.good() ? static_cast<size_t>(after - before) : 0;
        if (written != size) {
            ZEL_LOGE("write failed: %zu/%zu", written, static_cast<size_t>(size));
            return path;
        }
    }
    status = mGraphicBuffer->unlock();
    if (status != android::NO_ERROR) {
        ZEL_LOGE("GraphicBuffer unlock failed: %d", status);
    }
    return path;
}

void ExternalTexture::HookBuffer(int value) {
    if (mGraphicBuffer == nullptr) {
        ZEL_LOGE("no buffer to hook");
        return;
    }
    const uint32_t size = GraphicBufferChecker::Get().allocSize(handleOf(mGraphicBuffer));
    ZEL_LOGD1("Dump Buffer Size: %d", size);

    void* address = nullptr;
    android::status_t status = mGraphicBuffer->lock(GRALLOC_USAGE_SW_READ_OFTEN, &address);
    if (status != android::NO_ERROR) {
        ZEL_LOGE("GraphicBuffer lock failed: %d", status);
        return;
    }
    memset(address, value & 0xff, size);
    status = mGraphicBuffer->unlock();
    if (status != android::NO_ERROR) {
        ZEL_LOGE("GraphicBuffer unlock failed: %d", status);
    }
}

}  // namespace zel
}  // namespace kav
