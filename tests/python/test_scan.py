"""The scan, the buffer and the scene component through the Python face, over
an in-memory host: events and host hooks in their order, the embedded data
across a reopen, malformed stored data, and invariants on generated scenes."""
import copy
import json
import os
import random
import shutil
from types import SimpleNamespace as NS

import pytest

import zerko
from conftest import EXAMPLES, host_layer

Buffer = zerko.Scene._Buffer


class Host(host_layer.MemoryScene):
    """The example host, with the scanner's hooks recorded."""

    def __init__(self, document):
        super().__init__(document)
        self.calls = []

    def postscript_scan_append(self, joint):
        self.calls.append("+" + joint.name)

    def postscript_scan_remove(self, joint):
        self.calls.append("-" + joint.name)

    def directory_dialog(self, starting="~", caption=""):
        self.asked = (starting, caption)
        return self.answers.pop()

    def select_all(self):
        self._selection = list(self.types)

    def open(self, document, filedata):
        """Another scene is opened: new objects, its stored data, the handlers run."""
        self.types, self.parents, self.children = {}, {}, {"": []}
        self._selection = list(document.get("selection", []))
        for item in document.get("objects", []):
            self._add("", item)
        self._filedata = filedata
        for function in list(self._callbacks):
            function()


def example_scene():
    with open(os.path.join(EXAMPLES, "scene.json"), encoding="utf-8") as f:
        return json.load(f)


@pytest.fixture
def project_env(environment):
    shutil.copy(os.path.join(EXAMPLES, "rocks_project.json"),
                os.path.join(environment.get_projects_directory(), "rocks_project.json"))
    return environment


def events_of(api):
    fired = []
    for name in ("empty_scan_selection", "used_scan_selection", "empty_scan_result", "buffer_loaded"):
        getattr(api.callbacks, name).register(lambda name=name: fired.append(name))
    return fired


def test_scene_component_loads_the_project_before_the_buffer_and_follows_opened_scenes(project_env, log):
    first = Host(example_scene())
    seen = []
    original = first.query_filedata

    def query():
        # The project's pattern must be in place when the stored data is read.
        seen.append(any("Load \"Rocks\" project" in m for m in log.messages()))
        return original()

    first.query_filedata = query
    api = zerko.Api(first, project_env)
    assert seen == [True]
    assert api.scene.hierarchy.pattern.has_ghost() and api.scene.hierarchy is api._hierarchy
    assert api.settings.workspace.project == "rocks_project.json"
    fired = events_of(api)
    first.select_all()
    assert api.scene.scanner.upload_buffer() is True
    stored = copy.deepcopy(first._filedata)
    assert [b.name for b in api.scene.buffer.get()] == ["rock0001_grp", "rock0002_grp"]
    # Two scenes opened: the buffer is loaded each time and holds the second.
    first.open(example_scene(), stored[:1])
    first.open(example_scene(), stored[1:])
    assert fired == ["buffer_loaded", "buffer_loaded"]
    assert [b.name for b in api.scene.buffer.get()] == ["rock0002_grp"]
    assert api.scene.buffer.is_valid()
    api.shutdown()


def test_without_a_project_the_buffer_is_loaded_all_the_same(environment):
    host = Host(example_scene())
    joint = Buffer.DataJoint(name="a", path="|a")
    host._filedata = [Buffer.DataBucket(joint, name="kept").data]
    api = zerko.Api(host, environment)
    assert not api.scene.hierarchy.pattern.has_ghost()
    assert [b.name for b in api.scene.buffer.get()] == ["kept"]
    # The stored asset has gone from the scene: the buffer says so.
    assert not api.scene.buffer.is_match() and not api.scene.buffer.is_valid()


def test_directory_dialog_works_on_stored_paths(environment):
    host = Host(example_scene())
    api = zerko.Api(host, environment)
    host.answers = [None]
    assert api.scene.directory_dialog("~/x") is None
    home = zerko.Environment.user_home
    if home:
        assert host.asked == (home + "/x", "Set Directory")
        host.answers.append(home + "/exports")
        assert api.scene.directory_dialog("~") == "~/exports"


