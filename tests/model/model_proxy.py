"""The intranet proxy client: start and stop."""

from cjson import Object, text_of
from world import cut

KEYS = ((b"serverHost", b"PROXY_SERVER_IP"), (b"serverPort", b"PROXY_SERVER_PORT"),
        (b"clientKey", b"PROXY_SERVER_KEY"), (b"timeout", b"PROXY_SERVER_TIMEOUT"))


def open_proxy(gw, args):
    given = [(key, text_of(args, name)) for name, key in KEYS]
    stat = b"er"
    if all(value is not None for _, value in given):
        for key, value in given:
            gw.nvram_update(key, value)
        gw.shell(b"/usr/sbin/proxy_client.sh start >/dev/null 2>&1 &")
        stat = b"ok"
    lan_info = cut(gw.nvram_text(b"LAN_IP") + b":80", 25)
    return Object([(b"fun", b"openIntranetProxy"), (b"stat", stat),
                   (b"cbk", Object([(b"lanInfo", lan_info)]))])


def close_proxy(gw, _):
    gw.shell(b"/usr/sbin/proxy_client.sh stop >/dev/null 2>&1 &")
    return Object([(b"fun", b"closeIntranetProxy"), (b"stat", b"ok")])
