// The rows of the command table, in order, as callers and scripts know them.
#pragma once

#include <cstdint>

#include "platform/handlers.h"

struct CommandRow {
    const char* name;
    cJSON* (*handler)(std::int32_t argc, const cJSON* args);
    const char* handler_name;
    std::int32_t argc;
    const char* argnames[6];
};

// clang-format off
inline constexpr CommandRow kCommandRows[] = {
    {"getAdmPass",         cpectl_adminpasswd_show,        "cpectl_adminpasswd_show",        0, {}},
    {"setAdmPass",         cpectl_amdinpasswd_set,         "cpectl_amdinpasswd_set",         1, {"admPass"}},
    {"getBaseInfo",        cpectl_getBaseinfo,             "cpectl_getBaseinfo",             0, {}},
    {"gwDevListGet",       cpectl_gatewaydev_show,         "cpectl_gatewaydev_show",         0, {}},
    {"devNmSet",           cpectl_devname_set,             "cpectl_devname_set",             1, {"devNm"}},
    {"getHostNum",         cpectl_hostNum_get,             "cpectl_hostNum_get",             0, {}},
    {"getCpuMemLoad",      cpectl_CpuMemLoad_get,          "cpectl_CpuMemLoad_get",          0, {}},
    {"getWanFlowinfo",     cpectl_wanFlowinfo_get,         "cpectl_wanFlowinfo_get",         0, {}},
    {"getHostFlowinfo",    cpectl_hostFlowinfo_get,        "cpectl_hostFlowinfo_get",        0, {}},
    {"offline",            cpectl_offline_set,             "cpectl_offline_set",             1, {"mac"}},
    {"bindUrlSet",         cpectl_bindurl_set,             "cpectl_bindurl_set",             1, {"bindUrl"}},
    {"getStaList",         cpectl_stalist_get,             "cpectl_stalist_get",             0, {}},
    {"localcfgUpdate",     cpectl_localcfg_update,         "cpectl_localcfg_update",         0, {}},
    {"wanInfoGet",         cpectl_waninfo_show,            "cpectl_waninfo_show",            0, {}},
    {"wanInfoSet",         cpectl_waninfo_set,             "cpectl_waninfo_set",             5, {"wanIp", "wanNetmask", "wanGateway", "wanDns1", "wanDns2"}},
    {"lanConfSet",         cpectl_lanconf_set,             "cpectl_lanconf_set",             2, {"lanIp", "lanNetmask"}},
    {"lanConfGet",         cpectl_lanconf_show,            "cpectl_lanconf_show",            0, {}},
    {"reboot",             cpectl_reboot,                  "cpectl_reboot",                  0, {}},
    {"upGrade",            cpectl_upgrade,                 "cpectl_upgrade",                 3, {"upGradeUrl", "upGradeMd5", "upGradeNm"}},
    {"pushfw",             cpectl_push_firmware,           "cpectl_push_firmware",           4, {"fwurl", "fwname", "fwmd5", "fwdesc"}},
    {"checkOta",           cpectl_checkOta,                "cpectl_checkOta",                0, {}},
    {"setStaList",         cpectl_stalist_show,            "cpectl_stalist_show",            0, {}},
    {"openIntranetProxy",  cpectl_open_proxy_client,       "cpectl_open_proxy_client",       4, {"serverHost", "serverPort", "clientKey", "timeout"}},
    {"closeIntranetProxy", cpectl_close_proxy_client,      "cpectl_close_proxy_client",      0, {}},
    {"ipsecOpen",          cpectl_vpn_ipsec_open,          "cpectl_vpn_ipsec_open",          0, {}},
    {"ipsecClose",         cpectl_vpn_ipsec_close,         "cpectl_vpn_ipsec_close",         0, {}},
    {"ipsecStaGet",        cpectl_vpn_ipsec_sta_get,       "cpectl_vpn_ipsec_sta_get",       0, {}},
    {"ipsecConfGet",       cpectl_vpn_ipsec_conf_get,      "cpectl_vpn_ipsec_conf_get",      1, {"postUrl"}},
    {"ipsecAddTun",        cpectl_vpn_ipsec_tun_add,       "cpectl_vpn_ipsec_tun_add",       1, {"tunCfg"}},
    {"ipsecDelTun",        cpectl_vpn_ipsec_tun_del,       "cpectl_vpn_ipsec_tun_del",       1, {"tunName"}},
    {"ipsecDelAllTun",     cpectl_vpn_ipsec_tun_all_del,   "cpectl_vpn_ipsec_tun_all_del",   0, {}},
    {"ipsecTunStaGet",     cpectl_vpn_ipsec_tun_sta_get,   "cpectl_vpn_ipsec_tun_sta_get",   0, {}},
    {"ipsecTunShutdown",   cpectl_vpn_ipsec_tun_shutdown,  "cpectl_vpn_ipsec_tun_shutdown",  1, {"tunName"}},
    {"ipsecTunReconn",     cpectl_vpn_ipsec_tun_reconnect, "cpectl_vpn_ipsec_tun_reconnect", 1, {"tunName"}},
    {"ipsecTunReboot",     cpectl_vpn_ipsec_tun_reboot,    "cpectl_vpn_ipsec_tun_reboot",    1, {"tunName"}},
    {"pptpdOpen",          cpectl_pptpd_open,              "cpectl_pptpd_open",              2, {"ip", "encrypt"}},
    {"pptpdClose",         cpectl_pptpd_oclose,            "cpectl_pptpd_oclose",            0, {}},
    {"pptpdStaGet",        cpectl_pptpd_sta_get,           "cpectl_pptpd_sta_get",           0, {}},
    {"pptpdConfGet",       cpectl_pptpd_conf_get,          "cpectl_pptpd_conf_get",          1, {"postUrl"}},
    {"pptpdAddUser",       cpectl_pptpd_user_add,          "cpectl_pptpd_user_add",          1, {"userCfg"}},
    {"pptpdDelUser",       cpectl_pptpd_user_del,          "cpectl_pptpd_user_del",          1, {"userName"}},
    {"pptpdDelAllUser",    cpectl_pptpd_user_all_del,      "cpectl_pptpd_user_all_del",      0, {}},
    {"pptpdUserStaGet",    cpectl_pptpd_user_sta_get,      "cpectl_pptpd_user_sta_get",      0, {}},
    {"pptpcOpen",          cpectl_pptpc_open,              "cpectl_pptpc_open",              6, {"serverIp", "userName", "userPasswd", "serverNet", "serverMask", "encrypt"}},
    {"pptpcClose",         cpectl_pptpc_oclose,            "cpectl_pptpc_oclose",            0, {}},
    {"pptpcConfgGet",      cpectl_pptpc_conf_get,          "cpectl_pptpc_conf_get",          0, {}},
    {"pptpcStaGet",        cpectl_pptpc_sta_get,           "cpectl_pptpc_sta_get",           0, {}},
    {"pptpcReconn",        cpectl_pptpc_reconnect,         "cpectl_pptpc_reconnect",         0, {}},
    {"pptpcShutdown",      cpectl_pptpc_shutdown,          "cpectl_pptpc_shutdown",          0, {}},
};
// clang-format on
