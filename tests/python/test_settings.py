"""The settings store from Python, as a host layer and the Api use it."""
import json
import os

import pytest

import zerko
from conftest import host_layer
from zerko import _Settings

C = zerko.Constants
DEFAULTS = {
    "version": 4,
    "check": {},
    "export": {"mode": 0, "directory": "~"},
    "workspace": {"project": "", "check_updates": False},
    "server": {"enabled": False, "host": "localhost", "port": 8080, "erase_sent": False},
}


def load(path):
    with open(path, encoding="utf-8") as f:
        return json.load(f)


def test_names_are_nested_as_documented():
    for dotted in ["_Settings.Workspace", "_Settings.Export", "_Settings.Server", "_Settings.URLs",
                   "_Settings.URLs.Path", "_Statistics.Type._Record", "_Statistics.Type.Validate",
                   "_Statistics.Type.Checks", "_Statistics.Type.Exported", "_Statistics.Type.FeedbackSent",
                   "_Statistics.HttpRequest", "_Statistics.HttpResponse", "_File.Json.read", "_File.Json.write",
                   "_File.Json.AccessQueue", "_File.Text.read", "_File.timed_filename", "_File.move_corrupted"]:
        obj = zerko
        for part in dotted.split("."):
            obj = getattr(obj, part)
    assert _Settings.version == 4


def test_written_file_reads_back_in_json(environment):
    settings = _Settings(environment)
    assert settings.data == DEFAULTS and list(settings.data) == list(DEFAULTS)
    settings.workspace.project = "Сцена_0a1b2c3d.json"
    settings.workspace.project = 5  # not text: ignored
    settings.workspace.check_updates = True
    settings.export.mode = C.Export.Mode.Local
    settings.export.mode = "Local"  # ignored
    settings.export.directory = None  # ignored
    settings.server.erase_sent = True
    settings.write()
    on_disk = load(environment.get_settings_file())
    assert on_disk == settings.data and list(on_disk) == list(DEFAULTS)
    assert on_disk["workspace"] == {"project": "Сцена_0a1b2c3d.json", "check_updates": True}
    assert on_disk["export"] == {"mode": 2, "directory": "~"}
    with open(environment.get_settings_file(), encoding="utf-8") as f:
        assert "Сцена" in f.read()  # written as it is, not escaped
    again = _Settings(environment)
    assert again.data == on_disk and again.server.erase_sent is True


def test_unusable_files_give_defaults_without_raising(environment, log):
    path = environment.get_settings_file()
    corrupted = os.path.join(os.path.dirname(path), ".corrupted")

    with open(path, "w", encoding="utf-8") as f:
        json.dump({"version": 3, "workspace": {"project": "old.json"}}, f)
    assert _Settings(environment).data == DEFAULTS
    assert any(m.startswith("Incompatible Settings Version - 3") for m in log.messages(30))
    assert os.path.exists(path) and not os.path.exists(corrupted)

    with open(path, "w", encoding="utf-8") as f:
        f.write('{"version": 4, ')
    settings = _Settings(environment)
    assert settings.data == DEFAULTS
    assert f"Read Corrupted Settings: {path}" in log.messages(40)
    assert not os.path.exists(path) and len(os.listdir(corrupted)) == 1
    settings.write()
    assert load(path) == DEFAULTS


def test_sections_alone():
    workspace = _Settings.Workspace({"project": "p.json", "check_updates": "yes"})
    assert workspace.data == {"project": "p.json", "check_updates": False}
    assert isinstance(workspace.project, zerko._Str)
    assert _Settings.Export(None).data == {"mode": 0, "directory": "~"}
    assert _Settings.Export([1, 2]).data == {"mode": 0, "directory": "~"}

    server = _Settings.Server({"host": "stats.local", "port": 8443, "enabled": True})
    assert os.environ["ZERKO-SERVER"] == "stats.local:8443"
    server.host = "10.1.1.1"
    server.port = 81
    assert os.environ["ZERKO-SERVER"] == "10.1.1.1:81"
    server.port = "82"
    server.host = 7
    assert (server._host, server._port) == ("10.1.1.1", 81)
    assert server.data == {"enabled": True, "host": "10.1.1.1", "port": 81, "erase_sent": False}


def test_urls_and_name_rules():
    urls = _Settings.URLs("maya", "Windows10.0.19045")
    assert urls.port == 443 and urls.home == "https://" + urls.host
    assert urls.path.latest == "/validator/downloads/maya/Windows10.0/latest/"
    assert isinstance(urls.path, _Settings.URLs.Path)
    assert urls.latest == urls.home + urls.path.latest
    assert urls.documentation_editor == urls.home + "/validator/#project-editor"
    assert urls.feedback.endswith("/feedback")
    assert _Settings.URLs.Path.format_scope("Linux") == "Linux"

    F = C.Name.Filter
    assert not _Settings.is_approved("Куб", F.LATIN) and _Settings.is_approved("Cube", F.LATIN)
    assert not _Settings.is_approved(" Cube", F.SPACE)
    assert _Settings.approved_name("x", none=True, method="unknown") is None
    assert _Settings.approved_name("x", none=True, method=None) is None
    assert _Settings.approved_name("x", method=42) == "x"
    assert _Settings.approved_name("Cube Куб") == "Cube "


def test_api_builds_both_stores_from_its_environment(scene, environment):
    with open(environment.get_settings_file(), "w", encoding="utf-8") as f:
        json.dump({"version": 4, "workspace": {"project": "p.json"}, "server": {"erase_sent": True}}, f)
    api = zerko.Api(scene, environment)
    assert isinstance(api.settings, _Settings) and isinstance(api.statistics, zerko._Statistics)
    assert api.settings.workspace.project == "p.json" and api.settings.server.erase_sent is True
    api.settings.workspace.project = "q.json"
    assert api.settings.workspace.project == "q.json"  # the Api's own store, not a copy
    api.statistics.add(zerko._Statistics.Type.Validate(1.0, 0.5, project="q.json"))
    api.statistics.write()
    assert load(environment.get_statistics_file())["validate"] == [
        {"project": "q.json", "timestamp": 1.0, "speed": 0.5}]
    assert api.statistics._path == environment.get_statistics_file()
    api.shutdown()
