// Rules, the rule tree, records and history, project documents and the collection.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <filesystem>
#include <thread>

#include "test_support.hpp"
#include "zerko/api/api.hpp"
#include "zerko/export/options.hpp"
#include "zerko/file/json.hpp"
#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/uuid.hpp"
#include "zerko/project/collection.hpp"

using namespace zerko;
using foundation::LogLevel;
using project::Collection;
using project::Document;
using project::Record;
using project::Rule;
using project::Settings;
using test_support::LogCapture;
using test_support::ScratchDirectory;
namespace fs = std::filesystem;

namespace {

struct Workspace {
    ScratchDirectory dir;
    api::Api api{std::make_shared<test_support::HostlessScene>(), std::make_shared<test_support::DirectoryEnv>(dir.path())};
    std::string projects = dir / "projects";

    std::string path(const std::string& name) const { return projects + "/" + name; }
    void put(const std::string& name, const Document& data) const { file::Json::write(path(name), data); }
};

std::vector<std::string> names_of(const Rule::List& list) {
    std::vector<std::string> out;
    for (const auto& rule : list) out.push_back(rule->name());
    return out;
}

Document project_file(const std::string& filename, const std::string& name, const std::string& target, double edited) {
    return {{"name", name}, {"records", Document::object()}, {"version", 3},
            {"filename", filename}, {"target", target}, {"edit_timestamp", edited}};
}

// A document written by hand in the documented format: two records, the
// older one selected, a pattern that refers to two of the three rules.
const char* hand_written = R"({
  "name": "Props",
  "description": "Очень важный проект",
  "records": {
    "1700000000": {"export": {"directory": "~/export", "options": {"scale": 2},
                              "flags": {"automatic_uv": false, "triangulate": true,
                                        "reset_xforms": false, "version_control": true}},
                   "rules": [{"stamp": "aaaaaaaaaaaaaaaa", "name": "root", "regex": "^root$", "types": ["transform"],
                              "checklist": {}, "range": [1, 1], "color": "#ff0000", "icon": "Root"},
                             {"stamp": "bbbbbbbbbbbbbbbb", "name": "mesh", "regex": ".+", "types": ["mesh"],
                              "checklist": {}, "range": [0, 5], "color": "#00ff00", "icon": "Render"},
                             {"stamp": "cccccccccccccccc", "name": "spare", "regex": "", "types": [],
                              "checklist": {}, "range": [1, 1], "color": "#000000", "icon": ""}],
                   "pattern": [{"stamp": "aaaaaaaaaaaaaaaa",
                                "children": [{"stamp": "bbbbbbbbbbbbbbbb", "children": []}]}],
                   "author": "anna", "comment": "first"},
    "1700000500": {"author": "boris"}
  },
  "selected_record": 1700000000,
  "deleted": false,
  "version": 3,
  "filename": "props_0a1b2c3d.json",
  "target": "maya",
  "edit_timestamp": 1700000500.25
})";

}  // namespace

TEST(ProjectRules, DefaultsNamesAndGhost) {
    const Rule plain;
    EXPECT_EQ(plain.stamp().size(), 16u);
    EXPECT_NE(plain.stamp(), Rule().stamp());
    EXPECT_EQ(plain.name(), "name");
    EXPECT_EQ(plain.range(), Rule::Range(1, 1));
    EXPECT_EQ(plain.data()["checklist"], Document::object());
    EXPECT_THROW(Rule(Document{{"range", {1, 2, 3}}}), ValueError);
    EXPECT_THROW(Rule(Document{{"range", {"a", 2}}}), ValueError);
    const Rule odd(Document{{"name", 5}, {"types", {"mesh", 3}}, {"color", nullptr}});  // wrong types keep defaults
    EXPECT_EQ(odd.name(), "name");
    EXPECT_TRUE(odd.types().empty());
    EXPECT_EQ(odd.color, "#000000");

    auto list = Rule::List::predefined();
    EXPECT_EQ(names_of(*list), (std::vector<std::string>{"empty", "render", "ghost"}));
    EXPECT_EQ(list->rules()[2]->range(), Rule::Range(0, 99));
    EXPECT_FALSE(list->append(std::make_shared<Rule>(Document{{"name", "ghost"}})));
    EXPECT_EQ(list->size(), 3u);
    auto twin = std::make_shared<Rule>(Document{{"name", "render"}});
    EXPECT_TRUE(list->append(twin));
    EXPECT_EQ(twin->name(), "render0");
    EXPECT_TRUE(list->has_unique_name(*twin));
    twin->set_name("empty");
    EXPECT_FALSE(list->has_unique_name(*twin));
    list->rename(*twin, "extra");
    EXPECT_EQ(list->names(), (std::vector<std::string>{"empty", "extra", "ghost", "render"}));
    EXPECT_FALSE(list->remove(std::make_shared<Rule>()));
    EXPECT_TRUE(list->remove(twin));
    EXPECT_TRUE(list->append(std::make_shared<Rule>(Document{{"name", "extra"}})));  // its name was released
    EXPECT_EQ(list->rules().back()->name(), "extra");
}

