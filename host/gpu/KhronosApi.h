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
