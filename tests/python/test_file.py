"""Shared JSON files between real processes, and the guard's Python face."""
import json
import os
import signal
import subprocess
import sys
import threading
import time

import pytest

import zerko
from zerko import Error, _File

PACKAGE_ROOT = os.path.dirname(os.path.dirname(zerko.__file__))

# One worker process: read-modify-write increments of one file, each also
# logged with the worker's name and the time it went in.
WORKER = """
import sys, time, zerko
path, name, rounds = sys.argv[1], sys.argv[2], int(sys.argv[3])
timeout, threshold = float(sys.argv[4]), float(sys.argv[5])
for i in range(rounds):
    with zerko._File.Json.AccessQueue(path, write=True, access_timeout=timeout,
                                      life_duration_threshold=threshold) as data:
        data["count"] = data.get("count", 0) + 1
        data.setdefault("log", []).append([f"{name}:{i}", time.time()])
"""

HOLDER = """
import sys, time, zerko
with zerko._File.Json.AccessQueue(sys.argv[1], write=True, access_timeout=4.0, life_duration_threshold=4.0) as data:
    data["held"] = True
    print("holding", flush=True)
    time.sleep(600)
"""


def spawn(script, *args):
    env = dict(os.environ, PYTHONPATH=PACKAGE_ROOT + os.pathsep + os.environ.get("PYTHONPATH", ""))
    return subprocess.Popen([sys.executable, "-c", script, *map(str, args)], env=env,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


def finish(process):
    _, err = process.communicate(timeout=120)
    assert process.returncode == 0, err


def test_files_read_back_identically_in_json(tmp_path):
    data = {"zeta": 1, "имя": "Пётр 😀", "nested": {"b": [1, 2.5, None, True], "a": {}}, "f": 1700000000.123456}
    _File.Json.write(str(tmp_path / "a.json"), data)
    text = (tmp_path / "a.json").read_text(encoding="utf-8")
    assert text == json.dumps(data, indent=2, ensure_ascii=False)
    read = _File.Json.read(tmp_path / "a.json")  # path-like objects are accepted
    assert read == data and list(read) == list(data) and list(read["nested"]) == ["b", "a"]
    (tmp_path / "bad.json").write_text('{"a": ', encoding="utf-8")
    with pytest.raises(json.JSONDecodeError):
        _File.Json.read(str(tmp_path / "bad.json"))
    with pytest.raises(TypeError):  # refused before the file is touched
        _File.Json.write(str(tmp_path / "a.json"), {"a": {1, 2}})
    assert (tmp_path / "a.json").read_text(encoding="utf-8") == text


def test_guard_writes_what_the_body_left_in_the_document(tmp_path):
    path = tmp_path / "t.json"
    q = _File.Json.AccessQueue(str(tmp_path) + "//x/../t.json", write=True)
    assert q._path == str(path) and q._path_lock == q._path + ".lock" and q._path_id.startswith(q._path + ".id.")
    with q as data:
        assert data == {}
        data["ключ"] = ["значение", 1]
    assert json.loads(path.read_text(encoding="utf-8")) == {"ключ": ["значение", 1]}
    with _File.Json.AccessQueue(str(path)) as data:
        data["ignored"] = True  # a reader does not write back
    with pytest.raises(KeyError):
        with _File.Json.AccessQueue(str(path), write=True) as data:
            data["before"] = 1
            raise KeyError("body")  # written all the same, then raised
    with pytest.raises(TypeError):
        with _File.Json.AccessQueue(str(path), write=True) as data:
            data["bad"] = object()
    assert json.loads(path.read_text(encoding="utf-8")) == {"ключ": ["значение", 1], "before": 1}
    assert os.listdir(tmp_path) == ["t.json"]


def test_timeout_raises_its_sentence_in_time_without_holding_the_interpreter(tmp_path):
    lock = tmp_path / "t.json.lock"
    lock.touch()
    ticks, stop = [], threading.Event()

    def tick():
        while not stop.is_set():
            ticks.append(1)
            time.sleep(0.01)

    thread = threading.Thread(target=tick)
    thread.start()
    start = time.monotonic()
    try:
        with pytest.raises(Error.AccessQueueTimeout) as caught:
            with _File.Json.AccessQueue(str(tmp_path / "t.json"), access_timeout=1.0):
                pass
    finally:
        stop.set()
        thread.join()
    assert 1.0 <= time.monotonic() - start < 1.5
    assert str(caught.value) == "Await Time for File Access is Out"
    assert not lock.exists()
    assert len(ticks) > 30


def test_concurrent_writers_lose_no_update(tmp_path):
    """Four processes, 240 increments of one file; about half a minute."""
    path = tmp_path / "shared.json"
    processes, rounds = 4, 60
    for w in [spawn(WORKER, path, f"w{p}", rounds, 30.0, 35.0) for p in range(processes)]:
        finish(w)
    data = json.loads(path.read_text(encoding="utf-8"))
    assert data["count"] == processes * rounds
    assert sorted(entry for entry, _ in data["log"]) == sorted(
        f"w{p}:{i}" for p in range(processes) for i in range(rounds))
    assert os.listdir(tmp_path) == ["shared.json"]


def test_killed_holder_delays_others_until_its_markers_age_out(tmp_path):
    path = tmp_path / "shared.json"
    holder = spawn(HOLDER, path)
    assert holder.stdout.readline().strip() == "holding"
    holder.send_signal(signal.SIGKILL)
    holder.wait()
    markers = sorted(os.listdir(tmp_path))
    assert len(markers) == 2 and markers[0].startswith("shared.json.id.") and markers[1] == "shared.json.lock"
    born = os.path.getmtime(tmp_path / "shared.json.lock")
    # A waiter's budget (4 s) is no longer than the markers' life (4 s): start
    # the workers when the dead markers are 2 s old, so that they have time
    # left for each other once the markers die.
    time.sleep(max(0.0, born + 2.0 - time.time()))
    for w in [spawn(WORKER, path, f"w{p}", 3, 4.0, 4.0) for p in range(3)]:
        finish(w)
    data = json.loads(path.read_text(encoding="utf-8"))
    assert data["count"] == 9 and "held" not in data
    assert 4.0 < min(at for _, at in data["log"]) - born < 5.5  # nobody went in before the markers died
    assert os.listdir(tmp_path) == ["shared.json"]


# ---- Values and files that must not crash, hang or reach the wrong file ----

def isolated(script, *args, timeout=60):
    """Runs `script` in its own interpreter: a crash or a hang there is a failed test here."""
    process = spawn(script, *args)
    try:
        out, err = process.communicate(timeout=timeout)
    except subprocess.TimeoutExpired:
        process.kill()
        process.communicate()
        pytest.fail(f"hung for {timeout} s")
    assert process.returncode == 0, err
    return out


UNWRITABLE = """
import sys, zerko
path = sys.argv[1]
looped = [1]; looped.append(looped)
ring = {"a": {}}; ring["a"]["b"] = ring
deep = []
for _ in range(100000):
    deep = [deep]
writers = {
    "write": lambda v: zerko._File.Json.write(path, v),
    "options": lambda v: zerko.Parameters.Options("fbx", "FBX").load(v),
    "workspace": lambda v: zerko._Settings.Workspace({"project": v}),
}
for name, value in [("loop", looped), ("ring", ring), ("deep", deep)]:
    for where, write in writers.items():
        try:
            write(value)
            print(where, name, "accepted")
        except ValueError as e:
            print(where, name, type(e).__name__, e)
"""


def test_self_containing_or_too_deep_values_are_refused_clearly(tmp_path):
    path = tmp_path / "a.json"
    path.write_text("{}", encoding="utf-8")
    lines = isolated(UNWRITABLE, path).splitlines()
    assert len(lines) == 9
    for line in lines:
        where, name, verdict = line.split(" ", 2)
        if name == "deep":
            assert verdict.startswith("ValueError JSON value nested deeper than 512 levels"), line
        else:
            assert verdict == "ValueError Circular reference detected", line
    assert path.read_text(encoding="utf-8") == "{}"
    # The limit itself is allowed.
    nested = []
    for _ in range(511):
        nested = [nested]
    _File.Json.write(str(path), nested)
    assert json.loads(path.read_text(encoding="utf-8")) == nested


DEEP_FILES = """
import sys, zerko
sys.path.insert(0, sys.argv[1])
from host_layer import MemoryScene, PipelineEnvironment
environment = PipelineEnvironment(sys.argv[2])
try:
    zerko._File.Json.read(sys.argv[3])
except ValueError as e:
    print("read", type(e).__name__)
api = zerko.Api(MemoryScene({}), environment)
print("settings", api.settings.data["version"])
print("projects", zerko._Project.Collection(api, environment.target).names)
"""


def test_deeply_nested_files_are_quarantined_like_any_corrupt_file(tmp_path):
    examples = os.path.join(os.path.dirname(__file__), "..", "..", "examples")
    settings = tmp_path / "settings"
    (settings / "projects").mkdir(parents=True)
    deep = "[" * 100000 + "]" * 100000
    for name in ["settings.json", "statistics.json", "projects/deep.json"]:
        (settings / name).write_text(deep, encoding="utf-8")
    (tmp_path / "read.json").write_text("[" * 30000 + "]" * 30000, encoding="utf-8")
    out = isolated(DEEP_FILES, examples, settings, tmp_path / "read.json").splitlines()
    assert out == ["read JSONDecodeError", "settings 4", "projects []"]
    assert len(os.listdir(settings / ".corrupted")) == 2
    assert len(os.listdir(settings / "projects" / ".corrupted")) == 1


def test_paths_with_a_null_character_are_refused_before_anything_is_touched(tmp_path, log):
    good = tmp_path / "a.json"
    good.write_text('{"kept": true}', encoding="utf-8")
    base = str(good)
    start = time.monotonic()
    for bad in [base + "\0.bak", base + "\0", str(tmp_path) + "/\0a.json"]:
        with pytest.raises(ValueError, match="embedded null character"):
            with _File.Json.AccessQueue(bad, write=True, access_timeout=1.0) as data:
                data["lost"] = True
        with pytest.raises(ValueError, match="embedded null character"):
            _File.Json.write(bad, {})
        with pytest.raises(ValueError, match="embedded null character"):
            _File.Json.read(bad)
        with pytest.raises(ValueError, match="embedded null character"):
            _File.Text.read(bad)
        _File.move_corrupted(bad)  # never raises; logs
    assert time.monotonic() - start < 0.5
    assert os.listdir(tmp_path) == ["a.json"] and good.read_text(encoding="utf-8") == '{"kept": true}'
    assert sum("embedded null character" in m for m in log.messages(40)) == 3


def test_targets_whose_names_hold_pattern_characters_find_their_own_tickets(tmp_path):
    for name in ["Rocks (copy).json", "c++.json", "a[1].json", "weird(.json", "x$^|?*.json"]:
        path = tmp_path / name
        for round in range(2):
            with _File.Json.AccessQueue(str(path), write=True, access_timeout=1.0) as data:
                data["n"] = round
        assert json.loads(path.read_text(encoding="utf-8")) == {"n": 1}
    assert sorted(os.listdir(tmp_path)) == sorted(
        ["Rocks (copy).json", "c++.json", "a[1].json", "weird(.json", "x$^|?*.json"])


def test_quarantine_keeps_every_file_moved_within_one_second(tmp_path):
    for text in ["{1", "{2", "{3"]:
        (tmp_path / "p.json").write_text(text, encoding="utf-8")
        _File.move_corrupted(str(tmp_path / "p.json"))
    quarantine = tmp_path / ".corrupted"
    kept = sorted((quarantine / name).read_text(encoding="utf-8") for name in os.listdir(quarantine))
    assert kept == ["{1", "{2", "{3"]
