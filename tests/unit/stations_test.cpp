// Stations: what no request reaches. The snapshot of the hosts with its log, the acknowledged
// interval, the starts of the wireless configuration script, and a list that goes round in a ring.
#include "platform/stations.h"

#include <cjson/cJSON.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "hostsort.h"
#include "log/log.h"
#include "support.h"
#include "wum.h"

extern "C" {
int __wrap_system(const char* command);
FILE* __wrap_popen(const char* command, const char* mode);
int __wrap_pclose(FILE* stream);
int __wrap__Z7get_macPKcPc(const char* ip, char* out);
}

namespace {

using Texts = std::vector<std::string>;

// The host table, the calls for it, and the MACs that the kernel knows.
Texts g_hosts;
Texts g_calls;
std::map<std::string, std::string> g_macs;

std::vector<StationRecord> g_stations;

Texts g_commands;     // what was handed to the shell
std::string g_count;  // what the first captured command prints
bool g_no_process = false;

void hosts_reset(const Texts& hosts) {
    g_hosts = hosts;
    g_calls.clear();
    g_macs.clear();
    for (std::size_t i = 0; i < hosts.size(); i++) {
        char mac[18];
        snprintf(mac, sizeof mac, "02:00:5e:00:%02x:%02x", static_cast<unsigned>(i / 256 % 256),
                 static_cast<unsigned>(i % 256));
        g_macs[hosts[i]] = mac;
    }
}

Texts many_hosts(int count) {
    Texts hosts;
    for (int i = 0; i < count; i++)
        hosts.push_back("10.0." + std::to_string(i / 250) + "." + std::to_string(i % 250 + 1));
    return hosts;
}

// The records that cpectl_stalist_diff() logs, each without its time.
Texts logged_diff() {
    const std::string path = temp_file("");
    EXPECT_EQ(cpectl_log_init(path.c_str()), 0);
    EXPECT_EQ(cpectl_stalist_diff(nullptr), 0);
    Texts records;
    std::istringstream messages(log_messages(path));
    for (std::string record; std::getline(messages, record);)
        records.push_back(record);
    return records;
}

std::string different(const std::string& stored, int number) {
    return "***find the different mac " + stored + " num is " + std::to_string(number) + "***";
}

std::string listed(const std::string& stored, int number) {
    return "***The stalist is " + stored + " num is " + std::to_string(number) + "***";
}

const std::string kInto = "INTO cpectl_stalist_diff";
const std::string kMac0 = "02:00:5e:00:00:00";
const std::string kMac1 = "02:00:5e:00:00:01";

}  // namespace

extern "C" {

int hostsort_info_sort(int key, int flag) {
    g_calls.push_back("sort " + std::to_string(key) + " " + std::to_string(flag));
    return 0;
}

int hostsort_get_total_entry(void) {
    g_calls.emplace_back("total");
    return static_cast<int>(g_hosts.size());
}

int hostsort_get_next(void* record, int index) {
    g_calls.push_back("next " + std::to_string(index));
    HostRecord host{};
    const std::string& ip = g_hosts.at(static_cast<std::size_t>(index) - 1);
    memcpy(host.ip, ip.c_str(), ip.size() + 1);
    memcpy(record, &host, sizeof host);
    return 0;
}

void* Web_STAinfo_Get(void) {
    return g_stations.empty() ? nullptr : g_stations.data();
}

int __wrap__Z7get_macPKcPc(const char* ip, char* out) {
    const auto found = g_macs.find(ip);
    if (found == g_macs.end()) return -1;
    memcpy(out, found->second.c_str(), found->second.size() + 1);
    return 0;
}

int __wrap_system(const char* command) {
    g_commands.emplace_back(command);
    return 0x1200;
}

// The first captured command of a test prints what it says, each other one nothing.
FILE* __wrap_popen(const char* command, const char*) {
    g_commands.emplace_back(command);
    if (g_no_process && g_commands.size() > 1) return nullptr;
    FILE* stream = tmpfile();
    if (stream && g_commands.size() == 1) fputs(g_count.c_str(), stream);
    if (stream) rewind(stream);
    return stream;
}

int __wrap_pclose(FILE* stream) {
    return fclose(stream);
}

}  // extern "C"

// ---- The list -----------------------------------------------------------------------------------

namespace {

// A list of stations whose last one is followed by number `next`.
void stations_reset(const Texts& addresses, std::size_t next) {
    g_stations.assign(addresses.size(), StationRecord{});
    for (std::size_t i = 0; i < addresses.size(); i++) {
        memcpy(g_stations[i].ip, addresses[i].c_str(), addresses[i].size() + 1);
        g_stations[i].next = &g_stations[i + 1 < addresses.size() ? i + 1 : next];
    }
}

std::string types_of_hosts() {
    std::string types;
    cJSON* array = cJSON_CreateArray();
    EXPECT_EQ(add_data_userinfo(array), 0);
    const cJSON* entry;
    cJSON_ArrayForEach(entry, array) {
        char* type = cJSON_PrintUnformatted(cJSON_GetObjectItem(entry, "ty"));
        types += type ? type : "?";
        cJSON_free(type);
    }
    cJSON_Delete(array);
    return types;
}

}  // namespace

