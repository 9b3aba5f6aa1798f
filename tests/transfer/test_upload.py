"""The two uploads against real servers, made by the gateway's own curl."""

import base64
import hashlib
import json
import subprocess

import pytest

import beside

pytestmark = pytest.mark.timing

# The command, the file, and the name that the server sees.
UPLOADS = [
    ("ipsecConfGet", "/disk/conf/ipsec.cfg", "ipsec.cfg"),
    ("pptpdConfGet", "/disk/conf/pptpuser.cfg", "pptpuser.cfg"),
]
every_upload = pytest.mark.parametrize("command, path, name", UPLOADS)

ODD_BYTES = bytes(range(256)) * 300 + b"--\r\n--boundary--\r\nlast line without end"


def upload(office, serve, manner, command, url, path, content=b"office 1 2 3 4 192.0.2.1 x\n"):
    """Uploads a file; returns the outcome and the requests that came to the server."""
    office.write(path, content)
    outcome, requests = serve(manner, 8080, command, json.dumps({"postUrl": url}))
    assert outcome.result.exit_line() == "0"
    assert outcome.output("stderr") == ""
    assert not outcome.result.lingering
    answer = {"fun": command, "stat": "ok",
              "cbk": {"name": path.rpartition("/")[2], "md5": hashlib.md5(content).hexdigest()}}
    assert outcome.output("stdout") == json.dumps(answer, separators=(",", ":")) + "\n"
    return outcome, requests


def form_of(request):
    """The parts of a multipart form, each as its head and its bytes."""
    kind, _, boundary = dict(request["headers"])["Content-Type"].partition("; boundary=")
    assert kind == "multipart/form-data"
    fence = b"--" + boundary.encode()
    before, *parts, after = (b"\r\n" + base64.b64decode(request["body"])).split(b"\r\n" + fence)
    assert (before, after) == (b"", b"--\r\n")
    found = []
    for part in parts:
        head, _, content = part.removeprefix(b"\r\n").partition(b"\r\n\r\n")
        found.append((head.decode().split("\r\n"), content))
    return found


@every_upload
@pytest.mark.parametrize("content", [b"", b"a b\n", ODD_BYTES], ids=["empty", "small", "odd bytes"])
def test_the_file_arrives_as_the_only_field(office, serve, command, path, name, content):
    _, requests = upload(office, serve, "takes it", command, "http://127.0.0.1:8080/up", path,
                         content)
    assert [request["request"] for request in requests] == ["POST /up HTTP/1.1"]
    assert form_of(requests[0]) == [([
        f'Content-Disposition: form-data; name="file"; filename="{name}"',
        "Content-Type: application/octet-stream"], content)]


@every_upload
def test_the_digest_is_the_one_that_md5sum_tells(office, serve, command, path, name, tmp_path):
    (tmp_path / name).write_bytes(ODD_BYTES)
    told = subprocess.run(["md5sum", name], cwd=tmp_path, check=True, capture_output=True,
                          text=True).stdout.split()[0]
    outcome, _ = upload(office, serve, "takes it", command, "http://127.0.0.1:8080/", path,
                        ODD_BYTES)
    assert json.loads(outcome.output("stdout"))["cbk"]["md5"] == told


@every_upload
@pytest.mark.parametrize("target", [
    "/up?a=1&b=2;c=$(touch%20/tmp/owned)`id`|x",
    "/two%20words/?name=a%20b&c=%27d%27",
    "/it's?q=\"x\"",
    "/star*?and=question!#fragment",
    "/" + "long" * 120,
])
def test_a_url_arrives_whole(office, serve, command, path, name, target):
    del name
    outcome, requests = upload(office, serve, "takes it", command,
                               "http://127.0.0.1:8080" + target, path)
    assert [request["request"] for request in requests] == \
        [f"POST {target.partition('#')[0]} HTTP/1.1"]
    assert not (office.root / "tmp/owned").exists()
    assert len(beside.shells(outcome)) == 2


@pytest.mark.parametrize("manner", ["refuses it", "hangs up", "closes", "tears down", "redirects"])
def test_what_the_server_makes_of_it_is_not_the_answers_matter(office, serve, manner):
    _, requests = upload(office, serve, manner, "ipsecConfGet", "http://127.0.0.1:8080/up",
                         "/disk/conf/ipsec.cfg", ODD_BYTES)
    assert len(requests) == 1  # and a redirect is not followed


def test_a_slow_server_keeps_nobody_waiting(office, serve):
    """This server takes the upload when the request has been answered, and not before."""
    _, requests = upload(office, serve, "reads late", "pptpdConfGet",
                         "http://127.0.0.1:8080/up", "/disk/conf/pptpuser.cfg", ODD_BYTES)
    assert form_of(requests[0])[0][1] == ODD_BYTES


def test_a_server_that_is_not_there(office):
    office.write("/disk/conf/ipsec.cfg", "a b\n")
    outcome = office.request("ipsecConfGet", '{"postUrl":"http://127.0.0.1:8080/"}')
    digest = hashlib.md5(b"a b\n").hexdigest()
    assert outcome.output("stdout") == ('{"fun":"ipsecConfGet","stat":"ok",'
                                        '"cbk":{"name":"ipsec.cfg","md5":"%s"}}\n' % digest)
    assert outcome.output("stderr") == ""
    assert not outcome.result.lingering


def test_a_name_that_does_not_resolve(office):
    office.write("/disk/conf/ipsec.cfg", "a b\n")
    outcome = office.request("ipsecConfGet", '{"postUrl":"http://up.cpectl.example/"}')
    assert '"stat":"ok"' in outcome.output("stdout")
    assert outcome.output("stderr") == ""


def test_a_certificate_that_nobody_signed_is_not_trusted(office, serve, tmp_path):
    """The upload is the device's curl's business, which knows whom to trust."""
    made = subprocess.run(
        ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
         "-nodes", "-subj", "/CN=127.0.0.1", "-days", "2", "-keyout", "key.pem", "-out",
         "cert.pem"], cwd=tmp_path, capture_output=True, check=False)
    if made.returncode != 0:
        pytest.skip("openssl makes no certificate here")
    office.write("/opt/certificate.pem",
                 (tmp_path / "key.pem").read_bytes() + (tmp_path / "cert.pem").read_bytes())
    _, requests = upload(office, serve, "encrypts", "ipsecConfGet", "https://127.0.0.1:8080/",
                         "/disk/conf/ipsec.cfg")
    assert requests == []
    assert (office.root / "opt/refused").exists()
