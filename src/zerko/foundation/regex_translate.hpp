#pragma once
// Python `re` syntax to PCRE2 syntax. The translator parses a pattern by the
// same recursive descent as Python's own parser, so that it accepts and
// rejects what Python does (with Python's messages and positions), and emits
// PCRE2 constructs whose meaning agrees with Python's.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zerko::regex::detail {

// Python's MAXGROUPS on 64-bit builds.
inline constexpr std::uint64_t kMaxGroups = 1073741823;

/// A translated pattern.
struct Translation {
    std::string pattern;                                     ///< PCRE2 syntax
    std::vector<std::uint32_t> source;                       ///< user position (characters) of each output byte
    std::size_t groups = 0;                                  ///< capturing groups
    std::vector<std::pair<std::string, std::size_t>> names;  ///< named groups by number
};

/// Translates `pattern`; `verbose` and `ignorecase` are the flags given from
/// outside the pattern. Throws RegexError as Python's re.error would read.
Translation translate(std::string_view pattern, bool verbose, bool ignorecase);

/// Python's str.isidentifier() of UTF-8 text (group names).
bool is_identifier(std::string_view utf8);

/// Python's repr() of a str, for the names quoted in messages.
std::string py_repr(std::string_view text);

/// Throws the RegexError of `pattern` with `message` at character `position`
/// (RegexError::npos when the place is unknown).
[[noreturn]] void raise_invalid(std::string_view pattern, std::string message, std::size_t position);

}  // namespace zerko::regex::detail
