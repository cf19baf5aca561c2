"""The check section of the settings: configurations, directories and presets."""
import json
import time

import pytest

import zerko
from zerko import _Settings

Check = _Settings.Check

STORED = {
    "directories": [
        {"name": "studio", "path": "", "enabled": False},  # replaced by a real folder below
        {"name": "gone", "path": "/no/such/folder/at/all", "enabled": True},
    ],
    "mode": 1,
    "list": {
        "check.Names": {"enabled": True, "opened": True, "parameters": [{"as_info": False, "state": {"n": {"value": 3}}}]},
        "check.Off": {"enabled": False, "parameters": [{"as_info": True, "state": {}}]},
        "check.Odd": {"enabled": "yes", "opened": 1, "parameters": {"not": "a list"}},
    },
    "presets": [
        {"stamp": "bbbbbbbbbbbbbbbb", "changed": 5.0, "name": "  Zeta  ", "list": {}},
        {"name": "Alpha", "list": {"check.Names": {"enabled": True}}},
    ],
}


def stored(tmp_path):
    data = json.loads(json.dumps(STORED))
    data["directories"][0]["path"] = str(tmp_path / "sub" / ".." / "checks") + "/"
    (tmp_path / "checks").mkdir()
    return data


def test_state_reads_the_section_and_writes_only_what_it_keeps(tmp_path):
    state = Check.State(stored(tmp_path))
    assert state.mode == 1
    # The missing folder is dropped at load; the path is normalised.
    assert [d.name for d in state.directories] == ["studio"]
    directory = state.directories[0]
    assert isinstance(directory, str) and directory == str(tmp_path / "checks")
    assert directory.enabled is False
    # Only enabled records are written; stored values of the wrong type read as defaults.
    assert list(state.config.data) == ["check.Names"]
    odd = state.config.get("check.Odd")
    assert (odd.enabled, odd.opened, odd.parameters) == (False, False, [])
    data = state.data
    assert list(data) == ["directories", "mode", "list", "presets"]
    assert data["directories"] == [{"name": "studio", "path": str(tmp_path / "checks"), "enabled": False}]
    # Presets sort by the name as held, blanks and all, and are written
    # trimmed; a stored preset without a stamp keeps the empty one.
    assert [p["name"] for p in data["presets"]] == ["Zeta", "Alpha"]
    assert [p["stamp"] for p in data["presets"]] == ["bbbbbbbbbbbbbbbb", ""]
    assert data["presets"][1]["changed"] == 0.0
    assert json.loads(json.dumps(data)) == data
    # Garbage reads as the defaults, never an error.
    assert Check.State(["not", "an", "object"]).data == {"directories": [], "mode": 0, "list": {}, "presets": []}
    state.mode = "1"
    assert state.mode == 1


def test_config_get_mask_clone_apply_and_equality():
    config = Check.Config({"a": {"enabled": True, "parameters": [{"as_info": False, "state": {}}]},
                           "b": {"enabled": False, "parameters": [{"as_info": True, "state": {}}]}})
    assert len(config) == 2 and [r.class_id for r in config] == ["a", "b"]
    assert config.get("zz") is None and len(config) == 2
    made = config.get("zz", force=True)
    assert (made.class_id, made.enabled, made.parameters) == ("zz", False, [])
    assert config.get("zz") is made and len(config) == 3
    # A clone goes through the stored form: the disabled record's parameters are lost.
    clone = config.clone()
    assert [r.class_id for r in clone] == ["a"] and clone == config and clone is not config
    config.get("b").enabled = True
    assert clone != config
    config.mask(["b", "c"])
    assert [r.class_id for r in config] == ["b"]
    config.apply(clone)
    assert [r.class_id for r in config] == ["a"]
    config.apply("not a config")
    assert [r.class_id for r in config] == ["a"]
    assert Check.Config.empty().is_empty() and not config.is_empty()
    assert Check.Config({"x": {"enabled": False}}).is_empty()
    assert config != {"a": {}}
    record = Check.empty("k", True)
    assert record.data == {"enabled": True, "opened": False, "parameters": []}


