// The command table, its lookup and its listing.
#include <cstdio>
#include <cstring>
#include <string_view>

#include "main/command.h"
#include "platform/handlers.h"
#include "tools/text.h"

// The order is both the search order and the order of the help listing: never sort it.
// clang-format off
constexpr CommandEntry handle[] = {
    // name               handler                     argc  argument names
    {"getAdmPass",         cpectl_adminpasswd_show,       0, {}},
    {"setAdmPass",         cpectl_amdinpasswd_set,        1, {"admPass"}},
    {"getBaseInfo",        cpectl_getBaseinfo,            0, {}},
    {"gwDevListGet",       cpectl_gatewaydev_show,        0, {}},
    {"devNmSet",           cpectl_devname_set,            1, {"devNm"}},
    {"getHostNum",         cpectl_hostNum_get,            0, {}},
    {"getCpuMemLoad",      cpectl_CpuMemLoad_get,         0, {}},
    {"getWanFlowinfo",     cpectl_wanFlowinfo_get,        0, {}},
    {"getHostFlowinfo",    cpectl_hostFlowinfo_get,       0, {}},
    {"offline",            cpectl_offline_set,            1, {"mac"}},
    {"bindUrlSet",         cpectl_bindurl_set,            1, {"bindUrl"}},
    {"getStaList",         cpectl_stalist_get,            0, {}},
    {"localcfgUpdate",     cpectl_localcfg_update,        0, {}},
    {"wanInfoGet",         cpectl_waninfo_show,           0, {}},
    {"wanInfoSet",         cpectl_waninfo_set,            5, {"wanIp", "wanNetmask", "wanGateway", "wanDns1", "wanDns2"}},
    {"lanConfSet",         cpectl_lanconf_set,            2, {"lanIp", "lanNetmask"}},
    {"lanConfGet",         cpectl_lanconf_show,           0, {}},
    {"reboot",             cpectl_reboot,                 0, {}},
    {"upGrade",            cpectl_upgrade,                3, {"upGradeUrl", "upGradeMd5", "upGradeNm"}},
    {"pushfw",             cpectl_push_firmware,          4, {"fwurl", "fwname", "fwmd5", "fwdesc"}},
    {"checkOta",           cpectl_checkOta,               0, {}},
    {"setStaList",         cpectl_stalist_show,           0, {}},  // Kept: shows, sets nothing
    {"openIntranetProxy",  cpectl_open_proxy_client,      4, {"serverHost", "serverPort", "clientKey", "timeout"}},
    {"closeIntranetProxy", cpectl_close_proxy_client,     0, {}},
    {"ipsecOpen",          cpectl_vpn_ipsec_open,         0, {}},
    {"ipsecClose",         cpectl_vpn_ipsec_close,        0, {}},
    {"ipsecStaGet",        cpectl_vpn_ipsec_sta_get,      0, {}},
    {"ipsecConfGet",       cpectl_vpn_ipsec_conf_get,     1, {"postUrl"}},
    {"ipsecAddTun",        cpectl_vpn_ipsec_tun_add,      1, {"tunCfg"}},
    {"ipsecDelTun",        cpectl_vpn_ipsec_tun_del,      1, {"tunName"}},
    {"ipsecDelAllTun",     cpectl_vpn_ipsec_tun_all_del,  0, {}},
    {"ipsecTunStaGet",     cpectl_vpn_ipsec_tun_sta_get,  0, {}},
    {"ipsecTunShutdown",   cpectl_vpn_ipsec_tun_shutdown, 1, {"tunName"}},
    {"ipsecTunReconn",     cpectl_vpn_ipsec_tun_reconnect, 1, {"tunName"}},
    {"ipsecTunReboot",     cpectl_vpn_ipsec_tun_reboot,   1, {"tunName"}},
    {"pptpdOpen",          cpectl_pptpd_open,             2, {"ip", "encrypt"}},
    {"pptpdClose",         cpectl_pptpd_oclose,           0, {}},
    {"pptpdStaGet",        cpectl_pptpd_sta_get,          0, {}},
    {"pptpdConfGet",       cpectl_pptpd_conf_get,         1, {"postUrl"}},
    {"pptpdAddUser",       cpectl_pptpd_user_add,         1, {"userCfg"}},
    {"pptpdDelUser",       cpectl_pptpd_user_del,         1, {"userName"}},
    {"pptpdDelAllUser",    cpectl_pptpd_user_all_del,     0, {}},
    {"pptpdUserStaGet",    cpectl_pptpd_user_sta_get,     0, {}},
    {"pptpcOpen",          cpectl_pptpc_open,             6, {"serverIp", "userName", "userPasswd", "serverNet", "serverMask", "encrypt"}},
    {"pptpcClose",         cpectl_pptpc_oclose,           0, {}},
    {"pptpcConfgGet",      cpectl_pptpc_conf_get,         0, {}},  // Kept: "Confg"
    {"pptpcStaGet",        cpectl_pptpc_sta_get,          0, {}},
    {"pptpcReconn",        cpectl_pptpc_reconnect,        0, {}},
    {"pptpcShutdown",      cpectl_pptpc_shutdown,         0, {}},
    {},  // end
};
// clang-format on

static_assert(sizeof handle / sizeof handle[0] == kCommandCount + 1);

// Each argument count is the number of names that are set, and no name stands behind a gap.
consteval bool every_argc_matches_its_names() {
    for (const CommandEntry& row : handle) {
        for (std::size_t i = 0; i < kMaxArguments; i++) {
            const bool counted = i < static_cast<std::size_t>(row.argc);
            if (counted != (row.argnames[i] != nullptr)) return false;
        }
    }
    return true;
}
static_assert(every_argc_matches_its_names());

// A request only has to begin with a row's name, so a name that begins with an earlier one would
// never be reached.
consteval bool no_name_hides_a_later_one() {
    for (std::size_t row = 0; row < kCommandCount; row++) {
        for (std::size_t later = row + 1; later < kCommandCount; later++) {
            if (std::string_view(handle[later].name).starts_with(handle[row].name)) return false;
        }
    }
    return true;
}
static_assert(no_name_hides_a_later_one());

// Only by the names: whether a function's address is null is no constant with the sanitizers on.
consteval bool only_the_last_row_is_empty() {
    for (std::size_t row = 0; row < kCommandCount; row++) {
        if (!handle[row].name) return false;
    }
    return !handle[kCommandCount].name;
}
static_assert(only_the_last_row_is_empty());

const CommandEntry* command_find(const char* request) {
    for (const CommandEntry* row = handle; row->name; row++) {
        // Kept: a longer request, such as rebootNow, runs the command that it begins with.
        if (begins_with(request, row->name)) return row;
    }
    return nullptr;
}

void command_list() {
    for (const CommandEntry* row = handle; row->name; row++) {
        if (row->argc == 0) {
            std::printf("%-20s     %d\n", row->name, row->argc);
            continue;
        }
        std::printf("%-20s     %-2d", row->name, row->argc);
        for (std::int32_t i = 0; i < row->argc; i++) {
            std::printf(i == 0 ? "%s" : ",%s", row->argnames[i]);
        }
        std::putchar('\n');
    }
}
