// Handlers that answer with their own names and note how they were called: the program of
// main_test is the real entry and the real command table with these behind it.
//
// Environment: PROBE_RECORD names the file for the calls, PROBE_LOG opens the log there,
// PROBE_LOG_LEVEL is the lowest level that it takes, and PROBE_ANSWER chooses another answer: null,
// large, lost, lost null, or member.
#include <cjson/cJSON.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "log/log.h"
#include "platform/handlers.h"
#include "tools/reply.h"

namespace {

[[gnu::constructor]] void open_log() {
    if (const char* path = getenv("PROBE_LOG")) cpectl_log_init(path);
    if (const char* level = getenv("PROBE_LOG_LEVEL")) cpectl_runtimedebug_level = atoi(level);
}

void note_call(const char* handler, std::int32_t argc, const cJSON* args) {
    const char* path = getenv("PROBE_RECORD");
    FILE* record = path ? fopen(path, "a") : nullptr;
    if (!record) return;
    char* text = args ? cJSON_PrintUnformatted(args) : nullptr;
    fprintf(record, "%s %d %s\n", handler, argc, text ? text : "(no object)");
    fflush(record);  // stays open: the answer must not end up in it when standard output is closed
}

cJSON* answer(const char* handler, std::int32_t argc, const cJSON* args) {
    note_call(handler, argc, args);
    const char* chosen = getenv("PROBE_ANSWER");
    const char* kind = chosen ? chosen : "";
    if (strcmp(kind, "null") == 0) return nullptr;
    if (strcmp(kind, "lost null") == 0) {
        add_item(nullptr, "cbk", nullptr);
        return nullptr;
    }
    cJSON* reply = reply_new(handler);
    if (strcmp(kind, "lost") == 0) add_item(reply, "cbk", nullptr);
    if (strcmp(kind, "member") == 0) add_text(reply, "text", "a \"b\"\n\xC3\xA9");
    if (strcmp(kind, "large") == 0) {
        static char text[1 << 20];
        memset(text, 'x', sizeof text - 1);
        add_text(reply, "text", text);
    }
    return reply;
}

}  // namespace

#define PROBE_HANDLER(name)                             \
    cJSON* name(std::int32_t argc, const cJSON* args) { \
        return answer(#name, argc, args);               \
    }

PROBE_HANDLER(cpectl_adminpasswd_show)
PROBE_HANDLER(cpectl_amdinpasswd_set)
PROBE_HANDLER(cpectl_getBaseinfo)
PROBE_HANDLER(cpectl_gatewaydev_show)
PROBE_HANDLER(cpectl_devname_set)
PROBE_HANDLER(cpectl_hostNum_get)
PROBE_HANDLER(cpectl_CpuMemLoad_get)
PROBE_HANDLER(cpectl_wanFlowinfo_get)
PROBE_HANDLER(cpectl_hostFlowinfo_get)
PROBE_HANDLER(cpectl_offline_set)
PROBE_HANDLER(cpectl_bindurl_set)
PROBE_HANDLER(cpectl_stalist_get)
PROBE_HANDLER(cpectl_localcfg_update)
PROBE_HANDLER(cpectl_waninfo_show)
PROBE_HANDLER(cpectl_waninfo_set)
PROBE_HANDLER(cpectl_lanconf_set)
PROBE_HANDLER(cpectl_lanconf_show)
PROBE_HANDLER(cpectl_reboot)
PROBE_HANDLER(cpectl_upgrade)
PROBE_HANDLER(cpectl_push_firmware)
PROBE_HANDLER(cpectl_checkOta)
PROBE_HANDLER(cpectl_stalist_show)
PROBE_HANDLER(cpectl_open_proxy_client)
PROBE_HANDLER(cpectl_close_proxy_client)
PROBE_HANDLER(cpectl_vpn_ipsec_open)
PROBE_HANDLER(cpectl_vpn_ipsec_close)
PROBE_HANDLER(cpectl_vpn_ipsec_sta_get)
PROBE_HANDLER(cpectl_vpn_ipsec_conf_get)
PROBE_HANDLER(cpectl_vpn_ipsec_tun_add)
PROBE_HANDLER(cpectl_vpn_ipsec_tun_del)
PROBE_HANDLER(cpectl_vpn_ipsec_tun_all_del)
PROBE_HANDLER(cpectl_vpn_ipsec_tun_sta_get)
PROBE_HANDLER(cpectl_vpn_ipsec_tun_shutdown)
PROBE_HANDLER(cpectl_vpn_ipsec_tun_reconnect)
PROBE_HANDLER(cpectl_vpn_ipsec_tun_reboot)
PROBE_HANDLER(cpectl_pptpd_open)
PROBE_HANDLER(cpectl_pptpd_oclose)
PROBE_HANDLER(cpectl_pptpd_sta_get)
PROBE_HANDLER(cpectl_pptpd_conf_get)
PROBE_HANDLER(cpectl_pptpd_user_add)
PROBE_HANDLER(cpectl_pptpd_user_del)
PROBE_HANDLER(cpectl_pptpd_user_all_del)
PROBE_HANDLER(cpectl_pptpd_user_sta_get)
PROBE_HANDLER(cpectl_pptpc_open)
PROBE_HANDLER(cpectl_pptpc_oclose)
PROBE_HANDLER(cpectl_pptpc_conf_get)
PROBE_HANDLER(cpectl_pptpc_sta_get)
PROBE_HANDLER(cpectl_pptpc_reconnect)
PROBE_HANDLER(cpectl_pptpc_shutdown)
