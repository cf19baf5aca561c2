"""The statistics store from Python: duck-typed records, the exchange, two processes on one file."""
import json
import os
import subprocess
import sys

import zerko
from zerko import _Statistics

PACKAGE_ROOT = os.path.dirname(os.path.dirname(zerko.__file__))
EXAMPLES = os.path.join(os.path.dirname(__file__), "..", "..", "examples")
EMPTY = {"validate": [], "checks": [], "exported": [], "feedback_sent": [], "version": 1}

# One process of the pipeline: its own store on the shared file, a write after every record.
WRITER = """
import sys, zerko
sys.path.insert(0, sys.argv[1])
from host_layer import PipelineEnvironment
store = zerko._Statistics(PipelineEnvironment(sys.argv[2]))
for i in range(int(sys.argv[4])):
    store.add(zerko._Statistics.Type.Checks(float(sys.argv[3]) + i, 0.1, "Имя", "pass"))
    store.write()
"""


class Response:
    def __init__(self, status):
        self.status = status


def test_store_records_and_exchange(environment, log):
    Type = _Statistics.Type
    assert [c.key for c in (Type._Record, Type.Validate, Type.Checks, Type.Exported, Type.FeedbackSent)] == [
        "", "validate", "checks", "exported", "feedback_sent"]
    assert list(Type.Validate(1.5, 2, project=None).data.items()) == [("project", None), ("timestamp", 1.5), ("speed", 2.0)]
    store = _Statistics(environment)
    assert store._data == EMPTY and store._path == environment.get_statistics_file()

    class Custom:  # any object with key and data is a record
        key = "feedback_sent"
        data = {"timestamp": 7.0, "note": "ок"}

    class Elsewhere:
        key = "nowhere"
        data = {"timestamp": 8.0}

    store.add(Custom())
    store.add(Elsewhere())
    store.add(Type.Exported())
    store.write()
    with open(store._path, encoding="utf-8") as f:
        on_disk = json.load(f)
    assert on_disk["feedback_sent"] == [{"timestamp": 7.0, "note": "ок"}] and "nowhere" not in on_disk

    request = store.create_http_request("Юля")
    body = json.dumps({"username": "Юля", "contents": store._data}, ensure_ascii=False)
    assert _Statistics.HttpRequest.headers == {"Content-type": "application/json"}
    assert str(request) == body and bytes(request) == body.encode("utf-8") and request.username == "Юля"

    store.accept_http_response(Response(201))
    zerko.Logger._flush()
    log.records.clear()
    store.accept_http_response(object())  # no status: refused, one exception logged
    assert [m.split(":")[0] for m in log.messages()] == ["AttributeError"]
    assert len(store._data["feedback_sent"]) == 1
    store.accept_http_response(Response(200))
    assert store._data == EMPTY
    with open(store._path, encoding="utf-8") as f:
        assert json.load(f) == {}


def test_two_processes_merge_without_duplicates(environment):
    directory = environment.get_settings_directory()
    env = dict(os.environ, PYTHONPATH=PACKAGE_ROOT + os.pathsep + os.environ.get("PYTHONPATH", ""))
    processes = [subprocess.Popen([sys.executable, "-c", WRITER, EXAMPLES, directory, str(offset), "6"], env=env,
                                  stderr=subprocess.PIPE, text=True) for offset in (1000.0, 2000.0)]
    for p in processes:
        _, err = p.communicate(timeout=120)
        assert p.returncode == 0, err
    with open(environment.get_statistics_file(), encoding="utf-8") as f:
        checks = json.load(f)["checks"]
    assert sorted(r["timestamp"] for r in checks) == sorted([1000.0 + i for i in range(6)] + [2000.0 + i for i in range(6)])
    assert all(r["name"] == "Имя" for r in checks)
    assert sorted(os.listdir(directory)) == ["projects", "statistics.json"]


def test_a_file_of_another_kind_is_quarantined_and_writing_resumes(environment, log):
    path = environment.get_statistics_file()
    quarantine = os.path.join(os.path.dirname(path), ".corrupted")
    # Found at start-up, found at writing (another process put it there), and a category of the wrong kind.
    for found_at, text in [("start", "[1, 2]"), ("start", "null"), ("write", "5"), ("write", '{"validate": 3}')]:
        if found_at == "start":
            with open(path, "w", encoding="utf-8") as f:
                f.write(text)
        store = _Statistics(environment)
        if found_at == "write":
            with open(path, "w", encoding="utf-8") as f:
                f.write(text)
        store.add(_Statistics.Type.Validate(1.0, 0.5))
        store.write()
        with open(path, encoding="utf-8") as f:
            assert json.load(f)["validate"] == [{"project": None, "timestamp": 1.0, "speed": 0.5}], text
        os.remove(path)
    assert len(os.listdir(quarantine)) == 4
    assert sum(m.startswith("Read Corrupted Statistics") for m in log.messages(40)) == 4
