#include "zerko/hierarchy/pattern.hpp"

#include "zerko/check/classes.hpp"
#include "zerko/check/list.hpp"
#include "zerko/constants/constants.hpp"
#include "zerko/hierarchy/anchor.hpp"

namespace zerko::hierarchy {

std::set<std::int64_t> Rule::get_range() const {
    std::set<std::int64_t> out;
    for (auto i = range.minimum; i <= range.maximum; ++i) out.insert(out.end(), i);
    return out;
}

const std::vector<std::string>& Rule::definitions() const {
    if (!definitions_known_ || definitions_of_ != regex) {
        definitions_ = Anchor::find(regex);
        definitions_of_ = regex;
        definitions_known_ = true;
    }
    return definitions_;
}

bool Rule::is_ghost() const { return name == constants::scene::type::Ghost; }

bool Rule::admits_type(std::string_view type) const {
    if (types.empty()) return true;
    for (const auto& t : types) {
        if (t == type) return true;
    }
    return false;
}

void Pattern::set_rules(const std::vector<std::shared_ptr<Rule>>& rules) {
    rules_.clear();
    rule_order_.clear();
    for (const auto& r : rules) {
        if (!r) continue;
        rules_.insert_or_assign(r->stamp, r);
        rule_order_.push_back(r);
    }
}

void Pattern::build(const TreeNode& node, Scopes& root) {
    for (const auto& child : node.children) {
        auto scope = std::make_shared<Scope>();
        build(child, scope->children);  // children are complete before the scope is appended
        scope->rule = get_rule(child.stamp);
        root.push_back(std::move(scope));
    }
}

void Pattern::set_hierarchy(const TreeNode& tree) {
    hierarchy_.clear();  // the list itself stays
    build(tree, hierarchy_);
}

void Pattern::set(const std::vector<std::shared_ptr<Rule>>& rules, const TreeNode& tree) {
    set_rules(rules);
    set_hierarchy(tree);
    Sorter::sort(get());
}

Scopes& Pattern::get() {
    for (auto& scope : hierarchy_) {
        if (scope->rule && scope->rule->is_ghost()) return scope->children;
    }
    return hierarchy_;
}

std::shared_ptr<Scope> Pattern::get_ghost() const {
    for (const auto& scope : hierarchy_) {
        if (scope->rule && scope->rule->is_ghost()) return scope;
    }
    return nullptr;
}

std::shared_ptr<Rule> Pattern::get_rule(std::string_view stamp) const {
    const auto it = rules_.find(std::string(stamp));
    return it == rules_.end() ? nullptr : it->second;
}

std::shared_ptr<check::List> Pattern::make_checklist(std::shared_ptr<settings::Check::Config> config) const {
    static const std::vector<std::shared_ptr<check::Class>> none;
    return std::make_shared<check::List>(check_classes ? check_classes->array() : none, nullptr, std::move(config));
}

bool Pattern::is_verifiable(std::string_view stamp) const {
    const auto checklist = get_checklist(stamp);
    return checklist && !checklist->is_empty();
}

std::shared_ptr<check::List> Pattern::get_checklist(std::string_view stamp) const {
    const auto rule = get_rule(stamp);
    return rule ? rule->checklist : nullptr;
}

// ---------------------------------------------------------------- Sorter

void Sorter::sort(Scopes& pattern) {
    sort_scopes(pattern);
    for (auto& scope : pattern) sort(scope->children);
}

void Sorter::sort_scopes(Scopes& pattern) { shuffle_scopes(pattern, change_order(create_order(pattern))); }

Sorter::Order Sorter::create_order(const Scopes& pattern) {
    Order order;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        Unit unit{i, {}, {}};
        const auto& rule = pattern[i]->rule;
        for (auto& inside : Anchor::findall(rule ? rule->regex : std::string(), true)) {
            if (Anchor::has_definition(inside)) unit.definition.push_back(std::move(inside));
            else unit.usage.push_back(std::move(inside));
        }
        order.push_back(std::move(unit));
    }
    return order;
}

bool Sorter::has_dependency(const std::vector<std::string>& definition, const std::vector<std::string>& usage) {
    for (const auto& key : usage) {
        for (const auto& rule : definition) {
            if (rule.find(key) != std::string::npos) return true;
        }
    }
    return false;
}

Sorter::Order Sorter::change_order(const Order& order) {
    Order right;
    for (const auto& unit : order) {
        std::size_t index = 0;
        if (unit.plain()) {
            index = 0;
        } else if (unit.definition.empty()) {
            // In front of the first unit that is not plain.
            for (std::size_t i = 0; i < right.size() && right[i].plain(); ++i) index = i + 1;
        } else {
            for (std::size_t i = 0; i < right.size() && right[i].definition.empty(); ++i) index = i + 1;
            // The last unit that depends on this definition decides.
            for (std::size_t i = 0; i < right.size(); ++i) {
                if (has_dependency(unit.definition, right[i].usage)) index = i + 1;
            }
        }
        right.insert(right.begin() + static_cast<std::ptrdiff_t>(index), unit);
    }
    return Order(right.rbegin(), right.rend());
}

void Sorter::shuffle_scopes(Scopes& pattern, const Order& order) {
    const Scopes copy = pattern;
    for (std::size_t i = 0; i < order.size(); ++i) pattern[i] = copy[order[i].index];
}

}  // namespace zerko::hierarchy
