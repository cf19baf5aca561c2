"""Vocabulary, the scene contract, environments and the Api facade, driven as a host layer drives them."""
import logging
import os
import platform
import shutil
import subprocess
import sys
import tempfile
import textwrap
import types

import pytest

import zerko
from conftest import host_layer

C = zerko.Constants


def test_public_names_are_spelled_and_nested_as_documented():
    for dotted in ["version", "Api", "Constants.Check.Mode", "Constants.Check.Category", "Constants.Check.Result",
                   "Constants.Export.Format", "Constants.Export.Mode", "Constants.Scene.Type",
                   "Constants.Plugin.Status", "Constants.Plugin.Target", "Constants.Name.Filter", "Mask.Item",
                   "Mask._Set", "Mask.Ghost", "Mask.Type", "Mask.Result", "TypeMapping", "Environment", "_LocalEnv",
                   "_Software", "Scene._QueryOp", "Scene.Operator", "_Str", "_str", "_format", "_Naming",
                   "_NamesControl", "Error.ValidationError", "Logger", "_Assert.Environment",
                   "_Assert.Parameters.Input", "_Assert.Json", "_CallBacks.List"]:
        obj = zerko
        for part in dotted.split("."):
            obj = getattr(obj, part)


def test_constants_values_and_truths():
    assert C.Check.Mode.Selection == 0 and C.Check.Mode.Project == 1 == C.Export.Mode.Project
    assert C.Export.Mode.Local == 2 and C.Export.Format.FBX == "fbx"
    assert C.Check.Category.Mesh == C.Scene.Type.Mesh == "mesh"
    assert C.Check.Category.MeshNonManifold == "mesh non-manifold"
    assert C.Plugin.Status.Success is True and C.Plugin.Status.Failure is False
    assert C.Plugin.Target.DCC_3dsMax == "3dsmax" and C.Scene.Type.LodGroup == "lodGroup"
    assert isinstance(C.Check.Result.Pass, zerko._Str)
    assert C.Check.Mode.__doc__ == "Enum to switch check logic."


def test_masks_follow_the_type_table():
    no_lod = zerko.Mask(zerko.TypeMapping({"t": "transform", "l": "locator", "m": "mesh"}))
    assert [i.name for i in no_lod.Type] == ["Loc. or Group", "Locator", "Group", "Mesh", "Any"]
    assert list(no_lod.Type.LodGroup) == ["lodGroup"]  # the field stays after the row left the list
    only_mesh = zerko.Mask(zerko.TypeMapping({"poly": "mesh"}))
    assert [i.attr for i in only_mesh.Type] == ["Mesh", "Any"]
    assert len(only_mesh.Ghost) == 0
    assert [i.name for i in only_mesh.Result] == ["Fail", "Fail & Info"]
    assert only_mesh.Result.FailInfo == ["fail", "info"] and only_mesh.Result.FailInfo.mapped is False
    mapping = zerko.TypeMapping({"poly": "mesh"})
    assert mapping.get("poly") == "mesh" and mapping.get("nurbs") is None
    assert mapping.exist("mesh") and not mapping.exist("poly")
    item = zerko.Mask.Item("a", "b", name="AB", attr="Both", mapped=True)
    group = zerko.Mask._Set(item, zerko.Mask.Item(name="nameless"))
    assert list(group.Both) == ["a", "b"] and len(group) == 2
    with pytest.raises(AttributeError):
        group.Missing


def test_operator_base_raises_not_implemented_for_every_abstract_operation():
    op = zerko.Scene.Operator()
    calls = [lambda: op.object_exists("a"), lambda: op.get_type("a"), lambda: op.get_parent("a"),
             lambda: op.get_children("a"), op.get_selection, op.get_selection_roots, lambda: op.select("a"),
             lambda: op.register_scene_opened_callback(print), lambda: op.register_shutdown_callback(print),
             op.delete_callbacks, lambda: op.export(["a"], "f.fbx", "fbx", {}), op.get_current_file,
             op.directory_dialog, op.file_dialog, op.query_filedata, lambda: op.embed_filedata([]),
             op.erase_filedata]
    for call in calls:
        with pytest.raises(NotImplementedError):
            call()
    query = zerko.Scene._QueryOp()
    with pytest.raises(NotImplementedError):
        query.get_children("a")
    assert zerko.Scene.Operator.name_from_path("|a|b") == "b"
    assert zerko.Scene.Operator.name_from_path("a/b|c") == "c"
    assert zerko.Scene.Operator.name_from_path("abc") == "abc"
    assert zerko.Scene.Operator.name_from_path("a|") == ""


