/*
 * The library's logging convention: every line goes to the Android log under the tag "ZEL",
 * prefixed with the printing function's name and source line. Debug lines are gated by
 * ZEL_debug_level (most need 2, a few need only 1); info, warning and error lines always print.
 */
#pragma once

#include <stdint.h>

#include <log/log.h>

#include "DebugSettings.h"

#define ZEL_LOG_TAG "ZEL"

#define ZEL_LOG_PRINT(priority, fmt, ...) \
    __android_log_print(priority, ZEL_LOG_TAG, "%s <%d>: " fmt, __func__, __LINE__, ##__VA_ARGS__)

#define ZEL_LOGE(fmt, ...) ZEL_LOG_PRINT(ANDROID_LOG_ERROR, fmt, ##__VA_ARGS__)
#define ZEL_LOGW(fmt, ...) ZEL_LOG_PRINT(ANDROID_LOG_WARN, fmt, ##__VA_ARGS__)
#define ZEL_LOGI(fmt, ...) ZEL_LOG_PRINT(ANDROID_LOG_INFO, fmt, ##__VA_ARGS__)

// Debug line printed from level 2 on.
#define ZEL_LOGD(fmt, ...)                                        \
    do {                                                          \
        if (::kav::zel::debugLevel() >= 2) {                      \
            ZEL_LOG_PRINT(ANDROID_LOG_DEBUG, fmt, ##__VA_ARGS__); \
        }                                                         \
    } while (0)

// Debug line printed from level 1 on, so at the default level too.
#define ZEL_LOGD1(fmt, ...)                                       \
    do {                                                          \
        if (::kav::zel::debugLevel() >= 1) {                      \
            ZEL_LOG_PRINT(ANDROID_LOG_DEBUG, fmt, ##__VA_ARGS__); \
        }                                                         \
    } while (0)

// Lines that carry no function/line prefix.
#define ZEL_LOGE_PLAIN(fmt, ...) \
    __android_log_print(ANDROID_LOG_ERROR, ZEL_LOG_TAG, fmt, ##__VA_ARGS__)
#define ZEL_LOGW_PLAIN(fmt, ...) \
    __android_log_print(ANDROID_LOG_WARN, ZEL_LOG_TAG, fmt, ##__VA_ARGS__)

// Fatal conditions log and abort the process.
#define ZEL_FATAL(fmt, ...) __android_log_assert(nullptr, ZEL_LOG_TAG, fmt, ##__VA_ARGS__)

// Error checks after GL and EGL calls; each source file defines kLogFile ("src/GLESRenderer").
#define ZEL_CHECK_GL() ZEL_CheckGLError(kLogFile, __func__, __LINE__)
#define ZEL_CHECK_EGL() ZEL_CheckEGLError(kLogFile, __func__, __LINE__)
// The same EGL check, handing back the code it read (EGL_SUCCESS when there was none). EGL keeps
// a single error and reading it clears it, so a failure line that prints the code after a check
// must print this value, never a second eglGetError().
#define ZEL_CHECK_EGL_CODE() kav::zel::checkEglErrorCode(kLogFile, __func__, __LINE__)

namespace kav {
namespace zel {
int32_t checkEglErrorCode(const char* file, const char* func, int line);
}  // namespace zel
}  // namespace kav
