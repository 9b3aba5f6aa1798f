"""Random worlds and requests for one command at a time, as hypothesis strategies.

Texts come from few words, so that stored and given values often agree, from hostile texts, and
from lengths just below, at and above each fixed buffer.
"""

from hypothesis import strategies as st

import model
from world import Device, Host, Script, Station, WanLink, World, inet_addr, inet_text

WORDS = (b"", b"a", b"ab", b"abc", b"office", b"YES", b"NO", b"YESNO", b"YE", b"yes", b"0", b"1",
         b"2", b"3", b"12", b"01", b"192.168.1.1", b"192.168.1.10", b"255.255.255.0", b"10.0.0.1",
         b"STATIC", b"STATICX", b"STATI", b"PPPOE", b"PPPOE2", b"DHCP", b"DHCPv6", b"L2TP",
         b"QRX30", b"QRX30LT", b"QRX30LT-2", b"QRX30L", b"02:00:00:00:00:01")
HOSTILE = (b"it's", b"''", b"'", b'"', b"a b", b" a", b"a ", b" ", b"\t", b"a\nb", b"\n", b"\r\n",
           b"$(touch /tmp/ran)", b"`touch /tmp/ran`", b"; touch /tmp/ran;", b"a|b", b"a&b", b"&",
           b"> /tmp/ran", b"<x", b"*", b"?", b"[a]", b"~", b"~root", b"-x", b"--help", b"-", b"#c",
           b"!", b"a\\", b"\\n", b"\\", b"%s", b"%d%n", b"$HOME", b"${IFS}", b"{a,b}", b"a=b", b"=",
           b"/", b"//a", b"../x", b"\x01", b"\x1b[2J", b"\x7f", b"\x80", b"\xff\xfe", b"\xc3\xa9",
           b"\xe2\x82\xac", b"\xf0\x9f\x98\x80", b"\xed\xa0\x80", b"a\x0bb", b"A:b@c%d+e=f,g/h-i_j")
SIZES = (3, 4, 5, 6, 14, 15, 16, 17, 18, 19, 20, 21, 24, 25, 62, 63, 64, 65, 70, 120, 126, 127,
         128, 129, 200, *range(204, 228), 254, 255, 256, 257, 300, 480, 510, 511, 512, 513, 600,
         900)
PADDING = (b"x", b"x", b"'", b" ", b"\n", b"\xc3\xa9", b"a'")


def weighted(*choices):
    """One of several strategies, given as (weight, strategy). (one_of() knows no weights: it leaves
    out repetitions.)"""
    table = [strategy for weight, strategy in choices for _ in range(weight)]
    return st.sampled_from(range(len(table))).flatmap(lambda index: table[index])


def likely(of, but):
    """True in all but `but` of `of` cases."""
    return st.sampled_from((True,) * (of - but) + (False,) * but)


words = st.sampled_from(WORDS)
hostile = st.sampled_from(HOSTILE)
sized = st.builds(lambda filler, size: (filler * size)[:size],
                  st.sampled_from(PADDING), st.sampled_from(SIZES))
free = st.binary(max_size=12).map(lambda text: text.replace(b"\0", b"0"))
mixed = st.builds(lambda left, right: left + right, words, hostile)
values = weighted((6, words), (3, hostile), (2, mixed), (3, sized), (1, free))
short_values = weighted((4, words), (2, hostile), (1, mixed), (1, free))


# -- request texts

odd_json = st.sampled_from((
    b"null", b"true", b"false", b"0", b"1", b"-1.5e3", b"12345678901", b"[]", b"{}", b'["a"]',
    b'{"wanType":"DHCP"}', b'"\\u0041\\u0000b"', b'"\\ud83d\\ude00"', b'"\\/\\b\\f\\n\\r\\t"',
    b'"\\u00e9"', b'"\\ud83d"', b'"\\x"', b'"\\uzzzz"', b'"a', b"nul", b"", b"'a'", b"[1,]"))


def json_string(text, escapes):
    """A JSON string literal of the text; with `escapes`, unusual but equal spellings."""
    out = b""
    for c in text:
        byte = bytes([c])
        if byte in b'"\\':
            out += b"\\" + byte
        elif c < 32 and not escapes:
            out += b"\\u%04x" % c
        elif escapes and byte in b"/aA'":
            out += b"\\/" if byte == b"/" else b"\\u%04X" % c
        else:
            out += byte
    return b'"' + out + b'"'


