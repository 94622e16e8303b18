/*
 * An Android graphic buffer as the renderer sees it: the object a Buffer record points to. The
 * client builds one per buffer, by wrapping a GraphicBuffer, by importing a raw native handle, or
 * by allocating a new buffer. Size and pixel format come from the vendor gralloc query library.
 * Construction never fails loudly: a bad argument is logged and leaves an object of size 0.
 */
#pragma once

#include <stdint.h>

#include <string>

#include <cutils/native_handle.h>
#include <ui/Fence.h>
#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

#include <zel/Texture.h>

namespace kav {
namespace zel {

class ExternalTexture : public Texture {
public:
    // Usage selector of the allocating constructor: GPU only, or GPU plus CPU read/write.
    static constexpr int kUsageGpuOnly = 1;

    explicit ExternalTexture(const android::sp<android::GraphicBuffer>& buffer);
    // Imports handle (the caller keeps its own); the import is freed by the destructor.
    explicit ExternalTexture(const native_handle* handle);
    // Allocates width x height of the HAL pixel format; copies size bytes of data into it when
    // data is set and the allocation is large enough.
    ExternalTexture(uint32_t width, uint32_t height, int format, int usage, void* data, int size);
    ~ExternalTexture();

    // The buffer's Android dataspace; 0 when there is no buffer or the mapper cannot tell.
    int32_t getDataspace();

    // Writes the whole allocation to a raw file named after the process, thread, size, format,
    // tag and a per-tag counter; returns the path, also when writing failed.
    std::string DumpBuffer(std::string tag);
    // Fills the whole allocation with the low byte of value.
    void HookBuffer(int value);

    const android::sp<android::GraphicBuffer>& getGraphicBuffer() const { return mGraphicBuffer; }
    const native_handle* getHandle() const { return mHandle; }
    int32_t getPixelFormat() const { return mPixelFormat; }
    bool isImported() const { return mImported; }
    // Completion fence of the last asynchronous GPU pass that wrote this buffer.
    const android::sp<android::Fence>& getFence() const { return mFence; }
    void setFence(const android::sp<android::Fence>& fence) { mFence = fence; }

private:
    android::sp<android::GraphicBuffer> mGraphicBuffer;
    const native_handle* mHandle = nullptr;
    android::sp<android::Fence> mFence;
    int32_t mPixelFormat = 0;
    bool mImported = false;
};

}  // namespace zel
}  // namespace kav
