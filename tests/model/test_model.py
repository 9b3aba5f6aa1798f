"""Random requests in random worlds: the program and the model have to agree on everything.

The long form is tools/harden/model.py. MODEL_EXAMPLES sets the number of requests per command;
the same ones come each time, so that a failure here is never a matter of luck.
"""

import os

import pytest
from hypothesis import HealthCheck, given, settings

import against
import generate
import model
from cpectl_sim import GatewayError
from world import World

EXAMPLES = int(os.environ.get("MODEL_EXAMPLES", "3"))
SLOW = (b"getCpuMemLoad", b"checkOta")  # they wait, by design, for a good part of a second

quiet = {"database": None, "deadline": None, "derandomize": True,
         "suppress_health_check": list(HealthCheck)}


@pytest.fixture(scope="module")
def rig(tmp_path_factory):
    try:
        return against.Rig(tmp_path_factory.mktemp("gateway"))
    except GatewayError as error:
        pytest.skip(str(error))


@pytest.mark.parametrize("command", [name for name, _, _ in model.COMMANDS], ids=bytes.decode)
def test_command(rig, command):
    count = max(EXAMPLES // 5, 2) if command in SLOW else EXAMPLES

    @settings(max_examples=count, **quiet)
    @given(generate.cases(command))
    def agree(case):
        against.check(rig, *case)

    agree()


def test_stray_arguments(rig):
    @settings(max_examples=EXAMPLES, **quiet)
    @given(generate.strays)
    def agree(arguments):
        against.check(rig, World(), arguments)

    agree()
