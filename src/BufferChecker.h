/*
 * The optional buffer checker: a library a developer places on the device to inspect the frames
 * that buffer dumping writes. It is opened lazily, once per process, from a fixed path; three C
 * entry points are looked up by name. When it is absent every call only logs.
 *
 * The GLES renderer calls BufferCheckerCreate on every conversion while dumping is on,
 * BufferCheckerRun on each dumped output once create has answered 0, and BufferCheckerRelease
 * when it is destroyed.
 */
#pragma once

#include <android/hardware/graphics/common/1.2/types.h>

namespace kav {
namespace zel {

namespace checker {

// The entry points, as indices into the loader's table.
enum FunctionName : int {
    CREATE = 0,
    RUN = 1,
    RELEASE = 2,
};

}  // namespace checker

using Dataspace = android::hardware::graphics::common::V1_2::Dataspace;

// The plug-in's entry point for name; null when the plug-in or the symbol is missing. Opens the
// plug-in on first use (and again on every call for as long as it offers no create entry).
void* getFunction(checker::FunctionName name);

// 0 when the checker is ready for this frame; 1 when it cannot be reached.
int BufferCheckerCreate();
// Hands one dumped frame to the checker.
void BufferCheckerRun(const char* path, int width, int height, int format, Dataspace dataspace);
void BufferCheckerRelease();

}  // namespace zel
}  // namespace kav
