// The scan and the buffer over an in-memory scene: buckets found under the
// ghost, the order of host calls and events, append, the embedded data and
// what a reopened scene makes of data that no longer agrees with it.
#include <gtest/gtest.h>

#include <mutex>

#include "memory_scene.hpp"
#include "pattern_rules.hpp"
#include "zerko/foundation/logger.hpp"
#include "zerko/scan/scanner.hpp"

using namespace zerko;
using namespace zerko::hierarchy;
using namespace zerko::scan;
using zerko::testing::MemoryScene;

namespace {

class HostScene : public MemoryScene {
public:
    scene::Paths get_selection_roots() const override {
        // Every selected object whose ancestors are not selected.
        scene::Paths out;
        for (const auto& path : selection) {
            bool covered = false;
            for (auto p = get_parent(path); !p.empty() && !covered; p = get_parent(p)) {
                covered = std::find(selection.begin(), selection.end(), p) != selection.end();
            }
            if (!covered) out.push_back(path);
        }
        return out;
    }
    JsonDocument query_filedata() const override { return filedata; }
    void embed_filedata(const JsonDocument& data) override { filedata = data; }
    void erase_filedata() override { filedata = JsonDocument::array(); }
    void postscript_scan_append(const std::shared_ptr<DataJoint>& joint) override { calls.push_back("+" + joint->name); }
    void postscript_scan_remove(const std::shared_ptr<DataJoint>& joint) override { calls.push_back("-" + joint->name); }

    JsonDocument filedata = JsonDocument::array();
    std::vector<std::string> calls;
};

class CollectingSink : public foundation::LogSink {
public:
    void deliver(foundation::LogLevel, const std::string& message) override {
        std::lock_guard lock(mutex);
        messages.push_back(message);
    }
    std::mutex mutex;
    std::vector<std::string> messages;
};

std::shared_ptr<Rule> rule(std::string stamp, std::string regex, std::int64_t minimum, std::int64_t maximum,
                           std::vector<std::string> types, std::string name = "") {
    auto r = zerko::testing::make_rule(stamp, std::move(regex), minimum, maximum, std::move(types), std::move(name));
    r->icon = stamp + "_icon";
    return r;
}

TreeNode node(std::string stamp, std::vector<TreeNode> children = {}) { return {std::move(stamp), std::move(children)}; }

struct Rig {
    std::shared_ptr<HostScene> scene = std::make_shared<HostScene>();
    std::shared_ptr<scene::Virtual> virt = std::make_shared<scene::Virtual>(scene);
    std::shared_ptr<Hierarchy> hierarchy = std::make_shared<Hierarchy>(virt);
    std::shared_ptr<Buffer> buffer = std::make_shared<Buffer>(scene, virt, hierarchy);
    foundation::CallBacks callbacks;
    Scanner scanner{scene, virt, hierarchy, buffer, callbacks};
    std::vector<std::string> events;
    std::string assets = scene->add("", "assets", "transform");

    Rig(bool ghost = true) {
        for (auto* list : {&callbacks.empty_scan_selection, &callbacks.used_scan_selection, &callbacks.empty_scan_result}) {
            const auto name = list == &callbacks.empty_scan_selection ? "empty_selection"
                              : list == &callbacks.used_scan_selection ? "used_selection"
                                                                       : "empty_result";
            list->register_(foundation::make_callback([this, name](const auto&) { events.push_back(name); }, name));
        }
        std::vector<std::shared_ptr<Rule>> rules{rule("grp", "^<asset:[a-z]+>_grp$", 1, 1, {"transform"}),
                                                 rule("mesh", "^<asset>_mesh<n:[0-9]>$", 1, 3, {"mesh"})};
        if (ghost) {
            rules.push_back(rule("g", "^assets$", 1, 1, {"transform"}, "ghost"));
            hierarchy->pattern().set(rules, node("", {node("g", {node("grp", {node("mesh")})})}));
        } else {
            hierarchy->pattern().set(rules, node("", {node("grp", {node("mesh")})}));
        }
    }
    std::string asset(const std::string& name, int meshes, const std::string& parent = "") {
        const auto grp = scene->add(parent.empty() ? assets : parent, name + "_grp", "transform");
        for (int i = meshes - 1; i >= 0; --i) scene->add(grp, name + "_mesh" + std::to_string(i), "mesh");
        return grp;
    }
    void select_all() {
        scene->selection.clear();
        std::vector<std::string> stack{assets};
        while (!stack.empty()) {
            auto p = stack.back();
            stack.pop_back();
            scene->selection.push_back(p);
            const auto children = scene->get_children(p);
            stack.insert(stack.end(), children.rbegin(), children.rend());
        }
    }
    std::vector<std::string> bucket_names() const {
        std::vector<std::string> out;
        for (const auto& b : buffer->get()) out.push_back(b->name());
        return out;
    }
};

}  // namespace

