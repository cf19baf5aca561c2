#pragma once
// A plain, literal form of the anchor logic and the layer search: every guess
// clones and merges whole states and every usage sorts all captures. The
// engine reaches the same results without that cost; the property tests run
// both on generated scenes and compare them step by step.
#include <algorithm>
#include <string>
#include <vector>

#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/regex.hpp"
#include "zerko/hierarchy/anchor.hpp"
#include "zerko/hierarchy/pattern.hpp"
#include "zerko/scene/virtual.hpp"

namespace zerko::reference {

using hierarchy::Anchor;
using hierarchy::Capture;
using hierarchy::Expressions;
using hierarchy::Rule;
using hierarchy::Scope;
using hierarchy::Scopes;

inline bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

inline std::string replace_all(std::string text, const std::string& from, const std::string& to) {
    std::string out;
    std::size_t pos = 0;
    while (true) {
        auto hit = text.find(from, pos);
        out.append(text, pos, hit == std::string::npos ? std::string::npos : hit - pos);
        if (hit == std::string::npos) return out;
        out += to;
        pos = hit + from.size();
    }
}

inline std::pair<std::string, std::string> split_two(const std::string& text, const std::string& sep) {
    auto at = text.find(sep);
    if (at == std::string::npos || text.find(sep, at + sep.size()) != std::string::npos) {
        throw ValueError("unpacking needs exactly two pieces");
    }
    return {text.substr(0, at), text.substr(at + sep.size())};
}

struct State {
    Expressions expressions;

    State merged(const State& other) const {
        State out;
        for (const State* s : {this, &other}) {
            for (const auto& [key, values] : s->expressions) {
                auto it = std::find_if(out.expressions.begin(), out.expressions.end(),
                                       [&](const auto& e) { return e.first == key; });
                if (it == out.expressions.end()) {
                    out.expressions.emplace_back(key, std::vector<Capture>{});
                    it = std::prev(out.expressions.end());
                }
                for (const auto& c : values) {
                    if (std::find(it->second.begin(), it->second.end(), c) == it->second.end()) it->second.push_back(c);
                }
            }
        }
        return out;
    }
};

class AnchorLogic {
public:
    State state;

    std::string replace_anchors(std::string expression, const std::string& path) const {
        for (const auto& [key, captures] : state.expressions) {
            const auto sub = Anchor::unpack_anchor(key).first;
            if (!captures.empty()) {
                for (const auto& c : Anchor::get_scope_sorted(path, captures)) {
                    if (has(expression, sub) && !c.text.empty() && Anchor::same_scope(c.path, path)) {
                        expression = replace_all(expression, sub, c.text);
                    }
                }
            }
            expression = replace_all(expression, sub, "");
        }
        return expression;
    }

    std::string apply_anchors(std::string expression) const {
        for (const auto& [key, captures] : state.expressions) {
            const auto [sub, value] = Anchor::unpack_anchor(key);
            if (has(expression, key)) {
                auto v = Anchor::merge_ends(key, Anchor::merge_begins(key, value, expression), expression);
                expression = replace_all(expression, key, v);
            }
            if (has(expression, sub)) {
                auto v = Anchor::merge_ends(sub, Anchor::merge_begins(sub, value, expression), expression);
                expression = replace_all(expression, sub, v);
            }
        }
        return expression;
    }

    void extract_anchors(const std::string& expression, const std::string& name, const std::string& path) {
        for (auto& [key, captures] : state.expressions) {
            if (!has(expression, key)) continue;
            auto [start, end] = split_two(expression, key);
            std::string rest = name;
            if (!start.empty()) {
                auto s = apply_anchors(start);
                if (s.rfind("^", 0) != 0) s = "^" + s;
                rest = regex::sub(s, "", rest);
            }
            if (!end.empty()) {
                auto e = apply_anchors(end);
                if (e.empty() || e.back() != '$') e += "$";
                rest = regex::sub(e, "", rest);
            }
            Capture c{rest, path};
            if (!rest.empty() && std::find(captures.begin(), captures.end(), c) == captures.end()) captures.push_back(c);
        }
    }

    bool match(const std::string& expression, const std::string& name, const std::string& path) {
        const auto known = replace_anchors(expression, path);
        if (!regex::match(apply_anchors(known), name)) return false;
        extract_anchors(known, name, path);
        return true;
    }
};

class Search {
public:
    explicit Search(const scene::Virtual& query) : query_(query) {}
    AnchorLogic logic;

