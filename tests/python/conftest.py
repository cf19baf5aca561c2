import importlib.util
import logging
import os
import sys

import subprocess
import textwrap

import pytest

import zerko

# Report what the library leaves alive when the test run ends.
zerko._core._set_leak_warnings(True)

EXAMPLES = os.path.join(os.path.dirname(__file__), "..", "..", "examples")


def _load_host_layer():
    spec = importlib.util.spec_from_file_location("host_layer", os.path.join(EXAMPLES, "host_layer.py"))
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


host_layer = _load_host_layer()


def run_script(script, *args, timeout=30):
    """Runs `script` in a fresh interpreter: a hang or a crash fails the test instead of the suite."""
    try:
        return subprocess.run([sys.executable, "-c", textwrap.dedent(script), *map(str, args)], timeout=timeout,
                              capture_output=True, text=True)
    except subprocess.TimeoutExpired:
        pytest.fail("the interpreter hung")


@pytest.fixture
def scene():
    """The bundled example scene behind the example host layer's operator."""
    import json

    with open(os.path.join(EXAMPLES, "scene.json"), encoding="utf-8") as f:
        return host_layer.MemoryScene(json.load(f))


@pytest.fixture
def environment(tmp_path):
    return host_layer.PipelineEnvironment(str(tmp_path / "settings"))


class Records(logging.Handler):
    def __init__(self):
        super().__init__(level=logging.DEBUG)
        self.records = []

    def emit(self, record):
        self.records.append(record)

    def messages(self, level=None):
        zerko.Logger._flush()
        return [r.getMessage() for r in self.records if level is None or r.levelno == level]


@pytest.fixture
def log():
    """Everything the library logs to the root logger during the test."""
    handler = Records()
    root = logging.getLogger()
    old_level = root.level
    root.addHandler(handler)
    root.setLevel(logging.DEBUG)
    zerko.Logger._flush()
    handler.records.clear()
    yield handler
    zerko.Logger._flush()
    root.removeHandler(handler)
    root.setLevel(old_level)
