// The readings behind the processor and memory load, and the sums made of them.
#include "platform/monitoring.h"

#include <cjson/cJSON.h>
#include <sched.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "platform/handlers.h"
#include "support.h"

extern "C" int __wrap_usleep(useconds_t microseconds);

namespace {

std::vector<useconds_t> g_pauses;
std::function<void()> g_meanwhile;  // what happens during a pause

constexpr char kStat[] = "/proc/stat";
constexpr char kMeminfo[] = "/proc/meminfo";

// A namespace whose /proc holds what a test puts there.
void with_proc(const std::function<void()>& body) {
    run_in_namespace(CLONE_NEWNS, [&body] {
        mount_tmpfs("/proc");
        body();
    });
}

}  // namespace

extern "C" int __wrap_usleep(useconds_t microseconds) {
    g_pauses.push_back(microseconds);
    if (g_meanwhile) g_meanwhile();
    return 0;
}

// ---- The processor

namespace {

bool operator==(const CpuSample& one, const CpuSample& other) {
    return memcmp(&one, &other, sizeof one) == 0;
}

constexpr CpuSample kUntouched = {91, 92, 93, 94, 95, 96, 97, 98};

}  // namespace

TEST(GetCpuOccupy, ReadsEightCountersOfTheFirstLine) {
    struct Case {
        const char* why;
        const char* file;
        CpuSample sample;
    };
    constexpr Case kCases[] = {
        {"in this order", "cpu  1 2 3 4 5 6 7 8 9 10\n", {1, 2, 3, 4, 5, 6, 7, 8}},
        {"modulo 2^32",
         "cpu 4294967295 4294967296 4294967297 18446744069414584321 5 6 7 8\n",
         {4294967295U, 0, 1, 4294967295U, 5, 6, 7, 8}},
        {"what is missing stays", "cpu 1 2 3 4\ncpu0 5 6 7 8\n", {1, 2, 3, 4, 95, 96, 97, 98}},
        {"another line first", "cpux 1 2 3 4 5 6 7 8\n", kUntouched},
        {"an empty file", "", kUntouched},
    };
    with_proc([&kCases] {
        for (const Case& c : kCases) {
            SCOPED_TRACE(c.why);
            write_file(kStat, c.file);
            CpuSample sample = kUntouched;
            EXPECT_EQ(get_cpuoccupy(&sample), 1);
            EXPECT_TRUE(sample == c.sample);
        }
        unlink(kStat);
        CpuSample sample = kUntouched;
        EXPECT_EQ(get_cpuoccupy(&sample), -1);
        EXPECT_TRUE(sample == kUntouched);
    });
}

TEST(CalCpuOccupy, HalvesTheBusyShareBetweenItsBounds) {
    struct Case {
        const char* why;
        CpuSample second;
        float load;
    };
    constexpr CpuSample kFirst = {1000, 10, 20, 500, 30, 5, 6, 7};
    constexpr Case kCases[] = {
        {"nothing passed", kFirst, 2.0F},
        {"one jiffy, busy", {1001, 10, 20, 500, 30, 5, 6, 7}, 50.0F},
        {"one jiffy, idle", {1000, 10, 20, 501, 30, 5, 6, 7}, 2.0F},
        {"60 of 100: not 30", {1060, 10, 20, 540, 30, 5, 6, 7}, 30.000002F},
        {"half of it waiting for disks", {1020, 10, 20, 540, 70, 5, 6, 7}, 10.0F},
        {"interrupts and stolen time are busy", {1000, 10, 20, 550, 30, 25, 26, 17}, 25.0F},
        {"exactly the lower bound", {1004, 10, 20, 596, 30, 5, 6, 7}, 2.0F},
        {"above it", {1005, 10, 20, 595, 30, 5, 6, 7}, 2.5F},
        {"exactly the upper bound", {1100, 10, 20, 500, 30, 5, 6, 7}, 50.0F},
        {"beyond it", {1100, 10, 20, 450, 30, 5, 6, 7}, 50.0F},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(cal_cpuoccupy(&kFirst, &c.second), c.load);
    }
}