TEST(ProjectRules, ReorderPutsNamedRulesFirstAndReversesTheRest) {
    Rule::List list(Document::parse(R"([{"name": "a"}, {"name": "b"}, {"name": "c"}, {"name": "d"}])"));
    const auto rules = list.rules();
    list.reorder({});
    list.reorder({nullptr});
    EXPECT_EQ(names_of(list), (std::vector<std::string>{"a", "b", "c", "d"}));
    list.reorder({rules[2]});
    EXPECT_EQ(names_of(list), (std::vector<std::string>{"c", "d", "b", "a"}));
    list.reorder({rules[0], std::make_shared<Rule>(), rules[1]});  // a stranger is dropped
    EXPECT_EQ(names_of(list), (std::vector<std::string>{"a", "b", "d", "c"}));
    EXPECT_EQ(list.rules()[0], rules[0]);  // the objects themselves
}

TEST(ProjectRuleTree, LoadDropsDanglingBranchesAndRoundTrips) {
    const Rule::List rules(Document::parse(
        R"([{"stamp": "a", "name": "top"}, {"stamp": "b", "name": "mid"}, {"stamp": "c", "name": "leaf"}])"));
    const auto pattern = Document::parse(R"([
        {"stamp": "a", "children": [
            {"stamp": "b", "children": [{"stamp": "c", "children": []}]},
            {"stamp": "gone", "children": [{"stamp": "c", "children": []}]}]},
        {"stamp": "c"}])");
    LogCapture log;
    Rule::Tree::Root root;
    root.load(pattern, rules);
    EXPECT_EQ(log.messages(LogLevel::Warning), std::vector<std::string>{"Incompatible Hierarchy Settings"});
    EXPECT_EQ(root.text(), "top\n  mid\n    leaf\n\nleaf\n");
    EXPECT_TRUE(root.is_root(*rules.get("a")));
    EXPECT_FALSE(root.is_root(*rules.get("b")));
    EXPECT_EQ(root.children[1]->rule, rules.get("c"));  // shared with the list

    Rule::Tree::Root again;
    again.load(root.data(), rules);
    EXPECT_EQ(again.data(), root.data());
    EXPECT_EQ(root.data()[1], Document::parse(R"({"stamp": "c", "children": []})"));

    const auto first = root.children[0];
    root.append(first);
    EXPECT_EQ(root.children.size(), 2u);
    const auto mid = first->children[0];
    root.clear();
    EXPECT_TRUE(root.is_empty());
    EXPECT_TRUE(first->children.empty() && mid->children.empty());
    root.load(Document::array(), rules);
    EXPECT_TRUE(root.is_empty());
}

