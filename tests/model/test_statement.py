"""Known requests and their outcomes, worked out by hand: the model has to get these right."""

import pytest

import model
from world import Device, Host, Script, Station, WanLink, World

TUN, USERS = b"/disk/conf/ipsec.cfg", b"/disk/conf/pptpuser.cfg"
VER, CFG = b"/etc/router.ver", b"/etc/cpectl.cfg"
ZERO_MAC = b"00:00:00:00:00:00"


def run(request, **world):
    """The outcome of a request written as on the command line: COMMAND, or COMMAND JSON."""
    return model.run(World(**world), request.encode().split(b" ", 1))


def line(stdout):
    return stdout.encode() + b"\n"


ANSWERS = (
    # why, world, request, answer
    ("a longer request name runs the command that it begins with", {},
     "rebootNow", '{"fun":"reboot","stat":"ok"}'),
    ("a longer name of a lister too", {}, "getStaListXYZ",
     '{"fun":"getStaList","stat":"ok","cbk":{"stalist":[]}}'),
    ("no argument object", {}, "setAdmPass", '{"fun":"setAdmPass","stat":"er"}'),
    ("text that is no JSON counts as none", {}, "setAdmPass {", '{"fun":"setAdmPass","stat":"er"}'),
    ("what follows the JSON value does not matter", {}, 'devNmSet {"devNm":"a"} junk',
     '{"fun":"devNmSet","stat":"ok"}'),
    ("member names are compared without regard to case", {}, 'devNmSet {"DEVNM":"a"}',
     '{"fun":"devNmSet","stat":"ok"}'),
    ("no password stored", {}, "getAdmPass",
     '{"fun":"getAdmPass","stat":"ok","cbk":{"admPass":""}}'),
    ("the version loses its first character and what follows a blank",
     {"files": {VER: b"SW_VERSION=V1.2.3 build\nSW_DATE=20200101\n"},
      "nvram": {b"PRODUCT_TYPE": b"QRX30"}}, "getBaseInfo",
     '{"fun":"getBaseInfo","stat":"ok","cbk":{"platform":"QRX30","fwVersion":"1.2.3-20200101"}}'),
    ("no version file", {}, "getBaseInfo",
     '{"fun":"getBaseInfo","stat":"ok","cbk":{"platform":"","fwVersion":"-"}}'),
    ("a day, an hour and a minute", {"files": {b"/proc/uptime": b"90061.5 1.0\n"}}, "gwDevListGet",
     '{"fun":"gwDevListGet","stat":"ok","cbk":{"devNm":"","devMac":"","devIp":"","wireFunc":"YES",'
     '"runTmDays":1,"runTmHours":1,"runTmMins":1}}'),
    ("less than a minute, and a model without radio",
     {"files": {b"/proc/uptime": b"59.99 1.0\n"}, "nvram": {b"PRODUCT_TYPE": b"QRX30LT-2"}},
     "gwDevListGet",
     '{"fun":"gwDevListGet","stat":"ok","cbk":{"devNm":"","devMac":"","devIp":"","wireFunc":"NO",'
     '"runTmDays":0,"runTmHours":0,"runTmMins":0}}'),
    ("a WAN request without a link", {}, "wanInfoSet {}", '{"fun":"wanInfoSet","stat":"err"}'),
    ("a stored type is reported as it stands; an unknown one is NONE",
     {"nvram": {b"WAN1_TYPE": b"PPPOE2", b"WAN2_TYPE": b"L2TP", b"WAN3_TYPE": b"DHCP"},
      "mvram": {b"WAN3_RUN_IP": b"10.0.0.5", b"WAN3_RUN_GW": b"1" * 70}}, "wanInfoGet",
     '{"fun":"wanInfoGet","stat":"ok","cbk":{'
     '"WAN1":{"wanType":"PPPOE2","pppoeUser":"","pppoePwd":"","wanRunIP":"","wanRunGW":""},'
     '"WAN2":{"wanType":"NONE","wanRunIP":"","wanRunGW":""},'
     '"WAN3":{"wanType":"DHCP","dhcpType":"0","dhcpDns1":"","dhcpDns2":"","wanRunIP":"10.0.0.5",'
     '"wanRunGW":"' + "1" * 63 + '"},'
     '"WAN4":{"wanType":"NONE","wanRunIP":"","wanRunGW":""}}}'),
    ("an argument that is no string", {}, 'lanConfSet {"lanIp":"1.2.3.4","lanNetmask":24}',
     '{"fun":"lanConfSet","stat":"er"}'),
    ("a WAN reply without entries", {"wan": []}, "getWanFlowinfo",
     '{"fun":"getWanFlowinfo","stat":"ok","cbk":{"up_total":0,"down_total":0}}'),
    ("only WAN links are listed, all count",
     {"wan": [WanLink(b"WAN2", 4096, 8192), WanLink(b"LTE1", 0, 8192)]}, "getWanFlowinfo",
     '{"fun":"getWanFlowinfo","stat":"ok","cbk":{"WAN2":{"up_rate":1,"down_rate":0.5},'
     '"up_total":2,"down_total":0.5}}'),
    ("a name that all links begin with stands four times", {"wan": [WanLink(b"WAN", 8192, 8192)]},
     "getWanFlowinfo",
     '{"fun":"getWanFlowinfo","stat":"ok","cbk":{' + "".join(
         f'"WAN{n}":{{"up_rate":1,"down_rate":1}},' for n in (1, 2, 3, 4))
     + '"up_total":1,"down_total":1}}'),
    ("hosts with a MAC, up to the first bad address",
     {"hosts": [Host(b"10.0.0.1", 2 ** 33, 5, 0, 1536), Host(b"10.0.0.2"), Host(b"10.0.0.3"),
                Host(b"300.1.1.1"), Host(b"10.0.0.1")],
      "neighbours": {b"10.0.0.1": b"aa-bb-cc-dd-ee-ff", b"10.0.0.3": ZERO_MAC}},
     "getHostFlowinfo",
     '{"fun":"getHostFlowinfo","stat":"ok","cbk":{"hostinfo":[{"ip":"10.0.0.1",'
     '"mac":"AA:BB:CC:DD:EE:FF","up_rate":1.5,"down_rate":0,"up_total":5,'
     '"down_total":8589934592}]}}'),
    ("the network name and its flag are those of the first station",
     {"hosts": [Host(b"10.0.0.1"), Host(b"10.0.0.2")],
      "neighbours": {b"10.0.0.1": b"02:00:00:00:00:0a", b"10.0.0.2": b"02:00:00:00:00:0b"},
      "stations": [Station(b"10.0.0.9", b"first", 1), Station(b"10.0.0.2", b"second", 0)]},
     "setStaList",
     '{"fun":"setStaList","args":{"data":[{"mac":"02:00:00:00:00:0A","ip":"10.0.0.1","ty":1},'
     '{"mac":"02:00:00:00:00:0B","ip":"10.0.0.2","ssid":"first","ty":2}]}}'),
    ("no name when the first station's flag is clear",
     {"hosts": [Host(b"10.0.0.2")], "neighbours": {b"10.0.0.2": b"02:00:00:00:00:0b"},
      "stations": [Station(b"10.0.0.2", b"x", 2)]}, "getStaList",
     '{"fun":"getStaList","stat":"ok","cbk":{"stalist":[{"mac":"02:00:00:00:00:0B",'
     '"ip":"10.0.0.2","ty":2}]}}'),
    ("no time passed, no memory file", {"files": {b"/proc/stat": b"cpu  1 2 3 4 5 6 7 8\n"}},
     "getCpuMemLoad", '{"fun":"getCpuMemLoad","stat":"ok","cbk":{"cpu_load":2,"mem_load":2}}'),
    ("60 busy of 100, 80 % of the memory",
     {"readings": {b"/proc/stat": [b"cpu  0 0 0 0 0 0 0 0\n", b"cpu  60 0 0 30 10 0 0 0\n"]},
      "files": {b"/proc/meminfo": b"MemTotal: 100000 kB\nMemFree: 20000 kB\n"}}, "getCpuMemLoad",
     '{"fun":"getCpuMemLoad","stat":"ok","cbk":{"cpu_load":30.000001907348633,"mem_load":68}}'),
    ("a busy interval gives the upper bound, no used memory the lower",
     {"readings": {b"/proc/stat": [b"cpu  0 0 0 0\n", b"cpu  10 20 30 0 0 4 5 6\n"]},
      "files": {b"/proc/meminfo": b"a 5\nb 5\n"}}, "getCpuMemLoad",
     '{"fun":"getCpuMemLoad","stat":"ok","cbk":{"cpu_load":50,"mem_load":2}}'),
    ("nothing to count from", {}, "getHostNum",
     '{"fun":"getHostNum","stat":"ok","cbk":{"host_num":1,"conn_num":10}}'),
    ("connections of the second kind of kernel",
     {"mvram": {b"KERNEL_TYPE": b"2"},
      "files": {b"/proc/sys/net/netfilter/nf_conntrack_count": b"57\n"}}, "getHostNum",
     '{"fun":"getHostNum","stat":"ok","cbk":{"host_num":1,"conn_num":57}}'),
    ("a kernel type without a file",
     {"mvram": {b"KERNEL_TYPE": b"4"}, "files": {b"/sys/module/fc/parameters/active_host": b"7\n"}},
     "getHostNum", '{"fun":"getHostNum","stat":"ok","cbk":{"host_num":7,"conn_num":10}}'),
    ("an empty MAC", {}, 'offline {"mac":""}', '{"fun":"offline","stat":"er"}'),
    ("any other text", {}, 'offline {"mac":"aa-bb"}', '{"fun":"offline","stat":"ok"}'),
    ("a port that is a number", {"nvram": {b"LAN_IP": b"192.168.100.254-long-text"}},
     'openIntranetProxy {"serverHost":"h","serverPort":8080,"clientKey":"k","timeout":"5"}',
     '{"fun":"openIntranetProxy","stat":"er","cbk":{"lanInfo":"192.168.100.254-long-tex"}}'),
    ("no LAN address", {}, "openIntranetProxy",
     '{"fun":"openIntranetProxy","stat":"er","cbk":{"lanInfo":":80"}}'),
    ("a longer word counts as YES", {"nvram": {b"IPSEC_ENABLE": b"YESNO"}}, "ipsecStaGet",
     '{"fun":"ipsecStaGet","cbk":{"run":"YES"},"stat":"ok"}'),
    ("an empty URL", {}, 'ipsecConfGet {"postUrl":""}', '{"fun":"ipsecConfGet","stat":"err"}'),
    ("no tunnel file", {}, 'ipsecConfGet {"postUrl":"u"}',
     '{"fun":"ipsecConfGet","stat":"ok","cbk":{"name":"NONE","md5":""}}'),
    ("the digest of an empty file", {"files": {USERS: b""}}, 'pptpdConfGet {"postUrl":"u"}',
     '{"fun":"pptpdConfGet","stat":"ok","cbk":{"name":"pptpuser.cfg",'
     '"md5":"d41d8cd98f00b204e9800998ecf8427e"}}'),
    ("tun1 while tun10 is listed", {"files": {TUN: b"tun10 a\n"}},
     'ipsecAddTun {"tunCfg":"tun1 b"}',
     '{"fun":"ipsecAddTun","stat":"err"}'),
    ("tun10 while tun1 is listed", {"files": {TUN: b"tun1 a\n"}},
     'ipsecAddTun {"tunCfg":"tun10 b"}', '{"fun":"ipsecAddTun","stat":"ok"}'),
    ("an action without a tunnel", {}, "ipsecTunReboot",
     '{"fun":"ipsecTunReboot","stat":"ok","cbk":{"stat":"err","retInfo":"tunName is null"},'
     '"stat":"ok"}'),
    ("a name that does not fit", {}, 'ipsecTunReconn {"tunName":"' + "n" * 300 + '"}',
     '{"fun":"ipsecTunReconn","stat":"ok","cbk":{"stat":"err","retInfo":"tunName is too long"},'
     '"stat":"ok"}'),
    ("no tunnel file, no state", {}, "ipsecTunStaGet",
     '{"fun":"ipsecTunStaGet","cbk":{"tun":[]},"stat":"ok"}'),
    ("established, unrouted, other names, any peer, and the end at a line without a name",
     {"files": {TUN: b"one 2 3 4 5 1.1.1.1 7\ntwo 2 3 4 5 0.0.0.0 7\nsix 2 3 4 5 6.6.6.6 7\n"
                     b"few 2 3\n blank 2 3 4 5 6 7\nlost 2 3 4 5 6 7\n"},
      "scripts": {b"/usr/local/sbin/ipsec": Script(
          b'000 #1: "conn_one":500 established; eroute owner\n'
          b'000 #2: "conn_two"[1] 9.8.7.6:4500 established; eroute owner\n'
          b'000 #3: "Conn_few" established; eroute owner\n'
          b'000 #4: "conn_six" established; eroute owner\n'
          b'000 "conn_six": 1.1.1.1...2.2.2.2; unrouted; eroute owner: #0\n')}}, "ipsecTunStaGet",
     '{"fun":"ipsecTunStaGet","cbk":{"tun":[{"name":"one","ip":"1.1.1.1","stat":"1"},'
     '{"name":"two","ip":"9.8.7.6","stat":"1"},{"name":"six","ip":"0.0.0.0","stat":"0"},'
     '{"name":"few","ip":"0.0.0.0","stat":"0"}]},"stat":"ok"}'),
    ("an empty encryption demand", {}, 'pptpdOpen {"ip":{"start":"1","end":"2"},"encrypt":""}',
     '{"fun":"pptpdOpen","stat":"err"}'),
    ("a pool that was never set", {}, "pptpdStaGet",
     '{"fun":"pptpdStaGet","cbk":{"ip":{"start":"","end":""},"enable":"NO","encrypt":"NO"},'
     '"stat":"ok"}'),
    ("a stored address of 16 characters", {"nvram": {b"PPTPD_REMOTEIP_END": b"1" * 16}},
     "pptpdStaGet", '{"fun":"pptpdStaGet","stat":"err"}'),
    ("ab while abc is listed", {"files": {USERS: b"abc x\n"}}, 'pptpdAddUser {"userCfg":"ab x"}',
     '{"fun":"pptpdAddUser","stat":"err"}'),
    ("no clients file", {}, "pptpdUserStaGet", '{"fun":"pptpdUserStaGet","stat":"err"}'),
    ("a clients line with too few blanks is passed over",
     {"files": {b"/tmp/pptp_clients": b"1 ab 1.1.1.1 2.2.2.2 3.3.3.3\r\n1 2 3 4\n1 b c d e f\n"}},
     "pptpdUserStaGet",
     '{"fun":"pptpdUserStaGet","cbk":{"tun":['
     '{"name":"ab","gw":"1.1.1.1","ip":"2.2.2.2","client":"3.3.3.3"},'
     '{"name":"b","gw":"c","ip":"d","client":"e"}]},"stat":"ok"}'),
    ("all users are deleted under another name", {}, "pptpdDelAllUser",
     '{"fun":"ipsecDelAllUser","stat":"ok"}'),
    ("a longer word counts as YES here too",
     {"nvram": {b"PPTPC_ENABLE": b"YESNO", b"PPTPC_USER": b"u" * 70}}, "pptpcConfgGet",
     '{"fun":"pptpcConfgGet","cbk":{"enable":"YES","serverIp":"","userName":"' + "u" * 63 +
     '","userPasswd":"","serverNet":"","serverMask":"","encrypt":"NO"},"stat":"ok"}'),
    ("no device", {}, "pptpcStaGet",
     '{"fun":"pptpcStaGet","cbk":{"connect":"NO"},"stat":"ok"}'),
    ("a device and its counters",
     {"mvram": {b"PPTPC_DEV": b"ppp0"}, "devices": {b"ppp0": Device(b"10.0.0.2", b"10.0.0.1")},
      "files": {b"/proc/net/dev": b"head\nhead\n  lo:" + b" 1" * 16 + b"\n  ppp0:1048576"
                + b" 2" * 7 + b" 5" + b" 0" * 7 + b"\n"}}, "pptpcStaGet",
     '{"fun":"pptpcStaGet","cbk":{"connect":"YES","ip":"10.0.0.2","gw":"10.0.0.1",'
     '"rxtx":"1048576(1.0MB)/5(0.0MB)"},"stat":"ok"}'),
)