@st.composite
def json_objects(draw, members):
    """The text of an object with (nearly) these members; `members` is [(name, strategy)]."""
    pairs = []
    for name, strategy in members:
        if not draw(likely(25, 1)):
            continue
        spelled = draw(st.sampled_from((name,) * 12 + (name.upper(), name.swapcase(), name + b"x")))
        pairs.append((spelled, draw(strategy if draw(likely(15, 1)) else odd_json)))
        if not draw(likely(30, 1)):
            pairs.append((name, draw(strategy)))
    if not draw(likely(10, 1)):
        pairs = draw(st.permutations(pairs))
    blank = draw(st.sampled_from((b"", b"", b"", b" ", b"\n\t")))
    return b"{" + blank + (b"," + blank).join(
        json_string(name, False) + b":" + blank + text for name, text in pairs) + blank + b"}"


@st.composite
def json_strings(draw, texts=values):
    return json_string(draw(texts), not draw(likely(8, 1)))


@st.composite
def requests(draw, command, members):
    """Program arguments for the command: mostly well formed, sometimes anything else."""
    name = draw(st.sampled_from((command,) * 10 + (command + b"X",)))
    kind = draw(st.sampled_from(("object",) * 20 + (
        "nothing", "other", "cut", "before", "behind", "long")))
    if kind == "nothing" or not members and draw(st.booleans()):
        return [name]
    if kind == "other":
        return [name, draw(st.one_of(odd_json, free))]
    text = draw(json_objects(members))
    if kind == "cut":
        text = text[:draw(st.integers(0, len(text)))]
    elif kind == "before":
        text = draw(st.sampled_from((b"\xef\xbb\xbf", b" \n", b"x"))) + text
    elif kind == "behind":
        text += draw(st.sampled_from((b" junk", b"}", b"\n", b",", b"\xff")))
    elif kind == "long":
        text += b" " * (draw(st.sampled_from((1022, 1023, 1024, 1025))) - len(text))
    return [name, text]


# -- line files and other texts of the gateway

TUNNELS, USERS = b"/disk/conf/ipsec.cfg", b"/disk/conf/pptpuser.cfg"
RECORD_NAMES = (b"tun", b"tun1", b"tun10", b"tun100", b"Tun1", b"ab", b"abc", b"it's", b"a;b",
                b"\xc3\xa9", b"-x", b"", b"x" * 126, b"x" * 127, b"x" * 128, b"x" * 130)
record_names = weighted((4, st.sampled_from(RECORD_NAMES[:7])), (2, st.sampled_from(RECORD_NAMES)),
                        (1, hostile.filter(lambda text: b"\n" not in text)))
peers = st.sampled_from((b"0.0.0.0", b"0.0.0.0/0", b"1.2.3.4", b"255.255.255.255", b"", b"%any",
                         b"1234567890123456789", b"12345678901234567890", b"it's"))


@st.composite
def records(draw):
    """One line without its end: name and words."""
    kind = draw(st.sampled_from(("usual",) * 12 + ("odd", "alone", "long", "long name")))
    if kind == "odd":
        return draw(st.sampled_from((b"", b" ", b"noblank", b"#", b"\ta b")))
    name = draw(record_names)
    if kind == "alone":
        return name
    if kind == "long":
        size = draw(st.sampled_from((1021, 1022, 1023, 1024, 1025, 4092, 4093, 4094, 4095, 4096,
                                     4097, 5000)))
        return (name + b" ").ljust(size, b"w") + draw(st.sampled_from((b"", b" x")))
    if kind == "long name":
        return name.ljust(draw(st.sampled_from((1022, 1023, 4093, 4094, 4095))), b"n") + b" w"
    count = draw(st.sampled_from((0, 1, 3, 4, 5, 6, 7)))
    rest = [b"w"] * count
    if count >= 5:
        rest[4] = draw(peers)
    return b" ".join([name] + rest) + draw(st.sampled_from((b"", b"", b" ")))


@st.composite
def line_files(draw, lines=records()):
    drawn = draw(st.lists(lines, min_size=draw(st.integers(0, 4)), max_size=5))
    text = b"".join(line + b"\n" for line in drawn)
    return text[:-1] if text and not draw(likely(8, 1)) else text


