#pragma once
// The in-memory form of a project's hierarchy pattern: rules joined into a
// tree of scopes, with the ghost rule that describes the surroundings of an
// asset's roots, and the sorter that puts anchor definitions before their uses.
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "zerko/settings/check.hpp"

namespace zerko::check {
class Classes;
class List;
}  // namespace zerko::check
namespace zerko::project {
class Record;
class Rule;
}


namespace zerko::hierarchy {

/// How many objects of one layer may match a rule; both ends inclusive.
struct Range {
    std::int64_t minimum = 0;
    std::int64_t maximum = 0;
    bool operator==(const Range&) const = default;
};

/// One item of the pattern, copied from a project's rule record.
struct Rule {
    Rule() = default;
    Rule(const Rule& other)
        : stamp(other.stamp), name(other.name), icon(other.icon), color(other.color), regex(other.regex),
          types(other.types), range(other.range), checklist(other.checklist) {}

    std::string stamp;
    std::string name;
    std::string icon;
    std::string color;
    std::string regex;
    std::vector<std::string> types;  ///< admitted object types; empty admits all
    Range range;
    std::shared_ptr<check::List> checklist;  ///< checks configured for objects of this rule

    /// Equal on stamp, name, regex, types and range; icon, color and checklist are ignored.
    bool operator==(const Rule& other) const {
        return stamp == other.stamp && name == other.name && regex == other.regex && types == other.types &&
               range == other.range;
    }
    /// Every integer from minimum to maximum.
    std::set<std::int64_t> get_range() const;
    /// Whether a count lies in the range, without building it.
    bool admits(std::int64_t count) const { return range.minimum <= count && count <= range.maximum; }
    bool is_optional() const { return admits(0); }
    bool is_ghost() const;
    bool admits_type(std::string_view type) const;
    /// The anchor definitions of `regex`, worked out once per expression text.
    const std::vector<std::string>& definitions() const;

private:
    mutable std::string definitions_of_;
    mutable std::vector<std::string> definitions_;
    mutable bool definitions_known_ = false;
};

/// A rule and the pattern of the layer below it.
struct Scope {
    std::shared_ptr<Rule> rule;  ///< null when the tree names a stamp that has no rule
    std::vector<std::shared_ptr<Scope>> children;
};

using Scopes = std::vector<std::shared_ptr<Scope>>;

/// A node of a project's rule tree: a rule stamp and the nodes below it.
struct TreeNode {
    std::string stamp;
    std::vector<TreeNode> children;
};

class Pattern {
public:
    explicit Pattern(std::shared_ptr<check::Classes> check_classes = nullptr)
        : check_classes(std::move(check_classes)) {}

    /// The class collection handed to every checklist the pattern makes.
    std::shared_ptr<check::Classes> check_classes;

    /// A new checklist of every check class, bound to `config` (a rule's
    /// check configuration); without a config the checklist stays unbound.
    std::shared_ptr<check::List> make_checklist(std::shared_ptr<settings::Check::Config> config) const;
    /// Replaces the rules by `rules`, keyed by stamp (a later rule replaces an earlier one of the same stamp).
    void set_rules(const std::vector<std::shared_ptr<Rule>>& rules);
    /// Rebuilds the tree from `tree`'s children; the top list keeps its identity.
    void set_hierarchy(const TreeNode& tree);
    /// set_rules, set_hierarchy, then sorts the effective top layer and everything below it.
    void set(const std::vector<std::shared_ptr<Rule>>& rules, const TreeNode& tree);
    /// The same from a project record: every rule is copied with a new
    /// checklist loaded from the rule's check configuration.
    void set(const project::Record& record);
    /// A project rule's matching fields, without a checklist.
    static Rule copy_rule(const project::Rule& source);

    /// The effective top layer: the ghost's children, or the whole top layer without a ghost.
    Scopes& get();
    const Scopes& get() const { return const_cast<Pattern*>(this)->get(); }
    /// The first top-layer scope whose rule is named "ghost", or null.
    std::shared_ptr<Scope> get_ghost() const;
    bool has_ghost() const { return get_ghost() != nullptr; }
    /// The checklist of the rule with that stamp; null for an unknown stamp.
    std::shared_ptr<check::List> get_checklist(std::string_view stamp) const;
    std::shared_ptr<Rule> get_rule(std::string_view stamp) const;
    /// A known stamp whose checklist has an enabled check.
    bool is_verifiable(std::string_view stamp) const;

    const Scopes& hierarchy() const noexcept { return hierarchy_; }
    Scopes& hierarchy() noexcept { return hierarchy_; }
    const std::vector<std::shared_ptr<Rule>>& rules() const noexcept { return rule_order_; }

private:
    void build(const TreeNode& node, Scopes& root);

    std::unordered_map<std::string, std::shared_ptr<Rule>> rules_;
    std::vector<std::shared_ptr<Rule>> rule_order_;
    Scopes hierarchy_;
};

/// Reorders each layer so that a scope defining an anchor comes before the
/// scopes that use it; scopes without anchors keep their relative order last.
class Sorter {
public:
    struct Unit {
        std::size_t index = 0;
        std::vector<std::string> definition;
        std::vector<std::string> usage;
        bool plain() const { return definition.empty() && usage.empty(); }
    };
    using Order = std::vector<Unit>;

    static void sort(Scopes& pattern);
    static void sort_scopes(Scopes& pattern);
    static Order create_order(const Scopes& pattern);
    static Order change_order(const Order& order);
    static bool has_dependency(const std::vector<std::string>& definition, const std::vector<std::string>& usage);
    static void shuffle_scopes(Scopes& pattern, const Order& order);
};

}  // namespace zerko::hierarchy
