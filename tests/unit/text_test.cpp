// Text in fixed buffers: what fits, what is cut, and where words and lines end.
#include "tools/text.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "support.h"

namespace {

using std::string_view;

constexpr char kGuard = '#';

// A buffer of `size` bytes whose neighbours are watched.
struct Guarded {
    explicit Guarded(std::size_t size) : bytes(size + 2, kGuard), room(size) {}
    std::span<char> span() { return {bytes.data() + 1, room}; }
    const char* text() const { return bytes.data() + 1; }
    bool intact() const { return bytes.front() == kGuard && bytes.back() == kGuard; }

    std::vector<char> bytes;
    std::size_t room;
};

struct WriteCase {
    const char* why;
    std::size_t room;
    string_view before;  // what the buffer holds (append only)
    string_view from;
    bool fits;
    string_view result;
};

__attribute__((format(printf, 2, 3))) bool vprint(std::span<char> out, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const bool fits = text_vprint(out, format, args);
    va_end(args);
    return fits;
}

constexpr WriteCase kCopyCases[] = {
    {"nothing", 8, "", "", true, ""},
    {"one below the room", 8, "", "123456", true, "123456"},
    {"fills the room: 7 characters and the end", 8, "", "1234567", true, "1234567"},
    {"one too many is cut", 8, "", "12345678", false, "1234567"},
    {"far beyond is cut", 8, "", "1234567890123456789012345678901234567890", false, "1234567"},
    {"room for the end only", 1, "", "", true, ""},
    {"room for the end only, text cut", 1, "", "1", false, ""},
};

constexpr WriteCase kAppendCases[] = {
    {"to nothing", 8, "", "abc", true, "abc"},
    {"nothing to something", 8, "abc", "", true, "abc"},
    {"one below the room", 8, "abc", "def", true, "abcdef"},
    {"fills the room", 8, "abc", "defg", true, "abcdefg"},
    {"one too many is cut", 8, "abc", "defgh", false, "abcdefg"},
    {"far beyond is cut", 8, "abc", "defghijklmnopqrstuvwxyzabcdefghijkl", false, "abcdefg"},
    {"to a full buffer", 8, "abcdefg", "h", false, "abcdefg"},
    {"nothing to a full buffer", 8, "abcdefg", "", true, "abcdefg"},
};

}  // namespace

TEST(Text, CopyTerminatesAndSaysWhenItCut) {
    for (const WriteCase& c : kCopyCases) {
        SCOPED_TRACE(c.why);
        Guarded out(c.room);
        EXPECT_EQ(text_copy(out.span(), c.from), c.fits);
        EXPECT_STREQ(out.text(), std::string(c.result).c_str());
        EXPECT_TRUE(out.intact());
    }
}

TEST(Text, CopyTakesAViewByItsLength) {
    char out[8];
    EXPECT_TRUE(text_copy(out, string_view("abcdef", 3)));
    EXPECT_STREQ(out, "abc");
}

TEST(Text, AppendTerminatesAndSaysWhenItCut) {
    for (const WriteCase& c : kAppendCases) {
        SCOPED_TRACE(c.why);
        Guarded out(c.room);
        memcpy(out.span().data(), std::string(c.before).c_str(), c.before.size() + 1);
        EXPECT_EQ(text_append(out.span(), c.from), c.fits);
        EXPECT_STREQ(out.text(), std::string(c.result).c_str());
        EXPECT_TRUE(out.intact());
    }
}

TEST(Text, PrintTerminatesAndSaysWhenItCut) {
    for (const WriteCase& c : kCopyCases) {
        SCOPED_TRACE(c.why);
        const std::string from(c.from);
        Guarded out(c.room), out_of_list(c.room);
        EXPECT_EQ(text_print(out.span(), "%s", from.c_str()), c.fits);
        EXPECT_EQ(vprint(out_of_list.span(), "%s", from.c_str()), c.fits);
        EXPECT_STREQ(out.text(), std::string(c.result).c_str());
        EXPECT_STREQ(out_of_list.text(), std::string(c.result).c_str());
        EXPECT_TRUE(out.intact());
        EXPECT_TRUE(out_of_list.intact());
    }
}

TEST(Text, PrintConverts) {
    char out[64];
    EXPECT_TRUE(text_print(out, "WAN%d_%s %5.1f%%", 2, "TYPE", 0.25));
    EXPECT_STREQ(out, "WAN2_TYPE   0.2%");
}

TEST(Text, PrintLeavesNothingOfWhatCannotBeFormatted) {
    char out[16] = "before";
    // The test's locale knows no character but those of ASCII.
    EXPECT_FALSE(text_print(out, "a%lc", static_cast<wint_t>(0x4E00)));
    EXPECT_STREQ(out, "");
}

