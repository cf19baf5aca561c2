// Vocabulary, masks, the scene contract, environments and Api from a C++ host.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "zerko/api/api.hpp"
#include "zerko/check/queue.hpp"
#include "zerko/parameters/block.hpp"
#include "zerko/constants/constants.hpp"
#include "zerko/constants/mask.hpp"
#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/paths.hpp"
#include "zerko/foundation/logger.hpp"
#include "test_support.hpp"

using namespace zerko;

namespace {

std::vector<std::string> names(const constants::Mask::Set& set) {
    std::vector<std::string> out;
    for (const auto& i : set.items()) out.push_back(i->name());
    return out;
}

class TableScene : public test_support::HostlessScene {
public:
    TableScene() : HostlessScene({{"xform", "transform"}, {"poly", "mesh"}}) {}
    scene::Paths get_selection() const override { return selection; }
    void select(const scene::Paths& paths) override { selection = paths; }
    void delete_callbacks() override { ++deleted; }
    scene::Paths selection{"|a"};
    int deleted = 0;
};

class BrokenEnv : public api::Environment {
public:
    std::string get_settings_file() const override { return "/tmp/s.json"; }
    std::string get_settings_directory() const override { return "/tmp"; }
    // projects and statistics stay abstract: the environment is refused
};

/// An environment that publishes its process variables, as a host's does.
class GoodEnv : public test_support::DirectoryEnv {
public:
    explicit GoodEnv(std::string dir) : DirectoryEnv(std::move(dir)) { publish(); }
};

}  // namespace

TEST(Constants, TreeHoldsEveryBranchInOrder) {
    const auto& tree = constants::tree();
    EXPECT_EQ(tree.front().path, "Check.Mode");
    EXPECT_EQ(tree.back().path, "Name.Filter");
    EXPECT_EQ(tree[1].size, 8u);
    EXPECT_EQ(tree[1].leaves[3].text, "mesh non-manifold");
    EXPECT_EQ(constants::check::category::Mesh, constants::scene::type::Mesh);
}

TEST(Mask, RowsFollowTheTypeTableAndFieldsStay) {
    constants::Mask no_lod(constants::TypeMapping({{"t", "transform"}, {"l", "locator"}, {"m", "mesh"}}));
    EXPECT_EQ(names(*no_lod.type()), (std::vector<std::string>{"Loc. or Group", "Locator", "Group", "Mesh", "Any"}));
    EXPECT_NE(no_lod.type()->field("LodGroup"), nullptr);
    constants::Mask no_locator(constants::TypeMapping(constants::TypeMapping::Table{{"t", "transform"}}));
    EXPECT_EQ(names(*no_locator.ghost()), (std::vector<std::string>{"group"}));
    EXPECT_EQ(names(*no_locator.type()), (std::vector<std::string>{"Group", "Any"}));
    EXPECT_EQ(names(*no_locator.result()), (std::vector<std::string>{"Fail", "Fail & Info"}));
}

TEST(Environment, PathRulesAndCodecs) {
    EXPECT_EQ(foundation::path::normalise("//a//b/./c/.."), "//a/b");
    EXPECT_EQ(foundation::path::normalise("///a"), "/a");
    EXPECT_EQ(foundation::path::normalise("../x/../../y"), "../../y");
    EXPECT_EQ(foundation::path::normalise(""), ".");
    const auto home = foundation::path::normalise(*api::Environment::user_home());
    EXPECT_EQ(api::Environment::encode_user_path(home + "/x"), "~/x");
    EXPECT_EQ(api::Environment::decode_user_path("~/x"), home + "/x");
    EXPECT_EQ(api::Environment::decode_user_path("/d/a~b"), "/d/a" + home + "b");
    EXPECT_THROW(foundation::path::make_directory("/nonexistent-parent/child"), FileNotFoundError);
}

