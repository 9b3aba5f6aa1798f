"""The scenario busy-office: real traffic, measured by the stock libraries."""

import json

import pytest
from cpectl_sim import GatewayError

pytestmark = pytest.mark.timing

ADDRESSES = [f"192.168.1.{number}" for number in range(20, 25)]


@pytest.fixture(name="ask")
def make_ask(sim):
    def ask(command):
        done = sim("--scenario", "busy-office", command)
        assert (done.returncode, done.stderr) == (0, "")
        return json.loads(done.stdout)["cbk"]
    return ask


def test_hosts_have_the_traffic_that_they_make(ask):
    hosts = ask("getHostFlowinfo")["hostinfo"]
    assert sorted(host["ip"] for host in hosts) == ADDRESSES
    assert [host["ip"] for host in hosts] == [host["ip"] for host in sorted(
        hosts, key=lambda host: -host["up_rate"] - host["down_rate"])]
    by_ip = {host["ip"]: host for host in hosts}
    film, backup, idle = (by_ip[ADDRESSES[i]] for i in (0, 1, 4))
    assert film["mac"] == "02:00:5E:10:00:20"
    # 1428 bytes down and 88 up for each datagram that a busy machine lets it send.
    assert film["down_rate"] / film["up_rate"] == pytest.approx(1428 / 88, rel=0.1)
    assert 100 < film["down_rate"] <= 1.1 * 1428 * 250 / 1024
    assert backup["up_rate"] / backup["down_rate"] == pytest.approx(1428 / 88, rel=0.2)
    assert film["down_total"] > 1024 * film["down_rate"] * 0.25
    assert (idle["up_rate"], idle["down_rate"]) == (0, 0)
    assert idle["up_total"] == idle["down_total"] > 0


def test_links_carry_the_traffic_of_their_hosts(ask):
    links = ask("getWanFlowinfo")
    assert list(links) == ["WAN1", "WAN2", "up_total", "down_total"]
    assert 100 < links["WAN1"]["down_rate"] < 500
    assert 50 < links["WAN1"]["up_rate"] < 300
    assert 3 < links["WAN2"]["up_rate"] < 20
    assert links["down_total"] == pytest.approx(
        links["WAN1"]["down_rate"] + links["WAN2"]["down_rate"])


def test_stations_and_connections(ask):
    stations = {station["ip"]: station for station in ask("getStaList")["stalist"]}
    assert sorted(stations) == ADDRESSES
    assert [ip for ip in ADDRESSES if stations[ip]["ty"] == 2] == [ADDRESSES[0], ADDRESSES[2]]
    assert stations[ADDRESSES[2]]["ssid"] == "Office"
    numbers = ask("getHostNum")
    assert numbers["host_num"] == 5
    assert 5 <= numbers["conn_num"] <= 10


def test_a_start_command_that_fails_ends_the_run(gateway, prepare, shell):
    prepare("[start] /bin/busybox true\n        /bin/busybox false\n")
    with pytest.raises(GatewayError, match="/bin/busybox failed"):
        shell("true")


def test_what_a_start_command_leaves_behind_is_not_waited_for(gateway, prepare, shell):
    prepare('[file /tmp/background mode=755]\n    #!/bin/busybox sh\n    /bin/busybox sleep 30 &\n'
            '    echo there >/tmp/begun\n[start] /tmp/background\n')
    outcome = shell("cat /tmp/begun")
    assert outcome.output("stdout") == "there\n"
    assert not outcome.result.lingering