@pytest.mark.parametrize("why,world,request_line,answer", ANSWERS, ids=[row[0] for row in ANSWERS])
def test_answer(why, world, request_line, answer):
    outcome = run(request_line, **world)
    assert outcome.stdout.decode() == answer + "\n"
    assert outcome.status == 0


CALLS = (
    # why, world, request, calls ("nvram_get KEY" and so on, a shell text as it stands)
    ("the same name again only commits", {"nvram": {b"HOSTNAME": b"office"}},
     'devNmSet {"devNm":"office"}', ["nvram_get HOSTNAME", "nvram_commit"]),
    ("the hashed password comes first, the plain one last",
     {"scripts": {b"/sbin/cpecryptpw": Script(b"ENC:hash\n")}}, 'setAdmPass {"admPass":"it\'s"}',
     ["shell /sbin/cpecryptpw 'it'\\''s' | cut -b 5- >/tmp/password.tmp", "nvram_get ADMIN_AUTH",
      "nvram_set ADMIN_AUTH hash", "nvram_get ADMIN_AUTH", "nvram_set ADMIN_AUTH it's",
      "nvram_commit", "shell /usr/sbin/webserv.sh userinfo >/dev/null 2>&1"]),
    ("a failed hash is the empty text", {"nvram": {b"ADMIN_AUTH": b"pw"}},
     'setAdmPass {"admPass":"pw"}',
     ["shell /sbin/cpecryptpw pw | cut -b 5- >/tmp/password.tmp", "nvram_get ADMIN_AUTH",
      "nvram_set ADMIN_AUTH ", "nvram_get ADMIN_AUTH", "nvram_set ADMIN_AUTH pw", "nvram_commit",
      "shell /usr/sbin/webserv.sh userinfo >/dev/null 2>&1"]),
    ("only the first link is set, twice committed", {"nvram": {b"WAN1_DHCP_TYPE": b"0"}},
     'wanInfoSet {"WAN1":{"wanType":"DHCP","dhcpType":"0","dhcpDns1":"1"},"WAN3":{"wanType":"x"}}',
     ["nvram_get WAN1_TYPE", "nvram_set WAN1_TYPE DHCP", "nvram_get WAN1_DHCP_TYPE",
      "nvram_commit", "nvram_commit", "shell /usr/sbin/ui.sh flash >/dev/null"]),
    ("any type that begins with 1 brings the DNS servers", {},
     'wanInfoSet {"WAN2":{"wanType":"DHCP","dhcpType":"12","dhcpDns2":"2"}}',
     ["nvram_get WAN2_TYPE", "nvram_set WAN2_TYPE DHCP", "nvram_get WAN2_DHCP_TYPE",
      "nvram_set WAN2_DHCP_TYPE 12", "nvram_get WAN2_DHCP_DNS2", "nvram_set WAN2_DHCP_DNS2 2",
      "nvram_commit", "nvram_commit", "shell /usr/sbin/ui.sh flash >/dev/null"]),
    ("no link at all commits once", {}, "wanInfoSet {}",
     ["nvram_commit", "shell /usr/sbin/ui.sh flash >/dev/null"]),
    ("the DNS server follows the LAN address",
     {"nvram": {b"LAN_IP": b"192.168.1.1", b"DHCP_DNS1": b"192.168.1.1", b"LAN_NETMASK": b"m"}},
     'lanConfSet {"lanIp":"192.168.2.1","lanNetmask":"m"}',
     ["nvram_get LAN_IP", "nvram_get DHCP_DNS1", "nvram_get DHCP_DNS1",
      "nvram_set DHCP_DNS1 192.168.2.1", "nvram_get LAN_IP", "nvram_set LAN_IP 192.168.2.1",
      "nvram_get LAN_NETMASK", "nvram_commit"]),
    ("another DNS server stays",
     {"nvram": {b"LAN_IP": b"192.168.1.1", b"DHCP_DNS1": b"8.8.8.8", b"LAN_NETMASK": b"m"}},
     'lanConfSet {"lanIp":"192.168.2.1","lanNetmask":"m"}',
     ["nvram_get LAN_IP", "nvram_get DHCP_DNS1", "nvram_get LAN_IP",
      "nvram_set LAN_IP 192.168.2.1", "nvram_get LAN_NETMASK", "nvram_commit"]),
    ("a missing description touches no key", {},
     'pushfw {"fwurl":"u","fwname":"n","fwmd5":"m"}', []),
    ("the same firmware again starts the script",
     {"mvram": {b"CPECTL_FIRMWARE_URL": b"", b"CPECTL_FIRMWARE_MD5": b"m",
                b"CPECTL_FIRMWARE_NAME": b"n"}},
     'upGrade {"upGradeUrl":"","upGradeMd5":"m","upGradeNm":"n"}',
     ["mvram_get CPECTL_FIRMWARE_URL", "mvram_get CPECTL_FIRMWARE_MD5",
      "mvram_get CPECTL_FIRMWARE_NAME", "shell /usr/sbin/cpectlUpgrade.sh >/dev/null 2>&1 &"]),
    ("proxy values are not committed", {"nvram": {b"PROXY_SERVER_IP": b"h"}},
     'openIntranetProxy {"serverHost":"h","serverPort":"1","clientKey":"k","timeout":"5"}',
     ["nvram_get PROXY_SERVER_IP", "nvram_get PROXY_SERVER_PORT", "nvram_set PROXY_SERVER_PORT 1",
      "nvram_get PROXY_SERVER_KEY", "nvram_set PROXY_SERVER_KEY k",
      "nvram_get PROXY_SERVER_TIMEOUT", "nvram_set PROXY_SERVER_TIMEOUT 5",
      "shell /usr/sbin/proxy_client.sh start >/dev/null 2>&1 &", "nvram_get LAN_IP"]),
    ("IPsec that is on already", {"nvram": {b"IPSEC_ENABLE": b"YES"}}, "ipsecOpen",
     ["nvram_get IPSEC_ENABLE", "nvram_commit",
      "shell /usr/sbin/ipsec.sh install >/dev/null 2>&1 &"]),
    ("tun1 finds the line of tun10", {"files": {TUN: b"none\ntun10 a\ntun b\n"}},
     'ipsecDelTun {"tunName":"tun1"}',
     ["shell /usr/sbin/ipsec.sh del 1 >/dev/null 2>&1",
      "shell mv -f /tmp/cpectl_tmp_write_file /disk/conf/ipsec.cfg >/dev/null",
      "shell /usr/bin/dd_flash -s >/dev/null", "shell /usr/sbin/ipsec.sh config >/dev/null 2>&1"]),
    ("a user's removal goes to the other script", {"files": {USERS: b"a 1\nb 2\n"}},
     'pptpdDelUser {"userName":"b"}',
     ["shell /usr/sbin/pptp.sh config_copy >/dev/null 2>&1",
      "shell mv -f /tmp/cpectl_tmp_write_file /disk/conf/pptpuser.cfg >/dev/null",
      "shell /usr/bin/dd_flash -s >/dev/null",
      "shell /usr/sbin/ipsec.sh user_del 2 >/dev/null 2>&1 &"]),
    ("a name for the shell", {}, 'ipsecTunReboot {"tunName":"x;y"}',
     ["shell /usr/sbin/ipsec.sh set 'x;y' 2 >/dev/null 2>&1 &"]),
    ("an empty encryption stops before anything", {},
     'pptpcOpen {"serverIp":"1","userName":"u","userPasswd":"p","serverNet":"n","serverMask":"m",'
     '"encrypt":""}', []),
    ("values are cut to their buffers", {"mvram": {b"PPTPC_MANUAL": b"1"}},
     'pptpcOpen {"serverIp":"12345678901234567890","userName":"u","userPasswd":"p",'
     '"serverNet":"n","serverMask":"m","encrypt":"YESNO"}',
     ["nvram_get PPTPC_ENABLE", "nvram_set PPTPC_ENABLE YES", "nvram_get PPTPC_SERVER",
      "nvram_set PPTPC_SERVER 1234567890123456789", "nvram_get PPTPC_USER",
      "nvram_set PPTPC_USER u", "nvram_get PPTPC_PWD", "nvram_set PPTPC_PWD p",
      "nvram_get PPTPC_SEC", "nvram_set PPTPC_SEC YESN", "nvram_get PPTPC_NETMASK",
      "nvram_set PPTPC_NETMASK m", "nvram_get PPTPC_NET", "nvram_set PPTPC_NET n",
      "mvram_get PPTPC_MANUAL", "mvram_set PPTPC_MANUAL ", "nvram_commit",
      "shell /usr/sbin/pptp.sh init client >/dev/null 2>&1 &"]),
    ("a stop by hand", {}, "pptpcShutdown",
     ["mvram_get PPTPC_MANUAL", "mvram_set PPTPC_MANUAL 1", "nvram_commit",
      "shell killall pptpc >/dev/null 2>&1", "shell /usr/sbin/cron.sh init >/dev/null 2>&1 &"]),
    ("the kernel type is read until it matches", {"mvram": {b"KERNEL_TYPE": b"2"}}, "getHostNum",
     ["mvram_get KERNEL_TYPE", "mvram_get KERNEL_TYPE"]),
    ("the WAN rates are asked for with 48 bytes", {}, "getWanFlowinfo",
     ["user_netlink_regist 102 0",
      "netlink_send_user 102 48 " + "00" * 16 + "11000000" + "30000000" + "00" * 16 + "04000000"
      + "66000000", "netlink_receive_user", "user_netlink_unregist"]),
)


