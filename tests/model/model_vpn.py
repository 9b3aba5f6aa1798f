"""The VPN services: IPsec with its tunnels, the PPTP server with its users, the PPTP client."""

import hashlib
import re

from cjson import Object, member, text_of
from world import c_text, cut, fits, grep, grep_not, pieces, shell_word

TUNNELS = b"/disk/conf/ipsec.cfg"
USERS = b"/disk/conf/pptpuser.cfg"
CLIENTS = b"/tmp/pptp_clients"
WORK_FILE = b"/tmp/cpectl_tmp_write_file"
RESTART_IPSEC = b"/usr/sbin/ipsec.sh install >/dev/null 2>&1 &"
RESTART_SERVER = b"/usr/sbin/pptp.sh init server >/dev/null 2>/dev/null &"
RESTART_CLIENT = b"/usr/sbin/pptp.sh init client >/dev/null 2>&1 &"
TUNNEL_LIMIT = 500
LINE_LIMIT = 4094  # of a line file, when lines are counted


def answer(fun, stat):
    return Object([(b"fun", fun), (b"stat", stat)])


def answer_cbk_first(fun, cbk):
    return Object([(b"fun", fun), (b"cbk", cbk), (b"stat", b"ok")])


def yes_or_no(text):
    return b"YES" if text.startswith(b"YES") else b"NO"


# -- line files

def first_word(line):
    """The text before the first blank; None when there is no blank."""
    word, blank, _ = line.partition(b" ")
    return word if blank else None


def is_listed(gw, name, path, line_limit):
    """1 when a line's first word begins with the name, 0 when none does, -1 without the file."""
    content = gw.read(path)
    if content is None:
        return -1
    words = (first_word(line) for line in pieces(content, line_limit))
    return int(any(word is not None and word.startswith(name) for word in words))


def line_number(gw, name, path):
    content = gw.read(path)
    if content is None:
        return -1
    number = 0
    for line in pieces(content, LINE_LIMIT):
        word = first_word(line)
        if word is None:
            continue
        number += 1
        if cut(word, 128).startswith(name):
            return number
    return 0


def delete_line(gw, name, path):
    """False when a file cannot be opened. A line is kept or deleted whole, however long."""
    content = gw.read(path)
    if content is None or not gw.can_create(WORK_FILE):
        return False
    kept = b""
    for line in pieces(content):
        key = first_word(line[:127])
        if key is not None and not name.startswith(key):
            kept += line
    gw.shell(b"mv -f %s %s >/dev/null" % (WORK_FILE, path))
    gw.write(path, kept)
    gw.shell(b"/usr/bin/dd_flash -s >/dev/null")
    return True


def add_record(gw, args, fun, name_of_member, path, line_limit, script):
    record = text_of(args, name_of_member)
    if not record:
        return answer(fun, b"err")
    name = record[:127].split(b" ")[0]
    if path in gw.world.files and is_listed(gw, name, path, line_limit) != 0:
        return answer(fun, b"err")
    command = script % shell_word(name)
    if not fits(command, 256):
        return answer(fun, b"err")
    gw.append(path, record + b"\n")
    gw.shell(command)
    return answer(fun, b"ok")


# -- IPsec

def ipsec_open(gw, _):
    return ipsec_switch(gw, b"ipsecOpen", b"YES")


def ipsec_close(gw, _):
    return ipsec_switch(gw, b"ipsecClose", b"NO")


def ipsec_switch(gw, fun, value):
    gw.nvram_update(b"IPSEC_ENABLE", value)
    gw.nvram_commit()
    gw.shell(RESTART_IPSEC)
    return answer(fun, b"ok")


def ipsec_sta_get(gw, _):
    run = yes_or_no(gw.nvram_text(b"IPSEC_ENABLE"))
    return answer_cbk_first(b"ipsecStaGet", Object([(b"run", run)]))


def ipsec_conf_get(gw, args):
    return conf_get(gw, args, b"ipsecConfGet", TUNNELS)


def conf_get(gw, args, fun, path):
    url = text_of(args, b"postUrl")
    if not url or not fits(url, 512):
        return answer(fun, b"err")
    name, md5, stat = b"NONE", b"", b"ok"
    if path in gw.world.files:
        upload = b'curl %s -F "file=@%s" >/dev/null 2>&1 &' % (shell_word(url), path)
        if fits(upload, 1024) and not url.startswith(b"-"):
            gw.shell(upload)
        digest = hashlib.md5(gw.world.files[path]).hexdigest().encode()
        md5 = gw.capture(b"md5sum %s |awk '{print $1}' 2>/dev/null" % path, digest + b"\n", 64)
        name = path.rpartition(b"/")[2]
    return Object([(b"fun", fun), (b"stat", stat),
                   (b"cbk", Object([(b"name", name), (b"md5", md5)]))])