TEST(Api, FallsBackToTheLocalEnvironmentAndShutsDown) {
    auto scene = std::make_shared<TableScene>();
    api::Api fallback(scene, std::make_shared<BrokenEnv>());
    EXPECT_NE(dynamic_cast<api::LocalEnv*>(fallback.env().get()), nullptr);
    EXPECT_EQ(std::getenv("ZERKO-TARGET"), std::string("standalone"));

    const auto dir = std::filesystem::temp_directory_path() / "zerko-api-test";
    auto env = std::make_shared<GoodEnv>(dir.string());
    api::Api api(scene, env);
    EXPECT_EQ(api.env(), env);
    EXPECT_EQ(std::getenv("ZERKO-SCOPE"), std::string("Maya 2025"));
    EXPECT_EQ(names(*api.masks().type()), (std::vector<std::string>{"Group", "Mesh", "Any"}));
    int fired = 0;
    api.callbacks().buffer_loaded.register_(foundation::make_callback([&](const auto&) { ++fired; }, &fired));
    api.shutdown();
    EXPECT_EQ(scene->deleted, 1);
    api.callbacks().buffer_loaded();
    EXPECT_EQ(fired, 0);
    EXPECT_THROW(api::Api(nullptr, env), TypeError);
}

TEST(Api, CppHostEmbedsItsChecksBesideTheUsersDirectories) {
    const auto dir = std::filesystem::temp_directory_path() / "zerko-api-checks-test";
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir / "host_checks");
    std::filesystem::create_directories(dir / "studio");
    {
        // The user's settings name one directory of checks.
        std::ofstream(dir / "settings.json") << R"({"version": 4, "check": {"directories": [{"name": "studio", "path": ")"
                                             << (dir / "studio").string() << R"("}]}})";
    }
    struct Pass : check::Base {
        void check(const std::string&, parameters::Task&) override {}
    };
    auto registry = std::make_shared<check::Registry>();
    auto make = [](std::string id, std::string category) {
        check::Attributes attributes;
        attributes.class_id = std::move(id);
        attributes.long_name = "Check " + attributes.class_id;
        attributes.category = std::move(category);
        return std::make_shared<check::NativeClass>(attributes, nullptr, [] { return std::make_unique<Pass>(); });
    };
    registry->add((dir / "host_checks").string(), make("host.one", "mesh"));
    registry->add((dir / "studio").string(), make("studio.one", "scene"));

    auto scene = std::make_shared<TableScene>();
    api::Api api(scene, std::make_shared<GoodEnv>(dir.string()),
                 {registry, (dir / "host_checks" / "checks.so").string()});
    std::vector<std::string> ids;
    for (const auto& c : *api.classes()) ids.push_back(c->class_id());
    EXPECT_EQ(ids, (std::vector<std::string>{"studio.one", "host.one"}));
    const auto& embedded = api.settings().check().directories->embedded();
    ASSERT_NE(embedded, nullptr);
    EXPECT_EQ(embedded->name(), "Default");
    EXPECT_TRUE(embedded->locked());
    EXPECT_EQ(api.settings().data()["check"]["directories"].size(), 1u);  // the embedded one is never written
    EXPECT_EQ(api.hierarchy()->check_classes(), api.classes());

    // The same queue runs the host's class, with the Api's statistics.
    parameters::Block block;
    block.load(nullptr);
    check::Queue::Task::Result result("|a", *api.classes()->get("host.one"), *block.tasks().at(0),
                                      api.statistics_store(), scene);
    EXPECT_EQ(result.status(), "pass");
    EXPECT_EQ(api.statistics().data()["checks"].size(), 1u);
    api.shutdown();
    std::filesystem::remove_all(dir);
}

TEST(Operator, DefaultSelectionScopeRestoresAndAbstractsThrow) {
    TableScene scene;
    {
        auto scope = scene.selection_manager();
        scene.select({"|b", "|c"});
    }
    EXPECT_EQ(scene.selection, scene::Paths{"|a"});
    EXPECT_THROW(scene.get_type("|a"), NotImplementedError);
    EXPECT_THROW(scene.export_({}, "f", "fbx", {}), NotImplementedError);
    EXPECT_EQ(scene.map_type("poly"), "mesh");
    EXPECT_EQ(scene.map_type("nurbs"), std::nullopt);
    EXPECT_EQ(scene::Operator::name_from_path("|a|b/c"), "c");
}
