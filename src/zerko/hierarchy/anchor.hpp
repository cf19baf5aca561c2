#pragma once
// Anchors: one rule's expression captures a piece of an object's name
// (`<asset:[a-z]+>_grp`) and another's demands that same piece on a related
// object (`<asset>_mesh`). Anchor turns a rule expression into a plain regular
// expression for a given object, tests a name, and records what was captured
// with the path it was captured on.
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "zerko/foundation/regex.hpp"

namespace zerko::hierarchy {

/// What a definition captured on one object: the text and the object's path.
struct Capture {
    std::string text;
    std::string path;
    bool operator==(const Capture&) const = default;
};

/// Definition texts (with their brackets) and their captures, in key order.
using Expressions = std::vector<std::pair<std::string, std::vector<Capture>>>;

/// The record of all captures. Each key's captures form a set that keeps the
/// order of insertion; the search rolls captures back through a journal
/// instead of copying the whole state for every guess.
class AnchorState {
public:
    /// set_expressions, then make_hash.
    void set(const Expressions& expressions);
    /// New sets with the given keys and values; the hash is not touched.
    void set_expressions(const Expressions& structure);
    /// Recomputes the hash from the keys and their captures, whatever their
    /// order. Cheap (one step per key), so the search can refresh the hash
    /// after each guess as a full copy of the state would.
    void make_hash();
    AnchorState clone() const;
    /// Makes this state a deep copy of `other`.
    void apply(const AnchorState& other) { set(other.expressions()); }
    /// The union of both states, this one first; neither changes.
    AnchorState operator+(const AnchorState& other) const;
    std::size_t get_hash() const noexcept { return hash_; }
    bool operator==(const AnchorState& other) const noexcept { return hash_ == other.hash_; }

    Expressions expressions() const;
    const std::vector<std::string>& keys() const noexcept { return keys_; }
    const std::vector<Capture>& captures(std::size_t key) const { return sets_[key].items; }
    std::optional<std::size_t> key_index(std::string_view key) const;
    /// Adds a capture to the set of `key`; false when it was there already.
    bool add(std::size_t key, Capture capture);

    /// A point to roll back to: everything added after it can be taken back.
    std::size_t mark() const noexcept { return journal_.size(); }
    /// Takes back every capture added after `mark`.
    void rollback(std::size_t mark);
    /// Changes whenever the key list changes (not when captures are added).
    std::uint64_t key_version() const noexcept { return key_version_; }
    /// The usage text and the value of each key, unpacked once per key list.
    const std::pair<std::string, std::string>& unpacked(std::size_t key) const { return unpacked_[key]; }

private:
    // A set that keeps insertion order: the items, and their positions by
    // a hash of text and path (equal hashes are confirmed on the items).
    struct Set {
        std::vector<Capture> items;
        std::unordered_multimap<std::size_t, std::size_t> positions;
        // The sum of the items' hash codes: the same for the same items in
        // any order, and kept up to date by insert and pop_back.
        std::size_t sum = 0;
        bool contains(const Capture& c, std::size_t hash) const;
        bool insert(Capture c);
        void pop_back();
    };
    void reset_keys(std::vector<std::string> keys);

    std::vector<std::string> keys_;
    std::vector<std::pair<std::string, std::string>> unpacked_;
    std::unordered_map<std::string, std::size_t> index_;
    std::vector<Set> sets_;
    std::vector<std::size_t> journal_;  // the key of each capture added, in order
    std::size_t hash_ = 0;
    std::uint64_t key_version_ = 0;
};

/// Tests one compiled piece of an expression against a name. Expressions that
/// are plain text between an optional "^" and "$" (most names once anchors are
/// substituted) are compared directly; everything else goes to the regex engine.
class NameMatcher {
public:
    explicit NameMatcher(std::string_view expression);
    /// re.match(expression, name) is not None.
    bool match(std::string_view name) const;
    /// re.sub(expression, "", name).
    std::string remove(std::string_view name) const;

private:
    // Three forms: plain text (regex_ and rest_ null); a literal prefix
    // followed by a remainder compiled on its own (rest_), which all names
    // that differ only in the captured text share; or the whole expression.
    regex::RegexPtr regex_;
    regex::RegexPtr rest_;
    std::string expression_;  // kept for substitutions in the prefix form
    std::string literal_;
    bool start_ = false, end_ = false;
};

class Anchor {
public:
    Anchor() = default;
    Anchor(const Anchor&) = delete;
    Anchor& operator=(const Anchor&) = delete;
    Anchor(Anchor&&) = default;
    Anchor& operator=(Anchor&&) = default;

    AnchorState& state() noexcept { return state_; }
    const AnchorState& state() const noexcept { return state_; }

    // Stateless parts of the grammar.
    static std::vector<std::string> findall(std::string_view text, bool unpacked = false);
    static std::vector<std::string> find(std::string_view text);
    static bool has_definition(std::string_view text);
    /// ("<key>", value) of a definition; ValueError without exactly one colon.
    static std::pair<std::string, std::string> unpack_anchor(std::string_view expression);
    static bool same_scope(std::string_view scope, std::string_view path);
    static std::string merge_begins(std::string_view anchor, std::string_view expr_part, std::string_view expr_source);
    static std::string merge_ends(std::string_view anchor, std::string_view expr_part, std::string_view expr_source);
    /// Captures ordered best first: most leading characters shared with `path`,
    /// ties to the later capture.
    static std::vector<Capture> get_scope_sorted(std::string_view path, const std::vector<Capture>& captures);
    static std::size_t count_shared_symbols(std::string_view source, std::string_view target);

    /// Applies a rule expression to an object; records its captures on success.
    bool match(std::string_view expression, std::string_view name, std::string_view path);
    std::string replace_anchors(std::string_view expression, std::string_view path) const;
    std::string apply_anchors(std::string_view expression) const;
    void extract_anchors(std::string_view expression, std::string_view name, std::string_view path);
    bool has_anchor(std::string_view expression) const;
    bool has_sub_anchor(std::string_view expression) const;

private:
    // What an expression with its usages replaced compiles to, kept per text
    // so that the same text is never processed or compiled twice in a run.
    struct Prepared {
        NameMatcher matcher;
        struct Extraction {
            std::size_t key;
            std::optional<NameMatcher> start, end;
        };
        std::vector<Extraction> extractions;
        // Raised after the extractions before it, as a step-by-step walk would:
        // a definition that stands twice, or a piece that is no valid expression.
        std::exception_ptr extraction_error;
    };
    const Prepared& prepare(const std::string& known_replaced);
    void extract(const Prepared& prepared, std::string_view name, std::string_view path);

    AnchorState state_;
    std::unordered_map<std::string, std::unique_ptr<Prepared>> prepared_;
    std::uint64_t prepared_version_ = ~std::uint64_t{0};
};

}  // namespace zerko::hierarchy
