"""Monitoring: traffic of the WAN links and of hosts, processor and memory load, counts."""

import re

from cjson import Object, float32
from model_stations import known_hosts
from world import inet_text, pieces

REQUEST = bytes(16) + b"".join(number.to_bytes(4, "little")
                               for number in (17, 48, 0, 0, 0, 0, 4, 102))
WAN_NAMES = (b"WAN1", b"WAN2", b"WAN3", b"WAN4")


def get_wan_flowinfo(gw, _):
    if not gw.has("netlink"):
        return None
    gw.record("user_netlink_regist", 102, 0)
    gw.record("netlink_send_user", 102, 48, REQUEST.hex())
    gw.record("netlink_receive_user")
    reply = None if gw.world.wan is None else wan_flow(gw.world.wan, gw.world.wan_count)
    gw.record("user_netlink_unregist")
    return reply


def wan_flow(links, count):
    rates = Object()
    up_total = down_total = 0.0
    for link in links if count is None else links[:max(count, 0)]:
        up, down = kib(link.up), kib(link.down)
        for name in WAN_NAMES:
            if name.startswith(link.name):
                rates.append((name, Object([(b"up_rate", up), (b"down_rate", down)])))
        up_total, down_total = float32(up_total + up), float32(down_total + down)
    rates += [(b"up_total", up_total), (b"down_total", down_total)]
    return Object([(b"fun", b"getWanFlowinfo"), (b"stat", b"ok"), (b"cbk", rates)])


def kib(bits):
    return float32(float32(float32(bits) / 8.0) / 1024.0)


def get_host_flowinfo(gw, _):
    if gw.has("hostsort"):
        gw.record("hostsort_info_sort", 1, 0)
        gw.record("hostsort_get_total_entry")
    entries = []
    for host, address, mac in known_hosts(gw):
        entries.append(Object([
            (b"ip", inet_text(address)), (b"mac", mac),
            (b"up_rate", host.up_rate / 1024.0), (b"down_rate", host.down_rate / 1024.0),
            (b"up_total", float(host.up_total)), (b"down_total", float(host.down_total))]))
    return Object([(b"fun", b"getHostFlowinfo"), (b"stat", b"ok"),
                   (b"cbk", Object([(b"hostinfo", entries)]))])


def get_cpu_mem_load(gw, _):
    first = gw.read(b"/proc/stat")
    second = gw.read(b"/proc/stat")
    cpu = 2.0 if first is None or second is None else cpu_load(counters(first), counters(second))
    memory = memory_load(*memory_sizes(gw.read(b"/proc/meminfo")))
    return Object([(b"fun", b"getCpuMemLoad"), (b"stat", b"ok"),
                   (b"cbk", Object([(b"cpu_load", cpu), (b"mem_load", memory)]))])


def counters(content):
    """Eight 32-bit counters behind the word "cpu"; those that are not there are 0."""
    found = [0] * 8
    if not content.startswith(b"cpu"):
        return found
    at = 3
    for i in range(8):
        match = re.compile(rb"\s*([+-]?\d+)").match(content, at)
        if not match:
            break
        found[i] = int(match.group(1)) % 2 ** 32
        at = match.end()
    return found


def cpu_load(first, second):
    def busy(sample):
        return float32((sum(sample) - sample[3] - sample[4]) % 2 ** 32)
    total = float32((sum(second) - sum(first)) % 2 ** 32)
    load = 2.0
    if total != 0:
        load = float32(float32(float32(busy(second) - busy(first)) / total) * 100.0)
    load = float32(load * 0.5)
    return min(max(load, 2.0), 50.0)


def memory_sizes(content):
    """The numbers of the first two lines, whatever their names."""
    sizes = [0, 0]
    for i, line in enumerate(list(pieces(content or b"", 255))[:2]):
        match = re.match(rb"\s*\S+\s*([+-]?\d+)", line)
        sizes[i] = int(match.group(1)) % 2 ** 32 if match else 0
    return sizes


def memory_load(total, free):
    used = float32((total - free) % 2 ** 32)
    total = float32(total)
    load = 2.0
    if total > 0:
        load = float32(float32(float32(used * 100.0) / total) * 0.85)
    return max(load, 2.0)


CONNECTION_FILES = (
    (b"1", b"/proc/sys/net/ipv4/netfilter/ip_conntrack_count"),
    (b"2", b"/proc/sys/net/netfilter/nf_conntrack_count"),
    (b"3", b"/proc/sys/net/ipv4/netfilter/ip_conntrack_count"),
)


def get_host_num(gw, _):
    hosts = number_in(gw.read(b"/sys/module/fc/parameters/active_host"), 1)
    connections = 10
    for kind, path in CONNECTION_FILES:
        if gw.mvram_text(b"KERNEL_TYPE") == kind:
            connections = number_in(gw.read(path), 10)
            break
    return Object([(b"fun", b"getHostNum"), (b"stat", b"ok"),
                   (b"cbk", Object([(b"host_num", hosts), (b"conn_num", connections)]))])


def number_in(content, default):
    match = re.match(rb"\s*([+-]?\d+)", content or b"")
    return int(match.group(1)) if match else default
