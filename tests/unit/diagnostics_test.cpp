// Debug switches loaded from properties, the log gates they control, the GL/EGL error checkers
// on a real context, and trace sections reaching the platform's recorder.
#include <string>

#include <gtest/gtest.h>

#include <EGL/egl.h>
#include <GLES3/gl31.h>

#include <zel/host/Gpu.h>
#include <zel/host/Log.h>
#include <zel/host/Properties.h>
#include <zel/host/Trace.h>

#include "DebugSettings.h"
#include "EglContext.h"
#include "Extensions.h"
#include "Log.h"

namespace kav {
namespace zel {
namespace {

class Diagnostics : public ::testing::Test {
protected:
    void SetUp() override {
        ::zel::host::clearProperties();
        ::zel::host::setLogCapture(true);
        ::zel::host::clearCapturedLogs();
    }
    void TearDown() override { ::zel::host::setLogCapture(false); }

    static int countLines(int priority, const std::string& text) {
        int count = 0;
        for (const auto& line : ::zel::host::capturedLogs()) {
            if (line.tag == "ZEL" && line.priority == priority &&
                line.message.find(text) != std::string::npos) {
                ++count;
            }
        }
        return count;
    }

    // One line behind each gate, printed by a function named "printAtEveryGate".
    static void printAtEveryGate() {
        ZEL_LOGD("gate two");
        ZEL_LOGD1("gate one");
        ZEL_LOGI("always info");
    }
};

TEST_F(Diagnostics, LoadsDefaultsWhenNoPropertyIsSet) {
    ZEL_debug_level = 7;
    ZEL_debug_dump = true;
    ZEL_debug_trace = true;
    loadDebugProperties();
    EXPECT_EQ(ZEL_debug_level, 1);
    EXPECT_FALSE(ZEL_debug_dump);
    EXPECT_FALSE(ZEL_debug_trace);
}

TEST_F(Diagnostics, ParsesPropertyTextLikeAtoi) {
    struct Case {
        const char* text;
        int level;
        bool on;
    };
    for (const Case& c : {Case{"0", 0, false}, Case{"abc", 0, false}, Case{"2", 2, true},
                          Case{"1", 1, true}, Case{"3x", 3, true}}) {
        ::zel::host::setProperty(kLogLevelProperty, c.text);
        ::zel::host::setProperty(kDumpProperty, c.text);
        ::zel::host::setProperty(kSystraceProperty, c.text);
        loadDebugProperties();
        EXPECT_EQ(ZEL_debug_level, c.level) << c.text;
        EXPECT_EQ(ZEL_debug_dump, c.on) << c.text;
        EXPECT_EQ(ZEL_debug_trace, c.on) << c.text;
    }
}

TEST_F(Diagnostics, LevelTwoLogsWhatItLoaded) {
    ::zel::host::setProperty(kLogLevelProperty, "2");
    ::zel::host::setProperty(kSystraceProperty, "5");
    loadDebugProperties();
    EXPECT_EQ(countLines(ANDROID_LOG_DEBUG, "loadDebugProperties <"), 3);
    EXPECT_EQ(countLines(ANDROID_LOG_DEBUG, "vendor.kav.c2.enable.zel.log 2"), 1);
    EXPECT_EQ(countLines(ANDROID_LOG_DEBUG, "vendor.kav.c2.zel.dump 0"), 1);
    EXPECT_EQ(countLines(ANDROID_LOG_DEBUG, "vendor.kav.c2.zel.systrace 1"), 1);
}

TEST_F(Diagnostics, DebugLinesFollowTheirGate) {
    struct Case {
        int level;
        int gateTwo;
        int gateOne;
    };
    for (const Case& c : {Case{0, 0, 0}, Case{1, 0, 1}, Case{2, 1, 1}}) {
        ::zel::host::clearCapturedLogs();
        ZEL_debug_level = c.level;
        printAtEveryGate();
        EXPECT_EQ(countLines(ANDROID_LOG_DEBUG, "gate two"), c.gateTwo) << "level " << c.level;
        EXPECT_EQ(countLines(ANDROID_LOG_DEBUG, "gate one"), c.gateOne) << "level " << c.level;
        EXPECT_EQ(countLines(ANDROID_LOG_INFO, "always info"), 1) << "level " << c.level;
    }
    // The prefix is the printing function's name and line.
    EXPECT_EQ(countLines(ANDROID_LOG_INFO, "printAtEveryGate <"), 1);
}

TEST_F(Diagnostics, GlCheckerDrainsEveryPendingError) {
    ::zel::test::EglContext context;
    ASSERT_TRUE(context.ok()) << context.failure();

    // Three error flags at once, as a driver with several flags holds them: the driver's own
    // bad enum plus two more queued by the GPU layer.
    glEnable(0xFFFF);
    ::zel::host::injectGlError(GL_INVALID_VALUE);
    ::zel::host::injectGlError(GL_INVALID_OPERATION);
    const int before = countLines(ANDROID_LOG_ERROR, "ZEL_CheckGLError <");

    EXPECT_FALSE(ZEL_CheckGLError("src/Test", "caller", 42));
    const int printed = countLines(ANDROID_LOG_ERROR, "ZEL_CheckGLError <") - before;
    EXPECT_EQ(printed, 3);
    EXPECT_EQ(
        countLines(ANDROID_LOG_ERROR, "file(src/Test), fun(caller), line(42), glError(0x500)"), 1);
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
    EXPECT_TRUE(ZEL_CheckGLError("src/Test", "caller", 43));
}

TEST_F(Diagnostics, EglCheckerReportsTheOneError) {
    ::zel::test::EglContext context;
    ASSERT_TRUE(context.ok()) << context.failure();

    EXPECT_TRUE(ZEL_CheckEGLError("src/Test", "caller", 1));
    EXPECT_EQ(countLines(ANDROID_LOG_ERROR, "eglGetError"), 0);

    EXPECT_EQ(eglQueryString(EGL_NO_DISPLAY, EGL_VENDOR), nullptr);
    EXPECT_FALSE(ZEL_CheckEGLError("src/Test", "caller", 2));
    EXPECT_EQ(countLines(ANDROID_LOG_ERROR, "line(2), eglGetError(0x3008)"), 1);
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

    const auto events = ::zel::host::traceEvents();
    ASSERT_EQ(events.size(), 4u);
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
