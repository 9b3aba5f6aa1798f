"""The transfers against nginx: a server that was written by other people."""

import hashlib
import json
import shutil

import pytest

import beside

NGINX = shutil.which("nginx", path="/usr/sbin:/usr/bin")
pytestmark = [pytest.mark.timing,
              pytest.mark.skipif(not NGINX, reason="nginx is not installed")]

CONFIGURATION = """
daemon off;
pid /opt/nginx.pid;
error_log /opt/errors;
events {}
http {
    access_log off;
    client_body_temp_path /opt/bodies;
    proxy_temp_path /opt/t1;
    fastcgi_temp_path /opt/t2;
    scgi_temp_path /opt/t3;
    uwsgi_temp_path /opt/t4;
    log_format upload '$request';
    server {
        listen 127.0.0.1:80;
        root /opt/files;
        location /cloud-ota/ { %s }
        location /moved { return 200 '%s'; }
        location /up {
            access_log /opt/uploads upload;
            client_max_body_size 1k;
            return 200;
        }
    }
}
"""

START = """
mkdir -p /opt/files /var/log/nginx /var/lib/nginx
/opt/nginx -e /opt/errors -c /opt/nginx.conf &
while [ ! -s /opt/nginx.pid ]; do sleep 0.01; done
/usr/sbin/cpectl "$@"
status=$?
[ "$1" = checkOta ] || while [ ! -s /opt/uploads ]; do sleep 0.01; done
kill "$(cat /opt/nginx.pid)"
wait
exit $status
"""

OFFER = '{"msg":{"path":"http://fw.example/a.bin","textNotes":"t","md5":"5","type":"x"}}'
MOVED = OFFER.replace("a.bin", "moved.bin")

WORLD = """
[file /etc/router.ver]
            SW_DATE=20200101
[file /etc/hosts]
            127.0.0.1 ota.cpectl.example
[file /etc/passwd]
            root:x:0:0:root:/root:/bin/sh
            nobody:x:65534:65534:nobody:/:/bin/sh
[file /etc/group]
            root:x:0:
            nogroup:x:65534:
"""


def ask(office, location, *arguments):
    """Runs a request beside nginx, which does `location` for a check."""
    office.prepare(WORLD)
    office.bring(NGINX, "nginx")
    office.write("/opt/nginx.conf", "user root root;" + CONFIGURATION % (location, MOVED))
    outcome = office.script(START, *arguments)
    assert not outcome.result.lingering
    return outcome


@pytest.mark.parametrize("location", [
    f"return 200 '{OFFER}';",
    f"return 404 '{OFFER}';",
    "try_files /offer =404;",
    "ssi on; ssi_types *; try_files /offer =404;",  # in chunks, as the length is not known before
], ids=["a text", "a text with 404", "a file", "chunks"])
def test_an_offer_of_nginx(office, location):
    office.write("/opt/files/offer", OFFER)
    outcome = ask(office, location, "checkOta")
    assert outcome.result.exit_line() == "255"
    assert office.read("/tmp/pushfile").decode() == OFFER
    assert outcome.stores["mvram"]["CLOUD_PUSH_FIRMWARE_FWNAME"] == "a.bin"
    assert beside.scripts(outcome) == ["/usr/sbin/pushOTA.sh get"]


@pytest.mark.parametrize("location, begins", [
    ("return 404;", b"<html>\r\n<head><title>404 Not Found"),
    ("return 301 /moved;", b"<html>\r\n<head><title>301 Moved"),
    ("return 444;", b""),  # closes the connection
], ids=["404", "a redirect", "a closed connection"])
def test_no_offer_of_nginx(office, location, begins):
    outcome = ask(office, location, "checkOta")
    assert outcome.result.exit_line() == "255"
    held = office.read("/tmp/pushfile")
    assert held[:len(begins)] == begins and (begins or not held)
    assert outcome.stores["mvram"] == {}
    assert beside.scripts(outcome) == []


def test_ten_megabytes_of_nginx(office):
    office.write("/opt/files/offer", '{"more":"%s",' % ("a" * 10_000_000) + OFFER[1:])
    outcome = ask(office, "try_files /offer =404;", "checkOta")
    assert outcome.stores["mvram"]["CLOUD_PUSH_FIRMWARE_FWNAME"] == "a.bin"
    assert (office.root / "tmp/pushfile").stat().st_size > 10_000_000


@pytest.mark.parametrize("size", [100, 100_000], ids=["taken", "refused as too large"])
def test_an_upload_to_nginx(office, size):
    content = b"x" * size
    office.write("/disk/conf/ipsec.cfg", content)
    outcome = ask(office, "return 404;", "ipsecConfGet",
                  json.dumps({"postUrl": "http://127.0.0.1/up?a=1&b=two%20words"}))
    assert json.loads(outcome.output("stdout")) == {
        "fun": "ipsecConfGet", "stat": "ok",
        "cbk": {"name": "ipsec.cfg", "md5": hashlib.md5(content).hexdigest()}}
    assert office.read("/opt/uploads") == b"POST /up?a=1&b=two%20words HTTP/1.1\n"