def test_directory_list_approves_embeds_and_joins(tmp_path):
    (tmp_path / "a").mkdir()
    (tmp_path / "b").mkdir()
    module_file = tmp_path / "pack" / "__init__.py"
    module_file.parent.mkdir()
    module_file.write_text("")

    class Module:
        __file__ = str(module_file)

    listing = Check.Directory.List([{"name": "a", "path": str(tmp_path / "a")}])
    listing.append(Check.Directory("b", str(tmp_path / "b")))
    listing.append(Check.Directory("missing", str(tmp_path / "missing")))
    listing.append(str(tmp_path / "a"))  # a plain string is not a directory
    listing.insert(0, Check.Directory("b2", str(tmp_path / "b")))
    assert [d.name for d in listing] == ["b2", "a", "b"]
    # Only a loaded module is embedded; anything else is ignored without a word.
    for not_a_module in (None, "text", 42, object()):
        listing.embed(not_a_module)
    assert listing._embedded is None and len(listing) == 3
    listing.embed(Module)
    embedded = listing._embedded
    assert embedded.name == "Default" and embedded.locked and embedded == str(tmp_path / "pack")
    assert [d.name for d in listing][-1] == "Default"
    # The embedded directory is never written.
    assert [d["name"] for d in listing.data] == ["b2", "a", "b"]
    joined = listing + Check.Directory.List([{"name": "x", "path": str(tmp_path / "a")}])
    assert [d.name for d in joined] == ["b2", "a", "b", "Default", "x"]
    assert len(listing + "nothing") == len(listing)
    # A directory taken from the list writes through to it.
    listing[1].enabled = False
    assert listing.data[1]["enabled"] is False
    with pytest.raises(TypeError):
        listing[1].enabled = "no"


def test_presets_stamps_names_and_changed_times():
    presets = Check.Presets([{"name": "b", "stamp": "s1"}, {"name": "a", "stamp": "s2"}])
    config = Check.Config({"x": {"enabled": True}})
    first = presets.add("m", config)
    twin = presets.add("m", Check.Config())
    assert presets.names == ["a", "b", "m", "m"]
    assert len(first.stamp) == 16 and int(first.stamp, 16) >= 0 and first.stamp != twin.stamp
    assert first != twin and first == first
    before = first.changed
    time.sleep(0.01)
    first.name = ""
    first.name = None
    assert first.name == "m" and first.changed == before
    first.name = "0 first"
    assert first.changed > before and presets.names == ["0 first", "a", "b", "m"]
    stamp = first.stamp
    first.config = "not a config"
    assert first.config == config and first.stamp == stamp
    presets.sync_applied(Check.Config({"x": {"enabled": True}}))
    assert [p.applied for p in presets] == [True, False, False, False]
    presets.pop(twin)
    presets.pop(twin)
    assert presets.names == ["0 first", "a", "b"]
    assert Check.Presets.Set(presets, 5, None).name == ""
    assert [p["stamp"] for p in presets.data] == [stamp, "s2", "s1"]


def test_settings_file_carries_the_check_section(environment, tmp_path):
    folder = tmp_path / "checks"
    folder.mkdir()
    with open(environment.get_settings_file(), "w", encoding="utf-8") as f:
        json.dump({"version": 4, "check": {"directories": [{"name": "c", "path": str(folder)}],
                                           "list": {"k": {"enabled": True}}}}, f)
    settings = _Settings(environment)
    assert settings.check.mode == zerko.Constants.Check.Mode.Selection
    settings.check.presets.add("Naming", settings.check.config.clone())
    settings.write()
    with open(environment.get_settings_file(), encoding="utf-8") as f:
        written = json.load(f)["check"]
    assert written["directories"] == [{"name": "c", "path": str(folder), "enabled": True}]
    assert written["presets"][0]["list"] == {"k": {"enabled": True, "opened": False, "parameters": []}}
