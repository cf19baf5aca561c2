#pragma once
// The text layer: template filling, the static name
// filters of `_Naming` and the unique-name registry `_NamesControl`.
//
// Strings are UTF-8 `std::string` everywhere; the filters decode explicitly so
// that Latin and Cyrillic names are judged per code point, not per byte.
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <variant>
#include <vector>

#include "zerko/foundation/utf8.hpp"

namespace zerko::foundation {

/// The one text encoding of the system.
inline constexpr std::string_view ENCODING = "utf-8";

/// `text` with every non-overlapping occurrence of `from` replaced by `to`,
/// scanning from the left (an empty `from` changes nothing).
std::string replace_all(std::string_view text, std::string_view from, std::string_view to);

/// One argument of `format`: text, an integer or a real number.
using FormatArg = std::variant<std::string, std::int64_t, double>;

/// Fills the positional placeholders of `templ` from `args` in order, as
/// Python's str.format does for the forms used by the system: "{}", "{:02d}"
/// (any zero-padded width), "{{" and "}}". Throws ValueError for too few
/// arguments or a non-integer given to an integer field.
std::string format(std::string_view templ, std::span<const FormatArg> args);
inline std::string format(std::string_view templ, std::initializer_list<FormatArg> args) {
    return format(templ, std::span<const FormatArg>(args.begin(), args.size()));
}

/// Stateless name rules and filters.
class Naming {
public:
    using Range = std::pair<char32_t, char32_t>;

    /// Matches "^[A-Za-z_0-9]+$" (whose `$` also accepts one final line feed)
    /// and does not start with a digit.
    static bool is_attribute(std::string_view name);
    /// Matches "^__.+": two underscores and at least one more character that
    /// is not a line feed.
    static bool is_private(std::string_view name);
    /// Transliterates a Latin or Russian display name to an identifier.
    static std::string force_ascii(std::string_view name, bool title = false);
    static std::string latin_filter(std::string_view text);
    static std::string en_ru_filter(std::string_view text);
    /// The characters of `text` whose code point lies in one of `ranges`.
    static std::string char_filter(std::string_view text, std::span<const Range> ranges);
    /// `text` without leading and trailing blanks (not tabs).
    static std::string space_filter(std::string_view text);
    /// `text` with every "ghost" removed.
    static std::string ghost_filter(std::string_view text);
    /// `name` without leading and trailing characters that occur in `chars`.
    static std::string strip(std::string_view name, std::string_view chars);
};

/// A registry of names that hands out unique ones ("Box", "Box0", "Box1"...).
class NamesControl {
public:
    void clear() { names_.clear(); }
    bool exists(std::string_view name) const { return names_.contains(std::string(name)); }
    void append(std::string_view name) { names_.emplace(name); }
    void remove(std::string_view name) { names_.erase(std::string(name)); }
    void rename(std::string_view remove_name, std::string_view append_name);
    /// `name` if free, else the next numbered form; registers nothing.
    /// Throws ValueError for an empty name that is already registered.
    std::string get_init(std::string_view name) const;
    /// The name followed by one more than the highest number in use behind it.
    std::string get_next(std::string_view name) const;
    /// Every stored name that contains `name`.
    std::vector<std::string> get_alike(std::string_view name) const;
    std::size_t size() const noexcept { return names_.size(); }

private:
    std::unordered_set<std::string> names_;
};

}  // namespace zerko::foundation
