// Answers the one kernel question that qemu-user passes on without its content: SIOCGARP, a
// neighbour's hardware address, for programs of another machine type. Preloaded into them; the
// answer is the kernel's own, from /proc/net/arp.
#undef _TIME_BITS  // gives ioctl() the name of its sibling below

#include <arpa/inet.h>
#include <errno.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

// The tools that the program starts are the machine's own and cannot load this library.
__attribute__((constructor)) static void stay_out_of_children(void) {
    unsetenv("LD_PRELOAD");
}

static bool address_parse(const char* text, unsigned char* address) {
    return sscanf(text, "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &address[0], &address[1], &address[2],
                  &address[3], &address[4], &address[5]) == 6;
}

// Fills the answer from the line of this neighbour on this device; false when there is none.
static bool neighbour_find(FILE* table, const char* ip, struct arpreq* answer) {
    char line[256], line_ip[64], hardware[64], device[IFNAMSIZ + 1];
    unsigned type, flags;
    while (fgets(line, sizeof line, table)) {
        if (sscanf(line, "%63s 0x%x 0x%x %63s %*s %16s", line_ip, &type, &flags, hardware,
                   device) != 5)
            continue;
        if (strcmp(line_ip, ip) != 0 || strcmp(device, answer->arp_dev) != 0) continue;
        answer->arp_flags = (int)flags;
        memset(&answer->arp_ha, 0, sizeof answer->arp_ha);
        answer->arp_ha.sa_family = (sa_family_t)type;
        return address_parse(hardware, (unsigned char*)answer->arp_ha.sa_data);
    }
    return false;
}

static int arp_get(struct arpreq* request) {
    struct sockaddr_in internet;
    memcpy(&internet, &request->arp_pa, sizeof internet);
    char ip[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &internet.sin_addr, ip, sizeof ip);
    if (internet.sin_family != AF_INET) {
        errno = EPFNOSUPPORT;
        return -1;
    }
    if (request->arp_dev[0] && if_nametoindex(request->arp_dev) == 0) {
        errno = ENODEV;
        return -1;
    }
    FILE* table = fopen("/proc/net/arp", "re");
    const bool found = table && neighbour_find(table, ip, request);
    if (table) fclose(table);
    if (found) return 0;
    errno = ENXIO;
    return -1;
}

// Everything else goes to the kernel.
static int answer(int file, unsigned long request, void* argument) {
    if (request == SIOCGARP) return arp_get(argument);
    return (int)syscall(SYS_ioctl, file, request, argument);
}

#define ANSWER_TO_CALL_OF(name)                      \
    int name(int file, unsigned long request, ...) { \
        va_list rest;                                \
        va_start(rest, request);                     \
        void* argument = va_arg(rest, void*);        \
        va_end(rest);                                \
        return answer(file, request, argument);      \
    }

ANSWER_TO_CALL_OF(ioctl)
// Its name in programs with a 64-bit time_t on a 32-bit machine.
int __ioctl_time64(int file, unsigned long request, ...);
ANSWER_TO_CALL_OF(__ioctl_time64)