TEST(Text, HeadAndTail) {
    struct Case {
        const char* why;
        string_view text;
        std::size_t count;
        string_view head, tail;
    };
    constexpr Case kCases[] = {
        {"nothing of it", "abc", 0, "", "abc"},
        {"one below the length", "abc", 2, "ab", "c"},
        {"the length", "abc", 3, "abc", ""},
        {"one more", "abc", 4, "abc", ""},
        {"far more", "abc", static_cast<std::size_t>(-1), "abc", ""},
        {"of nothing", "", 2, "", ""},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(text_head(c.text, c.count), c.head);
        EXPECT_EQ(text_tail(c.text, c.count), c.tail);
        EXPECT_NE(text_tail(c.text, c.count).data(), nullptr) << "C calls take it";
    }
}

TEST(Text, UntilTheFirstStop) {
    struct Case {
        const char* why;
        string_view text, stops, result;
    };
    constexpr Case kCases[] = {
        {"one stop", "a=b", "=", "a"},
        {"the first of several stops", "ab\r\n", "\n\r", "ab"},
        {"a stop at the start", "=b", "=", ""},
        {"no stop in the text", "abc", "=", "abc"},
        {"no stops at all", "abc", "", "abc"},
        {"of nothing", "", "=", ""},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(text_until(c.text, c.stops), c.result);
    }
}

TEST(Text, FindsTheFirstPlace) {
    struct Case {
        const char* why;
        string_view text, what;
        std::size_t place;
    };
    constexpr Case kCases[] = {
        {"at the start", "abcabc", "abc", 0},
        {"in the middle", "xabcabc", "abc", 1},
        {"at the very end", "xxabc", "abc", 2},
        {"after a false start", "aab", "ab", 1},
        {"nowhere gives the size", "abcab", "abd", 5},
        {"cut off at the end", "xxab", "abc", 4},
        {"longer than the text", "ab", "abc", 2},
        {"in nothing", "", "a", 0},
        {"no text at all", {}, "a", 0},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(text_find(c.text, c.what), c.place);
    }
}

TEST(Text, BeginsWith) {
    struct Case {
        const char* why;
        string_view text, prefix;
        bool result;
    };
    constexpr Case kCases[] = {
        {"longer text", "rebootNow", "reboot", true},
        {"equal text", "reboot", "reboot", true},
        {"shorter text", "reb", "reboot", false},
        {"another text", "rebuild", "reboot", false},
        {"other case", "Reboot", "reboot", false},
        {"everything begins with nothing", "a", "", true},
        {"nothing too", "", "", true},
        {"nothing begins with something", "", "a", false},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(begins_with(c.text, c.prefix), c.result);
    }
}

TEST(Text, TakesWordsAtSingleBlanks) {
    struct Case {
        const char* why;
        string_view text;
        std::vector<string_view> words;
    };
    const Case kCases[] = {
        {"nothing", "", {}},
        {"one word", "a", {"a"}},
        {"two words", "a bc", {"a", "bc"}},
        {"a blank at the end is eaten", "a ", {"a"}},
        {"only one blank is eaten", "a  b", {"a", "", "b"}},
        {"a blank at the start ends an empty word", " a", {"", "a"}},
        {"a tab and a newline are no blanks", "a\tb\n c", {"a\tb\n", "c"}},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        string_view rest = c.text;
        string_view word = "before";
        std::vector<string_view> words;
        while (take_word(rest, word))
            words.push_back(word);
        EXPECT_EQ(words, c.words);
        EXPECT_EQ(word, c.words.empty() ? "before" : c.words.back())
            << "untouched when nothing is left";
        EXPECT_TRUE(rest.empty());
    }
}

TEST(Text, ReadsLinesInPiecesOfTheBuffer) {
    struct Case {
        const char* why;
        std::string content;
        std::vector<std::string> lines;
    };
    const Case kCases[] = {
        {"nothing", "", {}},
        {"the newline belongs to the line", "a\nb\n", {"a\n", "b\n"}},
        {"a last line without newline", "a\nb", {"a\n", "b"}},
        {"empty lines are lines", "\n\n", {"\n", "\n"}},
        {"a carriage return stays", "a\r\n", {"a\r\n"}},
        {"one below the room of 8", "12345\n6\n", {"12345\n", "6\n"}},
        {"with its newline it fills the room", "123456\n7\n", {"123456\n", "7\n"}},
        {"the newline does not fit", "1234567\n8\n", {"1234567", "\n", "8\n"}},
        {"far beyond: read in pieces",
         "12345678901234567890\nx\n",
         {"1234567", "8901234", "567890\n", "x\n"}},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        FILE* file = fopen(temp_file(c.content).c_str(), "r");
        ASSERT_NE(file, nullptr);
        Guarded line(8);
        std::vector<std::string> lines;
        while (lines.size() < 10 && next_line(file, line.span()))
            lines.push_back(line.text());
        EXPECT_EQ(lines, c.lines);
        EXPECT_TRUE(line.intact());
        fclose(file);
    }
}
