/*
 * Android's <EGL/eglext.h> carries a few Android tokens that the Khronos copy Debian ships lacks.
 * This header takes the system one and adds them, so code written for Android compiles unchanged.
 */
#pragma once

#include_next <EGL/eglext.h>

#ifndef EGL_ANDROID_image_crop
#define EGL_ANDROID_image_crop 1
#define EGL_IMAGE_CROP_LEFT_ANDROID 0x3148
#define EGL_IMAGE_CROP_TOP_ANDROID 0x3149
#define EGL_IMAGE_CROP_RIGHT_ANDROID 0x314A
#define EGL_IMAGE_CROP_BOTTOM_ANDROID 0x314B
#endif
