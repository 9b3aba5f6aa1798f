// The program's entry: what its arguments do, what it prints and how it ends. The handlers behind
// it only tell how they were called (main_probe.cpp).
#include <fcntl.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "command_rows.h"
#include "help_listing.h"
#include "support.h"

namespace {

using Words = std::vector<std::string>;

struct Outcome {
    std::string printed;
    std::string errors;
    std::string calls;  // of handlers
    int status;         // -1 when it was killed
};

// Runs the program with these arguments; `prepare` can change the child's environment and streams.
Outcome run_program(
    const char* program, const Words& arguments, const std::function<void()>& prepare = [] {}) {
    const std::string printed = temp_file(""), errors = temp_file(""), calls = temp_file("");
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(open(printed.c_str(), O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
        dup2(open(errors.c_str(), O_WRONLY | O_CLOEXEC), STDERR_FILENO);
        setenv("PROBE_RECORD", calls.c_str(), 1);
        prepare();
        exec_program(program, arguments);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return {file_text(printed), file_text(errors), file_text(calls),
            WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

Outcome run_probe(
    const Words& arguments, const std::function<void()>& prepare = [] {}) {
    return run_program(MAIN_PROBE, arguments, prepare);
}

std::string answer_of(const std::string& handler) {
    return "{\"fun\":\"" + handler + "\"}\n";
}

// The messages of a log.
Words messages_in(const std::string& log) {
    Words messages;
    const std::string text = file_text(log);
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = text.find('\n', at);
        messages.push_back(text.substr(at + 26, end - at - 26));
        at = end + 1;
    }
    return messages;
}

}  // namespace

TEST(Main, RunsEachCommandByItsNameAndByALongerOne) {
    for (const CommandRow& row : kCommandRows) {
        for (const char* more : {"", "Now"}) {
            SCOPED_TRACE(std::string(row.name) + more);
            const Outcome run = run_probe({std::string(row.name) + more});
            EXPECT_EQ(run.printed, answer_of(row.handler_name));
            EXPECT_EQ(run.calls, std::string(row.handler_name) + " " + std::to_string(row.argc) +
                                     " (no object)\n")
                << "called once, with the row's count";
            EXPECT_EQ(run.errors, "");
            EXPECT_EQ(run.status, 0);
        }
    }
}

TEST(Main, HandsTheArgumentObjectOn) {
    struct Case {
        const char* why;
        const char* text;
        const char* object;  // as the handler sees it
    };
    constexpr Case kCases[] = {
        {"an object", R"({"devNm":"office"})", R"({"devNm":"office"})"},
        {"blanks around it", "  {\"a\" : 1}\n", R"({"a":1})"},
        {"more members than the row names", R"({"devNm":"a","b":2,"c":[3]})",
         R"({"devNm":"a","b":2,"c":[3]})"},
        {"no members", "{}", "{}"},
        {"an array is an argument too", "[1]", "[1]"},
        {"a number too", "5", "5"},
        {"null too", "null", "null"},
        {"UTF-8", "{\"a\":\"\xC3\xA9\"}", "{\"a\":\"\xC3\xA9\"}"},
        {"no JSON: runs without", "oops", "(no object)"},
        {"half an object: runs without", R"({"devNm":)", "(no object)"},
        {"nothing: runs without", "", "(no object)"},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        const Outcome run = run_probe({"devNmSet", c.text});
        EXPECT_EQ(run.calls, std::string("cpectl_devname_set 1 ") + c.object + "\n");
        EXPECT_EQ(run.printed, answer_of("cpectl_devname_set"));
        EXPECT_EQ(run.errors, "");
        EXPECT_EQ(run.status, 0);
    }
}

TEST(Main, RefusesAnArgumentTextOf1024Bytes) {
    struct Case {
        const char* why;
        std::size_t length;
        bool runs;
    };
    constexpr Case kCases[] = {
        {"one below the room", 1022, true},
        {"the room", 1023, true},
        {"one too many", 1024, false},
        {"far beyond", 100000, false},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        const std::string text = "{\"devNm\":\"" + repeat(c.length - 12, 'x') + "\"}";
        ASSERT_EQ(text.size(), c.length);
        const Outcome run = run_probe({"devNmSet", text});
        EXPECT_EQ(run.calls, c.runs ? "cpectl_devname_set 1 " + text + "\n" : "");
        EXPECT_EQ(run.printed, c.runs ? answer_of("cpectl_devname_set") : "");
        EXPECT_EQ(std::count(run.errors.begin(), run.errors.end(), '\n'), c.runs ? 0 : 1)
            << run.errors;
        EXPECT_EQ(run.status, c.runs ? 0 : 255);
    }
}

TEST(Main, AnswersNothingToOtherRequests) {
    struct Case {
        const char* why;
        Words arguments;
    };
    const Case kCases[] = {
        {"no command", {}},
        {"an empty command", {""}},
        {"an unknown command", {"nosuch"}},
        {"an unknown command with arguments", {"nosuch", "{}"}},
        {"a part of a name", {"reb"}},
        {"other case", {"Reboot"}},
        {"a blank before", {" reboot"}},
        {"two arguments", {"devNmSet", "{}", "{}"}},
        {"many arguments", {"devNmSet", "{}", "a", "b", "c"}},
        {"help with an argument is a command", {"-h", "{}"}},
        {"also in its long form", {"--help", "{}"}},
        {"also as a question mark", {"?", "devNmSet"}},
        {"nearly help", {"-help"}},
        {"more than help", {"-hx"}},
        {"more than help, long", {"--helpme"}},
        {"two question marks", {"??"}},
        {"help as a word", {"help"}},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        const Outcome run = run_probe(c.arguments);
        EXPECT_EQ(run.printed, "");
        EXPECT_EQ(run.errors, "");
        EXPECT_EQ(run.calls, "");
        EXPECT_EQ(run.status, 255);
    }
}

TEST(Main, ListsTheCommands) {
    for (const char* request : {"-h", "--help", "?"}) {
        SCOPED_TRACE(request);
        const Outcome run = run_probe({request});
        EXPECT_EQ(run.printed, kHelpListing);
        EXPECT_EQ(run.errors, "");
        EXPECT_EQ(run.calls, "");
        EXPECT_EQ(run.status, 255);
    }
}

TEST(Main, TheRealProgramListsTheSame) {
    const Outcome run = run_program(CPECTL_PROGRAM, {"--help"});
    EXPECT_EQ(run.printed, kHelpListing);
    EXPECT_EQ(run.errors, "");
    EXPECT_EQ(run.status, 255);
    EXPECT_EQ(run_program(CPECTL_PROGRAM, {"rebo"}).status, 255);
    EXPECT_EQ(run_program(CPECTL_PROGRAM, {"-h", "x"}).printed, "");
}

TEST(Main, PrintsOneUnformattedLine) {
    const Outcome run = run_probe({"getBaseInfo"}, [] { setenv("PROBE_ANSWER", "member", 1); });
    EXPECT_EQ(run.printed,
              "{\"fun\":\"cpectl_getBaseinfo\",\"text\":\"a \\\"b\\\"\\n\xC3\xA9\"}\n");
    EXPECT_EQ(run.status, 0);
    const Outcome large = run_probe({"getBaseInfo"}, [] { setenv("PROBE_ANSWER", "large", 1); });
    EXPECT_EQ(
        large.printed.size(),
        std::string("{\"fun\":\"cpectl_getBaseinfo\",\"text\":\"\"}\n").size() + (1 << 20) - 1);
    EXPECT_EQ(large.status, 0);
}

TEST(Main, WithoutAnAnswerItPrintsNothing) {
    for (const char* kind : {"null", "lost"}) {
        SCOPED_TRACE(kind);
        const Outcome run = run_probe({"getBaseInfo"}, [kind] { setenv("PROBE_ANSWER", kind, 1); });
        EXPECT_EQ(run.printed, "");
        EXPECT_EQ(run.errors, "");
        EXPECT_EQ(run.calls, "cpectl_getBaseinfo 0 (no object)\n");
        EXPECT_EQ(run.status, 255);
    }
}

namespace {

void print_to_a_full_disk() {
    dup2(open("/dev/full", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
}
void print_to_nobody() {
    int ends[2];
    if (pipe(ends) != 0) _exit(125);
    close(ends[0]);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
}
// A file that takes the beginning of an answer, as a disk does that fills up meanwhile.
void print_to_a_file_that_ends() {
    const std::string path = temp_file(repeat(40, 'x'));
    dup2(open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC), STDOUT_FILENO);
    signal(SIGXFSZ, SIG_IGN);
    const rlimit bytes{64, 64};
    setrlimit(RLIMIT_FSIZE, &bytes);
}
void print_to_a_closed_stream() {
    close(STDOUT_FILENO);
}
void close_all_streams() {
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream)
        close(stream);
}

}  // namespace

TEST(Main, AnAnswerThatCannotBeWrittenIsNone) {
    struct Case {
        const char* why;
        void (*prepare)();
    };
    constexpr Case kCases[] = {
        {"a full disk", print_to_a_full_disk},
        {"a disk that fills up on the way", print_to_a_file_that_ends},
        {"a pipe that nobody reads", print_to_nobody},
        {"a closed stream", print_to_a_closed_stream},
        {"all streams closed", close_all_streams},
    };
    for (const Case& c : kCases) {
        for (const char* kind : {"", "large"}) {
            SCOPED_TRACE(std::string(c.why) + " " + kind);
            const Outcome run = run_probe({"getBaseInfo"}, [&c, kind] {
                c.prepare();
                setenv("PROBE_ANSWER", kind, 1);
            });
            EXPECT_EQ(run.status, 255) << "not killed by a signal, either";
            EXPECT_EQ(run.calls, "cpectl_getBaseinfo 0 (no object)\n") << "the command was done";
        }
        EXPECT_EQ(run_probe({"--help"}, c.prepare).status, 255);
    }
}

TEST(Main, LogsItsArguments) {
    struct Case {
        const char* why;
        Words arguments;
        Words messages;
    };
    const Case kCases[] = {
        {"what parses", {"devNmSet", "{\"a\": 1}"}, {"args is :{\"a\": 1},function:main call"}},
        {"percent signs stay",
         {"devNmSet", "[\"%s%n\"]"},
         {"args is :[\"%s%n\"],function:main call"}},
        {"what does not",
         {"devNmSet", "oops"},
         {"argv[3] is not json,cJSON_Parse faild function:main call"}},
        {"also for an unknown command", {"nosuch", "{}"}, {"args is :{},function:main call"}},
        {"no argument text", {"devNmSet"}, {}},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        const std::string log = temp_file("");
        run_probe(c.arguments, [&log] { setenv("PROBE_LOG", log.c_str(), 1); });
        EXPECT_EQ(messages_in(log), c.messages);
    }
}

TEST(Main, LogsALostAnswer) {
    struct Case {
        const char* answer;
        Words messages;
    };
    const Case kCases[] = {
        {"null", {}},  // the handler logs what there is to log
        {"member", {}},
        {"lost", {"Fail to create json respond for function:main call"}},
        {"lost null", {"Fail to create json respond for function:main call"}},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.answer);
        const std::string log = temp_file("");
        run_probe({"getBaseInfo"}, [&] {
            setenv("PROBE_LOG", log.c_str(), 1);
            setenv("PROBE_ANSWER", c.answer, 1);
        });
        EXPECT_EQ(messages_in(log), c.messages);
    }
}

TEST(Main, LogsProgressAtLevel1AndFailuresAtLevel3) {
    struct Case {
        const char* why;
        const char* text;
        const char* answer;
        const char* lowest;  // level that the log takes
        std::size_t records;
    };
    constexpr Case kCases[] = {
        {"the arguments are progress", "{}", "", "1", 1},
        {"which a higher level leaves out", "{}", "", "2", 0},
        {"no JSON is a failure", "oops", "", "3", 1},
        {"and no more than that", "oops", "", "4", 0},
        {"a lost answer is a failure", "{}", "lost", "3", 1},
        {"and no more than that", "{}", "lost", "4", 0},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        const std::string log = temp_file("");
        run_probe({"devNmSet", c.text}, [&] {
            setenv("PROBE_LOG", log.c_str(), 1);
            setenv("PROBE_LOG_LEVEL", c.lowest, 1);
            setenv("PROBE_ANSWER", c.answer, 1);
        });
        EXPECT_EQ(messages_in(log).size(), c.records);
    }
}

TEST(Main, NeverOpensTheLogItself) {
    run_in_namespace(CLONE_NEWNS, [] {
        mount_private_tmp();
        for (const char* text : {"{}", "oops"}) {
            EXPECT_EQ(run_probe({"devNmSet", text}).printed, answer_of("cpectl_devname_set"));
        }
        EXPECT_FALSE(file_exists("/tmp/cpectl.log"));
    });
}
