"""Projects from Python: objects that come back as themselves, the document on disk,
the exchange with a server over a real HTTP connection, and concurrent saves."""
import http.client
import http.server
import json
import os
import threading

import pytest

import zerko
from zerko import _Project

Settings = _Project.Settings
Rule = Settings.Rule


@pytest.fixture
def api(scene, environment):
    return zerko.Api(scene, environment)


@pytest.fixture
def collection(api):
    return _Project.Collection(api, "maya")


def put(directory, filename, name, edited, target="maya", **extra):
    document = {"name": name, "records": {}, "version": 3, "filename": filename, "target": target,
                "edit_timestamp": edited, **extra}
    with open(os.path.join(directory, filename), "w", encoding="utf-8") as f:
        json.dump(document, f)
    return document


def read(path):
    with open(path, encoding="utf-8") as f:
        return json.load(f)


def exporter_options():
    """The options of two exporters, the second one selected."""
    options = zerko._Export.Options(
        zerko.Parameters.Options("fbx", "FBX", contents=[zerko.Parameters.Switch("binary", enabled=True)]),
        zerko.Parameters.Options("obj", "Wavefront"))
    options.select("obj")
    return options


def test_objects_handed_in_come_back_as_themselves(collection):
    project = collection.get_empty()
    assert project.filename == "" and project.version == 3 == Settings.version and project.compatible
    promise = project.get_record_promise()
    assert promise.is_promise() and promise._history is project.history

    rule = Rule({"name": "root", "types": ["transform"]})
    rule.widget = "tree item"
    assert promise.rules.append(rule) is True
    node = Rule.Tree.Node(rule)
    promise.pattern.append(node)
    promise.pattern.append(node)
    project.history.edit_toggle.set_promise(promise)
    del rule, node
    kept = list(promise.rules)[0]
    assert kept.widget == "tree item" and promise.pattern.children[0].rule is kept
    assert len(promise.pattern.children) == 1 and promise.pattern.is_root(kept)
    assert project.history.edit_toggle.current is promise
    assert promise.rules.get(kept.stamp) is kept

    # Quiet refusals: wrong kinds of values leave everything as it was.
    kept.name, kept.types, kept.range.minimum = 5, "mesh", "2"
    project.name, project.deleted = 7, "yes"
    promise.rules.reorder(1, None, "x")
    assert (kept.name, kept.types, kept.range.data) == ("root", ["transform"], [1, 1])
    assert (project.name, project.deleted) == ("", False)
    assert promise.rules.append("root") is False and promise.rules.remove(Rule()) is False
    assert kept.range == Rule.Range(1, 1) and kept.range != [1, 1]

    exporters = exporter_options()
    promise.export.set_options(exporters)
    # Only exporters' options are taken, not anything else that has `data`.
    for other in ({"scale": 9}, kept, promise.export, None):
        promise.export.set_options(other)
    assert promise.export.get_options() == exporters.data
    promise.export.flags.triangulate = True
    promise.author = "Юля"
    promise.save()
    head = next(iter(project))
    assert head.is_selected() and not head.is_promise() and head.author == "Юля"
    assert not promise.is_changed()  # the editor's object went back to where it started
    assert collection.get(project.filename) is project

    on_disk = read(project.path)
    assert list(on_disk) == list(project.data) + ["edit_timestamp"]
    assert on_disk["selected_record"] == head.timestamp
    stored = on_disk["records"][str(head.timestamp)]
    assert stored["export"]["options"] == exporters.data and stored["export"]["flags"]["triangulate"]
    assert stored["pattern"] == [{"stamp": kept.stamp, "children": []}]

    # A project read without a collection serves every reading, but cannot be saved.
    alone = Settings.init(None, project.path)
    assert alone == project and alone.edit_timestamp == pytest.approx(project.edit_timestamp)
    assert alone.history.get_record() == head and alone._collection is None
    with pytest.raises(ValueError):
        alone.save()


def test_collection_lists_only_its_own_projects(api, environment):
    directory = environment.get_projects_directory()
    put(directory, "b.json", "Beta", 1.0)
    put(directory, "a.json", "Alpha", 2.0)
    put(directory, "d.json", "Gone", 3.0, deleted=True)
    put(directory, "m.json", "Blender", 1.0, target="blender")
    put(directory, "n.JSON", "Upper", 1.0)
    for marker in ("z.json.lock", "z.json.id.42", "notes.txt"):
        with open(os.path.join(directory, marker), "w"):
            pass
    collection = _Project.Collection(api, "maya")
    assert collection.names == ["Alpha", "Beta"]
    assert [str(h) for h in collection.headers] == [
        'Project.Header(name="Alpha", filename="a.json", edit_timestamp="2.0", compatible=True)',
        'Project.Header(name="Beta", filename="b.json", edit_timestamp="1.0", compatible=True)']
    assert collection.get_file("Gone") == os.path.join(directory, "d.json")
    assert sorted(p.filename for p in collection) == ["a.json", "b.json", "d.json"]
    assert collection.get("a.json") is collection.get("a.json")
    assert sorted(os.listdir(directory)) == ["a.json", "b.json", "d.json", "m.json", "n.JSON", "notes.txt",
                                             "z.json.id.42", "z.json.lock"]


