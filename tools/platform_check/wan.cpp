// The check of the WAN rate query: request, callback, and the layout of the reply.
#include <cstring>

#include "checks.h"
#include "library.h"
#include "netlink_user.h"

namespace {

constexpr int kMostLinks = 4;

int callbacks = 0;
bool plausible = false;

bool check_name(const WanRateEntry& entry, int number) {
    char shown[sizeof entry.name + 1];
    printable(shown, sizeof shown, entry.name, sizeof entry.name);
    if (!memchr(entry.name, '\0', sizeof entry.name)) {
        say_wrong("link %d: the name is not ended within its %zu bytes: \"%s\"", number,
                  sizeof entry.name, shown);
        return false;
    }
    const bool known = std::strncmp(entry.name, "WAN", 3) == 0 && entry.name[3] >= '1' &&
                       entry.name[3] <= '4' && !entry.name[4];
    if (!known)
        say_wrong(
            "link %d: \"%s\" is none of WAN1 to WAN4: the layout of the reply may differ "
            "(names are expected at byte %zu of each entry)",
            number, shown, offsetof(WanRateEntry, name));
    return known;
}

bool check_link(const void* address, int number, unsigned& seen) {
    WanRateEntry entry;
    std::memcpy(&entry, address, sizeof entry);
    if (!check_name(entry, number)) return false;
    const unsigned bit = 1U << (entry.name[3] - '1');
    if (seen & bit) {
        say_wrong("%s comes twice", entry.name);
        return false;
    }
    seen |= bit;
    if (entry.down_rate >= 0 && entry.up_rate >= 0) return true;
    say_wrong(
        "%s: rates of %d and %d bits per second cannot be: the layout of the reply may differ",
        entry.name, entry.down_rate, entry.up_rate);
    return false;
}

// True when the reply is in order; what is not, is said.
bool check_reply(const void* address) {
    WanRateReply reply;
    if (!address || !is_readable(address, sizeof reply)) {
        say_wrong("the callback gets no reply");
        return false;
    }
    std::memcpy(&reply, address, sizeof reply);
    if (reply.count < 0 || reply.count > kMostLinks) {
        say_wrong(
            "the reply counts %d links: the layout may differ (the count is expected at byte "
            "%zu)",
            reply.count, offsetof(WanRateReply, count));
        return false;
    }
    const char* entries = static_cast<const char*>(address) + sizeof reply;
    if (!is_readable(entries, static_cast<std::uint32_t>(reply.count) * sizeof(WanRateEntry))) {
        say_wrong("the reply counts %d links and is shorter", reply.count);
        return false;
    }
    unsigned seen = 0;
    for (int i = 0; i < reply.count; i++) {
        if (!check_link(entries + static_cast<std::size_t>(i) * sizeof(WanRateEntry), i + 1, seen))
            return false;
    }
    if (reply.count == 0)
        say_note("the reply holds no link: the layout of the entries was not seen");
    if (reply.count > 0) say_ok("%d links, all with plausible entries", reply.count);
    return true;
}

int reply_received(void* reply) {
    doing("reading the reply");
    callbacks++;
    if (callbacks == 1) plausible = check_reply(reply);
    doing("receiving the reply");
    return 0;
}

bool check_send(decltype(netlink_send_user)* send) {
    WanRateRequest request = {};
    request.type = kWanRateRequestType;
    request.length = sizeof request;
    request.code = kWanRateRequestCode;
    request.unit = kWanRateUnit;
    doing("sending the request");
    const int sent = send(kWanRateUnit, &request, sizeof request);
    if (sent < 0) say_wrong("the request cannot be sent: the call gives %d%s", sent, cause());
    return sent >= 0;
}

void check_receive(decltype(netlink_receive_user)* receive) {
    doing("receiving the reply");
    const int received = receive(reply_received);
    if (received < 0 && callbacks == 0)
        return say_wrong("no reply comes: the call gives %d%s", received, cause());
    if (received < 0) say_wrong("a reply came, but the call gives %d", received);
    if (callbacks == 0) say_wrong("the callback was not called, although the call succeeds");
    if (callbacks > 1) say_wrong("the callback was called %d times instead of once", callbacks);
    if (callbacks == 1 && plausible) say_ok("the request is answered, with one callback");
}

}  // namespace

void check_netlink(const Options&) {
    const char* const calls[] = {"user_netlink_regist", "netlink_send_user", "netlink_receive_user",
                                 "user_netlink_unregist", nullptr};
    void* found[4];
    if (!library_open("libnetlink.so", calls, found)) return;

    doing("opening the channel");
    const int opened = reinterpret_cast<decltype(user_netlink_regist)*>(found[0])(kWanRateUnit, 0);
    if (opened < 0)
        return say_wrong("the channel cannot be opened: the call gives %d%s", opened, cause());
    if (check_send(reinterpret_cast<decltype(netlink_send_user)*>(found[1])))
        check_receive(reinterpret_cast<decltype(netlink_receive_user)*>(found[2]));
    doing("closing the channel");
    reinterpret_cast<decltype(user_netlink_unregist)*>(found[3])();
}
