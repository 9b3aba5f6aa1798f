// The logger: who may write, what a record looks like, where it is cut, and how the file stays
// small.
#include "log/log.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "support.h"

// time() has another name where it is not the machine's own time_t that it gives.
#if defined(__USE_TIME_BITS64) && __SIZEOF_LONG__ == 4
#define TIME_NAME "__time64"
#else
#define TIME_NAME "time"
#endif
extern "C" time_t __real_time(time_t* now) __asm__("__real_" TIME_NAME);
extern "C" time_t __wrap_time(time_t* now) __asm__("__wrap_" TIME_NAME);

namespace {

time_t g_faked_time = 0;  // what time(2) says while it is not 0

constexpr std::size_t kStampSize = 24;     // "Mon Nov 16 07:44:18 2026"
constexpr std::size_t kPrefixSize = 26;    // with "::"
constexpr std::size_t kRecordLimit = 255;  // characters of a record

// Log state belongs to the process: each test gets a process of its own.
class Log : public testing::Test {
protected:
    static void with_open_log(const std::function<void(const std::string& path)>& body) {
        run_apart([&body] {
            const std::string path = absent_file();
            ASSERT_EQ(cpectl_log_init(path.c_str()), 0);
            body(path);
        });
    }
};

__attribute__((format(printf, 1, 2))) void write_unconditionally(const char* format, ...) {
    va_list args;
    va_start(args, format);
    __cpectl_log(format, args);
    va_end(args);
}

// A format that the compiler cannot look at: null, or cut conversions.
void log_unchecked(std::int32_t level, const char* format) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    cpectl_log(level, format);
#pragma GCC diagnostic pop
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t end = text.find('\n', start);
        lines.push_back(text.substr(start, end == std::string::npos ? end : end - start));
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return lines;
}

// A record without its time, whatever that was.
std::string message_of(const std::string& record) {
    if (record.size() < kPrefixSize || record.compare(kStampSize, 2, "::") != 0) {
        return "(no record: " + record + ")";
    }
    return record.substr(kPrefixSize);
}

std::vector<std::string> messages_in(const std::string& path) {
    std::vector<std::string> messages;
    for (const std::string& line : lines_of(file_text(path)))
        messages.push_back(message_of(line));
    return messages;
}

using Messages = std::vector<std::string>;

}  // namespace

extern "C" time_t __wrap_time(time_t* now) {
    if (g_faked_time == 0) return __real_time(now);
    if (now) *now = g_faked_time;
    return g_faked_time;
}

TEST_F(Log, StartsWithTheseSettings) {
    EXPECT_EQ(cpectl_log_enable, 1);
    EXPECT_EQ(cpectl_runtimedebug_level, 1);
    EXPECT_EQ(cpectl_log_size, 102400u);
    EXPECT_EQ(cpectl_log_stdout, 0);
    EXPECT_EQ(cpectl_logfile_path, nullptr);
}

TEST_F(Log, IsSilentUntilOpened) {
    run_in_namespace(CLONE_NEWNS, [] {
        mount_private_tmp();
        cpectl_log_stdout = 1;
        const std::string printed = printed_by([] {
            for (const int level : {INT_MIN, 0, 1, 2, 3, 4, INT_MAX})
                cpectl_log(level, "level %d", level);
            write_unconditionally("at once");
        });
        EXPECT_EQ(printed, "");
        EXPECT_FALSE(file_exists("/tmp/cpectl.log"));
    });
}

TEST_F(Log, OpensTheNamedFileAndKeepsItsName) {
    run_apart([] {
        const std::string path = absent_file();
        EXPECT_EQ(cpectl_log_init(path.c_str()), 0);
        EXPECT_EQ(cpectl_logfile_path, path.c_str());
        EXPECT_EQ(file_text(path), "");
    });
}

TEST_F(Log, EmptiesTheFileWhenOpened) {
    run_apart([] {
        const std::string path = temp_file("what the last process wrote\n");
        EXPECT_EQ(cpectl_log_init(path.c_str()), 0);
        EXPECT_EQ(file_text(path), "");
    });
}

