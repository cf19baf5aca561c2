"""The statistics store from Python: records, merging across processes, the exchange messages."""
import json
import os
import subprocess
import sys

import pytest

import zerko
from zerko import _Statistics

PACKAGE_ROOT = os.path.dirname(os.path.dirname(zerko.__file__))

# One process of the pipeline: its own store on the shared file, a record and
# a write at a time, each record stamped with the process's own timestamps.
WRITER = """
import sys, zerko
sys.path.insert(0, sys.argv[1])
from host_layer import PipelineEnvironment
store = zerko._Statistics(PipelineEnvironment(sys.argv[2]))
offset = float(sys.argv[3])
for i in range(int(sys.argv[4])):
    store.add(zerko._Statistics.Type.Validate(offset + i, 0.5, project="p.json"))
    store.add(zerko._Statistics.Type.Checks(offset + i, 0.1, "Имя", "pass"))
    store.write()
"""

EXAMPLES = os.path.join(os.path.dirname(__file__), "..", "..", "examples")


class Response:
    def __init__(self, status):
        self.status = status


def stamps(records):
    return [r["timestamp"] for r in records]


def test_records_and_their_keys():
    Type = _Statistics.Type
    assert [c.key for c in (Type._Record, Type.Validate, Type.Checks, Type.Exported, Type.FeedbackSent)] == [
        "", "validate", "checks", "exported", "feedback_sent"]
    assert list(Type.Validate(1.5, 2, project=None).data.items()) == [("project", None), ("timestamp", 1.5), ("speed", 2.0)]
    assert list(Type.Checks(1, 2, "n", zerko.Constants.Check.Result.Fail).data) == ["name", "result", "timestamp", "speed"]
    exported = Type.Exported()
    assert isinstance(exported, Type._Record) and list(exported.data) == ["timestamp"]


def test_store_in_python(environment, log):
    store = _Statistics(environment)
    assert _Statistics.version == 1
    assert store._data == {"validate": [], "checks": [], "exported": [], "feedback_sent": [], "version": 1}
    assert store._path == environment.get_statistics_file()

    class Custom:  # any object with key and data is a record
        key = "feedback_sent"
        data = {"timestamp": 7.0, "note": "ок"}

    class Elsewhere:
        key = "nowhere"
        data = {"timestamp": 8.0}

    store.add(Custom())
    store.add(Elsewhere())
    store.add(_Statistics.Type.Exported())
    store.write()
    with open(store._path, encoding="utf-8") as f:
        on_disk = json.load(f)
    assert on_disk["feedback_sent"] == [{"timestamp": 7.0, "note": "ок"}]
    assert len(on_disk["exported"]) == 1 and "nowhere" not in on_disk

    request = store.create_http_request("Юля")
    assert _Statistics.HttpRequest.headers == {"Content-type": "application/json"}
    assert request.username == "Юля" and request.contents == store._data
    body = {"username": "Юля", "contents": store._data}
    assert str(request) == json.dumps(body, ensure_ascii=False)
    assert bytes(request) == json.dumps(body, ensure_ascii=False).encode("utf-8")

    store.accept_http_response(Response(201))
    store.accept_http_response(Response(200), clear=False)
    assert len(store._data["feedback_sent"]) == 1
    zerko.Logger._flush()
    log.records.clear()
    store.accept_http_response(object())  # no status: refused, one exception logged
    assert [m for m in log.messages() if m.startswith("AttributeError")] and len(log.messages()) == 1
    store.accept_http_response(Response(200))
    assert store._data == {"validate": [], "checks": [], "exported": [], "feedback_sent": [], "version": 1}
    with open(store._path, encoding="utf-8") as f:
        assert json.load(f) == {}


def test_corrupted_file_is_moved_and_replaced(environment, log):
    path = environment.get_statistics_file()
    with open(path, "w", encoding="utf-8") as f:
        f.write('{"validate": [')
    store = _Statistics(environment)
    assert store._data["validate"] == []
    assert f"Read Corrupted Statistics: {path}" in log.messages()
    assert not os.path.exists(path)
    assert len(os.listdir(os.path.join(os.path.dirname(path), ".corrupted"))) == 1


def test_two_processes_merge_without_duplicates(environment):
    directory = environment.get_settings_directory()
    env = dict(os.environ, PYTHONPATH=PACKAGE_ROOT + os.pathsep + os.environ.get("PYTHONPATH", ""))
    processes = [subprocess.Popen([sys.executable, "-c", WRITER, EXAMPLES, directory, str(offset), "6"], env=env,
                                  stderr=subprocess.PIPE, text=True)
                 for offset in (1000.0, 2000.0)]
    for p in processes:
        _, err = p.communicate(timeout=120)
        assert p.returncode == 0, err
    with open(environment.get_statistics_file(), encoding="utf-8") as f:
        data = json.load(f)
    expected = sorted([1000.0 + i for i in range(6)] + [2000.0 + i for i in range(6)])
    assert sorted(stamps(data["validate"])) == expected
    assert sorted(stamps(data["checks"])) == expected
    assert all(r["name"] == "Имя" for r in data["checks"])
    assert sorted(os.listdir(directory)) == ["projects", "statistics.json"]
