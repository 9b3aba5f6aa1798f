"""cpectl-sim as a person uses it: one command, one answer, a state that lasts."""

import concurrent.futures
import json
import os
import shutil
import subprocess
import tempfile

import pytest
from conftest import PROJECT

ADMIN = '{"fun":"getAdmPass","stat":"ok","cbk":{"admPass":"%s"}}\n'


def test_the_first_run_makes_the_factory_gateway(sim):
    done = sim("getBaseInfo")
    assert done.stdout == ('{"fun":"getBaseInfo","stat":"ok",'
                           '"cbk":{"platform":"QRX300","fwVersion":"1.2.3-20260815"}}\n')
    assert (done.returncode, done.stderr) == (0, "")


def test_the_status_is_the_programs(sim):
    help_listing = sim("--help")
    assert (help_listing.returncode, help_listing.stdout[:11]) == (255, "getAdmPass ")
    assert (sim("rebo").returncode, sim("rebo").stdout) == (255, "")
    assert sim("--").returncode == 255


def test_state_lasts_until_fresh(sim):
    assert sim("setAdmPass", '{"admPass":"s3cret"}').returncode == 0
    assert sim("getAdmPass").stdout == ADMIN % "s3cret"
    assert sim("--fresh", "getAdmPass").stdout == ADMIN % "admin"
    assert sim("getAdmPass").stdout == ADMIN % "admin"


def test_states_are_independent(sim, tmp_path):
    sim("setAdmPass", '{"admPass":"s3cret"}')
    assert sim("getAdmPass", state=tmp_path / "other").stdout == ADMIN % "admin"


def test_several_at_once_share_a_new_state(sim):
    with concurrent.futures.ThreadPoolExecutor(6) as several:
        done = list(several.map(lambda _: sim("getAdmPass"), range(6)))
    assert {(run.returncode, run.stdout, run.stderr) for run in done} == {(0, ADMIN % "admin", "")}


def test_reboot_loses_what_was_not_committed(sim, tmp_path):
    sim("--shell", "-c", "nvram set ADMIN_AUTH=lost; touch /tmp/lost")
    assert sim("getAdmPass").stdout == ADMIN % "lost"
    assert sim("--reboot", "getAdmPass").stdout == ADMIN % "admin"
    assert os.listdir(tmp_path / "state/root/tmp") == []


def test_trace_tells_the_effects_in_order(sim):
    sim("getBaseInfo")
    done = sim("--trace", "setAdmPass", '{"admPass":"s3 cret"}')
    assert done.stdout.splitlines() == [
        '{"fun":"setAdmPass","stat":"ok"}',
        "shell   /sbin/cpecryptpw 's3 cret' | cut -b 5- >/tmp/password.tmp",
        'script  /sbin/cpecryptpw "s3 cret"',
        'call    nvram_get ADMIN_AUTH  -> "admin"',
        "call    nvram_set ADMIN_AUTH 5a5679dc9498fc55  -> 0",
        'call    nvram_get ADMIN_AUTH  -> "5a5679dc9498fc55"',
        'call    nvram_set ADMIN_AUTH "s3 cret"  -> 0',
        "call    nvram_commit  -> 0",
        "shell   /usr/sbin/webserv.sh userinfo >/dev/null 2>&1",
        "script  /usr/sbin/webserv.sh userinfo",
        "file    /tmp/password.tmp created (17 bytes)",
        "exit    0",
    ]


def test_trace_as_json_lines(sim):
    sim("getBaseInfo")
    done = sim("--trace=json", "devNmSet", '{"devNm":"ünï"}')
    answer, *records = [json.loads(line) for line in done.stdout.splitlines()]
    assert answer["stat"] == "ok"
    assert records[:-1] == [
        {"call": "nvram_get", "args": ["HOSTNAME"], "result": "gateway"},
        {"call": "nvram_set", "args": ["HOSTNAME", "ünï"], "result": 0},
        {"call": "nvram_commit", "args": [], "result": 0},
    ]
    assert records[-1]["exit"] == "0" and 0 < records[-1]["seconds"] < 5


def test_scenario_starts_a_gateway_that_lasts(sim, tmp_path):
    scenario = tmp_path / "two"
    scenario.write_text("[nvram] HOSTNAME=two\n[neighbours] 192.168.1.9 02:00:00:00:00:09\n"
                        "[hosts] 192.168.1.9 1 2 3 4\n")
    assert '"devNm":"two"' in sim("--scenario", scenario, "gwDevListGet").stdout
    sim("devNmSet", '{"devNm":"three"}')
    assert '"devNm":"three"' in sim("gwDevListGet").stdout
    assert '"02:00:00:00:00:09"' in sim("getStaList").stdout
    assert '"devNm":"two"' in sim("--scenario", scenario, "gwDevListGet").stdout


@pytest.mark.parametrize("name", sorted(os.listdir(PROJECT / "gateway/scenarios")))
def test_the_scenarios_that_come_along_work(sim, name):
    done = sim("--scenario", name, "getHostNum")
    assert done.returncode == 0 and '"stat":"ok"' in done.stdout


