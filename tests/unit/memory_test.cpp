// Handlers without memory: each allocation of each command fails in turn, with the log open. The
// gateway around them is the one of the fuzz entry points: in memory, nothing is started.
#include <cjson/cJSON.h>

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>

#include "../fuzz/world.h"
#include "command_rows.h"
#include "log/log.h"
#include "support.h"
#include "tools/reply.h"
#include "tools/text.h"

extern "C" void* __real_calloc(std::size_t count, std::size_t size);
extern "C" char* __real_strdup(const char* text);
extern "C" void* __wrap_calloc(std::size_t count, std::size_t size);
extern "C" char* __wrap_strdup(const char* text);

namespace {

// Which allocation is to fail, counted from 1; 0 for none.
int g_fail_at = 0;
int g_allocations = 0;

bool fails() {
    g_allocations++;
    return g_allocations == g_fail_at;
}

void* json_allocate(std::size_t size) {
    return fails() ? nullptr : malloc(size);
}

constexpr char kLog[] = "/tmp/cpectl.log";

// The requests of commands that take arguments; those of the others are "{}".
struct Request {
    const char* command;
    const char* text;
};
constexpr Request kRequests[] = {
    {"setAdmPass", R"({"admPass":"a b"})"},
    {"devNmSet", R"({"devNm":"office"})"},
    {"offline", R"({"mac":"02:00:5E:00:00:0A"})"},
    {"bindUrlSet", R"({"bindUrl":"http://h/x"})"},
    {"wanInfoSet", R"({"WAN2":{"wanType":"STATIC","wanIp":"192.0.2.9"}})"},
    {"lanConfSet", R"({"lanIp":"192.168.9.1","lanNetmask":"255.255.0.0"})"},
    {"upGrade", R"({"upGradeUrl":"u","upGradeMd5":"m","upGradeNm":"n"})"},
    {"pushfw", R"({"fwurl":"u","fwname":"n","fwmd5":"m","fwdesc":"d"})"},
    {"openIntranetProxy", R"({"serverHost":"h","serverPort":"1","clientKey":"k","timeout":"9"})"},
    {"ipsecConfGet", R"({"postUrl":"http://h/up"})"},
    {"ipsecAddTun", R"({"tunCfg":"new a b c d e"})"},
    {"ipsecDelTun", R"({"tunName":"tun1"})"},
    {"ipsecTunShutdown", R"({"tunName":"tun1"})"},
    {"ipsecTunReconn", R"({"tunName":"tun1"})"},
    {"ipsecTunReboot", R"({"tunName":"tun1"})"},
    {"pptpdOpen", R"({"ip":{"start":"192.0.2.1","end":"192.0.2.9"},"encrypt":"YES"})"},
    {"pptpdConfGet", R"({"postUrl":"http://h/up"})"},
    {"pptpdAddUser", R"({"userCfg":"eve secret"})"},
    {"pptpdDelUser", R"({"userName":"ann"})"},
    {"pptpcOpen", R"({"serverIp":"s","userName":"u","userPasswd":"p","serverNet":"n",)"
                  R"("serverMask":"m","encrypt":"YES"})"},
};

const char* request_text(const char* command) {
    for (const Request& request : kRequests) {
        if (std::strcmp(request.command, command) == 0) return request.text;
    }
    return "{}";
}

HostRecord host(const char* ip) {
    HostRecord record = {};
    (void)text_copy(record.ip, ip);
    return record;
}

void wan_reply_make() {
    WanRateReply head = {};
    WanRateEntry entry = {};
    head.count = 1;
    (void)text_copy(entry.name, "WAN1");
    world.wan_reply.resize(sizeof head + sizeof entry);
    std::memcpy(world.wan_reply.data(), &head, sizeof head);
    std::memcpy(world.wan_reply.data() + sizeof head, &entry, sizeof entry);
}

// A gateway on which every command has something to say.
void world_rich() {
    world_begin();
    for (const char* key : {"LAN_IP", "DHCP_DNS1", "WAN1_TYPE", "HOSTNAME", "PPTPD_ENABLE"})
        world_key(key, "192.0.2.1");
    world_key("PPTPC_DEV", "ppp0");
    world_file("/disk/conf/ipsec.cfg", "tun1 a b c d 192.0.2.9 e\n");
    world_file("/disk/conf/pptpuser.cfg", "ann secret\n");
    world_file("/tmp/pptp_clients", "1 ann 192.0.2.1 192.0.2.2 192.0.2.3\n");
    world_file("/tmp/ipsec_state_tmp", "000 #2: \"conn_tun1\":500 established\n");
    world_file("/tmp/ipsec_eroute_tmp", "");
    world.captured = "V1.0 build\n";
    world.offer = R"({"msg":{"path":"http://h/a/b","textNotes":"n","md5":"m","type":"t"}})";
    world.hosts = {host("192.0.2.10"), host("192.0.2.11")};
    wan_reply_make();
}

// What came of one request.
struct Outcome {
    bool whole = false;     // false: the entry logs that, and prints nothing
    bool returned = false;  // an object
    std::string answer;
    std::string log;
};

std::string printed(const cJSON* object) {
    char* text = cJSON_PrintUnformatted(object);
    std::string copy = text ? text : "(nothing)";
    cJSON_free(text);
    return copy;
}

Outcome handle(const CommandRow& row, int fail_at) {
    world_rich();
    cpectl_log_init(nullptr);
    cJSON* args = cJSON_Parse(request_text(row.name));
    EXPECT_NE(args, nullptr) << row.name;

    cJSON_Hooks hooks = {json_allocate, free};
    cJSON_InitHooks(&hooks);
    g_allocations = 0;
    g_fail_at = fail_at;
    cJSON* reply = row.handler(row.argc, args);
    g_fail_at = 0;

    Outcome outcome;
    outcome.returned = reply != nullptr;
    outcome.whole = reply_is_whole();
    outcome.answer = reply ? printed(reply) : "";
    outcome.log = world_file_content(kLog);
    return outcome;
}

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

bool is(const CommandRow& row, std::initializer_list<const char*> names) {
    for (const char* name : names) {
        if (std::strcmp(row.name, name) == 0) return true;
    }
    return false;
}

// The device, monitoring, WAN, LAN, station and firmware handlers have no blank behind the colon.
std::string lost_record(const CommandRow& row) {
    const bool spaced = is(row, {"devNmSet"}) || has(row.handler_name, "proxy") ||
                        has(row.handler_name, "vpn") || has(row.handler_name, "ppt");
    return std::string("Fail to create json respond for function:") + (spaced ? " " : "") +
           row.handler_name + " call\n";
}

// What a handler that answers nothing has to log for it; each of these is enough.
bool silence_is_logged(const CommandRow& row, const std::string& log) {
    if (is(row, {"getWanFlowinfo"})) {
        return has(log, "Fail to malloc, function:cpectl_wanFlowinfo_get call\n") ||
               has(log, "Fail to create json respond for function:add_wanFlowinfo call\n");
    }
    if (is(row, {"checkOta"}))
        return has(log, "parse push file erro") || has(log, "get push info erro");
    return has(log, lost_record(row));
}

// Answers that differ from the usual one because there is no memory, as each command says.
bool may_answer(const CommandRow& row, const std::string& answer) {
    const std::string begin = std::string(R"({"fun":")") + row.name + R"(","stat":")";
    if (is(row, {"ipsecTunStaGet", "pptpdUserStaGet"})) return answer == begin + "err\"}";
    return is(row, {"openIntranetProxy"}) && answer == begin + "ok\"}";  // without "cbk"
}

void check_outcome(const CommandRow& row, const Outcome& usual, const Outcome& outcome) {
    if (!outcome.whole) return;
    if (!outcome.returned) {
        // Answers nothing on any outcome, or prints instead of logging.
        if (is(row, {"localcfgUpdate", "getCpuMemLoad"})) return;
        if (is(row, {"checkOta"}) && outcome.log.empty()) return;
        EXPECT_TRUE(silence_is_logged(row, outcome.log)) << "the log: " << outcome.log;
        return;
    }
    EXPECT_TRUE(outcome.answer == usual.answer || may_answer(row, outcome.answer))
        << outcome.answer;
}

}  // namespace

void* __wrap_calloc(std::size_t count, std::size_t size) {
    return g_fail_at && fails() ? nullptr : __real_calloc(count, size);
}

char* __wrap_strdup(const char* text) {
    return g_fail_at && fails() ? nullptr : __real_strdup(text);
}

TEST(Memory, EachLostAllocationIsSilenceAndALogRecordOrAnAnswer) {
    int total = 0;
    setenv("TMPDIR", scratch_dir().c_str(), 1);  // the gateway's files go there
    world_begin();
    for (const CommandRow& row : kCommandRows) {
        SCOPED_TRACE(row.name);
        run_apart([&row] {
            const Outcome usual = handle(row, -1);
            const int count = g_allocations;
            for (int at = 1; at <= count && !testing::Test::HasFailure(); at++) {
                SCOPED_TRACE(at);
                run_apart([&] { check_outcome(row, usual, handle(row, at)); });
            }
            if (!is(row, {"localcfgUpdate"})) {
                EXPECT_GE(count, 5);
            }
        });
        total++;
    }
    EXPECT_EQ(total, std::ssize(kCommandRows));
}
