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
#include <zel/host/Log.h>
#include <zel/host/Sync.h>

using android::Fence;
using android::sp;

namespace {

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}

int openDevNull() {
    return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool loggedFdsanError(const std::string& text) {
    for (const zel::host::LogLine& line : zel::host::capturedLogs()) {
        if (line.priority == ANDROID_LOG_ERROR && line.message.rfind("fdsan: ", 0) == 0 &&
            line.message.find(text) != std::string::npos) {
            return true;
        }
    }
    return false;
}

TEST(FdsanTest, TagsCarryTypeAndValue) {
    EXPECT_EQ(android_fdsan_create_owner_tag(ANDROID_FDSAN_OWNER_TYPE_UNIQUE_FD, 0), 0u);
    const uint64_t tag =
        android_fdsan_create_owner_tag(ANDROID_FDSAN_OWNER_TYPE_NATIVE_HANDLE, 0x1234);
    EXPECT_EQ(tag >> 56, uint64_t{ANDROID_FDSAN_OWNER_TYPE_NATIVE_HANDLE});
    EXPECT_STREQ(android_fdsan_get_tag_type(tag), "native_handle_t");
    EXPECT_EQ(android_fdsan_get_tag_value(tag), 0x1234u);

    // Values keep their low 56 bits, read back sign-extended (as pointers with the top bit set).
    const uint64_t high = 0xffff800012345678ull;
    const uint64_t highTag = android_fdsan_create_owner_tag(ANDROID_FDSAN_OWNER_TYPE_FILE, high);
    EXPECT_STREQ(android_fdsan_get_tag_type(highTag), "FILE*");
    EXPECT_EQ(android_fdsan_get_tag_value(highTag), high);
    EXPECT_STREQ(android_fdsan_get_tag_type(0), "unowned");
}

TEST(FdsanTest, WrongOwnersAreReportedAndRightOnesAreNot) {
    zel::host::setLogCapture(true);
    const uint64_t owner = android_fdsan_create_owner_tag(ANDROID_FDSAN_OWNER_TYPE_GENERIC_FF, 1);
    const uint64_t intruder =
        android_fdsan_create_owner_tag(ANDROID_FDSAN_OWNER_TYPE_GENERIC_FF, 2);

    // The right owner: silent.
    int fd = openDevNull();
    android_fdsan_exchange_owner_tag(fd, 0, owner);
    EXPECT_EQ(android_fdsan_get_owner_tag(fd), owner);
    EXPECT_EQ(android_fdsan_close_with_tag(fd, owner), 0);
    EXPECT_EQ(zel::host::fdsanErrorCount(), 0u);

    // A tag exchange from the wrong owner is reported and changes nothing.
    fd = openDevNull();
    android_fdsan_exchange_owner_tag(fd, 0, owner);
    android_fdsan_exchange_owner_tag(fd, intruder, 0);
    EXPECT_EQ(zel::host::fdsanErrorCount(), 1u);
    EXPECT_EQ(android_fdsan_get_owner_tag(fd), owner);

    // A close by the wrong owner is reported, with the descriptor, and still closes.
    EXPECT_EQ(android_fdsan_close_with_tag(fd, intruder), 0);
    EXPECT_EQ(zel::host::fdsanErrorCount(), 2u);
    EXPECT_FALSE(isOpen(fd));
    const std::string expected = "file descriptor " + std::to_string(fd);
    EXPECT_NE(zel::host::lastFdsanError().find(expected), std::string::npos);
    EXPECT_TRUE(loggedFdsanError(expected));

    // The owner closing it again is a double close.
    EXPECT_EQ(android_fdsan_close_with_tag(fd, owner), -1);
    EXPECT_NE(zel::host::lastFdsanError().find("double-close"), std::string::npos);
    EXPECT_EQ(zel::host::fdsanErrorCount(), 4u);  // unowned by then, and EBADF
}

TEST(FdsanTest, PlainCloseOfAFenceDescriptorIsReported) {
    sp<Fence> fence = new Fence(zel::host::createFenceFd());
    const int fd = fence->get();
    close(fd);  // behind the Fence's back
    EXPECT_EQ(zel::host::fdsanErrorCount(), 1u);
    EXPECT_NE(
        zel::host::lastFdsanError().find("expected to be unowned, actually owned by unique_fd"),
        std::string::npos);
    fence.clear();  // the Fence closes it once more
    EXPECT_EQ(zel::host::fdsanErrorCount(), 3u);
    EXPECT_NE(zel::host::lastFdsanError().find("double-close"), std::string::npos);
}

TEST(FdsanTest, LibbaseUniqueFdStaysSilentUnlessClosedByAnotherOwner) {
    // Debian's libbase unique_fd does not tag on the host: its normal life reports nothing.
    {
        android::base::unique_fd fd(openDevNull());
        ASSERT_TRUE(fd.ok());
        EXPECT_EQ(android_fdsan_get_owner_tag(fd.get()), 0u);
        android::base::unique_fd moved(std::move(fd));
        moved.reset(openDevNull());
    }
    EXPECT_EQ(zel::host::fdsanErrorCount(), 0u);

    // Closing its descriptor as somebody else's is reported.
    android::base::unique_fd fd(openDevNull());
    const uint64_t someone = android_fdsan_create_owner_tag(ANDROID_FDSAN_OWNER_TYPE_PARCEL, 7);
    android_fdsan_close_with_tag(fd.release(), someone);
    EXPECT_EQ(zel::host::fdsanErrorCount(), 1u);
    EXPECT_NE(zel::host::lastFdsanError().find("actually unowned"), std::string::npos);
}

TEST(FdsanTest, ErrorLevels) {
    const uint64_t owner = android_fdsan_create_owner_tag(ANDROID_FDSAN_OWNER_TYPE_SQLITE, 9);
    auto misclose = [owner] {
        const int fd = openDevNull();
        android_fdsan_exchange_owner_tag(fd, 0, owner);
        close(fd);
    };
    EXPECT_EQ(android_fdsan_get_error_level(), ANDROID_FDSAN_ERROR_LEVEL_WARN_ALWAYS);

    EXPECT_EQ(android_fdsan_set_error_level(ANDROID_FDSAN_ERROR_LEVEL_WARN_ONCE),
              ANDROID_FDSAN_ERROR_LEVEL_WARN_ALWAYS);
    misclose();
    misclose();
    EXPECT_EQ(zel::host::fdsanErrorCount(), 1u);
    EXPECT_EQ(android_fdsan_get_error_level(), ANDROID_FDSAN_ERROR_LEVEL_DISABLED);

    zel::host::resetFdsanErrors();
    android_fdsan_set_error_level(ANDROID_FDSAN_ERROR_LEVEL_DISABLED);
    misclose();
    EXPECT_EQ(zel::host::fdsanErrorCount(), 0u);

    setenv("ZEL_HOST_FDSAN", "warn_always", 1);
    EXPECT_EQ(android_fdsan_set_error_level_from_property(ANDROID_FDSAN_ERROR_LEVEL_FATAL),
              ANDROID_FDSAN_ERROR_LEVEL_DISABLED);
    EXPECT_EQ(android_fdsan_get_error_level(), ANDROID_FDSAN_ERROR_LEVEL_WARN_ALWAYS);
    misclose();
    EXPECT_EQ(zel::host::fdsanErrorCount(), 1u);
    unsetenv("ZEL_HOST_FDSAN");

    android_fdsan_set_error_level(ANDROID_FDSAN_ERROR_LEVEL_FATAL);
    EXPECT_DEATH(misclose(), "fdsan: attempted to close file descriptor");
}

}  // namespace
