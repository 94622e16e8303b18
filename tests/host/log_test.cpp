// The host's liblog logger: capture, logcat-style stderr lines, threads, and asserts.

#define LOG_TAG "ZEL"
#define LOG_NDEBUG 0  // keep ALOGV
#include <log/log.h>
#include <zel/host/Log.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using zel::test::LogCapture;

// Leaves stderr printing on for the next test when they share a process.
class Log : public testing::Test {
protected:
    void TearDown() override { zel::host::setLogToStderr(true); }
};

TEST_F(Log, EveryPriorityIsCapturedAndPrintedLogcatStyle) {
    LogCapture capture;
    const std::string longMessage(3 * 4096 + 17, 'q');
    CaptureStderr();
    ALOGV("verbose %d", 2);
    ALOGD("convert <%d>: message", 412);
    ALOGI("info");
    ALOGW("first\nsecond\n");
    __android_log_write(ANDROID_LOG_ERROR, "ZEL", longMessage.c_str());
    __android_log_write(ANDROID_LOG_FATAL, "OTHER", "fatal");
    EXPECT_EQ(GetCapturedStderr(),
              "V ZEL : verbose 2\n"
              "D ZEL : convert <412>: message\n"
              "I ZEL : info\n"
              "W ZEL : first\nW ZEL : second\n"
              "E ZEL : " +
                  longMessage +
                  "\n"
                  "F OTHER : fatal\n");

    // Captured whole: no truncation, no splitting.
    const std::vector<zel::host::LogLine> lines = capture.lines();
    ASSERT_EQ(lines.size(), 6u) << capture.dump();
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(lines[i].priority, ANDROID_LOG_VERBOSE + i);
        EXPECT_EQ(lines[i].tid, gettid());
    }
    EXPECT_EQ(lines[1].tag, "ZEL");
    EXPECT_EQ(lines[1].message, "convert <412>: message");
    EXPECT_EQ(lines[3].message, "first\nsecond\n");
    EXPECT_EQ(lines[4].message, longMessage);
    EXPECT_EQ(lines[5].tag, "OTHER");

    // Printing and capture are switched independently.
    capture.clear();
    zel::host::setLogToStderr(false);
    CaptureStderr();
    ALOGE("silent");
    EXPECT_EQ(GetCapturedStderr(), "");
    EXPECT_EQ(capture.count(ANDROID_LOG_ERROR, "silent"), 1u);
    capture.clear();
    zel::host::setLogCapture(false);
    ALOGI("not kept");
    EXPECT_TRUE(zel::host::capturedLogs().empty());
}

TEST_F(Log, QuietEnvironmentSilencesFromTheStart) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    setenv("ZEL_HOST_LOG", "quiet", 1);
    EXPECT_EXIT(
        {
            ALOGE("should stay quiet");
            exit(0);
        },
        testing::ExitedWithCode(0), testing::Not(testing::HasSubstr("should stay quiet")));
    unsetenv("ZEL_HOST_LOG");
}

TEST_F(Log, AssertMessageReachesStderrBeforeAbort) {
    EXPECT_DEATH(LOG_ALWAYS_FATAL_IF(true, "broken %d", 42), "F ZEL : broken 42");
}

}  // namespace
