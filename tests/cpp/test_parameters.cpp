// Inputs, blocks with their tasks, and exporter options.
#include <gtest/gtest.h>

#include "zerko/foundation/errors.hpp"
#include "zerko/parameters/block.hpp"
#include "zerko/parameters/combo_box.hpp"
#include "zerko/parameters/lists.hpp"
#include "zerko/parameters/options.hpp"

using namespace zerko;
using namespace zerko::parameters;

namespace {

Document json(const char* text) { return Document::parse(text); }

std::shared_ptr<ComboBox> level_box(bool low = false, bool high = false) {
    return std::make_shared<ComboBox>(
        "level", std::vector<ComboBox::ItemPtr>{std::make_shared<ComboBox::Item>("low", "Low", low),
                                                std::make_shared<ComboBox::Item>("high", "High", high)});
}

}  // namespace

TEST(ParametersInputs, LoadFallbacksAreFixedAndValuesAreNotClamped) {
    IntRange distance("distance", 0, 10, 1, 7);
    distance.load(json("{}"));
    EXPECT_EQ(distance.value, 50);  // not the declared 7
    distance.load(json(R"({"value": 500})"));
    EXPECT_EQ(distance.value, 500);

    FloatRange weight("weight", 0.0, 2.0, 0.1, 1, 1.5);
    weight.load(json("{}"));
    EXPECT_DOUBLE_EQ(weight.value, 0.5);
    weight.load(json(R"({"value": 3})"));
    EXPECT_DOUBLE_EQ(weight.value, 3.0);

    RegEx pattern("pattern", "^geo_");
    pattern.load(json("{}"));
    EXPECT_EQ(pattern.text, ".+");

    Switch on("on", true);
    on.load(json("{}"));
    EXPECT_FALSE(on.enabled);

    // Stored data of the wrong kind is refused, so a task can keep it as an error.
    EXPECT_THROW(distance.load(json(R"({"value": "7"})")), TypeError);
    EXPECT_THROW(distance.load(json(R"({"value": 7.5})")), TypeError);
    EXPECT_THROW(on.load(json("[]")), TypeError);
}

TEST(ParametersInputs, NamesAreCheckedAndClonesAreIndependent) {
    EXPECT_THROW(IntRange(""), ValueError);
    try {
        Switch("1st");
        FAIL();
    } catch (const error::WrongAttributeName& e) {
        EXPECT_STREQ(e.what(), "Wrong Name for Attribute - \"1st\"");
    }
    EXPECT_THROW(RegEx("__mine"), error::PrivateAttributeName);
    EXPECT_THROW(ComboBox::Item("a b"), error::WrongAttributeName);

    IntRange source("distance", 0, 10, 2, 4, "at", "cm", "Distance", "How far");
    auto copy = std::dynamic_pointer_cast<IntRange>(source.clone());
    ASSERT_TRUE(copy);
    copy->value = 9;
    EXPECT_EQ(source.value, 4);
    EXPECT_EQ(copy->step, 2);
    EXPECT_EQ(copy->units(), "cm");
    EXPECT_EQ(copy->help_text(), "How far");
    EXPECT_EQ(source.str(), R"(attr="distance" label="Distance" help="How far")");

    Input abstract("plain");
    EXPECT_THROW(abstract.data(), NotImplementedError);
    EXPECT_THROW(abstract.clone(), NotImplementedError);
}

