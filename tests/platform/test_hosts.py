"""libhostsort: the hosts and their traffic, on a gateway that really routes and translates."""
import concurrent.futures
import struct
import time

import kept
import pytest

import network as office

pytestmark = pytest.mark.timing

FIRST, SECOND = office.OFFICE
SAMPLE_TIME = 0.25    # over which two readings are taken
RECENT = 10           # a query so many seconds ago is measured from
SPARE_TIME = 0.2      # what a call may take besides: two processors run all tests at once
IP_UDP = 28           # bytes before each datagram's payload, as flows are counted
TCP_OVERHEAD = 0.08   # of the payload, for headers, with as much again each way for answers
TOLERANCE = 0.25      # of a rate while traffic flows, over most of a second
SAMPLE_TOLERANCE = 0.5  # the same over SAMPLE_TIME: a busy machine makes the traffic falter

ZERO = {"down_total": 0, "up_total": 0, "down_rate": 0, "up_rate": 0}


def totals(gateway):
    return gateway.run_folder / "host-traffic"


def moved(before, after, host):
    """How much a host's totals have grown: (down, up)."""
    old = before.get(host, {"down_total": 0, "up_total": 0})
    return tuple(after[host][name] - old[name] for name in ("down_total", "up_total"))


def udp(network, host=0, count=10, size=972, answer=472, far=0, **more):
    """Moves datagrams; returns their bytes in the flow: (down, up)."""
    start = "seconds" in more
    action = network.office[host].start if start else network.office[host].do
    action("udp", to=office.FAR[far], port=office.PORT, count=count, size=size, answer=answer,
           **more)
    return count * (answer + IP_UDP) if answer else 0, count * (size + IP_UDP)


def tcp(place, to, down, up, port=office.PORT, **more):
    place.do("tcp", to=to, port=port, down=down, up=up, **more)


def assert_tcp(counted, down, up):
    """Both directions of a transfer within the overhead of the protocol."""
    most = TCP_OVERHEAD * (down + up) + 2000
    assert down <= counted[0] <= down + most, (counted, down, up)
    assert up <= counted[1] <= up + most, (counted, down, up)


@pytest.fixture
def gateway(gateway, network, platform):  # pytest overlooks the last one otherwise
    """Both hosts are known, and nothing has been moved but one datagram each."""
    network.end_flows()
    for host in range(len(office.OFFICE)):
        udp(network, host, 1, 10, 10)
    gateway.hosts()
    return gateway


def test_datagrams_are_counted_to_the_byte(gateway, network):
    before = gateway.hosts()
    down, up = udp(network, 0, count=20, size=1000, answer=300)
    other_down, other_up = udp(network, 1, count=7, size=100, answer=0, far=1)
    after = gateway.hosts()
    assert set(after) == {FIRST, SECOND}
    assert moved(before, after, FIRST) == (down, up)
    assert moved(before, after, SECOND) == (other_down, other_up)


def test_connections_are_counted_with_their_headers(gateway, network):
    before = gateway.hosts()
    tcp(network.office[0], office.FAR[0], down=3_000_000, up=200_000)
    tcp(network.office[1], office.FAR[1], down=50_000, up=1_000_000)
    after = gateway.hosts()
    assert_tcp(moved(before, after, FIRST), 3_000_000, 200_000)
    assert_tcp(moved(before, after, SECOND), 50_000, 1_000_000)


@pytest.mark.parametrize("to, port", [
    (office.GATEWAY_WAN[0], office.PUBLISHED_PORT),  # translated to the second host
    (SECOND, office.PORT),                           # routed there
])
def test_connections_from_outside_count_for_the_host_that_answers(gateway, network, to, port):
    before = gateway.hosts()
    tcp(network.far, to, port=port, down=900_000, up=300_000)
    after = gateway.hosts()
    assert_tcp(moved(before, after, SECOND), 300_000, 900_000)
    assert moved(before, after, FIRST) == (0, 0)


