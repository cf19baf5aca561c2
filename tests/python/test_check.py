"""Check classes as a host uses them: real check modules written to folders,
discovered, configured in checklists and run through the queue."""
import importlib
import json
import os
import logging
import sys
import textwrap
from types import SimpleNamespace as NS

import pytest

import zerko
from zerko import Check, Parameters, _Settings

HOST_LAYER = '''
import zerko


class HostCheck(zerko.Check.Base):
    """The host's own abstract layer: never a check itself."""
'''

NAMING = '''
import zerko
from base_layer import HostCheck

FIXED = []


class NameLength(HostCheck):
    class_id = "naming.length"
    long_name = "Name Length"
    short_name = "Length"
    description = "Names no longer than the limit."
    category = "Object"
    sort_index = 2

    @staticmethod
    def parameters():
        return zerko.Parameters.Block(zerko.Parameters.IntRange("limit", value=8),
                                      zerko.Parameters.Switch("strict", enabled=True))

    def check(self, path, parameters):
        name = path.rsplit("|", 1)[-1]
        if len(name) > parameters.limit.value:
            self.result.append(path)
            self.could_be_fixed = True
            self.could_be_selected = parameters.strict.enabled
            raise zerko.Error.ValidationError()

    def fix_result(self, path, parameters):
        FIXED.append((path, parameters.limit.value, len(self.result)))

    def result_message(self):
        return f"{len(self.result)} long name(s)"


class Exploding(HostCheck):
    class_id = "naming.explode"
    long_name = "Explodes"
    category = "object"
    sort_index = 1

    def check(self, path, parameters):
        raise KeyError("missing")

    def result_message(self):
        return None


class NoCheck(HostCheck):
    class_id = "naming.none"
    long_name = "Not Written"
    category = "Texture"
'''

DENIED = '''
from base_layer import HostCheck


class StringIndex(HostCheck):
    class_id = "denied.index"
    sort_index = "1"


class BadParameters(HostCheck):
    class_id = "denied.parameters"

    @staticmethod
    def parameters():
        return []
'''

PACKAGE_INIT = '''
from . import helpers
'''

PACKAGE_HELPERS = '''
LIMIT = 3
'''

PACKAGE_DEEP = '''
from base_layer import HostCheck
from .helpers import LIMIT


class SceneSize(HostCheck):
    class_id = "scene.size"
    long_name = "Scene Size"
    category = "Scene"
    scene_oriented = True

    def check(self, path, parameters):
        if LIMIT < 3:
            raise zerko.Error.ValidationError()
'''

SECOND = '''
from base_layer import HostCheck


class Clash(HostCheck):
    class_id = "naming.length"
    long_name = "Second Folder's Length"
    category = "scene"


class MeshCheck(HostCheck):
    class_id = "mesh.one"
    long_name = "Mesh One"
    category = "MESH"
    sort_index = -1

    def check(self, path, parameters):
        pass
'''


def write(folder, files):
    for name, text in files.items():
        path = folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(textwrap.dedent(text), encoding="utf-8")


@pytest.fixture
def folders(tmp_path, monkeypatch):
    first = tmp_path / "first"
    second = tmp_path / "second"
    write(first, {"naming.py": NAMING, "denied.py": DENIED, "broken.py": "raise RuntimeError('nope')\n",
                  "exits.py": "import sys\nsys.exit(3)\n", "pkg/__init__.py": PACKAGE_INIT, "pkg/helpers.py": PACKAGE_HELPERS, "pkg/deep.py": PACKAGE_DEEP})
    write(second, {"second_checks.py": SECOND})
    layer = tmp_path / "layer"
    write(layer, {"base_layer.py": HOST_LAYER})
    monkeypatch.syspath_prepend(str(layer))
    yield first, second
    for name in ["base_layer", "naming", "denied", "broken", "exits", "pkg", "pkg.helpers", "pkg.deep", "second_checks"]:
        sys.modules.pop(name, None)


def directories(*folders):
    return _Settings.Check.Directory.List([{"name": f.name, "path": str(f)} for f in folders])