TEST(ProjectHistory, LoadPointerBakeAndEditToggle) {
    Settings project(nullptr, "/nowhere", "", Document::parse(R"({
        "records": {"1700000500": {"author": "b"}, "abc": {}, "1700000000": {"author": "a"},
                    "1700000900": {"author": "c"}},
        "selected_record": 42})"));
    auto& history = *project.history();
    EXPECT_EQ(history.size(), 3u);
    EXPECT_EQ(history.pointer(), 1700000500);  // a stale pointer selects the first of the file
    EXPECT_EQ(project.records().front()->author, "c");  // iteration is newest first
    history.set_pointer(5);
    EXPECT_EQ(history.pointer(), 1700000500);
    EXPECT_EQ(history.get_record()->author, "b");
    EXPECT_NE(history.get_record(), history.find(1700000500));  // a copy

    auto& toggle = history.edit_toggle();
    EXPECT_EQ(toggle.current(), history.find(1700000900));
    toggle.current()->author = "edited";
    EXPECT_EQ(toggle.switch_to(7), history.find(1700000900));  // past the end: stays, edits dropped
    EXPECT_EQ(toggle.current()->author, "c");
    auto promise = project.get_record_promise();
    EXPECT_TRUE(promise->is_promise());
    EXPECT_EQ(promise->author, "");
    toggle.set_promise(promise);
    promise->comment = "kept";
    toggle.switch_to(1);
    EXPECT_EQ(promise->comment, "kept");  // a promise keeps its edits
    promise->select();
    EXPECT_EQ(history.pointer(), 1700000500);

    history.bake();
    EXPECT_EQ(history.size(), 1u);
    EXPECT_EQ(history.pointer(), 1700000500);
    EXPECT_EQ(toggle.records().size(), 1u);

    EXPECT_THROW(Settings(nullptr, "/nowhere", "", Document::parse(R"({"records": {"1.5": {}}})")), ValueError);
    Settings empty(nullptr, "/nowhere", "", Document::object());
    auto fresh = empty.history()->get_record();
    EXPECT_TRUE(fresh->is_promise());
    EXPECT_EQ(fresh->data(), Record(nullptr, Document::object()).data());
}

TEST(ProjectDocument, HandWrittenFileLoadsAndWritesBackInOrder) {
    Workspace ws;
    ScratchDirectory::put(ws.path("props_0a1b2c3d.json"), hand_written);
    const auto project = Settings::init(nullptr, ws.path("props_0a1b2c3d.json"));
    EXPECT_EQ(project->name(), "Props");
    EXPECT_EQ(project->target(), "maya");
    EXPECT_TRUE(project->compatible());
    EXPECT_DOUBLE_EQ(project->edit_timestamp, 1700000500.25);
    const auto record = project->history()->find(1700000000);
    ASSERT_TRUE(record);
    EXPECT_TRUE(record->is_selected());
    EXPECT_TRUE(record->export_->flags.triangulate && record->export_->flags.version_control);
    EXPECT_EQ(record->export_->get_options(), Document({{"scale", 2}}));
    EXPECT_EQ(record->rules->get("bbbbbbbbbbbbbbbb")->range(), Rule::Range(0, 5));
    EXPECT_EQ(record->pattern->text(), "root\n  mesh\n");
    EXPECT_EQ(project->history()->find(1700000500)->export_->directory, "~");

    // Rewritten by the library, the file is the same document, key for key and in order.
    project->write();
    const auto written = file::Json::read(ws.path("props_0a1b2c3d.json"));
    auto expected = Document::parse(hand_written);
    for (auto& [key, value] : expected["records"].items()) value = Record(nullptr, value).data();
    EXPECT_EQ(written.dump(), expected.dump());
    EXPECT_EQ(Settings(nullptr, ws.projects, "", written).data().dump(), project->data().dump());
    EXPECT_EQ(project->write_timestamp(), static_cast<double>(fs::file_size(ws.path("props_0a1b2c3d.json"))));
}

