// Replies and arguments: what a handler reads from a request, and what its answer looks like.
#include "tools/reply.h"

#include <cjson/cJSON.h>

#include <array>
#include <cstdlib>
#include <limits>
#include <map>
#include <string>

#include "log/log.h"
#include "nvram.h"
#include "support.h"

namespace {

std::map<std::string, std::string> g_nvram;

std::string printed(const cJSON* object) {
    char* text = cJSON_PrintUnformatted(object);
    const std::string copy = text ? text : "(nothing)";
    cJSON_free(text);
    return copy;
}

// The messages of a log, one to a line.
std::string messages_in(const std::string& path) {
    std::string messages;
    const std::string text = file_text(path);
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = text.find('\n', at);
        messages += text.substr(at + 26, end - at - 26) + "\n";
        at = end + 1;
    }
    return messages;
}

int g_allocations_left = 0;

void* allocate_some(std::size_t size) {
    return g_allocations_left-- > 0 ? malloc(size) : nullptr;
}

// Lets the JSON library allocate so many times more, and then never again.
void allow_allocations(int count) {
    g_allocations_left = count;
    cJSON_Hooks hooks = {allocate_some, free};
    cJSON_InitHooks(&hooks);
}

}  // namespace

char* nvram_get(const char* name) {
    const auto found = g_nvram.find(name);
    return found == g_nvram.end() ? nullptr : found->second.data();
}

TEST(Arguments, AreTextsByName) {
    struct Case {
        const char* why;
        const char* args;  // null: no argument object
        const char* text;
        const char* filled;
    };
    constexpr Case kCases[] = {
        {"given", R"({"devNm":"office"})", "office", "office"},
        {"among others", R"({"a":1,"devNm":"office","b":2})", "office", "office"},
        {"the first of two", R"({"devNm":"office","devNm":"home"})", "office", "office"},
        {"without regard to case", R"({"DEVnm":"office"})", "office", "office"},
        {"empty", R"({"devNm":""})", "", nullptr},
        {"a blank is not empty", R"({"devNm":" "})", " ", " "},
        {"escaped", R"({"devNm":"a\"b\u00e9"})", "a\"b\xC3\xA9", "a\"b\xC3\xA9"},
        {"no argument object", nullptr, nullptr, nullptr},
        {"no member", "{}", nullptr, nullptr},
        {"another member", R"({"dev":"office"})", nullptr, nullptr},
        {"a number", R"({"devNm":5})", nullptr, nullptr},
        {"null", R"({"devNm":null})", nullptr, nullptr},
        {"true", R"({"devNm":true})", nullptr, nullptr},
        {"an object", R"({"devNm":{"devNm":"office"}})", nullptr, nullptr},
        {"an array", R"({"devNm":["office"]})", nullptr, nullptr},
        {"an array for arguments", R"(["office"])", nullptr, nullptr},
        {"a text for arguments", R"("devNm")", nullptr, nullptr},
        {"a number for arguments", "5", nullptr, nullptr},
        {"null for arguments", "null", nullptr, nullptr},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        cJSON* args = c.args ? cJSON_Parse(c.args) : nullptr;
        ASSERT_EQ(args != nullptr, c.args != nullptr);
        EXPECT_STREQ(arg_text(args, "devNm"), c.text);
        EXPECT_STREQ(arg_filled(args, "devNm"), c.filled);
        cJSON_Delete(args);
    }
}

TEST(Reply, NamesItsFunctionFirstAndItsStateSecond) {
    cJSON* reply = reply_new("devNmSet");
    EXPECT_EQ(printed(reply), R"({"fun":"devNmSet"})");
    EXPECT_EQ(reply_stat(reply, "ok"), reply);
    EXPECT_EQ(printed(reply), R"({"fun":"devNmSet","stat":"ok"})");
    EXPECT_TRUE(reply_is_whole());
    cJSON_Delete(reply);
}

TEST(Reply, KeepsTheOrderOfItsMembers) {
    cJSON* reply = reply_new("x");
    reply_stat(reply, "er");
    add_number(reply, "z", 1);
    add_text(reply, "b", "\"quoted\" \n\xC3\xA9");
    cJSON* cbk = cJSON_CreateObject();
    add_number(cbk, "half", 0.5);
    add_number(cbk, "most", 4294967295.0);
    add_item(reply, "cbk", cbk);
    add_text(reply, "a", "");
    EXPECT_EQ(printed(reply), R"({"fun":"x","stat":"er","z":1,"b":"\"quoted\" \n)"
                              "\xC3\xA9"
                              R"(","cbk":{"half":0.5,"most":4294967295},"a":""})");
    cJSON_Delete(reply);
}

