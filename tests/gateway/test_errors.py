"""Machines that lack what the gateway needs are told so in one line that says what to do."""

import shutil

import pytest
from cpectl_sim import GatewayError, base, cli, places


def fake_bwrap(tmp_path, monkeypatch, says):
    """A bwrap that only complains, as the real one does where it is not allowed."""
    tool = tmp_path / "bwrap"
    tool.write_text(f"#!/bin/sh\necho '{says}' >&2\nexit 1\n")
    tool.chmod(0o755)
    real = base.host_tool
    monkeypatch.setattr(base, "host_tool",
                        lambda name: str(tool) if name == "bwrap" else real(name))


@pytest.mark.parametrize("complaint", [
    "bwrap: No permissions to create new namespace, likely because the kernel does not allow it",
    "bwrap: setting up uid map: Permission denied",
    "bwrap: Creating new namespace failed: Operation not permitted",
])
def test_forbidden_namespaces(gateway, tmp_path, monkeypatch, complaint):
    fake_bwrap(tmp_path, monkeypatch, complaint)
    with pytest.raises(GatewayError) as failure:
        gateway.request(["getAdmPass"])
    said = str(failure.value)
    assert complaint.removeprefix("bwrap: ") in said
    assert "run it as root, or allow them with 'sysctl -w" in said
    assert "\n" not in said


@pytest.mark.parametrize("tool, package", [
    ("bwrap", "bubblewrap"), ("busybox", "busybox-static"), ("ip", "iproute2"), ("curl", "curl")])
def test_missing_tools(monkeypatch, tool, package):
    monkeypatch.setattr(shutil, "which", lambda name, path: None)
    with pytest.raises(GatewayError, match=f"{tool} is missing: .*'apt-get install {package}'"):
        base.host_tool(tool)


def test_missing_build(monkeypatch, tmp_path):
    monkeypatch.setattr(places, "PROJECT", tmp_path)
    with pytest.raises(GatewayError, match="build first with './dev build'"):
        places.find()


def test_the_command_line_prints_one_line(monkeypatch, tmp_path, capfd):
    fake_bwrap(tmp_path, monkeypatch, "bwrap: not here")
    assert cli.main(["--state", str(tmp_path / "state"), "getAdmPass"]) == 125
    out, err = capfd.readouterr()
    assert out == "" and err.count("\n") == 1
    assert err.startswith("cpectl-sim: this user may not make the namespaces")


def test_an_unwritable_state(monkeypatch, tmp_path, capfd):
    def refuse(*_arguments, **_named):
        raise PermissionError(13, "Permission denied", "/state")
    monkeypatch.setattr(base, "ensure", refuse)
    assert cli.main(["--state", str(tmp_path / "state"), "getAdmPass"]) == 125
    assert capfd.readouterr().err == (
        "cpectl-sim: /state: no permission: choose another directory with --state DIR\n")
