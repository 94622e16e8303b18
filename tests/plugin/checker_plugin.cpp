// A buffer checker plug-in for tests. It answers create with the number in the environment
// variable ZEL_TEST_CHECKER_CREATE_RESULT (0 when unset) and records every call in exported
// variables that a test reads with dlsym on the already loaded library.
#include <stdint.h>
#include <stdlib.h>
#include <stdio.h>

extern "C" {

__attribute__((visibility("default"))) int ZEL_TestCheckerLoads = 0;
__attribute__((visibility("default"))) int ZEL_TestCheckerCreateCalls = 0;
__attribute__((visibility("default"))) int ZEL_TestCheckerRunCalls = 0;
__attribute__((visibility("default"))) int ZEL_TestCheckerReleaseCalls = 0;
// Arguments of the last run: "path width height format dataspace".
__attribute__((visibility("default"))) char ZEL_TestCheckerRunArguments[600] = {};

__attribute__((constructor)) static void onLoad() {
    ++ZEL_TestCheckerLoads;
}

__attribute__((visibility("default"))) int ZEL_BufferCheckerCreate() {
    ++ZEL_TestCheckerCreateCalls;
    const char* result = getenv("ZEL_TEST_CHECKER_CREATE_RESULT");
    return result != nullptr ? atoi(result) : 0;
}

__attribute__((visibility("default"))) int ZEL_BufferCheckerRun(const char* path, int width,
                                                                int height, int format,
                                                                int32_t dataspace) {
    ++ZEL_TestCheckerRunCalls;
    snprintf(ZEL_TestCheckerRunArguments, sizeof(ZEL_TestCheckerRunArguments), "%s %d %d %d %d",
             path, width, height, format, static_cast<int>(dataspace));
    return 0;
}

__attribute__((visibility("default"))) int ZEL_BufferCheckerRelease() {
    ++ZEL_TestCheckerReleaseCalls;
    return 0;
}

}  // extern "C"