def listed_names(content):
    """The names in a line file; some name when there is none."""
    return [line.split(b" ")[0] for line in content.split(b"\n")
            if b" " in line[1:]] or [b"tun1"]


@st.composite
def status_lines(draw, names):
    """One line of the IPsec daemon's status, about one of these tunnels."""
    name = draw(st.sampled_from((b"conn_",) * 8 + (b"Conn_", b"conn", b"x"))) + draw(names)
    end = draw(st.sampled_from((b'"', b'"', b"/0x1\"", b'"[1] 9.8.7.6', b'"[12] 9.8.7.6:4500',
                                b'"[1] 2001:db8::1', b'"[1] %any', b'"[2] ::1', b'"[2] a:b',
                                b'/1x2"[3] 12.34.56.78')))
    if draw(st.booleans()):
        start = draw(st.sampled_from((b"000 #1: ", b"000 #12: ", b"000  #1: ", b"#1: ", b"000 # ")))
        state = draw(st.sampled_from((
            b":500 STATE_QUICK_I2 (sent QI2, IPsec SA established); eroute owner; isakmp#1",
            b" STATE_V2 established; EVENT in 5s; eroute owner",
            b":4500 STATE_MAIN_I4 (ISAKMP SA established); EVENT_SA",
            b" a] 5.6.7.8:9 established; eroute owner")))
        return start + b'"' + name + end + state
    state = draw(st.sampled_from((
        b": 1.1.1.1...2.2.2.2; unrouted; eroute owner: #0", b": 1.1.1.1; erouted; eroute owner: #2",
        b": a...0.0.0.0; unrouted; x", b": a; unrouted; established", b"; unrouted;; erouted;",
        b": 10a0b0c0d; unrouted; ", b"; unrouted;")))
    return draw(st.sampled_from((b"000 ", b"000 ", b"00 ", b"000  "))) + b'"' + name + end + state


odd_status_lines = st.sampled_from((
    b"", b"000", b"000 using kernel interface: netkey", b"000 #", b'000 "', b"0.0.0.0",
    b"established; eroute owner", b"; unrouted;"))

client_fields = st.one_of(st.sampled_from((
    b"", b"ab", b"1.2.3.4", b"192.168.100.200", b"1234567890123456789", b"12345678901234567890",
    b"x" * 127, b"x" * 128, b"it's", b"\xff", b"a\tb")))
client_lines = st.builds(
    lambda fields, end: b" ".join(fields) + end,
    st.lists(client_fields, max_size=7), st.sampled_from((b"", b"", b"\r", b"\r x y z", b" ")))

version_lines = st.one_of(
    st.sampled_from((b"SW_VERSION=V1.2.3 build", b"SW_VERSION=V1.2.3", b"SW_VERSION=",
                     b"SW_VERSION", b"SW_VERSION = V2", b"SW_VERSION=V=1 2",
                     b"SW_DATE=20200101", b"SW_DATE=",
                     b"SW_DATE=2020-01-01 12:00", b"SW_DATE", b"HW=1", b"",
                     b"# SW_VERSION=V9 SW_DATE=9",
                     b"SW_VERSION=it's $(touch /tmp/ran)", b"SW_DATE=\xff'\"")),
    st.builds(lambda name, size: name + b"=" + b"d" * size,
              st.sampled_from((b"SW_VERSION", b"SW_DATE")),
              st.sampled_from((14, 15, 16, 17, 126, 127, 128, 129, 254, 255, 256, 2030, 2047,
                               2048, 2049, 3000))))
identity_lines = st.sampled_from((
    b"", b"a", b"other line", b"</CP_SW_VERSION> old", b"</CP_SW_MODEL> old",
    b"</CP_HW_ADDRESS> old", b"x CP_SW_MODEL y", b" ", b"it's"))

numbers = st.one_of(st.integers(0, 200), st.integers(0, 2 ** 32 + 5), st.integers(0, 2 ** 63 - 1),
                    st.sampled_from((2 ** 31 - 1, 2 ** 31, 2 ** 32 - 1, 2 ** 32, 2 ** 32 + 1)))


