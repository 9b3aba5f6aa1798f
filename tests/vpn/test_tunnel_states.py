"""ipsecTunStaGet on status texts that real daemons printed, and on many tunnels."""

import json
import os
import re
from pathlib import Path

import pytest

import beside
import tunnel_states

DATA = Path(os.environ.get("CPECTL_DATA", beside.PROJECT.parent / "shared/data")) / "whack"
TEXTS = sorted(DATA.glob("*.txt"))

CONTROL_TOOL = """
[script-text /usr/local/sbin/ipsec]
    [ "$*" = "whack --status" ] && cat /opt/status
"""

# The name of a connection where a line of the daemon begins with it.
NAMED = re.compile(rb'^((?:000 )?(?:#\d+: )?")(?!conn_)([^"\n]+")', re.MULTILINE)


def ask(office, tunnels, status):
    """What the program answers for a tunnel file and a status, and how long it took."""
    office.prepare(CONTROL_TOOL)
    office.write("/opt/status", status)
    office.write("/disk/conf/ipsec.cfg", tunnels)
    outcome = office.request("ipsecTunStaGet")
    assert outcome.output("stderr") == ""
    assert outcome.result.exit_line() == "0"
    answer = json.loads(outcome.output("stdout"))
    assert list(answer) == ["fun", "cbk", "stat"]
    assert (answer["fun"], answer["stat"]) == ("ipsecTunStaGet", "ok")
    entries = [(entry["name"].encode(), entry["ip"].encode(), entry["stat"].encode())
               for entry in answer["cbk"]["tun"]]
    assert office.read("/tmp/ipsec_stat") == tunnel_states.state_file(tunnels, status)
    return entries, outcome


def tunnel_file(names, peers):
    """A tunnel for each name; the peers take turns."""
    return b"".join(b"%s 1 10.1.0.0/24 10.2.0.0/24 psk %s 3des\n" % (name, peers[i % len(peers)])
                    for i, name in enumerate(names))


def names_in(status):
    """The names of the connections of a status, without the number of a network."""
    found = re.findall(rb'^(?:000 )?(?:#\d+: )?"conn_([^"/\n]+)', status, re.MULTILINE)
    return list(dict.fromkeys(name for name in found if b" " not in name))


def adapted(status):
    """The daemon's text with its connections named as the gateway's script names them."""
    return NAMED.sub(rb"\1conn_\2", status)


@pytest.mark.skipif(not TEXTS, reason=f"no status texts in {DATA}")
@pytest.mark.parametrize("peers", [[b"192.0.2.1"], [b"0.0.0.0"]], ids=["set peers", "any peer"])
@pytest.mark.parametrize("path", TEXTS, ids=lambda path: getattr(path, "stem", "none"))
def test_the_status_of_a_real_daemon(office, path, peers):
    status = adapted(path.read_bytes())
    if not re.search(rb"^000 ", status, re.MULTILINE):
        # Daemons of later versions leave the number out, which the control tool put in front.
        status = re.sub(rb"^", b"000 ", status, flags=re.MULTILINE)
    names = names_in(status)
    assert names
    file = tunnel_file([*names, b"unknown"], peers)
    entries, _ = ask(office, file, status)
    assert entries == tunnel_states.answer(file, status)


# What some of these texts say, as somebody reads them who does not know the rules.
READ = [
    ("libreswan3.8-ikev2-loaded", b"west-east-delete1", b"192.0.2.1", (b"0.0.0.0", b"0")),
    ("libreswan3.8-ikev2-up", b"west-east-delete1", b"192.0.2.1", (b"192.0.2.1", b"1")),
    ("libreswan3.8-ikev2-deleted", b"west-east-delete1", b"192.0.2.1", (b"0.0.0.0", b"0")),
    ("libreswan3.32-hub-unrouted", b"northnet-westnet-ipv4-psk", b"192.0.2.1", (b"0.0.0.0", b"0")),
    ("libreswan4.15-natt-instance", b"roadnet-eastnet-ipv4-psk-ikev2", b"0.0.0.0",
     (b"192.1.2.254", b"1")),
    ("libreswan3.32-rw-instance", b"road-east-x509-ipv4", b"0.0.0.0", (b"192.1.2.23", b"1")),
    ("libreswan4.6-subnets-0x", b"road", b"192.0.2.1", (b"192.0.2.1", b"1")),
    ("openswan2-l2tp-natt", b"road--east-l2tp", b"192.0.2.1", (b"192.0.2.1", b"1")),
    ("openswan2-rsa-static", b"ipsec-rsa-c", b"0.0.0.0", (b"0.0.0.0", b"1")),
    ("openswan2-oppo-twice-1", b"ipsec-oppo-west", b"0.0.0.0", (b"...128.95.7.2", b"1")),
]


