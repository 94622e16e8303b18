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

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

// <cutils/trace.h> declares these only inside its inline functions.
extern "C" void atrace_begin_body(const char* name);
extern "C" void atrace_end_body();
extern "C" void atrace_int_body(const char* name, int32_t value);

namespace {

using zel::host::TraceEvent;
using zel::host::TracePhase;

// Just enough JSON to read a trace back (no true, false or null: a trace has none).
struct Json {
    enum class Type { Number, String, Array, Object } type = Type::Number;
    double number = 0;
    std::string text;
    std::vector<std::string> keys;  // objects: keys[i] names items[i]
    std::vector<Json> items;

    const Json* find(const std::string& key) const {
        for (size_t i = 0; i < keys.size(); ++i) {
            if (keys[i] == key) {
                return &items[i];
            }
        }
        return nullptr;
    }
};

class JsonReader {
public:
    explicit JsonReader(const std::string& text) : mText(text) {}

    bool read(Json& out) {
        bool ok = value(out);
        skipSpace();
        return ok && mPos == mText.size();
    }

private:
    void skipSpace() {
        while (mPos < mText.size() && std::isspace(static_cast<unsigned char>(mText[mPos]))) {
            ++mPos;
        }
    }
    bool take(char c) {
        skipSpace();
        if (mPos < mText.size() && mText[mPos] == c) {
            ++mPos;
            return true;
        }
        return false;
    }
    bool string(std::string& out) {
        if (!take('"')) {
            return false;
        }
        while (mPos < mText.size() && mText[mPos] != '"') {
            char c = mText[mPos++];
            if (static_cast<unsigned char>(c) < 0x20) {
                return false;
            }
            if (c != '\\') {
                out += c;
                continue;
            }
            char e = mPos < mText.size() ? mText[mPos++] : '\0';
            const std::string simple = "\"\\/bfnrt";
            const std::string decoded = "\"\\/\b\f\n\r\t";
            if (simple.find(e) != std::string::npos) {
                out += decoded[simple.find(e)];
            } else if (e == 'u' && mPos + 4 <= mText.size()) {
                out += static_cast<char>(std::stoi(mText.substr(mPos, 4), nullptr, 16));
                mPos += 4;
            } else {
                return false;
            }
        }
        return take('"');
    }
    bool value(Json& out) {
        skipSpace();
        if (mPos >= mText.size()) {
            return false;
        }
        char c = mText[mPos];
        if (c == '{' || c == '[') {
            bool object = c == '{';
            out.type = object ? Json::Type::Object : Json::Type::Array;
            ++mPos;
            if (take(object ? '}' : ']')) {
                return true;
            }
            do {
                if (object) {
                    out.keys.emplace_back();
                    if (!string(out.keys.back()) || !take(':')) {
                        return false;
                    }
                }
                out.items.emplace_back();
                if (!value(out.items.back())) {
                    return false;
                }
            } while (take(','));
            return take(object ? '}' : ']');
        }
        if (c == '"') {
            out.type = Json::Type::String;
            return string(out.text);
        }
        char* end = nullptr;
        out.number = std::strtod(mText.c_str() + mPos, &end);
        if (end == mText.c_str() + mPos) {
            return false;
        }
        mPos = static_cast<size_t>(end - mText.c_str());
        return true;
    }

