// Wireless stations: their list, and removing one.
#include "platform/stations.h"

#include <arpa/inet.h>
#include <cjson/cJSON.h>

#include <cstring>

#include "hostsort.h"
#include "log/log.h"
#include "platform/handlers.h"
#include "tools/hosts.h"
#include "tools/netif.h"
#include "tools/reply.h"
#include "tools/shell.h"
#include "tools/text.h"
#include "wum.h"

char stalist[kStaListCount][20];

namespace {

constexpr int kWired = 1;
constexpr int kWireless = 2;

// A list that goes round in a ring ends where the walk meets a station at which it has waited; that
// moves on after 1, 2, 4, 8 ... steps.
bool is_station(const StationRecord* list, const char* ip) {
    const StationRecord* waiting = list;
    std::uint32_t steps = 0;
    std::uint32_t patience = 1;
    for (const StationRecord* station = list; station;) {
        if (std::strncmp(station->ip, ip, sizeof station->ip) == 0) return true;
        station = station->next;
        if (station == waiting) return false;
        if (++steps == patience) {
            waiting = station;
            steps = 0;
            patience *= 2;
        }
    }
    return false;
}

// The SSID of the first station of the list, when it is valid.
void add_ssid(cJSON* entry, const StationRecord* list) {
    if (!(list->flags & kStationSsidValid)) return;
    char ssid[sizeof list->ssid + 1] = {};
    (void)text_copy(ssid, {list->ssid, strnlen(list->ssid, sizeof list->ssid)});
    add_text(entry, "ssid", ssid);
}

// The MAC of a host as get_mac() gives it; empty when there is none.
void host_mac(const HostRecord& host, char (&mac)[kMacBufferSize]) {
    std::memset(mac, 0, sizeof mac);
    get_mac(inetaddr(inet_addr(host.ip)), mac);
}

// The number of hosts whose record stalist can hold.
int host_count() {
    const int count = hostsort_get_total_entry();
    return count < kStaListCount ? count : kStaListCount;
}

void stalist_compare(int count) {
    for (int i = 1; i <= count; i++) {
        HostRecord host;
        char mac[kMacBufferSize];
        if (!host_read(i, host)) return;
        host_mac(host, mac);
        if (std::strncmp(stalist[i - 1], mac, sizeof mac) != 0) {
            cpectl_log(kLogInfo, "***find the different mac %s num is %d***", stalist[i - 1],
                       i - 1);
            return;
        }
    }
}

void stalist_fill(int count) {
    for (int i = 1; i <= count; i++) {
        HostRecord host;
        char mac[kMacBufferSize];
        if (!host_read(i, host)) return;
        host_mac(host, mac);
        if (mac_is_known(mac)) std::memcpy(stalist[i - 1], mac, sizeof mac);
    }
}

}  // namespace

int add_data_userinfo(cJSON* array) {
    hostsort_info_sort(1, 0);
    const auto* stations = static_cast<const StationRecord*>(Web_STAinfo_Get());
    const int count = hostsort_get_total_entry();
    for (int i = 1; i <= count; i++) {
        HostRecord host;
        char mac[kMacBufferSize];
        if (!host_read(i, host)) return 0;
        host_mac(host, mac);
        if (!mac_is_known(mac)) continue;
        mac_normalise(mac);

        cJSON* entry = cJSON_CreateObject();
        cJSON_AddItemToArray(array, entry);
        add_text(entry, "mac", mac);
        add_text(entry, "ip", inetaddr(inet_addr(host.ip)));
        const bool wireless = is_station(stations, host.ip);
        // Kept: the SSID is that of the list's first station, whichever one matched.
        if (wireless) add_ssid(entry, stations);
        add_number(entry, "ty", wireless ? kWireless : kWired);
    }
    return 0;
}

cJSON* cpectl_stalist_get(std::int32_t, const cJSON*) {
    cJSON* reply = reply_new("getStaList");
    cJSON* cbk = cJSON_CreateObject();
    if (!reply || !cbk) return reply_lost(__func__, Lost::plain);

    reply_stat(reply, "ok");
    add_item(reply, "cbk", cbk);
    cJSON* stations = cJSON_CreateArray();
    add_item(cbk, "stalist", stations);
    add_data_userinfo(stations);
    return reply;
}

// Kept: the shape of a call, with "args" and without "stat", and no check of what is built.
cJSON* cpectl_stalist_show(std::int32_t, const cJSON*) {
    cJSON* call = reply_new("setStaList");
    cJSON* args = cJSON_CreateObject();
    add_item(call, "args", args);
    cJSON* stations = cJSON_CreateArray();
    add_item(args, "data", stations);
    add_data_userinfo(stations);
    return call;
}

int cpectl_stalist_diff(const cJSON*) {
    cpectl_log(kLogInfo, "INTO cpectl_stalist_diff");
    hostsort_info_sort(1, 0);
    const int count = host_count();
    stalist_compare(count);
    // Kept: the first 15 records only, not the whole table.
    for (int i = 0; i < 15; i++)
        std::memset(stalist[i], 0, sizeof stalist[i]);
    stalist_fill(count);
    for (int i = 1; i <= count; i++) {
        cpectl_log(kLogInfo, "***The stalist is %s num is %d***", stalist[i - 1], i - 1);
    }
    if (count <= 0) cpectl_log(kLogInfo, "***the stalist is empty***");
    return 0;
}

cJSON* cpectl_offline_set(std::int32_t, const cJSON* args) {
    cJSON* reply = reply_new("offline");
    if (!reply) return reply_lost(__func__, Lost::plain);

    const char* mac = arg_filled(args, "mac");
    if (!mac) return reply_stat(reply, "er");

    WUMWTPKickoutSta(0, mac);
    return reply_stat(reply, "ok");
}

cJSON* cpectl_stacycle_set(std::int32_t, const cJSON* args) {
    cJSON* reply = reply_new("setItvSta");
    if (!reply) return reply_lost(__func__, Lost::spaced);

    const cJSON* value = cJSON_GetObjectItem(args, "value");
    return reply_stat(reply, value && value->valueint != 0 ? "ok" : "er");
}

int wireless_set_2g() {
    char output[1024] = {};
    system_operate("ps -w |grep wireless_config.sh |grep -v grep|wc  -l", output);
    const char* command = "/usr/sbin/wireless_config.sh  init 30 >> /dev/null &";
    if (output[0] == '\0') return 0;
    if (output[0] == '0') command = "/usr/sbin/wireless_config.sh  init  >> /dev/null &";
    if (output[0] == '1') command = "/usr/sbin/wireless_config.sh  init 10 >> /dev/null &";
    if (output[0] == '2') command = "/usr/sbin/wireless_config.sh  init 20 >> /dev/null &";
    return system_operate(command, output);
}

int wireless_macfilter() {
    return shell_run("/usr/sbin/wireless_config.sh macfilter_init &");
}
