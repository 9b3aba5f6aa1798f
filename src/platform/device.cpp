// Device administration: administrator password, names, base information, identity file, reboot.
#include "platform/device.h"

#include <cjson/cJSON.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "nvram.h"
#include "platform/handlers.h"
#include "tools/file.h"
#include "tools/reply.h"
#include "tools/shell.h"
#include "tools/store.h"
#include "tools/text.h"

namespace {

constexpr char kHashFile[] = "/tmp/password.tmp";
constexpr char kIdentityFile[] = "/etc/cpectl.cfg";

constexpr std::size_t kVersionSize = 128;   // version text and each capture for it
constexpr std::size_t kIdentitySize = 256;  // one value of the identity file

// One command that stores one argument under one key.
cJSON* name_set(cJSON* reply, const cJSON* args, const char* member, const char* key) {
    const char* value = arg_text(args, member);
    if (!value) return reply_stat(reply, "er");

    nvram_update(key, value);
    nvram_commit();
    return reply_stat(reply, "ok");
}

// How long the gateway has been running, in whole seconds; 0 when the kernel does not tell.
std::int32_t uptime_seconds() {
    char text[kCaptureSize] = {};
    double uptime = 0;
    double idle = 0;
    if (system_operate("cat /proc/uptime", text) != 0) return 0;
    if (std::sscanf(text, "%lf %lf", &uptime, &idle) < 1) return 0;
    const bool fits = uptime > -2147483649.0 && uptime < 2147483648.0;
    return fits ? static_cast<std::int32_t>(uptime) : 0;
}

// One line of the identity file.
struct IdentityItem {
    const char* capture;  // prints the value
    const char* remove;   // deletes the old line
    const char* append;   // adds the new one
};

constexpr IdentityItem kIdentityItems[] = {
    {"cat /etc/router.ver | grep SW_VERSION | cut -d '=' -f 2", "sed -i '/CP_SW_VERSION/d' %s",
     "echo '</CP_SW_VERSION> %s' >> %s"},
    {"nvram get PRODUCT_TYPE | cut -d '=' -f 2", "sed -i '/CP_SW_MODEL/d' %s",
     "echo '</CP_SW_MODEL> %s' >> %s"},
    {"nvram show | grep LAN_IF_MAC | cut -d '=' -f 2 ", "sed -i '/CP_HW_ADDRESS/d' %s",
     "echo '</CP_HW_ADDRESS> %s' >> %s"},
};

// Brings one line of the identity file up to date. A value that does not fit into the command that
// adds it leaves the old line in place.
void identity_update(const IdentityItem& item) {
    char value[kIdentitySize] = {};
    char remove[512] = {};
    char append[512] = {};
    system_operate(item.capture, value);
    if (!shell_print(remove, item.remove, kIdentityFile)) return;
    if (!shell_print(append, item.append, value, kIdentityFile)) return;
    shell_run(remove);
    shell_run(append);
}

}  // namespace

const char* write_admin_auth(const char* password) {
    static char text[256];
    if (is_symbolic_link(kHashFile)) return "";
    if (!shell_print(text, "/sbin/cpecryptpw %s | cut -b 5- >/tmp/password.tmp", password))
        return "";
    if (shell_run(text) != 0) return "";

    std::FILE* file = std::fopen(kHashFile, "re");
    const bool read = file && next_line(file, text);
    if (file) std::fclose(file);
    if (!read) return "";
    text[text_until(text, "\n").size()] = '\0';
    return text;
}

cJSON* cpectl_adminpasswd_show(std::int32_t, const cJSON*) {
    cJSON* reply = reply_new("getAdmPass");
    cJSON* cbk = cJSON_CreateObject();
    if (!reply || !cbk) return reply_lost(__func__, Lost::plain);

    reply_stat(reply, "ok");
    add_item(reply, "cbk", cbk);
    add_text(cbk, "admPass", nvram_text("ADMIN_AUTH"));
    return reply;
}