def test_the_factory_gateway_asks_the_stock_libraries(sim):
    """Nothing that the monitoring commands show is canned: three hosts and links, no traffic."""
    hosts = json.loads(sim("getHostFlowinfo").stdout)["cbk"]["hostinfo"]
    assert [host["ip"] for host in hosts] == [f"192.168.1.{i}" for i in (20, 21, 22)]
    assert all(host["down_total"] == 0 for host in hosts)
    links = sim("--trace", "getWanFlowinfo").stdout
    assert set(json.loads(links.splitlines()[0])["cbk"]) >= {"WAN1", "WAN2", "WAN3"}
    assert 'mvram_get WAN3_DEV  -> "wan2"' in links, "the library's own question"
    stations = json.loads(sim("getStaList").stdout)["cbk"]["stalist"]
    assert [station["ty"] for station in stations] == [1, 1, 1], "no wireless daemon, no stations"


def test_the_busy_scenario_shows_load_and_a_tunnel(sim):
    load = json.loads(sim("--scenario", "busy", "getCpuMemLoad").stdout)["cbk"]
    assert 46 < load["cpu_load"] < 47  # 120 busy of 130 jiffies, halved
    assert json.loads(sim("getHostNum").stdout)["cbk"]["conn_num"] == 1874
    tunnel = json.loads(sim("pptpcStaGet").stdout)["cbk"]
    assert (tunnel["connect"], tunnel["ip"], tunnel["gw"]) == ("YES", "10.9.0.2", "10.9.0.1")


def test_shell_works_inside(sim):
    done = sim("--shell", "-c", "id -u; hostname; cpectl getAdmPass; exit 3")
    assert done.stdout == "0\ngateway\n" + ADMIN % "admin"
    assert done.returncode == 3


def test_the_network_is_the_gateways_own(sim):
    devices = sim("--shell", "-c", "tail -n +3 /proc/net/dev | cut -d: -f1").stdout.split()
    links = [f"wan{i}{end}" for i in range(3) for end in ("", "-far-end")]
    assert sorted(devices) == ["eth0.5", "lan-far-end", "lo", *links]


def test_nothing_outside_the_state_can_be_written(sim, tmp_path):
    writable = sim("--shell", "-c", "grep -v ' ro,' /proc/mounts | cut -d' ' -f2").stdout.split()
    own = {"/etc", "/disk", "/root", "/sys", "/tmp", "/var", "/.gateway/run", "/proc"}
    assert {path for path in writable if not path.startswith("/dev")} == own
    tries = "; ".join(f"echo x >{path}/written && echo {path}" for path in (
        "", "/bin", "/usr", "/usr/lib", "/usr/sbin", "/platform", "/recording",
        "/.gateway/helpers"))
    assert sim("--shell", "-c", tries).stdout == ""
    machine = "echo 1 >/proc/sys/kernel/panic || echo 1 >/proc/sysrq-trigger || echo refused"
    assert sim("--shell", "-c", machine).stdout == "refused\n"
    sim("--shell", "-c", "echo kept >/disk/kept")
    assert (tmp_path / "state/root/disk/kept").exists()


def test_processes_outside_are_out_of_reach(sim):
    assert sim("--shell", "-c", f"kill -0 {os.getpid()} || ls /proc/{os.getpid()}").returncode != 0


def test_the_environment_stays_outside(sim, monkeypatch):
    monkeypatch.setenv("SECRET_OF_THE_CALLER", "1")
    assert "SECRET_OF_THE_CALLER" not in sim("--shell", "-c", "env").stdout


def test_a_plain_user_can_run_it(sim):
    if os.geteuid() != 0:
        pytest.skip("this user is a plain one already: the other tests show it")
    as_plain_user = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
    if subprocess.run([*as_plain_user, "test", "-r",
                       PROJECT / "gateway/cpectl-sim"], check=False).returncode != 0:
        pytest.skip("the project is in a folder that a plain user may not enter")
    with tempfile.TemporaryDirectory() as state:
        shutil.chown(state, 65534)
        done = sim("getStaList", state=state, before=as_plain_user)
    assert (done.returncode, done.stderr) == (0, "")
    assert '"192.168.1.20"' in done.stdout


def test_background_work_is_awaited_and_recorded(sim, tmp_path):
    scenario = tmp_path / "slow"
    scenario.write_text("[script /usr/sbin/reboot.sh install]\n    sleep 0.5\n    print late\n")
    done = sim("--scenario", scenario, "--trace", "reboot")
    assert "script  /usr/sbin/reboot.sh install" in done.stdout.splitlines()


# ---- what can go wrong, in one line each

@pytest.mark.parametrize("arguments, said", [
    ([], "no command"),
    (["--bogus", "getAdmPass"], "there is no option --bogus"),
    (["--scenario"], "--scenario needs a value"),
    (["--scenario", "nowhere", "getAdmPass"], "there is no scenario nowhere"),
    (["--program", "/nonexistent", "getAdmPass"], "no cpectl (looked at /nonexistent)"),
])
def test_mistakes_are_told_in_one_line(sim, arguments, said):
    done = sim(*arguments)
    assert done.stderr.startswith(f"cpectl-sim: {said}")
    assert done.stderr.count("\n") == 1 and done.returncode in (2, 125) and done.stdout == ""


def test_a_wrong_scenario_leaves_the_state_alone(sim, tmp_path):
    sim("setAdmPass", '{"admPass":"s3cret"}')
    wrong = tmp_path / "wrong"
    wrong.write_text("[nvram] HOSTNAME=x\n[bogus] y\n")
    assert "line 2: [bogus]: no such section" in sim("--scenario", wrong, "getAdmPass").stderr
    assert sim("getAdmPass").stdout == ADMIN % "s3cret"


def test_usage_tells_every_option(sim):
    usage = sim("--usage").stdout
    for option in ("--state", "--fresh", "--trace", "--scenario", "--shell", "--program", "--qemu"):
        assert f"  {option}" in usage