def test_scan_events_hooks_and_append(project_env):
    host = Host(example_scene())
    api = zerko.Api(host, project_env)
    fired = events_of(api)
    scanner, buffer = api.scene.scanner, api.scene.buffer
    host._selection = []
    assert scanner.upload_buffer() is False and fired == ["empty_scan_selection"]
    # Only the first asset: its objects and the ghost object above it.
    host._selection = [p for p in host.types if "rock0001" in p] + ["|assets"]
    assert scanner.upload_buffer() is True
    assert host.calls == ["+rock0001_pivot", "+UCX_rock0001_00", "+rock0001_col", "+rock0001_part0",
                          "+rock0001_part1", "+rock0001_geo", "+rock0001_grp", "+rock0001_grp"]
    top = buffer.get()[0].joint
    assert top.is_ghost and top.icon == "Ghost" and len(top.children) == 1
    assert [c.name for c in top.children[0].children] == ["rock0001_col", "rock0001_geo", "rock0001_pivot"]
    # Appending what is loaded is refused; appending the other asset keeps the first in front.
    assert scanner.upload_buffer(append=True) is False and fired[-1] == "used_scan_selection"
    host._selection = [p for p in host.types if "rock0002" in p] + ["|assets"]
    assert scanner.upload_buffer(append=True) is True
    assert [b.name for b in buffer.get()] == ["rock0001_grp", "rock0002_grp"]
    assert host._selection == [p for p in host.types if "rock0002" in p] + ["|assets"]
    # A scan without append that finds nothing leaves nothing stored.
    host.calls.clear()
    host._selection = ["|camera"] if "|camera" in host.types else [next(iter(host.types))]
    assert scanner.upload_buffer() is False and fired[-1] == "empty_scan_result"
    assert host._filedata == [] and not buffer.exists()
    assert host.calls.count("-rock0001_grp") == 2


def test_a_failing_host_hook_fails_the_scan_with_a_log_line(project_env, log):
    host = Host(example_scene())
    api = zerko.Api(host, project_env)

    def refuse(joint):
        raise RuntimeError("marking failed")

    host.postscript_scan_append = refuse
    host.select_all()
    selection = list(host._selection)
    assert api.scene.scanner.upload_buffer() is False
    assert host._selection == selection
    assert any("RuntimeError: marking failed" in m for m in log.messages())


def malformed_variants(good):
    """100 ways in which stored data goes wrong, each from a well-formed bucket."""
    odd = [None, 5, 1.5, True, "text", [], {}, [1, 2], {"x": 1}, object()]
    variants = list(odd)  # a bucket that is no map at all
    for key in ("joint", "name", "checked", "opened", "extra"):
        for value in odd[:8]:
            bucket = copy.deepcopy(good)
            bucket[key] = value
            variants.append(bucket)
    for key in ("stamp", "name", "path", "type", "icon", "color", "children", "other"):
        for value in odd[:6]:
            bucket = copy.deepcopy(good)
            bucket["joint"][key] = value
            variants.append(bucket)
    bucket = copy.deepcopy(good)
    bucket["joint"]["children"] = bucket["joint"]["children"][:1] + [7, "x"]  # a truncated, mixed list
    variants.append(bucket)
    bucket = copy.deepcopy(good)
    bucket["joint"]["stamp"] = "a stamp no project knows"
    variants.append(bucket)
    return variants[:100]


def test_malformed_stored_data_opens_and_scans_without_losing_good_parts(project_env, log):
    host = Host(example_scene())
    api = zerko.Api(host, project_env)
    host.select_all()
    assert api.scene.scanner.upload_buffer()
    good = copy.deepcopy(host._filedata)
    variants = malformed_variants(good[0])
    assert len(variants) == 100
    log.records.clear()
    host.open(example_scene(), [good[0]] + variants + [good[1]])
    buffer = api.scene.buffer
    decoded = Buffer.decode([good[0], good[1]])
    assert all(b in buffer for b in decoded)
    loaded = buffer.get()
    assert loaded[0] == decoded[0] and loaded[-1] == decoded[1]
    assert len([m for m in log.messages() if m.startswith("Scene data:")]) == 1
    # Whatever was kept encodes to well-formed data again.
    assert Buffer.encode(Buffer.decode(Buffer.encode(loaded))) == Buffer.encode(loaded)
    # Whole-data failures: not a list, not JSON-shaped, a host that raises.
    for stored in ({"joint": {}}, "text", 5, {1, 2}):
        host.open(example_scene(), stored)
        assert not buffer.exists()
    host.query_filedata = lambda: 1 / 0
    api.scene._load_buffer()
    assert not buffer.exists()
    del host.query_filedata
    host.select_all()
    assert api.scene.scanner.upload_buffer() is True
    assert host._filedata == good