def test_a_flow_between_two_hosts_counts_for_both(gateway, network):
    """The first host reaches the second one by the address that the gateway publishes for it."""
    network.gateway.run("nft", "add rule ip office before ip daddr 203.0.113.77 "
                               f"udp dport 9 dnat to {SECOND}:{office.PORT}")
    network.gateway.run("nft", "add rule ip office after ip saddr 192.168.5.0/24 "
                               "ip daddr 192.168.5.0/24 masquerade")
    before = gateway.hosts()
    network.office[0].do("udp", to="203.0.113.77", port=9, count=5, size=472, answer=172)
    after = gateway.hosts()
    assert moved(before, after, FIRST) == (5 * 200, 5 * 500)
    assert moved(before, after, SECOND) == (5 * 500, 5 * 200)


def test_totals_stay_when_flows_end_and_grow_with_new_ones(gateway, network):
    before = gateway.hosts()
    sums = [0, 0]
    for count in (3, 4, 5, 6):
        for i, part in enumerate(udp(network, count=count, keep="one")):
            sums[i] += part
        assert moved(before, gateway.hosts(), FIRST) == tuple(sums)
        if count == 4:
            network.end_flows()  # the next datagrams are a new flow between the same ports
            assert moved(before, gateway.hosts(), FIRST) == tuple(sums)
            assert flows_kept(gateway) == 0
    network.office[0].do("close", name="one")


def flows_kept(gateway):
    return kept.HOST_HEAD.unpack_from(totals(gateway).read_bytes())[2]


def test_counters_that_were_set_to_0_go_on_counting(gateway, network):
    udp(network, count=4, keep="one")
    before = gateway.hosts()
    network.gateway.run("conntrack", "-L", "-z", stderr=-3)
    udp(network, count=2, size=5000, answer=0, keep="one")  # sends more, gets less than before
    network.office[0].do("close", name="one")
    assert moved(before, gateway.hosts(), FIRST)[0] == 0
    assert moved(before, gateway.hosts(), FIRST)[1] >= 2 * 5000


def test_a_new_flow_between_the_same_ports_is_counted_whole(gateway, network):
    """Also when it soon has moved more than the old one."""
    down, up = udp(network, count=3, keep="one")
    before = gateway.hosts()
    network.end_flows()
    more_down, more_up = udp(network, count=8, keep="one")
    network.office[0].do("close", name="one")
    assert more_up > up
    assert moved(before, gateway.hosts(), FIRST) == (more_down, more_up)


@pytest.mark.parametrize("field", [0, 1], ids=["number", "began"])
def test_what_tells_flows_between_the_same_ports_apart(gateway, network, field):
    network.end_flows()
    down, up = udp(network, count=3, keep="one")
    before = gateway.hosts()

    def change(fields, rest):
        at = fields[1] * kept.HOST.size
        flow = list(kept.FLOW.unpack_from(rest, at))
        assert flow[field] != 0
        flow[field] ^= 1
        kept.FLOW.pack_into(rest, at, *flow)
    kept.edit(totals(gateway), kept.HOST_HEAD, change)
    after = gateway.hosts()
    network.office[0].do("close", name="one")
    assert moved(before, after, FIRST) == (down, up), "it was taken for another flow"


def test_a_flow_that_ended_between_two_queries_does_not_disturb(gateway, network):
    """Its last bytes are lost, and nothing else."""
    down, up = udp(network, count=3)
    before = gateway.hosts()
    udp(network, 0)
    network.end_flows()
    other_down, other_up = udp(network, 0, far=1)
    assert moved(before, gateway.hosts(), FIRST) == (other_down, other_up)
    assert moved({}, before, FIRST) >= (down, up)


def test_rates_are_those_since_the_previous_query(gateway, network):
    down, up = udp(network, 0, count=50, size=1000, answer=400)
    other_down, other_up = udp(network, 1, count=20, size=100, answer=200)
    kept.age(totals(gateway), kept.HOST_HEAD, 4)
    answer, seconds = gateway.timed_call("hosts")
    first, second = answer["hosts"]
    assert (first["ip"], second["ip"]) == (FIRST, SECOND)
    assert first["down_rate"] == pytest.approx(down / 4, rel=0.05)
    assert first["up_rate"] == pytest.approx(up / 4, rel=0.05)
    assert second["down_rate"] == pytest.approx(other_down / 4, rel=0.05)
    assert second["up_rate"] == pytest.approx(other_up / 4, rel=0.05)
    assert seconds < SAMPLE_TIME, "two readings were taken"


