#pragma once
// Rules of a project record: how one kind of node of the scene hierarchy is
// named, typed, counted, checked and shown; the list of them with unique
// names; and the tree of rule references that forms the record's pattern.
//
// Rules are shared objects: the list and every tree node that refers to a
// rule hold the same instance, so an edit through one is seen by all, and a
// host that hands a rule in gets that very object back.
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "zerko/file/json.hpp"
#include "zerko/foundation/naming.hpp"
#include "zerko/settings/check.hpp"

namespace zerko::project {

using Document = file::Document;

class Rule {
public:
    /// How many times the rule's objects may occur, both ends inclusive.
    class Range {
    public:
        Range(std::int64_t minimum = 1, std::int64_t maximum = 1) : minimum(minimum), maximum(maximum) {}
        /// From a two-element JSON list of numbers; anything else raises ValueError.
        static Range from_data(const Document& data);

        std::int64_t minimum;
        std::int64_t maximum;

        /// [minimum, maximum].
        Document data() const { return Document::array({minimum, maximum}); }
        bool operator==(const Range& other) const = default;
    };
    class List;
    struct Tree;
    using CheckConfig = std::shared_ptr<settings::Check::Config>;

    /// Defaults first (a new random stamp, "name", no expression, no types,
    /// range (1, 1), "#000000", no icon), then whatever `data` holds. Keys of
    /// the wrong type keep their defaults; a `range` that is not a pair of
    /// numbers raises ValueError.
    explicit Rule(const Document& data = Document::object());

    /// The identity that rule trees store.
    const std::string& stamp() const noexcept { return stamp_; }
    void set_stamp(std::string value) { stamp_ = std::move(value); }
    /// Unique within a list, once the list has taken the rule in.
    const std::string& name() const noexcept { return name_; }
    void set_name(std::string value) { name_ = std::move(value); }
    /// Regular expression for the names of matching objects.
    const std::string& regex() const noexcept { return regex_; }
    void set_regex(std::string value) { regex_ = std::move(value); }
    /// Object types admitted, stored as given.
    const std::vector<std::string>& types() const noexcept { return types_; }
    void set_types(std::vector<std::string> value) { types_ = std::move(value); }
    /// The checks that apply to objects of this rule.
    const CheckConfig& check_config() const noexcept { return check_config_; }
    /// A null configuration is refused.
    void set_check_config(CheckConfig value);
    Range& range() noexcept { return range_; }
    const Range& range() const noexcept { return range_; }

    std::string color = "#000000";
    std::string icon;

    /// The ghost rule stands for any object that matches no other rule.
    bool is_ghost() const;

    /// {"stamp", "name", "regex", "types", "checklist", "range", "color", "icon"}.
    Document data() const;

    /// 16 hexadecimal digits of a random UUID.
    static std::string new_stamp();

private:
    std::string stamp_;
    std::string name_ = "name";
    std::string regex_;
    std::vector<std::string> types_;
    CheckConfig check_config_;
    Range range_;
};

/// The rules of one record, in order, with their names kept unique.
class Rule::List {
public:
    using Rules = std::vector<std::shared_ptr<Rule>>;

    /// A rule from each element of `array`, then the names registered. Names
    /// that repeat in the data are kept as they are.
    explicit List(const Document& array = Document::array());

    Rules::const_iterator begin() const noexcept { return array_.begin(); }
    Rules::const_iterator end() const noexcept { return array_.end(); }
    std::size_t size() const noexcept { return array_.size(); }
    const Rules& rules() const noexcept { return array_; }

    Document data() const;
    /// The names, sorted.
    std::vector<std::string> names() const;
    bool is_empty() const noexcept { return array_.empty(); }
    /// Registers the name of every rule again, in order.
    void sync_names();
    /// False when another rule object of the list has the same name.
    bool has_unique_name(const Rule& rule) const;
    /// Moves the registration from the old name to `name`, then renames.
    void rename(Rule& rule, const std::string& name);
    /// Puts the given rules first, in the given order, and the others behind
    /// them in the reverse of their former order (see the source for why).
    /// Objects not in the list are dropped; nothing given changes nothing.
    void reorder(const Rules& rules);
    /// The first rule with this stamp; null when there is none.
    std::shared_ptr<Rule> get(std::string_view stamp) const;
    /// Makes the rule's name unique and appends it. A second ghost rule is
    /// refused with Failure and changes nothing.
    bool append(std::shared_ptr<Rule> rule);
    bool has_ghost() const;
    /// Removes this very object: Success, or Failure when it is not here.
    bool remove(const std::shared_ptr<Rule>& rule);

    /// The three rules every new project starts with: "empty", "render" and the ghost.
    static std::shared_ptr<List> predefined();

private:
    Rules array_;
    foundation::NamesControl control_;
};

}  // namespace zerko::project
