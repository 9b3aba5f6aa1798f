// Monitoring, beside its handlers: the readings behind the processor and memory load.
#pragma once

#include <cstdint>

struct cJSON;

// One reading of the first line of /proc/stat: jiffies since boot, modulo 2^32.
struct CpuSample {
    std::uint32_t user;
    std::uint32_t nice;
    std::uint32_t system;
    std::uint32_t idle;
    std::uint32_t iowait;
    std::uint32_t irq;
    std::uint32_t softirq;
    std::uint32_t steal;
};

// One line of /proc/meminfo: its name, cut at 19 characters, and its value in kB, modulo 2^32.
struct MemEntry {
    char name[20];
    std::uint32_t value;
};

// The first two lines of /proc/meminfo, whatever their names: MemTotal and MemFree.
struct MemSample {
    MemEntry total;
    MemEntry free;
};

// Reads the counters; those that are not there keep their value. Returns 1; -1, with `out`
// untouched, when /proc/stat cannot be opened.
int get_cpuoccupy(CpuSample* out);

// The processor load between two readings: half the busy share, in percent, 2.0 to 50.0.
float cal_cpuoccupy(const CpuSample* first, const CpuSample* second);

// The processor load over the next 0.3 seconds; 2.0 when it cannot be read.
float print_cpu();

// Reads both lines. Returns 1; -1, with `out` zeroed, when /proc/meminfo cannot be opened.
int get_memoccupy(MemSample* out);

// The memory load: 0.85 of the used share, in percent, at least 2.0.
float print_mem();

// Appends the hosts behind the gateway with their traffic to `array`, in the order of the host
// library, up to the first whose address does not parse.
void add_host_flowinfo(cJSON* array);

// The callback of the WAN rate query: leaves its reply in wanFlow. Returns 0; -1 without memory.
int add_wanFlowinfo(void* reply);

// The reply that add_wanFlowinfo() built; null before.
extern cJSON* wanFlow;