TEST(PrintCpu, NeedsBothReadings) {
    const std::string idle = "cpu 0 0 0 0 0 0 0 0\n";
    const std::string busy = "cpu 60 0 0 40 0 0 0 0\n";
    struct Case {
        const char* why;
        std::string first, second;  // empty: cannot be read
        float load;
    };
    const Case kCases[] = {
        {"both", idle, busy, 30.000002F},
        {"the first only", busy, "", 2.0F},
        {"the second only", "", busy, 2.0F},
        {"none", "", "", 2.0F},
    };
    with_proc([&kCases] {
        const auto show = [](const std::string& text) {
            unlink(kStat);
            if (!text.empty()) write_file(kStat, text);
        };
        for (const Case& c : kCases) {
            SCOPED_TRACE(c.why);
            show(c.first);
            g_meanwhile = [&] { show(c.second); };
            g_pauses.clear();
            EXPECT_EQ(print_cpu(), c.load);
            EXPECT_EQ(g_pauses, std::vector<useconds_t>{300000});
        }
    });
}

// ---- The memory

TEST(GetMemOccupy, ReadsTheFirstTwoLines) {
    struct Case {
        const char* why;
        const char* file;
        const char* names[2];
        std::uint32_t values[2];
    };
    constexpr Case kCases[] = {
        {"names and values",
         "MemTotal:  100 kB\nMemFree: 20 kB\nBuffers: 3 kB\n",
         {"MemTotal:", "MemFree:"},
         {100, 20}},
        {"whatever their names", "a 1\nb 2", {"a", "b"}, {1, 2}},
        {"a name is cut", "a234567890123456789012 5\nb 2\n", {"a234567890123456789", "b"}, {5, 2}},
        {"modulo 2^32", "a 4294967297\nb 8589934594\n", {"a", "b"}, {1, 2}},
        {"no number", "a x\nb\n", {"a", "b"}, {0, 0}},
        {"one line", "a 1\n", {"a", ""}, {1, 0}},
        {"an empty file", "", {"", ""}, {0, 0}},
    };
    with_proc([&kCases] {
        for (const Case& c : kCases) {
            SCOPED_TRACE(c.why);
            write_file(kMeminfo, c.file);
            MemSample sample = {};
            EXPECT_EQ(get_memoccupy(&sample), 1);
            EXPECT_STREQ(sample.total.name, c.names[0]);
            EXPECT_STREQ(sample.free.name, c.names[1]);
            EXPECT_EQ(sample.total.value, c.values[0]);
            EXPECT_EQ(sample.free.value, c.values[1]);
        }
        unlink(kMeminfo);
        MemSample sample = {{"before", 1}, {"before", 2}};
        const MemSample zeros = {};
        EXPECT_EQ(get_memoccupy(&sample), -1);
        EXPECT_EQ(memcmp(&sample, &zeros, sizeof sample), 0) << "names and values";
    });
}

// ---- Both

TEST(CpuMemLoad, TheMemoryIsReadBehindThePause) {
    with_proc([] {
        write_file(kMeminfo, "MemTotal: 100000 kB\nMemFree: 0 kB\n");
        g_meanwhile = [] { write_file(kMeminfo, "MemTotal: 100000 kB\nMemFree: 20000 kB\n"); };
        char* line = cJSON_PrintUnformatted(cpectl_CpuMemLoad_get(0, nullptr));
        EXPECT_STREQ(line,
                     "{\"fun\":\"getCpuMemLoad\",\"stat\":\"ok\","
                     "\"cbk\":{\"cpu_load\":2,\"mem_load\":68}}");
    });
}

TEST(CpuMemLoad, SaysThatItHasNoMemory) {
    run_apart([] {
        cJSON_Hooks none = {[](std::size_t) -> void* { return nullptr; }, free};
        cJSON_InitHooks(&none);
        const cJSON* answer = nullptr;
        const std::string printed =
            printed_by([&answer] { answer = cpectl_CpuMemLoad_get(0, nullptr); });
        EXPECT_EQ(answer, nullptr);
        EXPECT_EQ(printed, "Error before: [(null)]\n") << "on standard output, not in the log";
        EXPECT_TRUE(g_pauses.empty()) << "nothing is measured";
    });
}
