"""Overhead of the check queue on trivial Python checks.

Writes a module of trivial checks to a temporary folder, discovers it, and
makes results (each makes a fresh check object, clones its parameter task,
runs the check and records statistics) for many objects. Prints results per
second for a check that passes and for one that reports an issue, and the
same loop calling the Python checks directly, without the queue.
"""
import os
import sys
import tempfile
import textwrap
import time

import zerko

MODULE = '''
import zerko


class Layer(zerko.Check.Base):
    pass


class Passes(Layer):
    class_id = "bench.pass"
    long_name = "Passes"
    category = "object"

    @staticmethod
    def parameters():
        return zerko.Parameters.Block(zerko.Parameters.IntRange("limit", value=8))

    def check(self, path, parameters):
        if parameters.limit.value < 0:
            raise zerko.Error.ValidationError()


class Fails(Passes):
    class_id = "bench.fail"
    long_name = "Fails"

    def check(self, path, parameters):
        self.could_be_fixed = True
        raise zerko.Error.ValidationError()
'''


class Scene(zerko.Scene.Operator):
    TYPE_MAPPING = {}

    def get_selection(self):
        return []

    def select(self, *paths):
        pass


class Environment(zerko.Environment):
    def __init__(self, directory):
        self._dir = directory
        super().__init__()

    @property
    def target(self):
        return zerko.Constants.Plugin.Target.Standalone

    @property
    def scope(self):
        return "bench"

    def get_settings_directory(self):
        return self._dir

    def get_settings_file(self):
        return os.path.join(self._dir, "settings.json")

    def get_projects_directory(self):
        return self._dir

    def get_statistics_file(self):
        return os.path.join(self._dir, "statistics.json")


def main():
    count = int(sys.argv[1]) if len(sys.argv) > 1 else 20000
    with tempfile.TemporaryDirectory() as folder:
        with open(os.path.join(folder, "bench_checks.py"), "w", encoding="utf-8") as f:
            f.write(textwrap.dedent(MODULE))
        listing = zerko._Settings.Check.Directory.List([{"name": "bench", "path": folder}])
        classes = zerko.Check._Classes(listing)
        statistics = zerko._Statistics(Environment(folder))
        scene = Scene()
        Result = zerko.Check._Queue.Task.Result
        paths = ["|assets|rock%05d_grp" % i for i in range(count)]
        print(f"check queue, {count} objects, one trivial Python check each")
        for class_id in ["bench.pass", "bench.fail"]:
            check_class = classes.get(class_id)
            block = check_class.parameters()
            block.load([])
            task = list(block)[0]
            queue = zerko.Check._Queue()
            start = time.perf_counter()
            for path in paths:
                item = zerko.Check._Queue.Task(path, [])
                item.results.add(Result(path, check_class, task, statistics, scene))
                queue.add(item)
            elapsed = time.perf_counter() - start
            print(f"  {class_id:<11} {count / elapsed:>10,.0f} results/s  ({elapsed * 1e6 / count:.1f} us each)")

            # The same checks called directly, for the share of the queue.
            start = time.perf_counter()
            for path in paths:
                check = check_class()
                try:
                    check.check(path, task)
                except zerko.Error.ValidationError:
                    pass
            direct = time.perf_counter() - start
            print(f"  {'direct':<11} {count / direct:>10,.0f} calls/s    ({direct * 1e6 / count:.1f} us each)")
    return 0


if __name__ == "__main__":
    sys.exit(main())
