// The shell: values in command texts, captured output, and the fixed commands.
#include "tools/shell.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "support.h"

extern "C" FILE* __real_popen(const char* command, const char* mode);
extern "C" FILE* __wrap_popen(const char* command, const char* mode);

namespace {

using std::string_view;
using Texts = std::vector<std::string>;

// What becomes of the commands that are started for reading.
struct PopenStage {
    bool recording = false;  // note the text instead of running it
    Texts texts;
    std::set<std::size_t> fail;            // numbers of the calls that fail, from 0
    const char* stream_instead = nullptr;  // a file to be read instead
};
PopenStage g_popen;

}  // namespace

extern "C" FILE* __wrap_popen(const char* command, const char* mode) {
    if (!g_popen.recording) return __real_popen(command, mode);
    g_popen.texts.emplace_back(std::string(mode) + ": " + command);
    if (g_popen.fail.count(g_popen.texts.size() - 1)) return nullptr;
    if (g_popen.stream_instead) return fopen(g_popen.stream_instead, "r");
    return __real_popen("true", mode);
}

// ---- Values in command texts

TEST(ShellPrint, PutsValuesIntoTexts) {
    struct Case {
        const char* why;
        const char* format;
        const char* value;
        const char* text;
    };
    constexpr Case kCases[] = {
        {"a harmless value stands as it is", "set %s now", "office", "set office now"},
        {"every harmless character", "x %s", "AZaz09_@%+=:,./-", "x AZaz09_@%+=:,./-"},
        {"an empty value is nothing", "x %s y", "", "x  y"},
        {"a blank makes one word", "x %s", "a b", "x 'a b'"},
        {"an own quote leaves the quotes", "x %s", "a'b", "x 'a'\\''b'"},
        {"only a quote", "x %s", "'", "x ''\\'''"},
        {"a command substitution is text", "x %s", "$(reboot)", "x '$(reboot)'"},
        {"a tilde would be a folder", "x %s", "~", "x '~'"},
        {"a brace would be expanded", "x %s", "{a,b}", "x '{a,b}'"},
        {"a hash would begin a comment", "x %s", "#a", "x '#a'"},
        {"a newline would end the command", "x %s", "a\nb", "x 'a\nb'"},
        {"bytes beyond ASCII", "x %s", "\xC3\xA9", "x '\xC3\xA9'"},
        {"in a word of the text", "k=%s;", "a;b", "k='a;b';"},
        {"a harmless value in single quotes", "echo '%s'", "office", "echo 'office'"},
        {"other characters in single quotes", "echo 'v: %s!'", "a b\"$`\\", "echo 'v: a b\"$`\\!'"},
        {"a quote in single quotes", "echo '%s'", "it's", "echo 'it'\\''s'"},
        {"nothing in single quotes", "echo '%s'", "", "echo ''"},
        {"a double quote does not end single quotes", "echo '\"%s\"'", "a'b", "echo '\"a'\\''b\"'"},
        {"a harmless value in double quotes", "-F \"file=@%s\"", "/tmp/x", "-F \"file=@/tmp/x\""},
        {"the live characters in double quotes", "\"%s\"", "a\"b$c`d\\e",
         "\"a\\\"b\\$c\\`d\\\\e\""},
        {"a single quote in double quotes", "\"%s\"", "it's a", "\"it's a\""},
        {"a single quote does not end double quotes", "\"'%s'\"", "a\"b", "\"'a\\\"b'\""},
        {"after closed quotes: bare again", "'a' \"b\" %s", "c d", "'a' \"b\" 'c d'"},
        {"a value's quote opens none in the text", "x %s 'y' z", "'", "x ''\\''' 'y' z"},
        {"other percent signs stay", "a %5 %% %x %s%", "v", "a %5 %% %x v%"},
        {"a percent sign in the value stays", "x %s", "%s%d", "x %s%d"},
        {"a place that no value is left for stays", "a %s b %s c %d", "v", "a v b %s c %d"},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        char out[128];
        EXPECT_TRUE(shell_print(out, c.format, c.value));
        EXPECT_STREQ(out, c.text);
    }
}