@st.composite
def stat_pairs(draw):
    """Two readings of the processor's counters."""
    first = draw(st.lists(numbers, min_size=8, max_size=8))
    steps = draw(st.lists(st.one_of(st.just(0), st.integers(0, 100), st.integers(0, 2 ** 31)),
                          min_size=8, max_size=8))
    second = [min(a + b, 2 ** 63 - 1) for a, b in zip(first, steps)]
    shape = draw(st.sampled_from((b"cpu  %s\ncpu0 1 2 3\n",) * 6 + (
        b"cpu %s 99 99\n", b"cpu0 %s\n", b"intr %s\n", b"%s\n", b"")))
    kept = draw(st.sampled_from((8, 8, 8, 8, 7, 4, 0)))

    def text(sample):
        words_kept = b" ".join(b"%d" % number for number in sample[:kept])
        return shape % words_kept if b"%s" in shape else shape
    return [text(first), text(second)]


meminfo = st.builds(
    lambda total, free, shape: shape % (total, free), numbers, numbers, st.sampled_from((
        (b"MemTotal: %d kB\nMemFree: %d kB\nBuffers: 5 kB\n",) * 4
        + (b"a %d\nb %d", b"a: %d\n\nb: %d\n", b"a\n%d %d\n", b" x:\t%d\n y:\t%d\n"))))
counts = st.one_of(st.integers(0, 70000).map(lambda n: b"%d\n" % n), st.sampled_from((
    b"", b"\n", b"x\n", b" 12 13\n", b"-3\n", b"+4", b"2147483647\n", b"7x\n", b"\n\n8")))
uptimes = st.one_of(
    st.integers(0, 2 ** 31 - 1).map(lambda n: b"%d.%02d 9.1\n" % (n, n % 100)),
    st.sampled_from((b"59.99 1\n", b"3599.9 1\n", b"86399.5 1\n", b"86400 1\n", b"90061.5 2\n",
                     b"12\n", b"", b"x 1\n", b".5 1\n", b" 77.7\n", b"1e5 2\n")))

host_ips = weighted(
    (4, st.integers(1, 6).map(lambda n: b"192.168.1.%d" % n)),
    (1, st.sampled_from((b"192.168.1.2", b"192.168.1.200", b"192.168.01.3", b"0xc0.168.1.4", b"",
                         b"x", b"255.255.255.255", b"192.168.1.256", b"10.0.0.1", b"0.0.0.0",
                         b"192.168.261", b"192.168.1.3 x", b"192.168.1.1.1"))))
totals = st.one_of(st.integers(0, 5000), st.integers(0, 2 ** 64 - 1))
host_records = st.builds(Host, host_ips, totals, totals, st.integers(0, 2 ** 32 - 1),
                         st.integers(0, 5000))
hosts = st.integers(0, 4).flatmap(
    lambda least: st.lists(host_records, min_size=least, max_size=5))
stations = st.lists(st.builds(
    Station,
    st.one_of(host_ips.filter(lambda ip: ip and len(ip) < 16), st.just(b"192.168.100.1001")),
    st.one_of(short_values, st.just(b"s" * 145)), st.sampled_from((0, 1, 1, 2, 3, 2 ** 32 - 1))),
    max_size=4)
mac_texts = st.sampled_from((b"02:00:00:00:00:0a", b"aa:bb:cc:dd:ee:ff", b"00:00:00:00:00:00",
                             b"00:11:22:33:44:55"))
rates = st.one_of(st.sampled_from((0, 1, -1, 4096, 8192, 2 ** 31 - 1, -2 ** 31)),
                  st.integers(-2 ** 31, 2 ** 31 - 1))
wan_links = st.lists(st.builds(WanLink, st.sampled_from((
    b"WAN1", b"WAN2", b"WAN3", b"WAN4", b"WAN5", b"WAN", b"W", b"", b"LTE1", b"WAN11", b"wan1",
    b"x" * 31)), rates, rates), max_size=6)
net_devs = st.builds(
    lambda lines: b"Inter-|   Receive\n face |bytes\n" + b"".join(lines),
    st.lists(st.builds(
        lambda name, gap, counters, end: name + b":" + gap + b" ".join(b"%d" % n for n in counters)
        + end,
        st.sampled_from((b"    lo", b"  ppp0", b"ppp0", b"ppp01", b"tunnel67890", b"tunnel678901",
                         b"x")),
        st.sampled_from((b"", b" ", b"    ")), st.lists(numbers, min_size=15, max_size=17),
        st.sampled_from((b"\n", b"\n", b" \n", b"\n\n", b""))), max_size=4))