def test_the_first_query_takes_two_readings(gateway, network):
    totals(gateway).unlink()
    down, up = udp(network, count=200, size=1000, answer=300, seconds=1)
    time.sleep(0.2)
    answer, seconds = gateway.timed_call("hosts")
    network.office[0].do("wait")
    busy, idle = answer["hosts"]
    assert busy["ip"] == FIRST
    assert busy["down_rate"] == pytest.approx(down, rel=SAMPLE_TOLERANCE)
    assert busy["up_rate"] == pytest.approx(up, rel=SAMPLE_TOLERANCE)
    assert (idle["down_rate"], idle["up_rate"]) == (0, 0)
    assert SAMPLE_TIME <= seconds < SAMPLE_TIME + SPARE_TIME


def test_rates_of_a_regular_query_while_connections_move(gateway, network):
    network.office[1].start("tcp", to=office.FAR[0], port=office.PORT, down=800_000, up=200_000,
                            seconds=1.5)
    time.sleep(0.3)
    answers = gateway.calls("hosts", "sleep", 800, "hosts")
    network.office[1].do("wait")
    for answer, tolerance in zip(answers, (SAMPLE_TOLERANCE, TOLERANCE)):
        busy = answer["hosts"][0]
        assert busy["ip"] == SECOND
        assert busy["down_rate"] == pytest.approx(800_000 / 1.5, rel=tolerance)
        assert busy["up_rate"] == pytest.approx(200_000 / 1.5, rel=tolerance)


def test_an_old_query_is_not_measured_from(gateway, network):
    before = gateway.hosts()
    down, up = udp(network, count=50)
    kept.age(totals(gateway), kept.HOST_HEAD, RECENT + 1)
    answer, seconds = gateway.timed_call("hosts")
    after = {host["ip"]: host for host in answer["hosts"]}
    assert moved(before, after, FIRST) == (down, up)
    assert (after[FIRST]["down_rate"], after[FIRST]["up_rate"]) == (0, 0)
    assert seconds >= SAMPLE_TIME


def test_most_traffic_comes_first(gateway, network):
    udp(network, 1, count=100, size=1400)
    udp(network, 0, count=10, size=100)
    assert list(gateway.hosts()) == [SECOND, FIRST]
    udp(network, 0, count=50, size=100)
    udp(network, 1, count=1, size=10, answer=0)
    assert list(gateway.hosts()) == [FIRST, SECOND], "the rate goes before the total"
    assert list(gateway.hosts()) == [SECOND, FIRST], "without a rate the total decides"


def test_hosts_without_traffic_are_listed_by_address(gateway, network):
    others = [f"192.168.{i}" for i in ("6.7", "5.9", "5.100", "5.20")]
    network.gateway.ip(*(f"neigh replace {host} lladdr 02:00:00:00:00:01 dev eth0.5 nud permanent"
                         for host in others))
    try:
        totals(gateway).unlink()
        listed = list(gateway.hosts())
        idle = [host for host in listed if host in others]
        assert idle == ["192.168.5.9", "192.168.5.20", "192.168.5.100", "192.168.6.7"]
        assert set(listed) == {FIRST, SECOND, *others}
    finally:
        network.gateway.ip(*(f"neigh del {host} dev eth0.5" for host in others))


def test_only_neighbours_behind_the_lan_device_that_answer_are_hosts(gateway, network):
    """Not: the far side, addresses that nobody has, multicast."""
    network.gateway.ip(
        "neigh replace 192.168.5.98 lladdr 02:00:00:00:00:02 dev eth0.5 nud failed",
        "neigh replace 192.168.5.97 dev eth0.5 nud incomplete",
        "neigh replace 224.0.0.9 lladdr 01:00:5e:00:00:09 dev eth0.5 nud noarp",
        "neigh replace 192.168.5.96 lladdr 02:00:00:00:00:03 dev eth0.5 nud stale")
    try:
        assert set(gateway.hosts()) == {FIRST, SECOND, "192.168.5.96"}
    finally:
        network.gateway.ip("neigh del 192.168.5.98 dev eth0.5", "neigh del 192.168.5.97 dev eth0.5",
                           "neigh del 224.0.0.9 dev eth0.5", "neigh del 192.168.5.96 dev eth0.5")


