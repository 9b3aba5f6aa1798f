"""libwum: stations and their removal, over the control sockets of hostapd, real and imagined."""
import contextlib
import os
import shutil
import socket
import time

import pytest

import hostapd

pytestmark = pytest.mark.timing

ANSWER_TIME = 0.5   # that one answer may take
WALK_TIME = 2.0     # that all may take
SPARE_TIME = 0.4    # what a call may take besides: two processors run all tests at once
STATION_MAX = 2048  # of one interface
SOCKET_MAX = 32

VALID = 1  # the flag of a record whose network name counts


def mac(number):
    return f"02:00:00:01:{number >> 8:02x}:{number & 255:02x}"


def address(number):
    return f"192.168.5.{100 + number}"


def record(ip="", ssid="office", flags=VALID):
    return {"ip": ip, "ssid": ssid, "flags": flags}


@pytest.fixture
def double(gateway):
    """Makes daemons; the first argument is the name of the interface."""
    made = []

    def make(name="wlan0", **arguments):
        made.append(hostapd.Double(gateway.hostapd_folder / name, **arguments))
        return made[-1]
    yield make
    for daemon in made:
        daemon.close()


@pytest.fixture
def neighbours(network):
    """Makes the stations with these numbers known to the kernel."""
    known = []

    def know(*numbers, ip=address):
        known.extend(map(ip, numbers))
        network.gateway.ip(*(f"neigh replace {ip(number)} lladdr {mac(number)} dev eth0.5 nud stale"
                             for number in numbers))
    yield know
    network.gateway.ip(*(f"neigh del {ip} dev eth0.5" for ip in dict.fromkeys(known)))


def macs_told(gateway, neighbours, numbers):
    """The numbers of the stations that the library lists."""
    neighbours(*numbers)
    by_address = {address(number): number for number in numbers}
    return [by_address[station["ip"]] for station in gateway.call("stations")]


# The list

def test_without_hostapd_the_list_is_empty(gateway):
    gateway.hostapd_folder.rmdir()
    answer, seconds = gateway.timed_call("stations")
    assert answer == []
    assert seconds < SPARE_TIME
    gateway.hostapd_folder.mkdir()
    assert gateway.call("stations") == []


def test_a_daemon_without_stations_gives_an_empty_list(gateway, double):
    double()
    assert gateway.call("stations") == []


def test_stations_have_address_and_network(gateway, double, neighbours):
    double(stations=[mac(1), mac(2), mac(3)])
    neighbours(1, 3)
    assert gateway.call("stations") == [record(address(1)), record(), record(address(3))]


def test_a_station_with_two_addresses_has_two_records(gateway, double, neighbours):
    double(stations=[mac(1), mac(2)])
    neighbours(1, 2)
    neighbours(1, ip=lambda number: "192.168.5.7")
    assert gateway.call("stations") == [record("192.168.5.7"), record(address(1)),
                                        record(address(2))]


def test_interfaces_come_in_the_order_of_their_names(gateway, double, neighbours):
    double("wlan1", ssid="guests", stations=[mac(3)])
    double("wlan0-1", ssid="things", stations=[mac(2)])
    double("wlan0", stations=[mac(1)])
    neighbours(1, 2, 3)
    assert gateway.call("stations") == [
        record(address(1)), record(address(2), "things"), record(address(3), "guests")]


def test_a_station_on_two_interfaces_is_in_the_list_twice(gateway, double):
    double("wlan0", stations=[mac(1)])
    double("wlan1", stations=[mac(1)], ssid="b")
    assert gateway.call("stations") == [record(), record(ssid="b")]


def test_letter_case_of_a_mac_does_not_matter(gateway, double, neighbours):
    double(stations=[mac(10)]).answers["STA-FIRST"] = hostapd.station_text(mac(10).upper())
    neighbours(10)
    assert gateway.call("stations") == [record(address(10))]


@pytest.mark.texts
@pytest.mark.parametrize("told, ssid, flags", [
    ("office", "office", VALID),
    ("", "", 0),
    ("two words = one name", "two words = one name", VALID),
    (r"a\"b\\c", 'a"b\\c', VALID),
    (r"\n\r\t\e", "\n\r\t\033", VALID),
    (r"b\xc3\xbcro", b"b\xc3\xbcro".decode("latin-1"), VALID),
    (r"\xff\xFE", "\xff\xfe", VALID),
    (r"\x00hidden", "", 0),
    (r"cut\x", "cutx", VALID),
    (r"cut\x4", "cutx4", VALID),
    ("cut\\", "cut\\", VALID),
    ("x" * 145, "x" * 145, VALID),
    ("x" * 146, "x" * 145, VALID),
    ("x" * 2000, "x" * 145, VALID),
])
def test_network_names(gateway, double, told, ssid, flags):
    double(ssid=told, stations=[mac(1)])
    assert gateway.call("stations") == [record(ssid=ssid, flags=flags)]


