// Proxy: what is done all the same when there is no memory for the answer.
#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "log/log.h"
#include "nvram.h"
#include "platform/handlers.h"
#include "support.h"
#include "tools/reply.h"

extern "C" int __wrap_system(const char* command);

namespace {

std::vector<std::string> g_done;  // keys written and commands run, in order

constexpr char kStart[] = "/usr/sbin/proxy_client.sh start >/dev/null 2>&1 &";
constexpr char kStop[] = "/usr/sbin/proxy_client.sh stop >/dev/null 2>&1 &";

// Which allocation of the JSON library fails, counted from 1: 0 for none, -1 for all.
int g_fail_at = 0;
int g_allocations = 0;

void* allocate(std::size_t size) {
    const bool fails = ++g_allocations == g_fail_at || g_fail_at < 0;
    return fails ? nullptr : malloc(size);
}

// How many allocations the beginning of a reply takes.
int allocations_of_a_reply() {
    g_allocations = 0;
    cJSON_Delete(reply_new("openIntranetProxy"));
    return g_allocations;
}

struct Outcome {
    std::string answer;
    std::string log;
    std::vector<std::string> done;
};

// What a handler does with these arguments where that allocation fails; in a process of its own.
Outcome outcome(cJSON* (*handler)(std::int32_t, const cJSON*), int fail_at) {
    const std::string log = temp_file("");
    EXPECT_EQ(cpectl_log_init(log.c_str()), 0);
    const cJSON* args =
        cJSON_Parse(R"({"serverHost":"h","serverPort":"1","clientKey":"k","timeout":"9"})");
    g_done.clear();
    g_allocations = 0;
    g_fail_at = fail_at;
    const cJSON* reply = handler(0, args);
    g_fail_at = 0;
    const char* text = reply ? cJSON_PrintUnformatted(reply) : "(nothing)";
    return {text, log_messages(log), g_done};
}

void with_counted_allocations(const std::function<void()>& body) {
    run_apart([&body] {
        cJSON_Hooks hooks = {allocate, free};
        cJSON_InitHooks(&hooks);
        body();
    });
}

const std::vector<std::string> kOpened = {"PROXY_SERVER_IP=h", "PROXY_SERVER_PORT=1",
                                          "PROXY_SERVER_KEY=k", "PROXY_SERVER_TIMEOUT=9", kStart};

}  // namespace

char* nvram_get(const char*) {
    return nullptr;
}

int nvram_set(const char* name, const char* value) {
    g_done.push_back(std::string(name) + "=" + value);
    return 0;
}

int __wrap_system(const char* command) {
    g_done.emplace_back(command);
    return 0;
}

TEST(OpenIntranetProxy, AnswersWithoutAnObjectThatCannotBeMade) {
    with_counted_allocations([] {
        const int of_cbk = allocations_of_a_reply() + 1;
        const Outcome opened = outcome(cpectl_open_proxy_client, of_cbk);
        EXPECT_EQ(opened.answer, R"({"fun":"openIntranetProxy","stat":"ok"})");
        EXPECT_EQ(opened.log, "");
        EXPECT_EQ(opened.done, kOpened);
    });
}

TEST(OpenIntranetProxy, StartsTheClientWithoutAnAnswer) {
    with_counted_allocations([] {
        const Outcome opened = outcome(cpectl_open_proxy_client, 1);
        EXPECT_EQ(opened.answer, "(nothing)");
        EXPECT_EQ(opened.log, "") << "one of two objects that is missing is no failure";
        EXPECT_EQ(opened.done, kOpened);
    });
}

TEST(OpenIntranetProxy, DoesNothingWhenNeitherObjectCanBeMade) {
    with_counted_allocations([] {
        const Outcome opened = outcome(cpectl_open_proxy_client, -1);
        EXPECT_EQ(opened.answer, "(nothing)");
        EXPECT_EQ(opened.log,
                  "Fail to create json respond for function: cpectl_open_proxy_client call\n");
        EXPECT_TRUE(opened.done.empty());
    });
}

TEST(CloseIntranetProxy, StopsTheClientBeforeAnythingElse) {
    with_counted_allocations([] {
        const Outcome closed = outcome(cpectl_close_proxy_client, -1);
        EXPECT_EQ(closed.answer, "(nothing)");
        EXPECT_EQ(closed.log,
                  "Fail to create json respond for function: cpectl_close_proxy_client call\n");
        EXPECT_EQ(closed.done, std::vector<std::string>{kStop});
    });
}
