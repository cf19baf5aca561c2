#pragma once
// The pattern of a record: a forest of rule references below an invisible
// root. Nodes hold the rule objects of the record's list; the JSON form holds
// only their stamps, so a tree is read together with its rule list.
//
//   "pattern": [{"stamp": "<rule stamp>", "children": [...]}, ...]
#include <memory>
#include <string>
#include <vector>

#include "zerko/project/rule.hpp"

namespace zerko::project {

struct Rule::Tree {
    class NodeBase;
    class Node;
    class Root;
};

/// What every node has: its children, in order.
class Rule::Tree::NodeBase {
public:
    using Children = std::vector<std::shared_ptr<Node>>;

    NodeBase() = default;
    explicit NodeBase(Children children) : children(std::move(children)) {}
    virtual ~NodeBase() = default;

    Children children;

    /// The text forms of the children, joined by line feeds.
    virtual std::string text() const;
    /// Clears every child, then drops them from the end.
    void clear();
    /// Appends unless this very node is already a child.
    void append(std::shared_ptr<Node> node);
    /// Removes this very node when it is a child.
    void remove(const std::shared_ptr<Node>& node);
    /// A childless node of `rule`.
    static std::shared_ptr<Node> create_node(std::shared_ptr<Rule> rule);
};

/// One reference to a rule, with the nodes below it.
class Rule::Tree::Node : public NodeBase {
public:
    explicit Node(std::shared_ptr<Rule> rule, Children children = {})
        : NodeBase(std::move(children)), rule(std::move(rule)) {}

    std::shared_ptr<Rule> rule;

    /// The rule's name, a line feed, then the children's lines indented by two blanks.
    std::string text() const override;
};

/// The invisible root whose children are the top layer of the pattern.
class Rule::Tree::Root : public NodeBase {
public:
    bool is_empty() const noexcept { return children.empty(); }
    /// Whether a top-level node holds this very rule.
    bool is_root(const Rule& rule) const;
    /// The stamp-only JSON form, depth first.
    Document data() const;
    /// Rebuilds the tree from `data`, resolving stamps through `rules`. A node
    /// whose stamp has no rule is dropped with its whole subtree and one
    /// warning, "Incompatible Hierarchy Settings".
    void load(const Document& data, const Rule::List& rules);
};

}  // namespace zerko::project