@pytest.mark.texts
@pytest.mark.parametrize("answer", ["FAIL\n", "", "UNKNOWN COMMAND\n", "bssid=02:00\nnossid=x\n",
                                    b"\xff" * 4000])
def test_a_network_without_name(gateway, double, answer):
    double(stations=[mac(1)]).answers["GET_CONFIG"] = answer
    assert gateway.call("stations") == [record(ssid="", flags=0)]


def test_stations_that_are_not_associated_are_passed_over(gateway, double, neighbours):
    double(stations=[mac(1), mac(2), mac(3), mac(4)],
           flags={mac(1): "", mac(2): "[AUTH]", mac(3): "[AUTH][ASSOC]", mac(4): "[AUTHORIZED]"})
    assert macs_told(gateway, neighbours, [1, 2, 3, 4]) == [3, 4]


# Lists that change while they are read. The daemon puts a new station first.

def leave(daemon, *numbers):
    for number in numbers:
        daemon.stations.remove(mac(number))


def join(daemon, number):
    daemon.stations.insert(0, mac(number))


@pytest.mark.texts
@pytest.mark.parametrize("asked, change, left", [
    (2, lambda daemon: leave(daemon, 2), [1, 3, 4]),
    (1, lambda daemon: leave(daemon, 1), [2, 3, 4]),
    (4, lambda daemon: leave(daemon, 4), [1, 2, 3]),
    (3, lambda daemon: leave(daemon, 1, 2, 3), [4]),
    (3, lambda daemon: leave(daemon, 2, 3), [1, 4]),
    (3, lambda daemon: leave(daemon, 1, 2, 3, 4), []),
    (3, lambda daemon: (leave(daemon, 2), join(daemon, 2)), [1, 2, 3, 4]),
    (2, lambda daemon: (leave(daemon, 2), join(daemon, 2)), [1, 2, 3, 4]),
    (3, lambda daemon: (leave(daemon, 3), join(daemon, 5)), [1, 2, 4]),
    (1, lambda daemon: (leave(daemon, 1), join(daemon, 5)), [5, 2, 3, 4]),
    (2, lambda daemon: leave(daemon, 3), [1, 2, 4]),
])
def test_the_list_changes_before_the_one_after_is_asked_for(gateway, double, neighbours, asked,
                                                            change, left):
    daemon = double(stations=[mac(number) for number in (1, 2, 3, 4)])
    changes = [change]

    def before(command):
        if changes and command == f"STA-NEXT {mac(asked)}":
            changes.pop()(daemon)
    daemon.before = before
    assert macs_told(gateway, neighbours, [1, 2, 3, 4, 5]) == left
    assert not changes


@pytest.mark.texts
def test_a_list_that_always_changes(gateway, double):
    """Every station leaves as soon as it has been told."""
    daemon = double(stations=[mac(number) for number in range(300)])

    def before(command):
        if command.startswith("STA-NEXT"):
            daemon.stations.remove(command.split()[1])
    daemon.before = before
    assert gateway.call("stations") == []
    assert len(daemon.commands) == 1 + 1 + 2 * 300


# Sizes

@pytest.mark.texts
def test_two_hundred_stations(gateway, double, neighbours):
    numbers = list(range(150))
    double("wlan0", stations=[mac(number) for number in numbers])
    double("wlan1", stations=[mac(number) for number in range(150, 200)])
    neighbours(*numbers)
    listed, seconds = gateway.timed_call("stations")
    assert listed == [*(record(address(number)) for number in numbers), *([record()] * 50)]
    assert seconds < 1


@pytest.mark.texts
def test_a_list_without_end_is_left(gateway, double):
    daemon = double()
    numbers = iter(range(1 << 16))
    daemon.answer = lambda command: (
        "ssid=x\n" if command == "GET_CONFIG" else hostapd.station_text(mac(next(numbers))))
    listed, seconds = gateway.timed_call("stations")
    assert 100 < len(listed) <= STATION_MAX
    assert seconds < WALK_TIME + SPARE_TIME


def test_a_list_that_goes_round_is_left(gateway, double):
    daemon = double(stations=[mac(1), mac(2)])
    daemon.answers[f"STA-NEXT {mac(2)}"] = hostapd.station_text(mac(1))
    listed, seconds = gateway.timed_call("stations")
    assert listed == [record(), record()]
    assert seconds < WALK_TIME + SPARE_TIME


@pytest.mark.texts
def test_more_interfaces_than_are_asked(gateway, double):
    for i in range(SOCKET_MAX + 3):
        double(f"wlan{i}", stations=[mac(i)])
    assert len(gateway.call("stations")) == SOCKET_MAX


