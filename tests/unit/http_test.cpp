// Transfers against real servers on the loopback device, and reading files that are still being
// written.
#include "tools/http.h"

#include <cjson/cJSON.h>
#include <curl/curl.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "http_server.h"
#include "log/log.h"
#include "support.h"

extern "C" {
int __real_system(const char* command);
int __wrap_system(const char* command);
int __real_usleep(useconds_t microseconds);
int __wrap_usleep(useconds_t microseconds);
void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);
}

namespace {

using Texts = std::vector<std::string>;

// What is handed to the shell: noted, and run where a test says so.
Texts g_commands;
bool g_run_commands = false;
int g_command_result = 0;

// Pauses: noted, and made where no test stands in for the time that passes.
std::vector<useconds_t> g_pauses;
std::function<void()> g_pass_time;

std::size_t g_refused_size = 0;  // allocations of just this size fail

}  // namespace

int __wrap_system(const char* command) {
    g_commands.emplace_back(command);
    return g_run_commands ? __real_system(command) : g_command_result;
}

int __wrap_usleep(useconds_t microseconds) {
    g_pauses.push_back(microseconds);
    if (!g_pass_time) return __real_usleep(microseconds);
    g_pass_time();
    return 0;
}

void* __wrap_malloc(std::size_t size) {
    return size == g_refused_size && size > 0 ? nullptr : __real_malloc(size);
}

void* __wrap_calloc(std::size_t count, std::size_t size) {
    const std::size_t bytes = count * size;
    return bytes == g_refused_size && bytes > 0 ? nullptr : __real_calloc(count, size);
}

// ---- Downloads

namespace {

// A server and a process of its own for each test: the tested code loads libcurl into it.
void with_server(const std::function<void(const HttpServer& server)>& body) {
    const HttpServer server = http_server_start();
    run_apart([&] {
        for (const char* name :
             {"http_proxy", "https_proxy", "all_proxy", "ALL_PROXY", "no_proxy"}) {
            unsetenv(name);
        }
        body(server);
    });
    http_server_stop(server);
}

}  // namespace

TEST(GetUrl, WritesTheBodyIntoTheFile) {
    struct Case {
        const char* why;
        const char* path;
        std::string body;
    };
    const Case kCases[] = {
        {"a whole answer", "/200", "hello\n"},
        {"not found: its body all the same", "/404", "not found\n"},
        {"a server's failure: its body all the same", "/500", "failed\n"},
        {"a redirect is not followed", "/redirect", "moved\n"},
        {"in chunks", "/chunked", "first, second"},
        {"an empty body", "/empty", ""},
        {"up to the end of the connection", "/until-close", "up to the end"},
        {"cut short: what came", "/truncated", "only this"},
        {"a chunk cut short: what came", "/cut-chunk", "first, se"},
        {"closed without an answer", "/close", ""},
        {"10 MB", "/large", large_body()},
        {"after a while", "/slow", "hello\n"},
    };
    with_server([&kCases](const HttpServer& server) {
        for (const Case& c : kCases) {
            SCOPED_TRACE(c.why);
            const std::string path = temp_file("what was there before");
            EXPECT_EQ(getUrl(path.c_str(), url_of(server, c.path).c_str()), 1);
            EXPECT_TRUE(file_text(path) == c.body) << file_text(path).substr(0, 100);
        }
        const std::string requests = requests_of(server);
        EXPECT_EQ(requests.find("GET /200 "), requests.rfind("GET /200 ")) << "not asked for twice";
    });
}

TEST(GetUrl, SendsNoHeadersButTheDefaultOnes) {
    with_server([](const HttpServer& server) {
        const std::string path = absent_file();
        EXPECT_EQ(getUrl(path.c_str(), url_of(server, "/200?a=1&b=%20c").c_str()), 1);
        EXPECT_EQ(requests_of(server), "GET /200?a=1&b=%20c HTTP/1.1\r\nHost: 127.0.0.1:" +
                                           std::to_string(server.port) + "\r\nAccept: */*\r\n\r\n");
    });
}

