"""Network configuration: the WAN links and the LAN address."""

from cjson import Object, has_member, member, text_of
from world import cut

STATIC = ((b"wanIp", b"IP"), (b"wanNetmask", b"NETMASK"), (b"wanGateway", b"GATEWAY"),
          (b"wanDns1", b"DNS1"), (b"wanDns2", b"DNS2"))
PPPOE = ((b"pppoeUser", b"PPPOE_USER"), (b"pppoePwd", b"PPPOE_PWD"))
DHCP_DNS = ((b"dhcpDns1", b"DHCP_DNS1"), (b"dhcpDns2", b"DHCP_DNS2"))


def key_of(link, name):
    return b"WAN%d_%s" % (link, name)


def wan_info_set(gw, args):
    stat = b"err"
    for link in (1, 2, 3, 4):
        if has_member(args, b"WAN%d" % link):
            wan_set(gw, member(args, b"WAN%d" % link), link)
            stat = b"ok"
            break
    gw.nvram_commit()
    gw.shell(b"/usr/sbin/ui.sh flash >/dev/null")
    return Object([(b"fun", b"wanInfoSet"), (b"stat", stat)])


def wan_set(gw, settings, link):
    kind = text_of(settings, b"wanType")
    if kind is not None:
        gw.nvram_update(key_of(link, b"TYPE"), kind)
        if kind.startswith(b"STATIC"):
            update_all(gw, settings, link, STATIC)
        elif kind.startswith(b"PPPOE"):
            update_all(gw, settings, link, PPPOE)
        elif kind.startswith(b"DHCP"):
            dhcp_set(gw, settings, link)
    gw.nvram_commit()


def update_all(gw, settings, link, fields):
    for name, key in fields:
        value = text_of(settings, name)
        if value is not None:
            gw.nvram_update(key_of(link, key), value)


def dhcp_set(gw, settings, link):
    kind = text_of(settings, b"dhcpType")
    if kind is None:
        return
    if not kind.startswith(b"1"):
        gw.nvram_update(key_of(link, b"DHCP_TYPE"), b"0")
        return
    gw.nvram_update(key_of(link, b"DHCP_TYPE"), kind)
    update_all(gw, settings, link, DHCP_DNS)


def wan_info_get(gw, _):
    links = Object((b"WAN%d" % link, wan_detail(gw, link)) for link in (1, 2, 3, 4))
    return Object([(b"fun", b"wanInfoGet"), (b"stat", b"ok"), (b"cbk", links)])


def wan_detail(gw, link):
    kind = gw.nvram_text(key_of(link, b"TYPE"))
    detail = Object([(b"wanType", kind)])
    if kind.startswith(b"STATIC"):
        detail += stored(gw, link, STATIC)
    elif kind.startswith(b"PPPOE"):
        detail += stored(gw, link, PPPOE)
    elif kind.startswith(b"DHCP"):
        if gw.nvram_text(key_of(link, b"DHCP_TYPE")).startswith(b"1"):
            detail += [(b"dhcpType", b"1")] + stored(gw, link, DHCP_DNS)
        else:
            detail += [(b"dhcpType", b"0"), (b"dhcpDns1", b""), (b"dhcpDns2", b"")]
    else:
        detail = Object([(b"wanType", b"NONE")])
    for name, key in ((b"wanRunIP", b"RUN_IP"), (b"wanRunGW", b"RUN_GW")):
        detail.append((name, cut(gw.mvram_text(key_of(link, key)), 64)))
    return detail


def stored(gw, link, fields):
    return [(name, gw.nvram_text(key_of(link, key))) for name, key in fields]


def lan_conf_set(gw, args):
    ip, netmask = text_of(args, b"lanIp"), text_of(args, b"lanNetmask")
    if ip is None or netmask is None:
        return Object([(b"fun", b"lanConfSet"), (b"stat", b"er")])
    if gw.nvram_text(b"LAN_IP") == gw.nvram_text(b"DHCP_DNS1"):
        gw.nvram_update(b"DHCP_DNS1", ip)
    gw.nvram_update(b"LAN_IP", ip)
    gw.nvram_update(b"LAN_NETMASK", netmask)
    gw.nvram_commit()
    return Object([(b"fun", b"lanConfSet"), (b"stat", b"ok")])


def lan_conf_get(gw, _):
    return Object([(b"fun", b"lanConfGet"), (b"stat", b"ok"),
                   (b"cbk", Object([(b"lanIp", gw.nvram_text(b"LAN_IP")),
                                    (b"lanNetmask", gw.nvram_text(b"LAN_NETMASK"))]))])