TEST(ShellPrint, TakesSeveralValuesAndNumbers) {
    char out[128];
    EXPECT_TRUE(shell_print(out, "a %s '%s' %d \"%s\" %d", "1 2", "3'4", 5, "6$7", -8));
    EXPECT_STREQ(out, "a '1 2' '3'\\''4' 5 \"6\\$7\" -8");
    EXPECT_TRUE(shell_print(out, "%d %d", INT32_MIN, INT32_MAX));
    EXPECT_STREQ(out, "-2147483648 2147483647");
    EXPECT_TRUE(shell_print(out, "%s", string_view("abcdef", 3)));
    EXPECT_STREQ(out, "abc");
    EXPECT_TRUE(shell_print(out, "no value at all", std::span<const ShellValue>()));
    EXPECT_STREQ(out, "no value at all");
}

TEST(ShellPrint, QuotesExactlyTheCharactersThatAreNotHarmless) {
    const string_view harmless =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_@%+=:,./-";
    for (int byte = 1; byte < 256; ++byte) {
        SCOPED_TRACE(byte);
        const std::string value = std::string("a") + static_cast<char>(byte);
        char out[16];
        ASSERT_TRUE(shell_print(out, "%s", value.c_str()));
        const bool bare = harmless.find(static_cast<char>(byte)) != string_view::npos;
        if (byte == '\'') continue;  // escaped as well, see above
        EXPECT_EQ(out, bare ? value : "'" + value + "'");
    }
}

TEST(ShellPrint, FitsWholeOrNotAtAll) {
    struct Case {
        const char* why;
        const char* format;
        std::string value;
        std::size_t length;  // of the whole text
    };
    const Case kCases[] = {
        {"bare", "run %s >x", "12345678", 15},
        {"quoted", "run %s >x", "1234 678", 17},
        {"with an escaped quote", "run %s >x", "1234'678", 20},
        {"in single quotes", "run '%s'", "1234'678", 17},
        {"in double quotes", "run \"%s\"", "1234$678", 15},
        {"nothing but the value", "%s", "12345678", 8},
        {"text without value", "run it", "", 6},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        for (std::size_t room = 0; room <= c.length + 3; ++room) {
            SCOPED_TRACE(room);
            std::vector<char> buffer(room + 2, '#');
            const bool fits =
                shell_print(std::span(buffer).subspan(1, room), c.format, c.value.c_str());
            EXPECT_EQ(fits, room > c.length);
            if (room > 0) {
                EXPECT_EQ(strlen(buffer.data() + 1), fits ? c.length : 0) << "no text runs nothing";
            }
            EXPECT_EQ(buffer.front(), '#');
            EXPECT_EQ(buffer.back(), '#');
        }
    }
}

TEST(ShellPrint, AValueFarBeyondTheBufferDoesNotFit) {
    char out[128] = "before";
    EXPECT_FALSE(shell_print(out, "x %s", repeat(1000000, 'a').c_str()));
    EXPECT_STREQ(out, "");
    EXPECT_FALSE(shell_print(out, "x '%s'", repeat(1000000, '\'').c_str()));
    EXPECT_STREQ(out, "");
}

// ---- The same values through a real shell

