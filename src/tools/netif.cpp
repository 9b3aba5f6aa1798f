// Questions to the kernel about network interfaces and neighbours.
#include "tools/netif.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "tools/text.h"

namespace {

constexpr char kLanDevice[] = "eth0.5";
constexpr double kMebibyte = 1048576.0;

// The options of getnic(). The hardware address comes from a member of its own.
struct NicQuery {
    const char* option;
    std::uint32_t request;
};

constexpr NicQuery kNicQueries[] = {
    {"-i", SIOCGIFADDR},    {"-b", SIOCGIFBRDADDR}, {"-m", SIOCGIFNETMASK},
    {"-g", SIOCGIFDSTADDR}, {"-w", SIOCGIFHWADDR},
};

const NicQuery* nic_query_find(const char* option) {
    for (const NicQuery& query : kNicQueries) {
        if (std::strcmp(option, query.option) == 0) return &query;
    }
    return nullptr;
}

int query_socket() {
    return socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}

// Asks for one property of an interface. False when it has none or does not exist.
bool nic_ask(const char* name, std::uint32_t request, ifreq& answer) {
    answer = {};
    (void)text_copy(answer.ifr_name, name);
    const int asking = query_socket();
    if (asking < 0) return false;
    const bool answered = ioctl(asking, request, &answer) == 0;
    close(asking);
    return answered;
}

std::uint32_t address_of(const sockaddr& address) {
    sockaddr_in internet;
    static_assert(sizeof internet <= sizeof address);
    std::memcpy(&internet, &address, sizeof internet);
    return internet.sin_addr.s_addr;
}

// The byte counters of an interface. Counters wrap at 2^32 here, on kernels of any width.
struct Traffic {
    std::uint32_t received;
    std::uint32_t sent;
};

// Reads a line of /proc/net/dev. False when it has not all of its 17 fields.
bool traffic_parse(const char* line, char (&name)[12], Traffic& traffic) {
    unsigned long long counter[16];
    const int fields = std::sscanf(
        line,
        " %11[^:]:%llu %llu %llu %llu %llu %llu %llu %llu %llu %llu %llu %llu %llu %llu %llu %llu",
        name, &counter[0], &counter[1], &counter[2], &counter[3], &counter[4], &counter[5],
        &counter[6], &counter[7], &counter[8], &counter[9], &counter[10], &counter[11],
        &counter[12], &counter[13], &counter[14], &counter[15]);
    if (fields != 17) return false;
    traffic = {static_cast<std::uint32_t>(counter[0]), static_cast<std::uint32_t>(counter[8])};
    return true;
}

// Looks an interface up in the text of /proc/net/dev. False when it is not listed.
bool traffic_find(std::FILE* devices, const char* wanted, Traffic& traffic) {
    char line[256];
    for (int header = 0; header < 2; header++) {
        if (!next_line(devices, line)) return false;
    }
    while (next_line(devices, line) && line[0] != '\n') {
        char name[12] = {};
        // A name of 12 characters or more is cut by neither side and matches nothing.
        if (traffic_parse(line, name, traffic) && std::strncmp(name, wanted, sizeof name) == 0)
            return true;
    }
    return false;
}

}  // namespace

int getpppnic(const char* name) {
    ifreq answer;
    return nic_ask(name, SIOCGIFADDR, answer) ? 0 : 1;
}

int getnic(const char* name, const char* option, char* out) {
    const NicQuery* query = nic_query_find(option);
    ifreq answer;
    if (!query || !nic_ask(name, query->request, answer)) return 1;

    const char* text;
    if (query->request == SIOCGIFHWADDR) {
        unsigned char bytes[6];
        std::memcpy(bytes, answer.ifr_hwaddr.sa_data, sizeof bytes);
        text = hwaddr(bytes);
    } else {
        text = inetaddr(address_of(answer.ifr_addr));
    }
    std::memcpy(out, text, std::strlen(text) + 1);
    return 0;
}

char* hwaddr(const unsigned char* bytes) {
    static char text[30];
    (void)text_print(text, "%02X:%02X:%02X:%02X:%02X:%02X", bytes[0], bytes[1], bytes[2], bytes[3],
                     bytes[4], bytes[5]);
    return text;
}

char* inetaddr(std::uint32_t address) {
    return inet_ntoa(in_addr{address});
}

int get_mac(const char* ip, char* out) {
    arpreq request = {};
    sockaddr_in neighbour = {};
    neighbour.sin_family = AF_INET;
    neighbour.sin_addr.s_addr = inet_addr(ip);
    std::memcpy(&request.arp_pa, &neighbour, sizeof neighbour);
    (void)text_copy(request.arp_dev, kLanDevice);

    const int asking = query_socket();
    if (asking < 1) return -1;
    const bool known = ioctl(asking, SIOCGARP, &request) == 0;
    close(asking);
    if (!known) return -1;

    unsigned char bytes[6];
    std::memcpy(bytes, request.arp_ha.sa_data, sizeof bytes);
    // Kept: lower case here, upper case in hwaddr().
    (void)text_print({out, kMacTextSize}, "%02x:%02x:%02x:%02x:%02x:%02x", bytes[0], bytes[1],
                     bytes[2], bytes[3], bytes[4], bytes[5]);
    return 0;
}

int speed_get(const char* name, char* out) {
    std::FILE* devices = popen("cat /proc/net/dev", "r");
    if (!devices) return -1;
    Traffic traffic;
    if (traffic_find(devices, name, traffic)) {
        (void)text_print({out, kTrafficTextSize}, "%" PRIu32 "(%.1fMB)/%" PRIu32 "(%.1fMB)",
                         traffic.received, traffic.received / kMebibyte, traffic.sent,
                         traffic.sent / kMebibyte);
    }
    pclose(devices);
    return 0;
}