def test_operator_subclass_is_called_from_the_core(scene):
    assert scene.map_type("mesh") == "mesh" and scene.map_type("camera") is None
    scene.select("|assets|rock0001_grp")
    with scene.selection_manager():
        scene.select("|assets")
    assert scene.get_selection() == ["|assets|rock0001_grp"]

    class Plain(host_layer.MemoryScene):
        selection_manager = zerko.Scene.Operator.selection_manager  # the core's own scope

    plain = Plain({"objects": [{"name": "a", "type": "mesh"}, {"name": "b", "type": "mesh"}], "selection": ["|a"]})
    with plain.selection_manager():
        plain.select("|b")
    assert plain.get_selection() == ["|a"]


def test_operator_results_of_the_wrong_type_raise_type_error(environment):
    class Broken(zerko.Scene.Operator):
        def get_selection(self):
            return 5

        def select(self, *paths):
            pass

    with pytest.raises(TypeError):
        with Broken().selection_manager():
            pass


def test_environment_codecs_use_the_home_directory():
    home = zerko.Environment.user_home
    assert home == os.environ.get("USERPROFILE", os.environ.get("HOME"))
    stored = zerko.Environment.encode_user(os.path.join(home, "x"))
    assert stored == "~/x"
    assert zerko.Environment.decode_user(stored) == os.path.normpath(os.path.join(home, "x"))
    assert zerko.Environment.decode_user("/data/a~b") == "/data/a" + os.path.normpath(home) + "b"
    assert zerko.Environment.encode_user("/elsewhere//x/../y") == "/elsewhere/y"
    assert zerko.Environment.name == ".zerko"


def test_local_environment_lives_beside_the_library():
    env = zerko._LocalEnv()
    package = os.path.dirname(zerko._core.__file__)
    assert env.root == os.path.join(package, ".zerko")
    assert env.get_settings_directory() == os.path.join(package, ".zerko", "standalone")
    assert env.get_projects_directory() == os.path.join(env.get_settings_directory(), "projects")
    assert env.get_settings_file().endswith("standalone/settings.json")
    assert env.get_statistics_file().endswith("standalone/statistics.json")
    assert env.target == "standalone" and env.scope == platform.system() + platform.release()
    assert os.environ["ZERKO-SETTINGS"] == env.get_settings_directory()
    assert os.environ["ZERKO-TARGET"] == "standalone"
    assert zerko._LocalEnv().get_settings_directory() == env.get_settings_directory()  # finds, creates nothing


def test_read_only_install_keeps_its_files_in_the_home_directory():
    # The package is installed in a folder that cannot be written. Root writes
    # through permissions, so for root the folder is made immutable instead.
    base = tempfile.mkdtemp()
    package = os.path.join(base, "site", "zerko")
    immutable = False
    try:
        os.makedirs(package)
        installed = os.path.dirname(zerko._core.__file__)
        for name in os.listdir(installed):
            if name.startswith((".", "__pycache__")):
                continue
            os.symlink(os.path.join(installed, name), os.path.join(package, name))
        os.chmod(package, 0o555)
        if os.getuid() == 0:
            immutable = subprocess.run(["chattr", "+i", package], capture_output=True).returncode == 0
            if not immutable:
                pytest.skip("no way to make a folder read-only for root here")
        home = os.path.join(base, "home")
        os.mkdir(home)
        script = """
            import logging, os, sys
            logging.basicConfig(level=logging.INFO, format="%(levelname)s %(message)s")
            import zerko
            sys.path.insert(0, sys.argv[1])
            from conftest import host_layer
            api = zerko.Api(host_layer.MemoryScene({"objects": []}), None)
            zerko.Logger._flush()
            print(api.env.root)
            print(api.env.get_settings_directory())
        """
        environ = dict(os.environ, HOME=home, PYTHONPATH=os.path.dirname(package))
        environ.pop("USERPROFILE", None)
        run = subprocess.run([sys.executable, "-c", textwrap.dedent(script), os.path.dirname(__file__)], env=environ,
                             timeout=60, capture_output=True, text=True)
        assert run.returncode == 0, run.stderr
        root, settings = run.stdout.split()
        assert root == os.path.join(home, ".zerko") and settings == os.path.join(root, "standalone")
        assert os.path.isdir(os.path.join(settings, "projects"))
        assert not os.path.exists(os.path.join(package, ".zerko"))
        notes = [l for l in run.stderr.splitlines() if l.startswith("INFO") and "cannot be written" in l]
        assert len(notes) == 1 and root in notes[0]
    finally:
        if immutable:
            subprocess.run(["chattr", "-i", package])
        if os.path.isdir(package):
            os.chmod(package, 0o755)
        shutil.rmtree(base, ignore_errors=True)


