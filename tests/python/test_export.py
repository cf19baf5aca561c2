"""Export flags, queue and exporter options from Python, with exporters written in Python."""
import pytest

import zerko

P = zerko.Parameters
E = zerko._Export
Status = zerko.Constants.Plugin.Status


class FbxOptions(P.Options):
    """An exporter as a host layer writes one: a subclass that keeps its own record of loads."""

    def __init__(self):
        super().__init__("fbx", "FBX", "Film box", [P.Switch("embed"), P.IntRange("version", value=2020)])
        self.loaded = []

    def load(self, data):
        self.loaded.append(data)
        super().load(data)


def test_flags_round_trip_and_missing_keys_turn_off():
    flags = E.Flags()
    flags.triangulate = True
    flags.version_control = True
    assert list(flags.data) == ["automatic_uv", "triangulate", "reset_xforms", "version_control"]
    flags.load({"automatic_uv": True})
    assert flags.data == {"automatic_uv": True, "triangulate": False, "reset_xforms": False, "version_control": False}
    with pytest.raises(TypeError):
        flags.triangulate = 1


def test_queue_tasks():
    queue = E.Queue()
    task = E.Queue.Task("chair")
    assert task.is_empty() and task.is_confirmed() is Status.Failure
    task.add("|chair", "|chair_lod1")
    task.confirm()
    assert task.roots == ["|chair", "|chair_lod1"] and task.is_confirmed() is Status.Success
    queue.add(task)
    queue.add(E.Queue.Task("table"))
    assert [t.name for t in queue] == ["chair", "table"] and len(queue) == 2
    assert next(iter(queue)) is task
    held = queue._tasks
    assert held == [task, queue._tasks[1]] and queue._tasks is held
    queue.clear()
    assert queue.is_empty() and list(queue) == []
    assert held == []  # emptied in place, not replaced


def test_options_keep_python_exporters_and_select_them():
    fbx = FbxOptions()
    obj = P.Options("obj", "Wavefront", contents=[P.Switch("normals", enabled=True)])
    options = E.Options("not an exporter", fbx, None, obj)
    assert list(options) == [fbx, obj]
    assert options.fbx is fbx and options.selected is fbx
    with pytest.raises(AttributeError):
        options.usd

    for way in ("Wavefront", "obj", obj):
        options.select(fbx)
        options.select(way)
        assert options.selected is obj
    options.select("usd")
    options.select(42)
    assert options.selected is obj

    empty = E.Options()
    assert empty.selected is None and empty.data == {"selected": None, "formats": {}}


def test_options_load_reaches_python_overrides_and_clone_is_independent():
    fbx = FbxOptions()
    obj = P.Options("obj", "Wavefront", contents=[P.Switch("normals", enabled=True)])
    options = E.Options(fbx, obj)

    options.load({"selected": "obj", "formats": {"fbx": {"embed": True}}})
    assert fbx.loaded == [{"embed": True}]
    assert options.selected is obj
    assert options.data == {"selected": "obj", "formats": {"fbx": {"embed": True}, "obj": {}}}

    options.load({"selected": "missing"})
    assert options.selected is obj and fbx.loaded[-1] == {}

    fbx.load({"version": 2014})
    clone = options.clone()
    assert clone.data == options.data and clone.selected.attr == "obj"
    assert clone.fbx is not fbx
    clone.fbx.load({})
    assert fbx.data == {"version": 2014}


def test_options_data_and_clone_overrides_are_used_by_the_exporter_options():
    class Tagged(P.Options):
        def __init__(self):
            super().__init__("usd", "USD", contents=[P.Switch("binary")])

        @property
        def data(self):
            return dict(super().data, tag="usd")

        def clone(self):
            return Tagged()

    options = E.Options(Tagged())
    assert options.data["formats"] == {"usd": {"tag": "usd"}}
    clone = options.clone()
    assert type(clone.usd) is Tagged and clone.selected is clone.usd
