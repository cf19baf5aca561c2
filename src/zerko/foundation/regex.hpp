#pragma once
// Regular expressions with Python `re` semantics over PCRE2.
//
// Users write rule expressions, text-input patterns and filters in Python's
// syntax; hosts compare our answers with Python's. This wrapper translates the
// Python syntax to PCRE2, compiles once (thread-safe cache, JIT), and bounds
// the work of one match so that a pathological pattern raises RegexError
// instead of hanging.
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zerko/foundation/errors.hpp"

namespace zerko::regex {

/// Flags with the meaning of Python's re flags of the same names.
enum Flags : unsigned {
    None = 0,
    IgnoreCase = 1u << 0,  ///< re.IGNORECASE
    Multiline = 1u << 1,   ///< re.MULTILINE
    DotAll = 1u << 2,      ///< re.DOTALL
    Verbose = 1u << 3,     ///< re.VERBOSE
};

/// One successful match: byte offsets into the subject it was made on.
class Match {
public:
    /// Number of groups, group 0 (the whole match) included.
    std::size_t size() const noexcept { return spans_.size(); }
    /// Whether group `index` took part in the match.
    bool has(std::size_t index) const;
    /// Text of group `index` ("" for a group that did not take part).
    std::string group(std::size_t index = 0) const;
    /// Text of the named group; throws ValueError for an unknown name.
    std::string group(std::string_view name) const;
    /// Byte span [start, end) of group `index`; (npos, npos) when it did not take part.
    std::pair<std::size_t, std::size_t> span(std::size_t index = 0) const;
    std::size_t start(std::size_t index = 0) const { return span(index).first; }
    std::size_t end(std::size_t index = 0) const { return span(index).second; }
    /// Named groups in the order of their numbers, with their texts.
    std::vector<std::pair<std::string, std::optional<std::string>>> named() const;

    // Filled by the engine.
    std::string subject_;
    std::vector<std::pair<std::size_t, std::size_t>> spans_;
    std::vector<std::pair<std::string, std::size_t>> names_;
};

class Regex;
using RegexPtr = std::shared_ptr<const Regex>;

/// A compiled expression. Immutable after compilation and shareable between
/// threads; per-call match data is thread-local inside the engine.
class Regex {
public:
    /// Compiles through the process-wide cache. Throws RegexError with a
    /// clear text (position and reason) for an invalid expression.
    static RegexPtr compile(std::string_view pattern, unsigned flags = None);

    /// The base of the work bound of one match call (PCRE2 match limit); the
    /// bound adds a share that grows with the subject and the pattern, so that
    /// work linear in the subject never trips it. A call that exceeds it
    /// throws RegexError; it never reads as "no match".
    static void set_match_limit(std::uint32_t limit);
    static std::uint32_t match_limit();

    /// Number of compiled patterns held by the cache (for tests and benchmarks).
    static std::size_t cache_size();

    /// re.match: anchored at `pos`.
    std::optional<Match> match(std::string_view subject, std::size_t pos = 0) const;
    /// re.fullmatch.
    std::optional<Match> fullmatch(std::string_view subject, std::size_t pos = 0) const;
    /// re.search from `pos`.
    std::optional<Match> search(std::string_view subject, std::size_t pos = 0) const;
    /// Cheap boolean forms of match and search that build no Match object.
    bool matches(std::string_view subject) const;
    bool found_in(std::string_view subject) const;
    /// re.sub with a Python replacement template (\1, \g<1>, \g<name>, \n ...).
    /// `count` 0 replaces all.
    std::string sub(std::string_view repl, std::string_view subject, std::size_t count = 0) const;
    /// re.split; `maxsplit` 0 splits everywhere. Groups are included as in
    /// Python; a group that did not take part yields std::nullopt.
    std::vector<std::optional<std::string>> split(std::string_view subject,
                                                  std::size_t maxsplit = 0) const;
    /// re.findall-like list of whole matches (group 0), for convenience.
    std::vector<std::string> findall(std::string_view subject) const;

    /// The pattern as the user wrote it, and its number of capturing groups.
    const std::string& pattern() const noexcept { return pattern_; }
    std::size_t groups() const noexcept { return groups_; }
    /// Names of the named groups with their numbers.
    const std::vector<std::pair<std::string, std::size_t>>& group_names() const noexcept {
        return names_;
    }

    ~Regex();
    Regex(const Regex&) = delete;
    Regex& operator=(const Regex&) = delete;

    struct Impl;

private:
    Regex() = default;
    std::string pattern_;
    std::size_t groups_ = 0;
    std::vector<std::pair<std::string, std::size_t>> names_;
    std::unique_ptr<Impl> impl_;
    friend struct Impl;
};

/// Resolves the name of a `\N{...}` escape to its character; nullopt for a
/// name it does not know.
using CharacterNames = std::function<std::optional<char32_t>(std::string_view name)>;

/// Installs the resolver of `\N{...}` names for all later compilations.
/// Python's `re` resolves them with its interpreter's Unicode database
/// (`unicodedata.lookup`: aliases, any letter case, one Unicode version). The
/// library does not carry a second copy of that database (some 35,000 names);
/// the Python face installs the interpreter's own lookup, so that a name means
/// exactly what it means to the host's `re`, and a C++ program installs the
/// table it has. With no resolver every name is undefined, and the pattern is
/// refused as Python refuses an unknown name.
void set_character_names(CharacterNames resolver);

/// Translates a Python-syntax expression to PCRE2 syntax (exposed for tests).
/// Throws RegexError for syntax that Python rejects but PCRE2 would accept.
std::string translate(std::string_view python_pattern);

// Module-level helpers in the manner of Python's re module (cached compile).
std::optional<Match> match(std::string_view pattern, std::string_view subject, unsigned flags = None);
std::optional<Match> search(std::string_view pattern, std::string_view subject, unsigned flags = None);
std::optional<Match> fullmatch(std::string_view pattern, std::string_view subject, unsigned flags = None);
std::string sub(std::string_view pattern, std::string_view repl, std::string_view subject,
                std::size_t count = 0, unsigned flags = None);
std::vector<std::optional<std::string>> split(std::string_view pattern, std::string_view subject,
                                              std::size_t maxsplit = 0, unsigned flags = None);
/// re.escape.
std::string escape(std::string_view text);

}  // namespace zerko::regex
