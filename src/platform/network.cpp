// Network settings: the four WAN links and the LAN address.
#include <cjson/cJSON.h>

#include <cstdint>
#include <cstring>
#include <span>

#include "nvram.h"
#include "platform/handlers.h"
#include "tools/reply.h"
#include "tools/shell.h"
#include "tools/store.h"
#include "tools/text.h"

namespace {

constexpr int kWanCount = 4;
constexpr const char* kWanNames[kWanCount] = {"WAN1", "WAN2", "WAN3", "WAN4"};
constexpr std::size_t kWanKeySize = 20;    // the longest, "WAN4_PPPOE_USER", takes 16
constexpr std::size_t kRunValueSize = 64;  // what the running address and gateway are cut to

// A member of a link's object and the key that holds it, "%d" being the link's number.
struct WanField {
    const char* member;
    const char* key;
};

// All keys of a link; written and shown in this order, each type its own.
constexpr WanField kWanType = {"wanType", "WAN%d_TYPE"};

constexpr WanField kStaticFields[] = {
    {"wanIp", "WAN%d_IP"},     {"wanNetmask", "WAN%d_NETMASK"}, {"wanGateway", "WAN%d_GATEWAY"},
    {"wanDns1", "WAN%d_DNS1"}, {"wanDns2", "WAN%d_DNS2"},
};

constexpr WanField kPppoeFields[] = {
    {"pppoeUser", "WAN%d_PPPOE_USER"},
    {"pppoePwd", "WAN%d_PPPOE_PWD"},
};

constexpr WanField kDhcpType = {"dhcpType", "WAN%d_DHCP_TYPE"};  // "1": the servers below count

constexpr WanField kDhcpFields[] = {
    {"dhcpDns1", "WAN%d_DHCP_DNS1"},
    {"dhcpDns2", "WAN%d_DHCP_DNS2"},
};

constexpr WanField kRunFields[] = {
    // in the second store, and only shown
    {"wanRunIP", "WAN%d_RUN_IP"},
    {"wanRunGW", "WAN%d_RUN_GW"},
};

enum class WanKind { fixed, pppoe, dhcp, other };

// Kept: only the beginning of the type counts, so that PPPOE2 is PPPOE.
WanKind wan_kind(const char* type) {
    if (begins_with(type, "STATIC")) return WanKind::fixed;
    if (begins_with(type, "PPPOE")) return WanKind::pppoe;
    if (begins_with(type, "DHCP")) return WanKind::dhcp;
    return WanKind::other;
}

struct WanKey {
    char text[kWanKeySize];
};

WanKey wan_key(const WanField& field, int link) {
    WanKey key = {};
    std::size_t size = 0;
    for (const char* form = field.key; *form && size < sizeof key.text - 1; form++) {
        const bool number = form[0] == '%' && form[1] == 'd';
        key.text[size++] = number ? static_cast<char>('0' + link) : *form;
        if (number) form++;
    }
    return key;
}

const char* wan_text(const WanField& field, int link) {
    return nvram_text(wan_key(field, link).text);
}

void wan_write(const WanField& field, int link, const char* value) {
    nvram_update(wan_key(field, link).text, value);
}

// Writes what the object gives for a field; a member that is missing or no text is skipped.
void wan_write_given(const WanField& field, int link, const cJSON* object) {
    if (const char* value = arg_text(object, field.member)) wan_write(field, link, value);
}

void wan_write_given(std::span<const WanField> fields, int link, const cJSON* object) {
    for (const WanField& field : fields)
        wan_write_given(field, link, object);
}

void wan_write_dhcp(int link, const cJSON* object) {
    const char* type = arg_text(object, kDhcpType.member);
    if (!type) return;
    if (type[0] != '1') {
        wan_write(kDhcpType, link, "0");  // the servers keep their old values
        return;
    }
    wan_write(kDhcpType, link, type);
    wan_write_given(kDhcpFields, link, object);
}

// Writes the settings of one link and commits. An object without a type writes nothing.
void wan_set(const cJSON* object, int link) {
    if (const char* type = arg_text(object, kWanType.member)) {
        wan_write(kWanType, link, type);
        switch (wan_kind(type)) {
            case WanKind::fixed:
                wan_write_given(kStaticFields, link, object);
                break;
            case WanKind::pppoe:
                wan_write_given(kPppoeFields, link, object);
                break;
            case WanKind::dhcp:
                wan_write_dhcp(link, object);
                break;
            case WanKind::other:
                break;
        }
    }
    nvram_commit();
}

void wan_show(std::span<const WanField> fields, int link, cJSON* info) {
    for (const WanField& field : fields)
        add_text(info, field.member, wan_text(field, link));
}

void wan_show_dhcp(int link, cJSON* info) {
    const bool by_hand = wan_text(kDhcpType, link)[0] == '1';
    add_text(info, kDhcpType.member, by_hand ? "1" : "0");
    for (const WanField& field : kDhcpFields)
        add_text(info, field.member, by_hand ? wan_text(field, link) : "");
}

void wan_show_running(int link, cJSON* info) {
    for (const WanField& field : kRunFields) {
        char value[kRunValueSize] = {};
        (void)text_copy(value, mvram_text(wan_key(field, link).text));
        add_text(info, field.member, value);
    }
}

// Adds the settings and the running values of one link to `links`, as "WAN1" to "WAN4".
void get_wan_detail_info(cJSON* links, int link) {
    cJSON* info = cJSON_CreateObject();
    const char* type = wan_text(kWanType, link);
    const WanKind kind = wan_kind(type);
    add_text(info, kWanType.member, kind == WanKind::other ? "NONE" : type);
    switch (kind) {
        case WanKind::fixed:
            wan_show(kStaticFields, link, info);
            break;
        case WanKind::pppoe:
            wan_show(kPppoeFields, link, info);
            break;
        case WanKind::dhcp:
            wan_show_dhcp(link, info);
            break;
        case WanKind::other:
            break;
    }
    wan_show_running(link, info);
    add_item(links, kWanNames[link - 1], info);
}

// The object of the first link that the request holds, and its number; null when there is none.
const cJSON* wan_requested(const cJSON* args, int& link) {
    for (link = 1; link <= kWanCount; link++) {
        if (const cJSON* object = cJSON_GetObjectItem(args, kWanNames[link - 1])) return object;
    }
    return nullptr;
}

constexpr TextField kLanFields[] = {
    {"lanIp", "LAN_IP"},
    {"lanNetmask", "LAN_NETMASK"},
};

}  // namespace

