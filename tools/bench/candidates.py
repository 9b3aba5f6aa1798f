"""What is measured: the programs and requests, and the files that they work on."""
import dataclasses
import sqlite3

EMPTY = "empty C program"
CPECTL = "/bench/cpectl"
FILES = "/bench/files"


@dataclasses.dataclass
class Candidate:
    name: str
    command: list
    status: int = 0         # how it ends
    files: dict = dataclasses.field(default_factory=dict)  # copied before each start: TO and FROM
    beside: str = EMPTY     # the candidate that it is compared with
    size: int = 0           # of its work, when it belongs to a series
    changes: bool = False   # the stores: it works on stores of its own then
    whole: bool = False     # its instructions are counted with those of all that it starts

    def words(self):
        """As spawn_times takes it."""
        return [*([f"={self.status}"] if self.status else []),
                *(f"@{FILES}/{source}:{target}" for target, source in self.files.items()),
                *(f"+{name}={value}" for name, value in self.environment()), *self.command]

    def environment(self):
        return [("CPECTL_RUN_DIR", "/var/run/changing"),
                ("CPECTL_FLASH_DIR", "/disk/changing")] if self.changes else []


def request(command, arguments=None, **others):
    words = [CPECTL, command, *([arguments] if arguments else [])]
    return Candidate(f"cpectl {command}", words, **others)


SCALE = [
    Candidate(EMPTY, ["/bench/empty"]),
    Candidate("empty C program, static", ["/bench/empty_static"]),
    Candidate("empty C program that needs cJSON", ["/bench/cjson"]),
    Candidate("busybox true", ["/usr/bin/busybox", "true"]),
    Candidate("jq -n .", ["/usr/bin/jq", "-n", "."]),
    Candidate("python3 -c 0", ["/usr/bin/python3", "-c", "0"]),
]

LAN_SAME = '{"lanIp":"192.168.1.1","lanNetmask":"255.255.255.0"}'
LAN_OTHER = '{"lanIp":"192.168.2.1","lanNetmask":"255.255.255.0"}'
STORE = {"/var/run/changing/nvram": "nvram", "/disk/changing/nvram": "nvram"}

# Commands that start no shell: those that the targets name, and others.
QUIET = [
    request("lanConfGet"),
    request("wanInfoGet"),
    dataclasses.replace(request("devNmSet", '{"devNm":"gateway"}'),
                        name="cpectl devNmSet, unchanged"),
    request("getHostNum"),
]
OTHERS = [
    request("--help", status=255),
    dataclasses.replace(request("lanConfSet", LAN_SAME), name="cpectl lanConfSet, unchanged"),
    dataclasses.replace(request("lanConfSet", LAN_OTHER), name="cpectl lanConfSet, changed",
                        files=STORE, changes=True),
]

# Requests whose texts go through the shell, and those texts ("<": what it prints is read).
SHELL = [
    ("getBaseInfo", None,
     ["<cat /etc/router.ver | grep SW_VERSION | cut -d '=' -f 2 |cut -d ' ' -f 1",
      "<cat /etc/router.ver | grep SW_DATE | cut -d '=' -f 2"]),
    ("setAdmPass", '{"admPass":"s3cret"}',
     ["/sbin/cpecryptpw s3cret | cut -b 5- >/tmp/password.tmp",
      "/usr/sbin/webserv.sh userinfo >/dev/null 2>&1"]),
    ("reboot", None, ["/usr/sbin/reboot.sh install >/dev/null 2>&1 &"]),
    ("ipsecTunReconn", '{"tunName":"tun1"}',
     ["/usr/sbin/ipsec.sh set tun1 1 >/dev/null 2>&1 &"]),
]

OTA_URL = ("http://ota.cpectl.example/cloud-ota/pltcheck?"
           "devMac=02:00:5E:10:00:01&platform=QRX300&version=20260101")
OTA_CURL = ["/usr/bin/curl", "-s", "-o", "/tmp/pushfile", OTA_URL]
OTA_VERSION = "<cat /etc/router.ver | grep SW_DATE | cut -d '=' -f 2"
OTA = [
    Candidate("curl -s, the same URL", OTA_CURL, whole=True),
    Candidate("cpectl checkOta", [CPECTL, "checkOta"], status=255, whole=True,
              beside="curl -s, the same URL"),
    Candidate("curl -s and the shell call of checkOta",
              ["/bench/shell_calls", OTA_VERSION, "=", *OTA_CURL], whole=True),
    Candidate("cpectl checkOta, beside these two", [CPECTL, "checkOta"], status=255, whole=True,
              beside="curl -s and the shell call of checkOta"),
]

# The store by itself, on 100 keys.
STORES = [
    Candidate("get, plain file", ["/bench/plain", "get"]),
    Candidate("get, libnvram", ["/bench/linked", "get"]),
    Candidate("get, libnvram loaded on use", ["/bench/loaded", "get"]),
    Candidate("get, nvram tool", ["/bench/nvram", "get", "KEY_050"]),
    Candidate("get, SQLite", ["/bench/sqlite", "get"]),
    Candidate("set, plain file", ["/bench/plain", "set"]),
    Candidate("set, libnvram", ["/bench/linked", "set"], changes=True),
    Candidate("set, SQLite", ["/bench/sqlite", "set"]),
    Candidate("set and commit, plain file", ["/bench/plain", "set+commit"]),
    Candidate("set and commit, libnvram", ["/bench/linked", "set+commit"], changes=True),
    Candidate("set and commit, SQLite", ["/bench/sqlite", "set+commit"]),
    Candidate("commit, libnvram", ["/bench/linked", "commit"]),
    Candidate("commit, SQLite", ["/bench/sqlite", "commit"]),
]


