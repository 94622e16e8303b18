/*
 * Control of the host GPU layer (libzel_hostgpu) for tests, tools and benchmarks.
 *
 * The layer exports the EGL and OpenGL ES entry points and forwards them to Mesa, loaded privately
 * on first use. The environment variable ZEL_HOST_EGL_LIBRARY names another EGL library to load
 * instead of libEGL.so.1; it is read once, at the first EGL or GL call.
 */
#pragma once

#include <cstdint>
#include <string>

namespace zel {
namespace host {

// A snapshot of the layer's counters.
struct GpuCounters {
    // Cumulative since the start of the process or the last resetGpuCounters().
    uint64_t contextsCreated = 0;      // successful eglCreateContext calls
    uint64_t displaysInitialized = 0;  // successful eglInitialize calls
    // Live objects now: never reset.
    uint64_t contextsAlive = 0;  // created and neither destroyed nor released by eglTerminate
};

GpuCounters gpuCounters();

// Zeroes the cumulative counters; the live ones keep following what exists.
void resetGpuCounters();

// Queues a GL error on the calling thread; glGetError returns injected errors, oldest first,
// before the driver's own. Stands in for drivers that hold several error flags at once.
void injectGlError(unsigned error);

// True when the EGL driver loads and its surfaceless display initialises: the GPU tests can run.
// Checked once per process; the display is left initialised.
bool gpuAvailable();

// Why gpuAvailable() is false, in a sentence for a skip message; empty when it is true.
std::string gpuUnavailableReason();

}  // namespace host
}  // namespace zel