def ipsec_add_tun(gw, args):
    return add_record(gw, args, b"ipsecAddTun", b"tunCfg", TUNNELS, 4095,
                      b"/usr/sbin/ipsec.sh add %s >/dev/null 2>&1 &")


def ipsec_del_tun(gw, args):
    fun = b"ipsecDelTun"
    name = cut(text_of(args, b"tunName") or b"", 128)
    if not name or is_listed(gw, name, TUNNELS, 4095) != 1:
        return answer(fun, b"err")
    number = line_number(gw, name, TUNNELS)
    if number <= 0:
        return answer(fun, b"err")
    gw.shell(b"/usr/sbin/ipsec.sh del %d >/dev/null 2>&1" % number)
    if not delete_line(gw, name, TUNNELS):
        return answer(fun, b"err")
    gw.shell(b"/usr/sbin/ipsec.sh config >/dev/null 2>&1")
    return answer(fun, b"ok")


def ipsec_del_all_tun(gw, _):
    gw.shell(b"> %s >/dev/null 2>/dev/null" % TUNNELS)
    gw.write(TUNNELS, b"")
    gw.shell(RESTART_IPSEC)
    return answer(b"ipsecDelAllTun", b"ok")


def ipsec_tun_shutdown(gw, args):
    return tunnel_action(gw, args, b"ipsecTunShutdown", 0)


def ipsec_tun_reconn(gw, args):
    return tunnel_action(gw, args, b"ipsecTunReconn", 1)


def ipsec_tun_reboot(gw, args):
    return tunnel_action(gw, args, b"ipsecTunReboot", 2)


def tunnel_action(gw, args, fun, action):
    name = text_of(args, b"tunName")
    if not name:
        return refused_action(fun, b"tunName is null")
    command = b"/usr/sbin/ipsec.sh set %s %d >/dev/null 2>&1 &" % (shell_word(name), action)
    if not fits(command, 256):
        return refused_action(fun, b"tunName is too long")
    gw.shell(command)
    return answer_cbk_first(fun, Object([(b"stat", b"ok"), (b"retInfo", b"")]))


def refused_action(fun, why):
    return Object([(b"fun", fun), (b"stat", b"ok"),
                   (b"cbk", Object([(b"stat", b"err"), (b"retInfo", why)])), (b"stat", b"ok")])


# -- the state of the tunnels

STATE = b"/tmp/ipsec_stat"
ESTABLISHED = b"/tmp/ipsec_state_tmp"
UNROUTED = b"/tmp/ipsec_eroute_tmp"


def ipsec_tun_sta_get(gw, _):
    entries = []
    if write_tunnel_states(gw):
        for line in pieces(gw.read(STATE), 255):
            words = re.split(rb"[\r\n]", line)[0].split(b" ") + [b""] * 4
            entries.append(Object([(b"name", cut(words[0], 128)), (b"ip", cut(words[2], 20)),
                                   (b"stat", cut(words[3], 10))]))
    return answer_cbk_first(b"ipsecTunStaGet", Object([(b"tun", entries)]))


def write_tunnel_states(gw):
    """False when one of the files is missing."""
    status = gw.script(b"/usr/local/sbin/ipsec").prints
    gw.shell(b'/usr/local/sbin/ipsec whack --status|grep "eroute owner"|grep "established"'
             b' > /tmp/ipsec_state_tmp 2>/dev/null')
    gw.write(ESTABLISHED, grep(b"established", grep(b"eroute owner", status)))
    gw.shell(b'/usr/local/sbin/ipsec whack --status|grep "; unrouted;" |grep -v "; erouted;" '
             b'|grep -v "established" |grep -v "0.0.0.0" > /tmp/ipsec_eroute_tmp 2>/dev/null')
    unrouted = grep(b"; unrouted;", status)
    for pattern in (b"; erouted;", b"established", b"0.0.0.0"):
        unrouted = grep_not(pattern, unrouted)
    gw.write(UNROUTED, unrouted)
    gw.shell(b"echo -n > /tmp/ipsec_stat")
    gw.write(STATE, b"")
    content = gw.read(TUNNELS)
    if content is None:
        return False
    tunnels = tunnel_records(content)
    for line in pieces(gw.read(ESTABLISHED), 1023):
        mark_established(tunnels, line)
    for line in pieces(gw.read(UNROUTED), 1023):
        mark_unrouted(tunnels, line)
    for tunnel in tunnels:
        peer = tunnel["peer"] if tunnel["up"] else b"0.0.0.0"
        gw.append(STATE, b"%s 0 %s %d \n" % (tunnel["name"], peer, tunnel["up"]))
    return True