@pytest.mark.parametrize("why,world,request_line,calls", CALLS, ids=[row[0] for row in CALLS])
def test_calls(why, world, request_line, calls):
    outcome = run(request_line, **world)
    assert [" ".join(part.decode() if isinstance(part, bytes) else str(part) for part in call)
            for call in outcome.calls] == calls


def test_silence_and_255():
    for arguments in ([], [b"reb"], [b"-h", b"{}"], [b"a", b"b", b"c"], [b""], [b"getWanFlowinfo"]):
        outcome = model.run(World(), arguments)
        assert (outcome.stdout, outcome.status, outcome.complains) == (b"", 255, False), arguments


def test_arguments_of_1024_bytes_are_refused():
    longest = b'{"devNm":"%s"}' % (b"x" * 1011)
    assert model.run(World(), [b"devNmSet", longest]).status == 0
    outcome = model.run(World(), [b"devNmSet", longest + b" "])
    assert (outcome.stdout, outcome.status, outcome.complains) == (b"", 255, True)
    assert outcome.calls == []


def test_help():
    for word in (b"-h", b"--help", b"?"):
        outcome = model.run(World(), [word])
        lines = outcome.stdout.split(b"\n")
        assert (len(lines), outcome.status) == (50, 255)
        assert lines[0] == b"getAdmPass               0"
        assert lines[14] == (b"wanInfoSet               5 "
                             b"wanIp,wanNetmask,wanGateway,wanDns1,wanDns2")