POINT_TO_POINT = {b"ppp0": Device(b"10.9.0.2", b"10.9.0.1"),
                  b"lo": Device(b"127.0.0.1", b"127.0.0.1"),
                  b"tunnel678901": Device(b"10.9.1.2", b"10.9.1.1")}


# -- worlds

MODELS = (b"QRX30", b"QRX30LT", b"QRX30LT-2", b"QRX30L", b"QRX30L T", b"xQRX30LT", b"qrx30lt")
SWITCHES = (b"YES", b"NO", b"YE", b"YESNO", b"yes", b"Y", b" YES", b"")
WAN_TYPES = (b"STATIC", b"PPPOE", b"DHCP", b"STATICX", b"PPPOE2", b"DHCP6", b"STATI", b"L2TP", b"")


def values_of(key):
    """Mostly values that matter for the key, where only few do."""
    if key == "PRODUCT_TYPE":
        return weighted((2, st.sampled_from(MODELS)), (1, values))
    if key.endswith(("_ENABLE", "_SEC", "_REQ128")):
        return weighted((2, st.sampled_from(SWITCHES)), (1, values))
    if key.endswith("DHCP_TYPE"):
        return weighted((2, st.sampled_from((b"0", b"1", b"12", b""))), (1, values))
    if key.startswith("WAN") and key.endswith("_TYPE"):
        return weighted((4, st.sampled_from(WAN_TYPES)), (1, values))
    return values


@st.composite
def some(draw, keys):
    """A store with some of these keys."""
    least = draw(st.integers(0, min(len(keys), 8)))
    chosen = draw(st.lists(st.sampled_from(keys), unique=True, min_size=least, max_size=8))
    return {key.encode(): draw(VALUES_OF[key]) for key in chosen}


def wan_keys():
    return [f"WAN{n}_{name}" for n in (1, 2) for name in (
        "TYPE", "IP", "NETMASK", "GATEWAY", "DNS1", "DNS2", "PPPOE_USER", "PPPOE_PWD", "DHCP_TYPE",
        "DHCP_DNS1", "DHCP_DNS2")] + ["WAN3_TYPE", "WAN4_TYPE"]


NVRAM_KEYS = {
    b"getAdmPass": ["ADMIN_AUTH"], b"setAdmPass": ["ADMIN_AUTH"], b"getBaseInfo": ["PRODUCT_TYPE"],
    b"gwDevListGet": ["HOSTNAME", "LAN_DEF_MAC", "PRODUCT_TYPE"], b"devNmSet": ["HOSTNAME"],
    b"bindUrlSet": ["CPECTL_BINDURL"],
    b"localcfgUpdate": ["PRODUCT_TYPE", "LAN_IF_MAC", "X_LAN_IF_MAC"],
    b"wanInfoGet": wan_keys(), b"wanInfoSet": wan_keys(),
    b"lanConfSet": ["LAN_IP", "LAN_NETMASK", "DHCP_DNS1"], b"lanConfGet": ["LAN_IP", "LAN_NETMASK"],
    b"checkOta": ["LAN_DEF_MAC", "PRODUCT_TYPE"],
    b"openIntranetProxy": ["LAN_IP", "PROXY_SERVER_IP", "PROXY_SERVER_PORT", "PROXY_SERVER_KEY",
                           "PROXY_SERVER_TIMEOUT"],
    b"ipsecOpen": ["IPSEC_ENABLE"], b"ipsecClose": ["IPSEC_ENABLE"],
    b"ipsecStaGet": ["IPSEC_ENABLE"],
}
for _name in (b"pptpdOpen", b"pptpdClose", b"pptpdStaGet"):
    NVRAM_KEYS[_name] = [f"PPTPD_{key}" for key in (
        "ENABLE", "REMOTEIP_START", "REMOTEIP_END", "REQ128")]
for _name in (b"pptpcOpen", b"pptpcClose", b"pptpcConfgGet"):
    NVRAM_KEYS[_name] = [f"PPTPC_{key}" for key in (
        "ENABLE", "SERVER", "USER", "PWD", "SEC", "NET", "NETMASK")]
_PUSH = [f"CLOUD_PUSH_FIRMWARE_{key}" for key in (
    "FWADDR", "FWNAME", "FWDESC", "FWMD5ADDR", "FWTYPE")]
