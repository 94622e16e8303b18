// The buffer checker plug-in: loading it once, calling its entry points, and the GLES renderer's
// use of it, with the test plug-in (tests/plugin) present or absent. The library looks for the
// plug-in relative to the working directory, so each test picks its directory.
#include <dlfcn.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include <android/log.h>
#include <system/graphics.h>

#include <zel/host/Gpu.h>

#include "BufferChecker.h"
#include "GLESRenderer.h"
#include "LogCapture.h"

namespace kav {
namespace zel {
namespace {

// What the test plug-in's create answers.
void setCreateResult(const char* value) {
    setenv("ZEL_TEST_CHECKER_CREATE_RESULT", value, 1);
}

// A variable the test plug-in exports, as the library loaded it (a test never loads it itself);
// null while it is not loaded.
const void* pluginVariable(const char* name) {
    void* handle = dlopen(ZEL_TEST_CHECKER_PATH, RTLD_NOW | RTLD_NOLOAD);
    if (handle == nullptr) {
        return nullptr;
    }
    const void* variable = dlsym(handle, name);
    dlclose(handle);  // the library's own reference keeps it loaded
    return variable;
}

int pluginCount(const char* name) {
    const int* count = static_cast<const int*>(pluginVariable(name));
    return count != nullptr ? *count : -1;
}

// Lines of the loader, which carry no function-and-line prefix.
size_t plainErrors(const ::zel::test::LogCapture& logs, const std::string& start) {
    size_t count = 0;
    for (const auto& line : logs.lines()) {
        count += line.priority == ANDROID_LOG_ERROR && line.message.rfind(start, 0) == 0;
    }
    return count;
}

// The library opens the plug-in and looks its entry points up once per process, so every case
// runs in a process of its own (a fresh one: the death-test machinery re-runs the binary), which
// also keeps its change of directory and environment to itself.
class BufferChecker : public ::testing::Test {
protected:
    // Runs |body| in a fresh process, in the directory that holds the test plug-in when
    // |present|, else in an empty one; the case fails when the body does.
    void inOwnProcess(bool present, const std::function<void()>& body) {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        EXPECT_EXIT(
            {
                char empty[] = "/tmp/zel-checker-XXXXXX";
                const bool entered = present ? chdir(ZEL_TEST_CHECKER_ROOT) == 0
                                             : mkdtemp(empty) != nullptr && chdir(empty) == 0;
                EXPECT_TRUE(entered);
                if (entered) {
                    body();
                }
                if (!present) {
                    rmdir(empty);
                }
                std::exit(::testing::Test::HasFailure() ? 1 : 0);
            },
            ::testing::ExitedWithCode(0), "");
    }
};

TEST_F(BufferChecker, PluginIsLoadedOnceAndItsEntryPointsGetTheArguments) {
    inOwnProcess(true, [] {
        ::zel::test::LogCapture logs;
        setCreateResult("0");
        EXPECT_EQ(BufferCheckerCreate(), 0);
        setCreateResult("7");
        EXPECT_EQ(BufferCheckerCreate(), 7);
        BufferCheckerRun("/dump/out.raw", 64, 32, 0x23, Dataspace::BT709);
        BufferCheckerRelease();

        EXPECT_EQ(pluginCount("ZEL_TestCheckerLoads"), 1);
        EXPECT_EQ(pluginCount("ZEL_TestCheckerCreateCalls"), 2);
        EXPECT_EQ(pluginCount("ZEL_TestCheckerReleaseCalls"), 1);
        EXPECT_EQ(pluginCount("ZEL_TestCheckerRunCalls"), 1);
        EXPECT_STREQ(static_cast<const char*>(pluginVariable("ZEL_TestCheckerRunArguments")),
                     ("/dump/out.raw 64 32 35 " + std::to_string(HAL_DATASPACE_BT709)).c_str());

        for (const char* name :
             {"ZEL_BufferCheckerCreate", "ZEL_BufferCheckerRun", "ZEL_BufferCheckerRelease"}) {
            EXPECT_EQ(plainErrors(logs, std::string("getFunctionPtr for ") + name), 1u) << name;
        }
        EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "failed"), 0u);
    });
}

TEST_F(BufferChecker, MissingPluginOnlyLogs) {
    inOwnProcess(false, [] {
        ASSERT_TRUE(::zel::host::gpuAvailable()) << ::zel::host::gpuUnavailableReason();
        ::zel::test::LogCapture logs;
        auto renderer = GLESRenderer::create(Renderer::Args{Renderer::kTypeGles});
        ASSERT_NE(renderer, nullptr);
        EXPECT_FALSE(renderer->createBufferChecker());
        EXPECT_EQ(BufferCheckerCreate(), 1);
        BufferCheckerRun("/dump/out.raw", 64, 32, 1, Dataspace::UNKNOWN);
        renderer.reset();  // never created: no release
        EXPECT_EQ(plainErrors(logs, "BufferCheckerCreate failed"), 2u) << logs.dump();
        EXPECT_EQ(plainErrors(logs, "BufferCheckerRun failed"), 1u);
        EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "BufferCheckerRelease"), 0u);
        // Each wrapper looks its entry point up once, at its first call.
        EXPECT_EQ(plainErrors(logs, "dlopen<"), 2u);
        BufferCheckerRelease();
        EXPECT_EQ(plainErrors(logs, "BufferCheckerRelease failed"), 1u);
        EXPECT_EQ(logs.count(ANDROID_LOG_ERROR, "getFunctionPtr"), 0u);
    });
}

TEST_F(BufferChecker, RendererReleasesThePluginWhenTheLastCreateSucceeded) {
    inOwnProcess(true, [] {
        ASSERT_TRUE(::zel::host::gpuAvailable()) << ::zel::host::gpuUnavailableReason();
        auto makeRenderer = [] {
            return GLESRenderer::create(Renderer::Args{Renderer::kTypeGles});
        };
        // A renderer that never asks for the checker never opens it.
        makeRenderer().reset();
        EXPECT_EQ(pluginCount("ZEL_TestCheckerLoads"), -1);

        auto renderer = makeRenderer();
        setCreateResult("0");
        EXPECT_TRUE(renderer->createBufferChecker());
        setCreateResult("2");
        EXPECT_FALSE(renderer->createBufferChecker());
        renderer.reset();
        EXPECT_EQ(pluginCount("ZEL_TestCheckerReleaseCalls"), 0);

        renderer = makeRenderer();
        setCreateResult("-1");
        EXPECT_FALSE(renderer->getDebugDetect() || renderer->createBufferChecker());
        setCreateResult("0");
        EXPECT_TRUE(renderer->createBufferChecker());
        renderer.reset();
        EXPECT_EQ(pluginCount("ZEL_TestCheckerCreateCalls"), 4);
        EXPECT_EQ(pluginCount("ZEL_TestCheckerReleaseCalls"), 1);
    });
}

}  // namespace
}  // namespace zel
}  // namespace kav
