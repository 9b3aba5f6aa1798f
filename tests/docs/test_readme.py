"""What the README shows is what comes of it, and what it and the other texts link to is there."""

import re
import shlex
import subprocess

import pytest

TEXTS = ["README.md", "CONTRIBUTING.md", "contract/README.md", "docs/*.md", "docs/reference.html",
         "gateway/*.md", "substitutes/*.md", "package/openwrt/cpectl/README.md"]


def sessions(text):
    """Each request of the README as (words behind "./dev run", what is shown of it)."""
    for request, shown in re.findall(r"^    \$ \./dev run (.*)\n((?:    [^$\n].*\n)*)", text,
                                     re.MULTILINE):
        yield shlex.split(request), re.sub(r"^    ", "", shown, flags=re.MULTILINE)


def comparable(text):
    """Rates and totals differ from run to run, and with them the order of the hosts."""
    text = re.sub(r"(_(rate|total)\":)[\d.e+-]+", r"\1N", text)
    hosts = ",".join(sorted(re.findall(r'\{"ip":[^}]*\}', text)))
    return re.sub(r'\{"ip":.*\}(?=\])', lambda _: hosts, text)


@pytest.mark.timing
def test_the_session_is_real(project, tmp_path):
    """Its requests, one after the other on one gateway."""
    shown = list(sessions((project / "README.md").read_text("utf-8")))
    assert len(shown) >= 5
    for words, expected in shown:
        done = subprocess.run([project / "gateway/cpectl-sim", "--state", tmp_path / "state",
                               *words], capture_output=True, text=True, check=False)
        if done.returncode == 125:
            pytest.skip(f"no emulated gateway can be run here: {done.stderr.strip()}")
        assert comparable(done.stdout) == comparable(expected), words


def links(path):
    text = path.read_text("utf-8")
    pattern = r'href="([^"#]+)' if path.suffix == ".html" else r"(?:\]\(|`man -l )([^)#\s`]+)"
    return [target for target in re.findall(pattern, text) if "://" not in target]


def test_links_lead_somewhere(project):
    paths = [path for pattern in TEXTS for path in project.glob(pattern)]
    lost = [f"{path.relative_to(project)}: {target}" for path in paths for target in links(path)
            if not (path.parent / target).exists()]
    assert sum(len(links(path)) for path in paths) > 50
    assert not lost, "\n".join(lost)
