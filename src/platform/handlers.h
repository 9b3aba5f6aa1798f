// The command handlers, one for each row of the command table.
//
// To add a command:
//   1. Write its handler in the source file of its subsystem: build the reply, refuse early, do the
//      work, answer. Members go in in the order in which they are printed.
//   2. Declare it below.
//   3. Give it a row in src/main/command_table.cpp, where no name may begin with an earlier one,
//      and raise kCommandCount.
//   4. Add request cases under tests/cases/, and its lines in contract/.
//
// All take the row's argument count and the argument object (or null), and return a new reply
// object, or null when there is nothing to print. A reply that cannot be built is logged and null.
//
// Behaviour that looks wrong and is relied upon is labelled alike: grep -rn 'Kept:' src
#pragma once

#include <cstdint>

struct cJSON;

// device.cpp: administrator password, identity, reboot
cJSON* cpectl_adminpasswd_show(std::int32_t argc, const cJSON* args);
cJSON* cpectl_amdinpasswd_set(std::int32_t argc, const cJSON* args);  // Kept: "amdin"
cJSON* cpectl_getBaseinfo(std::int32_t argc, const cJSON* args);
cJSON* cpectl_gatewaydev_show(std::int32_t argc, const cJSON* args);
cJSON* cpectl_devname_set(std::int32_t argc, const cJSON* args);
cJSON* cpectl_bindurl_set(std::int32_t argc, const cJSON* args);
cJSON* cpectl_localcfg_update(std::int32_t argc, const cJSON* args);
cJSON* cpectl_reboot(std::int32_t argc, const cJSON* args);

// network.cpp: WAN and LAN settings
cJSON* cpectl_waninfo_show(std::int32_t argc, const cJSON* args);
cJSON* cpectl_waninfo_set(std::int32_t argc, const cJSON* args);
cJSON* cpectl_lanconf_set(std::int32_t argc, const cJSON* args);
cJSON* cpectl_lanconf_show(std::int32_t argc, const cJSON* args);

// monitoring.cpp: traffic, load, counts
cJSON* cpectl_wanFlowinfo_get(std::int32_t argc, const cJSON* args);
cJSON* cpectl_hostFlowinfo_get(std::int32_t argc, const cJSON* args);
cJSON* cpectl_CpuMemLoad_get(std::int32_t argc, const cJSON* args);
cJSON* cpectl_hostNum_get(std::int32_t argc, const cJSON* args);

// stations.cpp: wireless stations
cJSON* cpectl_stalist_get(std::int32_t argc, const cJSON* args);
cJSON* cpectl_stalist_show(std::int32_t argc, const cJSON* args);
cJSON* cpectl_offline_set(std::int32_t argc, const cJSON* args);

// firmware.cpp: upgrade, push, over-the-air check
cJSON* cpectl_upgrade(std::int32_t argc, const cJSON* args);
cJSON* cpectl_push_firmware(std::int32_t argc, const cJSON* args);
cJSON* cpectl_checkOta(std::int32_t argc, const cJSON* args);

// proxy.cpp: remote-access proxy client
cJSON* cpectl_open_proxy_client(std::int32_t argc, const cJSON* args);
cJSON* cpectl_close_proxy_client(std::int32_t argc, const cJSON* args);

// vpn.cpp: IPsec service and tunnels, PPTP server, users and client
cJSON* cpectl_vpn_ipsec_open(std::int32_t argc, const cJSON* args);
cJSON* cpectl_vpn_ipsec_close(std::int32_t argc, const cJSON* args);
cJSON* cpectl_vpn_ipsec_sta_get(std::int32_t argc, const cJSON* args);
cJSON* cpectl_vpn_ipsec_conf_get(std::int32_t argc, const cJSON* args);
cJSON* cpectl_vpn_ipsec_tun_add(std::int32_t argc, const cJSON* args);
cJSON* cpectl_vpn_ipsec_tun_del(std::int32_t argc, const cJSON* args);
cJSON* cpectl_vpn_ipsec_tun_all_del(std::int32_t argc, const cJSON* args);
cJSON* cpectl_vpn_ipsec_tun_sta_get(std::int32_t argc, const cJSON* args);
cJSON* cpectl_vpn_ipsec_tun_shutdown(std::int32_t argc, const cJSON* args);
cJSON* cpectl_vpn_ipsec_tun_reconnect(std::int32_t argc, const cJSON* args);
cJSON* cpectl_vpn_ipsec_tun_reboot(std::int32_t argc, const cJSON* args);
cJSON* cpectl_pptpd_open(std::int32_t argc, const cJSON* args);
cJSON* cpectl_pptpd_oclose(std::int32_t argc, const cJSON* args);  // Kept: "oclose"
cJSON* cpectl_pptpd_sta_get(std::int32_t argc, const cJSON* args);
cJSON* cpectl_pptpd_conf_get(std::int32_t argc, const cJSON* args);
cJSON* cpectl_pptpd_user_add(std::int32_t argc, const cJSON* args);
cJSON* cpectl_pptpd_user_del(std::int32_t argc, const cJSON* args);
cJSON* cpectl_pptpd_user_all_del(std::int32_t argc, const cJSON* args);
cJSON* cpectl_pptpd_user_sta_get(std::int32_t argc, const cJSON* args);
cJSON* cpectl_pptpc_open(std::int32_t argc, const cJSON* args);
cJSON* cpectl_pptpc_oclose(std::int32_t argc, const cJSON* args);  // Kept: "oclose"
cJSON* cpectl_pptpc_conf_get(std::int32_t argc, const cJSON* args);
cJSON* cpectl_pptpc_sta_get(std::int32_t argc, const cJSON* args);
cJSON* cpectl_pptpc_reconnect(std::int32_t argc, const cJSON* args);
cJSON* cpectl_pptpc_shutdown(std::int32_t argc, const cJSON* args);
