/*
 * Diagnostics that libcodec2_zel exports to the rest of the process: the three debug switches
 * (loaded from system properties whenever a GLES renderer is created) and the GL/EGL error
 * checkers that log every pending error with the caller's file, function and line.
 */
#pragma once

#include <stdint.h>

extern "C" {
// Log detail: 0 silences debug lines, 1 (the default) prints a few, 2 or more prints all.
extern int32_t ZEL_debug_level;
// Systrace sections around the library's operations.
extern bool ZEL_debug_trace;
// Raw dumps of source and destination buffers.
extern bool ZEL_debug_dump;
}

// Both return true when no error was pending. They log (and so clear) every pending GL error,
// or the one EGL error, on the calling thread; they never change the flow of the caller.
bool ZEL_CheckGLError(const char* file, const char* func, int line);
bool ZEL_CheckEGLError(const char* file, const char* func, int line);
