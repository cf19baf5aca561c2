"""The snapshot and the matching engine through the Python face, with a host operator."""
import os
import re
import sys
import threading
import time
from types import SimpleNamespace as NS

import pytest

import zerko
from conftest import host_layer, run_script


def rule(stamp, regex, minimum=1, maximum=1, types=("transform",), name=None):
    return NS(stamp=stamp, name=name or stamp, icon="i", color="c", regex=regex, types=list(types),
              range=NS(minimum=minimum, maximum=maximum))


def node(r, *children):
    return NS(rule=r, children=list(children))


def record(*top, rules):
    return NS(rules=rules, pattern=NS(children=list(top)))


@pytest.fixture
def engine(scene, environment):
    api = zerko.Api(scene, environment)
    rules = {r.stamp: r for r in [
        rule("ghost", "^assets$", name="ghost"), rule("grp", "^<asset:[a-z]+[0-9]+>_grp$"),
        rule("geo", "^<asset>_geo$"), rule("part", "^<asset>_part<n:[0-9]+>$", 1, 40, ["mesh"]),
        rule("col", "^<asset>_col$", 0, 1), rule("ucx", "^UCX_<asset>_<c:[0-9]{2}>$", 1, 6, ["mesh"]),
        rule("pivot", "^<asset>_pivot$", 0, 1, ["locator"])]}
    tree = node(rules["ghost"], node(rules["grp"], node(rules["pivot"]), node(rules["col"], node(rules["ucx"])),
                                     node(rules["geo"], node(rules["part"]))))
    api.pattern_record = record(tree, rules=list(rules.values()))
    api._hierarchy.pattern.set(api.pattern_record)
    api._virtual.upload(scene.get_selection_roots())
    return api


def test_snapshot_answers_from_the_host_data(engine, scene):
    virtual = engine._virtual
    assert len(virtual) == len(scene.types) - 1  # the camera is outside the selection
    assert virtual.get_type("|assets|rock0001_grp") == "transform"
    # A top object's parent is what the host answered; only an unknown path gives nothing.
    assert virtual.get_parent("|assets") == "" and virtual.get_parent("|assets|rock0001_grp") == "|assets"
    assert virtual.get_parent("|nothing") is None
    assert virtual.get_children("|nothing") == [] and virtual.get_type("|nothing") == ""
    locations = virtual.get_locations(["|assets|rock0001_grp", "|nothing", "|assets"])
    assert [l.path for l in locations] == ["|assets|rock0001_grp", "|assets"]
    assert locations[0] == zerko.Scene._Virtual._Location("other", "|assets|rock0001_grp", "mesh")
    assert len({locations[0], locations[0]}) == 1
    virtual.offload()
    assert not virtual.object_exists("|assets")


def test_scan_of_the_example_scene(engine):
    h = engine._hierarchy
    roots = engine._virtual.get_children("|assets")
    assert h.pattern.has_ghost() and [s.rule.stamp for s in h.pattern.get()] == ["grp"]
    groups = h.root_scopes(roots)
    assert groups == [roots]
    assert h.cut(roots) == [(["|assets|rock0001_grp"], True), (["|assets|rock0002_grp"], True)]
    assert h.mask(roots) == ["|assets|rock0001_grp"]
    assert h.is_valid(["|assets|rock0001_grp"])
    state = h.search.logic.state.expressions
    assert state["<asset:[a-z]+[0-9]+>"] == {("rock0001", "|assets|rock0001_grp")}
    assert ("0", "|assets|rock0001_grp|rock0001_geo|rock0001_part0") in state["<n:[0-9]+>"]


def test_rules_scopes_and_the_sorter():
    a = zerko._Hierarchy.Pattern.Rule(rule("a", "^<x>_a"))
    b = zerko._Hierarchy.Pattern.Rule(rule("b", "^<x:[a-z]+>_b"))
    assert a == zerko._Hierarchy.Pattern.Rule(rule("a", "^<x>_a")) and a != b
    assert hash(a) == hash(zerko._Hierarchy.Pattern.Rule(rule("a", "^<x>_a", 0, 9)))
    assert a.get_range() == {1} and not a.is_optional()
    layer = [zerko._Hierarchy.Pattern.Scope(a), zerko._Hierarchy.Pattern.Scope(b)]
    same = layer
    zerko._Hierarchy.Pattern._Sorter.sort(layer)
    assert layer is same and [s.rule.stamp for s in layer] == ["b", "a"]