namespace {

// One value in one place of a command text, and what the command has to see of it.
struct Place {
    const char* name;
    const char* format;
    const char* before;
    const char* after;
};
constexpr Place kPlaces[] = {
    {"bare", "show %s\n", "", ""},
    {"in a bare word", "show key=%s\n", "key=", ""},
    {"in single quotes", "show 'pre %s post'\n", "pre ", " post"},
    {"in double quotes", "show \"pre %s post\"\n", "pre ", " post"},
};

constexpr char kShow[] = "show() { printf '%d:' $#; printf '%s\\0' \"$@\"; }\n";

struct Script {
    std::string text = kShow;
    std::vector<std::string> expected;  // the answer of each command
    std::vector<std::string> names;
};

void add_value(Script& script, const std::string& value) {
    for (const Place& place : kPlaces) {
        std::vector<char> text(value.size() * 5 + 64);
        ASSERT_TRUE(shell_print(text, place.format, value.c_str()));
        script.text += text.data();
        const std::string word = place.before + value + place.after;
        script.expected.push_back((word.empty() ? "0:" : "1:") + word);
        script.names.push_back(std::string(place.name) + ": " + value);
    }
}

// Compares the first answer that differs; those behind it may only follow from it.
void expect_answers(const Script& script, const std::string& answers) {
    std::size_t at = 0;
    for (std::size_t i = 0; i < script.expected.size(); ++i) {
        const std::size_t end = answers.find('\0', at);
        ASSERT_NE(end, std::string::npos) << "no answer for " << script.names[i];
        ASSERT_EQ(answers.substr(at, end - at), script.expected[i]) << script.names[i];
        at = end + 1;
    }
    EXPECT_EQ(at, answers.size()) << "something else was printed";
}

// A root with nothing in it but the programs, read-only, and no way out: what a badly quoted
// payload starts there finds no file, no network and no other process.
void enter_empty_root(const std::string& root) {
    std::filesystem::create_directory(root);
    mount_tmpfs(root);
    std::filesystem::create_directory(root + "/usr");
    ASSERT_EQ(mount("/usr", (root + "/usr").c_str(), nullptr, MS_BIND, nullptr), 0);
    const unsigned long flags = MS_BIND | MS_REMOUNT | MS_RDONLY | MS_NOSUID | MS_NODEV;
    ASSERT_EQ(mount("none", (root + "/usr").c_str(), nullptr, flags, nullptr), 0)
        << strerror(errno);
    for (const char* link : {"bin", "lib", "lib32", "lib64"}) {
        std::filesystem::create_symlink(std::string("usr/") + link, root + "/" + link);
    }
    std::filesystem::create_directory(root + "/dev");
    write_file(root + "/dev/null", "");
    ASSERT_EQ(chroot(root.c_str()), 0);
    ASSERT_EQ(chdir("/"), 0);
    const rlimit processes{64, 64}, seconds{10, 10}, bytes{1 << 24, 1 << 24};
    setrlimit(RLIMIT_NPROC, &processes);
    setrlimit(RLIMIT_CPU, &seconds);
    setrlimit(RLIMIT_FSIZE, &bytes);
}

void run_script_with(const char* shell, const std::string& script, int output) {
    const int input = open(script.c_str(), O_RDONLY | O_CLOEXEC);
    const pid_t child = fork();
    if (child == 0) {
        dup2(input, STDIN_FILENO);
        dup2(output, STDOUT_FILENO);
        execl(shell, shell, static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    close(input);
}

// The answers of the script from a shell without anything around it.
void expect_round_trip_in_empty_root(const Script& script) {
    run_in_namespace(CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWPID | CLONE_NEWIPC, [&script] {
        const std::string answers = temp_file("");
        const int output = open(answers.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
        run_apart([&] {  // the first process of the new process namespace
            enter_empty_root(absent_file());
            write_file("/script", script.text);
            run_script_with("/bin/sh", "/script", output);
        });
        expect_answers(script, file_text(answers));
    });
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t end = text.find('\n', at);
        if (end == std::string::npos) end = text.size();
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

}  // namespace

TEST(ShellRoundTrip, EveryByte) {
    Script script;
    for (int byte = 1; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        add_value(script, {c});
        add_value(script, {c, c});
        add_value(script, {'a', c, 'b'});
        add_value(script, {'\'', c, '\''});
        add_value(script, {'\\', c});
    }
    const std::string answers = temp_file("");
    const int output = open(answers.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    run_script_with("/bin/sh", temp_file(script.text), output);
    close(output);
    expect_answers(script, file_text(answers));
}

TEST(ShellRoundTrip, TextsThatShellsTrip) {
    Script script;
    for (const char* value : {"",          " ",      "  a  ",    "-n",
                              "--",        "-e \\t", "a\nb",     "\n",
                              "a\n",       "''",     "'\\''",    "\\",
                              "\\'",       "$HOME",  "${IFS}",   "$(touch x)",
                              "`touch x`", ";:",     "&& :",     "| cat",
                              "> x",       "*",      "?",        "[a-z]",
                              "!",         "!!",     "~root",    "#",
                              "a=b",       "\t",     "\r\n",     "\xC3\xA4\xF0\x9F\x98\x80",
                              "\xFF\xFE",  "%s%n%d", "!\"'$`\\!"}) {
        add_value(script, value);
    }
    add_value(script, repeat(100000, '\''));
    expect_round_trip_in_empty_root(script);
}

TEST(ShellRoundTrip, KnownInjections) {
    const std::string dir = data_dir();
    if (dir.empty()) return;
    Script script;
    for (const auto& entry : std::filesystem::directory_iterator(dir + "/injection")) {
        if (entry.path().filename() == "ORIGIN") continue;
        for (const std::string& line : lines_of(file_text(entry.path()))) {
            // A C text ends at its first NUL.
            if (line.find('\0') == std::string::npos) add_value(script, line);
        }
    }
    EXPECT_GT(script.expected.size(), 1000u);
    expect_round_trip_in_empty_root(script);
}

TEST(ShellRoundTrip, ThroughTheCaptureToo) {
    for (const char* value : {"office", "a b", "'", "$(echo no)", "`echo no`", ";echo no", "\\",
                              "*", "\xC3\xA9", "a\nb"}) {
        SCOPED_TRACE(value);
        char command[128], output[kCaptureSize];
        ASSERT_TRUE(shell_print(command, "printf %s %s", "%s", value));
        EXPECT_EQ(system_operate(command, output), 0);
        EXPECT_STREQ(output, value);
    }
}

// ---- Captured output

TEST(SystemOperate, CapturesWhatIsPrinted) {
    struct Case {
        const char* why;
        const char* command;
        const char* output;
    };
    constexpr Case kCases[] = {
        {"without newline", "printf abc", "abc"},
        {"one final newline is removed", "printf 'abc\\n'", "abc"},
        {"of two final newlines the first stays", "printf 'abc\\n\\n'", "abc\n"},
        {"of three, two", "printf 'abc\\n\\n\\n'", "abc\n\n"},
        {"newlines inside stay", "printf 'a\\nb\\n'", "a\nb"},
        {"a newline at the start stays", "printf '\\nb'", "\nb"},
        {"a carriage return stays", "printf 'a\\r\\n'", "a\r"},
        {"a final blank stays", "printf 'a \\n'", "a "},
        {"nothing", "true", ""},
        {"only a newline", "echo", ""},
        {"only two newlines", "echo; echo", "\n"},
        {"up to the first NUL", "printf 'ab\\0cd\\n'", "ab"},
        {"a newline before a NUL is the last character", "printf 'ab\\n\\0cd\\n'", "ab"},
        {"a NUL at the start", "printf '\\0cd'", ""},
        {"in pieces", "printf a; sleep 0.1; printf b; sleep 0.1; echo c", "abc"},
        {"of several commands", "printf a; printf b | cat", "ab"},
        {"standard error is not captured", "echo '(an error message)' >&2; printf yes", "yes"},
        {"a failed exit status does not matter", "printf abc; exit 3", "abc"},
        {"a killed shell does not matter", "printf abc; kill -9 $$", "abc"},
        {"a command that does not exist", "/no/such/command 2>/dev/null", ""},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        char output[kCaptureSize];
        memset(output, '#', sizeof output);
        EXPECT_EQ(system_operate(c.command, output), 0);
        EXPECT_STREQ(output, c.output);
    }
}

TEST(SystemOperate, CapturesAtMost2048BytesCutToTheBuffer) {
    struct Case {
        const char* why;
        std::size_t printed;  // characters x
        const char* end;      // printed behind them
        std::size_t room;     // of the caller's buffer
        std::size_t length;   // of the captured text
    };
    constexpr Case kCases[] = {
        {"one below the capture", 2047, "", 4096, 2047},
        {"the whole capture", 2048, "", 4096, 2048},
        {"one more is not read", 2049, "", 4096, 2048},
        {"far beyond is not read", 100000, "", 4096, 2048},
        {"a newline as the last byte of the capture", 2047, "\\n", 4096, 2047},
        {"a newline behind the capture", 2048, "\\n", 4096, 2048},
        {"two newlines, the second behind the capture", 2047, "\\n\\n", 4096, 2047},
        {"one below the usual buffer", 2046, "\\n", 2048, 2046},
        {"the usual buffer, full", 2047, "\\n", 2048, 2047},
        {"the usual buffer keeps room for the end", 2048, "", 2048, 2047},
        {"far beyond the usual buffer", 100000, "", 2048, 2047},
        {"a small buffer, one below", 6, "\\n", 8, 6},
        {"a small buffer, full", 7, "\\n", 8, 7},
        {"a small buffer, one too many", 8, "\\n", 8, 7},
        {"a small buffer, far beyond", 100000, "\\n", 8, 7},
        {"room for the end only", 5, "\\n", 1, 0},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        const std::string command = "head -c " + std::to_string(c.printed) +
                                    " /dev/zero | tr '\\0' x; printf '" + c.end + "'";
        std::vector<char> output(c.room + 2, '#');
        EXPECT_EQ(system_operate(command.c_str(), std::span(output).subspan(1, c.room)), 0);
        EXPECT_EQ(std::string(output.data() + 1), repeat(c.length, 'x'));
        EXPECT_EQ(output.front(), '#');
        EXPECT_EQ(output.back(), '#');
    }
}

TEST(SystemOperate, ReadsOnUntilTheCaptureIsFull) {
    char output[kCaptureSize + 8];
    EXPECT_EQ(system_operate("head -c 2047 /dev/zero | tr '\\0' x; sleep 0.1; printf yz", output),
              0);
    EXPECT_EQ(output, repeat(2047, 'x') + "y");
}

TEST(SystemOperate, DoesNotWaitForOutputThatItDoesNotRead) {
    std::string text;
    while (text.size() < kCaptureSize)
        text += "y\n";
    text.pop_back();
    char output[kCaptureSize];
    EXPECT_EQ(system_operate("yes", output), 0);  // prints until nobody reads any more
    EXPECT_EQ(output, text);
}

namespace {

// A command for the background that goes on until something is written to `gate`: waiting for it
// before that would be for ever.
std::string held_command(const std::string& gate) {
    EXPECT_EQ(mkfifo(gate.c_str(), 0600), 0);
    return "{ read word; echo late; } >/dev/null 2>&1 <" + gate + " &";
}

}  // namespace

TEST(SystemOperate, ABackgroundCommandReturnsAtOnceWithNothing) {
    const std::string gate = absent_file();
    char output[kCaptureSize] = "before";
    EXPECT_EQ(system_operate(held_command(gate).c_str(), output), 0);
    EXPECT_STREQ(output, "");
    write_file(gate, "go on\n");
}

TEST(SystemOperate, RefusesMissingArguments) {
    const std::string mark = absent_file();
    const std::string command = "touch " + mark;
    char output[kCaptureSize] = "before";
    EXPECT_EQ(system_operate(nullptr, output), -1);
    EXPECT_STREQ(output, "before");
    EXPECT_EQ(system_operate(command.c_str(), std::span<char>()), -1);
    EXPECT_EQ(system_operate(nullptr, std::span<char>()), -1);
    EXPECT_FALSE(file_exists(mark)) << "the command is not run";
}

TEST(SystemOperate, FailsWhenTheCommandCannotBeStarted) {
    run_apart([] {
        char output[kCaptureSize] = "before";
        forbid_new_files();
        EXPECT_EQ(system_operate("echo x", output), -1);
        allow_new_files();
        EXPECT_STREQ(output, "before");
        EXPECT_EQ(system_operate("echo x", output), 0);
    });
}

TEST(SystemOperate, AReadThatFailsEndsTheCapture) {
    run_apart([] {
        // Reading a folder fails without reaching its end.
        g_popen.recording = true;
        g_popen.stream_instead = "/";
        char output[kCaptureSize] = "before";
        EXPECT_EQ(system_operate("anything", output), 0);
        EXPECT_STREQ(output, "");
    });
}

TEST(SystemOperate, LeavesNoProcessAndNoFileBehind) {
    run_apart([] {
        char output[kCaptureSize];
        const rlimit few{32, 32};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
        for (int i = 0; i < 64; ++i)
            ASSERT_EQ(system_operate("exit 1", output), 0);
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "an ended shell was not waited for";
    });
}

// ---- Commands without output

TEST(ShellRun, WaitsAndGivesTheWaitStatus) {
    const std::string mark = absent_file();
    EXPECT_EQ(shell_run(("sleep 0.1; echo x >" + mark).c_str()), 0);
    EXPECT_EQ(file_text(mark), "x\n");
    const int failed = shell_run("exit 3");
    EXPECT_TRUE(WIFEXITED(failed));
    EXPECT_EQ(WEXITSTATUS(failed), 3);
    const int killed = shell_run("kill -9 $$");
    EXPECT_TRUE(WIFSIGNALED(killed));
}

TEST(ShellRun, ABackgroundCommandReturnsAtOnce) {
    const std::string gate = absent_file();
    EXPECT_EQ(shell_run(held_command(gate).c_str()), 0);
    write_file(gate, "go on\n");
}

// ---- The fixed commands

TEST(ConfigSave, RunsTheFlashScript) {
    run_apart([] {
        g_popen.recording = true;
        EXPECT_EQ(config_save(), 0);
        EXPECT_EQ(g_popen.texts, Texts{"r: /usr/sbin/ui.sh flash >/dev/null"});
        g_popen.fail = {1};
        EXPECT_EQ(config_save(), -1) << "the result of system_operate()";
    });
}

TEST(LanConf, RunsBothScriptsAndGivesTheSecondResult) {
    const Texts kTexts = {"r: /usr/sbin/network.sh lanconf  >/dev/null 2 >/dev/null &",
                          "r: /usr/sbin/network.sh lanmode  >/dev/null 2 >/dev/null &"};
    struct Case {
        const char* why;
        std::set<std::size_t> fail;
        int result;
    };
    const Case kCases[] = {
        {"both start", {}, 0},
        {"the first fails: the second is run all the same", {0}, 0},
        {"the second fails", {1}, -1},
        {"both fail", {0, 1}, -1},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        run_apart([&] {
            g_popen.recording = true;
            g_popen.fail = c.fail;
            EXPECT_EQ(lan_conf(), c.result);
            EXPECT_EQ(g_popen.texts, kTexts);
        });
    }
}

TEST(LanConf, HandsTheScriptALiteralTwo) {
    run_in_namespace(CLONE_NEWNS, [] {
        mount_tmpfs("/usr/sbin");
        const std::string record = absent_file();
        const std::string script = "#!/bin/sh\necho noise\necho \"$# $*\" >>" + record + "\n";
        for (const char* name : {"/usr/sbin/network.sh", "/usr/sbin/ui.sh"}) {
            write_file(name, script);
            ASSERT_EQ(chmod(name, 0755), 0);
        }
        EXPECT_EQ(lan_conf(), 0);
        EXPECT_EQ(config_save(), 0);
        EXPECT_TRUE(wait_until([&record] { return lines_of(file_text(record)).size() == 3; }));
        const Texts lines = lines_of(file_text(record));
        EXPECT_EQ(std::multiset<std::string>(lines.begin(), lines.end()),
                  (std::multiset<std::string>{"2 lanconf 2", "2 lanmode 2", "1 flash"}));
    });
}

TEST(CpectlPrintf, WritesToTheConsole) {
    struct Case {
        const char* why;
        std::size_t length;
        std::size_t printed;
    };
    constexpr Case kCases[] = {
        {"nothing", 0, 0},
        {"one", 1, 1},
        {"one below the buffer's room", 1022, 1022},
        {"the buffer's room", 1023, 1023},
        {"one too many is cut", 1024, 1023},
        {"far beyond is cut", 100000, 1023},
    };
    run_in_namespace(CLONE_NEWNS, [&kCases] {
        mount_tmpfs("/dev");
        for (const Case& c : kCases) {
            SCOPED_TRACE(c.why);
            write_file("/dev/console", "");
            EXPECT_EQ(cpectl_printf("%s", repeat(c.length, 'x').c_str()),
                      static_cast<int>(c.printed));
            EXPECT_EQ(file_text("/dev/console"), repeat(c.printed, 'x'));
        }
        write_file("/dev/console", "");
        EXPECT_EQ(cpectl_printf("%s is %d%%\n", "load", 7), 11);
        EXPECT_EQ(file_text("/dev/console"), "load is 7%\n");
    });
}

namespace {

// The mode of a file that a command makes for a caller with this mask.
unsigned made_mode(mode_t mask, void (*command_run)(const char*)) {
    const std::string path = absent_file();
    const mode_t before = umask(mask);
    command_run(("echo x > " + path).c_str());
    umask(before);
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    return status.st_mode & 0777U;
}

void run(const char* command) {
    EXPECT_EQ(shell_run(command), 0);
}

void capture(const char* command) {
    char output[kCaptureSize] = {};
    EXPECT_EQ(system_operate(command, output), 0);
}

}  // namespace

TEST(Shell, OthersMayNotWriteToWhatIsMade) {
    for (const auto command_run : {run, capture}) {
        EXPECT_EQ(made_mode(0, command_run), 0644U);
        EXPECT_EQ(made_mode(022, command_run), 0644U);
        EXPECT_EQ(made_mode(077, command_run), 0600U);
        EXPECT_EQ(made_mode(027, command_run), 0640U);
    }
}

TEST(CpectlPrintf, DoesNotNoticeAMissingConsole) {
    run_in_namespace(CLONE_NEWNS, [] {
        mount_tmpfs("/dev");
        EXPECT_EQ(cpectl_printf("%s", "abc"), 3);
        EXPECT_FALSE(file_exists("/dev/console")) << "it is opened, not created";
    });
}

TEST(CpectlPrintf, ClosesTheConsole) {
    run_in_namespace(CLONE_NEWNS, [] {
        mount_tmpfs("/dev");
        write_file("/dev/console", "");
        const rlimit few{32, 32};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
        for (int i = 0; i < 64; ++i)
            EXPECT_EQ(cpectl_printf("x"), 1);
        EXPECT_NE(open("/dev/console", O_RDONLY | O_CLOEXEC), -1);
    });
}