TEST(Scanner, FindsAssetsUnderTheGhostInHostCallOrder) {
    Rig r;
    const auto rock = r.asset("rock", 2);
    r.asset("bad", 0);  // a group needs a mesh: cut out and dropped
    r.asset("tree", 1);
    r.select_all();
    const auto selection = r.scene->selection;
    ASSERT_TRUE(r.scanner.upload_buffer());
    EXPECT_TRUE(r.events.empty());
    EXPECT_EQ(r.bucket_names(), (std::vector<std::string>{"rock_grp", "tree_grp"}));
    const auto bucket = r.buffer->get().front();
    // One top joint of type ghost, with the real root below it.
    ASSERT_TRUE(bucket->joint->is_ghost());
    EXPECT_EQ(bucket->joint->icon, "Ghost");
    ASSERT_EQ(bucket->joint->children.size(), 1u);
    const auto& grp = *bucket->joint->children.front();
    EXPECT_EQ(grp.path, rock);
    EXPECT_EQ(grp.stamp, "grp");
    EXPECT_EQ(grp.icon, "grp_icon");
    EXPECT_EQ(grp.type, "transform");
    // Children come sorted by name, whatever the scene's order.
    ASSERT_EQ(grp.children.size(), 2u);
    EXPECT_EQ(grp.children[0]->name, "rock_mesh0");
    EXPECT_EQ(grp.children[1]->name, "rock_mesh1");
    // Each joint is handed to the host once it is complete: children first.
    EXPECT_EQ(r.scene->calls, (std::vector<std::string>{"+rock_mesh1", "+rock_mesh0", "+rock_grp", "+rock_grp",
                                                        "+tree_mesh0", "+tree_grp", "+tree_grp"}));
    EXPECT_EQ(r.scene->selection, selection);
    EXPECT_EQ(r.scene->filedata, Buffer::encode(r.buffer->get()));
    EXPECT_EQ(Buffer::encode(Buffer::decode(r.scene->filedata)), r.scene->filedata);
}

TEST(Scanner, RefusalsAndEvents) {
    Rig r;
    r.asset("rock", 1);
    // Nothing selected.
    EXPECT_FALSE(r.scanner.upload_buffer());
    EXPECT_EQ(r.events, std::vector<std::string>{"empty_selection"});
    r.select_all();
    ASSERT_TRUE(r.scanner.upload_buffer());
    // Appending what is loaded already is refused, and nothing changes.
    const auto stored = r.scene->filedata;
    EXPECT_FALSE(r.scanner.upload_buffer(true));
    EXPECT_EQ(r.events.back(), "used_selection");
    EXPECT_EQ(r.scene->filedata, stored);
    // An append with nothing selected selects what is loaded, then reports the empty selection.
    r.scene->selection.clear();
    EXPECT_FALSE(r.scanner.upload_buffer(true));
    EXPECT_EQ(r.scene->selection, scene::Paths{"|assets|rock_grp"});
    EXPECT_EQ(r.events.back(), "empty_selection");
    // A scan without append that finds nothing has erased what was stored.
    r.scene->add("", "lonely", "transform");
    r.scene->selection = {"|lonely"};
    r.scene->calls.clear();
    EXPECT_FALSE(r.scanner.upload_buffer());
    EXPECT_EQ(r.events.back(), "empty_result");
    EXPECT_FALSE(r.buffer->exists());
    EXPECT_EQ(r.scene->filedata, JsonDocument::array());
    EXPECT_EQ(r.scene->calls, (std::vector<std::string>{"-rock_grp", "-rock_grp", "-rock_mesh0"}));
}

TEST(Scanner, AppendKeepsEarlierBucketsFirst) {
    Rig r;
    const auto zed = r.asset("zed", 1);
    const auto abc = r.asset("abc", 1);
    // The ghost object is read from the snapshot, so it is selected too.
    r.scene->selection = {r.assets, zed};
    ASSERT_TRUE(r.scanner.upload_buffer());
    r.scene->selection = {r.assets, abc};
    ASSERT_TRUE(r.scanner.upload_buffer(true));
    // Buckets keep the order in which they came; only children are sorted.
    EXPECT_EQ(r.bucket_names(), (std::vector<std::string>{"zed_grp", "abc_grp"}));
    // Without append the new scan replaces them.
    ASSERT_TRUE(r.scanner.upload_buffer());
    EXPECT_EQ(r.bucket_names(), std::vector<std::string>{"abc_grp"});
}