def test_discovery_orders_classes_and_costs_only_what_fails(folders, log):
    first, second = folders
    classes = Check._Classes(directories(first, second))
    ids = [c.class_id for c in classes]
    # Known groups in their fixed order, unknown ones last; sort_index inside a group.
    assert ids == ["scene.size", "naming.explode", "naming.length", "mesh.one", "naming.none"]
    # The first folder wins the clash of ids; the class itself comes back.
    naming = sys.modules["naming"]
    assert classes.get("naming.length") is naming.NameLength
    assert classes.get("nothing") is None
    assert sorted(c.class_id for c in classes.get_denied()) == ["denied.index", "denied.parameters"]
    assert "Import Failed: broken - RuntimeError: nope" in log.messages(logging.WARNING)
    assert "Import Failed: exits - SystemExit: 3" in log.messages(logging.WARNING)
    # A package is walked into under its dotted name.
    assert sys.modules["pkg.deep"].SceneSize is classes.get("scene.size")

    array, denied = classes._array, classes._denied
    classes.reload()
    assert classes._array is array and classes._denied is denied
    assert [c.class_id for c in array] == ids
    assert len(classes.get_denied()) == 2

    # A disabled directory is not scanned.
    listing = directories(first, second)
    listing[0].enabled = False
    assert [c.class_id for c in Check._Classes(listing)] == ["naming.length", "mesh.one"]
    assert list(Check._Classes(_Settings.Check.Directory.List())) == []


def test_validity_of_check_classes(folders, log):
    class Layer(Check.Base):
        pass

    class Good(Layer):
        class_id = "good"

    class Raising(Layer):
        @staticmethod
        def parameters():
            raise ValueError("cannot declare")

    class NoBase:
        parameters = staticmethod(lambda: Parameters.Block())

    assert zerko._Assert.Check.is_valid(Good)
    assert not zerko._Assert.Check.is_valid(Raising)
    assert "ValueError: cannot declare" in log.messages(logging.ERROR)
    assert not zerko._Assert.Check.is_valid(NoBase)
    assert not zerko._Assert.Check.is_valid(5)


def test_checklist_loads_configuration_and_presets(folders):
    first, second = folders
    classes = Check._Classes(directories(first, second))
    config = _Settings.Check.Config({
        "naming.length": {"enabled": True, "opened": True,
                          "parameters": [{"as_info": False, "state": {"limit": {"value": 4}}},
                                         {"as_info": True, "state": {"limit": {"value": 2}}}]},
        "stale.check": {"enabled": True},
    })
    presets = _Settings.Check.Presets()
    checklist = Check._List(classes, presets, config)
    assert [c.name for c in checklist.categories] == ["scene", "object", "mesh", "texture"]
    assert [c.check.class_id for c in checklist.categories[1]] == ["naming.explode", "naming.length"]
    # One record per class: the missing were added behind the kept, the stale dropped.
    assert [r.class_id for r in config][0] == "naming.length"
    assert sorted(r.class_id for r in config) == sorted(c.check.class_id for c in checklist)
    assert not checklist.is_empty()
    length = [c for c in checklist.iterator(enabled=True)]
    assert [c.check for c in length] == [sys.modules["naming"].NameLength]
    control = length[0]
    assert control.opened and control.description == "Names no longer than the limit."
    assert [t.limit.value for t in control.parameters] == [4, 2]
    assert checklist.get(enabled=False, scene_oriented=True)[0].check.class_id == "scene.size"

    checklist.load("not a config")
    assert checklist.config is config

    # Presets through the editor work on clones of the checklist's configuration.
    editor = checklist.preset
    editor.create("Strict")
    assert editor.names == ["Strict"]
    preset = list(presets)[0]
    control.parameters.append_task()
    checklist.save()
    editor.sync_applied()
    assert preset.applied is False
    control.enabled = False
    checklist.save()
    assert config.get("naming.length").data == {
        "enabled": False, "opened": False,
        "parameters": [{"as_info": False, "state": {"limit": {"value": 8}, "strict": {"enabled": True}}}]}
    editor.apply(preset)
    assert control.enabled and [t.limit.value for t in control.parameters] == [4, 2]
    editor.sync_applied()
    assert preset.applied is True
    editor.erase(preset)
    assert editor.names == []


