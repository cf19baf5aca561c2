// Compiling a project record into the pattern: the one place where the
// matching engine reads the project's own types.
#include "zerko/hierarchy/pattern.hpp"
#include "zerko/project/record.hpp"
#include "zerko/project/tree.hpp"

namespace zerko::hierarchy {

namespace {

TreeNode tree_of(const project::Rule::Tree::NodeBase& node, const std::string& stamp) {
    TreeNode out{stamp, {}};
    out.children.reserve(node.children.size());
    for (const auto& child : node.children) {
        out.children.push_back(tree_of(*child, child->rule ? child->rule->stamp() : std::string()));
    }
    return out;
}

}  // namespace

Rule Pattern::copy_rule(const project::Rule& source) {
    Rule rule;
    rule.stamp = source.stamp();
    rule.name = source.name();
    rule.icon = source.icon;
    rule.color = source.color;
    rule.regex = source.regex();
    rule.types = source.types();
    rule.range = Range{source.range().minimum, source.range().maximum};
    return rule;
}

void Pattern::set(const project::Record& record) {
    std::vector<std::shared_ptr<Rule>> rules;
    if (record.rules) {
        for (const auto& source : *record.rules) {
            auto rule = std::make_shared<Rule>(copy_rule(*source));
            rule->checklist = make_checklist(source->check_config());
            rules.push_back(std::move(rule));
        }
    }
    set(rules, record.pattern ? tree_of(*record.pattern, {}) : TreeNode{});
}

}  // namespace zerko::hierarchy
