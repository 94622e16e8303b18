/*
 * The one place where buffer handles meet the platform: imports and frees through the graphic
 * buffer mapper, the dataspace, and the vendor gralloc attribute queries. Every query returns 0
 * after logging when the platform cannot answer.
 */
#pragma once

#include <stdint.h>

#include <cutils/native_handle.h>

namespace kav {
namespace zel {

class GraphicBufferChecker {
public:
    static GraphicBufferChecker& Get();

    bool importBuffer(const native_handle* in, const native_handle** out);
    bool freeBuffer(const native_handle* handle);
    int32_t dataspace(const native_handle* handle);

    uint32_t width(const native_handle* handle);
    uint32_t height(const native_handle* handle);
    uint32_t stride(const native_handle* handle);
    uint32_t allocSize(const native_handle* handle);
    int32_t format(const native_handle* handle);
    int64_t usage(const native_handle* handle);

private:
    GraphicBufferChecker() = default;
};

}  // namespace zel
}  // namespace kav