def test_identity_file():
    world = World(files={VER: b"SW_VERSION=V1 b\n",
                         CFG: b"a\n\n</CP_SW_MODEL> old\nb CP_SW_VERSION"},
                  nvram={b"PRODUCT_TYPE": b"it's", b"LAN_IF_MAC": b"02:00"})
    outcome = model.run(world, [b"localcfgUpdate"])
    assert (outcome.stdout, outcome.status) == (b'{"fun":"localcfgUpdate","stat":"ok"}', 255)
    expected = b"a\n</CP_SW_VERSION> V1 b\n</CP_SW_MODEL> it's\n</CP_HW_ADDRESS> 02:00\n"
    assert outcome.world.files[CFG] == expected
    assert model.run(outcome.world, [b"localcfgUpdate"]).world.files[CFG] == expected
    assert ("shell", b"echo '</CP_SW_MODEL> it'\\''s' >> /etc/cpectl.cfg") in outcome.calls


def test_line_files():
    listed = b"tun1 a\n\nnone\ntun10 b\ntun100 c\n x\n" + b"w" * 127 + b" d\n"
    after = run('ipsecDelTun {"tunName":"tun10"}', files={TUN: listed}).world.files
    assert after == {TUN: b"tun100 c\n"}
    after = run('ipsecAddTun {"tunCfg":"noblank"}').world.files
    assert after == {TUN: b"noblank\n"}


