"""The layering check that the C++ build runs (ctest 'layering'), on small made-up trees."""
import importlib.util
import os

import pytest

SCRIPT = os.path.join(os.path.dirname(__file__), "..", "..", "cmake", "check_layering.py")
spec = importlib.util.spec_from_file_location("check_layering", SCRIPT)
layering = importlib.util.module_from_spec(spec)
spec.loader.exec_module(layering)


def tree(root, files):
    for name, text in files.items():
        path = root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
    return root


def run(tmp_path, declared, files):
    layers_file = tmp_path / "layers.txt"
    layers_file.write_text(declared)
    return layering.main(["check_layering.py", str(layers_file), str(tree(tmp_path / "src" / "zerko", files))])


def test_includes_must_follow_the_declared_dependencies(tmp_path, capsys):
    files = {
        "base/a.hpp": "#pragma once\n",
        "mid/b.hpp": '#include "zerko/base/a.hpp"\n#include <vector>\n',
        "top/c.cpp": '#include "zerko/mid/b.hpp"\n#include "zerko/top/c.hpp"\n',
    }
    assert run(tmp_path, "base:\nmid: base\ntop: mid base\n", files) == 0

    # The same tree with an include that goes up a layer.
    files["base/a.cpp"] = '#include "zerko/base/a.hpp"\n  #  include "zerko/top/c.hpp"\n'
    assert run(tmp_path, "base:\nmid: base\ntop: mid base\n", files) == 1
    err = capsys.readouterr().err
    assert "base/a.cpp:2: base includes zerko/top/" in err

    # A folder the build does not know is refused too.
    assert run(tmp_path, "base:\nmid: base\n", {"base/a.cpp": "", "top/c.cpp": ""}) == 1
    assert "src/zerko/top is not declared" in capsys.readouterr().err


@pytest.mark.parametrize("declared, cycle", [
    ("a: b\nb: c\nc: a\n", "a -> b -> c -> a"),
    ("a: a\nb:\n", "a -> a"),
    ("a:\nb: c\nc: d\nd: b\n", "b -> c -> d -> b"),
])
def test_declared_cycles_are_refused(tmp_path, capsys, declared, cycle):
    # The sources include nothing, so only the declared graph is at fault.
    files = {f"{name}/x.cpp": "" for name in "abcd" if name + ":" in declared}
    assert run(tmp_path, declared, files) == 1
    assert "cycle: " + cycle in capsys.readouterr().err
