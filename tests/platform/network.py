"""A small office in network namespaces: hosts, a gateway with two WAN links, and what lies beyond.

    office1 192.168.5.10 ---+                        +--- wan0 203.0.113.1   --- 203.0.113.10  \\
                            +- eth0.5 - (gateway) ---+                                          far
    office2 192.168.5.11 ---+  192.168.5.1           +--- wan1 198.51.100.1  --- 198.51.100.10 /

The gateway translates addresses towards wan0 and passes port 8080 there on to office2. Everything
is in namespaces of these tests' own and is gone when they end.
"""
import json
import pathlib
import subprocess

HERE = pathlib.Path(__file__).resolve().parent

LAN_ADDRESS = "192.168.5.1"
OFFICE = ("192.168.5.10", "192.168.5.11")
OFFICE_MAC = ("02:00:00:00:05:10", "02:00:00:00:05:11")
FAR = ("203.0.113.10", "198.51.100.10")
FAR_MAC = ("02:00:00:00:ff:10", "02:00:00:00:ff:11")
GATEWAY_WAN = ("203.0.113.1", "198.51.100.1")
GATEWAY_WAN_MAC = ("02:00:00:00:ff:01", "02:00:00:00:ff:02")
PORT = 7000
PUBLISHED_PORT = 8080  # on the gateway's wan0, for office2's PORT

RULES = f"""
table ip office {{
    chain before {{
        type nat hook prerouting priority -100;
        iifname "wan0" tcp dport {PUBLISHED_PORT} dnat to {OFFICE[1]}:{PORT}
    }}
    chain through {{ type filter hook forward priority 0; ct state invalid drop; }}
    chain after {{ type nat hook postrouting priority 100; oifname "wan0" masquerade; }}
}}
"""


class Unavailable(Exception):
    """This machine does not let us have namespaces, or the kernel lacks a device."""


class Place:
    """One network namespace with an agent in it."""

    def __init__(self, enter):
        self.agent = subprocess.Popen([*enter, str(HERE / "agent.py")], stdin=subprocess.PIPE,
                                      stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.read_answer()

    def read_answer(self):
        line = self.agent.stdout.readline()
        assert line, self.agent.stderr.read()
        answer = json.loads(line)
        assert answer["ok"], answer["failure"]

    def do(self, action, /, **arguments):
        self.agent.stdin.write(json.dumps({"do": action, **arguments}) + "\n")
        self.agent.stdin.flush()
        self.read_answer()

    def start(self, action, /, **arguments):
        """The same in the background, until do("wait")."""
        self.do("start", action={"do": action, **arguments})

    def enter(self, *command):
        return ["nsenter", "--target", str(self.agent.pid), "--user", "--preserve-credentials",
                "--net", *map(str, command)]

    def run(self, *command, **options):
        return subprocess.run(self.enter(*command), check=True, stdout=subprocess.PIPE, text=True,
                              timeout=60, **options).stdout

    def ip(self, *lines):
        self.run("ip", "-batch", "-", input="\n".join(lines) + "\n")

    def setting(self, name, value):
        self.run("sh", "-c", 'echo "$1" >"/proc/sys/net/$2"', "sh", str(value), name)

    def close(self):
        self.agent.stdin.close()
        self.agent.wait(timeout=60)
        self.agent.stdout.close()
        self.agent.stderr.close()


def place_beside(place):
    """Another network namespace in the user namespace of the first."""
    return Place(["nsenter", "--target", str(place.agent.pid), "--user", "--preserve-credentials",
                  "unshare", "--net"])


def check_available():
    tried = subprocess.run(
        ["unshare", "--user", "--map-root-user", "--net", "sh", "-c",
         "ip link add name one type veth peer name two && ip link add name three type bridge"],
        stderr=subprocess.PIPE, text=True, check=False)
    if tried.returncode != 0:
        raise Unavailable(tried.stderr.strip())


def wan_end(place, device, mac, address, other_address, other_mac):
    """One end of a WAN link. It knows the other one: nothing passes but the tests' traffic."""
    place.ip(f"link set {device} address {mac} up", f"addr add {address}/24 dev {device}",
             f"neigh replace {other_address} lladdr {other_mac} dev {device} nud permanent")


class Network:
    def __init__(self):
        check_available()
        self.places = []
        self.gateway = self.add(Place(["unshare", "--user", "--map-root-user", "--net"]))
        self.office = [self.add(place_beside(self.gateway)) for _ in OFFICE]
        self.far = self.add(place_beside(self.gateway))
        self.connect()
        self.address()
        self.gateway.run("nft", "-f", "-", input=RULES)
        self.gateway.setting("netfilter/nf_conntrack_acct", 1)
        self.gateway.setting("netfilter/nf_conntrack_timestamp", 1)
        for place in (*self.office, self.far):
            place.do("listen", address="", port=PORT)

    def add(self, place):
        self.places.append(place)
        # IPv6 would have something to say on new devices now and then.
        for devices in ("all", "default"):
            place.setting(f"ipv6/conf/{devices}/disable_ipv6", 1)
        return place

    def connect(self):
        ends = [*((f"port{i}", place) for i, place in enumerate(self.office)),
                *((f"wan{i}", self.far) for i in range(len(FAR)))]
        lines = ["link add eth0.5 type bridge forward_delay 0", "link set eth0.5 up"]
        for name, place in ends:
            lines.append(f"link add name {name} type veth peer name {name}x")
            lines.append(f"link set {name}x netns {place.agent.pid}")
            lines.append(f"link set {name} up")
        lines += [f"link set port{i} master eth0.5" for i in range(len(self.office))]
        self.gateway.ip(*lines)

    def address(self):
        self.gateway.setting("ipv4/ip_forward", 1)
        self.gateway.ip("link set lo up", f"addr add {LAN_ADDRESS}/24 dev eth0.5")
        for i, place in enumerate(self.office):
            place.ip("link set lo up", f"link set port{i}x address {OFFICE_MAC[i]} up",
                     f"addr add {OFFICE[i]}/24 dev port{i}x",
                     f"route add default via {LAN_ADDRESS}")
        for i, far in enumerate(FAR):
            wan_end(self.gateway, f"wan{i}", GATEWAY_WAN_MAC[i], GATEWAY_WAN[i], FAR[i], FAR_MAC[i])
            wan_end(self.far, f"wan{i}x", FAR_MAC[i], FAR[i], GATEWAY_WAN[i], GATEWAY_WAN_MAC[i])
        self.far.ip("link set lo up", f"route add 192.168.5.0/24 via {GATEWAY_WAN[1]}")

    def end_flows(self):
        self.gateway.run("conntrack", "-F", stderr=subprocess.DEVNULL)

    def close(self):
        for place in reversed(self.places):
            place.close()