TEST(GetUrl, ADownloadThatFailsLeavesAnEmptyFile) {
    run_in_namespace(CLONE_NEWNET, [] {
        ASSERT_TRUE(run({"ip", "link", "set", "lo", "up"}));
        const std::string nobody = "http://127.0.0.1:" + std::to_string(unused_port()) + "/";
        struct Case {
            const char* why;
            std::string url;
        };
        const Case kCases[] = {
            {"nobody listens", nobody},
            {"a name that does not resolve", "http://nowhere.invalid/x"},
            {"a network that is not reachable", "http://192.0.2.1/x"},
            {"a protocol that does not exist", "nosuch://127.0.0.1/x"},
            {"no URL", ""},
            {"a URL with a blank", "http://127.0.0.1/a b"},
        };
        for (const Case& c : kCases) {
            SCOPED_TRACE(c.why);
            const std::string path = temp_file("what was there before");
            EXPECT_EQ(getUrl(path.c_str(), c.url.c_str()), 1) << "it was tried";
            EXPECT_EQ(file_text(path), "");
        }
    });
}

TEST(GetUrl, FailsWhereTheFileCannotBeCreated) {
    with_server([](const HttpServer& server) {
        const std::string url = url_of(server, "/200");
        EXPECT_EQ(getUrl((absent_file() + "/in/no/folder").c_str(), url.c_str()), 0);
        EXPECT_EQ(getUrl(scratch_dir().c_str(), url.c_str()), 0) << "a folder";
        const std::string victim = temp_file("precious");
        const std::string link = absent_file();
        ASSERT_EQ(symlink(victim.c_str(), link.c_str()), 0);
        EXPECT_EQ(getUrl(link.c_str(), url.c_str()), 0) << "a symbolic link";
        EXPECT_EQ(file_text(victim), "precious");
        EXPECT_EQ(requests_of(server), "") << "nothing is asked for";
    });
}

TEST(GetUrl, ClosesTheFileAndTheConnection) {
    with_server([](const HttpServer& server) {
        const std::string path = absent_file();
        const rlimit few{32, 32};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
        for (int i = 0; i < 40; ++i)
            ASSERT_EQ(getUrl(path.c_str(), url_of(server, "/200").c_str()), 1);
        EXPECT_EQ(file_text(path), "hello\n");
    });
}

TEST(GetUrl, GoesThroughTheProxyOfTheEnvironment) {
    with_server([](const HttpServer& server) {
        setenv("http_proxy", url_of(server, "").c_str(), 1);
        const std::string path = absent_file();
        EXPECT_EQ(getUrl(path.c_str(), "http://elsewhere.example/x"), 1);
        EXPECT_EQ(requests_of(server).find("GET http://elsewhere.example/x HTTP/1.1\r\n"), 0u)
            << "no option says otherwise";
    });
}

// Whether libcurl knows https: not where it is built without any TLS library. It stays loaded.
static bool curl_has_tls() {
    void* curl = dlopen("libcurl.so.4", RTLD_LAZY);
    auto* info =
        curl ? reinterpret_cast<decltype(&curl_version_info)>(dlsym(curl, "curl_version_info"))
             : nullptr;
    return info && (info(CURLVERSION_NOW)->features & CURL_VERSION_SSL) != 0;
}

