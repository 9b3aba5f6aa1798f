"""What runs inside the gateway: the shell, the recorder, the first process, the libraries."""

import signal
import time

import pytest
from cpectl_sim import GatewayError, text, trace


def test_shell_texts_are_recorded_byte_by_byte(shell):
    outcome = shell("echo 'a\"b\\' \udcff \u00e4\n\ttrue")
    assert trace.calls(outcome.events) == ['shell "echo \'a\\"b\\\\\' \\udcff \u00e4\\n\\ttrue"']
    assert outcome.output("stdout") == 'a"b\\ \udcff \u00e4\n'


def test_nested_shells_are_not_recorded(shell):
    outcome = shell("/bin/sh -c 'echo inner; /usr/sbin/ui.sh x'")
    assert len(trace.calls(outcome.events)) == 1
    assert trace.scripts(outcome.events) == ["/usr/sbin/ui.sh x"]


def test_tools_do_not_get_what_the_program_loads(shell, prepare):
    prepare("[env] LD_PRELOAD=/nonexistent.so\n")
    assert shell("echo $LD_LIBRARY_PATH $LD_PRELOAD").output("stdout") == "/platform\n"


def test_script_words_are_recorded_losslessly(shell):
    outcome = shell("/usr/sbin/ui.sh 'a b' '' 'x\ny' \"'\" '\"' '\udcc3(' \u20ac plain")
    assert trace.scripts(outcome.events) == [
        '/usr/sbin/ui.sh "a b" "" "x\\ny" \' "\\"" "\\udcc3(" \u20ac plain']


def test_each_stand_in_is_there(shell):
    from cpectl_sim import base
    outcome = shell("; ".join(base.STAND_INS))
    assert trace.scripts(outcome.events) == base.STAND_INS


def test_the_password_tool_depends_on_its_word(shell):
    one, two, again = shell("cpecryptpw a; cpecryptpw b; cpecryptpw a").output("stdout").split()
    assert one == again != two
    assert one.startswith("ENC:") and len(one) == 20


def test_scripts_do_their_steps(shell, prepare):
    prepare("""\
[script /usr/sbin/ui.sh]
    print first
    print-raw "no end"
    error complaint
    exit 3
""")
    outcome = shell("/usr/sbin/ui.sh any; echo $?")
    assert outcome.output("stdout") == "first\nno end3\n"
    assert outcome.output("stderr") == "complaint\n"


def test_the_most_words_decide(shell, prepare):
    prepare("""\
[script /usr/sbin/ui.sh a b] print two
[script /usr/sbin/ui.sh a]   print one
[script /usr/sbin/ui.sh]     print none
""")
    outcome = shell("ui.sh; ui.sh x; ui.sh a; ui.sh a c; ui.sh a b; ui.sh a b c")
    assert outcome.output("stdout").split() == ["none", "none", "one", "one", "two", "two"]


def test_a_script_text_runs_as_a_script(shell, prepare):
    prepare("""\
[script-text /usr/sbin/ui.sh]
    echo "$# $1" | tr a-z A-Z
    nvram set FROM_SCRIPT=yes
    exit 4
""")
    outcome = shell("ui.sh 'two words'; echo $?")
    assert outcome.output("stdout") == "1 TWO WORDS\n4\n"
    assert trace.scripts(outcome.events) == ['/usr/sbin/ui.sh "two words"']
    assert outcome.stores["nvram"] == {"FROM_SCRIPT": "yes"}
    assert len(trace.calls(outcome.events)) == 1  # the tool's calls are not the program's


def test_the_shells_own_tools_can_be_replaced(shell, prepare):
    prepare("""\
[script /usr/bin/killall] print replaced
[absent /usr/bin/md5sum]
""")
    outcome = shell("killall pptpc; echo x | md5sum; echo $?; cat /nothing/there; echo $?")
    assert outcome.output("stdout") == "replaced\n127\n1\n"
    assert trace.scripts(outcome.events) == ["/usr/bin/killall pptpc"]


def test_scripts_at_other_places(shell, prepare):
    prepare("[script /disk/own.sh] print own\n[file /usr/sbin/plain] #!/bin/busybox sh\n"
            "    echo plain $1\n")
    assert shell("/disk/own.sh; plain x").output("stdout") == "own\nplain x\n"