def test_queue_runs_python_checks_to_statuses(folders, scene, environment, log):
    first, second = folders
    classes = Check._Classes(directories(first))
    statistics = zerko._Statistics(environment)
    length_class = classes.get("naming.length")
    block = length_class.parameters()
    block.load([{"as_info": False, "state": {"limit": {"value": 4}}},
                {"as_info": True, "state": {"limit": {"value": 5}}}])
    tasks = list(block)
    Result = Check._Queue.Task.Result

    queue = Check._Queue()
    long_task = Check._Queue.Task("|assets|rock0001_grp", [], name=None)
    for parameter_task in tasks:
        long_task.results.add(Result(long_task.path, length_class, parameter_task, statistics, scene, single=False))
    queue.add(long_task)
    failed, informed = list(long_task.results)
    assert (failed.status, informed.status) == ("fail", "info")
    assert failed.name == "Name Length (Task 01)" and informed.name == "Name Length (Task 02)"
    assert long_task.status == "fail" and long_task.name == "|assets|rock0001_grp"
    assert failed.could_be_fixed and failed.could_be_selected
    assert failed.result_message() == "1 long name(s)"
    # Each result ran a fresh object with a private copy of its parameters.
    assert failed._check is not informed._check and failed._check.result == ["|assets|rock0001_grp"]
    assert failed._param is not tasks[0] and failed._param.limit.value == 4
    assert length_class.result == [] and length_class.could_be_fixed is False

    short = Check._Queue.Task("|box", [], name="Box")
    short.results.add(Result("|box", length_class, tasks[0], statistics, scene))
    boom = Result("|box", classes.get("naming.explode"), tasks[0], statistics, scene)
    short.results.add(boom)
    queue.add(short)
    assert short.results and [r.status for r in short.results] == ["pass", "error"]
    assert short.status == "error" and short.name == "Box"
    assert "KeyError: 'missing'" in log.messages(logging.ERROR)
    assert boom.result_message() == ""

    # Stale parameter data stops the run before the check: an error, logged.
    stale = length_class.parameters()
    stale.load([{"state": {"gone": {"value": 1}}}])
    stale_result = Result("|assets", length_class, list(stale)[0], statistics, scene)
    assert stale_result.status == "error" and not stale_result.could_be_fixed

    naming = sys.modules["naming"]
    naming.FIXED.clear()
    scene.select("|camera1")
    assert queue.fix_exists()
    queue.fix_all()
    assert naming.FIXED == [("|assets|rock0001_grp", 4, 1), ("|assets|rock0001_grp", 5, 1)]
    assert scene.get_selection() == ["|camera1"]

    records = statistics._data["checks"]
    assert [(r["name"], r["result"]) for r in records] == [
        ("Name Length (Task 01)", "fail"), ("Name Length (Task 02)", "info"), ("Name Length", "pass"),
        ("Explodes", "error"), ("Name Length", "error")]
    queue.clear()
    assert queue.is_empty() and not queue.fix_exists() and len(queue) == 0
    assert Check._Queue.Task("|x", []).status == "pass"
    # A host's icon comes back as the object it handed in.
    icon = object()
    assert Check._Queue.Task("|x", [], icon=icon).icon is icon
    assert Check._Queue.Task("|x", [], icon="mesh").icon == "mesh"


def test_api_embeds_the_hosts_checks_and_rules_get_checklists(folders, scene, environment, tmp_path, monkeypatch):
    first, _ = folders
    package = tmp_path / "embedded" / "host_checks"
    write(package, {"__init__.py": "", "mesh_checks.py": SECOND.replace("naming.length", "embedded.clash")})
    monkeypatch.syspath_prepend(str(tmp_path / "embedded"))
    module = importlib.import_module("host_checks")
    with open(environment.get_settings_file(), "w", encoding="utf-8") as f:
        json.dump({"version": 4, "check": {"directories": [{"name": "studio", "path": str(first)}]}}, f)

    api = zerko.Api(scene, environment, checks=module)
    try:
        ids = [c.class_id for c in api._classes]
        assert "mesh.one" in ids and "naming.length" in ids and "embedded.clash" in ids
        embedded = api.settings.check.directories._embedded
        assert embedded.name == "Default" and embedded.locked and embedded == str(package)
        assert [d["name"] for d in api.settings.check.data["directories"]] == ["studio"]

        class Rule:
            def __init__(self, stamp, name, regex, config):
                self.stamp, self.name, self.regex, self.types = stamp, name, regex, []
                self.icon = self.color = ""
                self.range = type("Range", (), {"minimum": 1, "maximum": 1})()
                self.check_config = config

        class Node:
            def __init__(self, rule, children=()):
                self.rule, self.children = rule, list(children)

        checked = Rule("s1", "root", "^assets$", _Settings.Check.Config({"mesh.one": {"enabled": True}}))
        unchecked = Rule("s2", "other", "^other$", _Settings.Check.Config())
        record = type("Record", (), {"rules": [checked, unchecked],
                                     "pattern": Node(None, [Node(checked), Node(unchecked)])})()
        pattern = api._hierarchy.pattern
        pattern.set(record)
        assert pattern.is_verifiable("s1") and not pattern.is_verifiable("s2")
        assert not pattern.is_verifiable("unknown") and pattern.get_checklist("unknown") is None
        checklist = pattern.get_checklist("s1")
        assert [c.check.class_id for c in checklist.iterator(enabled=True)] == ["mesh.one"]
        assert len(checked.check_config) == len(api._classes)
    finally:
        api.shutdown()
        sys.modules.pop("host_checks", None)
        sys.modules.pop("host_checks.mesh_checks", None)


