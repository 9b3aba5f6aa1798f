"""The format of case files: what is understood, and what is refused with which words."""

import pytest
from cpectl_sim import case, text

WHOLE = """\
# The first line
# and the second.
[nvram]   HOSTNAME=office
          OTHER=a=b

[file /etc/x y="1"]
    first
      indented

    after an empty line
[run]     devNmSet {"devNm":"a  b"}
[stdout]  {"fun":"devNmSet"}
[exit]    0
[file /tmp/x after raw] "\\udcff"

[nvram]   HOSTNAME=home
[reboot]
[argv]
    setAdmPass
    "{}\\n"
[stdout]
[exit]    255
"""


def test_a_whole_case():
    found = case.parse(WHOLE.replace(' y="1"', ""))
    case.check(found)
    assert found.comment == "The first line and the second."
    first, second = found.steps
    assert [(section.name, section.lines) for section in first.world] == [
        ("nvram", ["HOSTNAME=office", "OTHER=a=b"]),
        ("file", ["first", "  indented", "", "after an empty line"])]
    assert first.arguments == ["devNmSet", '{"devNm":"a  b"}']
    assert [section.title() for section in first.expected] == [
        "[stdout]", "[exit]", "[file /tmp/x after raw]"]
    assert first.expected[2].raw() == "\udcff"
    assert not first.reboot and second.reboot
    assert second.world[0].lines == ["HOSTNAME=home"]
    assert second.arguments == ["setAdmPass", "{}\n"]
    assert second.expected[0].lines == []


@pytest.mark.parametrize("content, arguments", [
    ("[run] getAdmPass", ["getAdmPass"]),
    ("[run] getAdmPass  x", ["getAdmPass", " x"]),
    ("[run] a {{x*3}}", ["a", "xxx"]),
    ("[run] a {{ab *2}}", None),  # blanks at the end are no matter of taste
    ("[argv]", []),
    ('[argv] ""', [""]),
    ("[argv]\n  a b\n  c", ["a b", "c"]),
    ('[run-json] ["a", "\\udcc3\\udca9"]', ["a", "\u00e9"]),
])
def test_requests(content, arguments):
    found = case.parse(content).steps[0].arguments
    assert found == (arguments if arguments is not None else ["a", "ab ab "])


@pytest.mark.parametrize("content, complaint", [
    ("[bogus] x", "line 1: [bogus]: no such section"),
    ("[nvram] A=b \n", "line 1: blanks at the end"),
    ("text", "line 1: content is indented"),
    ("  text", "line 1: content is indented"),
    ("[nvram]\n\tA=b", "line 2: content is indented with blanks"),
    ("[nvram]\n    A=b\n  C=d", "line 3: indented less"),
    ("[]", "line 1: a section starts with [name ...]"),
    ("[nvram", "line 1: a section starts with [name ...]"),
    ("[stdout] x", "line 1: [stdout]: stands before any request"),
    ("[nvram after] x", "line 1: [nvram after]: stands before any request"),
    ("[run] a\n[stdout] x\n[nvra] y", "line 3: [nvra]: no such section"),
    ('[run-json] "a"', "line 1: [run-json]: needs a JSON array of strings"),
    ("[run]", "line 1: [run]: needs one line"),
])
def test_mistakes(content, complaint):
    with pytest.raises(case.CaseError) as failure:
        case.parse(content)
    assert str(failure.value).startswith(complaint)


@pytest.mark.parametrize("content, complaint", [
    ("[nvram] A=b", "a case needs a request"),
    ("[run] a\n[stdout]\n[exit] 0\n[nvram] A=b", "a case needs a request"),
    ("[run] a\n[exit] 0", "needs [stdout] and [exit]"),
    ("[run] a\n[stdout]", "needs [stdout] and [exit]"),
])
def test_cases_that_say_too_little(content, complaint):
    with pytest.raises(case.CaseError, match=complaint.replace("[", r"\[")):
        case.check(case.parse(content))


def test_a_mistake_names_the_file(tmp_path):
    (tmp_path / "wrong").write_text("[bogus]")
    with pytest.raises(case.CaseError, match="wrong: line 1"):
        case.load(tmp_path / "wrong")


@pytest.mark.parametrize("plain, written", [
    ("word", "word"), ("it's", "it's"), ("\u20ac", "\u20ac"), ("", '""'), ("a b", '"a b"'),
    ('"', '"\\""'), ("\n", '"\\n"'), ("\udcff", '"\\udcff"'), ("\x7f", '"\\u007f"'),
    ("a\u00a0b", '"a\u00a0b"'), ("\\", "\\"),
])
def test_words(plain, written):
    assert text.word_written(plain) == written
    assert text.words(f"{written}  x") == [plain, "x"]


@pytest.mark.parametrize("line", ['"a"b', '"open', 'a "b"c'])
def test_wrong_words(line):
    with pytest.raises(ValueError):
        text.words(line)


def test_long_runs_are_written_short():
    long = "a" * 1000 + "b" * 63
    assert text.shorten(long) == "{{a*1000}}" + "b" * 63
    assert text.expand(text.shorten(long)) == long