@pytest.mark.timing
def test_background_scripts_are_in_the_order_of_their_texts(gateway, prepare, monkeypatch):
    from cpectl_sim import run
    monkeypatch.setattr(run, "PROGRAM", "/bin/busybox")
    prepare("""\
[script-text /usr/sbin/network.sh]
    sleep 0.3
    /usr/sbin/ui.sh late
""")
    outcome = gateway.request(
        ["sh", "-c", "/bin/sh -c '(sleep 0.2; /usr/sbin/pptp.sh first) &'; "
                     "/bin/sh -c '/usr/sbin/cron.sh second'; /bin/sh -c 'network.sh &'"])
    assert trace.scripts(outcome.events) == [
        "/usr/sbin/pptp.sh first", "/usr/sbin/cron.sh second", "/usr/sbin/network.sh",
        "/usr/sbin/ui.sh late"]


@pytest.mark.timing
def test_the_run_ends_with_the_last_background_process(tool):
    outcome = tool("sh", "-c", "(sleep 2; echo end >/tmp/end) & exit 7")
    assert outcome.result.exit_line() == "7"
    assert outcome.result.took < 1.5
    assert not outcome.result.lingering
    assert [change.path for change in outcome.changes] == ["/tmp/end"]


@pytest.mark.timing
def test_endless_background_work_is_reported(gateway, tool):
    gateway.world.background_seconds = 1
    start = time.monotonic()
    outcome = tool("sh", "-c", "sleep 60 &")
    assert outcome.result.lingering
    assert 1 <= time.monotonic() - start < 40


def test_an_endless_program_is_ended(gateway, tool):
    gateway.world.seconds = 1
    gateway.world.background_seconds = 0
    assert tool("sleep", "60").result.exit_line() == "timeout 0"


def test_a_signal_is_told(tool):
    assert tool("sh", "-c", "kill -SEGV $$").result.exit_line() == "signal 11"


def test_signals_that_are_ignored_outside_do_as_ever_inside(tool):
    before = signal.signal(signal.SIGHUP, signal.SIG_IGN)
    try:
        assert tool("sh", "-c", "kill -HUP $$").result.exit_line() == "signal 1"
    finally:
        signal.signal(signal.SIGHUP, before)


@pytest.mark.timing
def test_run_time_is_the_programs_own(tool):
    assert 0.3 <= tool("sleep", "0.3").result.took < 10


def test_readings_follow_each_other(tool, prepare):
    prepare("""\
[reading /proc/stat 1] one
[reading /proc/stat 2]
    two
    lines
[reading /tmp/twice 1] first
[reading /tmp/twice 2] last
""")
    outcome = tool("sh", "-c", "for i in 1 2 3; do cat /proc/stat /tmp/twice; done")
    assert outcome.output("stdout").split() == [
        "one", "first", "two", "lines", "last", "two", "lines", "last"]


@pytest.mark.timing
def test_a_reader_that_stops_early_gets_no_second_reading(tool, prepare):
    prepare("[reading /proc/stat 1] {{x*100000}}\n[reading /proc/stat 2] two\n")
    outcome = tool("sh", "-c", "dd if=/proc/stat bs=1 count=3 2>/dev/null; cat /proc/stat")
    assert outcome.output("stdout") == "xxxtwo\n"


def test_files_of_proc_are_replaced_hidden_and_made_up(tool, prepare):
    prepare("""\
[file /proc/uptime] 59.00 1.00
[absent /proc/meminfo]
[file /proc/net/dev] replaced
[file /proc/sys/net/netfilter/nf_conntrack_count] 57
[file /proc/sys/net/ipv4/netfilter/ip_conntrack_count] 58
""")
    outcome = tool("sh", "-c", "cat /proc/uptime /proc/net/dev; cd /proc/sys/net; "
                   "cat netfilter/nf_conntrack_count ipv4/netfilter/ip_conntrack_count; "
                   "test -e /proc/meminfo || echo hidden; "
                   "grep -q stack /proc/self/maps && test -e /proc/version && echo rest; "
                   "test -e /proc/sys/net/core && echo siblings; "
                   "readlink /proc/self/exe")
    assert outcome.output("stdout").splitlines() == [
        "59.00 1.00", "replaced", "57", "58", "hidden", "rest", "siblings",
        "/.gateway/programs/busybox"]