class ProjectServer(http.server.BaseHTTPRequestHandler):
    """Answers the project exchange with the server's list of projects."""

    projects = []
    received = []

    def do_POST(self):
        body = self.rfile.read(int(self.headers["Content-Length"]))
        self.received.append((self.path, self.headers["Content-type"], body))
        answer = json.dumps(self.projects, ensure_ascii=False).encode("utf-8")
        self.send_response(200)
        charset = "; charset=utf-8" if self.path == "/charset" else ""
        self.send_header("Content-type", "application/json" + charset)
        self.send_header("Content-Length", str(len(answer)))
        self.end_headers()
        self.wfile.write(answer)

    def log_message(self, *args):
        pass


@pytest.fixture
def server():
    httpd = http.server.ThreadingHTTPServer(("127.0.0.1", 0), ProjectServer)
    ProjectServer.received = []
    thread = threading.Thread(target=httpd.serve_forever, daemon=True)
    thread.start()
    yield httpd.server_address
    httpd.shutdown()
    httpd.server_close()


def exchange(address, path, request):
    connection = http.client.HTTPConnection(*address, timeout=30)
    try:
        connection.request("POST", path, body=bytes(request), headers=_Project.Collection.HttpRequest.headers)
        return _Project.Collection.HttpResponse(connection.getresponse())
    finally:
        connection.close()


def test_exchange_with_a_server_over_http(api, environment, server, log):
    directory = environment.get_projects_directory()
    put(directory, "keep.json", "Keep", 100.0)
    put(directory, "stale.json", "Stale", 100.0)
    put(directory, "same.json", "Same", 100.0)
    put(directory, "local.json", "Local", 100.0)
    put(directory, "other.json", "Other", 100.0, target="blender")
    collection = _Project.Collection(api, "maya")
    kept = collection.get("keep.json")
    saved = []
    api.callbacks.projects_saved.register(lambda: saved.append(1))

    request = collection.create_http_request()
    assert request.target == "maya" and len(list(request)) == 4
    ProjectServer.projects = [
        {**read(os.path.join(directory, "keep.json")), "edit_timestamp": 50.0},
        {**read(os.path.join(directory, "stale.json")), "description": "с сервера", "edit_timestamp": 200.0},
        {**read(os.path.join(directory, "same.json")), "description": "ignored"},
        {"name": "Новый", "records": {}, "version": 3, "filename": "new.json", "target": "maya",
         "edit_timestamp": 5.0},
        {"name": "Blender", "version": 3, "filename": "b.json", "target": "blender", "edit_timestamp": 9.0},
    ]

    refused = exchange(server, "/charset", request)
    assert not refused.accepted and refused.projects == [] and list(refused) == []

    response = exchange(server, "/projects", request)
    path, content_type, body = ProjectServer.received[-1]
    assert content_type == "application/json" and body.decode("utf-8") == str(request)
    assert json.loads(body)["projects"][0]["edit_timestamp"] == request.projects[0]["edit_timestamp"]
    assert response.accepted and response.projects == ProjectServer.projects
    assert response == _Project.Collection.HttpResponse(FakeResponse(json.dumps(ProjectServer.projects)))

    collection.accept_http_response(response.projects)
    assert collection.names == ["Keep", "Same", "Stale", "Новый"]
    assert collection.get("keep.json") is kept and kept.edit_timestamp == 100.0
    assert read(os.path.join(directory, "stale.json"))["description"] == "с сервера"
    assert "description" not in read(os.path.join(directory, "same.json"))
    assert read(os.path.join(directory, "new.json"))["name"] == "Новый"
    assert not os.path.exists(os.path.join(directory, "local.json"))
    assert os.path.exists(os.path.join(directory, "other.json"))
    assert not os.path.exists(os.path.join(directory, "b.json"))
    assert len(saved) == 2 and "Projects Synchronized" in log.messages()


class FakeResponse:
    def __init__(self, body, content_type="application/json"):
        self.body, self.content_type = body, content_type

    def getheader(self, name, default=None):
        return self.content_type if name.lower() == "content-type" else default

    def read(self):
        return self.body.encode("utf-8") if isinstance(self.body, str) else self.body


