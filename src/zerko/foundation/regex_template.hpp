#pragma once
// Replacement templates of re.sub ("\1", "\g<1>", "\g<name>", "\n" ...),
// parsed once per call into literal text and group references.
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zerko::regex::detail {

/// One piece of a parsed template: literal text, or the text of a group.
struct TemplatePart {
    std::string literal;
    long group = -1;  ///< >= 0: the text of this group
};

/// Python's parse_template over a UTF-8 replacement string, for a pattern of
/// `groups` capturing groups with the given names. Throws RegexError with
/// Python's message and position (in `repl`) for a bad template.
std::vector<TemplatePart> parse_template(std::string_view repl, std::size_t groups,
                                         const std::vector<std::pair<std::string, std::size_t>>& names);

}  // namespace zerko::regex::detail