TEST(GetUrl, TrustsEveryCertificate) {
    if (!run({"sh", "-c", "command -v openssl >/dev/null"})) GTEST_SKIP() << "no openssl here";
    run_apart([] {
        if (!curl_has_tls()) GTEST_SKIP() << "this libcurl has no TLS";
        const std::string dir = absent_file();
        ASSERT_EQ(mkdir(dir.c_str(), 0700), 0);
        ASSERT_EQ(chdir(dir.c_str()), 0);
        write_file("answer", "secret\n");
        // Signed by itself, and for another host.
        ASSERT_TRUE(
            run({"sh", "-c",
                 "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes "
                 "-keyout key -out cert -days 30 -subj /CN=elsewhere.example 2>/dev/null"}));
        const std::string address = "127.0.0.1:" + std::to_string(unused_port());
        fflush(nullptr);
        const pid_t server = fork();
        if (server == 0) {
            const int quiet = open("/dev/null", O_RDWR | O_CLOEXEC);
            dup2(quiet, STDIN_FILENO);
            dup2(quiet, STDOUT_FILENO);
            dup2(quiet, STDERR_FILENO);
            execlp("openssl", "openssl", "s_server", "-accept", address.c_str(), "-key", "key",
                   "-cert", "cert", "-WWW", static_cast<char*>(nullptr));
            _exit(127);
        }
        const std::string path = absent_file();
        const std::string url = "https://" + address + "/answer";
        EXPECT_TRUE(wait_until([&] {
            EXPECT_EQ(getUrl(path.c_str(), url.c_str()), 1);
            return file_text(path) == "secret\n";
        }));
        kill(server, SIGKILL);
        waitpid(server, nullptr, 0);
    });
}

TEST(GetUrl, FailsWithoutLibcurl) {
    run_in_namespace(CLONE_NEWNS, [] {
        // A root without any library.
        const std::string root = absent_file();
        ASSERT_EQ(mkdir(root.c_str(), 0700), 0);
        ASSERT_EQ(chroot(root.c_str()), 0);
        ASSERT_EQ(chdir("/"), 0);
        ASSERT_EQ(cpectl_log_init("/log"), 0);
        EXPECT_EQ(getUrl("/file", "http://127.0.0.1/x"), 0);
        EXPECT_EQ(file_text("/file"), "") << "it was created before";
        EXPECT_NE(file_text("/log").find("libcurl.so.4"), std::string::npos);
    });
}

// ---- The calls that a download makes

namespace {

struct FakeCurl {
    char* calls;
    int* init_fails;
    int* result;
};

// Puts the tests' own libcurl into the process.
FakeCurl fake_curl_load() {
    void* library = dlopen(FAKE_CURL, RTLD_NOW | RTLD_GLOBAL);
    EXPECT_NE(library, nullptr) << dlerror();
    return {static_cast<char*>(dlsym(library, "fake_curl_calls")),
            static_cast<int*>(dlsym(library, "fake_curl_init_fails")),
            static_cast<int*>(dlsym(library, "fake_curl_result"))};
}

constexpr char kCallsBefore[] =
    "list Accept: Agent-007\n"
    "init\n";
constexpr char kCallsOfATransfer[] =
    "URL http://x/\n"
    "SSL_VERIFYPEER 0\n"
    "SSL_VERIFYHOST 0\n"
    "WRITEDATA open\n"
    "perform\n";

}  // namespace

TEST(GetUrl, SetsTheseOptionsInThisOrder) {
    run_apart([] {
        const FakeCurl curl = fake_curl_load();
        const std::string path = absent_file();
        EXPECT_EQ(getUrl(path.c_str(), "http://x/"), 1);
        EXPECT_EQ(std::string(curl.calls),
                  std::string(kCallsBefore) + kCallsOfATransfer + "cleanup\n")
            << "the header list is neither attached nor freed";
        EXPECT_EQ(file_text(path), "body") << "the file was closed";
    });
}

TEST(GetUrl, FreesTheHeaderListAfterAFailure) {
    run_apart([] {
        const FakeCurl curl = fake_curl_load();
        *curl.result = 7;
        EXPECT_EQ(getUrl(absent_file().c_str(), "http://x/"), 1);
        EXPECT_EQ(std::string(curl.calls),
                  std::string(kCallsBefore) + kCallsOfATransfer + "free list\ncleanup\n");
    });
}

TEST(GetUrl, FailsWhenNoSessionStarts) {
    run_apart([] {
        const FakeCurl curl = fake_curl_load();
        *curl.init_fails = 1;
        const std::string path = temp_file("what was there before");
        EXPECT_EQ(getUrl(path.c_str(), "http://x/"), 0);
        EXPECT_EQ(std::string(curl.calls), kCallsBefore);
        EXPECT_EQ(file_text(path), "") << "it was emptied before";
    });
}

