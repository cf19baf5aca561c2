"""The package around the compiled module: explicit re-exports, the Python
modules hung into the module's namespaces, and the committed typed stub."""
import ast
import os

import zerko
import zerko._check
import zerko._check_directory
from zerko import _core

STUB = os.path.join(os.path.dirname(__file__), "..", "..", "python", "zerko", "_core.pyi")


def core_names():
    return sorted(name for name in dir(_core) if not name.startswith("__"))


def test_every_name_of_the_module_is_reexported():
    # A name bound in C++ but missing from __init__'s list would vanish from `zerko`.
    assert sorted(zerko.__all__) == core_names()
    for name in core_names():
        assert getattr(zerko, name) is getattr(_core, name), name


def test_python_classes_hang_where_host_code_finds_them():
    assert zerko.Check.Base is zerko._check.Base
    assert zerko.Structure.NamedBuffer is zerko._check.NamedBuffer
    assert zerko._Settings.Check.Directory is zerko._check_directory.Directory
    # The C++ side attaches to the same class object.
    assert zerko._Settings.Check.Directory.List is zerko._Settings.Check._DirectoryList
    assert isinstance(zerko.Check.Base.parameters(), zerko.Parameters.Block)
    directory = zerko._Settings.Check.Directory("pack", "/tmp/../tmp/pack")
    assert directory == "/tmp/pack" and directory.name == "pack" and directory.enabled


def stub_members(node):
    names = set()
    for item in node.body:
        if isinstance(item, (ast.ClassDef, ast.FunctionDef)):
            names.add(item.name)
        elif isinstance(item, ast.AnnAssign) and isinstance(item.target, ast.Name):
            names.add(item.target.id)
        elif isinstance(item, ast.Assign):
            names.update(t.id for t in item.targets if isinstance(t, ast.Name))
    return names


def test_stub_covers_the_public_names():
    with open(STUB, encoding="utf-8") as f:
        module = ast.parse(f.read())
    top = stub_members(module)
    missing = [name for name in core_names() if name not in top]
    assert not missing, f"names of zerko._core absent from the stub: {missing}"

    classes = {item.name: item for item in module.body if isinstance(item, ast.ClassDef)}
    assert "Base" in stub_members(classes["Check"])
    assert "NamedBuffer" in stub_members(classes["Structure"])
    errors = stub_members(classes["Error"])
    assert {"ValidationError", "WrongAttributeName", "AccessQueueTimeout"} <= errors
