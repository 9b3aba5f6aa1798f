"""Sweeps the command table: each row is reached by its name, by longer ones, by no shorter one."""

import json

import pytest
from cpectl_sim import base, case, check, trace, world

# The rows in the order of the search, with what the answer's "fun" says where that is not the name.
ROWS = {
    "getAdmPass": None, "setAdmPass": None, "getBaseInfo": None, "gwDevListGet": None,
    "devNmSet": None, "getHostNum": None, "getCpuMemLoad": None, "getWanFlowinfo": None,
    "getHostFlowinfo": None, "offline": None, "bindUrlSet": None, "getStaList": None,
    "localcfgUpdate": None, "wanInfoGet": None, "wanInfoSet": None, "lanConfSet": None,
    "lanConfGet": None, "reboot": None, "upGrade": None, "pushfw": None, "checkOta": "",
    "setStaList": None, "openIntranetProxy": None, "closeIntranetProxy": None, "ipsecOpen": None,
    "ipsecClose": None, "ipsecStaGet": None, "ipsecConfGet": None, "ipsecAddTun": None,
    "ipsecDelTun": None, "ipsecDelAllTun": None, "ipsecTunStaGet": None, "ipsecTunShutdown": None,
    "ipsecTunReconn": None, "ipsecTunReboot": None, "pptpdOpen": None, "pptpdClose": None,
    "pptpdStaGet": None, "pptpdConfGet": None, "pptpdAddUser": None, "pptpdDelUser": None,
    "pptpdDelAllUser": "ipsecDelAllUser", "pptpdUserStaGet": None, "pptpcOpen": None,
    "pptpcClose": None, "pptpcConfgGet": None, "pptpcStaGet": None, "pptpcReconn": None,
    "pptpcShutdown": None,
}

# What every command needs to be quick and to say something.
WORLD = """\
[file /etc/router.ver]
    SW_VERSION=V1
    SW_DATE=2
[file /etc/cpectl.cfg]
[file /etc/hosts] 127.0.0.1 ota.cpectl.example
[http 80] {"msg":{"path":"/a","textNotes":"b","md5":"c","type":"d"}}
[wan]
"""


@pytest.fixture(name="gateway")
def make_gateway(place, tmp_path, request):
    gateway = check.Gateway(tmp_path, place, base.ensure(request.session.case_directory / "base"))
    world.apply(case.parse(WORLD).steps[0].world, gateway.world, gateway.root)
    return gateway


def reached(outcome):
    """The row that answered a request, or None."""
    output = outcome.output("stdout")
    if output:
        fun = json.loads(output)["fun"]
        return next((name for name, says in ROWS.items() if says == fun), fun)
    # The one command that prints nothing: known by what it does last.
    runs = trace.calls(outcome.events)
    return "checkOta" if runs and runs[-1] == "shell /usr/sbin/pushOTA.sh get &" else None


@pytest.mark.parametrize("name", ROWS)
def test_row_is_reached_by_its_name(gateway, name):
    outcome = gateway.request([name])
    assert reached(outcome) == name
    silent = name in ("checkOta", "localcfgUpdate")
    assert outcome.result.exit_line() == ("255" if silent else "0")
    assert outcome.output("stderr") == ""


@pytest.mark.parametrize("name", ROWS)
def test_row_is_reached_by_a_longer_name(gateway, name):
    assert reached(gateway.request([name + "X{}"])) == name


@pytest.mark.parametrize("name", ROWS)
def test_row_is_reached_by_no_shorter_name(gateway, name):
    for shorter in (name[:-1], name[:len(name) // 2], name[1:]):
        outcome = gateway.request([shorter])
        assert reached(outcome) is None
        assert outcome.result.exit_line() == "255"
        assert outcome.events == []


def test_help_lists_the_rows(gateway):
    lines = gateway.request(["--help"]).output("stdout").splitlines()
    assert [line.split()[0] for line in lines] == list(ROWS)
