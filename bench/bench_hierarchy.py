"""Snapshot through a Python Scene.Operator, and the search driven from Python.

The scene is the one of bench_hierarchy.cpp: a container "assets" with N
assets of 50 objects each. Prints objects per second of Scene._Virtual.upload
through the host's Python overrides, and the time of the search (root scopes,
then mask and validity of every asset) for N = 1,000 and N = 10,000.
"""
import sys
import time
from types import SimpleNamespace as NS

import zerko


class Scene(zerko.Scene.Operator):
    """A host whose scene queries answer from Python dictionaries."""

    TYPE_MAPPING = {"transform": "transform", "mesh": "mesh", "locator": "locator"}

    def __init__(self, n):
        super().__init__()
        self.types, self.parents, self.children = {}, {}, {}
        self.add(None, "assets", "transform")
        for a in range(1, n + 1):
            asset = "rock%04d" % a
            grp = self.add("|assets", asset + "_grp", "transform")
            geo = self.add(grp, asset + "_geo", "transform")
            for p in range(40):
                self.add(geo, "%s_part%d" % (asset, p), "mesh")
            col = self.add(grp, asset + "_col", "transform")
            for c in range(6):
                self.add(col, "UCX_%s_%02d" % (asset, c), "mesh")
            self.add(grp, asset + "_pivot", "locator")

    def add(self, parent, name, kind):
        path = (parent or "") + "|" + name
        self.types[path] = kind
        self.parents[path] = parent
        self.children[path] = []
        if parent:
            self.children[parent].append(path)
        return path

    def object_exists(self, path):
        return path in self.types

    def get_type(self, path):
        return self.types[path]

    def get_parent(self, path):
        return self.parents[path]

    def get_children(self, path):
        return self.children[path]


def rule(stamp, regex, minimum, maximum, kind, name=None):
    return NS(stamp=stamp, name=name or stamp, icon="", color="", regex=regex, types=[kind],
              range=NS(minimum=minimum, maximum=maximum))


def node(r, *children):
    return NS(rule=r, children=list(children))


RULES = [rule("ghost", "^assets$", 1, 1, "transform", "ghost"), rule("pivot", "^<asset>_pivot$", 0, 1, "locator"),
         rule("col", "^<asset>_col$", 0, 1, "transform"), rule("ucx", "^UCX_<asset>_<c:[0-9]{2}>$", 1, 6, "mesh"),
         rule("part", "^<asset>_part<n:[0-9]+>$", 1, 40, "mesh"), rule("geo", "^<asset>_geo$", 1, 1, "transform"),
         rule("grp", "^<asset:[a-z]+[0-9]+>_grp$", 1, 1, "transform")]
R = {r.stamp: r for r in RULES}
RECORD = NS(rules=RULES, pattern=NS(children=[node(R["ghost"], node(R["grp"], node(R["pivot"]),
                                                                    node(R["col"], node(R["ucx"])),
                                                                    node(R["geo"], node(R["part"]))))]))


def run(n):
    scene = Scene(n)
    virtual = zerko.Scene._Virtual(scene)
    best = float("inf")
    for _ in range(3):
        start = time.perf_counter()
        virtual.upload(["|assets"])
        best = min(best, time.perf_counter() - start)
    objects = len(virtual)
    hierarchy = zerko._Hierarchy(virtual, None)
    hierarchy.pattern.set(RECORD)
    roots = virtual.get_children("|assets")
    start = time.perf_counter()
    valid = sum(ok for group in hierarchy.root_scopes(roots) for _, ok in hierarchy.cut(group))
    search = time.perf_counter() - start
    print("N=%6d objects=%7d  snapshot(Python operator) %8.1f ms (%.0f objects/s)  search from Python %8.1f ms (%d valid)"
          % (n, objects, best * 1000, objects / best, search * 1000, valid))


if __name__ == "__main__":
    for n in ([int(a) for a in sys.argv[1:]] or [1000, 10000]):
        run(n)