MVRAM_KEYS = {
    b"gwDevListGet": ["WAN1_RUN_IP"], b"getHostNum": ["KERNEL_TYPE"],
    b"wanInfoGet": [f"WAN{n}_RUN_{key}" for n in (1, 2, 3, 4) for key in ("IP", "GW")],
    b"upGrade": ["CPECTL_FIRMWARE_URL", "CPECTL_FIRMWARE_MD5", "CPECTL_FIRMWARE_NAME"],
    b"pushfw": _PUSH, b"checkOta": _PUSH, b"pptpcOpen": ["PPTPC_MANUAL"],
    b"pptpcReconn": ["PPTPC_MANUAL"], b"pptpcShutdown": ["PPTPC_MANUAL"],
    b"pptpcStaGet": ["PPTPC_DEV"],
}
VALUES_OF = {key: values_of(key)
             for keys in (*NVRAM_KEYS.values(), *MVRAM_KEYS.values()) for key in keys}
FILES = {
    b"getBaseInfo": [(b"/etc/router.ver", line_files(version_lines))],
    b"localcfgUpdate": [(b"/etc/router.ver", line_files(version_lines)),
                        (b"/etc/cpectl.cfg", line_files(identity_lines))],
    b"checkOta": [(b"/etc/router.ver", line_files(version_lines)), (b"/tmp/pushfile", values)],
    b"gwDevListGet": [(b"/proc/uptime", uptimes)],
    b"getHostNum": [(b"/sys/module/fc/parameters/active_host", counts),
                    (b"/proc/sys/net/ipv4/netfilter/ip_conntrack_count", counts),
                    (b"/proc/sys/net/netfilter/nf_conntrack_count", counts)],
    b"getCpuMemLoad": [(b"/proc/meminfo", meminfo)],
    b"pptpdUserStaGet": [(b"/tmp/pptp_clients", line_files(client_lines))],
    b"setAdmPass": [(b"/tmp/password.tmp", values)],
}
for _name in (b"ipsecConfGet", b"ipsecAddTun", b"ipsecDelTun", b"ipsecDelAllTun",
              b"ipsecTunStaGet"):
    FILES[_name] = [(TUNNELS, line_files())]
for _name in (b"pptpdConfGet", b"pptpdAddUser", b"pptpdDelUser", b"pptpdDelAllUser"):
    FILES[_name] = [(USERS, line_files())]
LIBRARIES = {
    b"getWanFlowinfo": "netlink", b"getHostFlowinfo": "hostsort", b"getStaList": "hostsort",
    b"setStaList": "wum", b"offline": "wum", b"upGrade": "mvram", b"pptpcOpen": "mvram",
    b"pptpcReconn": "mvram", b"pptpcStaGet": "mvram", b"devNmSet": "nvram", b"lanConfSet": "nvram",
    b"wanInfoGet": "nvram", b"pptpdStaGet": "nvram", b"gwDevListGet": "mvram",
    b"ipsecOpen": "nvram",
}
FOLDERS = {b"setAdmPass": b"/tmp", b"pptpdUserStaGet": b"/tmp", b"ipsecOpen": b"/disk/conf"}
for _name in (b"ipsecAddTun", b"ipsecDelTun", b"ipsecDelAllTun", b"pptpdAddUser", b"pptpdDelUser",
              b"pptpdDelAllUser", b"ipsecConfGet", b"devNmSet"):
    FOLDERS[_name] = b"/disk/conf"
HASH_OUTPUTS = (b"ENC:0123456789abcdef\n", b"ENC:0123456789abcdef", b"", b"EN", b"ENC:\n",
                b"ENC:a\nENC:b\n", b"\n", b"ENC:%s\n" % (b"h" * 252), b"ENC:%s\n" % (b"h" * 300),
                b"ENC:it's \xff\n", b"ENC:a=b\\n\n")


@st.composite
def worlds(draw, command):
    """A gateway with something of what the command looks at."""
    nvram = draw(some(NVRAM_KEYS[command])) if command in NVRAM_KEYS else {}
    world = World(nvram=nvram)
    if command in MVRAM_KEYS:
        world.mvram = draw(some(MVRAM_KEYS[command]))
    world.committed = dict(nvram)
    for path, texts in FILES.get(command, []):
        if draw(likely(10, 1)):
            world.files[path] = draw(texts)
    library = LIBRARIES.get(command)
    if library and not draw(likely(20, 1)):
        world.absent_libraries = {library}
    folder = FOLDERS.get(command)
    if folder and not draw(likely(20, 1)):
        take_away(world, folder)
    extra = EXTRAS.get(command)
    if extra:
        extra(draw, world)
    return world