def tunnel_records(content):
    """The tunnels of the file, up to the first one without a name. A line without a blank is all
    name."""
    tunnels = []
    for line in pieces(content, 1023):
        words = line.rstrip(b"\n").split(b" ")
        name = cut(words[0], 128)
        if not name or len(tunnels) == TUNNEL_LIMIT:
            break
        peer = cut(words[5], 20) if len(words) >= 7 else b""
        tunnels.append({"name": name, "peer": peer, "up": 0})
    return tunnels


def named(tunnels, connection):
    for tunnel in tunnels:
        if b"conn_" + tunnel["name"] == connection:
            return tunnel
    return None


def mark_established(tunnels, line):
    if line[4:5] != b"#":
        return
    match = re.match(rb'[^"]*"(c[^"/\n]*)["/](.*)', line[4:], re.S)
    tunnel = named(tunnels, match.group(1)) if match else None
    if tunnel is None:
        return
    rest = match.group(2)
    bracket = rest.find(b"] ")
    if tunnel["peer"].startswith(b"0.0.0.0") and bracket >= 0:
        shown = rest[bracket + 2:].rstrip(b"\n")
        colon = shown.find(b":", 1)
        tunnel["peer"] = cut(shown if colon < 0 else shown[:colon], 20)
    tunnel["up"] = 1


def mark_unrouted(tunnels, line):
    match = re.match(rb'.{4}"([^"/\n]*)["/]', line, re.S)
    tunnel = named(tunnels, match.group(1)) if match else None
    if tunnel is not None:
        tunnel["up"] = 0


# -- the PPTP server

def pptpd_open(gw, args):
    pool = member(args, b"ip")
    start, end = text_of(pool, b"start"), text_of(pool, b"end")
    encrypt = text_of(args, b"encrypt")
    if not start or not end or not encrypt:
        return answer(b"pptpdOpen", b"err")
    gw.nvram_update(b"PPTPD_ENABLE", b"YES")
    gw.nvram_update(b"PPTPD_REMOTEIP_START", start)
    gw.nvram_update(b"PPTPD_REMOTEIP_END", end)
    gw.nvram_update(b"PPTPD_REQ128", encrypt)
    gw.nvram_commit()
    gw.shell(RESTART_SERVER)
    return answer(b"pptpdOpen", b"ok")


def pptpd_close(gw, _):
    gw.nvram_update(b"PPTPD_ENABLE", b"NO")
    gw.nvram_commit()
    gw.shell(RESTART_SERVER)
    return answer(b"pptpdClose", b"ok")


def pptpd_sta_get(gw, _):
    pool = Object()
    for name, key in ((b"start", b"PPTPD_REMOTEIP_START"), (b"end", b"PPTPD_REMOTEIP_END")):
        address = gw.nvram_text(key)
        if len(address) >= 16:
            return answer(b"pptpdStaGet", b"err")
        pool.append((name, address))
    enable = yes_or_no(gw.nvram_text(b"PPTPD_ENABLE"))
    encrypt = yes_or_no(gw.nvram_text(b"PPTPD_REQ128"))
    return answer_cbk_first(b"pptpdStaGet", Object([
        (b"ip", pool), (b"enable", enable), (b"encrypt", encrypt)]))


def pptpd_conf_get(gw, args):
    return conf_get(gw, args, b"pptpdConfGet", USERS)


def pptpd_add_user(gw, args):
    return add_record(gw, args, b"pptpdAddUser", b"userCfg", USERS, 1023,
                      b"/usr/sbin/pptp.sh user_add %s >/dev/null 2>&1 &")


def pptpd_del_user(gw, args):
    fun = b"pptpdDelUser"
    name = cut(text_of(args, b"userName") or b"", 128)
    if not name or is_listed(gw, name, USERS, 1023) != 1:
        return answer(fun, b"err")
    number = line_number(gw, name, USERS)
    if number <= 0:
        return answer(fun, b"err")
    gw.shell(b"/usr/sbin/pptp.sh config_copy >/dev/null 2>&1")
    if not delete_line(gw, name, USERS):
        return answer(fun, b"err")
    gw.shell(b"/usr/sbin/ipsec.sh user_del %d >/dev/null 2>&1 &" % number)
    return answer(fun, b"ok")


def pptpd_del_all_user(gw, _):
    gw.shell(b"> %s >/dev/null 2>/dev/null" % USERS)
    gw.write(USERS, b"")
    gw.shell(b"/usr/sbin/pptp.sh init server >/dev/null 2>&1 &")
    return answer(b"ipsecDelAllUser", b"ok")