def test_anchor_state_and_worked_example():
    anchor = zerko._Hierarchy.Anchor()
    anchor.state.set({"<asset:[a-z]+>": set()})
    assert anchor.match("^<asset:[a-z]+>_grp$", "rock_grp", "|rock_grp")
    assert anchor.match("^<asset>_mesh$", "rock_mesh", "|rock_grp|rock_mesh")
    assert not anchor.match("^<asset>_mesh$", "tree_mesh", "|rock_grp|tree_mesh")
    copy = anchor.state.clone()
    assert copy != anchor.state  # captures do not refresh the stored hash
    anchor.state.make_hash()
    assert copy == anchor.state and copy.expressions == {"<asset:[a-z]+>": {("rock", "|rock_grp")}}
    other = zerko._Hierarchy.Anchor._State()
    other.set({"<asset:[a-z]+>": {("tree", "|tree_grp")}})
    merged = copy + other
    assert merged.expressions["<asset:[a-z]+>"] == {("rock", "|rock_grp"), ("tree", "|tree_grp")}
    assert zerko._Hierarchy.Anchor.unpack_anchor("<<a:b>>") == ("<a>", "b")
    with pytest.raises(ValueError):
        zerko._Hierarchy.Anchor.unpack_anchor("<a:b:c>")


def test_bad_expressions_raise_instead_of_hanging(engine):
    h = engine._hierarchy
    bad = rule("grp", "^(<asset:[a-z]+>_grp$")
    h.pattern.set(record(node(bad), rules=[bad]))
    with pytest.raises(re.error) as raised:  # and a ValueError, for older callers
        h.is_valid(["|assets"])
    assert isinstance(raised.value, ValueError) and raised.value.pos is not None
    twice = rule("grp", "^<a:[a-z]+>s<a:[a-z]+>$")
    h.pattern.set(record(node(twice), rules=[twice]))
    with pytest.raises(ValueError):
        h.is_valid(["|assets"])
    slow = rule("grp", "^(a|aa)+(b|c)*$")
    h.pattern.set(record(node(slow), rules=[slow]))
    engine._virtual.upload(["|assets"])
    assert h.is_valid(["|assets"]) is False


def test_search_releases_the_interpreter(engine, environment):
    # A scene large enough that one search takes a while: the main thread
    # must keep running while the worker is inside it, not only between calls.
    assets = [{"name": "rock%04d_grp" % i, "type": "transform", "children": [
        {"name": "rock%04d_geo" % i, "type": "transform", "children": [
            {"name": "rock%04d_part%d" % (i, p), "type": "mesh"} for p in range(8)]}]} for i in range(3000)]
    big = host_layer.MemoryScene({"objects": [{"name": "assets", "type": "transform", "children": assets}]})
    virtual = zerko.Scene._Virtual(big)
    virtual.upload(["|assets"])
    h = zerko._Hierarchy(virtual, None)
    h.pattern.set(engine.pattern_record)
    roots = virtual.get_children("|assets")
    results, ticks = [], []

    def work():
        for _ in range(10):
            results.append(h.cut(roots))

    # With a long switch interval the worker never hands the interpreter over
    # on its own: the main thread runs meanwhile only if the search releases it.
    interval = sys.getswitchinterval()
    sys.setswitchinterval(30.0)
    try:
        worker = threading.Thread(target=work)
        worker.start()
        while worker.is_alive():
            ticks.append(1)
            time.sleep(0)
        worker.join()
    finally:
        sys.setswitchinterval(interval)
    assert len(results) == 10 and all(r == results[0] for r in results)
    assert len(results[0]) == 3000 and all(ok for _, ok in results[0])
    assert len(ticks) > 10


def test_wrong_types_from_python_raise_type_error(engine):
    with pytest.raises(TypeError):
        engine._hierarchy.mask("not a list")
    with pytest.raises(TypeError):
        zerko.Scene._Virtual("not an operator")

    class Liar(host_layer.MemoryScene):
        def get_children(self, path):
            return 42

    liar = Liar({"objects": [{"name": "a", "type": "mesh"}]})
    with pytest.raises(TypeError):
        zerko.Scene._Virtual(liar).upload(["|a"])