cJSON* cpectl_amdinpasswd_set(std::int32_t, const cJSON* args) {
    cJSON* reply = reply_new("setAdmPass");
    if (!reply) return reply_lost(__func__, Lost::plain);

    const char* password = arg_text(args, "admPass");
    if (!password) return reply_stat(reply, "er");

    // Kept: the hashed form goes to the key first and the plain text replaces it at once. An empty
    // form, from a tool that failed, is written like any other.
    nvram_update("ADMIN_AUTH", write_admin_auth(password));
    nvram_update("ADMIN_AUTH", password);
    nvram_commit();
    shell_run("/usr/sbin/webserv.sh userinfo >/dev/null 2>&1");
    return reply_stat(reply, "ok");
}

cJSON* cpectl_devname_set(std::int32_t, const cJSON* args) {
    cJSON* reply = reply_new("devNmSet");
    if (!reply) return reply_lost(__func__, Lost::spaced);
    return name_set(reply, args, "devNm", "HOSTNAME");
}

cJSON* cpectl_bindurl_set(std::int32_t, const cJSON* args) {
    cJSON* reply = reply_new("bindUrlSet");
    if (!reply) return reply_lost(__func__, Lost::plain);
    return name_set(reply, args, "bindUrl", "CPECTL_BINDURL");
}

cJSON* cpectl_getBaseinfo(std::int32_t, const cJSON*) {
    cJSON* reply = reply_new("getBaseInfo");
    cJSON* cbk = cJSON_CreateObject();
    if (!reply || !cbk) return reply_lost(__func__, Lost::plain);

    reply_stat(reply, "ok");
    add_item(reply, "cbk", cbk);
    add_text(cbk, "platform", nvram_text("PRODUCT_TYPE"));

    char version[kVersionSize] = {};
    char captured[kVersionSize] = {};
    system_operate("cat /etc/router.ver | grep SW_VERSION | cut -d '=' -f 2 |cut -d ' ' -f 1",
                   captured);
    // Kept: the version loses its first character.
    (void)text_copy(version, text_tail(captured, 1));
    (void)text_append(version, "-");
    std::memset(captured, 0, sizeof captured);
    system_operate("cat /etc/router.ver | grep SW_DATE | cut -d '=' -f 2", captured);
    (void)text_append(version, captured);
    add_text(cbk, "fwVersion", version);
    return reply;
}

cJSON* cpectl_gatewaydev_show(std::int32_t, const cJSON*) {
    cJSON* reply = reply_new("gwDevListGet");
    cJSON* cbk = cJSON_CreateObject();
    if (!reply || !cbk) return reply_lost(__func__, Lost::plain);

    reply_stat(reply, "ok");
    add_item(reply, "cbk", cbk);
    add_text(cbk, "devNm", nvram_text("HOSTNAME"));
    add_text(cbk, "devMac", nvram_text("LAN_DEF_MAC"));
    add_text(cbk, "devIp", mvram_text("WAN1_RUN_IP"));
    const std::int32_t uptime = uptime_seconds();
    // Longer model names of the series have no wireless functions either.
    add_text(cbk, "wireFunc", begins_with(nvram_text("PRODUCT_TYPE"), "QRX30LT") ? "NO" : "YES");
    add_number(cbk, "runTmDays", uptime / 86400);
    add_number(cbk, "runTmHours", uptime / 60 / 60 % 24);
    add_number(cbk, "runTmMins", uptime / 60 % 60);
    return reply;
}

cJSON* cpectl_reboot(std::int32_t, const cJSON*) {
    cJSON* reply = reply_new("reboot");
    if (!reply) return reply_lost(__func__, Lost::plain);

    reply_stat(reply, "ok");
    shell_run("/usr/sbin/reboot.sh install >/dev/null 2>&1 &");
    return reply;
}

// Kept: prints its answer itself, without a newline, and answers nothing, so that the program ends
// with status 255 although the answer says "ok".
cJSON* cpectl_localcfg_update(std::int32_t, const cJSON*) {
    const int lock = folder_lock(kIdentityFile);  // two at once would take each other's lines
    for (const IdentityItem& item : kIdentityItems)
        identity_update(item);

    char squeeze[512] = {};
    if (shell_print(squeeze, "sed -i '/^$/d' %s", kIdentityFile)) shell_run(squeeze);
    folder_unlock(lock);
    std::printf("{\"fun\":\"localcfgUpdate\",\"stat\":\"ok\"}");
    return nullptr;
}
