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

std::string get(const char* key, const char* defaultValue, int* length = nullptr) {
    char value[PROPERTY_VALUE_MAX];
    std::memset(value, 'z', sizeof(value));
    int n = property_get(key, value, defaultValue);
    EXPECT_EQ(static_cast<size_t>(n), std::strlen(value));
    if (length != nullptr) {
        *length = n;
    }
    return value;
}

TEST(Properties, PropertyGetReturnsControlApiValuesWithAndroidDefaults) {
    setProperty("debug.zel.mode", "fast");
    int length = -1;
    EXPECT_EQ(get("debug.zel.mode", "slow", &length), "fast");
    EXPECT_EQ(length, 4);

    EXPECT_EQ(get("debug.zel.unset", "slow", &length), "slow");
    EXPECT_EQ(length, 4);
    EXPECT_EQ(get("debug.zel.unset", nullptr, &length), "");
    EXPECT_EQ(length, 0);

    // An empty value counts as unset.
    setProperty("debug.zel.empty", "");
    EXPECT_EQ(get("debug.zel.empty", "dflt"), "dflt");
    EXPECT_EQ(getProperty("debug.zel.empty"), "");

    zel::host::clearProperty("debug.zel.mode");
    EXPECT_EQ(getProperty("debug.zel.mode"), std::nullopt);
    setProperty("a", "1");
    zel::host::clearProperties();
    EXPECT_EQ(getProperty("a"), std::nullopt);
}

TEST(Properties, LongValuesAndDefaultsAreTruncated) {
    const std::string longValue(200, 'v');
    setProperty("debug.zel.long", longValue);
    int length = 0;
    EXPECT_EQ(get("debug.zel.long", nullptr, &length), longValue.substr(0, PROPERTY_VALUE_MAX - 1));
    EXPECT_EQ(length, PROPERTY_VALUE_MAX - 1);
    EXPECT_EQ(getProperty("debug.zel.long"), longValue);

    const std::string longDefault(150, 'd');
    EXPECT_EQ(get("debug.zel.unset", longDefault.c_str(), &length),
              longDefault.substr(0, PROPERTY_VALUE_MAX - 1));
    EXPECT_EQ(length, PROPERTY_VALUE_MAX - 1);
}

TEST(Properties, TypedGettersFollowAndroidConversions) {
    struct Case {
        const char* value;
        int8_t asBool;    // with default -1
        int32_t asInt32;  // with default -7
        int64_t asInt64;  // with default -7
    } cases[] = {
        {"1", 1, 1, 1},
        {"true", 1, -7, -7},
        {"yes", 1, -7, -7},
        {"on", 1, -7, -7},
        {"y", 1, -7, -7},
        {"0", 0, 0, 0},
        {"off", 0, -7, -7},
        {"no", 0, -7, -7},
        {" off", -1, -7, -7},
        {"0x10", -1, 16, 16},
        {"010", -1, 8, 8},
        {"-42", -1, -42, -42},
        {"12abc", -1, 12, 12},
        {"abc", -1, -7, -7},
        {"3000000000", -1, -7, 3000000000},
        {"99999999999999999999", -1, -7, -7},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value);
        setProperty("debug.zel.typed", c.value);
        EXPECT_EQ(property_get_bool("debug.zel.typed", -1), c.asBool);
        EXPECT_EQ(property_get_int32("debug.zel.typed", -7), c.asInt32);
        EXPECT_EQ(property_get_int64("debug.zel.typed", -7), c.asInt64);
    }
    EXPECT_EQ(property_get_bool("debug.zel.unset", 1), 1);
    EXPECT_EQ(property_get_int32(nullptr, 5), 5);
}

TEST(Properties, PropertySetAndListFollowAndroidLimits) {
    zel::host::clearProperties();
    EXPECT_EQ(property_set("debug.zel.set", "on"), 0);
    EXPECT_EQ(getProperty("debug.zel.set"), "on");

    const std::string tooLong(PROPERTY_VALUE_MAX, 'x');
    EXPECT_LT(property_set("debug.zel.set", tooLong.c_str()), 0);
    EXPECT_EQ(getProperty("debug.zel.set"), "on");
    EXPECT_EQ(property_set("ro.zel.build", tooLong.c_str()), 0);
    EXPECT_LT(property_set("", "x"), 0);

    std::vector<std::string> listed;
    property_list(
        [](const char* key, const char* value, void* cookie) {
            static_cast<std::vector<std::string>*>(cookie)->push_back(std::string(key) + "=" +
                                                                      value);
        },
        &listed);
    EXPECT_EQ(listed, (std::vector<std::string>{"debug.zel.set=on", "ro.zel.build=" + tooLong}));
}

TEST(Properties, SeededFromEnvironmentFile) {
    std::string path = writeTempFile(
        "# comment\n"
        "\n"
        "debug.zel.a=1\n"
        "debug.zel.b= spaced value \n"
        "debug.zel.c=x=y\n"
        "malformed line\n"
        "debug.zel.a=2\n"
        "debug.zel.last=no newline");
    setenv("ZEL_HOST_PROPERTIES", path.c_str(), 1);
    setProperty("debug.zel.stale", "1");
    zel::host::reloadPropertiesFromEnvironment();

    EXPECT_EQ(getProperty("debug.zel.a"), "2");
    EXPECT_EQ(getProperty("debug.zel.b"), " spaced value ");
    EXPECT_EQ(getProperty("debug.zel.c"), "x=y");
    EXPECT_EQ(getProperty("debug.zel.last"), "no newline");
    EXPECT_EQ(getProperty("# comment"), std::nullopt);
    EXPECT_EQ(getProperty("debug.zel.stale"), std::nullopt);
    unlink(path.c_str());

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
    std::string path = getenv("ZEL_TEST_SEED_FILE");
    setenv("ZEL_HOST_PROPERTIES", path.c_str(), 1);
    EXPECT_EXIT(exit(property_get_int32("debug.zel.seeded", 0)), testing::ExitedWithCode(42), "");
    unlink(path.c_str());
    unsetenv("ZEL_HOST_PROPERTIES");
    unsetenv("ZEL_TEST_SEED_FILE");
}

TEST(Properties, ConcurrentWritersAndReaders) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            std::string key = "debug.zel.thread" + std::to_string(t);
            for (int i = 0; i < 2000; ++i) {
                setProperty(key, std::to_string(i));
                ASSERT_EQ(property_get_int32(key.c_str(), -1), i);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(getProperty("debug.zel.thread3"), "1999");
}

}  // namespace