def test_totals_wait_for_a_host_that_is_gone(gateway, network):
    before = gateway.hosts()
    network.gateway.ip(f"neigh del {SECOND} dev eth0.5")
    assert set(gateway.hosts()) == {FIRST}
    down, up = udp(network, 1, count=3)
    after = gateway.hosts()
    assert moved(before, after, SECOND) == (down, up)


def test_no_lan_device(gateway):
    gateway.more_environment["CPECTL_LAN_DEV"] = "eth0.6"
    assert gateway.call("hosts") == {"sorted": -1, "hosts": []}


def test_a_device_without_neighbours(gateway):
    gateway.more_environment["CPECTL_LAN_DEV"] = "lo"
    answer, seconds = gateway.timed_call("hosts")
    assert answer == {"sorted": 0, "hosts": []}
    assert seconds < SAMPLE_TIME


def test_without_accounting_hosts_have_zero_counters(gateway, network):
    totals(gateway).unlink()
    network.gateway.setting("netfilter/nf_conntrack_acct", 0)
    try:
        network.end_flows()
        udp(network)
        answer, seconds = gateway.timed_call("hosts")
    finally:
        network.gateway.setting("netfilter/nf_conntrack_acct", 1)
    assert sorted(answer["hosts"], key=str) == [{"ip": host, **ZERO} for host in office.OFFICE]
    assert seconds < SAMPLE_TIME


def test_without_permission_hosts_have_zero_counters(gateway):
    totals(gateway).unlink()
    begin = time.monotonic()
    answer, = gateway.finish(gateway.start(
        "setpriv", "--bounding-set=-net_admin", "--inh-caps=-all", gateway.driver, "hosts"))
    assert answer["sorted"] == 0
    assert sorted(answer["hosts"], key=str) == [{"ip": host, **ZERO} for host in office.OFFICE]
    assert time.monotonic() - begin < SAMPLE_TIME
    assert not totals(gateway).exists()


@pytest.mark.parametrize("damage", [
    lambda content: b"",
    lambda content: content[:-1],
    lambda content: content + b"x",
    lambda content: b"XXXX" + content[4:],
    lambda content: content[:4] + b"\xff" * 8 + content[12:],
    lambda content: content[:64] + struct.pack("=q", 1 << 62) + content[72:],
    lambda content: b"\xff" * len(content),
    lambda content: bytes(4 << 20),
], ids=["empty", "short", "long", "format", "counts", "future", "ones", "huge"])
def test_damaged_totals_begin_anew(gateway, network, damage):
    """What the flows that are still there have moved is not lost."""
    down, up = udp(network, count=2, keep="open")
    whole = totals(gateway).read_bytes()
    totals(gateway).write_bytes(damage(whole))
    after = {host["ip"]: host for host in gateway.call("hosts")["hosts"]}
    network.office[0].do("close", name="open")
    assert after[FIRST]["down_total"] >= down and after[FIRST]["up_total"] >= up
    assert after[FIRST]["down_total"] < 1 << 40
    assert totals(gateway).stat().st_size < 1 << 20


def test_totals_of_another_network_are_not_taken(gateway, network):
    def change(fields, _rest):
        fields[5] = 1
    before = gateway.hosts()
    large = before[FIRST]["up_total"]
    kept.add_to_totals(totals(gateway), 1 << 40)
    assert max(host["up_total"] for host in gateway.hosts().values()) > 1 << 40
    kept.edit(totals(gateway), kept.HOST_HEAD, change)
    assert max(host["up_total"] for host in gateway.hosts().values()) <= max(
        large, before[SECOND]["up_total"])


