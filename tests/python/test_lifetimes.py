"""Lifetimes across the language boundary: what Python keeps stays valid, what it
drops is freed, and calls back into the library never wait on a lock. Cases
that could crash or hang run in a child interpreter with a time limit."""
import os
import subprocess
import sys
import textwrap

import pytest

HERE = os.path.dirname(os.path.abspath(__file__))
EXAMPLES = os.path.join(HERE, "..", "..", "examples")

PRELUDE = '''
import gc, json, os, sys, tempfile, weakref
sys.path.insert(0, {examples!r})
import host_layer, zerko
zerko._core._set_leak_warnings(True)
with open(os.path.join({examples!r}, "scene.json"), encoding="utf-8") as f:
    SCENE = json.load(f)
WORK = tempfile.mkdtemp()
KEPT = []

def host():
    environment = host_layer.PipelineEnvironment(os.path.join(WORK, "settings"))
    scene = host_layer.MemoryScene(SCENE)
    return scene, environment, zerko.Api(scene, environment)
'''


def run_isolated(body, timeout=60):
    """Runs `body` after the prelude in a fresh interpreter and answers its
    output; a hang, a crash or a leak report fails the test."""
    # Inside a function, so that nothing of the body outlives it: the leak
    # report at exit then names only what the library failed to free.
    source = (PRELUDE.format(examples=os.path.abspath(EXAMPLES)) + "def main():\n"
              + textwrap.indent(textwrap.dedent(body), "    ") + "\nmain()\ngc.collect()\n")
    env = dict(os.environ, PYTHONPATH=os.pathsep.join(p for p in sys.path if p))
    try:
        done = subprocess.run([sys.executable, "-c", source], capture_output=True, text=True, timeout=timeout,
                              env=env)
    except subprocess.TimeoutExpired:
        pytest.fail(f"hung for more than {timeout} s")
    assert done.returncode == 0, done.stderr
    assert "leaked" not in done.stderr, done.stderr
    return done.stdout


def test_a_check_may_keep_its_parameters_after_the_run():
    out = run_isolated('''
        KEPT.clear()

        class Layer(zerko.Check.Base):
            pass

        class Keeper(Layer):
            class_id = "keep.parameters"
            long_name = short_name = "Keep"
            description = "Keeps its argument."
            category = "Object"
            sort_index = 0

            @staticmethod
            def parameters():
                return zerko.Parameters.Block(
                    zerko.Parameters.IntRange("limit", value=7),
                    zerko.Parameters.TextInputList("names", [zerko.Parameters.TextInput("body", True)]))

            def check(self, path, parameters):
                KEPT.append(parameters)
                KEPT.append(lambda: parameters.limit.value)

        block = Keeper.parameters()
        block.load([{"as_info": True, "state": {"limit": {"value": 5}}}])
        result = zerko.Check._Queue.Task.Result("|a", Keeper, list(block)[0], None, None)
        assert result.status == "pass"
        del result, block
        gc.collect()
        # Reuse the memory a freed task would have had.
        churn = [zerko.Parameters.Block(zerko.Parameters.IntRange("limit", value=i)).append_task()
                 for i in range(2000)]
        kept, closure = KEPT
        print(kept.limit.value, closure(), kept.as_info, [i.text for i in kept.names])
        KEPT.clear()
    ''')
    assert out.split("\n")[0] == "5 5 True ['body']"


def test_walking_the_projects_may_call_back_into_the_collection():
    out = run_isolated('''
        scene, environment, api = host()
        directory = environment.get_projects_directory()
        for name in ("a", "b", "c"):
            with open(os.path.join(directory, name + ".json"), "w", encoding="utf-8") as f:
                json.dump({"name": name, "records": {}, "version": 3, "filename": name + ".json",
                           "target": "maya", "edit_timestamp": 1.0}, f)
        collection = zerko._Project.Collection(api, "maya")
        seen = []
        for project in collection:
            seen.append((project.filename, len(collection.names), collection.get(project.filename) is project))
            if project.filename == "a.json":
                # Taken away during the walk: no longer handed out.
                collection.accept_http_response([p.data for p in collection if p.filename != "b.json"])
        print(seen)
    ''', timeout=30)
    assert out.strip() == "[('a.json', 3, True), ('c.json', 2, True)]"


def test_hosts_that_keep_their_api_are_freed():
    out = run_isolated('''
        alive = []
        for _ in range(200):
            scene, environment, api = host()
            scene.api = api
            environment.api = api
            api.callbacks.projects_saved.register(lambda *args, api=api: None)
            api.projects = zerko._Project.Collection(api, "maya")
            events = zerko._CallBacks()
            events.buffer_loaded.register(lambda *args, events=events: None)
            alive.append((weakref.ref(scene), weakref.ref(environment)))
        del scene, environment, api, events
        gc.collect()
        print(sum(s() is not None for s, _ in alive), sum(e() is not None for _, e in alive))

        # A service still in Python's hands keeps the operator, and the
        # operator keeps its state until that service is gone.
        scene, environment, api = host()
        scene.api = api
        scene.marker = "kept"
        hierarchy = api._hierarchy
        held = weakref.ref(scene)
        del scene, environment, api
        gc.collect()
        print(held() is not None and held().marker)
        del hierarchy
        gc.collect()
        print(held() is None)
    ''', timeout=120)
    assert out.split() == ["0", "0", "kept", "True"]
