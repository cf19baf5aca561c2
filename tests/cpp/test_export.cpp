// Export flags, the export queue and the exporter options.
#include <gtest/gtest.h>

#include "zerko/export/flags.hpp"
#include "zerko/export/options.hpp"
#include "zerko/export/queue.hpp"
#include "zerko/parameters/input.hpp"

using namespace zerko;
using export_::Document;

namespace {

std::shared_ptr<parameters::Options> exporter(const char* attr, const char* label) {
    return std::make_shared<parameters::Options>(
        attr, label, "", std::vector<parameters::NodePtr>{std::make_shared<parameters::Switch>("on"),
                                                          std::make_shared<parameters::IntRange>("n")});
}

bool switch_on(const parameters::Options& options) {
    return std::static_pointer_cast<parameters::Switch>(options.parameters().find("on"))->enabled;
}

}  // namespace

TEST(ExportFlags, DataOrderAndLoadTurnsMissingKeysOff) {
    export_::Flags flags;
    flags.triangulate = true;
    flags.version_control = true;
    EXPECT_EQ(flags.data().dump(),
              R"({"automatic_uv":false,"triangulate":true,"reset_xforms":false,"version_control":true})");

    flags.load(Document::parse(R"({"automatic_uv": true, "reset_xforms": 1})"));
    EXPECT_TRUE(flags.automatic_uv);
    EXPECT_FALSE(flags.triangulate);
    EXPECT_FALSE(flags.reset_xforms);
    EXPECT_FALSE(flags.version_control);
    flags.load(Document::object());
    EXPECT_FALSE(flags.automatic_uv);
}

TEST(ExportQueue, TasksAreConfirmedOneByOneAndClearEmptiesInPlace) {
    export_::Queue queue;
    auto task = std::make_shared<export_::Queue::Task>("chair");
    EXPECT_TRUE(task->is_empty());
    EXPECT_FALSE(task->is_confirmed());
    task->add("|chair");
    task->add("|chair_lod1");
    task->confirm();
    EXPECT_EQ(task->roots, (std::vector<std::string>{"|chair", "|chair_lod1"}));
    EXPECT_TRUE(task->is_confirmed());

    queue.add(task);
    queue.add(std::make_shared<export_::Queue::Task>("table"));
    const auto& held = queue.tasks();
    EXPECT_EQ(queue.size(), 2u);
    queue.clear();
    EXPECT_TRUE(held.empty());
    EXPECT_TRUE(queue.is_empty());
}

TEST(ExportOptions, SelectionByObjectAttrOrLabel) {
    export_::Options none;
    EXPECT_EQ(none.selected(), nullptr);
    EXPECT_EQ(none.data(), Document::parse(R"({"selected": null, "formats": {}})"));

    auto fbx = exporter("fbx", "FBX");
    auto obj = exporter("obj", "Wavefront");
    export_::Options options({nullptr, fbx, obj});
    EXPECT_EQ(options.options().size(), 2u);
    EXPECT_EQ(options.selected(), fbx);
    EXPECT_EQ(options.option("obj"), obj);

    options.select("Wavefront");
    EXPECT_EQ(options.selected(), obj);
    options.select("fbx");
    EXPECT_EQ(options.selected(), fbx);
    options.select(obj.get());
    EXPECT_EQ(options.selected(), obj);
    options.select("usd");
    options.select(static_cast<const parameters::Options*>(nullptr));
    EXPECT_EQ(options.selected(), obj);
}

TEST(ExportOptions, LoadAndCloneCarryStateAndSelection) {
    auto fbx = exporter("fbx", "FBX");
    auto obj = exporter("obj", "OBJ");
    export_::Options options({fbx, obj});

    options.load(Document::parse(R"({"selected": "obj", "formats": {"fbx": {"on": true, "n": 3}}})"));
    EXPECT_EQ(options.selected(), obj);
    EXPECT_TRUE(switch_on(*fbx));
    EXPECT_EQ(options.data(),
              Document::parse(R"({"selected": "obj", "formats": {"fbx": {"on": true, "n": 3}, "obj": {}}})"));

    options.load(Document::parse(R"({"selected": "usd", "formats": {}})"));
    EXPECT_EQ(options.selected(), obj);  // an unknown name keeps the selection
    EXPECT_FALSE(switch_on(*fbx));       // an absent state resets the exporter

    fbx->load(Document::parse(R"({"on": true})"));
    auto clone = options.clone();
    EXPECT_EQ(clone->data(), options.data());
    EXPECT_EQ(clone->selected()->attr(), "obj");
    EXPECT_NE(clone->selected(), obj);
    clone->option("fbx")->load(Document::object());
    EXPECT_TRUE(switch_on(*fbx));
}