def test_devices_and_neighbours(tool, prepare):
    prepare("""\
[net]
    link add ppp0 type veth peer name far
    address add 10.9.0.2 peer 10.9.0.1 dev ppp0
[neighbours]
    192.168.1.7 02:00:00:00:00:07
    10.0.0.9 02:00:00:00:00:09 ppp0
""")
    lines = tool("cat", "/proc/net/arp").output("stdout").splitlines()[1:]
    found = {tuple(line.split()[index] for index in (0, 3, 5)) for line in lines}
    assert found == {("192.168.1.7", "02:00:00:00:00:07", "eth0.5"),
                     ("10.0.0.9", "02:00:00:00:00:09", "ppp0")}


def test_a_wrong_network_is_told(tool, prepare):
    prepare("[net] link add x type bogus\n")
    with pytest.raises(GatewayError, match="the network cannot be made"):
        tool("true")


def test_servers_answer_and_record(shell, prepare):
    prepare("""\
[file /etc/hosts] 127.0.0.1 server.example
[http 80] any
[http 80 path=/x/y status=404 raw] "no newline"
[http 8080] other port
[file /tmp/up] content
""")
    outcome = shell("curl -s http://server.example/a?b=c; "
                    "curl -s -w '%{http_code}\\n' http://server.example/x/y/z; "
                    "curl -s 127.0.0.1:8080/; curl -s -F file=@/tmp/up http://[::1]/up")
    assert outcome.output("stdout") == "any\nno newline404\nother port\nany\n"
    assert trace.requests(outcome.events, outcome.run_dir) == [
        "GET /a?b=c", "GET /x/y/z", "GET /",
        "POST /up file up 434728a410a78f56fc1b5899c3593436e61ab0c731e9072d95e96db290205e53"]
    assert "Host: server.example" in outcome.events[1]["head"]


def test_a_library_can_be_absent_or_fail(gateway, prepare):
    prepare("[nvram] ADMIN_AUTH=x\n[library nvram fails] nvram_get\n")
    outcome = gateway.request(["getAdmPass"])
    assert '"admPass":""' in outcome.output("stdout")
    assert trace.calls(outcome.events) == ["nvram_get ADMIN_AUTH"]
    prepare("[library nvram absent]\n")
    outcome = gateway.request(["getAdmPass"])
    assert '"admPass":""' in outcome.output("stdout")
    assert outcome.events == []


def test_any_bytes_are_recorded_as_they_were(shell):
    odd = [0x01, 0x41, 0x7f, 0x80, 0x8f, 0x90, 0x9f, 0xa0, 0xbf, 0xc0, 0xc1, 0xc2, 0xdf, 0xe0,
           0xe1, 0xec, 0xed, 0xee, 0xef, 0xf0, 0xf1, 0xf3, 0xf4, 0xf5, 0xff]
    sequences = (bytes([first, second, third, 0xbf]) + b"A"
                 for first in odd for second in odd for third in odd)
    everything = text.from_bytes(b"# " + b"".join(sequences))
    assert shell(everything).events[0]["shell"] == everything


def test_the_world_has_files_of_every_kind(tool, prepare):
    prepare("""\
[file /etc/raw raw mode=640] "\\udcff\\u0000"
[dir /etc/sub/dir mode=700]
[symlink /etc/link] raw
[fifo /etc/fifo]
[file /etc/gone] x
[absent /etc/gone]
""")
    lines = tool("ls", "-ln", "/etc", "/etc/sub").output("stdout").splitlines()
    assert {(line.split()[0], line.split()[8]) for line in lines if len(line.split()) > 8} == {
        ("-rw-r-----", "raw"), ("drwxr-xr-x", "sub"), ("drwx------", "dir"),
        ("lrwxrwxrwx", "link"), ("prw-r--r--", "fifo")}
    assert tool("cat", "/etc/link").output("stdout") == "\udcff\0"


@pytest.mark.timing
def test_a_script_waits_for_the_programs_end(tool, prepare):
    prepare("[script /usr/sbin/cron.sh]\n    await-end 15\n    print late\n")
    outcome = tool("sh", "-c", "/usr/sbin/cron.sh & sleep 0.2; echo early")
    assert outcome.output("stdout") == "early\nlate\n"
    assert outcome.result.took < 10


def test_a_script_waits_for_the_programs_end_for_its_time_only(tool, prepare):
    prepare("[script /usr/sbin/cron.sh]\n    await-end 0.3\n    print late\n")
    outcome = tool("sh", "-c", "/usr/sbin/cron.sh; echo early")
    assert outcome.output("stdout") == "late\nearly\n"
