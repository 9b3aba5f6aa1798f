"""Device administration: password, names, base information, reboot, identity file, device list."""

import re

from cjson import Object, text_of
from world import (c_text, cut, cut_bytes_from, cut_field, fits, grep, in_single_quotes, joined,
                   pieces, sed_delete, sed_delete_empty, shell_word)

ROUTER_VER = b"/etc/router.ver"
IDENTITY = b"/etc/cpectl.cfg"


def get_adm_pass(gw, _):
    return Object([(b"fun", b"getAdmPass"), (b"stat", b"ok"),
                   (b"cbk", Object([(b"admPass", gw.nvram_text(b"ADMIN_AUTH"))]))])


def set_adm_pass(gw, args):
    password = text_of(args, b"admPass")
    if password is None:
        return Object([(b"fun", b"setAdmPass"), (b"stat", b"er")])
    gw.nvram_update(b"ADMIN_AUTH", hashed(gw, password))
    gw.nvram_update(b"ADMIN_AUTH", password)
    gw.nvram_commit()
    gw.shell(b"/usr/sbin/webserv.sh userinfo >/dev/null 2>&1")
    return Object([(b"fun", b"setAdmPass"), (b"stat", b"ok")])


def hashed(gw, password):
    """The password through the gateway's hashing tool; empty when anything goes wrong."""
    text = b"/sbin/cpecryptpw %s | cut -b 5- >/tmp/password.tmp" % shell_word(password)
    if not fits(text, 256):
        return b""
    gw.shell(text)
    output = cut_bytes_from(5, gw.script(b"/sbin/cpecryptpw").prints)
    if not gw.write(b"/tmp/password.tmp", output):
        return b""
    first = next(pieces(output, 255), b"")
    return c_text(first).split(b"\n")[0]


def dev_nm_set(gw, args):
    return name_set(gw, args, b"devNmSet", b"devNm", b"HOSTNAME")


def bind_url_set(gw, args):
    return name_set(gw, args, b"bindUrlSet", b"bindUrl", b"CPECTL_BINDURL")


def name_set(gw, args, fun, member, key):
    value = text_of(args, member)
    if value is None:
        return Object([(b"fun", fun), (b"stat", b"er")])
    gw.nvram_update(key, value)
    gw.nvram_commit()
    return Object([(b"fun", fun), (b"stat", b"ok")])


def get_base_info(gw, _):
    platform = gw.nvram_text(b"PRODUCT_TYPE")
    described = gw.read(ROUTER_VER)
    version = gw.capture(
        b"cat /etc/router.ver | grep SW_VERSION | cut -d '=' -f 2 |cut -d ' ' -f 1",
        cut_field(b" ", 1, cut_field(b"=", 2, grep(b"SW_VERSION", described))), 128)
    date = gw.capture(b"cat /etc/router.ver | grep SW_DATE | cut -d '=' -f 2",
                      cut_field(b"=", 2, grep(b"SW_DATE", described)), 128)
    return Object([
        (b"fun", b"getBaseInfo"), (b"stat", b"ok"),
        (b"cbk", Object([(b"platform", platform),
                         (b"fwVersion", cut(version[1:] + b"-" + date, 128))]))])


def reboot(gw, _):
    gw.shell(b"/usr/sbin/reboot.sh install >/dev/null 2>&1 &")
    return Object([(b"fun", b"reboot"), (b"stat", b"ok")])


def localcfg_update(gw, _):
    items = (
        (b"CP_SW_VERSION", b"cat /etc/router.ver | grep SW_VERSION | cut -d '=' -f 2",
         cut_field(b"=", 2, grep(b"SW_VERSION", gw.read(ROUTER_VER)))),
        (b"CP_SW_MODEL", b"nvram get PRODUCT_TYPE | cut -d '=' -f 2",
         cut_field(b"=", 2, nvram_tool_get(gw, b"PRODUCT_TYPE"))),
        (b"CP_HW_ADDRESS", b"nvram show | grep LAN_IF_MAC | cut -d '=' -f 2 ",
         cut_field(b"=", 2, grep(b"LAN_IF_MAC", nvram_tool_show(gw)))),
    )
    for tag, source, output in items:
        identity_set(gw, tag, gw.capture(source, output, 256))
    gw.shell(b"sed -i '/^$/d' /etc/cpectl.cfg")
    edit_identity(gw, sed_delete_empty)
    gw.printed = b'{"fun":"localcfgUpdate","stat":"ok"}'
    return None


def nvram_tool_get(gw, key):
    value = gw.world.nvram.get(key)
    return b"" if value is None else value + b"\n"


def nvram_tool_show(gw):
    def line_value(value):
        return value.replace(b"\\", b"\\\\").replace(b"\n", b"\\n").replace(b"\r", b"\\r")
    return joined(key + b"=" + line_value(value) for key, value in gw.world.nvram.items())


def identity_set(gw, tag, value):
    """Replaces the line of one tag; leaves it alone when the new one is too long to write."""
    text = b"echo '</%s> %s' >> /etc/cpectl.cfg" % (tag, in_single_quotes(value))
    if not fits(text, 512):
        return
    gw.shell(b"sed -i '/%s/d' /etc/cpectl.cfg" % tag)
    edit_identity(gw, lambda content: sed_delete(tag, content))
    gw.shell(text)
    gw.append(IDENTITY, b"</%s> %s\n" % (tag, value))


def edit_identity(gw, edit):
    if IDENTITY in gw.world.files:
        gw.world.files[IDENTITY] = edit(gw.world.files[IDENTITY])


def gw_dev_list_get(gw, _):
    name = gw.nvram_text(b"HOSTNAME")
    mac = gw.nvram_text(b"LAN_DEF_MAC")
    ip = gw.mvram_text(b"WAN1_RUN_IP")
    gw.shell(b"cat /proc/uptime")
    seconds = uptime(gw.read(b"/proc/uptime"))
    no_radio = gw.nvram_text(b"PRODUCT_TYPE").startswith(b"QRX30LT")
    return Object([
        (b"fun", b"gwDevListGet"), (b"stat", b"ok"),
        (b"cbk", Object([
            (b"devNm", name), (b"devMac", mac), (b"devIp", ip),
            (b"wireFunc", b"NO" if no_radio else b"YES"),
            (b"runTmDays", seconds // 86400),
            (b"runTmHours", seconds // 3600 % 24),
            (b"runTmMins", seconds // 60 % 60)]))])


def uptime(content):
    """The whole seconds of the first number; 0 when there is none."""
    match = re.match(rb"\s*((\d+(\.\d*)?|\.\d+)([eE][+-]?\d+)?)", content or b"")
    return int(float(match.group(1))) if match else 0