def test_host_environment_publishes_process_variables(environment):
    assert os.environ["ZERKO-SETTINGS"] == environment.get_settings_directory()
    assert os.environ["ZERKO-SCOPE"] == environment.scope
    assert zerko._Assert.Environment.is_valid(environment)


class RaisingEnv:
    def get_settings_file(self):
        raise RuntimeError("no settings here")


class NonStringEnv:
    def get_settings_file(self):
        return 5


class CodecEnv:
    get_settings_file = get_settings_directory = get_projects_directory = get_statistics_file = \
        staticmethod(lambda: "/tmp")

    @staticmethod
    def decode_user(path):
        raise KeyError(path)

    encode_user = decode_user


@pytest.mark.parametrize("faulty, line", [
    (None, None), (RaisingEnv(), "RuntimeError: no settings here"), (NonStringEnv(), "TypeError"),
    (CodecEnv(), "KeyError: '~'"), (object(), "AttributeError"),
])
def test_api_falls_back_to_the_local_environment(scene, log, faulty, line):
    api = zerko.Api(scene, faulty)
    assert type(api.env) is zerko._LocalEnv
    errors = log.messages(logging.ERROR)
    if line is None:
        assert errors == []
    else:
        assert len(errors) == 1 and errors[0].startswith(line), errors


def test_api_keeps_the_host_objects_and_shuts_down(scene, environment):
    api = zerko.Api(scene, environment)
    assert api.env is environment and api._op is scene
    assert api.version == (0, 8, 20) and api.version is zerko.version
    assert api.constants is zerko.Constants and api.logger is zerko.Logger
    first, second = api.masks, api.masks
    assert first is not second and [i.name for i in first.Type] == [i.name for i in second.Type]
    scene.register_scene_opened_callback(print)
    api.callbacks.buffer_loaded.register(print)
    api.shutdown()
    assert scene._callbacks == [] and len(api.callbacks.buffer_loaded) == 0
    api.extra = "hosts may keep their own attributes"


def test_api_refuses_what_is_not_an_operator(environment):
    with pytest.raises(TypeError):
        zerko.Api("not an operator", environment)
    with pytest.raises(TypeError):
        zerko.Api()


def test_shutdown_propagates_a_failing_delete_callbacks(scene, environment):
    class Failing(type(scene)):
        def delete_callbacks(self):
            raise RuntimeError("host refuses")

    api = zerko.Api(Failing({"objects": []}), environment)
    api.callbacks.buffer_loaded.register(print)
    with pytest.raises(RuntimeError, match="host refuses"):
        api.shutdown()
    assert len(api.callbacks.buffer_loaded) == 1  # clear() is not reached


def test_software_detection(monkeypatch):
    assert zerko._Software.detect() == "Unknown"
    monkeypatch.setitem(sys.modules, "pymxs", types.ModuleType("pymxs"))
    assert zerko._Software.detect() == "3dsMax"
    monkeypatch.setitem(sys.modules, "bpy", types.ModuleType("bpy"))
    assert zerko._Software.detect() == "Blender"