def test_a_project_record_compiles_into_a_pattern_with_checklists(folders, scene, tmp_path):
    """The document a team shares, read back as a project, drives the search."""
    first, second = folders
    classes = Check._Classes(directories(first, second))
    document = {
        "name": "Rocks", "description": "", "selected_record": 10, "deleted": False, "version": 3,
        "filename": "rocks.json", "target": "standalone",
        "records": {"10": {
            "export": {}, "author": "anna", "comment": "",
            "rules": [
                {"stamp": "g", "name": "ghost", "regex": "^assets$", "types": ["transform"], "range": [1, 1],
                 "checklist": {}},
                {"stamp": "grp", "name": "group", "regex": "^<asset:[a-z]+[0-9]+>_grp$", "types": ["transform"],
                 "range": [1, 1], "checklist": {"naming.length": {"enabled": True, "parameters": [
                     {"as_info": False, "state": {"limit": {"value": 12}}}]}}},
                {"stamp": "geo", "name": "geometry", "regex": "^<asset>_geo$", "types": ["transform"],
                 "range": [1, 1], "checklist": {}},
                {"stamp": "part", "name": "part", "regex": "^<asset>_part<n:[0-9]+>$", "types": ["mesh"],
                 "range": [1, 40], "checklist": {}},
            ],
            "pattern": [{"stamp": "g", "children": [{"stamp": "grp", "children": [
                {"stamp": "geo", "children": [{"stamp": "part", "children": []}]}]}]}],
        }},
    }
    project = zerko._Project.Settings(None, str(tmp_path), "rocks.json", document)
    record = project.history.get_record()
    virtual = zerko.Scene._Virtual(scene)
    virtual.upload(["|assets"])
    hierarchy = zerko._Hierarchy(virtual, classes)
    hierarchy.pattern.set(record)
    assert hierarchy.pattern.is_verifiable("grp") and not hierarchy.pattern.is_verifiable("geo")
    controls = hierarchy.pattern.get_checklist("grp").iterator(enabled=True)
    assert [(c.check.class_id, [t.limit.value for t in c.parameters]) for c in controls] == [("naming.length", [12])]
    # The record's own configuration now holds one record per class.
    assert len(record.rules.get("grp").check_config) == len(classes)
    roots = virtual.get_children("|assets")
    # One asset per pass (the group rule admits one object a layer). The
    # first asset has children no rule describes; the second is complete.
    assert hierarchy.mask(roots) == ["|assets|rock0001_grp"]
    assert not hierarchy.is_valid(["|assets|rock0001_grp"])
    assert hierarchy.is_valid(["|assets|rock0002_grp"])

    # The same record read by attribute name builds the same pattern.
    def tree(node):
        return NS(rule=NS(stamp=node.rule.stamp), children=[tree(child) for child in node.children])

    duck = NS(rules=[NS(stamp=r.stamp, name=r.name, icon=r.icon, color=r.color, regex=r.regex, types=list(r.types),
                        range=NS(minimum=r.range.minimum, maximum=r.range.maximum), check_config=r.check_config)
                     for r in record.rules],
              pattern=NS(children=[tree(node) for node in record.pattern.children]))
    twin = zerko._Hierarchy(virtual, classes)
    twin.pattern.set(duck)
    assert twin.pattern._rules == hierarchy.pattern._rules
    controls = twin.pattern.get_checklist("grp").iterator(enabled=True)
    assert [(c.check.class_id, [t.limit.value for t in c.parameters]) for c in controls] == [("naming.length", [12])]
    assert twin.mask(roots) == ["|assets|rock0001_grp"] and twin.is_valid(["|assets|rock0002_grp"])


def test_the_example_host_layer_validates_the_bundled_project(scene, environment, monkeypatch, capsys):
    """The demo's main job: the bundled project, the embedded pack, the bundled scene."""
    from conftest import EXAMPLES, host_layer

    monkeypatch.syspath_prepend(EXAMPLES)
    rock_checks = importlib.import_module("rock_checks")
    monkeypatch.setattr(rock_checks, "SCENE", scene)
    api = zerko.Api(scene, environment, checks=rock_checks)
    try:
        queue = host_layer.validate(api, scene, os.path.join(EXAMPLES, "rocks_project.json"))
        assert [(t.name, t.status) for t in queue] == [("rock0001_grp", "pass"), ("rock0002_grp", "info")]
        assert [r.name for r in list(queue)[1].results] == ["Name Length", "Collision Geometry"]
        assert "hierarchy rock0002_grp: valid" in capsys.readouterr().out
    finally:
        api.shutdown()
        for name in [n for n in sys.modules if n == "rock_checks" or n.startswith("rock_checks.") or n == "assets"]:
            sys.modules.pop(name, None)