TEST(ProjectDocument, FileNamesVersionsAndUnreadableFiles) {
    Workspace ws;
    Settings named(nullptr, ws.projects, "", Document::object());
    named.set_name("  Проект  ");
    const std::string path = named.path();
    EXPECT_EQ(fs::path(path).parent_path(), fs::path(ws.projects));
    const auto is_code = [](const std::string& text) {
        return text.size() == 8 && std::all_of(text.begin(), text.end(), [](char c) { return std::isxdigit(c) && !std::isupper(c); });
    };
    const std::string filename = named.filename();
    ASSERT_EQ(filename.size(), std::string("proekt_01234567.json").size()) << filename;
    EXPECT_EQ(filename.substr(0, 7), "proekt_");
    EXPECT_TRUE(is_code(filename.substr(7, 8)) && filename.ends_with(".json")) << filename;
    EXPECT_EQ(named.path(), path);  // made once
    named.clear_filename();
    EXPECT_NE(named.path(), path);
    named.set_name("!!!");
    named.clear_filename();
    named.path();
    EXPECT_TRUE(is_code(named.filename().substr(0, 8)) && named.filename().size() == 13) << named.filename();

    // An older format is kept and written back as it is.
    ws.put("old.json", {{"version", 2}, {"filename", "old.json"}, {"target", "maya"}});
    const auto old = Settings::init(nullptr, ws.path("old.json"));
    EXPECT_FALSE(old->compatible());
    old->write();
    EXPECT_EQ(file::Json::read(ws.path("old.json"))["version"], 2);

    LogCapture log;
    ScratchDirectory::put(ws.path("list.json"), "[1, 2]");
    EXPECT_EQ(Settings::open(ws.path("list.json")), Document::object());
    EXPECT_TRUE(log.has(LogLevel::Error, "Read Corrupted Project: " + ws.path("list.json")));
    EXPECT_FALSE(fs::exists(ws.path("list.json")));
    ScratchDirectory::put(ws.path("broken.json"), "{\"name\": ");
    const auto broken = Settings::init(nullptr, ws.path("broken.json"));
    EXPECT_EQ(broken->version, -1);
    EXPECT_TRUE(log.has(LogLevel::Error, "Read Corrupted Project: " + ws.path("broken.json")));
    EXPECT_FALSE(fs::exists(ws.path("broken.json")));
    EXPECT_EQ(std::distance(fs::directory_iterator(ws.projects + "/.corrupted"), fs::directory_iterator()), 2);

    // The change check follows the size in one direction only.
    const auto other = Settings::init(nullptr, ws.path("old.json"));
    EXPECT_FALSE(other->is_outdated());
    auto grown = file::Json::read(ws.path("old.json"));
    grown["description"] = "written by another process";
    file::Json::write(ws.path("old.json"), grown);
    EXPECT_TRUE(other->is_outdated());
    other->reload();
    EXPECT_EQ(other->description(), "written by another process");
    EXPECT_TRUE(other->is_outdated());  // reload does not refresh the size
    EXPECT_TRUE(Settings(nullptr, "/x", "", Document::object()) == Settings(nullptr, "/y", "", {{"edit_timestamp", 5.0}}));
}

TEST(ProjectCollection, ListsOnlyApprovedJsonOfItsTarget) {
    Workspace ws;
    ws.put("a.json", project_file("a.json", "Beta", "maya", 1.0));
    ws.put("b.json", project_file("b.json", "Alpha", "maya", 2.0));
    ws.put("c.json", project_file("c.json", "Alpha", "maya", 1.0));
    auto deleted = project_file("d.json", "Gone", "maya", 1.0);
    deleted["deleted"] = true;
    ws.put("d.json", deleted);
    ws.put("e.json", project_file("e.json", "Blender", "blender", 1.0));
    auto unversioned = project_file("f.json", "Old", "maya", 1.0);
    unversioned.erase("version");
    ws.put("f.json", unversioned);
    ws.put("g.JSON", project_file("g.JSON", "Upper", "maya", 1.0));
    ScratchDirectory::put(ws.path("z.json.lock"), "");  // markers of a file being made elsewhere
    ScratchDirectory::put(ws.path("z.json.id.123"), "");
    ScratchDirectory::put(ws.path("b.txt"), "{}");
    fs::create_directory(ws.projects + "/.corrupted");
    ScratchDirectory::put(ws.projects + "/.corrupted/x-1.json", "{");

    Collection collection(ws.api.callbacks(), ws.api.env()->get_projects_directory(), "maya");
    EXPECT_EQ(collection.table().size(), 4u);
    EXPECT_EQ(collection.names(), (std::vector<std::string>{"Alpha", "Alpha", "Beta"}));
    std::vector<std::string> listed;
    for (const auto& header : collection.headers()) listed.push_back(header.text());
    EXPECT_EQ(listed, (std::vector<std::string>{
                          R"(Project.Header(name="Alpha", filename="c.json", edit_timestamp="1.0", compatible=True))",
                          R"(Project.Header(name="Alpha", filename="b.json", edit_timestamp="2.0", compatible=True))",
                          R"(Project.Header(name="Beta", filename="a.json", edit_timestamp="1.0", compatible=True))"}));
    EXPECT_EQ(collection.get_file("Gone"), ws.path("d.json"));
    EXPECT_FALSE(collection.get_file("Blender"));
    EXPECT_TRUE(fs::exists(ws.path("z.json.lock")) && fs::exists(ws.projects + "/.corrupted/x-1.json"));

    const auto beta = collection.get("a.json");
    EXPECT_EQ(beta, collection.get("a.json"));  // the shared object
    const auto unknown = collection.get("nothing.json");
    EXPECT_EQ(unknown->filename(), "");
    EXPECT_EQ(unknown->version, Settings::current_version);
    EXPECT_EQ(unknown->target(), "maya");

    const auto request = collection.create_http_request();
    ASSERT_EQ(request.projects().size(), 4u);  // deleted ones too, other targets not
    for (const auto& sent : request.projects()) {
        EXPECT_EQ(sent.size(), 9u);
        EXPECT_EQ((--sent.end()).key(), "edit_timestamp");
    }
    EXPECT_EQ(request.text().substr(0, 34), R"({"target": "maya", "projects": [{")");
}