TEST(StationList, ThatGoesRoundInARingEnds) {
    run_apart([] {
        alarm(60);
        for (int count = 1; count <= 20; count++) {
            const Texts stations = many_hosts(count);
            Texts hosts = stations;
            hosts.emplace_back("192.0.2.1");
            hosts_reset(hosts);
            for (int next = 0; next < count; next++) {
                SCOPED_TRACE(std::to_string(count) + " stations, the last is followed by number " +
                             std::to_string(next));
                stations_reset(stations, static_cast<std::size_t>(next));
                EXPECT_EQ(types_of_hosts(), std::string(stations.size(), '2') + "1");
            }
        }
    });
}

// ---- The snapshot -------------------------------------------------------------------------------

TEST(StalistDiff, RemembersTheHostsAndLogsThem) {
    run_apart([] {
        hosts_reset({"10.0.0.1", "10.0.0.2"});
        EXPECT_EQ(logged_diff(),
                  (Texts{kInto, different("", 0), listed(kMac0, 0), listed(kMac1, 1)}));
        // One look is enough for the first difference; then each host is asked for once more.
        EXPECT_EQ(g_calls, (Texts{"sort 1 0", "total", "next 1", "next 1", "next 2"}));
        EXPECT_STREQ(stalist[1], kMac1.c_str()) << "in lower case, as the kernel gives it";
        EXPECT_EQ(logged_diff(), (Texts{kInto, listed(kMac0, 0), listed(kMac1, 1)}))
            << "nothing is different now";
    });
}

TEST(StalistDiff, LogsTheFirstDifferenceOnly) {
    run_apart([] {
        hosts_reset({"10.0.0.1", "10.0.0.2", "10.0.0.3"});
        logged_diff();
        g_macs["10.0.0.2"] = "02:00:5e:00:00:aa";
        g_macs["10.0.0.3"] = "02:00:5e:00:00:bb";
        EXPECT_EQ(logged_diff(),
                  (Texts{kInto, different(kMac1, 1), listed(kMac0, 0),
                         listed("02:00:5e:00:00:aa", 1), listed("02:00:5e:00:00:bb", 2)}));
    });
}

TEST(StalistDiff, ComparesAll20Characters) {
    run_apart([] {
        hosts_reset({"10.0.0.1"});
        g_macs["10.0.0.1"] = "1234567890123456789";
        logged_diff();
        g_macs["10.0.0.1"] = "123456789012345678x";
        EXPECT_EQ(logged_diff()[1], different("1234567890123456789", 0));
    });
}

TEST(StalistDiff, RemembersNoHostWithoutAMac) {
    run_apart([] {
        hosts_reset({"10.0.0.1", "10.0.0.2", "10.0.0.3"});
        g_macs["10.0.0.1"] = "00:00:00:00:00:00";
        g_macs.erase("10.0.0.2");
        const Texts records = {kInto, different("", 0), listed("", 0), listed("", 1),
                               listed("02:00:5e:00:00:02", 2)};
        EXPECT_EQ(logged_diff(), records);
        EXPECT_EQ(logged_diff(), records) << "zeros differ from nothing each time";
        g_macs.erase("10.0.0.1");
        EXPECT_EQ(logged_diff(),
                  (Texts{kInto, listed("", 0), listed("", 1), listed("02:00:5e:00:00:02", 2)}));
    });
}

TEST(StalistDiff, EndsItsWalksAtTheFirstBadAddress) {
    run_apart([] {
        hosts_reset({"10.0.0.1", "no address", "10.0.0.3"});
        EXPECT_EQ(logged_diff(),
                  (Texts{kInto, different("", 0), listed(kMac0, 0), listed("", 1), listed("", 2)}))
            << "the log goes on to the end";
        EXPECT_EQ(g_calls, (Texts{"sort 1 0", "total", "next 1", "next 1", "next 2"}));
        g_calls.clear();
        EXPECT_EQ(logged_diff(), (Texts{kInto, listed(kMac0, 0), listed("", 1), listed("", 2)}));
        EXPECT_EQ(g_calls, (Texts{"sort 1 0", "total", "next 1", "next 2", "next 1", "next 2"}));
    });
}

TEST(StalistDiff, ForgetsTheFirst15Only) {
    run_apart([] {
        hosts_reset(many_hosts(17));
        logged_diff();
        g_macs.clear();
        logged_diff();
        for (int i = 0; i < 15; i++)
            EXPECT_STREQ(stalist[i], "") << i;
        EXPECT_STREQ(stalist[15], "02:00:5e:00:00:0f");
        EXPECT_STREQ(stalist[16], "02:00:5e:00:00:10");
    });
}

