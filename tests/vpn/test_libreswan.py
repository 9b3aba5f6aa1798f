"""ipsecTunStaGet on what Debian's libreswan really prints: two daemons, one of them the gateway's.

They run in the gateway's network and in one beside it, find each other and negotiate. Where the
kernel lacks IPsec's protocols, only its refusal is kept from the daemons (no_esp.c).
"""

import json
import shutil
import subprocess

import pytest

import beside
import tunnel_states

pytestmark = pytest.mark.timing

TOOLS = ["/usr/libexec/ipsec/pluto", "/usr/libexec/ipsec/whack", "/usr/bin/certutil"]
ADDCONN = "/usr/libexec/ipsec/addconn"
SECRET = ': PSK "a secret of more than thirty-two characters"\n'

# The gateway's own control tool is the real one.
CONTROL_TOOL = """
[script-text /usr/local/sbin/ipsec]
    shift
    exec /opt/whack --ctlsocket /opt/here/pluto.ctl "$@"
"""

# Makes both networks, starts both daemons, loads their connections, and brings some up. The other
# daemon has two addresses, as two peers.
START = """
daemon() {
    place=$1
    shift
    LD_PRELOAD=/opt/no_esp.so LD_LIBRARY_PATH= "$@" /opt/pluto --nofork --config /opt/ipsec.conf \\
        --nssdir /opt/keys --rundir $place --secretsfile /opt/secrets --logfile $place/log \\
        >>/opt/said 2>&1 &
}
whack() {
    /opt/whack --ctlsocket "$@" >>/opt/said 2>&1
}
connection() { # daemon, name, own address and network, the peer's address and network
    whack $1/pluto.ctl --name $2 --psk --ikev2-allow --encrypt --tunnel --updown /bin/true \\
        --host $3 --client $4 --to --host $5 --client $6
}
wait_for() {
    tries=0
    until "$@"; do
        tries=$((tries + 1))
        [ $tries -lt 400 ] || { kill $here $there $other; exit 77; }
        sleep 0.05
    done
}

has_own_network() {
    [ "$(readlink /proc/self/ns/net)" != "$(readlink /proc/$1/ns/net)" ]
}

mkdir -p /opt/here /opt/there
unshare -n sleep 600 &
other=$!
wait_for has_own_network $other
/sbin/ip link set lo up
/sbin/ip link add wan1 type veth peer name office netns $other
/sbin/ip address add 192.0.2.9/24 dev wan1
/sbin/ip link set wan1 up
nsenter -t $other -n /sbin/ip link set lo up
nsenter -t $other -n /sbin/ip address add 192.0.2.1/24 dev office
nsenter -t $other -n /sbin/ip address add 192.0.2.2/24 dev office
nsenter -t $other -n /sbin/ip link set office up

daemon /opt/here
here=$!
daemon /opt/there nsenter -t $other -n
there=$!
wait_for test -e /opt/here/pluto.ctl
wait_for test -e /opt/there/pluto.ctl

# Here: one that goes up, one to nobody, one that is only routed, one for any peer, one for any peer
# and any address, and one named as several networks of one tunnel are.
connection /opt/here conn_office 192.0.2.9 10.1.0.0/24 192.0.2.1 10.2.0.0/24
connection /opt/here conn_home 192.0.2.9 10.1.0.0/24 192.0.2.77 10.3.0.0/24
connection /opt/here conn_routed 192.0.2.9 10.1.0.0/24 192.0.2.78 10.4.0.0/24
connection /opt/here conn_any 192.0.2.9 0.0.0.0/0 %any 10.5.0.0/24
connection /opt/here other 192.0.2.9 10.1.0.0/24 192.0.2.1 10.6.0.0/24
connection /opt/there back 192.0.2.1 10.2.0.0/24 192.0.2.9 10.1.0.0/24
connection /opt/there call 192.0.2.2 10.5.0.0/24 192.0.2.9 0.0.0.0/0
connection /opt/there back2 192.0.2.1 10.6.0.0/24 192.0.2.9 10.1.0.0/24
for place in here there; do whack /opt/$place/pluto.ctl --listen; done
"""

END = """
/opt/whack --ctlsocket /opt/here/pluto.ctl --status >/opt/status
/usr/sbin/cpectl ipsecTunStaGet
kill $here $there $other
wait
"""