def test_response_failures_are_logged_and_refused(log):
    assert not _Project.Collection.HttpResponse(FakeResponse("[1,")).accepted
    assert not _Project.Collection.HttpResponse(FakeResponse("[]", content_type=None)).accepted
    broken = _Project.Collection.HttpResponse(object())
    assert not broken.accepted and broken.projects == {}
    assert [m.split(":")[0] for m in log.messages()] == ["JSONDecodeError", "AttributeError"]


def test_second_save_during_a_save_returns_at_once(collection, api):
    project = collection.get_empty()
    history = project.history
    first = Settings.Record(history, {"author": "first"})
    second = Settings.Record(history, {"author": "second"})
    outcome = {}

    def on_saved():
        # Runs inside the first save, which still holds the history's save.
        if outcome:
            return
        worker = threading.Thread(target=lambda: history.save_record(second))
        worker.start()
        worker.join(timeout=10)
        outcome["other thread returned"] = not worker.is_alive()
        history.save_record(Settings.Record(history, {"author": "from the callback"}))

    api.callbacks.projects_saved.register(on_saved)
    history.save_record(first)
    assert outcome == {"other thread returned": True}
    assert [r.author for r in history] == ["first"] and first.is_selected()
    assert read(project.path)["records"] == {str(first.timestamp): first.data}


def test_a_nodes_children_are_a_live_view_of_the_tree():
    rules = [Rule({"name": name}) for name in ("a", "b", "c")]
    a, b, c = (Rule.Tree.Node(r) for r in rules)
    root = Rule.Tree.Root()
    root.children.append(a)
    root.children.append(a)  # a node stands once, as with the node's own append
    root.children.insert(0, b)
    a.children.append(c)
    assert root.children == [b, a] and root.children[-1] is a and c in a.children
    assert root.data == [{"stamp": rules[1].stamp, "children": []},
                         {"stamp": rules[0].stamp, "children": [{"stamp": rules[2].stamp, "children": []}]}]
    assert root.children.pop(0) is b and root.children.index(a) == 0
    with pytest.raises(ValueError):
        root.children.remove(b)
    with pytest.raises(TypeError):
        root.children.append("not a node")
    view = root.children
    del root
    assert len(view) == 1 and view[0] is a  # the view keeps its node alive


def test_project_file_names_stay_plain_names_inside_the_projects_directory(api, environment, collection, log):
    directory = environment.get_projects_directory()
    settings_file = environment.get_settings_file()
    put(directory, "good.json", "Good", 100.0)
    before = {name: read(os.path.join(directory, name)) for name in os.listdir(directory)}
    settings_before = open(settings_file, encoding="utf-8").read() if os.path.exists(settings_file) else None
    outside = os.path.join(os.path.dirname(directory), "escaped.json")
    for filename in ["good.json\0", "../settings.json", "../escaped.json", outside, "sub/x.json", "..", "."]:
        project = Settings(collection, directory, filename, {"name": "Bad", "version": 3, "target": "maya",
                                                             "filename": filename})
        with pytest.raises(ValueError, match="not a plain file name"):
            project.save()
    assert not os.path.exists(outside)
    assert {name: read(os.path.join(directory, name)) for name in os.listdir(directory)} == before
    if settings_before is not None:
        assert open(settings_file, encoding="utf-8").read() == settings_before

    # Names from the wire: the bad ones are logged and refused, the rest are synchronised.
    wire = [{"name": "Wire", "records": {}, "version": 3, "target": "maya", "edit_timestamp": 500.0,
             "filename": name} for name in ["../escaped.json", outside, "a/b.json", "", "new.json"]]
    collection.accept_http_response([read(os.path.join(directory, "good.json"))] + wire)
    assert not os.path.exists(outside)
    assert sorted(os.listdir(directory)) == ["good.json", "new.json"]
    assert sum(m.startswith("Project Refused") for m in log.messages(30)) == 4


def test_one_damaged_project_file_costs_that_project_alone(api, environment, log):
    directory = environment.get_projects_directory()
    put(directory, "good.json", "Good", 100.0)
    put(directory, "range.json", "Range", 100.0,
        records={"1700000000": {"rules": [{"name": "r", "range": "x"}], "pattern": []}})
    put(directory, "key.json", "Key", 100.0, records={"9" * 1_000_000: {}})
    put(directory, "escape.json", "Escape", 100.0)
    escape = read(os.path.join(directory, "escape.json"))
    escape["filename"] = "../settings.json"
    with open(os.path.join(directory, "escape.json"), "w", encoding="utf-8") as f:
        json.dump(escape, f)
    collection = _Project.Collection(api, "maya")
    assert "Good" in collection.names and "Escape" not in collection.names
    skipped = [m for m in log.messages() if m.startswith("Project Skipped")]
    assert all(any(name in m for m in skipped) for name in ["escape.json", "range.json", "key.json"])