TEST(Reply, PrintsNumbersAsTheJsonLibraryDoes) {
    constexpr double kNumbers[] = {
        0,
        -0.0,
        1,
        -1,
        9,
        10,
        -1234567890,
        2147483648.0,
        1e9,
        1e14,
        999999999999999.0,
        -999999999999999.0,
        1e15,
        -1e15,
        1e16,
        1e300,
        0.5,
        -0.25,
        20.5,
        1e-7,
        1e9 + 0.5,
        std::numeric_limits<double>::max(),
        std::numeric_limits<double>::infinity(),
        std::numeric_limits<double>::quiet_NaN(),
    };
    for (const double number : kNumbers) {
        SCOPED_TRACE(number);
        cJSON* ours = cJSON_CreateObject();
        cJSON* theirs = cJSON_CreateObject();
        add_number(ours, "n", number);
        cJSON_AddItemToObject(theirs, "n", cJSON_CreateNumber(number));
        EXPECT_EQ(printed(ours), printed(theirs));
        cJSON_Delete(ours);
        cJSON_Delete(theirs);
    }
}

TEST(Reply, AddsAMemberForEachField) {
    constexpr TextField kFields[] = {
        {"lanIp", "LAN_IP"},
        {"lanNetmask", "LAN_NETMASK"},
        {"lanName", "LAN_NAME"},
    };
    g_nvram = {{"LAN_IP", "192.168.5.1"}, {"LAN_NAME", ""}};
    cJSON* cbk = cJSON_CreateObject();
    add_fields(cbk, kFields);
    EXPECT_EQ(printed(cbk), R"({"lanIp":"192.168.5.1","lanNetmask":"","lanName":""})");
    add_fields(cbk, {});
    EXPECT_EQ(cJSON_GetArraySize(cbk), 3);
    cJSON_Delete(cbk);
}

TEST(Reply, ALostOneIsLoggedInItsOwnWording) {
    run_apart([] {
        const std::string path = absent_file();
        ASSERT_EQ(cpectl_log_init(path.c_str()), 0);
        EXPECT_EQ(reply_lost("cpectl_reboot", Lost::plain), nullptr);
        EXPECT_EQ(reply_lost("cpectl_devname_set", Lost::spaced), nullptr);
        EXPECT_EQ(messages_in(path),
                  "Fail to create json respond for function:cpectl_reboot call\n"
                  "Fail to create json respond for function: cpectl_devname_set call\n");
        const std::string before = file_text(path);
        cpectl_runtimedebug_level = 4;
        reply_lost("cpectl_reboot", Lost::plain);
        EXPECT_EQ(file_text(path), before);
        cpectl_runtimedebug_level = 3;
        reply_lost("cpectl_reboot", Lost::plain);
        EXPECT_NE(file_text(path), before) << "level 3";
    });
}

TEST(Reply, IsNotWholeWithoutAMember) {
    struct Case {
        const char* why;
        void (*add)(cJSON* object);
    };
    constexpr Case kCases[] = {
        {"a text", [](cJSON* object) { add_text(object, "a", "b"); }},
        {"a number", [](cJSON* object) { add_number(object, "a", 1); }},
        {"the state", [](cJSON* object) { reply_stat(object, "ok"); }},
        {"a field",
         [](cJSON* object) {
             add_fields(object, std::array{TextField{"a", "A"}});
         }},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        run_apart([&c] {
            cJSON* object = cJSON_CreateObject();
            c.add(object);
            EXPECT_TRUE(reply_is_whole());
            allow_allocations(0);
            c.add(object);
            EXPECT_FALSE(reply_is_whole());
        });
    }
    run_apart([] {
        cJSON* object = cJSON_CreateObject();
        add_item(object, "a", nullptr);
        EXPECT_FALSE(reply_is_whole()) << "what could not be created cannot be added";
    });
}

TEST(Reply, EachLostAllocationOfANewOneIsNoticed) {
    bool done = false;
    for (int allocations = 0; allocations < 20 && !done; ++allocations) {
        SCOPED_TRACE(allocations);
        const std::string result = temp_file("");
        run_apart([&] {
            allow_allocations(allocations);
            cJSON* reply = reply_new("devNmSet");
            if (reply && reply_is_whole()) {
                allow_allocations(1000);
                EXPECT_EQ(printed(reply), R"({"fun":"devNmSet"})");
                write_file(result, "done");
            }
        });
        done = file_text(result) == "done";
    }
    EXPECT_TRUE(done);
}

TEST(Reply, ShowsWhereAJsonTextWentWrong) {
    run_apart([] {
        EXPECT_STREQ(json_error_text(), "(null)");
        const char* text = "[1,oops]";
        EXPECT_EQ(cJSON_Parse(text), nullptr);
        EXPECT_STREQ(json_error_text(), "oops]");
    });
}

TEST(YesOrNo, AnswersByTheFirstThreeLetters) {
    struct Case {
        const char* why;
        const char* text;
        const char* answer;
    };
    constexpr Case kCases[] = {
        {"yes", "YES", "YES"},
        {"more than yes", "YES, please", "YES"},
        {"no", "NO", "NO"},
        {"nothing", "", "NO"},
        {"less than yes", "YE", "NO"},
        {"case counts", "yes", "NO"},
        {"not at the start", " YES", "NO"},
        {"a switch of another kind", "1", "NO"},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        EXPECT_STREQ(yes_or_no(c.text), c.answer);
    }
}