def test_joint_and_bucket_values():
    joint = Buffer.DataJoint("s", "n", "|n", "mesh", [Buffer.DataJoint(name="c")])
    assert joint == Buffer.DataJoint("s", "n", "|n", "mesh") and hash(joint) == hash(Buffer.DataJoint("s", "n", "|n", "mesh"))
    assert isinstance(joint.name, zerko._Str) and joint.color == "none"
    joint.name = 5  # ignored: not text
    assert joint.name == "n"
    bucket = Buffer.DataBucket(joint)
    assert bucket.name == "n" and bucket.checked and bucket.opened
    assert bucket != Buffer.DataBucket(joint, checked=False)
    assert [j.name for j in bucket.get_joints()] == ["n", "c"]
    assert Buffer.decode(Buffer.encode([bucket])) == [bucket]
    assert Buffer.get_roots(Buffer.DataJoint(type="ghost", children=[joint])) == ["|n"]


# ---- generated scenes ----------------------------------------------------------

def rule(stamp, regex, minimum=1, maximum=1, types=("transform",), name=None):
    return NS(stamp=stamp, name=name or stamp, icon="i", color="c", regex=regex, types=list(types),
              range=NS(minimum=minimum, maximum=maximum))


def node(r, *children):
    return NS(rule=r, children=list(children))


def generated(rng):
    """A pattern (with or without a ghost, optional parts, anchors across
    layers) and a scene of assets that fit it, break it or repeat its names."""
    ghost = rng.random() < 0.7
    grp = rule("grp", "^<a:[a-z]+[0-9]>_grp$")
    geo = rule("geo", "^<a>_geo$", 1, rng.choice([1, 2]))
    part = rule("part", "^<a>_p<n:[0-9]>$", 1, 3, ["mesh"])
    col = rule("col", "^<a>_col$", 0, 1)
    rules = [grp, geo, part, col]
    top = node(grp, node(geo, node(part)), node(col))
    if ghost:
        g = rule("ghost", "^(assets|props)$", name="ghost")
        rules.append(g)
        top = node(g, top)
    objects = []
    for holder in ("assets", "props") if ghost else ("",):
        items = []
        for i in range(rng.randint(0, 4)):
            name = rng.choice(["rock", "tree", "box"]) + str(rng.randint(0, 2))  # names repeat across holders
            kids = [{"name": f"{name}_geo", "type": "transform",
                     "children": [{"name": f"{name}_p{k}", "type": "mesh"} for k in range(rng.randint(0, 3))]}]
            if rng.random() < 0.4:
                kids.append({"name": f"{name}_col", "type": "transform"})
            if rng.random() < 0.15:
                kids.append({"name": "stray", "type": "transform"})
            if rng.random() < 0.1:
                kids[0]["name"] = "other_geo"  # the anchor no longer agrees
            items.append({"name": f"{name}_grp", "type": "transform", "children": kids})
        if holder:
            objects.append({"name": holder, "type": "transform", "children": items})
        else:
            objects.extend(items)
    return NS(rules=rules, pattern=NS(children=[top])), {"objects": objects}


def scope_roots_by_the_host(host, hierarchy):
    """The roots as the host's own parents give them, one selected object at a time."""
    ghost, out = hierarchy.pattern.get_ghost(), []
    for path in host.get_selection():
        while host.get_parent(path):
            if hierarchy.is_ghost_root(ghost, path):
                if path not in out:
                    out.append(path)
                break
            path = host.get_parent(path)
    return out


