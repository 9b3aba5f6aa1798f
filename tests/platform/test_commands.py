"""The program's monitoring commands on a gateway with hosts, traffic and stations."""
import time

import kept
import pytest

import hostapd
import network as office

pytestmark = pytest.mark.timing

TOLERANCE = 0.5       # of a rate over the quarter of a second that a first query takes
IP_UDP = 28           # bytes before each datagram's payload, as flows are counted
ETHERNET = 14         # and as devices count them, besides
UPPER_MAC = [mac.upper() for mac in office.OFFICE_MAC]


@pytest.fixture
def gateway(gateway, network, program, platform):  # pytest overlooks the last one otherwise
    network.end_flows()
    gateway.store(WAN1_DEV="wan0", WAN2_DEV="wan1", KERNEL_TYPE="2")
    for place in network.office:
        place.do("udp", to=office.FAR[0], port=office.PORT, count=1, size=10, answer=10)
    return gateway


def hosts_of(answer):
    assert (answer["fun"], answer["stat"]) == ("getHostFlowinfo", "ok")
    return answer["cbk"]["hostinfo"]


def test_host_flows_in_the_order_of_their_traffic(gateway, network):
    before = {host["ip"]: host for host in hosts_of(gateway.command("getHostFlowinfo"))}
    network.office[1].do("udp", to=office.FAR[0], port=office.PORT, count=100, size=972, answer=472)
    network.office[0].do("udp", to=office.FAR[1], port=office.PORT, count=10, size=972, answer=0)
    network.office[0].do("tcp", to=office.FAR[1], port=office.PORT, down=30_000, up=1000)
    kept.age(gateway.run_folder / "host-traffic", kept.HOST_HEAD, 2)
    busy, other = hosts_of(gateway.command("getHostFlowinfo"))
    assert [busy["ip"], other["ip"]] == [office.OFFICE[1], office.OFFICE[0]]
    assert [busy["mac"], other["mac"]] == UPPER_MAC[::-1]
    assert list(busy) == ["ip", "mac", "up_rate", "down_rate", "up_total", "down_total"]
    assert busy["up_total"] - before[busy["ip"]]["up_total"] == 100 * (972 + IP_UDP)
    assert busy["down_total"] - before[busy["ip"]]["down_total"] == 100 * (472 + IP_UDP)
    assert busy["up_rate"] == pytest.approx(100_000 / 2 / 1024, rel=0.05)
    assert busy["down_rate"] == pytest.approx(50_000 / 2 / 1024, rel=0.05)
    moved = other["down_total"] - before[other["ip"]]["down_total"]
    assert 30_000 <= moved <= 33_000
    assert other["down_rate"] == pytest.approx(moved / 2 / 1024, rel=0.05)


def test_flows_of_hosts_and_links_while_traffic_passes(gateway, network):
    """Both are asked for the first time: each measures for itself, while 2 s of traffic pass."""
    seconds, count, up, down = 2, 400, 1200, 400
    network.office[0].start("udp", to=office.FAR[0], port=office.PORT, count=count, size=up,
                            answer=down, seconds=seconds)
    time.sleep(0.3)
    host = hosts_of(gateway.command("getHostFlowinfo"))[0]
    links = gateway.command("getWanFlowinfo")["cbk"]
    network.office[0].do("wait")

    def kilobytes(size, overhead):
        return pytest.approx(count * (size + overhead) / seconds / 1024, rel=TOLERANCE)
    assert host["ip"] == office.OFFICE[0]
    assert host["up_rate"] == kilobytes(up, IP_UDP)
    assert host["down_rate"] == kilobytes(down, IP_UDP)
    assert links["WAN1"] == {"up_rate": kilobytes(up, IP_UDP + ETHERNET),
                             "down_rate": kilobytes(down, IP_UDP + ETHERNET)}
    assert links["WAN2"] == {"up_rate": 0, "down_rate": 0}
    assert (links["up_total"], links["down_total"]) == tuple(links["WAN1"].values())


