"""A thin host layer for pipelines without a DCC application.

The scene lives in a JSON file (see scene.json); the layer answers the
library's scene queries from it, keeps its settings in a directory of its own,
and shows what a host layer in Maya, 3ds Max or Blender does in the same few
steps: subclass Scene.Operator and Environment, construct Api, use it, shut down.

    python examples/host_layer.py examples/scene.json
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


def main(scene_file):
    logging.basicConfig(level=logging.INFO, format="%(levelname)s %(message)s")
    with open(scene_file, encoding="utf-8") as f:
        scene = MemoryScene(json.load(f))
    with tempfile.TemporaryDirectory() as settings_dir:
        api = zerko.Api(scene, PipelineEnvironment(settings_dir))
        print("zerko", ".".join(map(str, api.version)), "on", zerko._Software.detect())
        print("environment:", type(api.env).__name__, "->", os.environ["ZERKO-SETTINGS"])
        masks = api.masks
        print("object types this host offers:", [item.name for item in masks.Type])
        print("ghost types this host offers:", [item.name for item in masks.Ghost])
        for path in scene.get_selection_roots():
            print("selected:", scene.name_from_path(path), "->", scene.map_type(scene.get_type(path)))
        api.callbacks.buffer_loaded.register(lambda: print("buffer loaded"))
        api.shutdown()
        zerko.Logger._flush()
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), "scene.json")))
