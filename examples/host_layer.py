"""A thin host layer for pipelines without a DCC application.

The scene lives in a JSON file (see scene.json); the layer answers the
library's scene queries from it, keeps its settings in a directory of its own,
and shows what a host layer in Maya, 3ds Max or Blender does in the same few
steps: subclass Scene.Operator and Environment, construct Api, use it, shut down.

    python examples/host_layer.py examples/scene.json

It then does the main job on the bundled project (rocks_project.json) with
the embedded check pack (rock_checks/): finds the hierarchies of the scene
that fit the project's pattern and runs the configured checks on them.
"""
import contextlib
import json
import logging
import os
import platform
import sys
import tempfile

import zerko


class MemoryScene(zerko.Scene.Operator):
    """A scene held in memory: paths are "|parent|child" as in Maya."""

    TYPE_MAPPING = {"transform": "transform", "mesh": "mesh", "locator": "locator"}

    def __init__(self, document):
        super().__init__()
        self.file = document.get("name", "")
        self.types, self.parents, self.children = {}, {}, {"": []}
        self._selection = list(document.get("selection", []))
        self._filedata = []
        self._callbacks = []
        for item in document.get("objects", []):
            self._add("", item)

    def _add(self, parent, item):
        path = parent + "|" + item["name"]
        self.types[path] = item["type"]
        self.parents[path] = parent or None
        self.children.setdefault(parent, []).append(path)
        self.children[path] = []
        for child in item.get("children", []):
            self._add(path, child)

    # the query
    def object_exists(self, path):
        return path in self.types

    def get_type(self, path):
        return self.types[path]

    def get_parent(self, path):
        return self.parents.get(path)

    def get_children(self, path):
        return list(self.children.get(path, []))

    # selection and events
    def get_selection(self):
        return list(self._selection)

    def get_selection_roots(self):
        chosen = set(self._selection)

        def covered(path):
            parent = self.parents.get(path)
            while parent:
                if parent in chosen:
                    return True
                parent = self.parents.get(parent)
            return False

        return [p for p in self._selection if not covered(p)]

    def select(self, *paths):
        self._selection = [p for p in paths if p in self.types]

    @contextlib.contextmanager
    def selection_manager(self):
        saved = self.get_selection()
        try:
            yield
        finally:
            self.select(*saved)

    def register_scene_opened_callback(self, function):
        self._callbacks.append(function)

    def register_shutdown_callback(self, function):
        self._callbacks.append(function)

    def delete_callbacks(self):
        self._callbacks.clear()

    # files
    def get_current_file(self):
        return self.file

    def query_filedata(self):
        return list(self._filedata)

    def embed_filedata(self, data):
        self._filedata = list(data)

    def erase_filedata(self):
        self._filedata = []


class PipelineEnvironment(zerko.Environment):
    """Settings, projects and statistics under one directory of the pipeline's."""

    def __init__(self, directory):
        self._dir = directory
        os.makedirs(os.path.join(directory, "projects"), exist_ok=True)
        super().__init__()

    @property
    def target(self):
        return zerko.Constants.Plugin.Target.Standalone

    @property
    def scope(self):
        return "pipeline " + platform.system()

    def get_settings_directory(self):
        return self._dir

    def get_settings_file(self):
        return os.path.join(self._dir, "settings.json")

    def get_projects_directory(self):
        return os.path.join(self._dir, "projects")

    def get_statistics_file(self):
        return os.path.join(self._dir, "statistics.json")


HERE = os.path.dirname(os.path.abspath(__file__))


def validate(api, scene, project_file):
    """The main job: compile the project's pattern, find the hierarchies of
    the scene that fit it, and run each rule's checks on the assets found."""
    project = zerko._Project.Settings.init(None, project_file)
    record = project.history.get_record()
    print(f"project: {project.name} (record by {record.author}: {record.comment})")

    virtual, hierarchy = api._virtual, api._hierarchy
    virtual.upload([p for p in scene.get_children("") if scene.map_type(scene.get_type(p))])
    hierarchy.pattern.set(record)
    ghost = hierarchy.pattern.get_ghost()
    top = hierarchy.pattern.get()[0].rule
    candidates = [c for p in scene.get_children("") for c in virtual.get_children(p)]

    Result = zerko.Check._Queue.Task.Result
    queue = zerko.Check._Queue()
    for group in hierarchy.root_scopes(candidates):
        for roots, valid in hierarchy.cut(group):
            print(f"hierarchy {', '.join(scene.name_from_path(r) for r in roots)}: {'valid' if valid else 'invalid'}")
            if not valid or not hierarchy.pattern.is_verifiable(top.stamp):
                continue
            for root in roots:
                task = zerko.Check._Queue.Task(root, [], name=scene.name_from_path(root))
                for control in hierarchy.pattern.get_checklist(top.stamp).iterator(enabled=True):
                    tasks = list(control.parameters)
                    for parameter_task in tasks:
                        task.results.add(Result(root, control.check, parameter_task, api.statistics, scene,
                                                single=len(tasks) == 1))
                queue.add(task)
    print(f"ghost {ghost.rule.regex!r}; {len(queue)} asset(s) checked:")
    for task in queue:
        print(f"  {task.name:<14} {task.status}")
        for result in task.results:
            print(f"    {result.name:<22} {result.status:<6} {result.result_message()}")
    return queue


def main(scene_file, project_file=os.path.join(HERE, "rocks_project.json")):
    logging.basicConfig(level=logging.INFO, format="%(levelname)s %(message)s")
    with open(scene_file, encoding="utf-8") as f:
        scene = MemoryScene(json.load(f))
    sys.path.insert(0, HERE)
    import rock_checks  # the host's embedded check pack

    rock_checks.SCENE = scene
    with tempfile.TemporaryDirectory() as settings_dir:
        api = zerko.Api(scene, PipelineEnvironment(settings_dir), checks=rock_checks)
        print("zerko", ".".join(map(str, api.version)), "on", zerko._Software.detect())
        print("environment:", type(api.env).__name__, "->", os.environ["ZERKO-SETTINGS"])
        print("object types this host offers:", [item.name for item in api.masks.Type])
        print("check classes:", [c.class_id for c in api._classes])
        api.callbacks.buffer_loaded.register(lambda: print("buffer loaded"))
        validate(api, scene, project_file)
        api.shutdown()
        zerko.Logger._flush()
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), "scene.json")))
