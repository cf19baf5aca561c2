#include "zerko/hierarchy/anchor.hpp"

#include <algorithm>
#include <array>
#include <functional>

#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/naming.hpp"
#include "zerko/foundation/utf8.hpp"

namespace zerko::hierarchy {

using foundation::replace_all;

namespace {

bool contains(std::string_view text, std::string_view part) { return text.find(part) != std::string_view::npos; }

/// The two pieces around the one occurrence of `sep`, as an unpacking split
/// demands: any other number of pieces is a value error.
std::pair<std::string_view, std::string_view> split_two(std::string_view text, std::string_view sep) {
    const auto at = text.find(sep);
    if (at == std::string_view::npos) throw ValueError("not enough values to unpack (expected 2, got 1)");
    if (text.find(sep, at + sep.size()) != std::string_view::npos) {
        throw ValueError("too many values to unpack (expected 2)");
    }
    return {text.substr(0, at), text.substr(at + sep.size())};
}

std::size_t capture_hash(const Capture& c) {
    const std::hash<std::string> h;
    return h(c.text) * 1000003u ^ h(c.path);
}

// Mixes the bits of a capture's hash code before it is summed: std::hash of
// a string may be weak in its low bits, and a sum of weak codes collides
// more easily than the codes themselves.
std::size_t spread(std::size_t h) {
    std::uint64_t x = h;
    x ^= x >> 30;
    x *= 0xbf58476d1ce4e5b9ull;
    x ^= x >> 27;
    x *= 0x94d049bb133111ebull;
    x ^= x >> 31;
    return static_cast<std::size_t>(x);
}

bool is_metachar(char c) {
    switch (c) {
        case '.': case '^': case '$': case '*': case '+': case '?': case '{': case '}':
        case '[': case ']': case '\\': case '|': case '(': case ')': case '\n': case '#': case ' ':
            return true;
        default:
            return false;
    }
}

}  // namespace

// ---------------------------------------------------------------- AnchorState

bool AnchorState::Set::contains(const Capture& c, std::size_t hash) const {
    const auto [b, e] = positions.equal_range(hash);
    return std::any_of(b, e, [&](const auto& p) { return items[p.second] == c; });
}

bool AnchorState::Set::insert(Capture c) {
    const auto hash = capture_hash(c);
    if (contains(c, hash)) return false;
    positions.emplace(hash, items.size());
    items.push_back(std::move(c));
    sum += spread(hash);
    return true;
}

void AnchorState::Set::pop_back() {
    const auto hash = capture_hash(items.back());
    const auto [b, e] = positions.equal_range(hash);
    for (auto it = b; it != e; ++it) {
        if (it->second == items.size() - 1) {
            positions.erase(it);
            break;
        }
    }
    items.pop_back();
    sum -= spread(hash);
}

void AnchorState::reset_keys(std::vector<std::string> keys) {
    if (keys != keys_) {
        keys_ = std::move(keys);
        index_.clear();
        unpacked_.clear();
        for (std::size_t i = 0; i < keys_.size(); ++i) {
            index_.emplace(keys_[i], i);
            // A key that is no definition cannot be unpacked; it keeps an
            // empty usage so that nothing is ever replaced for it.
            try {
                unpacked_.push_back(Anchor::unpack_anchor(keys_[i]));
            } catch (const ValueError&) {
                unpacked_.emplace_back();
            }
        }
        ++key_version_;
    }
    sets_.assign(keys_.size(), Set{});
    journal_.clear();
}

void AnchorState::set_expressions(const Expressions& structure) {
    std::vector<std::string> keys;
    std::unordered_map<std::string, std::size_t> seen;
    for (const auto& [key, values] : structure) {
        if (seen.emplace(key, keys.size()).second) keys.push_back(key);
    }
    reset_keys(std::move(keys));
    for (const auto& [key, values] : structure) {
        auto& set = sets_[index_.at(key)];
        set = Set{};
        for (const auto& c : values) {
            set.insert(c);
        }
    }
}

void AnchorState::set(const Expressions& expressions) {
    set_expressions(expressions);
    make_hash();
}

void AnchorState::make_hash() {
    std::size_t h = 0x9e3779b97f4a7c15ull;
    auto mix = [&h](std::size_t v) { h ^= v + 0x9e3779b97f4a7c15ull + (h << 6) + (h >> 2); };
    const std::hash<std::string> hs;
    for (std::size_t k = 0; k < keys_.size(); ++k) {
        mix(hs(keys_[k]));
        mix(sets_[k].sum);
        mix(sets_[k].items.size());
    }
    hash_ = h;
}

AnchorState AnchorState::clone() const {
    AnchorState out;
    out.set(expressions());
    return out;
}

AnchorState AnchorState::operator+(const AnchorState& other) const {
    Expressions merged = expressions();
    for (const auto& [key, values] : other.expressions()) {
        auto it = std::find_if(merged.begin(), merged.end(), [&](const auto& e) { return e.first == key; });
        if (it == merged.end()) {
            merged.emplace_back(key, values);
        } else {
            it->second.insert(it->second.end(), values.begin(), values.end());
        }
    }
    AnchorState out;
    out.set(merged);  // duplicates fall away in the sets
    return out;
}

Expressions AnchorState::expressions() const {
    Expressions out;
    out.reserve(keys_.size());
    for (std::size_t k = 0; k < keys_.size(); ++k) out.emplace_back(keys_[k], sets_[k].items);
    return out;
}

std::optional<std::size_t> AnchorState::key_index(std::string_view key) const {
    const auto it = index_.find(std::string(key));
    return it == index_.end() ? std::nullopt : std::optional<std::size_t>(it->second);
}

bool AnchorState::add(std::size_t key, Capture capture) {
    if (!sets_.at(key).insert(std::move(capture))) return false;
    journal_.push_back(key);
    return true;
}

void AnchorState::rollback(std::size_t mark) {
    // Captures are appended, so the ones to take back are the last of their sets.
    while (journal_.size() > mark) {
        sets_[journal_.back()].pop_back();
        journal_.pop_back();
    }
}

// ---------------------------------------------------------------- NameMatcher

namespace {

bool is_quantifier(char c) { return c == '*' || c == '+' || c == '?' || c == '{'; }

// Whether `rest` may be matched on its own at the end of a literal prefix
// with the same result as the whole expression: no alternation (which would
// split the whole expression) and no inline flags (which Python accepts only
// at the very start).
bool separable(std::string_view rest) {
    if (rest.find('|') != std::string_view::npos) return false;
    for (auto at = rest.find("(?"); at != std::string_view::npos; at = rest.find("(?", at + 2)) {
        const char next = at + 2 < rest.size() ? rest[at + 2] : '\0';
        if (next != ':' && next != '=' && next != '!' && next != '<' && next != 'P') return false;
    }
    return true;
}

}  // namespace

NameMatcher::NameMatcher(std::string_view expression) {
    std::string_view body = expression;
    const bool start = !body.empty() && body.front() == '^';
    if (start) body.remove_prefix(1);
    const bool end = !body.empty() && body.back() == '$' && (body.size() < 2 || body[body.size() - 2] != '\\');
    const std::string_view middle = end ? body.substr(0, body.size() - 1) : body;
    if (std::none_of(middle.begin(), middle.end(), is_metachar)) {
        literal_ = std::string(middle);
        start_ = start;
        end_ = end;
        return;
    }
    // The literal prefix stops at the first special character, and before the
    // whole character (all its UTF-8 bytes) that a quantifier follows.
    std::size_t n = 0;
    while (n < body.size() && !is_metachar(body[n])) ++n;
    if (n < body.size() && is_quantifier(body[n]) && n > 0) n = foundation::utf8_char_start(body, n - 1);
    const std::string_view rest = body.substr(n);
    if (n > 0 && separable(rest)) {
        expression_ = std::string(expression);
        literal_ = std::string(body.substr(0, n));
        start_ = start;
        try {
            rest_ = regex::Regex::compile(rest);
        } catch (const RegexError&) {
            // Report the fault in the user's whole expression, at its position there.
            regex::Regex::compile(expression);
            throw;
        }
    } else {
        regex_ = regex::Regex::compile(expression);
    }
}

bool NameMatcher::match(std::string_view name) const {
    if (regex_) return regex_->matches(name);
    if (name.substr(0, literal_.size()) != literal_) return false;
    if (rest_) return rest_->match(name, literal_.size()).has_value();
    if (!end_) return true;
    const auto rest = name.substr(literal_.size());
    return rest.empty() || rest == "\n";  // `$` also matches before a final line feed
}

std::string NameMatcher::remove(std::string_view name) const {
    if (regex_) return regex_->sub("", name);
    if (rest_) {
        // Without "^" a substitution searches the whole name: the whole expression is needed.
        if (!start_) return regex::Regex::compile(expression_)->sub("", name);
        if (name.substr(0, literal_.size()) != literal_) return std::string(name);
        const auto m = rest_->match(name, literal_.size());
        return m ? std::string(name.substr(m->end())) : std::string(name);
    }
    if (literal_.empty()) return std::string(name);  // only empty matches: nothing changes
    if (start_ && end_) {
        if (name == literal_) return {};
        if (name.size() == literal_.size() + 1 && name.back() == '\n' && name.substr(0, literal_.size()) == literal_) {
            return "\n";
        }
        return std::string(name);
    }
    if (start_) {
        return name.substr(0, literal_.size()) == literal_ ? std::string(name.substr(literal_.size())) : std::string(name);
    }
    if (end_) {
        const bool newline = !name.empty() && name.back() == '\n';
        const auto body = newline ? name.substr(0, name.size() - 1) : name;
        if (body.size() >= literal_.size() && body.substr(body.size() - literal_.size()) == literal_) {
            return std::string(body.substr(0, body.size() - literal_.size())) + (newline ? "\n" : "");
        }
        return std::string(name);
    }
    return replace_all(name, literal_, "");
}

// ---------------------------------------------------------------- grammar

std::vector<std::string> Anchor::findall(std::string_view text, bool unpacked) {
    // "<.*?>": the nearest ">" that no line feed separates from the "<".
    std::vector<std::string> out;
    std::size_t i = 0;
    while (i < text.size()) {
        const auto open = text.find('<', i);
        if (open == std::string_view::npos) break;
        const auto close = text.find_first_of(">\n", open + 1);
        if (close == std::string_view::npos) break;
        if (text[close] == '\n') {
            i = open + 1;
            continue;
        }
        out.emplace_back(unpacked ? text.substr(open + 1, close - open - 1) : text.substr(open, close - open + 1));
        i = close + 1;
    }
    return out;
}

std::vector<std::string> Anchor::find(std::string_view text) {
    auto all = findall(text);
    std::erase_if(all, [](const std::string& a) { return !has_definition(a); });
    return all;
}

bool Anchor::has_definition(std::string_view text) { return std::count(text.begin(), text.end(), ':') == 1; }

std::pair<std::string, std::string> Anchor::unpack_anchor(std::string_view expression) {
    std::string stripped;
    for (char c : expression) {
        if (c != '<' && c != '>') stripped.push_back(c);
    }
    const auto [key, value] = split_two(stripped, ":");
    return {"<" + std::string(key) + ">", std::string(value)};
}

namespace {

bool is_separator(char c) { return c == '\\' || c == '|' || c == '/'; }

// A path's parent: the path without its last component, where any of "\\",
// "|" and "/" separates components and empty components do not count.
std::string_view parent_part(std::string_view path) {
    std::size_t end = path.size();
    while (end > 0 && is_separator(path[end - 1])) --end;  // trailing separators
    while (end > 0 && !is_separator(path[end - 1])) --end;  // the object's own name
    return path.substr(0, end);
}

// The next non-empty component of `p` from `pos`; empty at the end.
std::string_view next_component(std::string_view p, std::size_t& pos) {
    while (pos < p.size() && is_separator(p[pos])) ++pos;
    const std::size_t start = pos;
    while (pos < p.size() && !is_separator(p[pos])) ++pos;
    return p.substr(start, pos - start);
}

// Whether the parent components of `scope` lead those of `path`.
bool within(std::string_view scope, std::string_view path) {
    const auto s = parent_part(scope), p = parent_part(path);
    std::size_t i = 0, j = 0;
    while (true) {
        const auto a = next_component(s, i);
        if (a.empty()) return true;
        if (a != next_component(p, j)) return false;
    }
}

}  // namespace

bool Anchor::same_scope(std::string_view scope, std::string_view path) { return within(scope, path); }

std::string Anchor::merge_begins(std::string_view anchor, std::string_view expr_part, std::string_view expr_source) {
    if (!expr_part.empty() && expr_part.back() == '$') {
        const auto [left, right] = split_two(expr_source, anchor);
        if (!right.empty()) return std::string(expr_part.substr(0, expr_part.size() - 1));
    }
    return std::string(expr_part);
}

std::string Anchor::merge_ends(std::string_view anchor, std::string_view expr_part, std::string_view expr_source) {
    if (!expr_part.empty() && expr_part.front() == '^') {
        const auto [left, right] = split_two(expr_source, anchor);
        if (!left.empty()) return std::string(expr_part.substr(1));
    }
    return std::string(expr_part);
}

std::size_t Anchor::count_shared_symbols(std::string_view source, std::string_view target) {
    std::size_t bytes = 0;
    while (bytes < source.size() && bytes < target.size() && source[bytes] == target[bytes]) ++bytes;
    // Count characters, not bytes: back off to the start of a character
    // that differs in a later byte.
    using foundation::is_utf8_continuation;
    while (bytes > 0 && ((bytes < source.size() && is_utf8_continuation(source[bytes])) ||
                         (bytes < target.size() && is_utf8_continuation(target[bytes])))) {
        --bytes;
    }
    return foundation::utf8_length(source, bytes);
}

std::vector<Capture> Anchor::get_scope_sorted(std::string_view path, const std::vector<Capture>& captures) {
    std::vector<std::pair<std::size_t, const Capture*>> ranked;
    ranked.reserve(captures.size());
    for (const auto& c : captures) ranked.emplace_back(count_shared_symbols(path, c.path), &c);
    std::stable_sort(ranked.begin(), ranked.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<Capture> out;
    out.reserve(ranked.size());
    for (auto it = ranked.rbegin(); it != ranked.rend(); ++it) out.push_back(*it->second);
    return out;
}

// ---------------------------------------------------------------- on the state

std::string Anchor::replace_anchors(std::string_view expression, std::string_view path) const {
    std::string text(expression);
    if (expression.find('<') == std::string_view::npos) return text;  // no usage can stand in it
    for (std::size_t k = 0; k < state_.keys().size(); ++k) {
        const auto& sub_anchor = state_.unpacked(k).first;
        if (sub_anchor.empty() || !contains(text, sub_anchor)) continue;  // nothing to replace or remove
        const auto& captures = state_.captures(k);
        if (!captures.empty()) {
            // The best capture in scope: most leading characters in common
            // with the path, the later one on a tie.
            const Capture* best = nullptr;
            std::size_t best_count = 0;
            for (const auto& c : captures) {
                if (c.text.empty() || !within(c.path, path)) continue;
                const auto n = count_shared_symbols(path, c.path);
                if (!best || n >= best_count) {
                    best = &c;
                    best_count = n;
                }
            }
            if (best) {
                std::string replaced = replace_all(text, sub_anchor, best->text);
                if (contains(replaced, sub_anchor)) {
                    // A capture that holds the usage itself: walk every
                    // candidate in order, as the replacement may repeat.
                    for (const auto& c : get_scope_sorted(path, captures)) {
                        if (contains(text, sub_anchor) && !c.text.empty() && same_scope(c.path, path)) {
                            text = replace_all(text, sub_anchor, c.text);
                        }
                    }
                } else {
                    text = std::move(replaced);
                }
            }
        }
        // A usage without a capture in scope simply vanishes.
        if (contains(text, sub_anchor)) text = replace_all(text, sub_anchor, "");
    }
    return text;
}

std::string Anchor::apply_anchors(std::string_view expression) const {
    std::string text(expression);
    for (std::size_t k = 0; k < state_.keys().size(); ++k) {
        const auto& anchor = state_.keys()[k];
        const auto& [sub_anchor, value] = state_.unpacked(k);
        if (sub_anchor.empty()) {
            unpack_anchor(anchor);  // a key that is no definition fails as it would on unpacking
        }
        if (contains(text, anchor)) {
            auto part = merge_begins(anchor, value, text);
            part = merge_ends(anchor, part, text);
            text = replace_all(text, anchor, part);
        }
        if (contains(text, sub_anchor)) {
            auto part = merge_begins(sub_anchor, value, text);
            part = merge_ends(sub_anchor, part, text);
            text = replace_all(text, sub_anchor, part);
        }
    }
    return text;
}

bool Anchor::has_anchor(std::string_view expression) const {
    return std::any_of(state_.keys().begin(), state_.keys().end(),
                       [&](const std::string& k) { return contains(expression, k); });
}

bool Anchor::has_sub_anchor(std::string_view expression) const {
    for (std::size_t k = 0; k < state_.keys().size(); ++k) {
        if (contains(expression, unpack_anchor(state_.keys()[k]).first)) return true;
    }
    return false;
}

const Anchor::Prepared& Anchor::prepare(const std::string& known_replaced) {
    // Texts repeat within one hierarchy (siblings share their substitutions);
    // a small table keeps that reuse without holding every asset of a scene.
    if (prepared_version_ != state_.key_version() || prepared_.size() > 1024) {
        prepared_.clear();
        prepared_version_ = state_.key_version();
    }
    if (auto it = prepared_.find(known_replaced); it != prepared_.end()) return *it->second;
    auto p = std::make_unique<Prepared>(Prepared{NameMatcher(apply_anchors(known_replaced)), {}, nullptr});
    try {
        for (std::size_t k = 0; k < state_.keys().size(); ++k) {
            const auto& anchor = state_.keys()[k];
            if (!contains(known_replaced, anchor)) continue;
            const auto [start, end] = split_two(known_replaced, anchor);
            Prepared::Extraction e{k, std::nullopt, std::nullopt};
            if (!start.empty()) {
                auto s = apply_anchors(start);
                if (s.empty() || s.front() != '^') s.insert(s.begin(), '^');
                e.start.emplace(s);
            }
            if (!end.empty()) {
                auto s = apply_anchors(end);
                if (s.empty() || s.back() != '$') s.push_back('$');
                e.end.emplace(s);
            }
            p->extractions.push_back(std::move(e));
        }
    } catch (const ValueError&) {
        p->extraction_error = std::current_exception();
    }
    return *prepared_.emplace(known_replaced, std::move(p)).first->second;
}

void Anchor::extract(const Prepared& prepared, std::string_view name, std::string_view path) {
    for (const auto& e : prepared.extractions) {
        std::string rest(name);
        if (e.start) rest = e.start->remove(rest);
        if (e.end) rest = e.end->remove(rest);
        if (!rest.empty()) state_.add(e.key, Capture{std::move(rest), std::string(path)});
    }
    if (prepared.extraction_error) std::rethrow_exception(prepared.extraction_error);
}

void Anchor::extract_anchors(std::string_view expression, std::string_view name, std::string_view path) {
    extract(prepare(std::string(expression)), name, path);
}

bool Anchor::match(std::string_view expression, std::string_view name, std::string_view path) {
    const std::string known_replaced = replace_anchors(expression, path);
    const Prepared& prepared = prepare(known_replaced);
    if (!prepared.matcher.match(name)) return false;
    extract(prepared, name, path);
    return true;
}

}  // namespace zerko::hierarchy
