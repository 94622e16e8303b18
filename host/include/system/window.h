/*
 * Host version of Android's <system/window.h>, reduced to what buffer producers and consumers of
 * this project use: ANativeWindowBuffer (from <nativebase/nativebase.h>) and the window magic.
 */
#pragma once

#include <cutils/native_handle.h>
#include <nativebase/nativebase.h>
#include <system/graphics.h>

#ifdef __cplusplus
extern "C" {
#endif

#define ANDROID_NATIVE_WINDOW_MAGIC ANDROID_NATIVE_MAKE_CONSTANT('_', 'w', 'n', 'd')

struct ANativeWindow;

#ifdef __cplusplus
}
#endif
