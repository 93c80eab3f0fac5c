"""Shared fixtures of the Python package's tests: the bundled sample export, the velk tool built
beside the package (VELK_TOOL), and a private state file per test."""

import json
import os
import pathlib
import subprocess

import pytest

SOURCE = pathlib.Path(os.environ.get("VELK_SOURCE_DIR", pathlib.Path(__file__).parents[2]))
SAMPLE = SOURCE / "data" / "sample" / "watch5-2020" / "export.xml"
SAMPLE_ZONE = "Africa/Johannesburg"
#: A fixed clock, so that the tool and the package see the same "now".
NOW = "2020-04-20T12:00"


@pytest.fixture(autouse=True)
def private_state(tmp_path, monkeypatch):
    """No test touches the user's own state file."""
    monkeypatch.setenv("XDG_STATE_HOME", str(tmp_path / "xdg-state"))


@pytest.fixture(scope="module")
def sample_device(tmp_path_factory):
    """The bundled sample export, read once per test file, with the tool's settings below."""
    import velk

    state = tmp_path_factory.mktemp("state") / "defaults.sqlite"
    with velk.Device(export=SAMPLE, tz=SAMPLE_ZONE, language="en", now=NOW,
                     state=state) as device:
        yield device


@pytest.fixture
def tool(tmp_path):
    """Runs the velk tool with its own state file; returns the JSON lines it printed."""
    executable = os.environ.get("VELK_TOOL")
    if not executable:
        pytest.skip("VELK_TOOL is not set (ctest sets it)")

    def run(*arguments):
        done = subprocess.run(
            [executable, "--state", str(tmp_path / "tool-state.sqlite"), "--language", "en",
             *arguments], capture_output=True, check=True)
        return [json.loads(line) for line in done.stdout.decode("utf-8").splitlines()]

    return run


def write_store(path, content):
    """A JSON store file with `content`; returns its path as text."""
    path.write_text(json.dumps(content), encoding="utf-8")
    return str(path)
