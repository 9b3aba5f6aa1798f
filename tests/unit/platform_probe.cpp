// Makes every platform call once and prints what came back, for platform_library_test. The first
// argument is the log file.
#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "hostsort.h"
#include "log/log.h"
#include "mvram.h"
#include "netlink_user.h"
#include "nvram.h"
#include "wum.h"

namespace {

int on_reply(void* reply) {
    return *static_cast<const char*>(reply);
}

// Whether a platform library is in the process yet.
bool is_loaded(const char* soname) {
    FILE* maps = fopen("/proc/self/maps", "r");
    char line[4096];
    bool found = false;
    while (maps && !found && fgets(line, sizeof line, maps))
        found = strstr(line, soname) != nullptr;
    if (maps) fclose(maps);
    return found;
}

void print_loaded(const char* when) {
    printf("%s:", when);
    for (const char* soname :
         {"libnvram.so", "libmvram.so", "libnetlink.so", "libhostsort.so", "libwum.so"}) {
        if (is_loaded(soname)) printf(" %s", soname);
    }
    printf("\n");
}

const char* text_or_null(const char* text) {
    return text ? text : "null";
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 || cpectl_log_init(argv[1]) != 0) return 2;
    print_loaded("loaded at the start");
    printf("nvram_get %s\n", text_or_null(nvram_get("KEY")));
    print_loaded("loaded after one call");
    printf("nvram_set %d\n", nvram_set("a", "b"));
    printf("nvram_commit %d\n", nvram_commit());
    printf("mvram_get %s\n", text_or_null(mvram_get("KEY")));
    (void)mvram_get("KEY");  // what was not found is not looked for, and logged, again
    printf("mvram_set %d\n", mvram_set("a", "b"));
    printf("user_netlink_regist %d\n", user_netlink_regist(102, 3));
    char request[] = {5};
    printf("netlink_send_user %d\n", netlink_send_user(102, request, 1));
    printf("netlink_receive_user %d\n", netlink_receive_user(on_reply));
    user_netlink_unregist();
    printf("hostsort_info_sort %d\n", hostsort_info_sort(1, 0));
    printf("hostsort_get_total_entry %d\n", hostsort_get_total_entry());
    HostRecord record{};
    printf("hostsort_get_next %d", hostsort_get_next(&record, 4));
    printf(" %s\n", record.ip[0] == 'r' ? "filled" : "untouched");
    const int* station = static_cast<const int*>(Web_STAinfo_Get());
    printf("Web_STAinfo_Get %d\n", station ? *station : -1);
    printf("WUMWTPKickoutSta %d\n", WUMWTPKickoutSta(0, "0"));
    print_loaded("loaded at the end");
    return 0;
}
