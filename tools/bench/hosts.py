#!/usr/bin/python3
"""Measures what a host costs in the monitoring commands: processor time of a whole run of the
program, with 10, 100 and 1000 hosts that each have a flow, in network namespaces."""
import os
import pathlib
import statistics
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests" / "platform"))

import kept  # noqa: E402
import network as office  # noqa: E402

COUNTS = (10, 100, 1000)
RUNS = 15
COMMANDS = ("getHostFlowinfo", "getStaList")


def address(number):
    return f"192.168.{64 + number // 250}.{1 + number % 250}"


def hosts_add(network, numbers):
    """All of them live at one end of the LAN; each sends one datagram."""
    network.gateway.ip(*(
        f"neigh replace {address(n)} lladdr 02:00:00:02:{n >> 8:02x}:{n & 255:02x} dev eth0.5 "
        "nud permanent" for n in numbers))
    network.office[0].ip(*(f"addr add {address(n)}/32 dev port0x" for n in numbers))
    network.office[0].do("udp_from_each", sources=[address(n) for n in numbers], to=office.FAR[0],
                         port=office.PORT, size=100)


def processor_time(argv, environment):
    """Seconds that a run takes, user and system together."""
    reader, writer = os.pipe()
    child = os.posix_spawnp(argv[0], argv, environment,
                            file_actions=[(os.POSIX_SPAWN_DUP2, writer, 1)])
    os.close(writer)
    with open(reader, "rb") as output:
        output.read()
    _, status, usage = os.wait4(child, 0)
    assert status == 0, argv
    return usage.ru_utime + usage.ru_stime


def run_time(network, program, environment, command):
    totals = pathlib.Path(environment["CPECTL_RUN_DIR"], "host-traffic")
    times = []
    for _ in range(RUNS):
        if totals.exists():
            kept.age(totals, kept.HOST_HEAD, 1)  # so that no run waits for its second reading
        times.append(processor_time(network.gateway.enter(program, command), environment))
    return statistics.median(times)


def measure(network, program, platform, run_folder):
    environment = {**os.environ, "LD_LIBRARY_PATH": str(platform), "CPECTL_RUN_DIR": run_folder}
    network.gateway.ip("addr add 192.168.64.254/21 dev eth0.5")
    entering = statistics.median(
        processor_time(network.gateway.enter("true"), environment) for _ in range(RUNS))
    there, before = 0, {}
    for count in COUNTS:
        hosts_add(network, range(there, count))
        for command in COMMANDS:
            took = (run_time(network, program, environment, command) - entering) * 1e6
            line = f"{command:16} {count:5} hosts {took:8.0f} us a run"
            if there:
                more = (took - before[command]) / (count - there)
                line += f" {more:7.1f} us for each host more"
            print(line)
            before[command] = took
        there = count


def main():
    program = os.environ.get("CPECTL_PROGRAM", ROOT / "build" / "cpectl")
    platform = os.environ.get("CPECTL_PLATFORM_DIR", ROOT / "build" / "release" / "substitutes")
    try:
        network = office.Network()
    except office.Unavailable as why:
        sys.exit(f"no network namespaces like these can be made here: {why}")
    with tempfile.TemporaryDirectory() as run_folder:
        measure(network, program, platform, run_folder)
    network.close()


if __name__ == "__main__":
    main()
