#include "BufferChecker.h"

#include <dlfcn.h>

#include <mutex>

#include "Log.h"

// Where a developer puts the checker library. Host builds point it elsewhere.
#ifndef ZEL_CHECKER_PATH
#define ZEL_CHECKER_PATH "/data/local/tmp/libcodec2_zel_checker.so"
#endif

namespace kav {
namespace zel {

namespace {

using CreateFunction = int (*)();
using RunFunction = int (*)(const char*, int, int, int, Dataspace);
using ReleaseFunction = int (*)();

constexpr const char kCheckerPath[] = ZEL_CHECKER_PATH;
constexpr const char* kFunctionNames[] = {
    "ZEL_BufferCheckerCreate",
    "ZEL_BufferCheckerRun",
    "ZEL_BufferCheckerRelease",
};

// The loader's state lives as long as the process: the plug-in is never closed.
std::mutex gCheckerLock;
void* gCheckerHandle = nullptr;
void* gCheckerFunctions[] = {nullptr, nullptr, nullptr};

}  // namespace

void* getFunction(checker::FunctionName name) {
    std::lock_guard<std::mutex> lock(gCheckerLock);
    // Keyed on the create entry rather than the handle: a plug-in without one is opened again.
    if (gCheckerFunctions[checker::CREATE] == nullptr) {
        gCheckerHandle = dlopen(kCheckerPath, RTLD_LAZY | RTLD_GLOBAL);
        ZEL_LOGE_PLAIN("dlopen<%p>, %s", gCheckerHandle, kCheckerPath);
        if (gCheckerHandle == nullptr) {
            return nullptr;
        }
        for (int i = checker::CREATE; i <= checker::RELEASE; ++i) {
            ZEL_LOGE_PLAIN("getFunctionPtr for %s", kFunctionNames[i]);
            gCheckerFunctions[i] = dlsym(gCheckerHandle, kFunctionNames[i]);
        }
    }
    return gCheckerFunctions[name];
}

int BufferCheckerCreate() {
    static const auto create = reinterpret_cast<CreateFunction>(getFunction(checker::CREATE));
    if (create == nullptr) {
        ZEL_LOGE_PLAIN("BufferCheckerCreate failed");
        return 1;
    }
    return create();
}

void BufferCheckerRun(const char* path, int width, int height, int format, Dataspace dataspace) {
    static const auto run = reinterpret_cast<RunFunction>(getFunction(checker::RUN));
    if (run == nullptr) {
        ZEL_LOGE_PLAIN("BufferCheckerRun failed");
        return;
    }
    run(path, width, height, format, dataspace);
}

void BufferCheckerRelease() {
    static const auto release = reinterpret_cast<ReleaseFunction>(getFunction(checker::RELEASE));
    if (release == nullptr) {
        ZEL_LOGE_PLAIN("BufferCheckerRelease failed");
        return;
    }
    release();
}

}  // namespace zel
}  // namespace kav
