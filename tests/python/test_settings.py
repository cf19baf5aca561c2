"""The settings store from Python, as a host layer and the Api use it."""
import json
import os

import zerko
from zerko import _Settings

DEFAULTS = {
    "version": 4,
    "check": {"directories": [], "mode": 0, "list": {}, "presets": []},
    "export": {"mode": 0, "directory": "~"},
    "workspace": {"project": "", "check_updates": False},
    "server": {"enabled": False, "host": "localhost", "port": 8080, "erase_sent": False},
}


def load(path):
    with open(path, encoding="utf-8") as f:
        return json.load(f)


def test_names_nest_as_documented():
    for dotted in ["_Settings.Workspace", "_Settings.Export", "_Settings.Server", "_Settings.URLs.Path",
                   "_Statistics.Type._Record", "_Statistics.Type.FeedbackSent", "_Statistics.HttpResponse",
                   "_File.Json.AccessQueue", "_File.Text.read", "_File.timed_filename", "_File.move_corrupted"]:
        obj = zerko
        for part in dotted.split("."):
            obj = getattr(obj, part)


def test_store_writes_what_json_reads_and_setters_refuse_quietly(environment, log):
    settings = _Settings(environment)
    assert settings.data == DEFAULTS and list(settings.data) == list(DEFAULTS)
    settings.workspace.project = "Сцена_0a1b2c3d.json"
    settings.workspace.project = 5
    settings.export.mode = zerko.Constants.Export.Mode.Local
    settings.export.mode = "Local"
    settings.export.directory = None
    settings.server.host = "10.1.1.1"
    settings.server.port = "82"
    assert os.environ["ZERKO-SERVER"] == "10.1.1.1:8080"
    settings.write()
    on_disk = load(environment.get_settings_file())
    assert on_disk == settings.data and list(on_disk) == list(DEFAULTS)
    assert on_disk["workspace"]["project"] == "Сцена_0a1b2c3d.json" and on_disk["export"]["mode"] == 2
    assert _Settings(environment).data == on_disk

    with open(environment.get_settings_file(), "w", encoding="utf-8") as f:
        f.write('{"version": 4, ')
    assert _Settings(environment).data == DEFAULTS
    assert f"Read Corrupted Settings: {environment.get_settings_file()}" in log.messages(40)
    assert _Settings.Workspace({"project": 1}).data == {"project": "", "check_updates": False}
    assert _Settings.Export([1, 2]).data == {"mode": 0, "directory": "~"}


def test_urls_and_name_rules():
    urls = _Settings.URLs("maya", "Windows10.0.19045")
    assert urls.port == 443 and urls.latest == urls.home + "/validator/downloads/maya/Windows10.0/latest/"
    assert isinstance(urls.path, _Settings.URLs.Path) and urls.path.documentation == "/validator"
    F = zerko.Constants.Name.Filter
    assert not _Settings.is_approved("Куб", F.LATIN) and _Settings.is_approved("Cube", F.LATIN)
    assert _Settings.approved_name("x", none=True, method=None) is None
    assert _Settings.approved_name("x", method=42) == "x"
    assert _Settings.approved_name("Cube Куб") == "Cube "


def test_api_builds_both_stores_from_its_environment(scene, environment):
    with open(environment.get_settings_file(), "w", encoding="utf-8") as f:
        json.dump({"version": 4, "workspace": {"project": "p.json"}, "server": {"erase_sent": True}}, f)
    api = zerko.Api(scene, environment)
    assert not [n for n in os.listdir(environment.get_settings_directory()) if ".lock" in n or ".id." in n]
    assert api.settings.workspace.project == "p.json" and api.settings.server.erase_sent is True
    api.settings.workspace.project = "q.json"
    assert api.settings.workspace.project == "q.json"  # the Api's own store, not a copy
    api.statistics.add(zerko._Statistics.Type.Validate(1.0, 0.5, project="q.json"))
    api.statistics.write()
    assert load(environment.get_statistics_file())["validate"] == [{"project": "q.json", "timestamp": 1.0, "speed": 0.5}]
    api.shutdown()