def take_away(world, folder):
    world.missing_folders = {folder}
    world.files = {path: content for path, content in world.files.items()
                   if not path.startswith(folder + b"/")}
    if folder == b"/disk/conf":
        world.committed = {}


def with_kernel(draw, world):
    if draw(likely(10, 2)):
        world.mvram[b"KERNEL_TYPE"] = draw(st.sampled_from((b"1", b"2", b"3", b"4", b"", b"2x")))


def with_hash(draw, world):
    world.scripts[b"/sbin/cpecryptpw"] = Script(draw(st.sampled_from(HASH_OUTPUTS)),
                                                draw(st.sampled_from((0, 0, 3))))


def with_status(draw, world):
    names = listed_names(world.files.get(TUNNELS, b""))
    lines = status_lines(weighted((5, st.sampled_from(names)),
                                  (1, st.sampled_from(RECORD_NAMES[:9]))))
    world.scripts[b"/usr/local/sbin/ipsec"] = Script(draw(line_files(
        weighted((6, lines), (1, odd_status_lines)))))


def with_wan(draw, world):
    if draw(likely(10, 1)):
        world.wan = draw(wan_links)
        if not draw(likely(10, 1)):
            world.wan_count = draw(st.integers(-1, len(world.wan)))


def with_hosts(draw, world):
    world.hosts = draw(hosts)
    for host in world.hosts:
        address = inet_addr(host.ip)
        if address and inet_text(address).startswith(b"192.168.1.") and draw(likely(6, 1)):
            world.neighbours[inet_text(address)] = draw(mac_texts)


def with_stations(draw, world):
    with_hosts(draw, world)
    world.stations = draw(stations)


def with_load(draw, world):
    if draw(likely(10, 1)):
        world.readings[b"/proc/stat"] = draw(stat_pairs())


def with_device(draw, world):
    name = draw(st.sampled_from((b"ppp0", b"ppp0", b"lo", b"tunnel678901", b"none",
                                 b"ppp0567890123456", b"tunnel678901" + b"x" * 60, b"")))
    if draw(likely(10, 1)):
        world.mvram[b"PPTPC_DEV"] = name
    if name not in (b"none", b""):
        world.devices = dict(POINT_TO_POINT)
    world.files[b"/proc/net/dev"] = draw(net_devs)


def with_server(draw, world):
    if draw(st.booleans()):  # odd values make no URL, or one that is too long
        world.nvram = world.committed = {b"LAN_DEF_MAC": draw(weighted(
            (2, words), (1, st.builds(lambda size: b"m" * size, st.integers(175, 185)))))}
    if draw(likely(4, 1)):
        message = draw(json_objects([
            (b"path", json_strings(st.one_of(st.sampled_from((
                b"http://h/fw/img-1.2.bin", b"img.bin", b"a/", b"/")), values))),
            (b"textNotes", json_strings()), (b"md5", json_strings()), (b"type", json_strings())]))
        world.web = draw(weighted((4, st.just(b'{"msg":%s}' % message)),
                                  (1, st.just(b'{"MSG":%s,"x":1}' % message)), (1, odd_json)))


EXTRAS = {
    b"setAdmPass": with_hash, b"ipsecTunStaGet": with_status, b"getWanFlowinfo": with_wan,
    b"getHostFlowinfo": with_hosts, b"getStaList": with_stations, b"setStaList": with_stations,
    b"getHostNum": with_kernel, b"getCpuMemLoad": with_load, b"pptpcStaGet": with_device,
    b"checkOta": with_server,
}

wan_objects = json_objects([(b"wanType", json_strings(st.sampled_from(WAN_TYPES)))] + [
    (name, json_strings(short_values)) for name in (
        b"wanIp", b"wanNetmask", b"wanGateway", b"wanDns1", b"wanDns2", b"pppoeUser",
        b"pppoePwd")] + [
    (b"dhcpType", json_strings(st.sampled_from((b"0", b"1", b"12", b"", b"2")))),
    (b"dhcpDns1", json_strings(short_values)), (b"dhcpDns2", json_strings(short_values))])