def shell_pairs():
    pairs = []
    for command, arguments, texts in SHELL:
        alone = Candidate(f"the shell calls of {command} alone", ["/bench/shell_calls", *texts],
                          whole=True)
        changes = command == "setAdmPass"
        pairs += [alone, request(command, arguments, beside=alone.name, whole=True,
                                 changes=changes, files=STORE if changes else {})]
    return pairs


def _series(what, sizes, make):
    found = []
    for size in sizes:
        candidate = make(size)
        candidate.name = f"{candidate.name}, {size} {what}"
        candidate.size = size
        found.append(candidate)
    return found


# The growth of the cost with the work: one list a series. Each tunnel has ten lines of status.
GROWTH = [
    _series("hosts", (10, 100, 1000), lambda size: request(
        "getHostFlowinfo", files={"/tmp/hosts": f"count-{size}"})),
    _series("stations", (10, 100, 1000), lambda size: request(
        "getStaList", files={"/tmp/stations": f"count-{size}", "/tmp/hosts": "count-10"})),
    _series("tunnels", (10, 100, 500), lambda size: request(
        "ipsecTunStaGet",
        files={"/disk/conf/ipsec.cfg": f"tunnels-{size}", "/tmp/status": f"status-{size}"})),
    _series("users", (10, 100, 1000), lambda size: request(
        "pptpdUserStaGet",
        files={"/tmp/pptp_clients": f"users-{size}"})),
    _series("lines of its file", (10, 100, 1000), lambda size: request(
        "ipsecDelTun", '{"tunName":"last"}',
        files={"/disk/conf/ipsec.cfg": f"tunnels-{size}"})),
]


def growth():
    return [candidate for series in GROWTH for candidate in series]


def everything_but_growth():
    return [*SCALE, *QUIET, *OTHERS, *shell_pairs(), *OTA, *STORES]


# ---- the files in /bench/files

def _store_entries():
    """The NVRAM of a gateway with four WAN links, 100 keys."""
    entries = [("ADMIN_AUTH", "s3cret"), ("HOSTNAME", "gateway"), ("PRODUCT_TYPE", "QRX300"),
               ("LAN_DEF_MAC", "02:00:5E:10:00:01"), ("LAN_IP", "192.168.1.1"),
               ("LAN_NETMASK", "255.255.255.0"), ("PPTPD_ENABLE", "YES"), ("IPSEC_ENABLE", "YES"),
               ("KEY_050", "some value of key 50")]
    for link, kind in enumerate(("STATIC", "PPPOE", "DHCP", "DHCP"), 1):
        entries += [(f"WAN{link}_{name}", value) for name, value in (
            ("TYPE", kind), ("IP", f"198.51.100.{link}"), ("NETMASK", "255.255.255.0"),
            ("GATEWAY", "198.51.100.254"), ("DNS1", "192.0.2.53"), ("DNS2", "192.0.2.54"),
            ("PPPOE_USER", "line2@isp.example"), ("PPPOE_PWD", "secret"), ("DHCP_TYPE", "1"),
            ("DHCP_DNS1", "192.0.2.53"), ("DHCP_DNS2", "192.0.2.54"))]
    number = 0
    while len(entries) < 100:  # spread among the others
        entries.insert(number * 7 % len(entries), (f"OTHER_{number:03d}", f"value {number}"))
        number += 1
    return entries


def _text(entries):
    return "".join(f"{key}={value}\n" for key, value in entries)


def _write_database(path, entries):
    with sqlite3.connect(path) as store:
        store.execute("CREATE TABLE entry(key TEXT PRIMARY KEY, value TEXT) WITHOUT ROWID")
        store.executemany("INSERT INTO entry VALUES(?, ?)", entries)
    store.close()


def _status_lines(count, tunnels):
    """What the IPsec daemon says of its connections: half of them are up."""
    for number in range(count):
        name, peer = f"conn_tun{number % tunnels}", f"203.0.113.{number % 250}"
        if number % 2:
            yield (f'000 #{number}: "{name}":500 STATE_QUICK_I2 (IPsec SA established); '
                   f"eroute owner; isakmp#1\n")
        else:
            yield f'000 "{name}": 192.168.1.0/24===192.0.2.1...{peer}; unrouted; eroute owner: #0\n'


def write_files(folder, flash):
    """Fills the folder that becomes /bench/files, and those of the committed stores."""
    entries = _store_entries()
    running = [(f"WAN{link}_RUN_{name}", f"198.51.100.{link}") for link in range(1, 5)
               for name in ("IP", "GW")]
    for place in (folder, *flash):
        (place / "nvram").write_text(_text(entries))
        (place / "plain").write_text(_text(entries))
        _write_database(place / "sqlite", entries)
    (folder / "mvram").write_text(_text([*running, ("KERNEL_TYPE", "2")]))
    (folder / "answer").write_text('{"code":0}\n')
    for count in (10, 100, 1000):
        (folder / f"count-{count}").write_text(f"{count}\n")
    for count in (10, 100, 500, 1000):
        names = [*(f"tun{number}" for number in range(count - 1)), "last"]
        (folder / f"tunnels-{count}").write_text("".join(
            f"{name} a b c d 203.0.113.{number % 250} secret\n"
            for number, name in enumerate(names)))
        (folder / f"users-{count}").write_text("".join(
            f"ppp{number} user{number} 192.168.8.1 192.168.8.{number % 250} 203.0.113.9 1\n"
            for number in range(count)))
        (folder / f"status-{count}").write_text("".join(_status_lines(10 * count, count)))