def pptpd_user_sta_get(gw, _):
    content = gw.read(CLIENTS)
    if content is None:
        return answer(b"pptpdUserStaGet", b"err")
    entries = []
    for line in pieces(content, 255):
        words = re.split(rb"[\r\n]", c_text(line))[0].split(b" ")
        if len(words) >= 5:
            entries.append(Object([
                (b"name", cut(words[1], 128)), (b"gw", cut(words[2], 20)),
                (b"ip", cut(words[3], 20)), (b"client", cut(words[4], 20))]))
    return answer_cbk_first(b"pptpdUserStaGet", Object([(b"tun", entries)]))


# -- the PPTP client

def pptpc_open(gw, args):
    given = {}
    for name, size in ((b"serverIp", 20), (b"userName", 64), (b"userPasswd", 64),
                       (b"serverNet", 20), (b"serverMask", 20), (b"encrypt", 5)):
        value = text_of(args, name)
        if not value:
            return answer(b"pptpcOpen", b"err")
        given[name] = cut(value, size)
    gw.nvram_update(b"PPTPC_ENABLE", b"YES")
    for key, name in ((b"SERVER", b"serverIp"), (b"USER", b"userName"), (b"PWD", b"userPasswd"),
                      (b"SEC", b"encrypt"), (b"NETMASK", b"serverMask"), (b"NET", b"serverNet")):
        gw.nvram_update(b"PPTPC_" + key, given[name])
    gw.mvram_update(b"PPTPC_MANUAL", b"")
    gw.nvram_commit()
    gw.shell(RESTART_CLIENT)
    return answer(b"pptpcOpen", b"ok")


def pptpc_close(gw, _):
    gw.nvram_update(b"PPTPC_ENABLE", b"NO")
    for key in (b"SERVER", b"USER", b"PWD", b"NETMASK", b"NET"):
        gw.nvram_update(b"PPTPC_" + key, b"")
    gw.nvram_commit()
    gw.shell(RESTART_CLIENT)
    return answer(b"pptpcClose", b"ok")


def pptpc_confg_get(gw, _):
    enable = yes_or_no(gw.nvram_text(b"PPTPC_ENABLE"))
    encrypt = yes_or_no(gw.nvram_text(b"PPTPC_SEC"))
    shown = [(name, cut(gw.nvram_text(b"PPTPC_" + key), size)) for name, key, size in (
        (b"serverIp", b"SERVER", 20), (b"userName", b"USER", 64), (b"userPasswd", b"PWD", 64),
        (b"serverNet", b"NET", 20), (b"serverMask", b"NETMASK", 20))]
    return answer_cbk_first(b"pptpcConfgGet", Object(
        [(b"enable", enable)] + shown + [(b"encrypt", encrypt)]))


def pptpc_sta_get(gw, _):
    name = cut(gw.mvram_text(b"PPTPC_DEV"), 64) or b"111"
    device = gw.world.devices.get(name[:15])
    if device is None:
        return answer_cbk_first(b"pptpcStaGet", Object([(b"connect", b"NO")]))
    gw.shell(b"cat /proc/net/dev")
    return answer_cbk_first(b"pptpcStaGet", Object([
        (b"connect", b"YES"), (b"ip", device.address), (b"gw", device.peer),
        (b"rxtx", traffic(gw.read(b"/proc/net/dev"), name))]))


def traffic(content, name):
    """Bytes in and out of one device, as text; empty when it is not listed."""
    for line in list(pieces(content or b"", 255))[2:]:
        if line.startswith(b"\n"):
            break
        match = re.match(rb"\s*([^:]{1,11}):" + rb"\s*([+-]?\d+)\s" * 15 + rb"\s*([+-]?\d+)", line)
        if match and match.group(1)[:12] == name[:12]:
            received, sent = int(match.group(2)) % 2 ** 32, int(match.group(10)) % 2 ** 32
            return b"%d(%.1fMB)/%d(%.1fMB)" % (received, received / 1048576.0,
                                               sent, sent / 1048576.0)
    return b""


def pptpc_reconn(gw, _):
    gw.mvram_update(b"PPTPC_MANUAL", b"")
    gw.nvram_commit()
    gw.shell(RESTART_CLIENT)
    return answer(b"pptpcReconn", b"ok")


def pptpc_shutdown(gw, _):
    gw.mvram_update(b"PPTPC_MANUAL", b"1")
    gw.nvram_commit()
    gw.shell(b"killall pptpc >/dev/null 2>&1")
    gw.shell(b"/usr/sbin/cron.sh init >/dev/null 2>&1 &")
    return answer(b"pptpcShutdown", b"ok")
