// Monitoring: traffic of links and hosts, processor and memory load, counts of hosts and
// connections.
#include "platform/monitoring.h"

#include <arpa/inet.h>
#include <cjson/cJSON.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "hostsort.h"
#include "log/log.h"
#include "netlink_user.h"
#include "platform/handlers.h"
#include "tools/hosts.h"
#include "tools/netif.h"
#include "tools/reply.h"
#include "tools/store.h"
#include "tools/text.h"

cJSON* wanFlow = nullptr;

namespace {

constexpr const char* kWanLinks[] = {"WAN1", "WAN2", "WAN3", "WAN4"};

constexpr float kLeastLoad = 2.0F;
constexpr float kMostCpuLoad = 50.0F;

// Bits per second as KiB per second, in single precision throughout.
float kibibytes(std::int32_t bits) {
    return static_cast<float>(bits) / 8.0F / 1024.0F;
}

// Adds one link's rates under each link name that its own is a prefix of.
void add_link(cJSON* cbk, std::string_view name, float up, float down) {
    for (const char* link : kWanLinks) {
        // Kept: an entry named "WAN", or one without a name, is shown under all four.
        if (!begins_with(link, name)) continue;
        cJSON* rates = cJSON_CreateObject();
        add_item(cbk, link, rates);
        add_number(rates, "up_rate", up);
        add_number(rates, "down_rate", down);
    }
}

void add_links(cJSON* cbk, const void* reply, std::int32_t count) {
    const char* entries = static_cast<const char*>(reply) + sizeof(WanRateReply);
    float up_total = 0;
    float down_total = 0;
    for (std::int32_t i = 0; i < count; i++, entries += sizeof(WanRateEntry)) {
        WanRateEntry entry;
        std::memcpy(&entry, entries, sizeof entry);
        const float up = kibibytes(entry.up_rate);
        const float down = kibibytes(entry.down_rate);
        add_link(cbk, {entry.name, strnlen(entry.name, sizeof entry.name)}, up, down);
        up_total += up;
        down_total += down;
    }
    add_number(cbk, "up_total", up_total);
    add_number(cbk, "down_total", down_total);
}

void add_host(cJSON* array, const HostRecord& host, const char* mac) {
    cJSON* entry = cJSON_CreateObject();
    cJSON_AddItemToArray(array, entry);
    add_text(entry, "ip", inetaddr(inet_addr(host.ip)));
    add_text(entry, "mac", mac);
    // Kept: the rates are scaled, the totals are bytes.
    add_number(entry, "up_rate", host.up_rate / 1024.0);
    add_number(entry, "down_rate", host.down_rate / 1024.0);
    add_number(entry, "up_total", static_cast<double>(host.up_total));
    add_number(entry, "down_total", static_cast<double>(host.down_total));
}

std::uint32_t busy_and_idle(const CpuSample& sample) {
    return sample.user + sample.nice + sample.system + sample.idle + sample.iowait + sample.irq +
           sample.softirq + sample.steal;
}

float busy(const CpuSample& sample) {
    return static_cast<float>(busy_and_idle(sample) - sample.idle - sample.iowait);
}

// Reads the next line as a name and a value; a value that is not there stays.
void mem_entry_read(std::FILE* file, MemEntry& entry) {
    char line[256] = {};
    unsigned long long value;
    if (!next_line(file, line)) return;
    (void)std::sscanf(line, "%19s", entry.name);
    if (std::sscanf(line, "%*s %llu", &value) == 1) entry.value = static_cast<std::uint32_t>(value);
}

// The whole number at the start of a file, modulo 2^32; `otherwise` when there is no such file or
// no number in it. (A stream and its scanning cost a tenth of an empty program.)
std::int32_t number_in_file(const char* path, std::int32_t otherwise) {
    char text[1024];
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) return otherwise;
    const ssize_t size = read(file, text, sizeof text - 1);
    close(file);
    text[size > 0 ? size : 0] = '\0';

    char* end;
    const long long number = std::strtoll(text, &end, 10);
    return end == text ? otherwise : static_cast<std::int32_t>(static_cast<std::uint32_t>(number));
}

// Where each generation of kernels counts its connections.
struct ConnectionCounter {
    const char* kernel_type;
    const char* path;
};

constexpr ConnectionCounter kConnectionCounters[] = {
    {"1", "/proc/sys/net/ipv4/netfilter/ip_conntrack_count"},
    {"2", "/proc/sys/net/netfilter/nf_conntrack_count"},
    {"3", "/proc/sys/net/ipv4/netfilter/ip_conntrack_count"},
};

// The number of connections that the kernel tracks; 10 when it is not known, a kernel type that
// names no file included.
std::int32_t connection_count() {
    constexpr std::int32_t kUnknown = 10;
    for (const ConnectionCounter& counter : kConnectionCounters) {
        if (std::strcmp(mvram_text("KERNEL_TYPE"), counter.kernel_type) == 0)
            return number_in_file(counter.path, kUnknown);
    }
    return kUnknown;
}

std::int32_t host_count() {
    return number_in_file("/sys/module/fc/parameters/active_host", 1);
}

}  // namespace

int add_wanFlowinfo(void* reply) {
    cJSON* answer = reply_new("getWanFlowinfo");
    cJSON* cbk = cJSON_CreateObject();
    if (!answer || !cbk) {
        reply_lost(__func__, Lost::plain);
        return -1;
    }
    reply_stat(answer, "ok");
    add_item(answer, "cbk", cbk);

    WanRateReply head;
    std::memcpy(&head, reply, sizeof head);
    add_links(cbk, reply, head.count);
    wanFlow = answer;
    return 0;
}

