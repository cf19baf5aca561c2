#include "zerko/project/rule.hpp"

#include <algorithm>
#include <cmath>
#include <unordered_map>
#include <unordered_set>

#include "zerko/constants/constants.hpp"
#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/uuid.hpp"

namespace zerko::project {

namespace {

const Document* member(const Document& data, const char* key) {
    if (!data.is_object()) return nullptr;
    const auto found = data.find(key);
    return found == data.end() ? nullptr : &*found;
}

// Text keys take only text; anything else keeps what stood before.
void assign_text(const Document& data, const char* key, std::string& target) {
    if (const auto* value = member(data, key); value && value->is_string()) target = value->get<std::string>();
}

std::int64_t range_end(const Document& value) {
    if (value.is_number_integer()) return value.get<std::int64_t>();
    if (value.is_number_float()) {
        const double v = value.get<double>();
        if (std::isfinite(v)) return static_cast<std::int64_t>(v);
    }
    throw ValueError("range ends must be numbers: " + value.dump());
}

}  // namespace

Rule::Range Rule::Range::from_data(const Document& data) {
    if (!data.is_array() || data.size() != 2) throw ValueError("range must be a pair of values: " + data.dump());
    return Range(range_end(data[0]), range_end(data[1]));
}

Rule::Rule(const Document& data) : stamp_(new_stamp()), check_config_(std::make_shared<settings::Check::Config>()) {
    assign_text(data, "stamp", stamp_);
    assign_text(data, "name", name_);
    assign_text(data, "regex", regex_);
    if (const auto* types = member(data, "types"); types && types->is_array()) {
        const bool all_text = std::all_of(types->begin(), types->end(), [](const Document& t) { return t.is_string(); });
        if (all_text) types_ = types->get<std::vector<std::string>>();
    }
    if (const auto* range = member(data, "range")) range_ = Range::from_data(*range);
    if (const auto* checklist = member(data, "checklist")) {
        check_config_ = std::make_shared<settings::Check::Config>(*checklist);
    }
    assign_text(data, "color", color);
    assign_text(data, "icon", icon);
}

std::string Rule::new_stamp() { return foundation::uuid4_hex().substr(0, 16); }

void Rule::set_check_config(CheckConfig value) {
    if (value) check_config_ = std::move(value);
}

bool Rule::is_ghost() const { return name_ == constants::scene::type::Ghost; }

Document Rule::data() const {
    Document out = Document::object();
    out["stamp"] = stamp_;
    out["name"] = name_;
    out["regex"] = regex_;
    out["types"] = types_;
    out["checklist"] = check_config_->data();
    out["range"] = range_.data();
    out["color"] = color;
    out["icon"] = icon;
    return out;
}

Rule::List::List(const Document& array) {
    if (array.is_array()) {
        for (const auto& element : array) array_.push_back(std::make_shared<Rule>(element));
    }
    sync_names();
}

Document Rule::List::data() const {
    Document out = Document::array();
    for (const auto& rule : array_) out.push_back(rule->data());
    return out;
}

std::vector<std::string> Rule::List::names() const {
    std::vector<std::string> out;
    out.reserve(array_.size());
    for (const auto& rule : array_) out.push_back(rule->name());
    std::sort(out.begin(), out.end());
    return out;
}

void Rule::List::sync_names() {
    control_.clear();
    for (const auto& rule : array_) control_.append(rule->name());
}

bool Rule::List::has_unique_name(const Rule& rule) const {
    return std::none_of(array_.begin(), array_.end(), [&](const std::shared_ptr<Rule>& other) {
        return other.get() != &rule && other->name() == rule.name();
    });
}

void Rule::List::rename(Rule& rule, const std::string& name) {
    control_.rename(rule.name(), name);
    rule.set_name(name);
}

void Rule::List::reorder(const Rules& rules) {
    Rules given;
    for (const auto& rule : rules) {
        if (rule) given.push_back(rule);
    }
    if (given.empty()) return;

    // The list is taken apart from its end, so the rules that the caller
    // does not name come back in the reverse of their former order. Editors
    // that share project files rely on the resulting order, so it stays.
    std::unordered_map<std::string, std::shared_ptr<Rule>> table;
    std::unordered_map<std::string, std::size_t> order;
    std::size_t index = 0;
    while (!array_.empty()) {
        auto rule = std::move(array_.back());
        array_.pop_back();
        order[rule->stamp()] = index++;
        table[rule->stamp()] = std::move(rule);
    }

    std::unordered_set<std::string> used;
    for (const auto& rule : given) {
        if (table.contains(rule->stamp())) {
            array_.push_back(rule);
            used.insert(rule->stamp());
        }
    }
    std::vector<std::string> remaining;
    for (const auto& [stamp, rule] : table) {
        if (!used.contains(stamp)) remaining.push_back(stamp);
    }
    std::sort(remaining.begin(), remaining.end(),
              [&](const std::string& a, const std::string& b) { return order[a] < order[b]; });
    for (const auto& stamp : remaining) array_.push_back(table[stamp]);
}

std::shared_ptr<Rule> Rule::List::get(std::string_view stamp) const {
    for (const auto& rule : array_) {
        if (rule->stamp() == stamp) return rule;
    }
    return nullptr;
}

bool Rule::List::append(std::shared_ptr<Rule> rule) {
    if (!rule) return constants::plugin::status::Failure;
    if (rule->is_ghost() && has_ghost()) return constants::plugin::status::Failure;
    rule->set_name(control_.get_init(rule->name()));
    control_.append(rule->name());
    array_.push_back(std::move(rule));
    return constants::plugin::status::Success;
}

bool Rule::List::has_ghost() const {
    return std::any_of(array_.begin(), array_.end(), [](const std::shared_ptr<Rule>& r) { return r->is_ghost(); });
}

bool Rule::List::remove(const std::shared_ptr<Rule>& rule) {
    const auto found = std::find(array_.begin(), array_.end(), rule);
    if (!rule || found == array_.end()) return constants::plugin::status::Failure;
    control_.remove(rule->name());
    array_.erase(found);
    return constants::plugin::status::Success;
}

std::shared_ptr<Rule::List> Rule::List::predefined() {
    namespace type = constants::scene::type;
    const auto definition = [](std::string_view name, std::string_view regex, Document types, Document range,
                               std::string_view color, std::string_view icon) {
        Document out = Document::object();
        out["name"] = std::string(name);
        out["regex"] = std::string(regex);
        out["types"] = std::move(types);
        out["checklist"] = Document::object();
        out["range"] = std::move(range);
        out["color"] = std::string(color);
        out["icon"] = std::string(icon);
        return out;
    };
    Document array = Document::array();
    array.push_back(definition("empty", ".+", Document::array(), {1, 1}, "#000000", "Something"));
    array.push_back(definition("render", ".+", Document::array({std::string(type::Mesh)}), {1, 1}, "#4390ea", "Render"));
    array.push_back(definition(type::Ghost, "", Document::array(), {0, 99}, "#262626", "Ghost"));
    return std::make_shared<List>(array);
}

}  // namespace zerko::project
