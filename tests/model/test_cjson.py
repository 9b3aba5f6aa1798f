"""The model's reading and printing of JSON against the installed library, on random texts."""

import ctypes
import ctypes.util
import random

import pytest

import cjson

PIECES = [b"{", b"}", b"[", b"]", b",", b":", b'"', b'"a"', b'"b"', b"\\", b"\\u", b"00e9",
          b"\\u0041", b"\\ud83d", b"\\ude00", b"\\uzzzz", b"\\u0000", b"null", b"nul", b"true",
          b"false", b"1", b"-", b"0x1", b"1e5", b"1e", b".", b"1.5", b"+", b" ", b"\n", b"\x01",
          b"\xef\xbb\xbf", b"\xff", b"\x7f", b"\\n", b'\\"', b'"k":', b"12345678901234567890",
          b"1e999", b"-0", b"1" * 70, b"inf", b"/"]


@pytest.fixture(scope="module")
def library():
    name = ctypes.util.find_library("cjson")
    if not name:
        pytest.skip("libcjson is not installed")
    loaded = ctypes.CDLL(name)
    for function, result, arguments in (
            (loaded.cJSON_Parse, ctypes.c_void_p, [ctypes.c_char_p]),
            (loaded.cJSON_PrintUnformatted, ctypes.c_void_p, [ctypes.c_void_p]),
            (loaded.cJSON_CreateNumber, ctypes.c_void_p, [ctypes.c_double]),
            (loaded.cJSON_Delete, None, [ctypes.c_void_p]),
            (loaded.cJSON_free, None, [ctypes.c_void_p])):
        function.restype, function.argtypes = result, arguments
    return loaded


def printed(library, item):
    text = library.cJSON_PrintUnformatted(item)
    result = ctypes.string_at(text)
    library.cJSON_free(text)
    library.cJSON_Delete(item)
    return result


def both(library, text):
    item = library.cJSON_Parse(text)
    theirs = printed(library, item) if item else None
    try:
        ours = cjson.print_unformatted(cjson.parse(text))
    except cjson.Refused:
        ours = None
    return theirs, ours


def test_random_texts(library):
    rng = random.Random(8)
    read = 0
    for _ in range(20000):
        text = b"".join(rng.choice(PIECES) for _ in range(rng.randint(0, 9)))
        text = rng.choice([b"%s", b'{"a":%s}', b'["%s"]']) % text
        theirs, ours = both(library, text)
        assert ours == theirs, text
        read += theirs is not None
    assert read > 2000


def test_nesting(library):
    for depth in (999, 1000, 1001):
        theirs, ours = both(library, b"[" * depth + b"]" * depth)
        assert ours == theirs and (ours is None) == (depth > 1000)


def test_random_numbers(library):
    rng = random.Random(8)
    for _ in range(5000):
        number = rng.choice([
            rng.uniform(-1e3, 1e3), float(rng.randint(0, 2 ** 64)), rng.randint(0, 2 ** 32) / 1024,
            cjson.float32(rng.uniform(0, 100)), rng.random() * 10.0 ** rng.randint(-300, 300),
            0.0, -0.0, float("inf"), float("nan"), 2147483647.0, 2147483648.0, -2147483648.0])
        ours = cjson.print_unformatted(number)
        assert ours == printed(library, library.cJSON_CreateNumber(number)), number
