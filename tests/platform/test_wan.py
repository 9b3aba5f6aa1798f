"""libnetlink: the WAN query, on links that really carry traffic."""
import concurrent.futures
import struct
import time

import kept
import pytest

import network as office

pytestmark = pytest.mark.timing

SAMPLE_TIME = 0.25       # over which two readings are taken
RECENT = 10              # a query so many seconds ago is measured from
SPARE_TIME = 0.2         # what a call may take besides: two processors run all tests at once
ETHERNET_AND_IP_UDP = 14 + 28  # bytes around each datagram, as the device counts them
TOLERANCE = 0.25         # of a rate while traffic flows, over most of a second
SAMPLE_TOLERANCE = 0.5   # the same over SAMPLE_TIME: a busy machine makes the traffic falter

IDLE = {"down": 0, "up": 0}


def reading(gateway):
    return gateway.run_folder / "wan-rates"


def about(bytes_moved, seconds, tolerance=TOLERANCE):
    return pytest.approx(bytes_moved * 8 / seconds, rel=tolerance)


def send(network, far, count, size, answer, seconds=0):
    """What a host sends and gets, in bytes that pass the WAN device: (down, up)."""
    action = network.office[0].start if seconds else network.office[0].do
    action("udp", to=office.FAR[far], port=office.PORT, count=count, size=size, answer=answer,
           seconds=seconds)
    frame = ETHERNET_AND_IP_UDP
    return count * (answer + frame) if answer else 0, count * (size + frame)


@pytest.fixture
def two_links(gateway, network):
    """WAN1 is wan0, WAN3 is wan1; both have been asked for, just now."""
    send(network, 0, 1, 10, 10)  # neighbours are known from here on
    send(network, 1, 1, 10, 10)
    gateway.store(WAN1_DEV="wan0", WAN2_DEV="", WAN3_DEV="wan1")
    gateway.wan()
    return gateway


def test_no_configured_link_gives_an_empty_reply_at_once(gateway):
    answer, seconds = gateway.timed_call("wan")
    assert answer == {"count": 0, "links": [], "registered": 0, "sent": 48, "received": 0,
                      "again": -2, "replies": 1}
    assert seconds < SAMPLE_TIME
    assert not reading(gateway).exists()


def test_rates_are_those_since_the_previous_query(two_links, network):
    kept.age(reading(two_links), kept.WAN_HEAD, 1)
    down, up = send(network, 0, count=50, size=1000, answer=500)
    other_down, other_up = send(network, 1, count=30, size=200, answer=0)
    kept.age(reading(two_links), kept.WAN_HEAD, 5)
    answer, seconds = two_links.timed_call("wan")
    first, second = answer["links"]
    assert (first["name"], second["name"]) == ("WAN1", "WAN3")
    assert first["down"] == about(down, 5, 0.05)
    assert first["up"] == about(up, 5, 0.05)
    assert (second["down"], second["up"]) == (other_down, about(other_up, 5, 0.05))
    assert seconds < SAMPLE_TIME, "two readings were taken"


def test_the_first_query_takes_two_readings(gateway, network):
    gateway.store(WAN1_DEV="wan0")
    down, up = send(network, 0, count=200, size=1000, answer=300, seconds=1)
    time.sleep(0.2)
    answer, seconds = gateway.timed_call("wan")
    network.office[0].do("wait")
    assert answer["links"] == [{"name": "WAN1", "down": about(down, 1, SAMPLE_TOLERANCE),
                                "up": about(up, 1, SAMPLE_TOLERANCE)}]
    assert SAMPLE_TIME <= seconds < SAMPLE_TIME + SPARE_TIME


def test_rates_of_a_regular_query_while_traffic_flows(two_links, network):
    down, up = send(network, 0, count=300, size=600, answer=1200, seconds=1.5)
    time.sleep(0.2)
    first, second = two_links.calls("wan", "sleep", 900, "wan")
    network.office[0].do("wait")
    for answer, tolerance in ((first, SAMPLE_TOLERANCE), (second, TOLERANCE)):
        assert answer["links"][0] == {"name": "WAN1", "down": about(down, 1.5, tolerance),
                                      "up": about(up, 1.5, tolerance)}


