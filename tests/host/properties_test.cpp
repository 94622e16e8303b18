// property_get and friends over the host's property store, with Android's truncation, defaults and
// conversions, seeded from the file named by ZEL_HOST_PROPERTIES.

#include <cutils/properties.h>
#include <zel/host/Properties.h>

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using zel::host::getProperty;
using zel::host::setProperty;

std::string writeTempFile(const std::string& contents) {
    char path[] = "/tmp/zel_properties_XXXXXX";
    int fd = mkstemp(path);
    EXPECT_GE(fd, 0);
    close(fd);
    std::ofstream(path, std::ios::binary) << contents;
    return path;
}

// property_get into a poisoned buffer; its return value must be the length it wrote.
std::string get(const char* key, const char* defaultValue) {
    char value[PROPERTY_VALUE_MAX];
    std::memset(value, 'z', sizeof(value));
    const int length = property_get(key, value, defaultValue);
    EXPECT_EQ(static_cast<size_t>(length), strnlen(value, sizeof(value)));
    return std::string(value, strnlen(value, sizeof(value)));
}

TEST(Properties, PropertyGetTruncatesAndFallsBackLikeAndroid) {
    setProperty("debug.zel.mode", "fast");
    EXPECT_EQ(get("debug.zel.mode", "slow"), "fast");
    EXPECT_EQ(get("debug.zel.unset", "slow"), "slow");
    EXPECT_EQ(get("debug.zel.unset", nullptr), "");
    setProperty("debug.zel.empty", "");  // an empty value counts as unset
    EXPECT_EQ(get("debug.zel.empty", "dflt"), "dflt");

    // Values and defaults longer than PROPERTY_VALUE_MAX - 1 are cut; the store keeps it all.
    const std::string longValue(200, 'v');
    setProperty("debug.zel.long", longValue);
    EXPECT_EQ(get("debug.zel.long", nullptr), longValue.substr(0, PROPERTY_VALUE_MAX - 1));
    EXPECT_EQ(getProperty("debug.zel.long"), longValue);
    EXPECT_EQ(get("debug.zel.unset", longValue.c_str()),
              longValue.substr(0, PROPERTY_VALUE_MAX - 1));

    // property_set refuses what property_get could not return whole, except for ro. properties.
    EXPECT_EQ(property_set("debug.zel.set", "on"), 0);
    EXPECT_LT(property_set("debug.zel.set", longValue.c_str()), 0);
    EXPECT_EQ(getProperty("debug.zel.set"), "on");
    EXPECT_EQ(property_set("ro.zel.build", longValue.c_str()), 0);
}

TEST(Properties, TypedGettersFollowAndroidConversions) {
    struct Case {
        const char* value;
        int8_t asBool;  // the defaults: -1 for bool, -7 for the integers
        int32_t asInt32;
        int64_t asInt64;
    } cases[] = {{"1", 1, 1, 1},
                 {"true", 1, -7, -7},
                 {"off", 0, -7, -7},
                 {" off", -1, -7, -7},
                 {"0x10", -1, 16, 16},
                 {"-42", -1, -42, -42},
                 {"12abc", -1, 12, 12},
                 {"abc", -1, -7, -7},
                 {"3000000000", -1, -7, 3000000000},
                 {"99999999999999999999", -1, -7, -7}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value);
        setProperty("debug.zel.typed", c.value);
        EXPECT_EQ(property_get_bool("debug.zel.typed", -1), c.asBool);
        EXPECT_EQ(property_get_int32("debug.zel.typed", -7), c.asInt32);
        EXPECT_EQ(property_get_int64("debug.zel.typed", -7), c.asInt64);
    }
}

TEST(Properties, SeededFromEnvironmentFile) {
    const std::string path = writeTempFile(
        "# comment\n\ndebug.zel.a=1\ndebug.zel.b= spaced value \ndebug.zel.c=x=y\n"
        "malformed line\ndebug.zel.a=2\ndebug.zel.last=no newline");
    setenv("ZEL_HOST_PROPERTIES", path.c_str(), 1);
    setProperty("debug.zel.stale", "1");
    zel::host::reloadPropertiesFromEnvironment();
    unlink(path.c_str());
    EXPECT_EQ(getProperty("debug.zel.a"), "2");
    EXPECT_EQ(getProperty("debug.zel.b"), " spaced value ");
    EXPECT_EQ(getProperty("debug.zel.c"), "x=y");
    EXPECT_EQ(getProperty("debug.zel.last"), "no newline");
    EXPECT_EQ(getProperty("# comment"), std::nullopt);
    EXPECT_EQ(getProperty("debug.zel.stale"), std::nullopt);

    // A missing file is reported and leaves the store empty.
    setenv("ZEL_HOST_PROPERTIES", "/nonexistent/zel.properties", 1);
    testing::internal::CaptureStderr();
    zel::host::reloadPropertiesFromEnvironment();
    EXPECT_NE(testing::internal::GetCapturedStderr().find("/nonexistent/zel.properties"),
              std::string::npos);
    EXPECT_EQ(getProperty("debug.zel.a"), std::nullopt);
    unsetenv("ZEL_HOST_PROPERTIES");
}

TEST(Properties, FirstUseSeedsFromEnvironment) {
    // A fresh process: the first property_get reads the file. The child process runs this test
    // again from the top and finds the parent's file in its environment.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    if (getenv("ZEL_TEST_SEED_FILE") == nullptr) {
        setenv("ZEL_TEST_SEED_FILE", writeTempFile("debug.zel.seeded=42\n").c_str(), 1);
    }
    const std::string path = getenv("ZEL_TEST_SEED_FILE");
    setenv("ZEL_HOST_PROPERTIES", path.c_str(), 1);
    EXPECT_EXIT(exit(property_get_int32("debug.zel.seeded", 0)), testing::ExitedWithCode(42), "");
    unlink(path.c_str());
    unsetenv("ZEL_HOST_PROPERTIES");
    unsetenv("ZEL_TEST_SEED_FILE");
}

}  // namespace
