/*
 * The Khronos headers as every file of the GPU layer sees them: with the prototypes of the
 * extension functions declared, so that the compiler checks each function the layer defines
 * against its official signature.
 */
#pragma once

#ifndef EGL_EGLEXT_PROTOTYPES
#define EGL_EGLEXT_PROTOTYPES 1
#endif
#ifndef GL_GLEXT_PROTOTYPES
#define GL_GLEXT_PROTOTYPES 1
#endif

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES3/gl32.h>
#include <GLES2/gl2ext.h>

// EGL_ANDROID_image_crop is missing from some versions of the Khronos headers.
#ifndef EGL_ANDROID_image_crop
#define EGL_ANDROID_image_crop 1
#define EGL_IMAGE_CROP_LEFT_ANDROID 0x3148
#define EGL_IMAGE_CROP_TOP_ANDROID 0x3149
#define EGL_IMAGE_CROP_RIGHT_ANDROID 0x314A
#define EGL_IMAGE_CROP_BOTTOM_ANDROID 0x314B
#endif
