// The host's atrace: ours must win over Debian's no-op libcutils, and the exported JSON must load.

#define ATRACE_TAG ATRACE_TAG_ALWAYS
#include <cutils/trace.h>
#include <utils/Trace.h>
#include <zel/host/Trace.h>

#include <cutils/properties.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

// <cutils/trace.h> declares this only inside its inline functions.
extern "C" void atrace_int_body(const char* name, int32_t value);

namespace {

using zel::host::TraceEvent;
using zel::host::TracePhase;

size_t countOf(const std::string& text, const std::string& what) {
    size_t count = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
        ++count;
    }
    return count;
}

std::string readFile(const std::string& path) {
    std::stringstream file;
    file << std::ifstream(path).rdbuf();
    return file.str();
}

// The recorded events as "B:name C:name=value ...", checked to come from this thread in order.
std::string recorded() {
    std::string out;
    int64_t last = 0;
    for (const TraceEvent& event : zel::host::traceEvents()) {
        EXPECT_EQ(event.pid, getpid());
        EXPECT_EQ(event.tid, gettid());
        EXPECT_GE(event.timestampNs, last);
        last = event.timestampNs;
        const bool section = event.phase == TracePhase::Begin || event.phase == TracePhase::End;
        out += (out.empty() ? "" : " ") + std::string(1, static_cast<char>(event.phase)) + ":" +
               event.name + (section ? "" : "=" + std::to_string(event.value));
    }
    return out;
}

class Trace : public testing::Test {
protected:
    void SetUp() override { zel::host::clearTraceEvents(); }
};

TEST_F(Trace, OursWinOverLibcutilsAndFollowTheEnabledTags) {
    // Debian's libcutils has a no-op atrace and no property_get: the process must bind ours.
    for (const char* symbol : {"atrace_begin_body", "atrace_get_enabled_tags", "property_get"}) {
        Dl_info info{};
        ASSERT_NE(dladdr(dlsym(RTLD_DEFAULT, symbol), &info), 0) << symbol;
        EXPECT_NE(std::string(info.dli_fname).find("libzel_host"), std::string::npos)
            << symbol << " comes from " << info.dli_fname;
    }
    EXPECT_EQ(atrace_get_enabled_tags(), uint64_t{ATRACE_TAG_ALWAYS});
    {
        ATRACE_NAME("scoped");  // libutils' ScopedTrace: the atrace_begin / atrace_end inlines
        ATRACE_INT("frames", 3);
    }
    atrace_begin(ATRACE_TAG_VIDEO, "video");  // a tag that is off: not recorded
    atrace_end(ATRACE_TAG_VIDEO);
    EXPECT_EQ(recorded(), "B:scoped C:frames=3 E:scoped");

    zel::host::clearTraceEvents();
    zel::host::setEnabledTags(ATRACE_TAG_ALWAYS | ATRACE_TAG_VIDEO);
    atrace_async_begin(ATRACE_TAG_VIDEO, "frame", 7);
    atrace_async_end(ATRACE_TAG_VIDEO, "frame", 7);
    atrace_int64(ATRACE_TAG_VIDEO, "bytes", int64_t{1} << 40);
    zel::host::setEnabledTags(0);
    ATRACE_BEGIN("off");
    ATRACE_END();
    EXPECT_EQ(recorded(), "b:frame=7 e:frame=7 C:bytes=1099511627776");

    // As on a phone, the property adds tags and the always-on tag stays.
    property_set("debug.atrace.tags.enableflags", "0x200");
    atrace_update_tags();
    EXPECT_EQ(zel::host::enabledTags(), uint64_t{ATRACE_TAG_ALWAYS | ATRACE_TAG_VIDEO});
}

TEST_F(Trace, ChromeJsonPairsSectionsPerThreadAndEscapesNames) {
    const std::string odd = "say \"hi\"\\\n\t\x01";
    auto work = [&](int id) {
        for (int i = 0; i < 50; ++i) {
            ATRACE_BEGIN(("outer " + std::to_string(id)).c_str());
            ATRACE_BEGIN(odd.c_str());
            ATRACE_INT("depth", i);
            ATRACE_END();
            ATRACE_END();
        }
    };
    std::vector<std::thread> threads;
    for (int id = 0; id < 3; ++id) {
        threads.emplace_back(work, id);
    }
    for (auto& thread : threads) {
        thread.join();
    }

    // Per thread, sections close no more often than they opened and in the end all of them;
    // counters carry their value. Sections are named on both ends, escaped as JSON.
    const std::string text = zel::host::chromeTraceJson();
    const std::regex eventPattern(R"re("ph":"(.)"[^}]*"pid":(\d+),"tid":(\d+))re");
    std::map<int, std::map<char, int>> phases;  // per thread
    for (std::sregex_iterator it(text.begin(), text.end(), eventPattern), end; it != end; ++it) {
        EXPECT_EQ(std::stoi((*it)[2]), getpid());
        std::map<char, int>& seen = phases[std::stoi((*it)[3])];
        seen[(*it)[1].str()[0]]++;
        EXPECT_GE(seen['B'], seen['E']);
    }
    ASSERT_EQ(phases.size(), 3u);
    for (const auto& [tid, seen] : phases) {
        EXPECT_EQ(seen, (std::map<char, int>{{'B', 100}, {'C', 50}, {'E', 100}})) << tid;
    }
    EXPECT_EQ(countOf(text, R"("args":{"value":)"), 3u * 50);
    EXPECT_EQ(countOf(text, R"("name":"say \"hi\"\\\n\t\u0001")"), 3u * 50 * 2);

    // The file holds the same document.
    const std::string path = "/tmp/zel_trace_" + std::to_string(getpid()) + ".json";
    ASSERT_TRUE(zel::host::writeChromeTrace(path));
    EXPECT_EQ(readFile(path), text);
    unlink(path.c_str());
    EXPECT_FALSE(zel::host::writeChromeTrace("/nonexistent/dir/trace.json"));
}

TEST_F(Trace, TraceFileWrittenAtExitWithEveryTag) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // The child process runs this test again from the top: it finds the path in its environment.
    if (getenv("ZEL_TEST_EXIT_TRACE") == nullptr) {
        std::string name = "/tmp/zel_exit_trace_" + std::to_string(getpid()) + ".json";
        setenv("ZEL_TEST_EXIT_TRACE", name.c_str(), 1);
    }
    const std::string path = getenv("ZEL_TEST_EXIT_TRACE");
    unlink(path.c_str());
    setenv("ZEL_HOST_TRACE_FILE", path.c_str(), 1);
    EXPECT_EXIT(
        {
            atrace_begin(ATRACE_TAG_VIDEO, "at exit");
            atrace_end(ATRACE_TAG_VIDEO);
            exit(0);
        },
        testing::ExitedWithCode(0), "");
    unsetenv("ZEL_HOST_TRACE_FILE");
    const std::string text = readFile(path);
    EXPECT_EQ(countOf(text, R"("name":"at exit")"), 2u) << text;
    EXPECT_EQ(countOf(text, R"("ph":)"), 2u) << text;
    unlink(path.c_str());
}

}  // namespace