// ---- Uploads

TEST(CurlPostFile, RunsTheDevicesCurl) {
    struct Case {
        const char* why;
        const char* url;
        const char* path;
        const char* command;
    };
    constexpr Case kCases[] = {
        {"harmless values stand as they are", "http://server:8080/up-load", "/disk/conf/ipsec.cfg",
         "curl http://server:8080/up-load -F \"file=@/disk/conf/ipsec.cfg\" >/dev/null 2>&1 &"},
        {"a URL with live characters is one word", "http://server/?a=1&b=2 c;$(reboot)", "/f",
         "curl 'http://server/?a=1&b=2 c;$(reboot)' -F \"file=@/f\" >/dev/null 2>&1 &"},
        {"a quote in the URL", "http://server/it's", "/f",
         "curl 'http://server/it'\\''s' -F \"file=@/f\" >/dev/null 2>&1 &"},
        {"a path with a blank", "http://s/", "/a b",
         "curl http://s/ -F \"file=@/a b\" >/dev/null 2>&1 &"},
        {"live characters in the path", "http://s/", "/a\"$`\\b",
         "curl http://s/ -F \"file=@/a\\\"\\$\\`\\\\b\" >/dev/null 2>&1 &"},
        {"an empty URL", "", "/f", "curl  -F \"file=@/f\" >/dev/null 2>&1 &"},
        {"a hyphen inside the URL", "a-b", "/f", "curl a-b -F \"file=@/f\" >/dev/null 2>&1 &"},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        run_apart([&c] {
            EXPECT_EQ(curl_post_file(c.url, c.path), 0);
            EXPECT_EQ(g_commands, Texts{c.command});
        });
    }
}

TEST(CurlPostFile, TakesNoOptionForAUrl) {
    for (const char* url : {"-", "-K/tmp/x", "--version", "-o /etc/passwd http://x/"}) {
        SCOPED_TRACE(url);
        run_apart([url] {
            EXPECT_EQ(curl_post_file(url, "/f"), 0);
            EXPECT_EQ(g_commands, Texts{});
        });
    }
}

TEST(CurlPostFile, RunsNoCommandThatDoesNotFit) {
    struct Case {
        const char* why;
        std::size_t length;  // of the command
        bool run;
    };
    constexpr Case kCases[] = {
        {"one below the room", 1022, true},
        {"the room", 1023, true},
        {"one too many", 1024, false},
        {"far beyond", 100000, false},
    };
    const std::size_t rest = strlen("curl  -F \"file=@/f\" >/dev/null 2>&1 &");
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        run_apart([&c, rest] {
            const std::string url = repeat(c.length - rest, 'u');
            EXPECT_EQ(curl_post_file(url.c_str(), "/f"), 0);
            ASSERT_EQ(g_commands.size(), c.run ? 1u : 0u);
            for (const std::string& command : g_commands)
                EXPECT_EQ(command.size(), c.length);
        });
    }
}

TEST(CurlPostFile, SaysNothingOfAFailure) {
    run_apart([] {
        g_command_result = -1;
        EXPECT_EQ(curl_post_file("http://x/", "/f"), 0);
        g_command_result = 127 << 8;
        EXPECT_EQ(curl_post_file("http://x/", "/f"), 0);
    });
}

