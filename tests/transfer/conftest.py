"""What the tests of the transfers share: gateways, and servers that run in them."""

import json
import shutil

import pytest

import beside

START_SERVER = """
cd /opt
PYTHONHOME=/usr ./python3 -B server.py "$1" "$2" &
server=$!
shift 2
while [ ! -e /opt/ready ]; do sleep 0.01; done
/usr/sbin/cpectl "$@"
status=$?
touch answered
wait $server
exit $status
"""


@pytest.fixture(scope="session", name="parts")
def make_parts(tmp_path_factory):
    directory = tmp_path_factory.mktemp("parts")
    return beside.place_of(directory), beside.base_of(directory)


@pytest.fixture(name="office")
def make_office(tmp_path, parts):
    office = beside.Office(tmp_path / "gateway", *parts)
    yield office
    shutil.rmtree(office.gateway.directory)


@pytest.fixture(name="serve")
def make_serve(office):
    """Runs a request while a server of server.py does what a manner of it says; returns what came
    of the request, and the requests that the server got."""
    office.bring_python()
    office.bring(beside.PROJECT / "tests/transfer/server.py")

    def serve(manner, port, *arguments):
        outcome = office.script(START_SERVER, manner, str(port), *arguments)
        path = office.root / "opt/requests"
        lines = path.read_text().splitlines() if path.exists() else []
        return outcome, [json.loads(line) for line in lines]
    return serve
