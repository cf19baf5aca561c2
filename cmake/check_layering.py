"""Checks the layering of the C++ core.

Usage: check_layering.py LAYERS_FILE SOURCE_ROOT

LAYERS_FILE has one line per subsystem, "name: dep dep ...", as the build
declares them. SOURCE_ROOT is src/zerko, one folder per subsystem. The check
fails when a folder is not declared, when a declared dependency is not a
subsystem, when the declared dependencies form a cycle, or when a source
includes "zerko/<folder>/..." of a folder that is neither its own nor a
declared dependency. Since every include is checked against the declared
graph and that graph is acyclic, the folders have no cycle either.
"""

import re
import sys
from pathlib import Path

INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]zerko/([^/">]+)/', re.MULTILINE)
SOURCE_SUFFIXES = {".hpp", ".cpp", ".h", ".cc", ".ipp", ".inl"}


def read_layers(text):
    """The declared dependencies, by subsystem, in the order of declaration."""
    layers = {}
    for number, line in enumerate(text.splitlines(), 1):
        line = line.strip()
        if not line:
            continue
        name, sep, deps = line.partition(":")
        if not sep or not name.strip():
            raise ValueError(f"line {number}: expected 'name: dependencies', got {line!r}")
        layers[name.strip()] = deps.split()
    return layers


def find_cycle(layers):
    """A cycle of the declared graph as a list of names (first == last), or None."""
    state = {}  # name -> "open" while on the path, "done" once finished
    path = []

    def visit(name):
        state[name] = "open"
        path.append(name)
        for dep in layers.get(name, []):
            if state.get(dep) == "open":
                return path[path.index(dep):] + [dep]
            if dep not in state:
                found = visit(dep)
                if found:
                    return found
        path.pop()
        state[name] = "done"
        return None

    for name in layers:
        if name not in state:
            found = visit(name)
            if found:
                return found
    return None


def check(layers, root):
    """Every problem found, as readable lines; empty when the layering holds."""
    problems = []
    folders = sorted(p.name for p in root.iterdir() if p.is_dir())
    for folder in folders:
        if folder not in layers:
            problems.append(f"src/zerko/{folder} is not declared as a subsystem in CMakeLists.txt")
    for name, deps in layers.items():
        for dep in deps:
            if dep not in layers:
                problems.append(f"{name} declares a dependency on {dep}, which is no subsystem")
            if dep == name:
                problems.append(f"{name} declares a dependency on itself")
    cycle = find_cycle(layers)
    if cycle:
        problems.append("the declared dependencies form a cycle: " + " -> ".join(cycle))
    for folder in folders:
        allowed = {folder, *layers.get(folder, [])}
        for source in sorted((root / folder).rglob("*")):
            if source.suffix not in SOURCE_SUFFIXES or not source.is_file():
                continue
            text = source.read_text(encoding="utf-8", errors="replace")
            for match in INCLUDE.finditer(text):
                target = match.group(1)
                if target not in allowed:
                    line = text.count("\n", 0, match.start()) + 1
                    problems.append(
                        f"{source.relative_to(root.parent.parent)}:{line}: {folder} includes "
                        f"zerko/{target}/, which is not among its dependencies "
                        f"({', '.join(sorted(allowed - {folder})) or 'none'})")
    return problems


def main(argv):
    if len(argv) != 3:
        print(__doc__, file=sys.stderr)
        return 2
    layers = read_layers(Path(argv[1]).read_text(encoding="utf-8"))
    problems = check(layers, Path(argv[2]))
    for problem in problems:
        print(problem, file=sys.stderr)
    if problems:
        print(f"layering: {len(problems)} problem(s)", file=sys.stderr)
        return 1
    print(f"layering: {len(layers)} subsystems, includes follow the declared dependencies")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
