// A libhostsort.so with as many hosts as /tmp/hosts says, for measuring what each host costs.
#include <stdio.h>
#include <string.h>

#include "hostsort.h"

static int host_count(void) {
    static int count = -1;
    if (count >= 0) return count;
    count = 0;
    FILE* file = fopen("/tmp/hosts", "re");
    if (!file) return count;
    if (fscanf(file, "%d", &count) != 1) count = 0;
    fclose(file);
    return count;
}

int hostsort_info_sort(int key, int flag) {
    return key == 1 && flag == 0 ? 0 : -1;
}

int hostsort_get_total_entry(void) {
    return host_count();
}

int hostsort_get_next(void* record, int index) {
    if (index < 1 || index > host_count()) return -1;
    struct HostRecord host = {.down_total = 1000000, .up_total = 100000, .down_rate = 5000};
    snprintf(host.ip, sizeof host.ip, "10.0.%d.%d", index / 250, index % 250 + 1);
    memcpy(record, &host, sizeof host);
    return 0;
}