def test_over_the_air_offer():
    offer = (b'{"msg":{"path":"http://h/fw/img-1.2.bin","textNotes":"n","md5":"%s",'
             b'"type":"longer than ten"}}' % (b"5" * 130))
    outcome = run("checkOta", web=offer, nvram={b"LAN_DEF_MAC": b"02:00"})
    assert (outcome.stdout, outcome.status) == (b"", 255)
    prefix = b"CLOUD_PUSH_FIRMWARE_"
    assert outcome.world.mvram == {
        prefix + b"FWADDR": b"http://h/fw/img-1.2.bin", prefix + b"FWNAME": b"img-1.2.bin",
        prefix + b"FWDESC": b"n", prefix + b"FWMD5ADDR": b"5" * 128 + b"longer than ten",
        prefix + b"FWTYPE": b"longer than ten"}
    assert outcome.calls[-1] == ("shell", b"/usr/sbin/pushOTA.sh get &")
    again = model.run(outcome.world, [b"checkOta"])
    assert [call for call in again.calls if call[0] == "mvram_set"] == []
    for missing in (b'{"msg":{"path":"a/b","textNotes":"n","md5":"m"}}', b"{}", b"", b"[1"):
        outcome = run("checkOta", web=missing)
        assert outcome.world.mvram == {} and outcome.calls[-1][1].startswith(b"cat ")