cJSON* cpectl_wanFlowinfo_get(std::int32_t, const cJSON*) {
    auto* request = static_cast<WanRateRequest*>(std::calloc(1, sizeof(WanRateRequest)));
    if (!request) {
        cpectl_log(kLogError, "Fail to malloc, function:%s call", __func__);
        return nullptr;
    }
    request->type = kWanRateRequestType;
    request->length = sizeof *request;
    request->code = kWanRateRequestCode;
    request->unit = kWanRateUnit;

    user_netlink_regist(kWanRateUnit, 0);
    netlink_send_user(kWanRateUnit, request, sizeof *request);
    netlink_receive_user(add_wanFlowinfo);
    std::free(request);
    user_netlink_unregist();
    return wanFlow;
}

void add_host_flowinfo(cJSON* array) {
    hostsort_info_sort(1, 0);
    const int count = hostsort_get_total_entry();
    for (int i = 1; i <= count; i++) {
        HostRecord host;
        char mac[kMacBufferSize] = {};
        if (!host_read(i, host)) return;
        get_mac(host.ip, mac);
        if (!mac_is_known(mac)) continue;
        mac_normalise(mac);
        add_host(array, host, mac);
    }
}

cJSON* cpectl_hostFlowinfo_get(std::int32_t, const cJSON*) {
    cJSON* reply = reply_new("getHostFlowinfo");
    cJSON* cbk = cJSON_CreateObject();
    if (!reply || !cbk) return reply_lost(__func__, Lost::plain);

    reply_stat(reply, "ok");
    add_item(reply, "cbk", cbk);
    cJSON* hosts = cJSON_CreateArray();
    add_item(cbk, "hostinfo", hosts);
    add_host_flowinfo(hosts);
    return reply;
}

int get_cpuoccupy(CpuSample* out) {
    std::FILE* file = std::fopen("/proc/stat", "re");
    if (!file) return -1;
    std::uint32_t* const counters[] = {&out->user,   &out->nice, &out->system,  &out->idle,
                                       &out->iowait, &out->irq,  &out->softirq, &out->steal};
    long long value[8];
    const int read =
        std::fscanf(file, "cpu %lld %lld %lld %lld %lld %lld %lld %lld", &value[0], &value[1],
                    &value[2], &value[3], &value[4], &value[5], &value[6], &value[7]);
    for (int i = 0; i < read; i++)
        *counters[i] = static_cast<std::uint32_t>(value[i]);
    std::fclose(file);
    return 1;
}

float cal_cpuoccupy(const CpuSample* first, const CpuSample* second) {
    const auto delta_total = static_cast<float>(busy_and_idle(*second) - busy_and_idle(*first));
    const float delta_busy = busy(*second) - busy(*first);
    float load = kLeastLoad;
    if (delta_total != 0) load = delta_busy / delta_total * 100.0F;
    load *= 0.5F;  // Kept: half the share is what is reported
    if (load < kLeastLoad) return kLeastLoad;
    return load > kMostCpuLoad ? kMostCpuLoad : load;
}

float print_cpu() {
    constexpr useconds_t kInterval = 300000;  // microseconds
    CpuSample first = {};
    CpuSample second = {};
    const int first_read = get_cpuoccupy(&first);
    usleep(kInterval);
    const int second_read = get_cpuoccupy(&second);
    if (first_read + second_read < 2) return kLeastLoad;
    return cal_cpuoccupy(&first, &second);
}

int get_memoccupy(MemSample* out) {
    std::FILE* file = std::fopen("/proc/meminfo", "re");
    if (!file) {
        *out = {};
        return -1;
    }
    mem_entry_read(file, out->total);
    mem_entry_read(file, out->free);
    std::fclose(file);
    return 1;
}

float print_mem() {
    MemSample sample = {};
    get_memoccupy(&sample);
    const auto used = static_cast<float>(sample.total.value - sample.free.value);
    const auto total = static_cast<float>(sample.total.value);
    float load = kLeastLoad;
    if (total > 0) {
        load = used * 100.0F / total;
        load = static_cast<float>(static_cast<double>(load) * 0.85);  // Kept: damped, not clamped
    }
    return load < kLeastLoad ? kLeastLoad : load;
}

cJSON* cpectl_CpuMemLoad_get(std::int32_t, const cJSON*) {
    cJSON* reply = reply_new("getCpuMemLoad");
    if (!reply) {
        // Kept: printed, not logged.
        std::printf("Error before: [%s]\n", json_error_text());
        return nullptr;
    }
    const float cpu = print_cpu();
    const float memory = print_mem();
    reply_stat(reply, "ok");
    cJSON* cbk = cJSON_CreateObject();
    add_item(reply, "cbk", cbk);
    add_number(cbk, "cpu_load", cpu);
    add_number(cbk, "mem_load", memory);
    return reply;
}

cJSON* cpectl_hostNum_get(std::int32_t, const cJSON*) {
    cJSON* reply = reply_new("getHostNum");
    cJSON* cbk = cJSON_CreateObject();
    if (!reply || !cbk) return reply_lost(__func__, Lost::plain);

    reply_stat(reply, "ok");
    add_item(reply, "cbk", cbk);
    const std::int32_t hosts = host_count();
    const std::int32_t connections = connection_count();
    add_number(cbk, "host_num", hosts);
    add_number(cbk, "conn_num", connections);
    return reply;
}
