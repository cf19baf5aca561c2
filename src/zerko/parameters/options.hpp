#pragma once
// Parameters of an exporter: a tree of inputs and groups with one value per
// input, whose data form holds only what differs from the declared defaults.
//
// Of the inputs, only switches, integer ranges, float ranges and combo boxes
// take part in the state. A float range shows in `data` but neither `load`
// nor `reset` puts it back; the stored forms depend on that.
#include <any>
#include <memory>
#include <string>
#include <vector>

#include "zerko/parameters/input.hpp"

namespace zerko::parameters {

/// A labelled node of inputs and groups, for whoever draws the form.
class Group : public Node {
public:
    /// `visibility_switch` is kept as it is and copied to clones (hold an
    /// object by pointer to share it); the system never looks into it.
    explicit Group(std::string label = {}, std::vector<NodePtr> contents = {}, std::any visibility_switch = {})
        : label(std::move(label)), contents_(std::move(contents)), visibility_switch_(std::move(visibility_switch)) {}

    std::string label;
    const std::vector<NodePtr>& contents() const noexcept { return contents_; }
    const std::any& visibility_switch() const noexcept { return visibility_switch_; }

    /// Clones every child; the label and the same visibility switch object.
    std::shared_ptr<Group> clone() const;
    std::shared_ptr<Node> clone_node() const override { return clone(); }

private:
    std::vector<NodePtr> contents_;
    std::any visibility_switch_;
};

class Options {
public:
    /// Checks `attr_name` with the attribute-name assertion (so the empty
    /// default raises ValueError), then takes the defaults from the inputs.
    explicit Options(std::string attr_name = {}, std::string label = {}, std::string help_text = {},
                     std::vector<NodePtr> contents = {});
    virtual ~Options() = default;

    const std::string& attr() const noexcept { return attr_; }
    const std::string& label() const noexcept { return label_; }
    const std::string& help_text() const noexcept { return help_text_; }
    const std::vector<NodePtr>& contents() const noexcept { return contents_; }
    /// Every input of the tree by name; a later name replaces an earlier one.
    const NamedInputs& parameters() const noexcept { return parameters_; }
    /// The state at construction.
    const Document& defaults() const noexcept { return defaults_; }

    /// The entries of `get_state()` that differ from the defaults.
    virtual Document data() const;
    /// `reset()`, then the values of `data`.
    virtual void load(const Document& data);
    /// Back to the defaults.
    virtual void reset();
    /// Clones the top-level nodes with the same name and label (the help text
    /// is left behind) and a copy of these defaults.
    virtual std::shared_ptr<Options> clone() const;

    /// The inputs under `parent` (null: the top level), groups flattened.
    NamedInputs find_parameters(const Group* parent = nullptr) const;
    /// Name to value of every switch, integer range, float range and combo
    /// box (the name of its selected item; left out when it has no items).
    Document get_state() const;
    /// Loads switches, integer ranges and combo boxes from name to value;
    /// other inputs and unknown names are passed over.
    void apply(const Document& data);

    static bool is_group(const Node* node);
    static bool is_switch(const Node* node);
    static bool is_integer(const Node* node);
    static bool is_float(const Node* node);
    static bool is_combobox(const Node* node);
    static bool is_input(const Node* node);

private:
    std::string attr_;
    std::string label_;
    std::string help_text_;
    std::vector<NodePtr> contents_;
    NamedInputs parameters_;
    Document defaults_;
};

}  // namespace zerko::parameters
