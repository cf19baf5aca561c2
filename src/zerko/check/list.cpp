#include "zerko/check/list.hpp"

#include "zerko/check/classes.hpp"

#include <algorithm>
#include <map>

#include "zerko/parameters/block.hpp"

namespace zerko::check {

List::List(const std::vector<std::shared_ptr<Class>>& classes, std::shared_ptr<settings::Check::Presets> presets,
           std::shared_ptr<settings::Check::Config> config) {
    controls_.reserve(classes.size());
    for (const auto& check_class : classes) controls_.push_back(std::make_shared<Control>(check_class));
    build_categories();
    load(std::move(config));
    preset_editor_ = std::make_shared<settings::Check::Presets::Editor>(std::move(presets), this);
}

List::Controls List::iterator(bool enabled) const {
    if (!enabled) return controls_;
    Controls out;
    for (const auto& control : controls_) {
        if (control->enabled) out.push_back(control);
    }
    return out;
}

bool List::is_empty() const {
    return std::none_of(controls_.begin(), controls_.end(), [](const auto& control) { return control->enabled; });
}

List::Controls List::get(bool enabled, bool scene_oriented) const {
    Controls out;
    for (const auto& control : iterator(enabled)) {
        if (control->check->scene_oriented() == scene_oriented) out.push_back(control);
    }
    return out;
}

void List::load(std::shared_ptr<settings::Check::Config> config) {
    if (!config) return;
    config_ = std::move(config);
    std::vector<std::string> ids;
    ids.reserve(controls_.size());
    for (const auto& control : controls_) {
        std::string id = control->check->class_id();
        control->load(config_->get(id, true));
        ids.push_back(std::move(id));
    }
    config_->mask(ids);
}

void List::save() {
    for (const auto& control : controls_) control->save();
}

void List::clear() {
    for (const auto& control : controls_) control->clear();
}

void List::build_categories() {
    std::map<std::string, std::shared_ptr<Category>, std::less<>> table;
    std::vector<std::shared_ptr<Category>> categories;
    for (const auto& control : controls_) {
        std::string name = category_key(control->check->category());
        auto [it, added] = table.try_emplace(name);
        if (added) {
            it->second = std::make_shared<Category>(name);
            categories.push_back(it->second);
        }
        it->second->add(control);
    }
    categories_ = std::move(categories);
}

List::Control::Control(std::shared_ptr<Class> check_class)
    : name(check_class->short_name()), check(std::move(check_class)), parameters(check->parameters()) {
    if (!parameters) parameters = std::make_shared<parameters::Block>();
}

void List::Control::load(std::shared_ptr<settings::Check> state) {
    if (!state) return;
    opened = state->opened;
    enabled = state->enabled;
    parameters->load(state->parameters);
    state_ = std::move(state);
}

void List::Control::save() {
    if (!state_) return;
    state_->enabled = enabled;
    if (enabled) {
        state_->opened = opened;
        state_->parameters = parameters->data();
    } else {
        state_->opened = false;
        state_->parameters = parameters->defaults();
    }
}

void List::Control::clear() {
    state_.reset();
    parameters->reset();
    enabled = false;
    opened = false;
}

}  // namespace zerko::check

namespace zerko::settings {

void Check::Presets::Editor::create(std::string name) {
    if (!config_loaded() || !presets_) return;
    presets_->add(std::move(name), check_list_->config()->clone());
}

void Check::Presets::Editor::upload(const std::shared_ptr<Set>& preset) {
    if (!config_loaded() || !preset) return;
    preset->set_config(check_list_->config()->clone());
}

void Check::Presets::Editor::apply(const std::shared_ptr<Set>& preset) {
    if (!config_loaded() || !preset) return;
    const auto config = check_list_->config();
    config->apply(*preset->config());
    check_list_->load(config);
}

void Check::Presets::Editor::erase(const std::shared_ptr<Set>& preset) {
    if (presets_) presets_->pop(preset);
}

void Check::Presets::Editor::sync_applied() {
    if (!presets_) return;
    if (config_loaded()) {
        presets_->sync_applied(*check_list_->config());
    } else {
        for (const auto& preset : *presets_) preset->applied = false;  // nothing to equal
    }
}

}  // namespace zerko::settings
