"""A thousand hosts and two hundred stations, each with traffic of its own."""
import pytest

import hostapd
import network as office

pytestmark = pytest.mark.timing

HOSTS = 1000
STATIONS = 200
IP_UDP = 28
FIRST_SIZE = 100  # the first host sends so many bytes, each further one a byte more
FIRST_CALL = 1.5  # seconds; 0.25 of them are two readings' distance
NEXT_CALL = 0.75


def address(number):
    return f"192.168.{64 + number // 250}.{1 + number % 250}"


def mac(number):
    return f"02:00:00:02:{number >> 8:02x}:{number & 255:02x}"


@pytest.fixture
def crowd(gateway, network):
    """All of them at one end of the LAN: the first office host has their addresses."""
    numbers = range(HOSTS)
    place = network.office[0]
    network.end_flows()
    network.gateway.ip("addr add 192.168.64.254/21 dev eth0.5", *(
        f"neigh replace {address(n)} lladdr {mac(n)} dev eth0.5 nud permanent" for n in numbers))
    place.ip(*(f"addr add {address(n)}/32 dev port0x" for n in numbers))
    place.do("udp_from_each", sources=[address(n) for n in numbers], to=office.FAR[0],
             port=office.PORT, size=FIRST_SIZE)
    yield gateway
    place.ip(*(f"addr del {address(n)}/32 dev port0x" for n in numbers))
    network.gateway.ip("addr del 192.168.64.254/21 dev eth0.5",
                       *(f"neigh del {address(n)} dev eth0.5" for n in numbers))
    network.end_flows()


def test_a_thousand_hosts(crowd, program):
    first, seconds = crowd.timed_call("hosts")
    assert seconds < FIRST_CALL
    by_address = {host["ip"]: host for host in first["hosts"]}
    for number in range(HOSTS):
        host = by_address[address(number)]
        assert (host["down_total"], host["up_total"]) == (0, FIRST_SIZE + number + IP_UDP)
    ups = [host["up_total"] for host in first["hosts"]]
    assert ups == sorted(ups, reverse=True)
    second, seconds = crowd.timed_call("hosts")
    assert seconds < NEXT_CALL
    assert [host["ip"] for host in second["hosts"]] == [host["ip"] for host in first["hosts"]]

    daemon = hostapd.Double(crowd.hostapd_folder / "wlan0",
                            stations=[mac(number) for number in range(STATIONS)])
    answer = crowd.command("getStaList")["cbk"]["stalist"]
    daemon.close()
    types = {host["ip"]: host["ty"] for host in answer}
    for number in range(HOSTS):
        assert types[address(number)] == (2 if number < STATIONS else 1)
    assert len(crowd.command("getHostFlowinfo")["cbk"]["hostinfo"]) == len(first["hosts"])
