// Debug switches loaded from properties, the log gates they control, the GL/EGL error checkers
// on a real context, and trace sections reaching the platform's recorder.
#include <string>

#include <gtest/gtest.h>

#include <EGL/egl.h>
#include <GLES3/gl31.h>

#include <zel/host/Gpu.h>
#include <zel/host/Properties.h>
#include <zel/host/Trace.h>

#include "DebugSettings.h"
#include "EglContext.h"
#include "Extensions.h"
#include "Log.h"
#include "LogCapture.h"

namespace kav {
namespace zel {
namespace {

class Diagnostics : public ::testing::Test {
protected:
    void SetUp() override { ::zel::host::clearProperties(); }

    // One line behind each gate, printed by a function named "printAtEveryGate".
    static void printAtEveryGate() {
        ZEL_LOGD("gate two");
        ZEL_LOGD1("gate one");
        ZEL_LOGI("always info");
    }
    ::zel::test::LogCapture mLogs;
};

TEST_F(Diagnostics, ParsesPropertyTextLikeAtoiWithDefaultsWhenUnset) {
    struct Case {
        const char* text;  // nullptr: no property set
        int level;
        bool on;
    };
    ZEL_debug_level = 7;
    ZEL_debug_dump = ZEL_debug_trace = true;
    for (const Case& c : {Case{nullptr, 1, false}, Case{"0", 0, false}, Case{"abc", 0, false},
                          Case{"2", 2, true}, Case{"1", 1, true}, Case{"3x", 3, true}}) {
        for (const char* property : {kLogLevelProperty, kDumpProperty, kSystraceProperty}) {
            if (c.text != nullptr) {
                ::zel::host::setProperty(property, c.text);
            }
        }
        loadDebugProperties();
        const char* text = c.text != nullptr ? c.text : "(unset)";
        EXPECT_EQ(ZEL_debug_level, c.level) << text;
        EXPECT_EQ(ZEL_debug_dump, c.on) << text;
        EXPECT_EQ(ZEL_debug_trace, c.on) << text;
    }
}

TEST_F(Diagnostics, DebugLinesFollowTheirGate) {
    struct Case {
        int level;
        size_t gateTwo;
        size_t gateOne;
    };
    for (const Case& c : {Case{0, 0, 0}, Case{1, 0, 1}, Case{2, 1, 1}}) {
        mLogs.clear();
        ZEL_debug_level = c.level;
        printAtEveryGate();
        EXPECT_EQ(mLogs.count(ANDROID_LOG_DEBUG, "gate two"), c.gateTwo) << "level " << c.level;
        EXPECT_EQ(mLogs.count(ANDROID_LOG_DEBUG, "gate one"), c.gateOne) << "level " << c.level;
        EXPECT_EQ(mLogs.count(ANDROID_LOG_INFO, "always info"), 1u) << "level " << c.level;
    }
    // The prefix is the printing function's name and line.
    EXPECT_EQ(mLogs.count(ANDROID_LOG_INFO, "printAtEveryGate <"), 1u);
}

TEST_F(Diagnostics, GlCheckerDrainsEveryPendingErrorAndEglCheckerReportsTheOne) {
    ::zel::test::EglContext context;
    ASSERT_TRUE(context.ok()) << context.failure();
    // Three error flags at once, as a driver with several flags holds them: the driver's own
    // bad enum plus two more queued by the GPU layer.
    glEnable(0xFFFF);
    ::zel::host::injectGlError(GL_INVALID_VALUE);
    ::zel::host::injectGlError(GL_INVALID_OPERATION);
    mLogs.clear();
    EXPECT_FALSE(ZEL_CheckGLError("src/Test", "caller", 42));
    EXPECT_EQ(mLogs.count(ANDROID_LOG_ERROR, "ZEL_CheckGLError <"), 3u) << mLogs.dump();
    EXPECT_EQ(
        mLogs.count(ANDROID_LOG_ERROR, "file(src/Test), fun(caller), line(42), glError(0x500)"),
        1u);
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
    EXPECT_TRUE(ZEL_CheckGLError("src/Test", "caller", 43));

    EXPECT_TRUE(ZEL_CheckEGLError("src/Test", "caller", 1));
    EXPECT_EQ(mLogs.count(ANDROID_LOG_ERROR, "eglGetError"), 0u);
    EXPECT_EQ(eglQueryString(EGL_NO_DISPLAY, EGL_VENDOR), nullptr);
    EXPECT_FALSE(ZEL_CheckEGLError("src/Test", "caller", 2));
    EXPECT_EQ(mLogs.count(ANDROID_LOG_ERROR, "line(2), eglGetError(0x3008)"), 1u);
    EXPECT_TRUE(ZEL_CheckEGLError("src/Test", "caller", 3));
}

TEST_F(Diagnostics, TraceSectionsReachTheRecorderOnlyWhenSwitchedOn) {
    ::zel::host::clearTraceEvents();
    ::zel::host::setProperty(kSystraceProperty, "0");
    loadDebugProperties();
    gl::Extensions::getInstance().initWithEGLStrings("1.5", "");
    EXPECT_TRUE(::zel::host::traceEvents().empty());

    // Property "2" is any non-zero number: tracing on.
    ::zel::host::setProperty(kSystraceProperty, "2");
    loadDebugProperties();
    gl::Extensions::getInstance().initWithEGLStrings("1.5", "");
    gl::Extensions::getInstance().initWithGLStrings(nullptr, nullptr, nullptr, nullptr);
    ASSERT_EQ(::zel::host::traceEvents().size(), 4u);
    const std::string json = ::zel::host::chromeTraceJson();
    EXPECT_NE(json.find("\"initWithEGLStrings\""), std::string::npos);
    EXPECT_NE(json.find("\"initWithGLStrings\""), std::string::npos);

    // With the tag off nothing is recorded even though the switch is on.
    ::zel::host::clearTraceEvents();
    ::zel::host::setEnabledTags(0);
    gl::Extensions::getInstance().initWithEGLStrings("1.5", "");
    EXPECT_TRUE(::zel::host::traceEvents().empty());
}

}  // namespace
}  // namespace zel
}  // namespace kav
