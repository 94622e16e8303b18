// fdsan on the host: owner tags, and reports of closes by the wrong owner.

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include <android-base/unique_fd.h>
#include <android/fdsan.h>
#include <android/log.h>
#include <ui/Fence.h>
#include <zel/host/Sync.h>

#include "LogCapture.h"

using android::Fence;
using android::sp;

namespace {

int openDevNull() {
    return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool lastErrorSays(const std::string& text) {
    return zel::host::lastFdsanError().find(text) != std::string::npos;
}

// Reports are counted from zero in every case, and the error level and the environment that
// cases change are put back, so that the cases (and the rest of the binary) run in one process.
class FdsanTest : public testing::Test {
protected:
    void SetUp() override {
        zel::host::resetFdsanErrors();
        mLevel = android_fdsan_get_error_level();
        const char* environment = getenv(kEnvironment);
        mHadEnvironment = environment != nullptr;
        mEnvironment = mHadEnvironment ? environment : "";
    }
    void TearDown() override {
        android_fdsan_set_error_level(mLevel);
        if (mHadEnvironment) {
            setenv(kEnvironment, mEnvironment.c_str(), 1);
        } else {
            unsetenv(kEnvironment);
        }
        zel::host::resetFdsanErrors();
    }

    static constexpr const char* kEnvironment = "ZEL_HOST_FDSAN";
    android_fdsan_error_level mLevel = ANDROID_FDSAN_ERROR_LEVEL_DISABLED;
    bool mHadEnvironment = false;
    std::string mEnvironment;
};

TEST_F(FdsanTest, WrongOwnersAreReportedAndRightOnesAreNot) {
    zel::test::LogCapture capture;
    const uint64_t owner = android_fdsan_create_owner_tag(ANDROID_FDSAN_OWNER_TYPE_GENERIC_FF, 1);
    const uint64_t intruder =
        android_fdsan_create_owner_tag(ANDROID_FDSAN_OWNER_TYPE_GENERIC_FF, 2);

    int fd = openDevNull();
    android_fdsan_exchange_owner_tag(fd, 0, owner);
    EXPECT_EQ(android_fdsan_close_with_tag(fd, owner), 0);
    EXPECT_EQ(zel::host::fdsanErrorCount(), 0u);

    // A tag exchange from the wrong owner is reported and changes nothing.
    fd = openDevNull();
    android_fdsan_exchange_owner_tag(fd, 0, owner);
    android_fdsan_exchange_owner_tag(fd, intruder, 0);
    EXPECT_EQ(zel::host::fdsanErrorCount(), 1u);
    EXPECT_EQ(android_fdsan_get_owner_tag(fd), owner);

    // A close by the wrong owner is reported in the log, with the descriptor, and still closes.
    EXPECT_EQ(android_fdsan_close_with_tag(fd, intruder), 0);
    EXPECT_EQ(zel::host::fdsanErrorCount(), 2u);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    const std::string expected = "fdsan: attempted to close file descriptor " + std::to_string(fd);
    EXPECT_EQ(capture.count(ANDROID_LOG_ERROR, expected), 1u) << capture.dump();

    // The owner closing it again is a double close.
    EXPECT_EQ(android_fdsan_close_with_tag(fd, owner), -1);
    EXPECT_TRUE(lastErrorSays("double-close"));
}

TEST_F(FdsanTest, PlainCloseOfAFenceDescriptorIsReported) {
    sp<Fence> fence = new Fence(zel::host::createFenceFd());
    close(fence->get());  // behind the Fence's back
    EXPECT_EQ(zel::host::fdsanErrorCount(), 1u);
    EXPECT_TRUE(lastErrorSays("expected to be unowned, actually owned by unique_fd"));
    fence.clear();  // the Fence closes it once more
    EXPECT_TRUE(lastErrorSays("double-close"));
}

TEST_F(FdsanTest, LibbaseUniqueFdStaysSilentUnlessClosedByAnotherOwner) {
    // Debian's libbase unique_fd does not tag on the host: its normal life reports nothing.
    {
        android::base::unique_fd fd(openDevNull());
        android::base::unique_fd moved(std::move(fd));
        moved.reset(openDevNull());
    }
    EXPECT_EQ(zel::host::fdsanErrorCount(), 0u);

    android::base::unique_fd fd(openDevNull());
    const uint64_t someone = android_fdsan_create_owner_tag(ANDROID_FDSAN_OWNER_TYPE_PARCEL, 7);
    android_fdsan_close_with_tag(fd.release(), someone);
    EXPECT_EQ(zel::host::fdsanErrorCount(), 1u);
    EXPECT_TRUE(lastErrorSays("actually unowned"));
}

TEST_F(FdsanTest, ErrorLevelsAndTheEnvironment) {
    auto misclose = [] {
        const int fd = openDevNull();
        android_fdsan_exchange_owner_tag(fd, 0, 9);
        close(fd);
    };
    // The environment takes the place of the device's property.
    setenv("ZEL_HOST_FDSAN", "warn_once", 1);
    android_fdsan_set_error_level_from_property(ANDROID_FDSAN_ERROR_LEVEL_FATAL);
    misclose();
    misclose();
    EXPECT_EQ(zel::host::fdsanErrorCount(), 1u);
    android_fdsan_set_error_level(ANDROID_FDSAN_ERROR_LEVEL_FATAL);
    EXPECT_DEATH(misclose(), "fdsan: attempted to close file descriptor");
}

}  // namespace
