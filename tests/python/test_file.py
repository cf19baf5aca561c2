"""Shared JSON files between real processes, the guard's Python face, and the file utilities."""
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

# One worker process: `rounds` read-modify-write increments of one file, each
# also recording the worker's id, so that a lost update is seen twice over.
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
with zerko._File.Json.AccessQueue(sys.argv[1], write=True, access_timeout=4.0,
                                  life_duration_threshold=4.0) as data:
    data["held"] = True
    print("holding", flush=True)
    time.sleep(600)
"""


def spawn(script, *args):
    env = dict(os.environ, PYTHONPATH=PACKAGE_ROOT + os.pathsep + os.environ.get("PYTHONPATH", ""))
    return subprocess.Popen([sys.executable, "-c", script, *map(str, args)], env=env,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


def finish(process, timeout=120):
    out, err = process.communicate(timeout=timeout)
    assert process.returncode == 0, err
    return out


class TestJsonFiles:
    def test_written_text_is_what_json_writes(self, tmp_path):
        data = {"zeta": 1, "имя": "Пётр 😀", "nested": {"b": [1, 2.5, None, True], "a": {}}, "f": 1700000000.123456}
        path = tmp_path / "a.json"
        _File.Json.write(str(path), data)
        text = path.read_text(encoding="utf-8")
        assert text == json.dumps(data, indent=2, ensure_ascii=False)
        back = json.loads(text)
        assert back == data and list(back) == list(data)
        read = _File.Json.read(path)  # path-like objects are accepted
        assert read == data and list(read) == list(data) and list(read["nested"]) == ["b", "a"]

    def test_failures_have_python_types(self, tmp_path):
        with pytest.raises(FileNotFoundError):
            _File.Json.read(str(tmp_path / "missing.json"))
        (tmp_path / "bad.json").write_text('{"a": ', encoding="utf-8")
        with pytest.raises(json.JSONDecodeError):
            _File.Json.read(str(tmp_path / "bad.json"))
        # A value JSON cannot hold fails before the file is touched.
        (tmp_path / "keep.json").write_text("[1]", encoding="utf-8")
        with pytest.raises(TypeError):
            _File.Json.write(str(tmp_path / "keep.json"), {"a": {1, 2}})
        assert (tmp_path / "keep.json").read_text() == "[1]"

    def test_utilities(self, tmp_path, log):
        name = _File.timed_filename("project.json")
        stem, stamp_ext = name.split("-")
        assert stem == "project" and stamp_ext.endswith(".json")
        assert abs(int(stamp_ext[:-5]) - time.time()) < 3
        assert _File.timed_filename("README").startswith("README-")
        (tmp_path / "t.txt").write_bytes("один\r\ntwo\n".encode())
        assert _File.Text.read(str(tmp_path / "t.txt")) == "один\ntwo\n"

        (tmp_path / "p.json").write_text("{", encoding="utf-8")
        _File.move_corrupted(str(tmp_path / "p.json"))
        moved = os.listdir(tmp_path / ".corrupted")
        assert len(moved) == 1 and moved[0].startswith("p-") and not (tmp_path / "p.json").exists()
        _File.move_corrupted(str(tmp_path / "gone.json"))
        _File.move_corrupted(None)
        assert any(m.startswith("FileNotFoundError: ") for m in log.messages())


class TestGuardInPython:
    def test_attributes(self, tmp_path):
        q = _File.Json.AccessQueue(str(tmp_path) + "//x/../t.json", access_timeout=60.0)
        assert q._path == str(tmp_path / "t.json")
        assert q._directory == str(tmp_path) and q._filename == "t.json"
        assert q._path_lock == q._path + ".lock"
        ticket = q._path_id[len(q._path + ".id."):]
        assert ticket.isdigit() and int(ticket) < 10**9 and str(int(ticket)) == ticket
        assert q._write is False and q._access_timeout == 60.0 and q._life_duration_threshold == 60.0
        assert os.listdir(tmp_path) == []

    def test_mutations_of_the_entered_document_are_written(self, tmp_path):
        path = tmp_path / "t.json"
        with _File.Json.AccessQueue(str(path), write=True) as data:
            assert data == {}
            data["ключ"] = ["значение", 1]
            data["z"] = {"b": 1, "a": 2}
        assert json.loads(path.read_text(encoding="utf-8")) == {"ключ": ["значение", 1], "z": {"b": 1, "a": 2}}
        with _File.Json.AccessQueue(str(path)) as data:
            data["ignored"] = True  # a reader does not write back
        assert "ignored" not in json.loads(path.read_text(encoding="utf-8"))
        assert os.listdir(tmp_path) == ["t.json"]

    def test_errors_inside_and_at_the_write(self, tmp_path):
        path = tmp_path / "t.json"
        with pytest.raises(KeyError):
            with _File.Json.AccessQueue(str(path), write=True) as data:
                data["before"] = 1
                raise KeyError("body")
        assert json.loads(path.read_text()) == {"before": 1}
        with pytest.raises(TypeError):
            with _File.Json.AccessQueue(str(path), write=True) as data:
                data["bad"] = object()
        assert json.loads(path.read_text()) == {"before": 1}
        assert os.listdir(tmp_path) == ["t.json"]
        with pytest.raises(FileNotFoundError):
            with _File.Json.AccessQueue(str(tmp_path / "none" / "t.json")):
                pass

    def test_timeout_raises_its_sentence_in_time(self, tmp_path):
        lock = tmp_path / "t.json.lock"
        lock.touch()
        start = time.monotonic()
        with pytest.raises(Error.AccessQueueTimeout) as caught:
            with _File.Json.AccessQueue(str(tmp_path / "t.json"), access_timeout=1.0):
                pass
        assert 1.0 <= time.monotonic() - start < 1.5
        assert str(caught.value) == "Await Time for File Access is Out"
        assert not lock.exists()

    def test_waiting_releases_the_interpreter(self, tmp_path):
        (tmp_path / "t.json.lock").touch()
        ticks = []
        stop = threading.Event()

        def tick():
            while not stop.is_set():
                ticks.append(1)
                time.sleep(0.01)

        thread = threading.Thread(target=tick)
        thread.start()
        try:
            with pytest.raises(Error.AccessQueueTimeout):
                with _File.Json.AccessQueue(str(tmp_path / "t.json"), access_timeout=1.0):
                    pass
        finally:
            stop.set()
            thread.join()
        assert len(ticks) > 30


class TestProcesses:
    def test_concurrent_writers_lose_no_update(self, tmp_path):
        """Four processes, 240 increments of one file; takes about half a minute."""
        path = tmp_path / "shared.json"
        processes, rounds = 4, 60
        workers = [spawn(WORKER, path, f"w{p}", rounds, 30.0, 35.0) for p in range(processes)]
        for w in workers:
            finish(w)
        data = json.loads(path.read_text(encoding="utf-8"))
        assert data["count"] == processes * rounds
        assert sorted(entry for entry, _ in data["log"]) == sorted(f"w{p}:{i}" for p in range(processes) for i in range(rounds))
        assert os.listdir(tmp_path) == ["shared.json"]

    def test_killed_holder_delays_others_until_its_markers_age_out(self, tmp_path):
        path = tmp_path / "shared.json"
        holder = spawn(HOLDER, path)
        assert holder.stdout.readline().strip() == "holding"
        holder.send_signal(signal.SIGKILL)
        holder.wait()
        markers = sorted(os.listdir(tmp_path))
        assert len(markers) == 2 and markers[0].startswith("shared.json.id.") and markers[1] == "shared.json.lock"
        born = os.path.getmtime(tmp_path / "shared.json.lock")
        # A waiter's budget (4 s) is no longer than the markers' life (4 s): start
        # the workers once the dead markers are 2 s old, so that they have slack
        # left for each other after the markers die.
        time.sleep(max(0.0, born + 2.0 - time.time()))

        workers = [spawn(WORKER, path, f"w{p}", 3, 4.0, 4.0) for p in range(3)]
        for w in workers:
            finish(w)
        data = json.loads(path.read_text(encoding="utf-8"))
        assert data["count"] == 9 and "held" not in data
        first_entry = min(at for _, at in data["log"])
        assert 4.0 < first_entry - born < 5.5  # nobody went in before the markers were dead
        assert os.listdir(tmp_path) == ["shared.json"]