def test_a_query_too_long_ago_is_not_measured_from(two_links, network):
    send(network, 0, count=50, size=1000, answer=500)
    kept.age(reading(two_links), kept.WAN_HEAD, RECENT + 1)
    answer, seconds = two_links.timed_call("wan")
    assert [link["down"] + link["up"] for link in answer["links"]] == [0, 0]
    assert seconds >= SAMPLE_TIME


def test_a_query_a_moment_ago_is_waited_for(two_links, network):
    """A rate over a few milliseconds would say nothing."""
    down, up = send(network, 0, count=50, size=1000, answer=500)
    kept.age(reading(two_links), kept.WAN_HEAD, 0)
    answer, seconds = two_links.timed_call("wan")
    assert answer["links"][0] == {"name": "WAN1", "down": about(down, SAMPLE_TIME),
                                  "up": about(up, SAMPLE_TIME)}
    assert seconds >= SAMPLE_TIME * 0.8


def test_a_link_without_device_is_left_out(two_links):
    two_links.store(WAN1_DEV="ppp0", WAN2_DEV="wan1", WAN3_DEV="a-name-too-long-for-a-device",
                    WAN4_DEV="wan0")
    assert two_links.wan() == {"WAN2": {"name": "WAN2", **IDLE}, "WAN4": {"name": "WAN4", **IDLE}}


def test_no_device_at_all_gives_an_empty_reply(two_links):
    two_links.store(WAN1_DEV="ppp0")
    assert two_links.wan() == {}


def test_a_counter_that_ran_backwards_gives_no_rate(two_links, network):
    send(network, 0, count=50, size=1000, answer=500)
    kept.set_wan_counters(reading(two_links), 1 << 40, (1 << 32) - 1)
    kept.age(reading(two_links), kept.WAN_HEAD, 1)
    assert two_links.wan()["WAN1"] == {"name": "WAN1", **IDLE}


def test_a_device_made_anew_is_not_measured_from_the_old_one(two_links, network):
    place = network.gateway
    place.ip("link add name wan9 type veth peer name wan9x", "link set wan9 up")
    try:
        two_links.store(WAN1_DEV="wan9")
        two_links.wan()
        kept.set_wan_counters(reading(two_links), 0, 0)
        place.ip("link del wan9", "link add name wan9 type veth peer name wan9x",
                 "link set wan9x up", "link set wan9 up")
        place.run("python3", "-c", SEND_FRAMES, "wan9x")
        kept.age(reading(two_links), kept.WAN_HEAD, 1)
        assert two_links.wan() == {"WAN1": {"name": "WAN1", **IDLE}}
    finally:
        place.ip("link del wan9")


SEND_FRAMES = """
import socket, sys
sender = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
sender.bind((sys.argv[1], 0))
for _ in range(100):
    sender.send(bytes(12) + b"\\x88\\xb5" + bytes(1000))
"""


def test_the_highest_rate_is_what_the_reply_can_hold(two_links, network):
    network.office[0].do("tcp", to=office.FAR[0], port=office.PORT, down=120_000_000, up=0)
    kept.set_wan_counters(reading(two_links), 0, 0)
    kept.age(reading(two_links), kept.WAN_HEAD, 0.3)
    assert two_links.wan()["WAN1"]["down"] == 2**31 - 1


@pytest.mark.parametrize("field, other", [(2, b"another-start".ljust(40, b"\0")), (3, 1)])
def test_a_reading_from_other_surroundings_is_not_used(two_links, network, field, other):
    send(network, 0, count=50, size=1000, answer=500)
    kept.age(reading(two_links), kept.WAN_HEAD, 1)

    def change(fields, _rest):
        fields[field] = other
    kept.edit(reading(two_links), kept.WAN_HEAD, change)
    answer, seconds = two_links.timed_call("wan")
    assert answer["links"][0] == {"name": "WAN1", **IDLE}
    assert seconds >= SAMPLE_TIME