@st.composite
def edges(draw, fixed, size, most=1000):
    """Values with which a command text, `fixed` without them, just fits into `size` or just does
    not; of `most` bytes."""
    room = size - len(fixed) + draw(st.integers(-2, 1))
    kind = draw(st.sampled_from(("plain", "blanks", "quotes")))
    if kind == "plain" and room <= most:
        return b"x" * room
    if kind == "blanks" and room - 2 <= most:
        return b" " * (room - 2)
    return b"'" * ((room - 2) // 4) + b"x" * ((room - 2) % 4)


odd_characters = st.integers(1, 255).map(lambda c: b"a" + bytes([c]))
long_texts = st.builds(lambda size: b"u" * size, st.integers(510, 513))


def shell_values(fixed, size, most=1000):
    return json_strings(weighted((8, values), (2, edges(fixed, size, most)), (1, long_texts),
                                 (2, odd_characters)))


record_texts = weighted((6, records()), (2, values))
upload = b'curl  -F "file=@%s" >/dev/null 2>&1 &'
tunnel_names = shell_values(b"/usr/sbin/ipsec.sh set  0 >/dev/null 2>&1 &", 256)
MEMBERS = {
    b"setAdmPass": [(b"admPass", shell_values(
        b"/sbin/cpecryptpw  | cut -b 5- >/tmp/password.tmp", 256))],
    b"ipsecConfGet": [(b"postUrl", shell_values(upload % TUNNELS, 1024, 511))],
    b"pptpdConfGet": [(b"postUrl", shell_values(upload % USERS, 1024, 511))],
    b"ipsecTunShutdown": [(b"tunName", tunnel_names)],
    b"ipsecTunReconn": [(b"tunName", tunnel_names)],
    b"ipsecTunReboot": [(b"tunName", tunnel_names)],
    b"wanInfoSet": [(b"WAN1", wan_objects), (b"WAN2", wan_objects)],
    b"pptpdOpen": [(b"ip", json_objects([(b"start", json_strings()), (b"end", json_strings())])),
                   (b"encrypt", json_strings())],
    b"ipsecAddTun": [(b"tunCfg", json_strings(weighted((8, record_texts), (1, edges(
        b"/usr/sbin/ipsec.sh add  >/dev/null 2>&1 &", 256, 127)))))],
    b"pptpdAddUser": [(b"userCfg", json_strings(weighted((8, record_texts), (1, edges(
        b"/usr/sbin/pptp.sh user_add  >/dev/null 2>&1 &", 256, 127)))))],
}


@st.composite
def wan_requests(draw):
    """Mostly one link, so that both the links and their settings are reached."""
    links = draw(st.sampled_from((b"1", b"1", b"2", b"4", b"13", b"21", b"5")))
    members = [(b"WAN" + links[i:i + 1], wan_objects) for i in range(len(links))]
    return draw(requests(b"wanInfoSet", members))


@st.composite
def deletions(draw, command, member, listed):
    """A name that is listed, begins a listed one, goes on behind it, or is another."""
    name = draw(st.sampled_from(listed_names(listed)))
    near = st.sampled_from((name, name, name, name[:1], name[:-1], name + b"0", name + b" "))
    return draw(requests(command, [(member, json_strings(weighted((6, near), (1, values))))]))


@st.composite
def cases(draw, command):
    """(world, program arguments) for one command."""
    world = draw(worlds(command))
    if command == b"wanInfoSet":
        return world, draw(wan_requests())
    if command == b"ipsecDelTun":
        return world, draw(deletions(command, b"tunName", world.files.get(TUNNELS, b"")))
    if command == b"pptpdDelUser":
        return world, draw(deletions(command, b"userName", world.files.get(USERS, b"")))
    return world, draw(requests_for(command))


def requests_for(command):
    names = next(names for name, _, names in model.COMMANDS if name == command)
    return requests(command, MEMBERS.get(command, [(name, json_strings()) for name in names]))


strays = st.lists(st.one_of(
    st.sampled_from((b"-h", b"--help", b"?", b"", b"-H", b"{}", b"reb", b"getadmpass", b"-hx")),
    st.sampled_from([name for name, _, _ in model.COMMANDS]), free), max_size=3).filter(
        lambda arguments: not (arguments and model.find(arguments[0])))