TEST(ProjectCollection, PromiseEditedAndSavedHeadsTheHistory) {
    Workspace ws;
    Collection collection(ws.api.callbacks(), ws.api.env()->get_projects_directory(), "maya");
    int saved = 0;
    ws.api.callbacks().projects_saved.register_(
        foundation::make_callback([&](const foundation::CallArgs&) { ++saved; }, &saved));

    auto project = collection.get_empty();
    project->set_name("Set Dressing");
    auto promise = project->get_record_promise();
    project->history()->edit_toggle().set_promise(promise);
    promise->author = "anna";
    promise->rules->append(std::make_shared<Rule>(Document{{"name", "root"}}));
    promise->pattern->append(Rule::Tree::NodeBase::create_node(promise->rules->rules()[0]));
    const export_::Options exporters({std::make_shared<parameters::Options>("fbx", "FBX")});
    promise->export_->set_options(exporters);
    const std::int64_t before = static_cast<std::int64_t>(foundation::wall_time());
    ASSERT_TRUE(promise->save());

    EXPECT_EQ(saved, 1);
    EXPECT_FALSE(promise->is_changed());  // the editor's object went back to its start
    const auto head = project->records().front();
    EXPECT_GE(head->timestamp, before);
    EXPECT_TRUE(head->is_selected());
    EXPECT_EQ(head->author, "anna");
    EXPECT_EQ(project->history()->edit_toggle().current(), head);
    EXPECT_GT(project->edit_timestamp, 0.0);

    const auto disk = file::Json::read(project->path());
    EXPECT_EQ(disk["selected_record"], head->timestamp);
    EXPECT_EQ(disk["records"][std::to_string(head->timestamp)]["author"], "anna");
    EXPECT_EQ(disk["records"][std::to_string(head->timestamp)]["export"]["options"], exporters.data());
    EXPECT_EQ(disk["records"][std::to_string(head->timestamp)]["pattern"][0]["stamp"], head->rules->rules()[0]->stamp());
    EXPECT_EQ(disk["filename"], project->filename());
    EXPECT_EQ(collection.get(project->filename()), project);

    Collection reread(ws.api.callbacks(), ws.api.env()->get_projects_directory(), "maya");
    EXPECT_EQ(reread.get(project->filename())->data(), project->data());
    EXPECT_THROW(Settings(nullptr, ws.projects, "", Document::object()).save(), ValueError);
}

TEST(ProjectCollection, SecondConcurrentSaveReturnsAtOnce) {
    Workspace ws;
    Collection collection(ws.api.callbacks(), ws.api.env()->get_projects_directory(), "maya");
    auto project = collection.get_empty();
    auto history = project->history();
    std::atomic<int> calls = 0;
    bool second_saved = true;
    // The first save fires the callback while it still holds the history's
    // save; another thread saves meanwhile, and so does the callback itself.
    ws.api.callbacks().projects_saved.register_(foundation::make_callback(
        [&](const foundation::CallArgs&) {
            if (calls++ > 0) return;
            auto other = std::make_shared<Record>(history, Document{{"author", "second"}});
            std::thread([&] { second_saved = history->save_record(other); }).join();
            EXPECT_FALSE(history->save_record(std::make_shared<Record>(history, Document::object())));
        },
        &calls));
    auto first = std::make_shared<Record>(history, Document{{"author", "first"}});
    EXPECT_TRUE(history->save_record(first));
    EXPECT_FALSE(second_saved);
    EXPECT_EQ(calls, 1);
    ASSERT_EQ(history->size(), 1u);
    EXPECT_EQ(project->records().front()->author, "first");
    EXPECT_TRUE(history->save_record(std::make_shared<Record>(history, Document::object())));  // free again
}