@pytest.mark.parametrize("damage", [
    lambda content: b"",
    lambda content: content[:-1],
    lambda content: content + b"x",
    lambda content: b"XXXX" + content[4:],
    lambda content: content[:4] + struct.pack("=I", 5) + content[8:],
    lambda content: content[:4] + b"\xff" * 4 + content[8:64] + bytes(len(content) - 64),
    lambda content: content[:56] + struct.pack("=q", 1 << 62) + content[64:],  # in the future
    lambda content: b"\xff" * len(content),
    lambda content: bytes(1 << 20),
])
def test_a_damaged_reading_is_replaced(two_links, damage):
    whole = reading(two_links).read_bytes()
    reading(two_links).write_bytes(damage(whole))
    assert two_links.wan() == {name: {"name": name, **IDLE} for name in ("WAN1", "WAN3")}
    assert len(reading(two_links).read_bytes()) == len(whole)
    _, seconds = two_links.timed_call("wan")
    assert seconds < 2 * SAMPLE_TIME


def test_without_the_lock_nothing_is_kept(two_links):
    reading(two_links).unlink()
    (two_links.run_folder / "wan-rates.lock").unlink()
    (two_links.run_folder / "wan-rates.lock").mkdir()
    for _ in range(2):
        answer, seconds = two_links.timed_call("wan")
        assert [link["name"] for link in answer["links"]] == ["WAN1", "WAN3"]
        assert seconds >= SAMPLE_TIME
    assert not reading(two_links).exists()


def test_a_query_waits_while_another_one_writes(two_links):
    kept.age(reading(two_links), kept.WAN_HEAD, 1)
    with kept.locked(reading(two_links)):
        query = two_links.start_calls("wan")
        time.sleep(0.3)
        assert query.poll() is None
    two_links.finish(query)


def test_several_queries_at_once(two_links, network):
    down, up = send(network, 0, count=400, size=1000, answer=500, seconds=2)
    time.sleep(0.2)
    with concurrent.futures.ThreadPoolExecutor(8) as pool:
        futures = [pool.submit(two_links.calls, "wan", "wan", "wan") for _ in range(8)]
        answers = [answer for future in futures for answer in future.result()]
    network.office[0].do("wait")
    assert len(answers) == 24
    for answer in answers:
        # In so short a time a few datagrams more or less count; and all run at once.
        assert answer["links"][0]["down"] == about(down, 2, 0.5)
        assert answer["links"][0]["up"] == about(up, 2, 0.5)
    assert sorted(path.name for path in two_links.run_folder.iterdir()) == [
        "mvram", "wan-rates", "wan-rates.lock"]
    assert reading(two_links).stat().st_size == kept.WAN_HEAD.size + 4 * kept.WAN_LINK.size


REFUSED = {"sent": -1, "received": -1, "again": -2, "replies": 0}


@pytest.mark.parametrize("options, answer", [
    ("unit=101", {"registered": -1, **REFUSED}),
    ("unregistered=1", {"registered": -2, **REFUSED}),
    ("sendunit=101", {"registered": 0, **REFUSED}),
    ("length=47", {"registered": 0, **REFUSED}),
    ("length=49", {"registered": 0, **REFUSED}),
    ("length=-48", {"registered": 0, **REFUSED}),
    ("type=16", {"registered": 0, **REFUSED}),
    ("size=96", {"registered": 0, **REFUSED}),
    ("code=5", {"registered": 0, **REFUSED}),
    ("requestunit=0", {"registered": 0, **REFUSED}),
    ("twice=1", {"registered": 0, "sent": 48, "received": 0, "again": -1, "replies": 1,
                 "count": 0, "links": []}),
])
def test_wrong_requests_are_refused(gateway, options, answer):
    assert gateway.call("wan", options) == answer