@pytest.mark.skipif(not TEXTS, reason=f"no status texts in {DATA}")
@pytest.mark.parametrize("text, name, peer, expected", READ, ids=lambda value: str(value)[:30])
def test_the_state_that_a_text_shows(office, text, name, peer, expected):
    status = adapted((DATA / f"{text}.txt").read_bytes())
    entries, _ = ask(office, tunnel_file([name], [peer]), status)
    assert entries == [(name, *expected)]


def test_connections_of_others_are_not_ours(office):
    """The same text as it was printed: no connection begins with conn_."""
    if not TEXTS:
        pytest.skip(f"no status texts in {DATA}")
    for path in TEXTS:
        status = path.read_bytes()
        names = names_in(adapted(status))
        entries, _ = ask(office, tunnel_file(names, [b"192.0.2.1"]), status)
        assert entries == [(name, b"0.0.0.0", b"0") for name in names]


def status_of_many(count):
    """Ten lines for each of `count` connections: two of three are up, one of seven is unrouted."""
    lines = []
    for i in range(count):
        name = f"conn_tun{i:04}"
        lines += [f'000 "{name}":     oriented; my_ip=unset; their_ip=unset; ({n})'
                  for n in range(8)]
        lines.append(
            f'000 "{name}": 10.1.0.0/24===192.0.2.9...198.51.100.7===10.2.0.0/24; '
            + ("unrouted; eroute owner: #0" if i % 7 == 0 else f"erouted; eroute owner: #{i}"))
        lines.append(f'000 #{i}: "{name}"[1] 203.0.113.{i % 250}:4500 STATE_QUICK_R2 '
                     + ("(IPsec SA established); newest IPSEC; eroute owner; idle" if i % 3
                        else "(expecting QI2); EVENT_RETRANSMIT; idle"))
    return "".join(line + "\n" for line in lines).encode()


@pytest.mark.timing
def test_500_tunnels_and_5000_status_lines(office):
    status = status_of_many(500)
    assert status.count(b"\n") == 5000
    file = tunnel_file([b"tun%04d" % i for i in range(500)], [b"192.0.2.1", b"0.0.0.0"])
    entries, outcome = ask(office, file, status)
    assert entries == tunnel_states.answer(file, status)
    assert len(entries) == 500
    assert {state for _, _, state in entries} == {b"0", b"1"}
    assert outcome.result.took < 3


def test_the_501st_tunnel_is_dropped(office):
    """And with it whatever is behind it; its connections are nobody's."""
    status = status_of_many(520)
    file = tunnel_file([b"tun%04d" % i for i in range(520)], [b"0.0.0.0"])
    entries, _ = ask(office, file, status)
    assert entries == tunnel_states.answer(file, status)
    assert [name for name, _, _ in entries] == [b"tun%04d" % i for i in range(500)]
    assert office.read("/tmp/ipsec_stat").count(b"\n") == 500


def test_500_tunnels_of_one_name(office):
    """The first of them takes the state, as ever."""
    file = tunnel_file([b"tun0001"] * 500, [b"192.0.2.1"])
    entries, _ = ask(office, file, status_of_many(3))
    assert entries == [(b"tun0001", b"192.0.2.1", b"1")] + [(b"tun0001", b"0.0.0.0", b"0")] * 499


def test_states_for_a_full_disk(office):
    """Half a list would look like a whole one: where not all fit, there is no state at all."""
    office.prepare(CONTROL_TOOL)
    office.write("/opt/status", status_of_many(1))
    office.write("/disk/conf/ipsec.cfg", tunnel_file([b"tun%04d" % i for i in range(500)], [b"x"]))
    outcome = office.script("mount -t tmpfs -o size=8k none /tmp || exit 77\n"
                            "exec /usr/sbin/cpectl ipsecTunStaGet")
    if outcome.result.exit_line() == "77":
        pytest.skip("no disk can be mounted: " + outcome.output("stderr").strip())
    assert outcome.output("stdout") == '{"fun":"ipsecTunStaGet","cbk":{"tun":[]},"stat":"ok"}\n'
