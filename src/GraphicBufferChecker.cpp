#include "GraphicBufferChecker.h"

#include <memory>

#include <bufmeta.h>
#include <ui/GraphicBufferMapper.h>

#include "Log.h"
#include "ScopedTrace.h"

namespace kav {
namespace zel {

namespace {

// One attribute query on behalf of func; 0 after an error line when the library cannot answer.
uint32_t query(const native_handle* handle, int code, const char* codeName, const char* func,
               int line) {
    uint32_t value = 0;
    const int error = bufmeta_query(handle, code, &value);
    if (error != 0) {
        __android_log_print(ANDROID_LOG_ERROR, ZEL_LOG_TAG,
                            "%s <%d>: bufmeta_query: %s failed with err: %d", func, line, codeName,
                            error);
        return 0;
    }
    return value;
}

}  // namespace

// Queries on behalf of the calling helper, which the error line names.
#define ZEL_BUFMETA_QUERY(handle, code) query(handle, code, #code, __func__, __LINE__)

GraphicBufferChecker& GraphicBufferChecker::Get() {
    static std::unique_ptr<GraphicBufferChecker> instance(new GraphicBufferChecker());
    return *instance;
}

bool GraphicBufferChecker::importBuffer(const native_handle* in, const native_handle** out) {
    ZEL_TRACE_FUNC();
    buffer_handle_t imported = nullptr;
    android::GraphicBufferMapper::get().importBufferNoValidate(in, &imported);
    if (imported == nullptr) {
        ZEL_LOGE("import buffer is NULL");
        return false;
    }
    *out = imported;
    return true;
}

bool GraphicBufferChecker::freeBuffer(const native_handle* handle) {
    ZEL_TRACE_FUNC();
    const android::status_t status = android::GraphicBufferMapper::get().freeBuffer(handle);
    if (status != 0) {
        ZEL_LOGE("freeBuffer(%p) failed with %d", handle, status);
    }
    return status == 0;
}

int32_t GraphicBufferChecker::dataspace(const native_handle* handle) {
    android::ui::Dataspace dataspace = android::ui::Dataspace::UNKNOWN;
    const android::status_t status =
        android::GraphicBufferMapper::get().getDataspace(handle, &dataspace);
    if (status != 0) {
        ZEL_LOGE("GraphicBufferMapper getDataspace failed with err: %d", status);
        return 0;
    }
    ZEL_LOGD("GraphicBufferMapper getDataspace : %d", static_cast<int32_t>(dataspace));
    return static_cast<int32_t>(dataspace);
}

uint32_t GraphicBufferChecker::width(const native_handle* handle) {
    return ZEL_BUFMETA_QUERY(handle, BUFMETA_GET_WIDTH);
}

uint32_t GraphicBufferChecker::height(const native_handle* handle) {
    return ZEL_BUFMETA_QUERY(handle, BUFMETA_GET_HEIGHT);
}

uint32_t GraphicBufferChecker::stride(const native_handle* handle) {
    return ZEL_BUFMETA_QUERY(handle, BUFMETA_GET_STRIDE);
}

uint32_t GraphicBufferChecker::allocSize(const native_handle* handle) {
    return ZEL_BUFMETA_QUERY(handle, BUFMETA_GET_ALLOC_SIZE);
}

int32_t GraphicBufferChecker::format(const native_handle* handle) {
    return static_cast<int32_t>(ZEL_BUFMETA_QUERY(handle, BUFMETA_GET_FORMAT));
}

int64_t GraphicBufferChecker::usage(const native_handle* handle) {
    return static_cast<int64_t>(ZEL_BUFMETA_QUERY(handle, BUFMETA_GET_USAGE));
}

}  // namespace zel
}  // namespace kav