def test_generated_scenes_keep_the_invariants(environment):
    rng = random.Random(14)
    api = zerko.Api(Host({"objects": []}), environment)
    host, scanner, buffer = api._op, api.scene.scanner, api.scene.buffer
    scans = 0
    for _ in range(300):
        record, document = generated(rng)
        host.open(document, [])
        api.scene.hierarchy.pattern.set(record)
        paths = list(host.types)
        host._selection = rng.sample(paths, rng.randint(0, len(paths))) if rng.random() < 0.3 else paths
        if api.scene.hierarchy.pattern.has_ghost():
            scene_roots = host.get_selection_roots()
            api._virtual.upload(scene_roots)
            assert scanner._find_scope_roots(scene_roots) == scope_roots_by_the_host(host, api.scene.hierarchy)
        if not scanner.upload_buffer():
            continue
        scans += 1
        stored = copy.deepcopy(host._filedata)
        for bucket in buffer.get():
            for joint in bucket.get_joints():
                assert joint.is_ghost or host.object_exists(joint.path)
        assert buffer.is_valid()
        assert Buffer.encode(Buffer.decode(stored)) == stored
        assert scanner.upload_buffer() is True
        assert host._filedata == stored
    assert scans > 100


def test_scene_services_outlive_a_dropped_api():
    from test_lifetimes import run_isolated

    out = run_isolated('''
        scene, environment, api = host()
        scanner, buffer = api.scene.scanner, api.scene.buffer
        handlers = list(scene._callbacks)
        class Marker:
            pass

        api.marker = Marker()  # lives as long as the Api does
        kept = weakref.ref(api.marker)
        del api
        gc.collect()
        print(kept() is not None)
        # An empty selection fires an event of the Api that the scanner keeps.
        scene._selection = []
        print(scanner.upload_buffer())
        del scanner
        gc.collect()
        print(kept() is None)
        for handler in handlers:
            handler()  # the Api is gone: the scene-opened handler does nothing
        print(len(buffer.get()))
    ''')
    assert out.split() == ["True", "False", "True", "0"]


def test_reload_brings_stored_buckets_up_to_date(project_env):
    host = Host(example_scene())
    api = zerko.Api(host, project_env)
    host.select_all()
    assert api.scene.scanner.upload_buffer()
    buffer = api.scene.buffer
    first, second = buffer.get()
    first.name, first.checked = "renamed", False
    # The first asset loses its pivot (optional); the second asset is gone.
    pivot = "|assets|rock0001_grp|rock0001_pivot"
    host.children["|assets|rock0001_grp"].remove(pivot)
    del host.types[pivot]
    for path in [p for p in host.types if p.startswith("|assets|rock0002_grp")]:
        del host.types[path]
    host.children["|assets"].remove("|assets|rock0002_grp")
    api.scene.scanner.reload_buffer()
    assert buffer.get() == [first]
    assert first.name == "renamed" and not first.checked
    names = [j.name for j in first.get_joints()]
    assert "rock0001_pivot" not in names and "rock0001_geo" in names
    assert host._filedata == Buffer.encode([first])


def test_reload_without_a_ghost_reads_the_scene_as_it_is_now(environment):
    # A pattern without a ghost rule: the assets stand at the top and their
    # buckets have no ghost joint, so the reload must read the scene anew
    # rather than the snapshot of the scan.
    with open(os.path.join(EXAMPLES, "rocks_project.json"), encoding="utf-8") as f:
        project = json.load(f)
    for record in project["records"].values():
        record["rules"] = [rule for rule in record["rules"] if rule["name"] != "ghost"]
        record["pattern"] = record["pattern"][0]["children"]
    with open(os.path.join(environment.get_projects_directory(), "rocks_project.json"), "w", encoding="utf-8") as f:
        json.dump(project, f)
    document = example_scene()
    document["objects"] = document["objects"][0]["children"]
    host = Host(document)
    api = zerko.Api(host, environment)
    host.select_all()
    assert api.scene.scanner.upload_buffer()
    buffer = api.scene.buffer
    assert len(buffer.get()) == 2 and all(b.get_joints()[0].name.endswith("_grp") for b in buffer.get())
    pivot = "|rock0001_grp|rock0001_pivot"
    host.children["|rock0001_grp"].remove(pivot)
    del host.types[pivot]
    api.scene.scanner.reload_buffer()
    names = [j.name for b in buffer.get() for j in b.get_joints()]
    assert "rock0001_geo" in names and "rock0001_pivot" not in names