def test_totals_hold_64_bits(gateway, network):
    kept.add_to_totals(totals(gateway), 1 << 52)
    before = gateway.hosts()
    assert before[FIRST]["down_total"] > 1 << 52 and before[FIRST]["up_total"] > 1 << 52
    down, up = udp(network)
    assert moved(before, gateway.hosts(), FIRST) == (down, up)


@pytest.mark.parametrize("begun", [0, 0.1])
def test_a_query_waits_while_another_one_writes(gateway, begun):
    """Before its first reading as before its second one."""
    kept.age(totals(gateway), kept.HOST_HEAD, RECENT + 1)
    query = None
    if begun:
        query = gateway.start_calls("hosts")
        time.sleep(begun)
    with kept.locked(totals(gateway)):
        query = query or gateway.start_calls("hosts")
        time.sleep(2 * SAMPLE_TIME)
        assert query.poll() is None
        kept.add_to_totals(totals(gateway), 1 << 40)
    answer, = gateway.finish(query)
    for host in answer["hosts"]:
        assert 1 << 40 < host["up_total"] < 1 << 41
        if not begun:
            assert host["up_rate"] == 0, "measured from what was read before the lock was had"


def test_several_queries_at_once_count_each_byte_once(gateway, network):
    before = gateway.hosts()
    down, up = udp(network, count=300, size=1000, answer=500, seconds=1.2)
    with concurrent.futures.ThreadPoolExecutor(8) as pool:
        futures = [pool.submit(gateway.calls, "hosts", "hosts", "hosts") for _ in range(8)]
        answers = [answer for future in futures for answer in future.result()]
    network.office[0].do("wait")
    assert len(answers) == 24
    for answer in answers:
        host, = [host for host in answer["hosts"] if host["ip"] == FIRST]
        assert host["down_total"] - before[FIRST]["down_total"] <= down
    assert moved(before, gateway.hosts(), FIRST) == (down, up)
    assert sorted(path.name for path in gateway.run_folder.iterdir()) == [
        "host-traffic", "host-traffic.lock"]


FLOW_MAX = 32768  # that are remembered


def test_more_flows_than_are_remembered(gateway, network):
    """Those without room are not counted, instead of again and again. Queries come in crowds."""
    udp(network, count=9)
    before = gateway.hosts()
    network.end_flows()
    network.office[0].do("udp_to_each_port", to=office.FAR[0], ports=FLOW_MAX + 500, size=72)
    kept.age(totals(gateway), kept.HOST_HEAD, 1)
    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        futures = [pool.submit(gateway.calls, "hosts", "hosts", "hosts") for _ in range(4)]
        answers = [answer for future in futures for answer in future.result()]
    # The flows from before have a place until the first of these queries has noticed their end.
    least, most = (count * (72 + IP_UDP) for count in (FLOW_MAX - 100, FLOW_MAX))
    for answer in answers:
        host, = [host for host in answer["hosts"] if host["ip"] == FIRST]
        assert least <= host["up_total"] - before[FIRST]["up_total"] <= most
    assert flows_kept(gateway) == FLOW_MAX
    network.end_flows()
    count_before = gateway.hosts()
    down, up = udp(network)
    assert moved(count_before, gateway.hosts(), FIRST) == (down, up)
    assert totals(gateway).stat().st_size < 1000


def test_indexes_outside_the_table(gateway):
    fetched = gateway.calls("fetch", 1, "sort", 1, 0, "fetch", 0, "fetch", -1, "fetch", 2,
                            "fetch", 3)
    nothing = {"host": None, "result": -1, "touched": 0}
    before_sorting, sorted_answer, zero, minus_one, last, beyond = fetched
    assert sorted_answer == {"sorted": 0, "count": 2}
    assert [before_sorting, zero, minus_one, beyond] == [nothing] * 4
    assert last["host"]["ip"] in office.OFFICE


@pytest.mark.parametrize("key, flag", [(0, 0), (1, 1), (2, 0), (-1, 0)])
def test_other_orders_are_refused(gateway, key, flag):
    assert gateway.call("sort", key, flag) == {"sorted": -1, "count": 0}