TEST_F(Log, NullOpensTheDefaultFile) {
    run_in_namespace(CLONE_NEWNS, [] {
        mount_private_tmp();
        cpectl_log_stdout = 1;
        int result = 1;
        const std::string printed = printed_by([&result] { result = cpectl_log_init(nullptr); });
        EXPECT_EQ(result, 0);
        ASSERT_NE(cpectl_logfile_path, nullptr);
        EXPECT_STREQ(cpectl_logfile_path, "/tmp/cpectl.log");
        EXPECT_EQ(printed, "") << "the record about the default file goes nowhere";
        EXPECT_EQ(file_text("/tmp/cpectl.log"), "");
        cpectl_log_stdout = 0;
        cpectl_log(1, "first");
        EXPECT_EQ(messages_in("/tmp/cpectl.log"), Messages{"first"});
        ASSERT_EQ(cpectl_log_init(nullptr), 0);
        EXPECT_EQ(file_text("/tmp/cpectl.log"), "") << "emptied again";
    });
}

TEST_F(Log, SaysInTheOldFileThatTheDefaultIsUsed) {
    run_in_namespace(CLONE_NEWNS, [] {
        mount_private_tmp();
        const std::string old_path = absent_file();
        ASSERT_EQ(cpectl_log_init(old_path.c_str()), 0);
        EXPECT_EQ(cpectl_log_init(nullptr), 0);
        EXPECT_EQ(messages_in(old_path), Messages{"Use default log file"});
        cpectl_runtimedebug_level = 2;
        ASSERT_EQ(cpectl_log_init(old_path.c_str()), 0);
        EXPECT_EQ(cpectl_log_init(nullptr), 0);
        EXPECT_EQ(messages_in(old_path), Messages{}) << "a level-1 record";
    });
}

TEST_F(Log, RefusesASymbolicLinkAtTheDefaultPath) {
    run_in_namespace(CLONE_NEWNS, [] {
        mount_private_tmp();
        const std::string victim = temp_file("precious");
        ASSERT_EQ(symlink(victim.c_str(), "/tmp/cpectl.log"), 0);
        EXPECT_EQ(cpectl_log_init(nullptr), -1);
        cpectl_log(3, "lost");
        EXPECT_EQ(file_text(victim), "precious");
    });
}

TEST_F(Log, AFileThatCannotBeOpenedLeavesTheLogClosed) {
    run_apart([] {
        const std::string path = absent_file() + "/log";
        cpectl_log_stdout = 1;
        int result = 0;
        const std::string printed = printed_by([&] {
            result = cpectl_log_init(path.c_str());
            cpectl_log(3, "lost");
        });
        EXPECT_EQ(result, -1);
        EXPECT_EQ(printed, "");
    });
}

TEST_F(Log, WritesTimeTwoColonsAndMessage) {
    struct Case {
        const char* why;
        time_t now;
        const char* record;
    };
    // The test programs run half past five hours east of Greenwich.
    constexpr Case kCases[] = {
        {"two-digit day", 1794795258, "Mon Nov 16 07:44:18 2026::plain text\n"},
        {"a day of one digit stands behind two blanks", 1793499258,
         "Sun Nov  1 07:44:18 2026::plain text\n"},
        {"the local day, not that of Greenwich", 1767205800,
         "Thu Jan  1 00:00:00 2026::plain text\n"},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        with_open_log([&c](const std::string& path) {
            g_faked_time = c.now;
            cpectl_log(1, "plain %s", "text");
            EXPECT_EQ(file_text(path), c.record);
        });
    }
}

TEST_F(Log, TakesTheTimeOfEachRecord) {
    with_open_log([](const std::string& path) {
        const time_t before = time(nullptr);
        cpectl_log(1, "now");
        const time_t after = time(nullptr);
        const std::string record = file_text(path);
        bool found = false;
        for (time_t t = before; t <= after; ++t)
            found |= record == std::string(ctime(&t)).substr(0, kStampSize) + "::now\n";
        EXPECT_TRUE(found) << record;
        g_faked_time = 1794795258;
        cpectl_log(1, "later");
        EXPECT_EQ(lines_of(file_text(path)).back(), "Mon Nov 16 07:44:18 2026::later");
    });
}

