"""A request for every command, and a gateway on which each of them has plenty to say."""

import json
import re

import rig  # makes the modules of tools/harden known
import seeds

COMMANDS = seeds.command_names()

REQUESTS = {
    "setAdmPass": {"admPass": "new 'word'"},
    "devNmSet": {"devNm": "office"},
    "offline": {"mac": "02:00:5E:00:00:0A"},
    "bindUrlSet": {"bindUrl": "http://h.example/x"},
    "wanInfoSet": {"WAN2": {"wanType": "STATIC", "wanIp": "192.0.2.9", "wanNetmask": "255.0.0.0",
                            "wanGateway": "192.0.2.1", "wanDns1": "192.0.2.2",
                            "wanDns2": "192.0.2.3"}},
    "lanConfSet": {"lanIp": "192.168.9.1", "lanNetmask": "255.255.0.0"},
    "upGrade": {"upGradeUrl": "http://h.example/f", "upGradeMd5": "m", "upGradeNm": "f"},
    "pushfw": {"fwurl": "http://h.example/f", "fwname": "f", "fwmd5": "m", "fwdesc": "d e"},
    "openIntranetProxy": {"serverHost": "h", "serverPort": "1", "clientKey": "k", "timeout": "9"},
    "ipsecConfGet": {"postUrl": "http://h.example/up"},
    "ipsecAddTun": {"tunCfg": "tun7 a b c d 192.0.2.7 e"},
    "ipsecDelTun": {"tunName": "tun1"},
    "ipsecTunShutdown": {"tunName": "tun1"},
    "ipsecTunReconn": {"tunName": "tun1"},
    "ipsecTunReboot": {"tunName": "tun1"},
    "pptpdOpen": {"ip": {"start": "192.0.2.10", "end": "192.0.2.20"}, "encrypt": "YES"},
    "pptpdConfGet": {"postUrl": "http://h.example/up"},
    "pptpdAddUser": {"userCfg": "eve secret"},
    "pptpdDelUser": {"userName": "ann"},
    "pptpcOpen": {"serverIp": "192.0.2.1", "userName": "u", "userPasswd": "p",
                  "serverNet": "10.0.0.0", "serverMask": "255.0.0.0", "encrypt": "YES"},
}

# Commands that write a file or a store, or have it written by a shell text of their own.
WRITERS = ("setAdmPass", "devNmSet", "bindUrlSet", "localcfgUpdate", "wanInfoSet", "lanConfSet",
           "upGrade", "pushfw", "checkOta", "openIntranetProxy", "ipsecOpen", "ipsecClose",
           "ipsecAddTun", "ipsecDelTun", "ipsecDelAllTun", "ipsecTunStaGet", "pptpdOpen",
           "pptpdClose", "pptpdAddUser", "pptpdDelUser", "pptpdDelAllUser", "pptpcOpen",
           "pptpcClose", "pptpcReconn", "pptpcShutdown")

NVRAM = {
    "ADMIN_AUTH": "old word", "HOSTNAME": "gateway", "PRODUCT_TYPE": "QRX40",
    "LAN_DEF_MAC": "02:00:5E:00:00:01", "LAN_IF_MAC": "02:00:5E:00:00:02",
    "LAN_IP": "192.168.1.1", "LAN_NETMASK": "255.255.255.0", "DHCP_DNS1": "192.168.1.1",
    "WAN1_TYPE": "STATIC", "WAN1_IP": "192.0.2.5", "WAN1_NETMASK": "255.255.255.0",
    "WAN2_TYPE": "PPPOE", "WAN2_PPPOE_USER": "u", "WAN3_TYPE": "DHCP", "WAN3_DHCP_TYPE": "1",
    "IPSEC_ENABLE": "OTHER", "PPTPD_ENABLE": "OTHER", "PPTPD_REMOTEIP_START": "192.0.2.1",
    "PPTPD_REMOTEIP_END": "192.0.2.2", "PPTPC_SERVER": "192.0.2.3", "PPTPC_PWD": "p2",
}
MVRAM = {"WAN1_RUN_IP": "192.0.2.5", "KERNEL_TYPE": "2", "PPTPC_DEV": "lo",
         "PPTPC_MANUAL": "0", "CPECTL_FIRMWARE_URL": "old"}

TUNNELS = b"tun1 a b c d 192.0.2.9 e\ntun2 a b c d 0.0.0.0 e\ntun3 a b c d 192.0.2.3 e\n"
USERS = b"ann secret\nbob secret\n"

# The files as each request finds them.
FILES = {
    "/disk/conf/ipsec.cfg": TUNNELS,
    "/disk/conf/pptpuser.cfg": USERS,
    "/tmp/pptp_clients": b"1 ann 192.0.2.1 192.0.2.2 192.0.2.3\n"
                         b"2 bob 192.0.2.1 192.0.2.4 198.51.100.1\n",
    "/etc/router.ver": b"SW_VERSION= V1.2 b\nSW_DATE=20260101\n",
    "/etc/cpectl.cfg": b"</CP_SW_VERSION> old\n</CP_SW_MODEL> old\nkept\n",
    "/var/run/cpectl/nvram": "".join(f"{key}={value}\n" for key, value in NVRAM.items()).encode(),
    "/disk/conf/nvram": b"HOSTNAME=gateway\n",
    "/var/run/cpectl/mvram": "".join(f"{key}={value}\n" for key, value in MVRAM.items()).encode(),
}

WORLD = """
[file /sys/module/fc/parameters/active_host] 3
[file /proc/sys/net/netfilter/nf_conntrack_count] 17
[file /etc/hosts] 127.0.0.1 ota.cpectl.example h.example
[http 80] {"msg":{"path":"http://h.example/a/b","textNotes":"n o","md5":"m","type":"t"}}
[neighbours]
    192.168.1.10 02:00:5e:00:00:0a
    192.168.1.11 02:00:5e:00:00:0b
[hosts]
    192.168.1.10 1000 2000 3 4
    192.168.1.11 5000 6000 7 8
[stations]
    192.168.1.10 office 1
[wan]
    WAN1 8000 16000
    WAN2 1 2
[script /usr/local/sbin/ipsec whack --status]
    print 000 #2: "conn_tun1":500 STATE_QUICK_I2 (sent QI2, IPsec SA established); eroute owner
    print 000 #3: "conn_tun2"[1] 198.51.100.7:500 established eroute owner
    print 000 "conn_tun3": 10.1.0.0/24===192.0.2.9; unrouted; eroute owner: #0
[script /usr/bin/killall]
"""


def arguments(command):
    """The program's arguments for the command's request."""
    given = REQUESTS.get(command)
    return [command] if given is None else [command, json.dumps(given)]


def request(command, files=None, **environment):
    """A request on a gateway whose files and stores are as above, or as given."""
    return rig.Request(arguments(command), {**FILES, **(files or {})}, environment)


def prepare(gateway, more=""):
    gateway.prepare(WORLD + more)
    for path, content in FILES.items():
        gateway.write(path, content)


def is_answer(command, line):
    """Whether a line is an answer of the command: whole, and its own."""
    try:
        answer = json.loads(line.decode("latin-1"))
    except ValueError:
        return False
    fun = {"pptpdDelAllUser": "ipsecDelAllUser"}.get(command, command)
    return line.endswith(b"}\n") and list(answer)[0] == "fun" and answer["fun"] == fun


LOCALCFG = re.compile(rb'\{"fun":"localcfgUpdate","stat":"ok"\}')
