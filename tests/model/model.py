"""What cpectl does with one request, stated a second time and independently of the program.

`run(world, arguments)` gives the answer, the exit status, the ordered platform calls and the world
afterwards. The commands themselves are in model_<subsystem>.py, one short function each, written as
plainly as possible: this is a statement of the behaviour to test against, not a second product.
"""

import cjson
import model_device as device
import model_firmware as firmware
import model_monitoring as monitoring
import model_network as network
import model_proxy as proxy
import model_stations as stations
import model_vpn as vpn
from world import Gateway, Outcome

ARGUMENT_SIZE = 1024

# The order is the order of the search and of the help.
COMMANDS = (
    (b"getAdmPass", device.get_adm_pass, ()),
    (b"setAdmPass", device.set_adm_pass, (b"admPass",)),
    (b"getBaseInfo", device.get_base_info, ()),
    (b"gwDevListGet", device.gw_dev_list_get, ()),
    (b"devNmSet", device.dev_nm_set, (b"devNm",)),
    (b"getHostNum", monitoring.get_host_num, ()),
    (b"getCpuMemLoad", monitoring.get_cpu_mem_load, ()),
    (b"getWanFlowinfo", monitoring.get_wan_flowinfo, ()),
    (b"getHostFlowinfo", monitoring.get_host_flowinfo, ()),
    (b"offline", stations.offline, (b"mac",)),
    (b"bindUrlSet", device.bind_url_set, (b"bindUrl",)),
    (b"getStaList", stations.get_sta_list, ()),
    (b"localcfgUpdate", device.localcfg_update, ()),
    (b"wanInfoGet", network.wan_info_get, ()),
    (b"wanInfoSet", network.wan_info_set,
     (b"wanIp", b"wanNetmask", b"wanGateway", b"wanDns1", b"wanDns2")),
    (b"lanConfSet", network.lan_conf_set, (b"lanIp", b"lanNetmask")),
    (b"lanConfGet", network.lan_conf_get, ()),
    (b"reboot", device.reboot, ()),
    (b"upGrade", firmware.up_grade, (b"upGradeUrl", b"upGradeMd5", b"upGradeNm")),
    (b"pushfw", firmware.pushfw, (b"fwurl", b"fwname", b"fwmd5", b"fwdesc")),
    (b"checkOta", firmware.check_ota, ()),
    (b"setStaList", stations.set_sta_list, ()),
    (b"openIntranetProxy", proxy.open_proxy,
     (b"serverHost", b"serverPort", b"clientKey", b"timeout")),
    (b"closeIntranetProxy", proxy.close_proxy, ()),
    (b"ipsecOpen", vpn.ipsec_open, ()),
    (b"ipsecClose", vpn.ipsec_close, ()),
    (b"ipsecStaGet", vpn.ipsec_sta_get, ()),
    (b"ipsecConfGet", vpn.ipsec_conf_get, (b"postUrl",)),
    (b"ipsecAddTun", vpn.ipsec_add_tun, (b"tunCfg",)),
    (b"ipsecDelTun", vpn.ipsec_del_tun, (b"tunName",)),
    (b"ipsecDelAllTun", vpn.ipsec_del_all_tun, ()),
    (b"ipsecTunStaGet", vpn.ipsec_tun_sta_get, ()),
    (b"ipsecTunShutdown", vpn.ipsec_tun_shutdown, (b"tunName",)),
    (b"ipsecTunReconn", vpn.ipsec_tun_reconn, (b"tunName",)),
    (b"ipsecTunReboot", vpn.ipsec_tun_reboot, (b"tunName",)),
    (b"pptpdOpen", vpn.pptpd_open, (b"ip", b"encrypt")),
    (b"pptpdClose", vpn.pptpd_close, ()),
    (b"pptpdStaGet", vpn.pptpd_sta_get, ()),
    (b"pptpdConfGet", vpn.pptpd_conf_get, (b"postUrl",)),
    (b"pptpdAddUser", vpn.pptpd_add_user, (b"userCfg",)),
    (b"pptpdDelUser", vpn.pptpd_del_user, (b"userName",)),
    (b"pptpdDelAllUser", vpn.pptpd_del_all_user, ()),
    (b"pptpdUserStaGet", vpn.pptpd_user_sta_get, ()),
    (b"pptpcOpen", vpn.pptpc_open,
     (b"serverIp", b"userName", b"userPasswd", b"serverNet", b"serverMask", b"encrypt")),
    (b"pptpcClose", vpn.pptpc_close, ()),
    (b"pptpcConfgGet", vpn.pptpc_confg_get, ()),
    (b"pptpcStaGet", vpn.pptpc_sta_get, ()),
    (b"pptpcReconn", vpn.pptpc_reconn, ()),
    (b"pptpcShutdown", vpn.pptpc_shutdown, ()),
)


def run(world, arguments):
    """The outcome of `cpectl ARGUMENTS...` (bytes, without the program's own name)."""
    gateway = Gateway(world)
    stdout, status, complains = _answer(gateway, arguments)
    return Outcome(stdout, status, complains, gateway.calls, gateway.world)


def _answer(gateway, arguments):
    """(standard output, exit status, whether the program itself complains)"""
    if len(arguments) not in (1, 2):
        return b"", 255, False
    if len(arguments) == 1 and arguments[0] in (b"-h", b"--help", b"?"):
        return help_listing(), 255, False
    args = None
    if len(arguments) == 2:
        if len(arguments[1]) >= ARGUMENT_SIZE:
            return b"", 255, True
        args = cjson.parse_or_none(arguments[1])
    handler = find(arguments[0])
    if handler is None:
        return b"", 255, False
    reply = handler(gateway, args)
    if reply is None:
        return gateway.printed, 255, False
    return cjson.print_unformatted(reply) + b"\n", 0, False


def find(request):
    """The handler of the first row whose name the request begins with."""
    for name, handler, _ in COMMANDS:
        if request.startswith(name):
            return handler
    return None


def help_listing():
    out = b""
    for name, _, names in COMMANDS:
        if names:
            out += b"%-20s     %-2d%s\n" % (name, len(names), b",".join(names))
        else:
            out += b"%-20s     %d\n" % (name, 0)
    return out
