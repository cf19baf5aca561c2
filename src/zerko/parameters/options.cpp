#include "zerko/parameters/options.hpp"

#include "zerko/foundation/assertions.hpp"
#include "zerko/foundation/errors.hpp"
#include "zerko/parameters/combo_box.hpp"

namespace zerko::parameters {

std::shared_ptr<Group> Group::clone() const {
    std::vector<NodePtr> contents;
    contents.reserve(contents_.size());
    for (const auto& node : contents_) contents.push_back(node ? node->clone_node() : nullptr);
    return std::make_shared<Group>(label, std::move(contents), visibility_switch_);
}

namespace {
std::string checked_attr(std::string name) {
    foundation::Assert::Parameters::Input::attribute(name);
    return name;
}
}  // namespace

Options::Options(std::string attr_name, std::string label, std::string help_text, std::vector<NodePtr> contents)
    : attr_(checked_attr(std::move(attr_name))),
      label_(std::move(label)),
      help_text_(std::move(help_text)),
      contents_(std::move(contents)) {
    parameters_ = find_parameters();
    defaults_ = get_state();
}

NamedInputs Options::find_parameters(const Group* parent) const {
    NamedInputs found;
    for (const auto& child : parent ? parent->contents() : contents_) {
        if (auto input = std::dynamic_pointer_cast<Input>(child)) {
            found.set(input->attr(), input);
        } else if (auto group = dynamic_cast<const Group*>(child.get())) {
            for (const auto& [name, nested] : find_parameters(group)) found.set(name, nested);
        }
    }
    return found;
}

Document Options::get_state() const {
    Document state = Document::object();
    for (const auto& [key, input] : parameters_) {
        if (auto s = dynamic_cast<const Switch*>(input.get())) {
            state[key] = s->enabled;
        } else if (auto i = dynamic_cast<const IntRange*>(input.get())) {
            state[key] = i->value;
        } else if (auto f = dynamic_cast<const FloatRange*>(input.get())) {
            state[key] = f->value;
        } else if (auto box = dynamic_cast<const ComboBox*>(input.get())) {
            if (auto item = box->get_selected()) state[key] = item->attr();
        }
    }
    return state;
}

void Options::apply(const Document& data) {
    for (const auto& [name, value] : detail::expect_object(data, "Options data").items()) {
        Input* input = parameters_.find(name).get();
        if (dynamic_cast<Switch*>(input)) {
            input->load(Document{{"enabled", value}});
        } else if (dynamic_cast<IntRange*>(input)) {
            input->load(Document{{"value", value}});
        } else if (dynamic_cast<ComboBox*>(input)) {
            input->load(Document{{"selected_attr", value}});
        }
    }
}

Document Options::data() const {
    Document changed = Document::object();
    const Document state = get_state();
    for (const auto& [key, value] : state.items()) {
        auto known = defaults_.find(key);
        if (known == defaults_.end() || *known != value) changed[key] = value;
    }
    return changed;
}

void Options::reset() { apply(defaults_); }

void Options::load(const Document& data) {
    reset();
    apply(data);
}

std::shared_ptr<Options> Options::clone() const {
    std::vector<NodePtr> contents;
    contents.reserve(contents_.size());
    for (const auto& node : contents_) contents.push_back(node ? node->clone_node() : nullptr);
    auto copy = std::make_shared<Options>(attr_, label_, std::string(), std::move(contents));
    copy->defaults_ = defaults_;
    return copy;
}

bool Options::is_group(const Node* node) { return dynamic_cast<const Group*>(node) != nullptr; }
bool Options::is_switch(const Node* node) { return dynamic_cast<const Switch*>(node) != nullptr; }
bool Options::is_integer(const Node* node) { return dynamic_cast<const IntRange*>(node) != nullptr; }
bool Options::is_float(const Node* node) { return dynamic_cast<const FloatRange*>(node) != nullptr; }
bool Options::is_combobox(const Node* node) { return dynamic_cast<const ComboBox*>(node) != nullptr; }
bool Options::is_input(const Node* node) { return dynamic_cast<const Input*>(node) != nullptr; }

}  // namespace zerko::parameters
