"""The whole scan through a Python Scene.Operator, against the bare snapshot.

The scene is the one of bench_hierarchy.py: a container "assets" with N
assets of 50 objects each, everything selected; the host keeps its objects in
Python dictionaries. For N = 1,000 and N = 10,000 it prints the time of
Scene._Scanner.upload_buffer (selection, snapshot, roots, cut-out loop, joint
trees, buckets, the host's hooks and the embedded data), the time of the bare
snapshot of the same roots through the same operator, their ratio, and the
growth of the resident set that the snapshot and the buffer cost.
"""
import gc
import os
import sys
import time

import zerko

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from bench_hierarchy import RECORD, Scene  # noqa: E402


class Host(Scene):
    """The benchmark scene with what a scan asks of a host besides the queries."""

    def __init__(self, n):
        super().__init__(n)
        self.selection = list(self.types)
        self.filedata = []

    def get_selection(self):
        return self.selection

    def get_selection_roots(self):
        return ["|assets"]

    def select(self, *paths):
        self.selection = list(paths)

    def query_filedata(self):
        return self.filedata

    def embed_filedata(self, data):
        self.filedata = data

    def erase_filedata(self):
        self.filedata = []

    def postscript_scan_append(self, joint):
        pass

    def postscript_scan_remove(self, joint):
        pass


def rss():
    with open("/proc/self/statm") as f:
        return int(f.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")


def best_of(count, function):
    best = float("inf")
    for _ in range(count):
        start = time.perf_counter()
        function()
        best = min(best, time.perf_counter() - start)
    return best


def run(n, repeat):
    host = Host(n)
    objects = len(host.types)
    gc.collect()
    before = rss()
    virtual = zerko.Scene._Virtual(host)
    virtual.upload(host.get_selection_roots())
    gc.collect()
    snapshot_only = rss() - before
    hierarchy = zerko._Hierarchy(virtual, None)
    hierarchy.pattern.set(RECORD)
    buffer = zerko.Scene._Buffer(host, virtual, hierarchy)
    callbacks = zerko._CallBacks()
    scanner = zerko.Scene._Scanner(None, host, virtual, hierarchy, buffer, callbacks)
    assert scanner.upload_buffer()
    host.filedata = []  # the host's own copy of the embedded data is not ours
    gc.collect()
    grown = rss() - before
    assert len(buffer.get()) == n
    scan = best_of(repeat, lambda: scanner.upload_buffer())
    snapshot = best_of(repeat, lambda: virtual.upload(host.get_selection_roots()))
    print("N=%6d objects=%7d  scan %8.1f ms  bare snapshot %8.1f ms  ratio %.2f  memory %.0f bytes/object"
          " (snapshot %.0f, the rest of the scan %.0f)"
          % (n, objects, scan * 1000, snapshot * 1000, scan / snapshot, grown / objects, snapshot_only / objects,
             (grown - snapshot_only) / objects))
    return scan


if __name__ == "__main__":
    sizes = [int(a) for a in sys.argv[1:]] or [1000, 10000]
    times = {n: run(n, 3 if n <= 1000 else 2) for n in sizes}
    if 1000 in times and 10000 in times:
        print("scan N=10,000 / N=1,000: %.1f" % (times[10000] / times[1000]))
