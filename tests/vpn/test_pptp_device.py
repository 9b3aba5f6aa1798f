"""pptpcStaGet on a real point-to-point device with traffic through it."""

import json

import pytest

import beside

pytestmark = pytest.mark.timing

# Makes the device, sends through it, tells the counts, and runs the request while it is there.
TRAFFIC = """
import fcntl, json, os, select, socket, struct, subprocess, sys

name, local, peer, inwards, outwards, size = sys.argv[1:7]
TUNSETIFF, IFF_TUN, IFF_NO_PI = 0x400454CA, 0x0001, 0x1000
try:
    device = os.open("/dev/net/tun", os.O_RDWR)
    fcntl.ioctl(device, TUNSETIFF, struct.pack("16sH22x", name.encode(), IFF_TUN | IFF_NO_PI))
except OSError as error:
    print(error, file=open("/opt/no-device", "w"))
    sys.exit()
subprocess.run(["/sbin/ip", "-batch", "-"], check=True, text=True, input=(
    f"link set {name} addrgenmode none\\n"
    f"address add {local} peer {peer} dev {name}\\n"
    f"link set {name} up\\n"))


def packet(payload):
    # A datagram from the peer to nobody: it counts, and is answered by nothing.
    head = struct.pack("!BBHHHBBH4s4s", 0x45, 0, 20 + len(payload), 1, 0, 64, 253, 0,
                       socket.inet_aton(peer), socket.inet_aton("203.0.113.99"))
    total = sum(struct.unpack("!10H", head))
    total = (total & 0xffff) + (total >> 16)
    return head[:10] + struct.pack("!H", 0xffff - total) + head[12:] + payload


received = sent = 0
for _ in range(int(inwards)):
    received += os.write(device, packet(b"x" * (int(size) - 20)))
talk = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
for _ in range(int(outwards)):
    talk.sendto(b"y" * (int(size) - 28), (peer, 9))
    sent += len(os.read(device, 65536))
while select.select([device], [], [], 0.05)[0]:
    sent += len(os.read(device, 65536))
json.dump([received, sent], open("/opt/counts", "w"))
sys.stdout.flush()
sys.exit(subprocess.run(["/usr/sbin/cpectl", "pptpcStaGet"]).returncode)
"""


@pytest.mark.parametrize("name, inwards, outwards, size", [
    ("ppp0", 0, 0, 1400),
    ("ppp0", 3, 1, 100),
    ("ppp17", 900, 400, 1400),  # more than a megabyte one way
    ("ppp01234567", 1, 2, 1500),  # as long a name as the counters are found for
])
def test_addresses_and_counters_of_a_tunnel(office, name, inwards, outwards, size):
    office.bring_python()
    office.write("/opt/traffic.py", TRAFFIC)
    office.store("mvram", {"PPTPC_DEV": name})
    outcome = office.script(
        'PYTHONHOME=/usr exec /opt/python3 -B /opt/traffic.py "$@"',
        name, "10.8.0.2", "10.8.0.1", str(inwards), str(outwards), str(size))
    if (office.root / "opt/no-device").exists():
        pytest.skip("no tun device: " + office.read("/opt/no-device").decode().strip())
    received, sent = json.loads(office.read("/opt/counts"))
    assert (received, sent) == (inwards * size, outwards * size)
    traffic = f"{received}({received / 1048576:.1f}MB)/{sent}({sent / 1048576:.1f}MB)"
    assert outcome.output("stderr") == ""
    assert outcome.output("stdout") == (
        '{"fun":"pptpcStaGet","cbk":{"connect":"YES","ip":"10.8.0.2","gw":"10.8.0.1",'
        f'"rxtx":"{traffic}"}},"stat":"ok"}}\n')
    assert beside.shells(outcome) == ["cat /proc/net/dev"]