# Daemons that do not answer as they should

@pytest.mark.texts
def test_what_is_no_socket_or_has_no_daemon_is_passed_over(gateway, double):
    folder = gateway.hostapd_folder
    (folder / "a-file").write_text("x")
    (folder / "a-folder").mkdir()
    (folder / "a-link").symlink_to("wlan0")
    os.mkfifo(folder / "a-pipe")
    for name, kind in (("dead", socket.SOCK_DGRAM), ("stream", socket.SOCK_STREAM)):
        with socket.socket(socket.AF_UNIX, kind) as left_behind:
            left_behind.bind(str(folder / name))
    daemon = double(stations=[mac(1)])
    listed, seconds = gateway.timed_call("stations")
    assert listed == [record()]
    assert daemon.commands.count("STA-FIRST") == 1
    assert seconds < SPARE_TIME


def test_a_silent_daemon_holds_nobody_up(gateway, double):
    double("wlan0").answers["GET_CONFIG"] = None
    double("wlan1", stations=[mac(1)])
    listed, seconds = gateway.timed_call("stations")
    assert listed == [record()]
    assert seconds < ANSWER_TIME + SPARE_TIME


def test_a_daemon_that_falls_silent_has_told_what_it_told(gateway, double):
    double(stations=[mac(1), mac(2), mac(3)]).answers[f"STA-NEXT {mac(2)}"] = None
    listed, seconds = gateway.timed_call("stations")
    assert listed == [record(), record()]
    assert seconds < ANSWER_TIME + SPARE_TIME


def test_many_silent_daemons_share_the_time(gateway, double):
    for i in range(8):
        double(f"wlan{i}").answers["GET_CONFIG"] = None
    listed, seconds = gateway.timed_call("stations")
    assert listed == []
    assert WALK_TIME - SPARE_TIME < seconds < WALK_TIME + SPARE_TIME


def queue_fill(stack, path):
    """Sends questions to a socket that nobody reads until even a new sender cannot send one."""
    while True:
        asking = stack.enter_context(socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM))
        asking.connect(str(path))
        asking.setblocking(False)
        try:
            asking.send(b"GET_CONFIG")
        except BlockingIOError:
            return


def test_a_daemon_that_reads_nothing_any_more(gateway):
    """Not even a question can be sent."""
    with contextlib.ExitStack() as stack:
        hung = stack.enter_context(socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM))
        hung.bind(str(gateway.hostapd_folder / "hung"))
        queue_fill(stack, gateway.hostapd_folder / "hung")
        listed, seconds = gateway.timed_call("stations")
    assert listed == []
    assert seconds < ANSWER_TIME + SPARE_TIME


def test_a_daemon_that_was_busy(gateway, double):
    """Its queue was full when it was asked, and it comes to it in time."""
    daemon = double(stations=[mac(1)])
    daemon.before = lambda command: time.sleep(0.3 if command == "PING" else 0)
    with contextlib.ExitStack() as stack:
        asking = stack.enter_context(socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM))
        asking.sendto(b"PING", str(daemon.path))
        time.sleep(0.02)
        queue_fill(stack, daemon.path)
        assert gateway.call("stations") == [record()]


def test_an_answer_that_comes_late_is_no_answer_to_the_next_question(gateway, double):
    daemon = double("wlan0", stations=[mac(1)])
    daemon.before = lambda command: time.sleep(0.6 if command == "STA-FIRST" else 0)
    double("wlan1", stations=[mac(2)], ssid="b")
    assert gateway.call("stations") == [record(ssid="b")]


@pytest.mark.texts
@pytest.mark.parametrize("answer", [
    "UNKNOWN COMMAND\n", "FAILED\n", "\n", "\0", "02:00:00:01:00\n", "02:00:00:01:00:0g\n",
    " 02:00:00:01:00:01\n", "02:00:00:01:00:01 \n", "02:00:00:01:00:01:02\n",
    "02.00.00.01.00.01\n", b"\xff" * 4095, b"\xff" * 60000, "x" * 4096 + "\n",
])
def test_an_answer_that_is_no_station_ends_the_list(gateway, double, answer):
    double(stations=[mac(1), mac(2)]).answers[f"STA-NEXT {mac(1)}"] = answer
    assert gateway.call("stations") == [record()]


@pytest.mark.texts
@pytest.mark.parametrize("answer", ["FAIL\n", "FAIL"])
def test_a_station_that_the_daemon_lists_and_denies_is_not_asked_for_endlessly(gateway, double,
                                                                             answer):
    double(stations=[mac(1), mac(2)]).answers[f"STA-NEXT {mac(1)}"] = answer
    listed, seconds = gateway.timed_call("stations")
    assert listed == []
    assert seconds < WALK_TIME