TEST(ParametersComboBox, SelectionRules) {
    auto none_selected = level_box();
    EXPECT_TRUE(none_selected->items()[0]->selected());
    EXPECT_EQ(none_selected->data(), json(R"({"selected_attr": "low"})"));

    auto both_selected = level_box(true, true);
    EXPECT_TRUE(both_selected->items()[0]->selected());
    EXPECT_FALSE(both_selected->items()[1]->selected());

    auto box = level_box();
    box->load(json(R"({"selected_attr": "high"})"));
    EXPECT_EQ(box->current_index(), 1u);
    EXPECT_EQ(box->get_selected_text(), "High");
    box->load(json(R"({"selected_attr": "medium"})"));
    box->load(json("{}"));
    EXPECT_EQ(box->get_selected(), box->item("high"));

    // Selection goes by identity: an equal item from elsewhere unselects all,
    // and the next reading selects the first again.
    box->set_selected(box->item("high")->clone());
    EXPECT_FALSE(box->items()[1]->selected());
    EXPECT_EQ(box->get_selected(), box->item("low"));

    auto clone = std::static_pointer_cast<ComboBox>(box->clone());
    clone->load(json(R"({"selected_attr": "high"})"));
    EXPECT_EQ(box->get_selected(), box->item("low"));

    ComboBox empty("empty", {});
    EXPECT_EQ(empty.get_selected(), nullptr);
    EXPECT_EQ(empty.get_selected_text(), "");
    EXPECT_EQ(empty.data(), Document::object());
    EXPECT_EQ(empty.current_index(), 0u);

    auto item = [](const char* name) { return std::make_shared<ComboBox::Item>(name); };
    EXPECT_THROW(ComboBox("twice", {item("a"), item("a")}), error::AttributeNameRepeat);
    EXPECT_THROW(ComboBox("hole", {item("a"), nullptr}), TypeError);
}

