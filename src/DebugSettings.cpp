#include "DebugSettings.h"

#include <stdlib.h>

#include <EGL/egl.h>
#include <GLES3/gl31.h>
#include <cutils/properties.h>

#include "Log.h"

extern "C" {
int32_t ZEL_debug_level = 1;
bool ZEL_debug_trace = false;
bool ZEL_debug_dump = false;
}

bool ZEL_CheckGLError(const char* file, const char* func, int line) {
    GLenum error = glGetError();
    if (error == GL_NO_ERROR) {
        return true;
    }
    // GL may hold several error flags at once; drain them all so the next check starts clean.
    do {
        ZEL_LOGE("file(%s), fun(%s), line(%d), glError(0x%x)", file, func, line, error);
        error = glGetError();
    } while (error != GL_NO_ERROR);
    return false;
}

bool ZEL_CheckEGLError(const char* file, const char* func, int line) {
    return kav::zel::checkEglErrorCode(file, func, line) == EGL_SUCCESS;
}

namespace kav {
namespace zel {

int32_t checkEglErrorCode(const char* file, const char* func, int line) {
    const EGLint error = eglGetError();
    if (error != EGL_SUCCESS) {
        // Printed under the exported checker's name, whichever of the two was called.
        __android_log_print(ANDROID_LOG_ERROR, ZEL_LOG_TAG,
                            "%s <%d>: file(%s), fun(%s), line(%d), eglGetError(0x%x)",
                            "ZEL_CheckEGLError", __LINE__, file, func, line, error);
    }
    return error;
}

namespace {

int readIntProperty(const char* key, const char* defaultValue) {
    char value[PROPERTY_VALUE_MAX] = {};
    property_get(key, value, defaultValue);
    return atoi(value);
}

}  // namespace

void loadDebugProperties() {
    const int32_t level = readIntProperty(kLogLevelProperty, "1");
    __atomic_store_n(&ZEL_debug_level, level, __ATOMIC_RELAXED);
    ZEL_LOGD("%s %d", kLogLevelProperty, level);

    const bool dump = readIntProperty(kDumpProperty, "0") != 0;
    __atomic_store_n(&ZEL_debug_dump, dump, __ATOMIC_RELAXED);
    ZEL_LOGD("%s %d", kDumpProperty, dump ? 1 : 0);

    const bool trace = readIntProperty(kSystraceProperty, "0") != 0;
    __atomic_store_n(&ZEL_debug_trace, trace, __ATOMIC_RELAXED);
    ZEL_LOGD("%s %d", kSystraceProperty, trace ? 1 : 0);
}

}  // namespace zel
}  // namespace kav