TEST(Scanner, WithoutGhostEachRootIsABucketAndEqualOnesMerge) {
    Rig r(false);
    const auto rock = r.asset("rock", 1);
    // The selection holds the same root twice.
    r.scene->selection = {rock, rock};
    ASSERT_TRUE(r.scanner.upload_buffer());
    ASSERT_EQ(r.buffer->get().size(), 1u);
    EXPECT_FALSE(r.buffer->get().front()->joint->is_ghost());
    EXPECT_EQ(Scanner::filter({std::make_shared<DataBucket>(std::make_shared<DataJoint>()),
                               std::make_shared<DataBucket>(std::make_shared<DataJoint>())})
                  .size(),
              1u);
}

TEST(Buffer, AgreementWithTheOpenScene) {
    Rig r;
    const auto rock = r.asset("rock", 2);
    r.asset("tree", 1);
    r.select_all();
    ASSERT_TRUE(r.scanner.upload_buffer());
    // Reopen: a fresh buffer reads the embedded data.
    Buffer reopened(r.scene, r.virt, r.hierarchy);
    reopened.load();
    EXPECT_EQ(Buffer::encode(reopened.get()), r.scene->filedata);
    EXPECT_TRUE(reopened.is_valid());
    // A mesh more than stored: the structure no longer agrees.
    r.scene->add(rock, "rock_mesh2", "mesh");
    EXPECT_FALSE(reopened.is_match());
    EXPECT_FALSE(reopened.is_valid());
    // A mesh that breaks the rule: the count agrees again, the pattern does not.
    Rig s;
    const auto grp = s.asset("rock", 1);
    s.select_all();
    ASSERT_TRUE(s.scanner.upload_buffer());
    s.scene->add(grp, "Rock_mesh5", "transform");
    s.scene->add(s.assets, "tree_grp", "transform");
    Buffer again(s.scene, s.virt, s.hierarchy);
    again.load();
    EXPECT_TRUE(again.ghosts_match());
    EXPECT_EQ(again.incompatibles(), std::vector<scene::Paths>{{grp}});
    // rename and repath touch names and paths only.
    again.rename("rock", "stone");
    again.repath("|assets", "|props");
    const auto b = again.get().front();
    EXPECT_EQ(b->name(), "stone_grp");
    EXPECT_EQ(b->joint->name, "rock_grp");
    EXPECT_EQ(b->joint->children.front()->path, "|props|rock_grp");
    EXPECT_EQ(b->joint->children.front()->name, "rock_grp");
}

TEST(Buffer, ClearSelectedRewritesOnlyWhatIsLeft) {
    Rig r;
    r.asset("rock", 1);
    r.asset("tree", 1);
    r.select_all();
    ASSERT_TRUE(r.scanner.upload_buffer());
    for (const auto& b : r.buffer->get()) b->checked = false;
    const auto before = Buffer::encode(r.buffer->get());
    r.buffer->clear(true);
    EXPECT_EQ(r.scene->filedata, before);
    r.buffer->get().back()->checked = true;
    r.buffer->clear(true);
    EXPECT_EQ(r.bucket_names(), std::vector<std::string>{"rock_grp"});
    EXPECT_EQ(r.scene->filedata.size(), 1u);
}

TEST(Buffer, DecodeKeepsWhatIsWellFormedAndLogsOnce) {
    auto sink = std::make_shared<CollectingSink>();
    foundation::Logger::set_sink(sink);
    const auto good = JsonDocument::parse(R"({"joint": {"stamp": "s", "name": "n", "path": "|n", "type": "mesh",
        "children": [{"name": "c"}, 5, {"path": 7}], "icon": "", "color": "red"}, "name": "B", "checked": false,
        "opened": "yes", "extra": 1})");
    JsonDocument data = JsonDocument::array({good, 3, JsonDocument::object(), {{"joint", "x"}}, nullptr});
    const auto buckets = Buffer::decode(data);
    foundation::Logger::flush();
    foundation::Logger::set_sink(nullptr);
    ASSERT_EQ(buckets.size(), 1u);
    const auto& b = *buckets.front();
    EXPECT_EQ(b.name(), "B");
    EXPECT_FALSE(b.checked);
    EXPECT_TRUE(b.opened);  // a wrong type takes the default
    ASSERT_EQ(b.joint->children.size(), 2u);
    EXPECT_EQ(b.joint->children[0]->path, "|");  // the joint's own default
    EXPECT_EQ(b.joint->children[0]->color, "none");
    EXPECT_EQ(b.joint->children[1]->name, "");
    EXPECT_EQ(b.joint->color, "red");
    ASSERT_EQ(sink->messages.size(), 1u);
    EXPECT_NE(sink->messages.front().find("malformed"), std::string::npos);
    // Not a list at all: nothing, still one line; a missing name takes the joint's.
    EXPECT_TRUE(Buffer::decode(JsonDocument("text")).empty());
    EXPECT_EQ(Buffer::decode(JsonDocument::parse(R"([{"joint": {"name": "j"}}])")).front()->name(), "j");
}