TEST(CurlPostFile, SendsTheFileAsTheFormFieldFile) {
    if (!run({"sh", "-c", "command -v curl >/dev/null"})) GTEST_SKIP() << "no curl here";
    with_server([](const HttpServer& server) {
        g_run_commands = true;
        std::string content = "tun1 a\n";
        for (int byte = 0; byte < 256; ++byte)
            content += static_cast<char>(byte);
        const std::string path = temp_file(content);
        EXPECT_EQ(curl_post_file(url_of(server, "/up?a=1&b=2;c").c_str(), path.c_str()), 0);
        EXPECT_TRUE(
            wait_until([&] { return requests_of(server).find("--\r\n") != std::string::npos; }));
        const std::string request = requests_of(server);
        const std::string name = path.substr(path.rfind('/') + 1);
        EXPECT_EQ(request.find("POST /up?a=1&b=2;c HTTP/1.1\r\n"), 0u) << request;
        EXPECT_NE(request.find("Content-Type: multipart/form-data"), std::string::npos) << request;
        EXPECT_NE(request.find("Content-Disposition: form-data; name=\"file\"; filename=\"" + name +
                               "\"\r\n"),
                  std::string::npos)
            << request;
        EXPECT_NE(request.find("\r\n\r\n" + content + "\r\n--"), std::string::npos) << request;
    });
}

TEST(CurlPostFile, WaitsForNobody) {
    if (!run({"sh", "-c", "command -v curl >/dev/null"})) GTEST_SKIP() << "no curl here";
    with_server([](const HttpServer& server) {
        g_run_commands = true;
        EXPECT_EQ(curl_post_file(url_of(server, "/hang").c_str(), temp_file("x").c_str()), 0);
        EXPECT_TRUE(wait_until([&] { return !requests_of(server).empty(); })) << "it was sent";
        EXPECT_EQ(
            curl_post_file(("http://127.0.0.1:" + std::to_string(unused_port())).c_str(), "/f"), 0);
    });
}

// ---- JSON files

namespace {

constexpr useconds_t kMissing = 300000;  // microseconds after an attempt that could not be opened
constexpr useconds_t kBad = 500000;      // and after one that did not parse

enum class Outcome { tree, fopen_error, parse_error };

// What each attempt finds: M no file, B a file that does not parse, G a good one.
struct RetryCase {
    const char* why;
    const char* attempts;
    std::vector<useconds_t> pauses;
    Outcome outcome;
};
const RetryCase kRetryCases[] = {
    {"good at once", "G", {}, Outcome::tree},
    {"missing four times", "MMMM", {kMissing, kMissing, kMissing}, Outcome::fopen_error},
    {"bad three times", "BBB", {kBad, kBad}, Outcome::parse_error},
    {"there at the second attempt", "MG", {kMissing}, Outcome::tree},
    {"there at the last attempt", "MMMG", {kMissing, kMissing, kMissing}, Outcome::tree},
    {"good at the second attempt", "BG", {kBad}, Outcome::tree},
    {"good at the last attempt", "BBG", {kBad, kBad}, Outcome::tree},
    {"a missing file counts against the bad ones", "MBB", {kMissing, kBad}, Outcome::parse_error},
    {"two missing ones leave one bad one", "MMB", {kMissing, kMissing}, Outcome::parse_error},
    {"three missing ones as well", "MMMB", {kMissing, kMissing, kMissing}, Outcome::parse_error},
    {"a bad file counts against the missing ones",
     "BMMM",
     {kBad, kMissing, kMissing},
     Outcome::fopen_error},
    {"two bad ones too", "BBMM", {kBad, kBad, kMissing}, Outcome::fopen_error},
    {"in turns", "BMB", {kBad, kMissing}, Outcome::parse_error},
    {"in turns, good in the end", "BMG", {kBad, kMissing}, Outcome::tree},
    {"gone and back", "BBMG", {kBad, kBad, kMissing}, Outcome::tree},
};

// Makes the file what the attempt has to find.
void prepare_attempt(const std::string& path, char what) {
    if (what == 'M') {
        unlink(path.c_str());
    } else {
        write_file(path, what == 'G' ? "{\"version\":7}" : "{\"version\":");
    }
}

}  // namespace

