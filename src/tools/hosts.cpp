// Walking the table of hosts behind the gateway, and the MAC texts of its answers.
#include "tools/hosts.h"

#include <arpa/inet.h>

#include <string_view>

#include "tools/text.h"

bool host_read(int index, HostRecord& host) {
    HostRecord record = {};
    hostsort_get_next(&record, index);
    record.ip[sizeof record.ip - 1] = '\0';
    host = record;
    return inet_addr(host.ip) != INADDR_NONE;
}

bool mac_is_known(const char* mac) {
    return *mac && !begins_with(mac, "00:00:00:00:00:00");
}

void mac_normalise(std::span<char> mac) {
    for (char& c : mac) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
        if (c == '-') c = ':';
    }
}