def test_wrong_guess_leaves_the_anchor_state_as_it_was(engine):
    search = zerko._Hierarchy.Search(engine._virtual)
    state = search.logic.state
    state.set({"<asset:[a-z]+[0-9]+>": set()})
    grp = engine._hierarchy.pattern.get()
    roots = engine._virtual.get_children("|assets")
    assert len(search.layer(roots[:1], grp)) == 1
    # A layer that settles its captures leaves the state as a fresh copy of it.
    before = state.clone()
    assert state == before and hash(state) == hash(before)
    # The group rule admits one object: two make a wrong guess, whose captures are taken back.
    assert search.layer(roots, grp).is_empty()
    assert state.expressions == before.expressions
    assert state == before and hash(state) == hash(before)
    # Equal captures in another order hash alike; other captures do not.
    other = zerko._Hierarchy.Anchor._State()
    other.set({"<asset:[a-z]+[0-9]+>": {("rock0001", "|assets|rock0001_grp"), ("rock0002", "|assets|rock0002_grp")}})
    again = zerko._Hierarchy.Anchor._State()
    again.set({"<asset:[a-z]+[0-9]+>": {("rock0002", "|assets|rock0002_grp"), ("rock0001", "|assets|rock0001_grp")}})
    assert other == again and other != before


# Each case below hung or crashed the interpreter before it was handled, so
# each runs in an interpreter of its own.
PRELUDE = """
    import logging, sys, threading, time, zerko
    sys.path.insert(0, sys.argv[1])
    from conftest import host_layer, run_script
"""


def test_snapshot_cuts_a_cycle_and_says_so_once():
    run = run_script(PRELUDE + """
    class Cyclic(host_layer.MemoryScene):
        # a broken scene: "|a|b" lists its parent and itself among its children
        def get_children(self, path):
            children = super().get_children(path)
            return children + ["|a", "|a|b"] if path == "|a|b" else children

    warnings = []
    class Keep(logging.Handler):
        def emit(self, record):
            warnings.append(record.getMessage())
    logging.getLogger().addHandler(Keep(logging.WARNING))
    virtual = zerko.Scene._Virtual(Cyclic({"objects": [{"name": "a", "type": "transform", "children": [
        {"name": "b", "type": "transform", "children": [{"name": "c", "type": "mesh"}]}]}]}))
    virtual.upload(["|a"])
    zerko.Logger._flush()
    print(len(virtual), virtual.get_children("|a|b"), len([w for w in warnings if "cycle" in w]))
    """, os.path.dirname(__file__))
    assert run.returncode == 0, run.stderr
    assert run.stdout.split("\n")[0] == "3 ['|a|b|c'] 1"


def test_snapshot_refuses_use_while_it_uploads():
    meddling = run_script(PRELUDE + """
    class Meddling(host_layer.MemoryScene):
        def get_type(self, path):
            if path == "|a|b":
                self.virtual.offload()
            return super().get_type(path)

    scene = Meddling({"objects": [{"name": "a", "type": "transform", "children": [{"name": "b", "type": "mesh"}]}]})
    scene.virtual = zerko.Scene._Virtual(scene)
    try:
        scene.virtual.upload(["|a"])
    except RuntimeError as e:
        print("refused:", e)
    scene.virtual.offload()  # once the upload has ended, the snapshot is free again
    """, os.path.dirname(__file__))
    assert meddling.returncode == 0, meddling.stderr
    assert meddling.stdout.startswith("refused:") and "offload" in meddling.stdout

    threads = run_script(PRELUDE + """
    class Slow(host_layer.MemoryScene):
        def get_type(self, path):
            time.sleep(0.002)
            return super().get_type(path)

    virtual = zerko.Scene._Virtual(Slow({"objects": [{"name": "o%d" % i, "type": "mesh"} for i in range(300)]}))
    roots = ["|o%d" % i for i in range(300)]
    errors = []
    def upload():
        try:
            for _ in range(3):
                virtual.upload(roots)
        except RuntimeError as e:
            errors.append(str(e))
    workers = [threading.Thread(target=upload) for _ in range(2)]
    for w in workers: w.start()
    for w in workers: w.join()
    print(len(errors), all("upload" in e for e in errors))
    """, os.path.dirname(__file__), timeout=60)
    assert threads.returncode == 0, threads.stderr
    count, named = threads.stdout.split()
    assert int(count) >= 1 and named == "True"
