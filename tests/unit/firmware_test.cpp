// Firmware: how an offer fills its fields, and what a check logs and waits for when there is none.
#include "platform/firmware.h"

#include <cjson/cJSON.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "log/log.h"
#include "mvram.h"
#include "nvram.h"
#include "platform/handlers.h"
#include "support.h"

extern "C" {
int __wrap_system(const char* command);
FILE* __wrap_popen(const char* command, const char* mode);
int __wrap_pclose(FILE* stream);
int __wrap_usleep(useconds_t microseconds);
int __wrap__Z6getUrlPKcS0_(const char* path, const char* url);
}

namespace {

using Texts = std::vector<std::string>;

Texts g_done;                      // what a check did, in order
std::vector<useconds_t> g_pauses;  // how long it waited
int g_transfer = 1;                // what a download gives
const char* g_brought = nullptr;   // and brings; null: no file

// The answer of a check server with these members of "msg", as JSON text behind each other.
std::string answer_with(const std::string& members) {
    return "{\"msg\":{" + members + "}}";
}

const std::string kWhole = R"("path":"http://h/a/b.bin","textNotes":"n","md5":"5","type":"t")";

// What get_push_info() gives for an answer, in a buffer of this size full of '#'.
struct Filled {
    int result;
    std::string bytes;
};
Filled fill(const std::string& answer, std::size_t size) {
    std::string bytes(size + 1, '#');
    cJSON* tree = cJSON_Parse(answer.c_str());
    EXPECT_NE(tree, nullptr) << answer;
    const int result = get_push_info(tree, std::span(bytes.data(), size));
    cJSON_Delete(tree);
    EXPECT_EQ(bytes.back(), '#') << "written beyond the end";
    bytes.pop_back();
    return {result, bytes};
}

}  // namespace

extern "C" {

char* nvram_get(const char* name) {
    g_done.push_back(std::string("nvram_get ") + name);
    return nullptr;
}

char* mvram_get(const char*) {
    return nullptr;
}

int mvram_set(const char* name, const char* value) {
    g_done.push_back(std::string(name) + "=" + value);
    return 0;
}

int __wrap_system(const char* command) {
    g_done.emplace_back(command);
    return 0;
}

FILE* __wrap_popen(const char* command, const char*) {
    g_done.emplace_back(command);
    return tmpfile();
}

int __wrap_pclose(FILE* stream) {
    return fclose(stream);
}

int __wrap_usleep(useconds_t microseconds) {
    g_pauses.push_back(microseconds);
    return 0;
}

int __wrap__Z6getUrlPKcS0_(const char* path, const char* url) {
    g_done.push_back(std::string("get ") + path + " " + url);
    if (g_brought) write_file(path, g_brought);
    return g_transfer;
}

}  // extern "C"

// ---- The fields of an offer ---------------------------------------------------------------------

TEST(GetPushInfo, FillsTheFieldsAndZeroesTheRest) {
    const Filled filled = fill(answer_with(kWhole), sizeof(PushInfo) + 50);
    EXPECT_EQ(filled.result, 0);
    std::string expected(sizeof(PushInfo) + 50, '\0');
    expected.replace(offsetof(PushInfo, path), 16, "http://h/a/b.bin");
    expected.replace(offsetof(PushInfo, name), 5, "b.bin");
    expected.replace(offsetof(PushInfo, notes), 1, "n");
    expected.replace(offsetof(PushInfo, md5), 1, "5");
    expected.replace(offsetof(PushInfo, type), 1, "t");
    EXPECT_TRUE(filled.bytes == expected);
}

TEST(GetPushInfo, WritesNothingBeyondItsRoom) {
    const std::string type = R"("path":"/b","textNotes":"n","md5":"5","type":")";
    const Filled filled = fill(answer_with(type + repeat(5000, 'x') + "\""), sizeof(PushInfo));
    EXPECT_EQ(filled.result, 0);
    EXPECT_EQ(filled.bytes.substr(offsetof(PushInfo, type)), repeat(9, 'x') + '\0');
}

TEST(GetPushInfo, NeedsEachMemberAsText) {
    struct Case {
        const char* why;
        std::string answer;
        std::string log;
        std::string path;  // as far as it came
    };
    const Case kCases[] = {
        {"no msg", R"({"message":{}})", "root erro\n\n", ""},
        {"an array has no msg", "[]", "root erro\n\n", ""},
        {"msg is a text", R"({"msg":"path"})", "", ""},
        {"msg is null", R"({"msg":null})", "", ""},
        {"nothing in msg", answer_with(""), "", ""},
        {"no path", answer_with(R"("textNotes":"n","md5":"5","type":"t")"), "", ""},
        {"a path that is a number", answer_with(R"("path":1,"textNotes":"n","md5":"5","type":"t")"),
         "", ""},
        {"no notes", answer_with(R"("path":"/b","md5":"5","type":"t")"), "", "/b"},
        {"no digest", answer_with(R"("path":"/b","textNotes":"n","type":"t")"), "", "/b"},
        {"no type", answer_with(R"("path":"/b","textNotes":"n","md5":"5")"), "", "/b"},
        {"a type that is null", answer_with(R"("path":"/b","textNotes":"n","md5":"5","type":null)"),
         "", "/b"},
    };
    run_apart([&kCases] {
        for (const Case& c : kCases) {
            SCOPED_TRACE(c.why);
            const std::string log = temp_file("");
            ASSERT_EQ(cpectl_log_init(log.c_str()), 0);
            const Filled filled = fill(c.answer, sizeof(PushInfo));
            EXPECT_EQ(filled.result, -1);
            EXPECT_EQ(log_messages(log), c.log);
            EXPECT_EQ(filled.bytes.substr(0, c.path.size() + 1), c.path + '\0');
            EXPECT_EQ(filled.bytes.find('#'), std::string::npos) << "zeroed before anything else";
        }
    });
}