TEST(ParseFile, TriesAgain) {
    for (const RetryCase& c : kRetryCases) {
        SCOPED_TRACE(std::string(c.why) + ": " + c.attempts);
        run_apart([&c] {
            const std::string path = absent_file(), log = absent_file();
            ASSERT_EQ(cpectl_log_init(log.c_str()), 0);
            std::size_t attempt = 0;
            prepare_attempt(path, c.attempts[0]);
            g_pass_time = [&] {
                ASSERT_LT(++attempt, strlen(c.attempts)) << "one attempt too many";
                prepare_attempt(path, c.attempts[attempt]);
            };
            const cJSON* tree = cJSON_Parse_File(path.c_str());
            EXPECT_EQ(tree != nullptr, c.outcome == Outcome::tree);
            if (tree) {
                EXPECT_EQ(cJSON_GetObjectItem(tree, "version")->valueint, 7);
            }
            EXPECT_EQ(g_pauses, c.pauses);
            const std::string expected =
                c.outcome == Outcome::fopen_error   ? "fopen " + path + " erro\n\n"
                : c.outcome == Outcome::parse_error ? "cJSON_Parse  erro\n\n"
                                                    : "";
            EXPECT_EQ(log_messages(log), expected);
        });
    }
}

TEST(ParseFile, TakesNearlyASecondToGiveUp) {
    run_apart([] {
        const double start = seconds_now();
        EXPECT_EQ(cJSON_Parse_File(absent_file().c_str()), nullptr);
        const double middle = seconds_now();
        EXPECT_GE(middle - start, 0.9);
        EXPECT_EQ(cJSON_Parse_File(temp_file("oops").c_str()), nullptr);
        EXPECT_GE(seconds_now() - middle, 1.0);
    });
}

TEST(ParseFile, ParsesWhatTheFileHolds) {
    struct Case {
        const char* why;
        std::string content;
        const char* printed;  // null: it does not parse
    };
    const Case kCases[] = {
        {"an object", "{\"a\":1}", "{\"a\":1}"},
        {"blanks and newlines around it", "\n {\"a\" : 1}\r\n", "{\"a\":1}"},
        {"an array", "[1,2]", "[1,2]"},
        {"a number", "5", "5"},
        {"null", "null", "null"},
        {"UTF-8", "{\"n\":\"caf\xC3\xA9\"}", "{\"n\":\"caf\xC3\xA9\"}"},
        {"a byte order mark", "\xEF\xBB\xBF{}", "{}"},
        {"an empty file", "", nullptr},
        {"only blanks", "  \n", nullptr},
        {"text", "oops", nullptr},
        {"half an object", "{\"a\":1", nullptr},
        {"a web page", "<html></html>", nullptr},
        {"NUL at the start", std::string("\0{}", 3), nullptr},
        {"NUL behind the object", std::string("{}\0oops", 7), "{}"},
        {"1001 levels", repeat(1001, '[') + repeat(1001, ']'), nullptr},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        run_apart([&c] {
            g_pass_time = [] {};
            const cJSON* tree = cJSON_Parse_File(temp_file(c.content).c_str());
            ASSERT_EQ(tree != nullptr, c.printed != nullptr);
            if (tree) {
                EXPECT_STREQ(cJSON_PrintUnformatted(tree), c.printed);
            }
            EXPECT_EQ(g_pauses.size(), c.printed ? 0u : 2u);
        });
    }
}

TEST(ParseFile, ReadsALargeFileWhole) {
    run_apart([] {
        std::string content = "[";
        for (int i = 0; i < 500000; ++i)
            content += "\"123456\",";
        content += "\"last\"]";
        const cJSON* tree = cJSON_Parse_File(temp_file(content).c_str());
        ASSERT_NE(tree, nullptr);
        EXPECT_STREQ(cJSON_GetArrayItem(tree, 500000)->valuestring, "last");
    });
}

TEST(ParseFile, GivesUpAtOnceWithoutMemory) {
    run_apart([] {
        const std::string path = temp_file(repeat(54320, ' ') + "{}"), log = absent_file();
        ASSERT_EQ(cpectl_log_init(log.c_str()), 0);
        g_refused_size = 54323;  // the size of the file and one
        EXPECT_EQ(cJSON_Parse_File(path.c_str()), nullptr);
        EXPECT_EQ(log_messages(log), "malloc erro\n\n");
        EXPECT_TRUE(g_pauses.empty());
    });
}

