#include "zerko/foundation/regex_template.hpp"

#include <algorithm>
#include <cstdint>

#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/regex_translate.hpp"
#include "zerko/foundation/utf8.hpp"

namespace zerko::regex::detail {

using foundation::append_utf8;

std::vector<TemplatePart> parse_template(std::string_view repl, std::size_t groups,
                                         const std::vector<std::pair<std::string, std::size_t>>& names) {
    std::vector<TemplatePart> parts;
    std::string literal;
    auto fail = [&](std::string what, std::size_t byte) {
        raise_invalid(repl, std::move(what), foundation::utf8_length(repl, byte));
    };
    auto add_group = [&](std::uint64_t index, std::size_t at) {
        if (index > groups) fail("invalid group reference " + std::to_string(index), at);
        if (!literal.empty()) parts.push_back({std::move(literal), -1});
        literal.clear();
        parts.push_back({{}, static_cast<long>(index)});
    };
    const std::size_t n = repl.size();
    std::size_t i = 0;
    while (i < n) {
        if (repl[i] != '\\') {
            literal += repl[i++];
            continue;
        }
        if (i + 1 >= n) fail("bad escape (end of pattern)", n - 1);
        const std::size_t at = i;
        const char c = repl[i + 1];
        i += 2;
        if (c == 'g') {
            if (i >= n || repl[i] != '<') fail("missing <", i);
            ++i;
            const std::size_t name_at = i;
            std::string name;
            for (;;) {
                if (i >= n) {
                    if (name.empty()) fail("missing group name", i);
                    fail("missing >, unterminated name", name_at);
                }
                if (repl[i] == '\\') {
                    if (i + 1 >= n) fail("bad escape (end of pattern)", n - 1);
                    name.append(repl.substr(i, 2));
                    i += 2;
                    continue;
                }
                if (repl[i] == '>') {
                    if (name.empty()) fail("missing group name", i);
                    ++i;
                    break;
                }
                name += repl[i++];
            }
            std::uint64_t index = 0;
            if (is_identifier(name)) {
                const auto it = std::find_if(names.begin(), names.end(),
                                             [&](const auto& entry) { return entry.first == name; });
                if (it == names.end()) {
                    // Python raises IndexError here, without a position.
                    throw RegexError("unknown group name " + py_repr(name));
                }
                index = it->second;
            } else {
                if (!std::all_of(name.begin(), name.end(), [](char d) { return d >= '0' && d <= '9'; })) {
                    fail("bad character in group name " + py_repr(name), name_at);
                }
                for (char d : name) index = std::min<std::uint64_t>(index * 10 + (d - '0'), kMaxGroups);
                if (index >= kMaxGroups) fail("invalid group reference " + name, name_at);
            }
            add_group(index, name_at);
        } else if (c == '0') {
            unsigned value = 0;
            for (int k = 0; k < 2 && i < n && repl[i] >= '0' && repl[i] <= '7'; ++k) {
                value = value * 8 + (repl[i++] - '0');
            }
            append_utf8(literal, value & 0xFF);
        } else if (c >= '1' && c <= '9') {
            std::string digits(1, c);
            if (i < n && repl[i] >= '0' && repl[i] <= '9') {
                digits += repl[i++];
                if (c <= '7' && digits[1] <= '7' && i < n && repl[i] >= '0' && repl[i] <= '7') {
                    digits += repl[i++];
                    const unsigned value = static_cast<unsigned>(std::stoul(digits, nullptr, 8));
                    if (value > 0377) {
                        fail("octal escape value \\" + digits + " outside of range 0-0o377", at);
                    }
                    append_utf8(literal, value);
                    continue;
                }
            }
            add_group(std::stoul(digits), at + 1);
        } else {
            switch (c) {
                case 'a': literal += '\a'; break;
                case 'b': literal += '\b'; break;
                case 'f': literal += '\f'; break;
                case 'n': literal += '\n'; break;
                case 'r': literal += '\r'; break;
                case 't': literal += '\t'; break;
                case 'v': literal += '\v'; break;
                case '\\': literal += '\\'; break;
                default:
                    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')) {
                        fail(std::string("bad escape \\") + c, at);
                    }
                    // Python keeps unknown non-letter escapes as written.
                    literal += '\\';
                    literal += c;
            }
        }
    }
    if (!literal.empty()) parts.push_back({std::move(literal), -1});
    return parts;
}

}  // namespace zerko::regex::detail