// ---- What a check logs --------------------------------------------------------------------------

namespace {

constexpr useconds_t kOpen = 300000;
constexpr useconds_t kParse = 500000;
const std::string kNoMsg = "root erro\n\nget push info erro\n\n";

struct CheckCase {
    const char* why;
    int transfer;
    std::string brought;
    std::string log;
    std::vector<useconds_t> pauses;
    bool taken;
};
const CheckCase kCheckCases[] = {
    {"an offer", 1, answer_with(kWhole), "", {}, true},
    {"no transfer, whatever is in the file", 0, answer_with(kWhole), "", {}, false},
    {"an empty file",
     1,
     "",
     "cJSON_Parse  erro\n\nParse fail ! : []\n\nparse push file erro\n\n",
     {kParse, kParse},
     false},
    {"no JSON",
     1,
     "[1,oops]",
     "cJSON_Parse  erro\n\nParse fail ! : [oops]]\n\nparse push file erro\n\n",
     {kParse, kParse},
     false},
    {"an offer and more text", 1, answer_with(kWhole) + " and more", "", {}, true},
    {"no msg", 1, "{}", kNoMsg, {}, false},
    {"an array", 1, "[]", kNoMsg, {}, false},
    {"a text", 1, "\"msg\"", kNoMsg, {}, false},
    {"null", 1, "null", kNoMsg, {}, false},
    {"a msg that is null", 1, R"({"msg":null})", "get push info erro\n\n", {}, false},
    {"no members", 1, answer_with(""), "get push info erro\n\n", {}, false},
};

}  // namespace

TEST(CheckOta, LogsWhatIsWrongAndAnswersNothing) {
    for (const CheckCase& c : kCheckCases) {
        SCOPED_TRACE(c.why);
        run_with_private_tmp([&c] {
            const std::string log = temp_file("");
            ASSERT_EQ(cpectl_log_init(log.c_str()), 0);
            g_transfer = c.transfer;
            g_brought = c.brought.c_str();
            EXPECT_EQ(cpectl_checkOta(0, nullptr), nullptr);
            EXPECT_EQ(log_messages(log), c.log);
            EXPECT_EQ(g_pauses, c.pauses);
            EXPECT_EQ(g_done.size(), c.taken ? 10u : 4u) << "keys are written for an offer only";
            EXPECT_EQ(file_text("/tmp/pushfile"), c.brought) << "it stays";
        });
    }
}

TEST(CheckOta, AsksBeforeItStoresAndStoresBeforeItStartsTheScript) {
    run_with_private_tmp([] {
        const std::string offer = answer_with(kWhole);
        g_brought = offer.c_str();
        EXPECT_EQ(cpectl_checkOta(0, nullptr), nullptr);
        ASSERT_EQ(g_done.size(), 10u);
        EXPECT_EQ(g_done[3].find("get /tmp/pushfile http://"), 0u) << g_done[3];
        g_done.erase(g_done.begin() + 3);
        EXPECT_EQ(g_done, (Texts{"nvram_get LAN_DEF_MAC", "nvram_get PRODUCT_TYPE",
                                 "cat /etc/router.ver | grep SW_DATE | cut -d '=' -f 2",
                                 "CLOUD_PUSH_FIRMWARE_FWADDR=http://h/a/b.bin",
                                 "CLOUD_PUSH_FIRMWARE_FWNAME=b.bin", "CLOUD_PUSH_FIRMWARE_FWDESC=n",
                                 "CLOUD_PUSH_FIRMWARE_FWMD5ADDR=5", "CLOUD_PUSH_FIRMWARE_FWTYPE=t",
                                 "/usr/sbin/pushOTA.sh get &"}));
    });
}

TEST(CheckOta, WaitsForAFileThatIsNotThere) {
    run_with_private_tmp([] {
        const std::string log = temp_file("");
        ASSERT_EQ(cpectl_log_init(log.c_str()), 0);
        EXPECT_EQ(cpectl_checkOta(0, nullptr), nullptr);
        EXPECT_EQ(
            log_messages(log),
            "fopen /tmp/pushfile erro\n\nParse fail ! : [(null)]\n\nparse push file erro\n\n");
        EXPECT_EQ(g_pauses, (std::vector<useconds_t>{kOpen, kOpen, kOpen}));
    });
}