# A first attempt can get lost: the daemons may still be about to listen, and they wait long.
UP = """
is_up() { # place, name
    /opt/whack --ctlsocket /opt/$1/pluto.ctl --status |
        grep -q "^000 \\"$2\\".*newest IPsec SA: #[1-9]"
}
bring_up() {
    tries=0
    until is_up "$@" || [ $tries -eq 5 ]; do
        tries=$((tries + 1))
        timeout 3 /opt/whack --ctlsocket /opt/$1/pluto.ctl --initiate --name $2 >>/opt/said 2>&1
    done
}
whack /opt/here/pluto.ctl --route --name conn_routed
bring_up here conn_office
bring_up here other
bring_up there call
"""

DOWN = "whack /opt/here/pluto.ctl --terminate --name conn_office\n"

TUNNELS = """\
office 1 10.1.0.0/24 10.2.0.0/24 psk 192.0.2.1 aes
home 1 10.1.0.0/24 10.3.0.0/24 psk 192.0.2.77 aes
routed 1 10.1.0.0/24 10.4.0.0/24 psk 192.0.2.78 aes
any 1 0.0.0.0/0 10.5.0.0/24 psk 0.0.0.0 aes
other 1 10.1.0.0/24 10.6.0.0/24 psk 192.0.2.1 aes
gone 1 10.1.0.0/24 10.7.0.0/24 psk 192.0.2.1 aes
"""


@pytest.fixture(name="daemons")
def make_daemons(office, tmp_path):
    """Runs ipsecTunStaGet beside two daemons after what a script has them do; returns the entries
    and the text that the control tool printed."""
    missing = [tool for tool in [*TOOLS, ADDCONN] if not shutil.which(tool)]
    if missing:
        pytest.skip(f"not installed: {', '.join(missing)} (libreswan)")
    for tool in TOOLS:
        office.bring(tool)
    # The daemon insists on the place of this one.
    helper = office.gateway.base_dir / ADDCONN[1:]
    helper.parent.mkdir(parents=True, exist_ok=True)
    shutil.copy(ADDCONN, helper)
    office.write("/opt/ipsec.conf", "config setup\n")
    office.write("/opt/secrets", SECRET)
    (office.root / "opt/keys").mkdir()
    subprocess.run(["certutil", "-N", "-d", f"sql:{office.root}/opt/keys", "--empty-password"],
                   check=True)
    source = beside.PROJECT / "tests/vpn/no_esp.c"
    subprocess.run(["cc", "-shared", "-fPIC", "-Wall", "-Werror", "-o",
                    office.root / "opt/no_esp.so", source, "-ldl"], check=True, cwd=tmp_path)
    office.prepare(CONTROL_TOOL)
    office.write("/disk/conf/ipsec.cfg", TUNNELS)

    office.gateway.world.seconds = 120

    def ask(script):
        outcome = office.script(START + script + END)
        said = office.root / "opt/said"
        if outcome.result.exit_line() == "77":
            pytest.skip("the daemon cannot be started: " + said.read_text()[-300:])
        assert outcome.output("stderr") == ""
        answer = json.loads(outcome.output("stdout"))
        assert (answer["fun"], answer["stat"]) == ("ipsecTunStaGet", "ok")
        entries = [(entry["name"], entry["ip"], entry["stat"]) for entry in answer["cbk"]["tun"]]
        return entries, office.read("/opt/status")
    return ask


def check_rules(entries, status):
    """Holds the answer against the rules, too, on the very text that the daemon printed."""
    stated = tunnel_states.answer(TUNNELS.encode(), status)
    assert entries == [tuple(field.decode() for field in entry) for entry in stated]


def test_loaded_connections_are_down(daemons):
    entries, status = daemons("")
    check_rules(entries, status)
    assert b'000 "conn_home": ' in status
    assert entries == [(name, "0.0.0.0", "0")
                       for name in ("office", "home", "routed", "any", "other", "gone")]


def test_negotiated_tunnels_are_up(daemons):
    entries, status = daemons(UP)
    check_rules(entries, status)
    assert entries == [
        ("office", "192.0.2.1", "1"),
        ("home", "0.0.0.0", "0"),
        ("routed", "0.0.0.0", "0"),
        ("any", "192.0.2.2", "1"),  # as the daemon shows it
        ("other", "0.0.0.0", "0"),  # it is up, but under a name that is none of ours
        ("gone", "0.0.0.0", "0"),
    ]


def test_a_tunnel_that_was_taken_down(daemons):
    entries, status = daemons(UP + DOWN)
    check_rules(entries, status)
    assert entries[0] == ("office", "0.0.0.0", "0")
    assert entries[3] == ("any", "192.0.2.2", "1")