@pytest.mark.texts
@pytest.mark.parametrize("answer", ["FAIL\n", "UNKNOWN COMMAND\n", "", "\n"])
def test_an_interface_without_list(gateway, double, answer):
    double(stations=[mac(1)]).answers["STA-FIRST"] = answer
    assert gateway.call("stations") == []


def test_answers_without_newline_or_flags(gateway, double):
    daemon = double(stations=[mac(1)])
    daemon.answers["STA-FIRST"] = mac(1)
    assert gateway.call("stations") == [record()]


# Removal

def kick(gateway, text, unit=0):
    return gateway.call("kick", unit, text)["result"]


def test_removal_is_told_to_every_interface(gateway, double):
    daemons = [double(f"wlan{i}", stations=[mac(1), mac(2)]) for i in range(3)]
    assert kick(gateway, mac(1)) == 0
    for daemon in daemons:
        assert daemon.commands == [f"DEAUTHENTICATE {mac(1)}"]
        assert daemon.stations == [mac(2)]


@pytest.mark.parametrize("text", ["02:aB:00:01:00:FE", "02-ab-00-01-00-fe", "02:ab:00-01-00:fe"])
def test_the_ways_to_write_a_mac(gateway, double, text):
    daemon = double()
    assert kick(gateway, text) == 0
    assert daemon.commands == ["DEAUTHENTICATE 02:ab:00:01:00:fe"]


@pytest.mark.texts
@pytest.mark.parametrize("text", [
    "", "x", "02:00:00:01:00", "02:00:00:01:00:0", "02:00:00:01:00:0g", "02:00:00:01:00:01:02",
    "02:00:00:01:00:01 ", " 02:00:00:01:00:01", "02:00:00:01:00:01\n", "02:00:00:01:00:01\nSTOP",
    "02:00:00:01:00:01 reason=3", "02 00 00 01 00 01", "020000010001",
    "+2:00:00:01:00:01", "2:0:0:1:0:1", "0x:00:00:01:00:01", "x" * 1000, "aa-bb",
    "ff:ff:ff:ff:ff:ff",  # would be all stations
    "01:00:5e:00:00:01", "03:00:00:00:00:00",
])
def test_what_is_no_single_mac_reaches_no_daemon(gateway, double, text):
    daemon = double()
    assert kick(gateway, text) == -1
    assert daemon.commands == []


def test_only_unit_0_is_there(gateway, double):
    daemon = double()
    assert kick(gateway, mac(1), unit=1) == -1
    assert daemon.commands == []


@pytest.mark.parametrize("answers, result", [
    (["OK\n"], 0), (["FAIL\n"], -1), (["FAIL\n", "OK\n"], 0), (["OK\n", "FAIL\n"], 0),
    (["UNKNOWN COMMAND\n"], -1), ([""], -1), (["OKAY\n"], -1), ([None, "OK\n"], 0), ([None], -1),
])
def test_one_interface_that_agrees_is_enough(gateway, double, answers, result):
    for i, answer in enumerate(answers):
        double(f"wlan{i}").answers[f"DEAUTHENTICATE {mac(1)}"] = answer
    begin = time.monotonic()
    assert kick(gateway, mac(1)) == result
    assert time.monotonic() - begin < ANSWER_TIME + SPARE_TIME


def test_removal_without_hostapd_fails(gateway):
    assert kick(gateway, mac(1)) == -1


# The daemon itself

@pytest.fixture
def daemon(gateway, network):
    if not shutil.which("hostapd"):
        pytest.skip("there is no hostapd here: install the Debian package hostapd")
    gateway.hostapd_folder.rmdir()
    made = hostapd.Real(network.gateway, gateway.hostapd_folder, "port0", r'P"b\xc3\xbcro"')
    yield made
    made.close()


def test_the_real_daemon_tells_its_stations(gateway, daemon, neighbours):
    ssid = b"b\xc3\xbcro".decode("latin-1")
    assert gateway.call("stations") == []
    for number in (1, 2, 3):
        assert daemon.ask(f"NEW_STA {mac(number)}") == "OK\n"
    neighbours(1, 2, 3)
    # It puts a new station first.
    assert gateway.call("stations") == [record(address(number), ssid) for number in (3, 2, 1)]


def test_the_real_daemon_removes_a_station(gateway, daemon, neighbours):
    for number in (1, 2):
        daemon.ask(f"NEW_STA {mac(number)}")
    assert kick(gateway, mac(1).upper()) == 0
    assert macs_told(gateway, neighbours, [1, 2]) == [2]
    assert "\nflags=\n" in daemon.ask(f"STA {mac(1)}"), "it is still associated"
    assert kick(gateway, "ff:ff:ff:ff:ff:ff") == -1
    assert macs_told(gateway, neighbours, [1, 2]) == [2]
