"""Reading and writing large JSON objects through _File.Json beside Python's json.

For objects of 1k, 10k and 40k keys (each value a small record, as in a
statistics or project file), prints the best of several runs of a write and a
read through _File.Json and through json.dump / json.load with the same
options, and the ratio. Both sides go through a file in a temporary folder.
Figures only; nothing is asserted.
"""
import json
import os
import tempfile
import time

import zerko

SIZES = (1_000, 10_000, 40_000)
RUNS = 5


def document(keys):
    return {f"key-{i:06d}": {"timestamp": 1700000000.0 + i, "name": f"Объект {i}", "items": [i, None, True]}
            for i in range(keys)}


def best(action):
    times = []
    for _ in range(RUNS):
        start = time.perf_counter()
        action()
        times.append(time.perf_counter() - start)
    return min(times)


def python_write(path, data):
    with open(path, "w", encoding="utf-8") as f:
        json.dump(data, f, indent=2, ensure_ascii=False)


def python_read(path):
    with open(path, encoding="utf-8") as f:
        return json.load(f)


def main():
    with tempfile.TemporaryDirectory() as folder:
        ours, theirs = os.path.join(folder, "ours.json"), os.path.join(folder, "theirs.json")
        print(f"{'keys':>7} {'size':>8} | {'write':>8} {'json':>8} {'ratio':>6} | {'read':>8} {'json':>8} {'ratio':>6}")
        for keys in SIZES:
            data = document(keys)
            write = best(lambda: zerko._File.Json.write(ours, data))
            write_py = best(lambda: python_write(theirs, data))
            read = best(lambda: zerko._File.Json.read(ours))
            read_py = best(lambda: python_read(theirs))
            with open(ours, "rb") as a, open(theirs, "rb") as b:
                same = a.read() == b.read()
            size = os.path.getsize(ours) / 1e6
            print(f"{keys:>7} {size:>6.1f}MB | {write:>7.3f}s {write_py:>7.3f}s {write / write_py:>5.1f}x | "
                  f"{read:>7.3f}s {read_py:>7.3f}s {read / read_py:>5.1f}x {'' if same else '(texts differ!)'}")


if __name__ == "__main__":
    main()