    const std::string& mText;
    size_t mPos = 0;
};

class Trace : public testing::Test {
protected:
    void SetUp() override { zel::host::clearTraceEvents(); }
};

TEST_F(Trace, OursWinOverLibcutilsThroughTheHeaderInlinePath) {
    EXPECT_EQ(atrace_get_enabled_tags(), uint64_t{ATRACE_TAG_ALWAYS});

    // The symbol the process binds is libzel_host's.
    Dl_info info{};
    ASSERT_NE(dladdr(dlsym(RTLD_DEFAULT, "atrace_begin_body"), &info), 0);
    EXPECT_NE(std::string(info.dli_fname).find("libzel_host"), std::string::npos) << info.dli_fname;

    if (atrace_get_enabled_tags() & 1) {
        atrace_begin_body("x");
    }
    if (atrace_get_enabled_tags() & 1) {
        atrace_end_body();
    }
    {
        ATRACE_NAME("scoped");  // libutils' ScopedTrace: the atrace_begin / atrace_end inlines
        ATRACE_INT("frames", 3);
    }
    // Tags that are off are not recorded.
    atrace_begin(ATRACE_TAG_VIDEO, "video");
    atrace_end(ATRACE_TAG_VIDEO);

    std::vector<TraceEvent> events = zel::host::traceEvents();
    ASSERT_EQ(events.size(), 5u);
    EXPECT_EQ(events[0].phase, TracePhase::Begin);
    EXPECT_EQ(events[0].name, "x");
    EXPECT_EQ(events[0].pid, getpid());
    EXPECT_EQ(events[0].tid, gettid());
    EXPECT_EQ(events[1].phase, TracePhase::End);
    EXPECT_EQ(events[1].name, "x");
    EXPECT_LE(events[0].timestampNs, events[1].timestampNs);
    EXPECT_EQ(events[2].name, "scoped");
    EXPECT_EQ(events[3].phase, TracePhase::Counter);
    EXPECT_EQ(events[3].value, 3);
    EXPECT_EQ(events[4].phase, TracePhase::End);
    EXPECT_EQ(events[4].name, "scoped");
    EXPECT_EQ(zel::host::droppedTraceEvents(), 0u);
}

TEST_F(Trace, EnabledTagsFollowControlAndProperty) {
    zel::host::setEnabledTags(ATRACE_TAG_ALWAYS | ATRACE_TAG_VIDEO);
    atrace_begin(ATRACE_TAG_VIDEO, "video");
    atrace_end(ATRACE_TAG_VIDEO);
    atrace_async_begin(ATRACE_TAG_VIDEO, "frame", 7);
    atrace_async_end(ATRACE_TAG_VIDEO, "frame", 7);
    atrace_int64(ATRACE_TAG_VIDEO, "bytes", int64_t{1} << 40);
    std::vector<TraceEvent> events = zel::host::traceEvents();
    ASSERT_EQ(events.size(), 5u);
    EXPECT_EQ(events[2].phase, TracePhase::AsyncBegin);
    EXPECT_EQ(events[2].value, 7);
    EXPECT_EQ(events[3].phase, TracePhase::AsyncEnd);
    EXPECT_EQ(events[4].value, int64_t{1} << 40);

    zel::host::setEnabledTags(0);
    ATRACE_BEGIN("off");
    ATRACE_END();
    EXPECT_EQ(zel::host::traceEvents().size(), 5u);

    // As on a phone, the property adds tags and the always-on tag stays.
    property_set("debug.atrace.tags.enableflags", "0x200");
    atrace_update_tags();
    EXPECT_EQ(zel::host::enabledTags(), uint64_t{ATRACE_TAG_ALWAYS | ATRACE_TAG_VIDEO});
    atrace_set_tracing_enabled(false);
    EXPECT_EQ(zel::host::enabledTags(), 0u);
}

TEST_F(Trace, ChromeJsonPairsSectionsPerThread) {
    zel::host::setEnabledTags(ATRACE_TAG_ALWAYS);
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

    Json root;
    std::string text = zel::host::chromeTraceJson();
    ASSERT_TRUE(JsonReader(text).read(root)) << text.substr(0, 2000);
    const Json* list = root.find("traceEvents");
    ASSERT_TRUE(list != nullptr && list->type == Json::Type::Array);
    ASSERT_EQ(list->items.size(), 3u * 50 * 5);

    std::map<int, std::vector<std::string>> open;
    std::map<int, double> lastTs;
    int counters = 0;
    for (const Json& event : list->items) {
        const Json* phase = event.find("ph");
        const Json* name = event.find("name");
        const Json* ts = event.find("ts");
        const Json* tid = event.find("tid");
        const Json* pid = event.find("pid");
        ASSERT_TRUE(phase && name && ts && tid && pid);
        EXPECT_EQ(pid->number, getpid());
        int thread = static_cast<int>(tid->number);
        EXPECT_GE(ts->number, lastTs[thread]);
        lastTs[thread] = ts->number;
        if (phase->text == "B") {
            open[thread].push_back(name->text);
        } else if (phase->text == "E") {
            ASSERT_FALSE(open[thread].empty());
            EXPECT_EQ(open[thread].back(), name->text);
            open[thread].pop_back();
        } else {
            ASSERT_EQ(phase->text, "C");
            EXPECT_EQ(name->text, "depth");
            ASSERT_NE(event.find("args"), nullptr);
            ASSERT_NE(event.find("args")->find("value"), nullptr);
            ++counters;
        }
        if (phase->text != "C") {
            EXPECT_TRUE(name->text == odd || name->text.rfind("outer ", 0) == 0) << name->text;
        }
    }
    EXPECT_EQ(counters, 150);
    EXPECT_EQ(open.size(), 3u);
    for (const auto& [thread, stack] : open) {
        EXPECT_TRUE(stack.empty()) << thread;
    }

    // The file holds the same document.
    std::string path = "/tmp/zel_trace_" + std::to_string(getpid()) + ".json";
    ASSERT_TRUE(zel::host::writeChromeTrace(path));
    std::stringstream file;
    file << std::ifstream(path).rdbuf();
    EXPECT_EQ(file.str(), text);
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
    std::string path = getenv("ZEL_TEST_EXIT_TRACE");
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
    std::stringstream file;
    file << std::ifstream(path).rdbuf();
    Json root;
    ASSERT_TRUE(JsonReader(file.str()).read(root)) << file.str();
    ASSERT_EQ(root.find("traceEvents")->items.size(), 2u);
    EXPECT_EQ(root.find("traceEvents")->items[0].find("name")->text, "at exit");
    unlink(path.c_str());
}

TEST_F(Trace, RecorderIsBoundedAndCountsDrops) {
    const size_t cap = zel::host::maxTraceEvents();
    for (size_t i = 0; i < cap + 10; ++i) {
        atrace_int_body("n", static_cast<int32_t>(i));
    }
    EXPECT_EQ(zel::host::traceEvents().size(), cap);
    EXPECT_EQ(zel::host::droppedTraceEvents(), 10u);
    zel::host::clearTraceEvents();
    EXPECT_TRUE(zel::host::traceEvents().empty());
    EXPECT_EQ(zel::host::droppedTraceEvents(), 0u);
}

}  // namespace