TEST_F(Log, WritesByLevelAndSwitch) {
    struct Case {
        const char* why;
        std::int32_t enable, lowest, level;
        bool written;
    };
    constexpr Case kCases[] = {
        {"level 1 by default", 1, 1, 1, true},
        {"level 3 by default", 1, 1, 3, true},
        {"below the lowest level", 1, 1, 0, false},
        {"negative is below", 1, 1, -1, false},
        {"raised to 2: progress is left out", 1, 2, 1, false},
        {"raised to 2: errors stay", 1, 2, 3, true},
        {"exactly the lowest level", 1, 3, 3, true},
        {"just above every level in use", 1, 4, 3, false},
        {"lowered to 0", 1, 0, 0, true},
        {"lowered below zero", 1, -5, -5, true},
        {"switched off: errors too", 0, 1, 3, false},
        {"switched off: progress", 0, 1, 1, false},
        {"any number but 0 is on", 2, 1, 1, true},
        {"a negative number too", -1, 1, 1, true},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        with_open_log([&c](const std::string& path) {
            cpectl_log_enable = c.enable;
            cpectl_runtimedebug_level = c.lowest;
            cpectl_log(c.level, "x");
            EXPECT_EQ(messages_in(path), c.written ? Messages{"x"} : Messages{});
        });
    }
}

TEST_F(Log, TheWriterItselfAsksNoSwitch) {
    with_open_log([](const std::string& path) {
        cpectl_log_enable = 0;
        cpectl_runtimedebug_level = 9;
        write_unconditionally("%d of %s", 1, "two");
        EXPECT_EQ(messages_in(path), Messages{"1 of two"});
    });
}

TEST_F(Log, ANullFormatWritesNothing) {
    with_open_log([](const std::string& path) {
        cpectl_log_stdout = 1;
        const std::string printed = printed_by([] { log_unchecked(3, nullptr); });
        EXPECT_EQ(file_text(path), "");
        EXPECT_EQ(printed, "");
    });
}

TEST_F(Log, PercentSignsInTheFormatConvert) {
    with_open_log([](const std::string& path) {
        cpectl_log(1, "%d %s %-4s| %5.2f %c %x %lu %%", -7, "text", "ab", 3.14159, 'c', 255u,
                   4000000000ul);
        cpectl_log(1, "%s", "100% of %d %s %n stay");
        cpectl_log(1, "%s", "");
        cpectl_log(1, "two\nlines");
        EXPECT_EQ(messages_in(path).size(), 5u);
        EXPECT_EQ(message_of(lines_of(file_text(path))[0]),
                  "-7 text ab  |  3.14 c ff 4000000000 %");
        EXPECT_EQ(message_of(lines_of(file_text(path))[1]), "100% of %d %s %n stay");
        EXPECT_EQ(message_of(lines_of(file_text(path))[2]), "");
        EXPECT_EQ(lines_of(file_text(path))[4], "lines");
    });
}

struct CutCase {
    const char* why;
    std::size_t message_size;
    std::size_t record_size;
    bool has_newline;
};
constexpr CutCase kCutCases[] = {
    {"one below the limit", 227, 254, true},
    {"exactly the limit", 228, 255, true},
    {"one more: the newline is lost", 229, 255, false},
    {"two more: the text is cut", 230, 255, false},
    {"the size of the buffer", 256, 255, false},
    {"far beyond", 100000, 255, false},
};

TEST_F(Log, CutsALongMessage) {
    for (const CutCase& c : kCutCases) {
        SCOPED_TRACE(c.why);
        with_open_log([&c](const std::string& path) {
            const std::string message = repeat(c.message_size, 'm');
            cpectl_log(1, "%s", message.c_str());
            const std::string record = file_text(path);
            EXPECT_EQ(record.size(), c.record_size);
            EXPECT_EQ(record.back() == '\n', c.has_newline);
            EXPECT_EQ(record.find_first_not_of('m', kPrefixSize),
                      c.has_newline ? record.size() - 1 : std::string::npos);
        });
    }
}

TEST_F(Log, CutsALongFormat) {
    for (const CutCase& c : kCutCases) {
        SCOPED_TRACE(c.why);
        with_open_log([&c](const std::string& path) {
            const std::string format = repeat(c.message_size, 'f');
            log_unchecked(1, format.c_str());
            const std::string record = file_text(path);
            EXPECT_EQ(record.size(), c.record_size);
            EXPECT_EQ(record.back() == '\n', c.has_newline);
            EXPECT_EQ(record.find_first_not_of('f', kPrefixSize),
                      c.has_newline ? record.size() - 1 : std::string::npos);
        });
    }
}

