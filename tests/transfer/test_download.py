"""The over-the-air check against real servers: what of a server's behaviour reaches the stores."""

import pytest

import beside

pytestmark = pytest.mark.timing

WORLD = """
[nvram]     LAN_DEF_MAC=00:11:22:33:44:55
            PRODUCT_TYPE=QRX30
[file /etc/router.ver]
            SW_DATE=20200101
[file /etc/hosts]
            127.0.0.1 ota.cpectl.example
"""
OFFERED = {
    "CLOUD_PUSH_FIRMWARE_FWADDR": "http://fw.example/a.bin",
    "CLOUD_PUSH_FIRMWARE_FWNAME": "a.bin",
    "CLOUD_PUSH_FIRMWARE_FWDESC": "t",
    "CLOUD_PUSH_FIRMWARE_FWMD5ADDR": "5",
    "CLOUD_PUSH_FIRMWARE_FWTYPE": "x",
}


def check(office, serve, manner):
    """Runs a check; returns what came of it and the server's requests."""
    office.prepare(WORLD)
    outcome, requests = serve(manner, 80, "checkOta")
    assert outcome.result.exit_line() == "255"
    assert outcome.output("stdout") == ""
    assert outcome.output("stderr") == ""
    return outcome, requests


def was_taken(outcome):
    """Whether the offer was stored and handed on. Half of it is a failure of the test."""
    stored = outcome.stores["mvram"] == OFFERED
    assert stored or not outcome.stores["mvram"]
    assert beside.scripts(outcome) == (["/usr/sbin/pushOTA.sh get"] if stored else [])
    return stored


@pytest.mark.parametrize("manner", [
    "offers", "offers with 404", "offers with 500", "sends chunks", "sends until it closes",
    "sends a cookie and headers", "sends slowly",
    "sends an offer and less than it says",  # a failed transfer, but the file holds an offer
])
def test_an_offer_is_taken_however_it_comes(office, serve, manner):
    outcome, requests = check(office, serve, manner)
    assert was_taken(outcome)
    assert len(requests) == 1


@pytest.mark.parametrize("manner, held", [
    ("says 404", b"<html>404</html>"),
    ("says 500", b"Traceback"),
    ("says nothing", b""),
    ("sends an empty body", b""),
    ("sends less than it says", b'{"msg": {"path": "http://fw.example/a.bi'),
    ("sends a broken chunk", b'{"msg": {"path": "ht'),
    ("speaks another language", b""),
    ("closes", b""),
])
def test_what_is_no_offer_is_left_in_its_file_and_nothing_else_is_done(office, serve, manner, held):
    outcome, requests = check(office, serve, manner)
    assert not was_taken(outcome)
    assert office.read("/tmp/pushfile") == held
    assert outcome.result.took >= 1.0  # read three times, half a second apart
    assert len(requests) == 1


def test_a_connection_torn_down_on_the_way(office, serve):
    outcome, _ = check(office, serve, "tears down")
    assert not was_taken(outcome)
    assert b'{"msg": {"path": "http://fw.ex'.startswith(office.read("/tmp/pushfile"))


def test_a_redirect_is_not_followed(office, serve):
    outcome, requests = check(office, serve, "redirects")
    assert not was_taken(outcome)
    assert office.read("/tmp/pushfile") == b"<html>Moved</html>"
    assert [request["request"].split()[1].partition("?")[0] for request in requests] == \
        ["/cloud-ota/pltcheck"]


def test_ten_megabytes(office, serve):
    outcome, _ = check(office, serve, "sends 10 MB")
    assert was_taken(outcome)
    assert (office.root / "tmp/pushfile").stat().st_size > 10_000_000


def test_the_request_is_a_plain_get(office, serve):
    _, requests = check(office, serve, "offers")
    assert requests == [{
        "request": "GET /cloud-ota/pltcheck?devMac=00:11:22:33:44:55&platform=QRX30"
                   "&version=20200101 HTTP/1.1",
        "headers": [["Host", "ota.cpectl.example"], ["Accept", "*/*"]],
        "body": "",
    }]


def test_an_answer_that_is_completed_later_is_read_again(office):
    """The file is opened anew for each of the three readings."""
    office.prepare(WORLD)
    office.prepare("[http 80] {")
    office.write("/opt/offer", '{"msg":{"path":"http://fw.example/a.bin","textNotes":"t",'
                               '"md5":"5","type":"x"}}')
    outcome = office.script(
        "(until [ \"$(cat /tmp/pushfile 2>/opt/none)\" = '{' ]; do sleep 0.01; done; "
        "cp /opt/offer /tmp/new; mv /tmp/new /tmp/pushfile) & "
        "/usr/sbin/cpectl checkOta; status=$?; wait; exit $status")
    assert outcome.output("stdout") == ""
    assert was_taken(outcome)
