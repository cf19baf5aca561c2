// Check classes written in C++: discovery from registered directories, the
// checklist bound to a configuration, and the queue with its statuses.
#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>

#include "memory_scene.hpp"
#include "test_support.hpp"
#include "zerko/check/classes.hpp"
#include "zerko/check/list.hpp"
#include "zerko/check/queue.hpp"
#include "zerko/foundation/errors.hpp"
#include "zerko/hierarchy/pattern.hpp"
#include "zerko/project/record.hpp"
#include "zerko/parameters/block.hpp"
#include "zerko/statistics/statistics.hpp"

namespace zerko {
namespace {

using check::Attributes;
using check::NativeClass;
using foundation::LogLevel;
using test_support::LogCapture;
using test_support::ScratchDirectory;

/// Fails when the object's name holds "bad"; counts its fixes.
class NameCheck : public check::Base {
public:
    static inline int fixes = 0;
    void check(const std::string& path, parameters::Task& task) override {
        const auto limit = task.get<parameters::IntRange>("limit");
        if (path.find("bad") != std::string::npos || (limit && static_cast<std::int64_t>(path.size()) > limit->value)) {
            result.append(path);
            set_could_be_fixed(true);
            throw error::ValidationError();
        }
    }
    void fix_result(const std::string&, parameters::Task&) override { ++fixes; }
    std::optional<std::string> result_message() override { return "found " + std::to_string(result.length()); }
};

class Exploding : public check::Base {
public:
    void check(const std::string&, parameters::Task&) override { throw std::runtime_error("boom"); }
    std::optional<std::string> result_message() override { throw std::runtime_error("no message"); }
};

Attributes named(std::string id, std::string long_name) {
    Attributes out;
    out.class_id = std::move(id);
    out.long_name = std::move(long_name);
    return out;
}

std::shared_ptr<NativeClass> make_class(std::string id, std::string category, long long sort_index,
                                        std::int64_t limit = 100) {
    Attributes attributes{id, "Long " + id, "short " + id, "about " + id, std::move(category), sort_index, false};
    return std::make_shared<NativeClass>(
        attributes,
        [limit] {
            return std::make_shared<parameters::Block>(
                std::vector<parameters::NodePtr>{std::make_shared<parameters::IntRange>("limit", 0, 100, 1, limit)});
        },
        [] { return std::make_unique<NameCheck>(); });
}

struct Folders {
    ScratchDirectory root;
    std::string first = root / "first";
    std::string second = root / "second";
    std::string third = root / "third";
    Folders() {
        for (const auto& f : {first, second, third}) std::filesystem::create_directory(f);
    }
    std::shared_ptr<settings::Check::Directory::List> list(bool third_enabled = false) const {
        auto out = std::make_shared<settings::Check::Directory::List>();
        out->append(std::make_shared<settings::Check::Directory>("first", first));
        out->append(std::make_shared<settings::Check::Directory>("second", second));
        out->append(std::make_shared<settings::Check::Directory>("third", third, third_enabled));
        return out;
    }
};

std::vector<std::string> ids(const check::Classes::Array& classes) {
    std::vector<std::string> out;
    for (const auto& c : classes) out.push_back(c->class_id());
    return out;
}

TEST(CheckClasses, DiscoveryOrdersGroupsAndDeniesInvalidClasses) {
    Folders folders;
    auto registry = std::make_shared<check::Registry>();
    registry->add(folders.first, make_class("mesh.b", "Mesh", 2));
    registry->add(folders.first, make_class("odd", "studio", 0));
    registry->add(folders.first, make_class("mesh.a", "MESH", 1));
    registry->add(folders.first, std::make_shared<NativeClass>(named("broken", ""), nullptr, nullptr));
    registry->add(folders.second, make_class("mesh.a", "object", 0));  // loses the clash to the first folder
    registry->add(folders.second, make_class("scene.x", "scene", 9));
    registry->add(folders.third, make_class("hidden", "scene", 0));  // its folder is disabled

    check::Classes classes(folders.list(), registry);
    EXPECT_EQ(ids(classes.array()), (std::vector<std::string>{"scene.x", "mesh.a", "mesh.b", "odd"}));
    EXPECT_EQ(classes.get("mesh.a")->category(), "MESH");
    EXPECT_EQ(classes.get("hidden"), nullptr);
    ASSERT_EQ(classes.get_denied().size(), 1u);
    EXPECT_EQ(classes.get_denied()[0]->class_id(), "broken");

    // A reload gives the same result in the same containers.
    const auto* array = &classes.array();
    classes.reload();
    EXPECT_EQ(&classes.array(), array);
    EXPECT_EQ(ids(classes.array()), (std::vector<std::string>{"scene.x", "mesh.a", "mesh.b", "odd"}));
    EXPECT_EQ(classes.get_denied().size(), 1u);

    (*classes.directories()->begin())->set_enabled(false);
    classes.reload();
    // The second folder's "mesh.a" is in the object group now, after the scene group.
    EXPECT_EQ(ids(classes.array()), (std::vector<std::string>{"scene.x", "mesh.a"}));
}

TEST(CheckList, LoadBindsRecordsAndSaveWritesDefaultsForDisabledChecks) {
    std::vector<std::shared_ptr<check::Class>> classes{make_class("a", "Mesh", 0), make_class("b", "mesh", 1),
                                                       make_class("c", "Scene", 0)};
    auto config = std::make_shared<settings::Check::Config>(settings::Document::parse(R"({
        "a": {"enabled": true, "opened": true, "parameters": [{"as_info": true, "state": {"limit": {"value": 3}}}]},
        "b": {"enabled": true, "parameters": [{"state": {"limit": {"value": 4}}}]},
        "gone": {"enabled": true}})"));
    check::List list(classes, nullptr, nullptr);
    EXPECT_TRUE(list.is_empty());
    ASSERT_EQ(list.categories().size(), 2u);
    EXPECT_EQ(list.categories()[0]->name, "mesh");
    EXPECT_EQ(list.categories()[0]->controls.size(), 2u);

    list.load(config);
    EXPECT_EQ(list.config(), config);
    // One record per class: the missing one made, the stale one dropped.
    std::vector<std::string> records;
    for (const auto& r : *config) records.push_back(r->class_id);
    EXPECT_EQ(records, (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(list.iterator(true).size(), 2u);
    const auto a = *list.begin();
    EXPECT_TRUE(a->opened);
    EXPECT_EQ(a->parameters->tasks().at(0)->get<parameters::IntRange>("limit")->value, 3);

    // A disabled control keeps none of the user's settings in the record.
    auto b = *(list.begin() + 1);
    b->enabled = false;
    b->opened = true;
    list.save();
    EXPECT_EQ(config->get("b")->data().dump(),
              R"({"enabled":false,"opened":false,"parameters":[{"as_info":false,"state":{"limit":{"value":100}}}]})");
    EXPECT_EQ(config->get("a")->parameters.dump(), R"([{"as_info":true,"state":{"limit":{"value":3}}}])");
    list.clear();
    EXPECT_TRUE(list.is_empty());
    EXPECT_EQ(a->state(), nullptr);
}

TEST(CheckQueue, StatusesFixesMessagesAndStatistics) {
    ScratchDirectory dir;
    LogCapture log;
    auto statistics = std::make_shared<statistics::Statistics>(dir / "statistics.json");
    auto op = std::make_shared<testing::MemoryScene>();
    op->selection = {"|kept"};
    const auto names = make_class("names", "object", 0, 6);
    NativeClass exploding(named("boom", "Boom"), nullptr, [] { return std::make_unique<Exploding>(); });

    parameters::Block block({std::make_shared<parameters::IntRange>("limit", 0, 100, 1, 6)});
    block.load(settings::Document::parse(R"([{"as_info": false}, {"as_info": true}])"));
    ASSERT_EQ(block.length(), 2u);

    using Task = check::Queue::Task;
    using Result = Task::Result;
    check::Queue queue;
    auto good = std::make_shared<Task>("|ok", check::List::Controls{});
    good->results.add(std::make_shared<Result>("|ok", *names, *block.tasks()[0], statistics, op));
    EXPECT_EQ(good->status(), "pass");
    EXPECT_EQ(good->name, "|ok");

    auto bad = std::make_shared<Task>("|bad", check::List::Controls{}, "Bad one");
    bad->results.add(std::make_shared<Result>("|bad", *names, *block.tasks()[0], statistics, op, false));
    bad->results.add(std::make_shared<Result>("|bad", *names, *block.tasks()[1], statistics, op, false));
    EXPECT_EQ((*bad->results.begin())->name(), "Long names (Task 01)");
    EXPECT_EQ((*(bad->results.begin() + 1))->status(), "info");
    EXPECT_EQ(bad->status(), "fail");
    EXPECT_EQ((*bad->results.begin())->result_message(), "found 1");

    auto broken = std::make_shared<Task>("|x", check::List::Controls{});
    broken->results.add(std::make_shared<Result>("|x", exploding, *block.tasks()[0], statistics, op));
    EXPECT_EQ(broken->status(), "error");
    EXPECT_EQ(log.messages(LogLevel::Error), (std::vector<std::string>{"Exception: boom"}));
    EXPECT_EQ((*broken->results.begin())->result_message(), "");

    // A parameter task with stale data stops the run before the check: an
    // error, not an issue of the object.
    parameters::Block stale({std::make_shared<parameters::IntRange>("limit")});
    stale.load(settings::Document::parse(R"([{"state": {"no_such_input": {"value": 1}}}])"));
    auto stale_task = std::make_shared<Task>("|ok", check::List::Controls{});
    stale_task->results.add(std::make_shared<Result>("|ok", *names, *stale.tasks()[0], statistics, op));
    EXPECT_EQ(stale_task->status(), "error");
    EXPECT_EQ(log.messages(LogLevel::Error).size(), 3u);  // boom, the failed message, the stale data

    for (const auto& t : {good, bad, broken, stale_task}) queue.add(t);
    EXPECT_TRUE(queue.fix_exists());
    NameCheck::fixes = 0;
    queue.fix_all();
    EXPECT_EQ(NameCheck::fixes, 2);  // the two results of "|bad"; the stale task never ran its check
    EXPECT_EQ(op->selection, (scene::Paths{"|kept"}));
    EXPECT_EQ(statistics->data()["checks"].size(), 5u);
    EXPECT_EQ(statistics->data()["checks"][1]["name"], "Long names (Task 01)");
    queue.clear();
    EXPECT_TRUE(queue.is_empty());
    EXPECT_FALSE(queue.fix_exists());
}

TEST(CheckPattern, ARecordGivesEveryRuleAChecklistOfItsConfiguration) {
    Folders folders;
    auto registry = std::make_shared<check::Registry>();
    registry->add(folders.first, make_class("names", "object", 0));
    registry->add(folders.first, make_class("sizes", "object", 1));
    auto classes = std::make_shared<check::Classes>(folders.list(), registry);

    const project::Record record(nullptr, settings::Document::parse(R"({
        "rules": [
            {"stamp": "a", "name": "ghost", "regex": "^assets$", "types": ["transform"], "range": [1, 1], "checklist": {}},
            {"stamp": "b", "name": "group", "regex": "^<x:[a-z]+>_grp$", "range": [1, 3],
             "checklist": {"sizes": {"enabled": true, "parameters": [{"as_info": true, "state": {"limit": {"value": 9}}}]},
                           "gone": {"enabled": true}}}],
        "pattern": [{"stamp": "a", "children": [{"stamp": "b", "children": []}]}]})"));
    hierarchy::Pattern pattern(classes);
    pattern.set(record);
    ASSERT_TRUE(pattern.has_ghost());
    ASSERT_EQ(pattern.get().size(), 1u);
    EXPECT_EQ(pattern.get()[0]->rule->range, (hierarchy::Range{1, 3}));
    EXPECT_FALSE(pattern.is_verifiable("a"));
    EXPECT_TRUE(pattern.is_verifiable("b"));
    EXPECT_FALSE(pattern.is_verifiable("nothing"));
    const auto enabled = pattern.get_checklist("b")->iterator(true);
    ASSERT_EQ(enabled.size(), 1u);
    EXPECT_EQ(enabled[0]->check->class_id(), "sizes");
    EXPECT_TRUE(enabled[0]->parameters->tasks().at(0)->as_info);
    // The rule's own configuration was brought in line with the classes.
    std::vector<std::string> records;
    for (const auto& r : *record.rules->get("b")->check_config()) records.push_back(r->class_id);
    EXPECT_EQ(records, (std::vector<std::string>{"sizes", "names"}));
}

}  // namespace
}  // namespace zerko
