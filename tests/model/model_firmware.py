"""Firmware: upgrade on command, firmware push, over-the-air check."""

import cjson
from cjson import Object, text_of
from world import c_text, cut_field, fits, grep

PUSH_FILE = b"/tmp/pushfile"
OTA_HOST = b"ota.cpectl.example"

# The fields of the offer lie one behind the other, and a longer text runs over into the next.
OFFER_FIELDS = ((b"path", 0), (b"name", 512), (b"notes", 576), (b"md5", 1088), (b"type", 1216))


def up_grade(gw, args):
    given = [(key, text_of(args, name)) for name, key in (
        (b"upGradeUrl", b"CPECTL_FIRMWARE_URL"), (b"upGradeMd5", b"CPECTL_FIRMWARE_MD5"),
        (b"upGradeNm", b"CPECTL_FIRMWARE_NAME"))]
    return store_and_start(gw, b"upGrade", given,
                           b"/usr/sbin/cpectlUpgrade.sh >/dev/null 2>&1 &")


def pushfw(gw, args):
    given = [(b"CLOUD_PUSH_FIRMWARE_" + key, text_of(args, name)) for name, key in (
        (b"fwurl", b"FWADDR"), (b"fwname", b"FWNAME"), (b"fwdesc", b"FWDESC"),
        (b"fwmd5", b"FWMD5ADDR"))]
    return store_and_start(gw, b"pushfw", given, b"/usr/sbin/pushOTA.sh get &")


def store_and_start(gw, fun, given, script):
    if any(value is None for _, value in given):
        return Object([(b"fun", fun), (b"stat", b"er")])
    for key, value in given:
        gw.mvram_update(key, value)
    gw.shell(script)
    return Object([(b"fun", fun), (b"stat", b"ok")])


def check_ota(gw, _):
    mac = gw.nvram_text(b"LAN_DEF_MAC")
    platform = gw.nvram_text(b"PRODUCT_TYPE")
    date = gw.capture(b"cat /etc/router.ver | grep SW_DATE | cut -d '=' -f 2",
                      cut_field(b"=", 2, grep(b"SW_DATE", gw.read(b"/etc/router.ver"))), 16)
    url = b"http://%s/cloud-ota/pltcheck?devMac=%s&platform=%s&version=%s" % (
        OTA_HOST, mac, platform, date)
    if not fits(url, 256):
        return None
    received = fetched(gw, url)
    if not gw.write(PUSH_FILE, received):
        return None
    offer = read_offer(cjson.parse_or_none(received))
    if offer is None:
        return None
    for key, name in ((b"FWADDR", b"path"), (b"FWNAME", b"name"), (b"FWDESC", b"notes"),
                      (b"FWMD5ADDR", b"md5"), (b"FWTYPE", b"type")):
        gw.mvram_update(b"CLOUD_PUSH_FIRMWARE_" + key, offer[name])
    gw.shell(b"/usr/sbin/pushOTA.sh get &")
    return None


def fetched(gw, url):
    """What the transfer brings: nothing without a server, and for what libcurl takes for no URL."""
    if any(c <= 32 or c == 127 for c in url):
        return b""
    return gw.world.web or b""


def read_offer(answer):
    """The five texts of a complete offer, as the copies leave them; None for another answer."""
    message = cjson.member(answer, b"msg")
    texts = {field: text_of(message, name) for field, name in (
        (b"path", b"path"), (b"notes", b"textNotes"), (b"md5", b"md5"), (b"type", b"type"))}
    if None in texts.values():
        return None
    texts[b"name"] = texts[b"path"].rpartition(b"/")[2]
    memory = bytearray(65536)
    for field, at in OFFER_FIELDS:
        memory[at:at + len(texts[field]) + 1] = texts[field] + b"\0"
    return {field: c_text(bytes(memory[at:])) for field, at in OFFER_FIELDS}