TEST(ParseFile, GivesUpAtOnceOnAFolder) {
    run_apart([] {
        const std::string log = absent_file();
        ASSERT_EQ(cpectl_log_init(log.c_str()), 0);
        EXPECT_EQ(cJSON_Parse_File(scratch_dir().c_str()), nullptr) << "it opens, but has no size";
        EXPECT_EQ(log_messages(log), "malloc erro\n\n");
        EXPECT_TRUE(g_pauses.empty());
    });
}

TEST(ParseFile, LogsAtLevelThree) {
    for (const int lowest : {3, 4}) {
        run_apart([lowest] {
            const std::string log = absent_file();
            ASSERT_EQ(cpectl_log_init(log.c_str()), 0);
            cpectl_runtimedebug_level = lowest;
            g_pass_time = [] {};
            parse_file_to_Json(absent_file().c_str());
            parse_file_to_Json(temp_file("").c_str());
            const std::string path = temp_file(repeat(54320, ' '));
            g_refused_size = 54321;
            cJSON_Parse_File(path.c_str());
            const std::string records = file_text(log);
            EXPECT_EQ(std::count(records.begin(), records.end(), '\n'), lowest == 3 ? 10 : 0);
        });
    }
}

TEST(ParseFile, ClosesTheFile) {
    run_apart([] {
        const rlimit few{32, 32};
        const std::string good = temp_file("{}"), bad = temp_file("{");
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
        g_pass_time = [] {};
        for (int i = 0; i < 40; ++i) {
            ASSERT_EQ(parse_file_to_Json(bad.c_str()), nullptr);
            ASSERT_NE(parse_file_to_Json(good.c_str()), nullptr);
        }
    });
}

TEST(ParseFile, PrintsNothing) {
    run_apart([] {
        const std::string bad = temp_file("{");
        g_pass_time = [] {};
        EXPECT_EQ(printed_by([&bad] {
                      parse_file_to_Json(bad.c_str());
                      parse_file_to_Json(absent_file().c_str());
                  }),
                  "");
    });
}

TEST(ParseFile, ANullPathIsNoFile) {
    run_apart([] {
        const std::string log = absent_file();
        ASSERT_EQ(cpectl_log_init(log.c_str()), 0);
        EXPECT_EQ(cJSON_Parse_File(nullptr), nullptr);
        EXPECT_EQ(parse_file_to_Json(nullptr), nullptr);
        EXPECT_EQ(file_text(log), "");
        EXPECT_TRUE(g_pauses.empty());
    });
}

TEST(ParseFileToJson, LogsWhereItWentWrong) {
    struct Case {
        const char* why;
        const char* content;  // null: no file
        const char* messages;
    };
    constexpr Case kCases[] = {
        {"a good file", "{\"a\":1}", ""},
        {"in the middle", "[1,oops]", "cJSON_Parse  erro\n\nParse fail ! : [oops]]\n\n"},
        {"at the start", "oops", "cJSON_Parse  erro\n\nParse fail ! : [oops]\n\n"},
        {"an empty file", "", "cJSON_Parse  erro\n\nParse fail ! : []\n\n"},
        {"no file", nullptr, "fopen PATH erro\n\nParse fail ! : [(null)]\n\n"},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        run_apart([&c] {
            const std::string log = absent_file();
            const std::string path = c.content ? temp_file(c.content) : absent_file();
            ASSERT_EQ(cpectl_log_init(log.c_str()), 0);
            g_pass_time = [] {};
            const cJSON* tree = parse_file_to_Json(path.c_str());
            std::string expected = c.messages;
            if (expected.find("PATH") != std::string::npos)
                expected.replace(expected.find("PATH"), 4, path);
            EXPECT_EQ(tree != nullptr, expected.empty());
            EXPECT_EQ(log_messages(log), expected);
        });
    }
}