TEST(StalistDiff, HasRoomFor300) {
    run_apart([] {
        hosts_reset(many_hosts(301));
        EXPECT_EQ(logged_diff().size(), 302u);
        EXPECT_STREQ(stalist[299], "02:00:5e:00:01:2b");
        EXPECT_EQ(g_calls.back(), "next 300");
    });
}

TEST(StalistDiff, SaysSoWhenThereIsNobody) {
    run_apart([] {
        hosts_reset({});
        EXPECT_EQ(logged_diff(), (Texts{kInto, "***the stalist is empty***"}));
        EXPECT_EQ(g_calls, (Texts{"sort 1 0", "total"}));
    });
}

TEST(StalistDiff, LogsAsProgress) {
    run_apart([] {
        hosts_reset({"10.0.0.1"});
        cpectl_runtimedebug_level = 2;
        EXPECT_EQ(logged_diff(), Texts{});
        hosts_reset({});
        EXPECT_EQ(logged_diff(), Texts{});
    });
}

// ---- The interval -------------------------------------------------------------------------------

TEST(StacycleSet, AcknowledgesANumberThatIsNotZero) {
    struct Case {
        const char* why;
        const char* args;  // null: no argument object
        const char* stat;
    };
    constexpr Case kCases[] = {
        {"an interval", R"({"value":300})", "ok"},
        {"below zero", R"({"value":-1})", "ok"},
        {"zero", R"({"value":0})", "er"},
        {"the whole part counts", R"({"value":0.9})", "er"},
        {"text has no number", R"({"value":"300"})", "er"},
        {"null", R"({"value":null})", "er"},
        {"no such member", R"({"interval":300})", "er"},
        {"no arguments", nullptr, "er"},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        cJSON* args = c.args ? cJSON_Parse(c.args) : nullptr;
        cJSON* reply = cpectl_stacycle_set(1, args);
        char* text = cJSON_PrintUnformatted(reply);
        EXPECT_EQ(std::string(text ? text : "(nothing)"),
                  std::string(R"({"fun":"setItvSta","stat":")") + c.stat + "\"}");
        cJSON_free(text);
        cJSON_Delete(reply);
        cJSON_Delete(args);
    }
}

TEST(StacycleSet, LogsAReplyThatCannotBeMade) {
    run_apart([] {
        const std::string path = temp_file("");
        ASSERT_EQ(cpectl_log_init(path.c_str()), 0);
        cJSON_Hooks hooks = {[](std::size_t) -> void* { return nullptr; }, free};
        cJSON_InitHooks(&hooks);
        EXPECT_EQ(cpectl_stacycle_set(1, nullptr), nullptr);
        EXPECT_EQ(log_messages(path),
                  "Fail to create json respond for function: cpectl_stacycle_set call\n");
    });
}

// ---- The wireless configuration script ----------------------------------------------------------

namespace {

constexpr char kRunning[] = "ps -w |grep wireless_config.sh |grep -v grep|wc  -l";

}  // namespace

TEST(WirelessSet2g, WaitsTheLongerTheMoreAreRunning) {
    struct Case {
        const char* why;
        const char* count;
        const char* command;  // null: nothing is started
    };
    constexpr Case kCases[] = {
        {"none", "0\n", "/usr/sbin/wireless_config.sh  init  >> /dev/null &"},
        {"one", "1\n", "/usr/sbin/wireless_config.sh  init 10 >> /dev/null &"},
        {"two", "2\n", "/usr/sbin/wireless_config.sh  init 20 >> /dev/null &"},
        {"three", "3\n", "/usr/sbin/wireless_config.sh  init 30 >> /dev/null &"},
        {"nine", "9", "/usr/sbin/wireless_config.sh  init 30 >> /dev/null &"},
        {"only the first character counts", "12\n",
         "/usr/sbin/wireless_config.sh  init 10 >> /dev/null &"},
        {"a blank is another character", " 0\n",
         "/usr/sbin/wireless_config.sh  init 30 >> /dev/null &"},
        {"nothing is printed", "", nullptr},
        {"an empty line", "\n", nullptr},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        g_commands.clear();
        g_count = c.count;
        EXPECT_EQ(wireless_set_2g(), 0);
        EXPECT_EQ(g_commands, c.command ? (Texts{kRunning, c.command}) : Texts{kRunning});
    }
}

TEST(WirelessSet2g, TellsWhenTheScriptCannotBeStarted) {
    run_apart([] {
        g_commands.clear();
        g_count = "0\n";
        g_no_process = true;
        EXPECT_EQ(wireless_set_2g(), -1);
        EXPECT_EQ(g_commands.size(), 2u);
    });
}

TEST(WirelessMacfilter, StartsTheScriptAndGivesItsResult) {
    g_commands.clear();
    EXPECT_EQ(wireless_macfilter(), 0x1200);
    EXPECT_EQ(g_commands, Texts{"/usr/sbin/wireless_config.sh macfilter_init &"});
}