TEST_F(Log, CutsTheFormatBeforeItConverts) {
    with_open_log([](const std::string& path) {
        // 230 characters of format that print as 115: what counts is the format's length.
        std::string format;
        for (int i = 0; i < 115; ++i)
            format += "%%";
        log_unchecked(1, format.c_str());
        const std::string record = file_text(path);
        // 255 - 26 leaves 229 characters: 114 whole conversions and a half one.
        ASSERT_GE(record.size(), kPrefixSize + 114);
        EXPECT_LE(record.size(), kPrefixSize + 115);
        EXPECT_EQ(record.substr(kPrefixSize, 114), repeat(114, '%'));
        EXPECT_EQ(record.find('\n'), std::string::npos);
    });
}

TEST_F(Log, AConversionBeyondTheCutIsNotMade) {
    with_open_log([](const std::string& path) {
        const std::string format = repeat(229, 'f') + "%s";
        log_unchecked(1, format.c_str());  // would read an argument that is not there
        EXPECT_EQ(message_of(file_text(path)), repeat(229, 'f'));
    });
}

TEST_F(Log, ARecordAfterACutOneStandsInTheSameLine) {
    with_open_log([](const std::string& path) {
        cpectl_log(1, "%s", repeat(300, 'm').c_str());
        g_faked_time = 1794795258;
        cpectl_log(1, "next");
        EXPECT_EQ(file_text(path).substr(kRecordLimit), "Mon Nov 16 07:44:18 2026::next\n");
    });
}

TEST_F(Log, MirrorsRecordsWithAnEmptyLine) {
    struct Case {
        const char* why;
        std::int32_t mirror;
        std::size_t message_size;
        std::string after;  // what follows the message on standard output
    };
    const Case kCases[] = {
        {"on: the record's newline and that of puts", 1, 1, "\n\n"},
        {"any number but 0 is on", -1, 1, "\n\n"},
        {"the longest whole record", 1, 228, "\n\n"},
        {"a cut record has lost its own newline", 1, 229, "\n"},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        with_open_log([&c](const std::string& path) {
            g_faked_time = 1794795258;
            cpectl_log_stdout = c.mirror;
            const std::string message = repeat(c.message_size, 'm');
            const std::string printed =
                printed_by([&message] { cpectl_log(1, "%s", message.c_str()); });
            EXPECT_EQ(printed, "Mon Nov 16 07:44:18 2026::" + message + c.after);
            EXPECT_EQ(file_text(path) + "\n", printed)
                << "the file has it too, without the empty line";
        });
    }
}

TEST_F(Log, DoesNotPrintUnlessAskedTo) {
    with_open_log([](const std::string& path) {
        EXPECT_EQ(printed_by([] { cpectl_log(3, "x"); }), "");
        cpectl_log_stdout = 1;
        EXPECT_EQ(printed_by([] { cpectl_log(0, "below the level"); }), "");
        EXPECT_EQ(messages_in(path), Messages{"x"});
    });
}

TEST_F(Log, TheRecordThatFindsTheFileAtTheCapEmptiesIt) {
    // Each record below is "<24 characters>::<5 characters>\n": 32 bytes.
    struct Case {
        const char* why;
        std::uint32_t cap;
        Messages after_three, after_four;
    };
    const Case kCases[] = {
        {"far away", 102400, {"rec 1", "rec 2", "rec 3"}, {"rec 1", "rec 2", "rec 3", "rec 4"}},
        {"one below the cap: written",
         97,
         {"rec 1", "rec 2", "rec 3"},
         {"rec 1", "rec 2", "rec 3", "rec 4"}},
        {"at the cap: emptied first", 96, {"rec 1", "rec 2", "rec 3"}, {"rec 4"}},
        {"over the cap: emptied first", 95, {"rec 1", "rec 2", "rec 3"}, {"rec 4"}},
        {"the new position counts", 64, {"rec 3"}, {"rec 3", "rec 4"}},
        {"one record a file", 1, {"rec 3"}, {"rec 4"}},
        {"no room at all: still the newest one", 0, {"rec 3"}, {"rec 4"}},
        {"the cap has no sign",
         0xFFFFFFFFu,
         {"rec 1", "rec 2", "rec 3"},
         {"rec 1", "rec 2", "rec 3", "rec 4"}},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        with_open_log([&c](const std::string& path) {
            cpectl_log_size = c.cap;
            for (int i = 1; i <= 3; ++i)
                cpectl_log(1, "rec %d", i);
            EXPECT_EQ(messages_in(path), c.after_three);
            cpectl_log(1, "rec 4");
            EXPECT_EQ(messages_in(path), c.after_four);
        });
    }
}