TEST(ProjectCollection, ServerIsTheFullTruth) {
    Workspace ws;
    ws.put("keep.json", project_file("keep.json", "Keep", "maya", 100.0));
    ws.put("stale.json", project_file("stale.json", "Stale", "maya", 100.0));
    ws.put("same.json", project_file("same.json", "Same", "maya", 100.0));
    ws.put("local.json", project_file("local.json", "Local", "maya", 100.0));
    ws.put("blender.json", project_file("blender.json", "Blender", "blender", 100.0));
    Collection collection(ws.api.callbacks(), ws.api.env()->get_projects_directory(), "maya");
    const auto kept = collection.get("keep.json");

    auto newer = project_file("stale.json", "Stale", "maya", 200.0);
    newer["description"] = "from the server";
    auto same = project_file("same.json", "Same", "maya", 100.0);
    same["description"] = "not taken";
    const auto response = Document::array({project_file("keep.json", "Keep", "maya", 50.0), newer, same,
                                           project_file("fresh.json", "Fresh", "maya", 10.0),
                                           project_file("other.json", "Other", "blender", 500.0)});
    LogCapture log;
    collection.accept_http_response(response);

    EXPECT_EQ(collection.names(), (std::vector<std::string>{"Fresh", "Keep", "Same", "Stale"}));
    EXPECT_EQ(collection.get("keep.json"), kept);  // older on the server: the local object stays
    EXPECT_EQ(file::Json::read(ws.path("stale.json"))["description"], "from the server");
    EXPECT_FALSE(file::Json::read(ws.path("same.json")).contains("description"));
    EXPECT_TRUE(fs::exists(ws.path("fresh.json")));
    EXPECT_FALSE(fs::exists(ws.path("local.json")));
    EXPECT_FALSE(fs::exists(ws.path("other.json")));
    EXPECT_TRUE(fs::exists(ws.path("blender.json")));
    EXPECT_EQ(log.messages(LogLevel::Debug).back(), "Projects Synchronized");
    EXPECT_THROW(collection.accept_http_response(Document::object()), TypeError);
    EXPECT_THROW(collection.accept_http_response(Document::array({project_file("keep.json", "Keep", "maya", 50.0), 7})),
                 TypeError);  // a malformed answer erases nothing
    EXPECT_EQ(collection.names().size(), 4u);
}

TEST(ProjectCollection, ResponseNeedsTheExactContentType) {
    const auto header = [](std::optional<std::string> value) {
        return [value](std::string_view name, std::string_view) {
            EXPECT_EQ(name, "Content-type");
            return value;
        };
    };
    const auto body = [](std::string text) { return [text] { return text; }; };
    const Collection::HttpResponse good(header("application/json"), body(R"([{"name": "a"}])"));
    EXPECT_TRUE(good.accepted());
    EXPECT_EQ(good.projects(), Document::parse(R"([{"name": "a"}])"));
    const Collection::HttpResponse charset(header("application/json; charset=utf-8"), body("[]"));
    EXPECT_FALSE(charset.accepted());
    EXPECT_EQ(charset.projects(), Document::array());
    EXPECT_FALSE(Collection::HttpResponse(header(std::nullopt), body("[]")).accepted());
    LogCapture log;
    const Collection::HttpResponse broken(header("application/json"), body("[{"));
    EXPECT_FALSE(broken.accepted());
    EXPECT_EQ(broken.projects(), Document::object());
    EXPECT_TRUE(log.has(LogLevel::Error, "JSONDecodeError: "));
    EXPECT_TRUE(good == Collection::HttpResponse(header("application/json"), body(R"([{"name":"a"}])")));
}