    std::vector<std::pair<const scene::Location*, std::shared_ptr<Scope>>> layer(const scene::Paths& roots,
                                                                                const Scopes& scopes, bool exact) {
        locations_ = query_.get_locations(roots);
        guess_.clear();
        const State backup = logic.state;
        make_guess(scopes, backup);
        bool wrong = false;
        for (const auto& scope : scopes) {
            const auto* list = guessed(*scope->rule);
            if (!scope->rule->get_range().count(list ? static_cast<std::int64_t>(list->size()) : 0)) wrong = true;
        }
        if (!wrong && exact && !locations_.empty()) wrong = true;
        std::vector<std::pair<const scene::Location*, std::shared_ptr<Scope>>> out;
        if (wrong) {
            logic.state = backup;
            return out;
        }
        for (const auto& scope : scopes) {
            if (const auto* list = guessed(*scope->rule)) {
                for (const auto* l : *list) out.emplace_back(l, scope);
            }
        }
        return out;
    }

private:
    const std::vector<const scene::Location*>* guessed(const Rule& rule) const {
        for (const auto& [r, list] : guess_) {
            if (*r == rule) return &list;
        }
        return nullptr;
    }

    bool scope_match(const scene::Location& location, const Scope& scope) {
        const auto& types = scope.rule->types;
        if (!types.empty() && std::find(types.begin(), types.end(), location.type) == types.end()) return false;
        if (!logic.match(scope.rule->regex, location.name, location.path)) return false;
        return !(scope.children.empty() && !location.children.empty());
    }

    void make_guess(const Scopes& scopes, const State& backup) {
        State shared = logic.state;
        for (const auto& scope : scopes) {
            std::int64_t count = 0;
            std::vector<const scene::Location*> matched;
            for (const auto* location : locations_) {
                if (scope_match(*location, *scope)) {
                    if (count + 1 > scope->rule->range.maximum) break;
                    ++count;
                    matched.push_back(location);
                    shared = shared.merged(logic.state);
                }
            }
            if (count < scope->rule->range.minimum) {
                logic.state = backup;
                return;
            }
            bool replaced = false;
            for (auto& [r, l] : guess_) {
                if (*r == *scope->rule) { l = matched; replaced = true; }
            }
            if (!replaced) guess_.emplace_back(scope->rule.get(), matched);
            logic.state = shared;
            for (const auto* m : matched) locations_.erase(std::find(locations_.begin(), locations_.end(), m));
        }
    }

    const scene::Virtual& query_;
    std::vector<const scene::Location*> locations_;
    std::vector<std::pair<const Rule*, std::vector<const scene::Location*>>> guess_;
};

class Hierarchy {
public:
    Hierarchy(const scene::Virtual& query, const hierarchy::Pattern& pattern) : pattern_(pattern), search(query) {}

    void find_anchors() {
        Expressions e;
        auto run = [&](auto&& self, const Scopes& layer) -> void {
            for (const auto& s : layer) {
                for (const auto& d : Anchor::find(s->rule->regex)) {
                    if (std::none_of(e.begin(), e.end(), [&](const auto& x) { return x.first == d; })) e.emplace_back(d, std::vector<Capture>{});
                }
                self(self, s->children);
            }
        };
        run(run, pattern_.get());
        search.logic.state.expressions = e;
    }

    bool match(const scene::Paths& roots, const Scopes& pattern) {
        auto result = search.layer(roots, pattern, true);
        if (result.empty()) {
            return std::all_of(pattern.begin(), pattern.end(), [](const auto& s) { return s->rule->is_optional(); });
        }
        for (const auto& [location, scope] : result) {
            if (location->children.empty() && scope->children.empty()) continue;
            if (!match(location->children, scope->children)) return false;
        }
        return true;
    }

    bool is_valid(const scene::Paths& roots) {
        find_anchors();
        return match(roots, pattern_.get());
    }

    scene::Paths mask(const scene::Paths& roots) {
        find_anchors();
        scene::Paths out;
        for (const auto& [location, scope] : search.layer(roots, pattern_.get(), false)) out.push_back(location->path);
        return out;
    }

    std::vector<std::pair<scene::Paths, bool>> cut(scene::Paths scope) {
        std::vector<std::pair<scene::Paths, bool>> out;
        auto layer = mask(scope);
        while (!layer.empty()) {
            for (const auto& p : layer) scope.erase(std::find(scope.begin(), scope.end(), p));
            const bool valid = is_valid(layer);
            out.emplace_back(layer, valid);
            layer = mask(scope);
        }
        return out;
    }

private:
    const hierarchy::Pattern& pattern_;

public:
    Search search;
};

}  // namespace zerko::reference
