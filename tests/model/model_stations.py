"""Wireless stations: the lists of stations, and station removal."""

from cjson import Object, text_of
from world import inet_addr, inet_text


def get_sta_list(gw, _):
    return Object([(b"fun", b"getStaList"), (b"stat", b"ok"),
                   (b"cbk", Object([(b"stalist", station_entries(gw))]))])


def set_sta_list(gw, _):
    return Object([(b"fun", b"setStaList"), (b"args", Object([(b"data", station_entries(gw))]))])


def station_entries(gw):
    if gw.has("hostsort"):
        gw.record("hostsort_info_sort", 1, 0)
    if gw.has("wum"):
        gw.record("Web_STAinfo_Get")
    if gw.has("hostsort"):
        gw.record("hostsort_get_total_entry")
    stations = gw.world.stations if gw.has("wum") else []
    entries = []
    for host, address, mac in known_hosts(gw):
        wireless = any(station.ip[:16] == host.ip[:16] for station in stations)
        entry = Object([(b"mac", mac), (b"ip", inet_text(address))])
        if wireless and stations[0].flags & 1:
            entry.append((b"ssid", stations[0].ssid))
        entry.append((b"ty", 2 if wireless else 1))
        entries.append(entry)
    return entries


def known_hosts(gw):
    """(host, address, MAC) of each host whose MAC is known, up to the first that has no address."""
    if not gw.has("hostsort"):
        return
    for index, host in enumerate(gw.world.hosts, 1):
        gw.record("hostsort_get_next", index)
        address = inet_addr(host.ip)
        if address is None:
            return
        mac = gw.world.neighbours.get(inet_text(address), b"")
        if mac and mac != b"00:00:00:00:00:00":
            yield host, address, mac.upper().replace(b"-", b":")


def offline(gw, args):
    mac = text_of(args, b"mac")
    if not mac:
        return Object([(b"fun", b"offline"), (b"stat", b"er")])
    if gw.has("wum"):
        gw.record("WUMWTPKickoutSta", 0, mac)
    return Object([(b"fun", b"offline"), (b"stat", b"ok")])