def test_wan_flows_since_the_previous_request(gateway, network):
    gateway.command("getWanFlowinfo")
    network.office[0].do("udp", to=office.FAR[1], port=office.PORT, count=100, size=982, answer=0)
    kept.age(gateway.run_folder / "wan-rates", kept.WAN_HEAD, 2)
    answer = gateway.command("getWanFlowinfo")
    up = pytest.approx(100 * 1024 / 2 / 1024, rel=0.05)
    assert answer == {"fun": "getWanFlowinfo", "stat": "ok", "cbk": {
        "WAN1": {"up_rate": 0, "down_rate": 0}, "WAN2": {"up_rate": up, "down_rate": 0},
        "up_total": up, "down_total": 0}}


def test_wan_flows_without_links(gateway):
    gateway.store(KERNEL_TYPE="2")
    assert gateway.command("getWanFlowinfo") == {
        "fun": "getWanFlowinfo", "stat": "ok", "cbk": {"up_total": 0, "down_total": 0}}


def test_the_number_of_connections_is_the_kernels(gateway, network):
    for i in range(5):
        network.office[0].do("udp", to=office.FAR[0], port=9000 + i, count=1, size=10)
    network.office[0].do("tcp", to=office.FAR[0], port=office.PORT, down=10, up=10, keep="open")
    count = int(network.gateway.run("cat", "/proc/sys/net/netfilter/nf_conntrack_count"))
    answer = gateway.command("getHostNum")["cbk"]
    network.office[0].do("close", name="open")
    assert count >= 6
    assert answer["conn_num"] == count


@pytest.fixture
def wireless(gateway, network):
    """The second host is a station; a third station has an address that only the kernel knows."""
    network.gateway.ip("neigh replace 192.168.5.50 lladdr 02:00:00:01:00:50 dev eth0.5 nud stale")
    daemon = hostapd.Double(gateway.hostapd_folder / "wlan0", ssid=r"b\xc3\xbcro",
                            stations=[office.OFFICE_MAC[1], "02:00:00:01:00:50"])
    yield daemon
    daemon.close()
    network.gateway.ip("neigh del 192.168.5.50 dev eth0.5")


def test_the_station_list(gateway, wireless):
    wired = {"mac": UPPER_MAC[0], "ip": office.OFFICE[0], "ty": 1}
    stations = [{"mac": UPPER_MAC[1], "ip": office.OFFICE[1], "ssid": "büro", "ty": 2},
                {"mac": "02:00:00:01:00:50", "ip": "192.168.5.50", "ssid": "büro", "ty": 2}]
    answer = gateway.command("getStaList")
    assert (answer["fun"], answer["stat"]) == ("getStaList", "ok")
    assert sorted(answer["cbk"]["stalist"], key=lambda host: host["ip"]) == [wired, *stations]
    pushed = gateway.command("setStaList")
    assert sorted(pushed["args"]["data"], key=lambda host: host["ip"]) == [wired, *stations]


def test_a_station_that_is_sent_away_is_a_wired_host_then(gateway, wireless):
    assert gateway.command("offline", {"mac": UPPER_MAC[1]}) == {"fun": "offline", "stat": "ok"}
    assert wireless.commands == [f"DEAUTHENTICATE {office.OFFICE_MAC[1]}"]
    types = {host["ip"]: host["ty"] for host in gateway.command("getStaList")["cbk"]["stalist"]}
    assert types == {office.OFFICE[0]: 1, office.OFFICE[1]: 1, "192.168.5.50": 2}


def test_no_control_command_gets_in_by_a_mac(gateway, wireless):
    for text in ("02:00:00:00:05:11\nDISABLE", "ff:ff:ff:ff:ff:ff", "02:00:00:00:05:11 test=1"):
        assert gateway.command("offline", {"mac": text}) == {"fun": "offline", "stat": "ok"}
    assert wireless.commands == []