cJSON* cpectl_waninfo_set(std::int32_t, const cJSON* args) {
    cJSON* reply = reply_new("wanInfoSet");
    if (!reply) return reply_lost(__func__, Lost::plain);

    int link = 0;
    if (const cJSON* object = wan_requested(args, link)) {
        wan_set(object, link);
        reply_stat(reply, "ok");
    } else {
        reply_stat(reply, "err");
    }
    // Kept: commits a second time after wan_set(), and commits and saves without a link as well.
    nvram_commit();
    config_save();
    return reply;
}

cJSON* cpectl_waninfo_show(std::int32_t, const cJSON*) {
    cJSON* reply = reply_new("wanInfoGet");
    cJSON* cbk = cJSON_CreateObject();
    if (!reply || !cbk) return reply_lost(__func__, Lost::plain);

    reply_stat(reply, "ok");
    add_item(reply, "cbk", cbk);
    for (int link = 1; link <= kWanCount; link++)
        get_wan_detail_info(cbk, link);
    return reply;
}

// Kept: unlike the WAN settings, these are neither saved to flash nor applied here.
cJSON* cpectl_lanconf_set(std::int32_t, const cJSON* args) {
    cJSON* reply = reply_new("lanConfSet");
    if (!reply) return reply_lost(__func__, Lost::plain);

    const char* address = arg_text(args, "lanIp");
    const char* netmask = arg_text(args, "lanNetmask");
    if (!address || !netmask) return reply_stat(reply, "er");

    // A copy, since a store may keep one buffer for all its values.
    const char* old_address = strdup(nvram_text("LAN_IP"));
    if (!old_address) return reply_lost(__func__, Lost::plain);

    // Where the LAN's DHCP server hands out the gateway itself as DNS server, that follows.
    if (std::strcmp(old_address, nvram_text("DHCP_DNS1")) == 0) nvram_update("DHCP_DNS1", address);
    nvram_update("LAN_IP", address);
    nvram_update("LAN_NETMASK", netmask);
    nvram_commit();
    return reply_stat(reply, "ok");
}

cJSON* cpectl_lanconf_show(std::int32_t, const cJSON*) {
    cJSON* reply = reply_new("lanConfGet");
    cJSON* cbk = cJSON_CreateObject();
    if (!reply || !cbk) return reply_lost(__func__, Lost::plain);

    reply_stat(reply, "ok");
    add_item(reply, "cbk", cbk);
    add_fields(cbk, kLanFields);
    return reply;
}