TEST(ParametersLists, TextListsReplaceOnLoadAndFilterValues) {
    TextInputList names("names", {std::make_shared<TextInput>("a", true), std::make_shared<TextInput>("b", false)});
    EXPECT_EQ(names.values(), std::vector<std::string>{"a"});
    EXPECT_EQ(names.values(false), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(names.str(), "<class TextInputList> attr=\"names\" label=\"\" help=\"\"\n"
                           "  <class TextInput> enabled=True text=\"a\"\n"
                           "  <class TextInput> enabled=False text=\"b\"");

    names.add()->text = "c";
    names.pop(0);
    EXPECT_EQ(names.data(), json(R"([{"text": "b", "enabled": false}, {"text": "c", "enabled": false}])"));
    EXPECT_THROW(names.pop(2), std::out_of_range);

    names.load(json(R"([{"enabled": true}, {"text": "z"}])"));
    ASSERT_EQ(names.size(), 2u);
    EXPECT_EQ(names.at(0)->text, "");
    EXPECT_TRUE(names.at(0)->enabled);
    EXPECT_FALSE(names.at(1)->enabled);
    EXPECT_THROW(names.load(json(R"([{"text": 1}])")), TypeError);

    TextMatchList matches("matches");
    matches.load(json(R"([{"text": "x"}, {}])"));
    EXPECT_EQ(matches.values(), (std::vector<std::string>{"x", ""}));
    EXPECT_THROW(TextMatchList("m", {nullptr}), TypeError);
}

TEST(ParametersLists, IntSliceListKeepsTheDeclaredShape) {
    auto start = std::make_shared<IntRange>("start", 0, 20, 2, 3, "from", "fr");
    auto stop = std::make_shared<IntRange>("stop", 5, 30, 1, 8, "", "fr");
    IntSliceList frames("frames", std::make_shared<IntSlice>(start, stop), {}, "Frame ranges");

    frames.load(json(R"([{"start": {"value": 1}, "stop": {"value": 99}}, {"stop": {}}])"));
    ASSERT_EQ(frames.items().size(), 2u);
    const auto& first = frames.items()[0];
    EXPECT_EQ(first->start->value, 1);
    EXPECT_EQ(first->start->maximum, 20);
    EXPECT_EQ(first->start->step, 2);
    EXPECT_EQ(first->start->prefix(), "from");
    EXPECT_EQ(first->stop->minimum, 5);
    EXPECT_EQ(first->stop->prefix(), "");  // an empty prefix is not copied
    EXPECT_EQ(first->stop->units(), "fr");
    EXPECT_EQ(frames.items()[1]->start->value, 50);  // the load fallback, not the default slice

    auto added = frames.add();
    EXPECT_EQ(added->start->value, 3);
    EXPECT_EQ(added->stop->value, 8);
    EXPECT_EQ(added->stop->maximum, 30);
    EXPECT_EQ(frames.data().back(), json(R"({"start": {"value": 3}, "stop": {"value": 8}})"));

    auto clone = std::static_pointer_cast<IntSliceList>(frames.clone());
    EXPECT_EQ(clone->help_text(), "");
    EXPECT_EQ(clone->data(), frames.data());
    clone->items()[0]->start->value = 42;
    EXPECT_EQ(frames.items()[0]->start->value, 1);

    EXPECT_THROW(IntSliceList("bad", nullptr), TypeError);
    EXPECT_THROW(IntSlice(start, nullptr), TypeError);
}

TEST(ParametersBlock, LoadAlwaysGivesTasksAndKeepsStaleDataAsErrors) {
    Block empty;
    EXPECT_TRUE(empty.empty());
    EXPECT_EQ(empty.defaults(), json(R"([{"as_info": false, "state": {}}])"));
    empty.load(Document::array());
    EXPECT_EQ(empty.length(), 1u);

    Block block({std::make_shared<IntRange>("distance", 0, 100, 1, 7), std::make_shared<Switch>("strict"),
                 std::make_shared<RegEx>("pattern", "^a")});
    block.set_as_info(true);
    block.load(nullptr);
    ASSERT_EQ(block.length(), 1u);
    EXPECT_EQ(block.data(), block.defaults());
    block.load(json(R"("")"));  // any empty value stands for nothing stored
    EXPECT_EQ(block.data(), block.defaults());

    block.load(json(R"([{"state": {"distance": {"value": 3}, "gone": {"value": 1}, "strict": {"enabled": true}}},
                        {"as_info": false}])"));
    ASSERT_EQ(block.length(), 2u);
    const auto& stale = block.tasks()[0];
    EXPECT_TRUE(stale->as_info);
    EXPECT_EQ(stale->get<IntRange>("distance")->value, 3);
    EXPECT_FALSE(stale->get<Switch>("strict")->enabled);  // after the unknown name: not loaded
    EXPECT_THROW(stale->assert_no_errors(), ValueError);
    EXPECT_FALSE(block.tasks()[1]->as_info);
    EXPECT_EQ(block.tasks()[1]->get<IntRange>("distance")->value, 7);
    EXPECT_NO_THROW(block.tasks()[1]->assert_no_errors());

    // Every task has its own inputs; the declaration never changes.
    block.tasks()[1]->get<IntRange>("distance")->value = 11;
    EXPECT_EQ(std::static_pointer_cast<IntRange>(block.inputs()[0])->value, 7);
    EXPECT_EQ(block.state(), Block::get_state(block.inputs()));

    auto clone = block.tasks()[0]->clone();
    EXPECT_EQ(clone->number, 0);
    EXPECT_EQ(clone->state(), block.tasks()[0]->state());
    EXPECT_THROW(clone->assert_no_errors(), ValueError);  // the source's load error comes along

    EXPECT_THROW(block.load(json(R"({"as_info": true})")), TypeError);
    EXPECT_THROW(block.clone(), TypeError);
}

TEST(ParametersBlock, BadDeclarationsAreRaisedOnlyOnUse) {
    Block repeated({std::make_shared<IntRange>("size"), std::make_shared<Switch>("size")});
    repeated.load(nullptr);
    const auto& task = repeated.tasks()[0];
    EXPECT_THROW(task->assert_no_errors(), error::AttributeNameRepeat);
    EXPECT_TRUE(task->table().empty());
    EXPECT_EQ(task->state(), Document::object());
    EXPECT_TRUE(task->get<IntRange>("size"));  // named before the failure: still reachable

    Block grouped({std::make_shared<Switch>("on"), std::make_shared<Group>("g")});
    grouped.load(nullptr);
    EXPECT_THROW(grouped.tasks()[0]->assert_no_errors(), error::ParameterInputType);
    EXPECT_TRUE(grouped.tasks()[0]->attribute("on"));
}

TEST(ParametersBlock, TasksAreNumberedInListOrder) {
    Block block({std::make_shared<IntRange>("n")});
    block.load(nullptr);
    auto second = block.append_task();
    auto third = block.append_task();
    EXPECT_EQ(third->number, 3);
    block.remove_task(block.tasks()[0].get());
    EXPECT_EQ(second->number, 1);
    EXPECT_EQ(third->number, 2);
    Task stranger({});
    block.remove_task(&stranger);
    EXPECT_EQ(block.length(), 2u);
    block.reset();
    EXPECT_EQ(block.length(), 0u);
}

TEST(ParametersOptions, DataHoldsChangesAndFloatsAreNotPutBack) {
    auto tri = std::make_shared<Switch>("triangulate");
    auto scale = std::make_shared<FloatRange>("scale", 0.0, 10.0, 0.5, 1, 1.0);
    auto count = std::make_shared<IntRange>("count", 0, 10, 1, 2);
    auto box = level_box();
    Options options("fbx", "FBX", "Film box", {tri, std::make_shared<Group>("More", std::vector<NodePtr>{scale, count, box})});

    EXPECT_EQ(options.defaults(), json(R"({"triangulate": false, "scale": 1.0, "count": 2, "level": "low"})"));
    EXPECT_EQ(options.data(), Document::object());

    tri->enabled = true;
    scale->value = 4.0;
    EXPECT_EQ(options.data(), json(R"({"triangulate": true, "scale": 4.0})"));

    options.load(json(R"({"count": 5, "scale": 2.0, "level": "high", "unknown": 1})"));
    EXPECT_FALSE(tri->enabled);
    EXPECT_EQ(count->value, 5);
    EXPECT_DOUBLE_EQ(scale->value, 4.0);  // neither load nor reset restore a float
    EXPECT_EQ(box->get_selected_text(), "High");
    options.reset();
    EXPECT_EQ(count->value, 2);
    EXPECT_DOUBLE_EQ(scale->value, 4.0);

    auto clone = options.clone();
    EXPECT_EQ(clone->help_text(), "");
    EXPECT_EQ(clone->defaults(), options.defaults());
    clone->load(json(R"({"triangulate": true})"));
    EXPECT_FALSE(tri->enabled);
    EXPECT_EQ(clone->data(), json(R"({"triangulate": true, "scale": 4.0})"));

    EXPECT_THROW(options.load(json(R"({"triangulate": 1})")), TypeError);
    EXPECT_THROW(Options(), ValueError);
}

TEST(ParametersOptions, TreeIsFlattenedAndALaterNameWins) {
    auto outer = std::make_shared<IntRange>("n", 0, 10, 1, 1);
    auto inner = std::make_shared<IntRange>("n", 0, 10, 1, 2);
    auto regex = std::make_shared<RegEx>("pattern");
    Options options("o", "", "", {outer, std::make_shared<Group>("g", std::vector<NodePtr>{inner, regex})});
    EXPECT_EQ(options.parameters().size(), 2u);
    EXPECT_EQ(options.parameters().find("n"), inner);
    EXPECT_EQ(options.get_state(), json(R"({"n": 2})"));  // a regular expression takes no part

    auto group = std::make_shared<Group>("g", std::vector<NodePtr>{outer}, std::any(std::string("switch")));
    auto copy = group->clone();
    EXPECT_EQ(std::any_cast<std::string>(copy->visibility_switch()), "switch");
    EXPECT_NE(copy->contents()[0], outer);
    EXPECT_TRUE(Options::is_integer(copy->contents()[0].get()));
    EXPECT_TRUE(Options::is_group(group.get()));
    EXPECT_FALSE(Options::is_input(group.get()));
}