TEST_F(Log, NeverGrowsMuchPastTheDefaultCap) {
    with_open_log([](const std::string& path) {
        std::size_t largest = 0;
        int emptied = 0;
        std::size_t last = 0;
        for (int i = 0; i < 1000; ++i) {
            cpectl_log(1, "%s", repeat(228, 'm').c_str());
            struct stat status {};
            ASSERT_EQ(stat(path.c_str(), &status), 0);
            const std::size_t size = static_cast<std::size_t>(status.st_size);
            if (size > largest) largest = size;
            if (size < last) {
                ++emptied;
                EXPECT_EQ(size, 255u) << "the record is the file's first";
            }
            last = size;
        }
        EXPECT_EQ(largest, 402u * 255u)
            << "the first multiple of a record's size that is at least 102400";
        EXPECT_EQ(emptied, 2);
    });
}

TEST_F(Log, KeepsNoBackup) {
    run_apart([] {
        const std::string dir = absent_file();
        ASSERT_EQ(mkdir(dir.c_str(), 0700), 0);
        const std::string path = dir + "/log";
        ASSERT_EQ(cpectl_log_init(path.c_str()), 0);
        cpectl_log_size = 1;
        for (int i = 0; i < 5; ++i)
            cpectl_log(1, "rec");
        ASSERT_EQ(unlink(path.c_str()), 0);
        EXPECT_EQ(rmdir(dir.c_str()), 0) << "the log was the only file";
    });
}

TEST_F(Log, AFailedReopenClosesTheLogForGood) {
    run_apart([] {
        const std::string dir = absent_file();
        const std::string away = absent_file();
        ASSERT_EQ(mkdir(dir.c_str(), 0700), 0);
        const std::string path = dir + "/log";
        ASSERT_EQ(cpectl_log_init(path.c_str()), 0);
        cpectl_log_size = 1;
        cpectl_log_stdout = 1;
        printed_by([] { cpectl_log(1, "kept"); });
        ASSERT_EQ(rename(dir.c_str(), away.c_str()), 0);
        const std::string printed = printed_by([] { cpectl_log(1, "dropped"); });
        EXPECT_EQ(printed, "");
        ASSERT_EQ(rename(away.c_str(), dir.c_str()), 0);
        EXPECT_EQ(printed_by([] { cpectl_log(3, "dropped too"); }), "");
        EXPECT_EQ(messages_in(path), Messages{"kept"}) << "opening it would work again by now";
    });
}

// The position of a pipe cannot be asked for.
TEST_F(Log, AFailedPositionDropsTheRecordAndSaysSoOnce) {
    run_apart([] {
        const std::string path = absent_file();
        ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
        const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        ASSERT_GE(reader, 0);
        ASSERT_EQ(cpectl_log_init(path.c_str()), 0);
        cpectl_log(1, "dropped");
        char text[4096] = "";
        const ssize_t got = read(reader, text, sizeof text - 1);
        ASSERT_GT(got, 0);
        EXPECT_EQ(message_of(std::string(text, static_cast<std::size_t>(got))),
                  "Error with log file check\n");
        cpectl_runtimedebug_level = 4;
        write_unconditionally("dropped");
        EXPECT_LT(read(reader, text, sizeof text), 0) << "that record has level 3";
    });
}

TEST_F(Log, AFullDiskLosesTheRecordOnly) {
    run_apart([] {
        if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full here";
        ASSERT_EQ(cpectl_log_init("/dev/full"), 0);
        cpectl_log_stdout = 1;
        g_faked_time = 1794795258;
        const std::string printed = printed_by([] {
            cpectl_log(1, "one");
            cpectl_log(3, "two");
        });
        EXPECT_EQ(printed, "Mon Nov 16 07:44:18 2026::one\n\nMon Nov 16 07:44:18 2026::two\n\n");
    });
}
