"""The Python side of checks: the base of check classes, the named result
list, and the importer of the check modules of a directory.

The compiled module imports this one while it initialises and hangs its
classes where host code finds them (`Check.Base`, `Structure.NamedBuffer`);
the core calls `_search` to scan a directory.
"""
import importlib.util
import inspect
import os
import pkgutil
import sys


class NamedBuffer(list):
    """A list of what a check found, with a name to show it under."""

    def __init__(self, name="", items=()):
        super().__init__()
        self.name = name
        for item in items:
            self.append(item)

    def clear(self):
        while self:
            self.pop()

    def length(self):
        return len(self)

    def is_empty(self):
        return self.length() == 0

    def has_issues(self):
        return not self.is_empty()


class Base:
    """The base of check classes: derive through a class of your own."""

    class_id = ""
    long_name = ""
    short_name = ""
    description = ""
    category = ""
    sort_index = 0
    scene_oriented = False
    could_be_fixed = False
    could_be_selected = False
    result = NamedBuffer()

    @staticmethod
    def parameters():
        from . import _core  # the compiled module imports this one while it initialises

        return _core.Parameters.Block()

    def check(self, path, parameters):
        raise NotImplementedError("check")

    def fix_result(self, path, parameters):
        pass

    def select_result(self):
        pass

    def result_message(self):
        return ""


def _load_module(importer, name, scope):
    fullname = f"{scope}.{name}" if scope else name
    spec = importer.find_spec(fullname)
    if spec is None or spec.loader is None:
        raise ImportError(f"No module named {fullname!r}")
    module = importlib.util.module_from_spec(spec)
    sys.modules[fullname] = module
    try:
        spec.loader.exec_module(module)
    except BaseException:
        sys.modules.pop(fullname, None)
        raise
    return module


def _search(directory, container=None, failures=None, scope=""):
    """Every class member of every module of `directory`, packages walked into."""
    container = [] if container is None else container
    failures = [] if failures is None else failures
    for importer, name, is_package in pkgutil.iter_modules([directory]):
        fullname = f"{scope}.{name}" if scope else name
        try:
            module = _load_module(importer, name, scope)
        except (Exception, SystemExit) as error:  # a module that exits is a failed import too
            failures.append((fullname, f"{type(error).__name__}: {error}"))
            continue
        if is_package:
            _search(os.path.join(directory, name), container, failures, fullname)
        try:
            members = inspect.getmembers(module, inspect.isclass)
        except Exception as error:
            failures.append((fullname, f"{type(error).__name__}: {error}"))
            continue
        container.extend(member for _, member in members)
    return container, failures
