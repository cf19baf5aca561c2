#include "zerko/foundation/regex_translate.hpp"

#include <pcre2.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <stdexcept>
#include <unordered_map>

#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/regex.hpp"
#include "zerko/foundation/utf8.hpp"

namespace zerko::regex {
namespace detail {
namespace {

using foundation::append_utf8;
using foundation::encode_utf8;

// Python's MAXREPEAT on 64-bit builds.
constexpr std::uint64_t kMaxRepeat = 1073741823;
// Python caps computed widths at MAXWIDTH (2**64); saturating at the top of
// uint64 gives the same comparisons.
constexpr std::uint64_t kMaxWidth = std::numeric_limits<std::uint64_t>::max();
// Python's MAXCODE: the widest look-behind it accepts.
constexpr std::uint64_t kMaxCode = 0xFFFFFFFFull;

bool is_ascii_letter(char32_t c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool is_ascii_digit(char32_t c) { return c >= '0' && c <= '9'; }
bool is_oct_digit(char32_t c) { return c >= '0' && c <= '7'; }
bool is_hex_digit(char32_t c) {
    return is_ascii_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

/// Unicode predicates the translator needs (identifiers, letters), answered
/// by PCRE2's own tables so that no second copy of Unicode data is kept.
class CharTest {
public:
    explicit CharTest(const char* pattern) {
        int error = 0;
        PCRE2_SIZE offset = 0;
        code_ = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern), PCRE2_ZERO_TERMINATED,
                              PCRE2_UTF | PCRE2_UCP | PCRE2_ANCHORED, &error, &offset, nullptr);
        if (code_ == nullptr) throw std::logic_error(std::string("internal pattern: ") + pattern);
    }
    bool operator()(std::string_view text) const {
        pcre2_match_data* data = pcre2_match_data_create(1, nullptr);
        if (data == nullptr) throw std::bad_alloc();
        const int rc = pcre2_match(code_, reinterpret_cast<PCRE2_SPTR>(text.data() ? text.data() : ""),
                                   text.size(), 0, 0, data, nullptr);
        pcre2_match_data_free(data);
        return rc > 0;
    }

private:
    pcre2_code* code_ = nullptr;  // kept for the life of the process
};

bool is_identifier(std::u32string_view text) { return detail::is_identifier(encode_utf8(text)); }

struct NameResolver {
    std::mutex mutex;
    std::shared_ptr<const CharacterNames> resolve;
};
NameResolver& name_resolver() {
    static NameResolver* const instance = new NameResolver;  // used until the end of the process
    return *instance;
}

/// The character of a `\N{...}` name, through the installed resolver.
std::optional<char32_t> character_named(std::string_view name) {
    std::shared_ptr<const CharacterNames> resolve;
    {
        NameResolver& r = name_resolver();
        std::lock_guard lock(r.mutex);
        resolve = r.resolve;
    }
    if (!resolve || !*resolve) return std::nullopt;
    const std::optional<char32_t> c = (*resolve)(name);
    if (c && *c > 0x10FFFF) return std::nullopt;
    return c;
}

/// Python's str.isalpha() for one character.
bool is_alpha(char32_t c) {
    if (c < 0x80) return is_ascii_letter(c);
    static const CharTest test("\\p{L}\\z");
    return test(encode_utf8(std::u32string_view(&c, 1)));
}

struct Width {
    std::uint64_t lo = 0, hi = 0;
};

std::uint64_t add_sat(std::uint64_t a, std::uint64_t b) { return a > kMaxWidth - b ? kMaxWidth : a + b; }
std::uint64_t mul_sat(std::uint64_t a, std::uint64_t b) {
    if (a == 0 || b == 0) return 0;
    return a > kMaxWidth / b ? kMaxWidth : a * b;
}
Width operator+(Width a, Width b) { return {add_sat(a.lo, b.lo), add_sat(a.hi, b.hi)}; }

/// Flags of Python's inline groups.
enum InlineFlag : unsigned {
    kIgnoreCase = 1, kLocale = 2, kMultiline = 4, kDotAll = 8,
    kVerbose = 16, kAscii = 32, kTemplate = 64, kUnicode = 128,
};
constexpr unsigned kTypeFlags = kAscii | kLocale | kUnicode;

unsigned inline_flag(char32_t c) {
    switch (c) {
        case 'i': return kIgnoreCase;
        case 'L': return kLocale;
        case 'm': return kMultiline;
        case 's': return kDotAll;
        case 'x': return kVerbose;
        case 'a': return kAscii;
        case 't': return kTemplate;
        case 'u': return kUnicode;
        default: return 0;
    }
}

/// PCRE2 spelling of the flags that PCRE2 handles itself (i, m, s).
std::string pcre2_flags(unsigned flags) {
    std::string out;
    if (flags & kIgnoreCase) out += 'i';
    if (flags & kMultiline) out += 'm';
    if (flags & kDotAll) out += 's';
    return out;
}

// Python's Unicode \s, written as ranges (verified against Python 3.11 on
// every code point by the tests).
constexpr std::pair<char32_t, char32_t> kSpaceRanges[] = {
    {0x09, 0x0D}, {0x1C, 0x20}, {0x85, 0x85}, {0xA0, 0xA0}, {0x1680, 0x1680},
    {0x2000, 0x200A}, {0x2028, 0x2029}, {0x202F, 0x202F}, {0x205F, 0x205F}, {0x3000, 0x3000},
};
constexpr std::pair<char32_t, char32_t> kAsciiSpaceRanges[] = {{0x09, 0x0D}, {0x20, 0x20}};
constexpr std::pair<char32_t, char32_t> kAsciiWordRanges[] = {
    {'0', '9'}, {'A', 'Z'}, {'_', '_'}, {'a', 'z'}};
constexpr std::pair<char32_t, char32_t> kAsciiDigitRanges[] = {{'0', '9'}};

// Python's Unicode \w is str.isalnum() or "_": letters and numbers.
constexpr const char* kWordBody = "\\p{L}\\p{N}_";
constexpr const char* kSpaceClass =
    "[\\x{9}-\\x{d}\\x{1c}-\\x{20}\\x{85}\\x{a0}\\x{1680}\\x{2000}-\\x{200a}\\x{2028}\\x{2029}"
    "\\x{202f}\\x{205f}\\x{3000}]";
constexpr const char* kNotSpaceClass =
    "[^\\x{9}-\\x{d}\\x{1c}-\\x{20}\\x{85}\\x{a0}\\x{1680}\\x{2000}-\\x{200a}\\x{2028}\\x{2029}"
    "\\x{202f}\\x{205f}\\x{3000}]";
// Python's \B never matches inside an empty string; PCRE2's does.
constexpr const char* kNonBoundary = "(?:(?!\\A\\z)\\B)";
// Under (?a) word boundaries use ASCII word characters; (?-i:) keeps
// case-insensitive matching from widening the class (Kelvin sign, long s).
constexpr const char* kAsciiBoundary =
    "(?-i:(?<=[0-9A-Z_a-z])(?![0-9A-Z_a-z])|(?<![0-9A-Z_a-z])(?=[0-9A-Z_a-z]))";
constexpr const char* kAsciiNonBoundary =
    "(?-i:(?!\\A\\z)(?:(?<=[0-9A-Z_a-z])(?=[0-9A-Z_a-z])|(?<![0-9A-Z_a-z])(?![0-9A-Z_a-z])))";

// Characters that Python's IGNORECASE treats as one case-insensitive set
// while PCRE2's case folding keeps them apart (verified against Python 3.11
// on every cased code point).
constexpr std::u32string_view kExtraFolds[] = {
    U"iI\u0130\u0131", U"\u0390\u1fd3", U"\u03b0\u1fe3", U"\ufb05\ufb06",
};

std::u32string_view extra_fold(char32_t c) {
    for (std::u32string_view set : kExtraFolds) {
        if (set.find(c) != std::u32string_view::npos) return set;
    }
    return {};
}

/// One token of the source, as Python's tokenizer sees it: a character or a
/// backslash with the character after it.
struct Token {
    int length = 0;  // 0 at the end, 1 for a plain character, 2 for an escape
    char32_t c = 0;
    bool plain(char32_t x) const { return length == 1 && c == x; }
    bool end() const { return length == 0; }
    bool escape() const { return length == 2; }
    std::string text() const {
        std::string out = length == 2 ? "\\" : "";
        if (length > 0) append_utf8(out, c);
        return out;
    }
};

/// One member of a bracketed class.
struct ClassItem {
    enum Kind { Range, Category } kind = Range;
    char32_t lo = 0, hi = 0;  // Range
    char32_t category = 0;    // Category: d D s S w W
};

/// Python `re` syntax to PCRE2 syntax, by the same recursive descent as
/// Python's parser, so that it accepts and rejects what Python does, tracks
/// classes, verbose comments and group state, and emits constructs whose
/// meaning agrees with Python's.
class Translator {
public:
    Translator(std::string_view pattern, bool verbose, bool ignorecase)
        : original_(pattern), verbose_(verbose), flags_(verbose ? kVerbose : 0u), ignorecase_(ignorecase) {
        std::size_t bad = 0;
        if (!foundation::decode_utf8_strict(pattern, source_, bad)) {
            raise_invalid(pattern, "not valid UTF-8 at byte " + std::to_string(bad), RegexError::npos);
        }
    }

    Translation run() {
        advance();
        parse_sub(verbose_, 0);
        if ((flags_ & kAscii) && (flags_ & kUnicode)) {
            raise_invalid(original_, "ASCII and UNICODE flags are incompatible", RegexError::npos);
        }
        if (!next_.end()) fail("unbalanced parenthesis");
        for (const auto& [group, position] : condition_refs_) {
            if (group >= groups_.size()) {
                raise_invalid(original_, "invalid group reference " + std::to_string(group), position);
            }
        }
        // Python finds these two while compiling, after parsing, in the order
        // of the tree: the template flag (?t) refuses every repeat.
        if ((flags_ & kTemplate) && template_repeat_at_ != RegexError::npos &&
            (lookbehind_error_.empty() || template_repeat_at_ <= lookbehind_error_at_)) {
            raise_invalid(original_, "internal: unsupported template operator " + template_repeat_op_,
                          RegexError::npos);
        }
        if (!lookbehind_error_.empty()) raise_invalid(original_, lookbehind_error_, RegexError::npos);
        out_.groups = groups_.size() - 1;
        return std::move(out_);
    }

private:
    struct Group {
        bool closed = false;
        Width width;
    };
    enum class Kind { None, At, Repeat, Other };

    // ---- tokenizer
    void advance() {
        const std::size_t i = index_;
        if (i >= source_.size()) {
            next_ = {};
            return;
        }
        if (source_[i] == '\\') {
            if (i + 1 >= source_.size()) {
                raise_invalid(original_, "bad escape (end of pattern)", source_.size() - 1);
            }
            next_ = {2, source_[i + 1]};
            index_ = i + 2;
        } else {
            next_ = {1, source_[i]};
            index_ = i + 1;
        }
    }
    Token get() {
        const Token t = next_;
        advance();
        return t;
    }
    bool match(char32_t c) {
        if (!next_.plain(c)) return false;
        advance();
        return true;
    }
    std::size_t tell() const { return index_ - static_cast<std::size_t>(next_.length); }
    void seek(std::size_t index) {
        index_ = index;
        advance();
    }
    std::u32string get_while(int n, bool (*accept)(char32_t)) {
        std::u32string out;
        for (int k = 0; k < n && next_.length == 1 && accept(next_.c); ++k) out += get().c;
        return out;
    }
    /// Python's getuntil: the tokens up to `terminator`, escapes included.
    std::u32string get_until(char32_t terminator, const char* what) {
        std::u32string result;
        for (;;) {
            const Token t = get();
            if (t.end()) {
                if (result.empty()) fail(std::string("missing ") + what);
                fail("missing " + encode_utf8(std::u32string(1, terminator)) + ", unterminated name",
                     result.size());
            }
            if (t.plain(terminator)) {
                if (result.empty()) fail(std::string("missing ") + what, 1);
                break;
            }
            if (t.escape()) result += U'\\';
            result += t.c;
        }
        return result;
    }

    [[noreturn]] void fail(const std::string& what, std::size_t offset = 0) const {
        const std::size_t here = tell();
        raise_invalid(original_, what, here >= offset ? here - offset : 0);
    }
    void check_group_name(const std::u32string& name, std::size_t offset) const {
        if (!is_identifier(name)) {
            fail("bad character in group name " + py_repr(encode_utf8(name)), name.size() + offset);
        }
    }

    // ---- group state
    bool group_closed(std::size_t gid) const { return gid < groups_.size() && groups_[gid].closed; }
    void check_lookbehind_group(std::size_t gid) const {
        if (!lookbehind_groups_) return;
        if (!group_closed(gid)) fail("cannot refer to an open group");
        if (gid >= *lookbehind_groups_) {
            fail("cannot refer to group defined in the same lookbehind subpattern");
        }
    }

    // ---- output
    void emit(std::string_view text) {
        out_.pattern.append(text);
        out_.source.insert(out_.source.end(), text.size(), static_cast<std::uint32_t>(item_at_));
    }
    /// Puts `prefix` before the output from `start` on and `suffix` after it.
    void wrap(std::size_t start, std::string_view prefix, std::string_view suffix) {
        const std::uint32_t at =
            start < out_.source.size() ? out_.source[start] : static_cast<std::uint32_t>(item_at_);
        out_.pattern.insert(start, prefix);
        out_.source.insert(out_.source.begin() + static_cast<std::ptrdiff_t>(start), prefix.size(), at);
        emit(suffix);
    }
    /// A literal character outside a class, as one PCRE2 atom.
    void emit_literal(char32_t c) {
        std::string text;
        if (ascii_ && ignorecase_ && (c >= 0x80 || is_ascii_letter(c)) && !(c >= 0xD800 && c <= 0xDFFF)) {
            // (?a) with IGNORECASE folds ASCII letters only.
            text = "(?-i:";
            if (c < 0x80) {
                text += '[';
                text += static_cast<char>(c);
                text += static_cast<char>(c ^ 0x20);
                text += ']';
            } else {
                append_utf8(text, c);
            }
            text += ")";
        } else if (ignorecase_ && !ascii_ && !extra_fold(c).empty()) {
            text = "[";
            for (char32_t member : extra_fold(c)) text += class_char(member);
            text += "]";
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            text = "(?!)";  // a lone surrogate can occur in no UTF-8 subject
        } else if (c < 0x20 || c == 0x7F) {
            text = hex_escape(c);
        } else if (c < 0x80 && !is_ascii_letter(c) && !is_ascii_digit(c)) {
            text = {'\\', static_cast<char>(c)};
        } else {
            append_utf8(text, c);
        }
        emit(text);
    }
    static std::string hex_escape(char32_t c) {
        static constexpr char kHex[] = "0123456789abcdef";
        std::string digits;
        do {
            digits.insert(digits.begin(), kHex[c & 0xF]);
            c >>= 4;
        } while (c != 0);
        return "\\x{" + digits + "}";
    }
    static std::string class_char(char32_t c) {
        std::string text;
        if (c < 0x20 || c == 0x7F) return hex_escape(c);
        if (c < 0x80 && !is_ascii_letter(c) && !is_ascii_digit(c)) return {'\\', static_cast<char>(c)};
        append_utf8(text, c);
        return text;
    }
    static void add_range(std::string& body, char32_t lo, char32_t hi) {
        // Surrogates are no characters of a UTF-8 subject, and PCRE2 rejects them.
        if (lo <= 0xDFFF && hi >= 0xD800) {
            if (lo < 0xD800) add_range(body, lo, 0xD7FF);
            if (hi > 0xDFFF) add_range(body, 0xE000, hi);
            return;
        }
        body += class_char(lo);
        if (hi != lo) body.append("-").append(class_char(hi));
    }
    template <std::size_t N>
    static void add_ranges(std::string& body, const std::pair<char32_t, char32_t> (&ranges)[N],
                           bool complement) {
        if (!complement) {
            for (const auto& [lo, hi] : ranges) add_range(body, lo, hi);
            return;
        }
        char32_t from = 0;
        for (const auto& [lo, hi] : ranges) {
            if (lo > from) add_range(body, from, lo - 1);
            from = hi + 1;
        }
        if (from <= 0x10FFFF) add_range(body, from, 0x10FFFF);
    }

    // ---- parser (mirrors Python's _parse_sub / _parse)
    Width parse_sub(bool verbose, int nested) {
        Width total{kMaxWidth, 0};
        bool first_branch = true;
        for (;;) {
            const Width w = parse(verbose, nested + 1, nested == 0 && first_branch);
            total.lo = std::min(total.lo, w.lo);
            total.hi = std::max(total.hi, w.hi);
            if (!match('|')) break;
            item_at_ = tell() - 1;
            emit("|");
            if (nested == 0) verbose = (flags_ & kVerbose) != 0;
            first_branch = false;
        }
        return total;
    }

    Width parse(bool verbose, int nested, bool first) {
        Width before;            // width of the items before the last one
        Width last;              // width of the last item
        Kind last_kind = Kind::None;
        bool has_items = false;  // Python: "subpattern" is not empty
        std::size_t token_start = 0, last_start = 0;  // output offsets
        std::size_t token_at = 0, last_at = 0;        // source positions
        auto add_item = [&](Kind kind, Width width) {
            last_start = token_start;
            last_at = token_at;
            before = before + last;
            last = width;
            last_kind = kind;
            has_items = true;
        };

        for (;;) {
            if (next_.end() || next_.plain('|') || next_.plain(')')) break;
            item_at_ = tell();
            token_at = item_at_;
            token_start = out_.pattern.size();
            const Token t = get();

            if (verbose && t.length == 1) {
                if (t.c == ' ' || t.c == '\t' || t.c == '\n' || t.c == '\r' || t.c == '\v' ||
                    t.c == '\f') {
                    continue;
                }
                if (t.c == '#') {
                    for (;;) {
                        const Token c = get();
                        if (c.end() || c.plain('\n')) break;
                    }
                    continue;
                }
            }

            if (t.escape()) {
                Width w{1, 1};
                const Kind kind = parse_escape(t, w);
                add_item(kind, w);
                continue;
            }
            switch (t.c) {
                case '[':
                    parse_class();
                    add_item(Kind::Other, {1, 1});
                    break;
                case '*':
                case '+':
                case '?':
                case '{': {
                    std::uint64_t min = 0, max = kMaxRepeat;
                    std::string quantifier;
                    if (t.c == '?') {
                        min = 0, max = 1, quantifier = "?";
                    } else if (t.c == '*') {
                        quantifier = "*";
                    } else if (t.c == '+') {
                        min = 1, quantifier = "+";
                    } else {
                        if (next_.plain('}')) {
                            emit_literal('{');
                            add_item(Kind::Other, {1, 1});
                            break;
                        }
                        const std::size_t here = tell();
                        const std::u32string lo = get_while(1 << 30, is_ascii_digit);
                        std::u32string hi;
                        const bool comma = match(',');
                        if (comma) hi = get_while(1 << 30, is_ascii_digit);
                        if (!match('}')) {
                            // Not a quantifier: a literal "{", and the rest is read again.
                            emit_literal('{');
                            add_item(Kind::Other, {1, 1});
                            seek(here);
                            break;
                        }
                        if (!lo.empty()) min = repeat_number(lo);
                        if (comma) {
                            if (!hi.empty()) max = repeat_number(hi);
                        } else {
                            max = min;
                        }
                        if (max < min) fail("min repeat greater than max repeat", tell() - here);
                        quantifier = "{" + std::to_string(min);
                        if (comma) {
                            quantifier += ",";
                            if (!hi.empty()) quantifier += std::to_string(max);
                        }
                        quantifier += "}";
                    }
                    if (last_kind == Kind::None || last_kind == Kind::At) {
                        fail("nothing to repeat", tell() - item_at_);
                    }
                    if (last_kind == Kind::Repeat) fail("multiple repeat", tell() - item_at_);
                    const char mode = match('?') ? '?' : match('+') ? '+' : 0;
                    if (last_at < template_repeat_at_) {
                        // The first repeat in Python's compile order: the outermost, leftmost.
                        template_repeat_at_ = last_at;
                        template_repeat_op_ = mode == '?' ? "MIN_REPEAT" : mode == '+' ? "POSSESSIVE_REPEAT" : "MAX_REPEAT";
                    }
                    if (last.hi == 0) {
                        // A zero-width item repeated matches as it does once, or not
                        // at all when the minimum is 0. Spelled that way it keeps a
                        // look-behind fixed-length for PCRE2, as it is for Python.
                        if (max == 0) {
                            wrap(last_start, "(?:", "){0}");
                        } else if (min == 0) {
                            if (mode == '?') wrap(last_start, "(?:|", ")");
                            else if (mode == '+') wrap(last_start, "(?>", "|)");
                            else wrap(last_start, "(?:", "|)");
                        }
                    } else {
                        if (mode != 0) quantifier += mode;
                        emit(quantifier);
                    }
                    last.lo = mul_sat(last.lo, min);
                    last.hi = (max == kMaxRepeat && last.hi != 0) ? kMaxWidth : mul_sat(last.hi, max);
                    last_kind = Kind::Repeat;
                    break;
                }
                case '.':
                    emit(".");
                    add_item(Kind::Other, {1, 1});
                    break;
                case '^':
                    emit("^");
                    add_item(Kind::At, {0, 0});
                    break;
                case '$':
                    emit("$");
                    add_item(Kind::At, {0, 0});
                    break;
                case '(': {
                    Width w;
                    switch (parse_group(verbose, nested, first, has_items, w)) {
                        case GroupResult::Item: add_item(Kind::Other, w); break;
                        case GroupResult::Nothing: break;
                        case GroupResult::GlobalFlags: verbose = (flags_ & kVerbose) != 0; break;
                    }
                    break;
                }
                default:
                    emit_literal(t.c);
                    add_item(Kind::Other, {1, 1});
                    break;
            }
        }
        return before + last;
    }

    std::uint64_t repeat_number(const std::u32string& digits) const {
        std::uint64_t value = 0;
        for (char32_t d : digits) {
            value = value * 10 + (d - '0');
            if (value >= kMaxRepeat) fail("the repetition number is too large");
        }
        return value;
    }

    enum class GroupResult { Item, Nothing, GlobalFlags };

    GroupResult parse_group(bool verbose, int nested, bool first, bool has_items, Width& width) {
        const std::size_t start = tell() - 1;
        bool capture = true;
        std::string open = "(";
        std::u32string name;
        bool named = false;
        unsigned add_flags = 0, del_flags = 0;

        if (match('?')) {
            const Token c = get();
            if (c.end()) fail("unexpected end of pattern");
            if (c.plain('P')) {
                if (match('<')) {
                    name = get_until('>', "group name");
                    check_group_name(name, 1);
                    named = true;
                } else if (match('=')) {
                    name = get_until(')', "group name");
                    check_group_name(name, 1);
                    const auto it = group_ids_.find(name);
                    if (it == group_ids_.end()) {
                        fail("unknown group name " + py_repr(encode_utf8(name)), name.size() + 1);
                    }
                    if (!group_closed(it->second)) fail("cannot refer to an open group", name.size() + 1);
                    check_lookbehind_group(it->second);
                    emit("\\g{" + std::to_string(it->second) + "}");
                    width = groups_[it->second].width;
                    return GroupResult::Item;
                } else {
                    const Token c2 = get();
                    if (c2.end()) fail("unexpected end of pattern");
                    fail("unknown extension ?P" + c2.text(), c2.length + 2);
                }
            } else if (c.plain(':')) {
                capture = false;
                open = "(?:";
            } else if (c.plain('#')) {
                for (;;) {
                    if (next_.end()) fail("missing ), unterminated comment", tell() - start);
                    if (get().plain(')')) break;
                }
                return GroupResult::Nothing;
            } else if (c.plain('=') || c.plain('!') || c.plain('<')) {
                parse_lookaround(c, verbose, nested, start);
                width = {0, 0};
                return GroupResult::Item;
            } else if (c.plain('(')) {
                width = parse_conditional(verbose, nested, start);
                return GroupResult::Item;
            } else if (c.plain('>')) {
                capture = false;
                open = "(?>";
            } else if (c.length == 1 && (inline_flag(c.c) != 0 || c.c == '-')) {
                if (!parse_flags(c, add_flags, del_flags)) {
                    if (!first || has_items) {
                        fail("global flags not at the start of the expression", tell() - start);
                    }
                    flags_ |= add_flags;
                    if (add_flags & kAscii) ascii_ = true;
                    if (add_flags & kIgnoreCase) ignorecase_ = true;
                    const std::string pcre = pcre2_flags(add_flags);
                    if (!pcre.empty()) emit("(?" + pcre + ")");
                    return GroupResult::GlobalFlags;
                }
                capture = false;
                const std::string on = pcre2_flags(add_flags), off = pcre2_flags(del_flags);
                open = "(?" + on + (off.empty() ? "" : "-" + off) + ":";
            } else {
                fail("unknown extension ?" + c.text(), c.length + 1);
            }
        }

        std::size_t gid = 0;
        if (capture) {
            gid = groups_.size();
            groups_.push_back({});
            if (named) {
                const auto [it, inserted] = group_ids_.emplace(name, gid);
                if (!inserted) {
                    fail("redefinition of group name " + py_repr(encode_utf8(name)) + " as group " +
                             std::to_string(gid) + "; was group " + std::to_string(it->second),
                         name.size() + 1);
                }
                out_.names.emplace_back(encode_utf8(name), gid);
            }
        }
        emit(open);
        const bool sub_verbose = (verbose || (add_flags & kVerbose)) && !(del_flags & kVerbose);
        const bool saved_ascii = ascii_, saved_ignorecase = ignorecase_;
        if (add_flags & kAscii) ascii_ = true;
        if (add_flags & kUnicode) ascii_ = false;
        if (add_flags & kIgnoreCase) ignorecase_ = true;
        if (del_flags & kIgnoreCase) ignorecase_ = false;
        const Width w = parse_sub(sub_verbose, nested + 1);
        ascii_ = saved_ascii;
        ignorecase_ = saved_ignorecase;
        if (!match(')')) fail("missing ), unterminated subpattern", tell() - start);
        item_at_ = tell() - 1;
        emit(")");
        if (capture) groups_[gid] = {true, w};
        width = w;
        return GroupResult::Item;
    }

    void parse_lookaround(Token c, bool verbose, int nested, std::size_t start) {
        bool behind = false;
        std::optional<std::size_t> saved_lookbehind = lookbehind_groups_;
        if (c.plain('<')) {
            c = get();
            if (c.end()) fail("unexpected end of pattern");
            if (!c.plain('=') && !c.plain('!')) fail("unknown extension ?<" + c.text(), c.length + 2);
            behind = true;
            if (!lookbehind_groups_) lookbehind_groups_ = groups_.size();
        }
        emit(std::string(behind ? "(?<" : "(?") + (c.plain('=') ? "=" : "!"));
        const Width w = parse_sub(verbose, nested + 1);
        if (behind) lookbehind_groups_ = saved_lookbehind;
        if (!match(')')) fail("missing ), unterminated subpattern", tell() - start);
        item_at_ = tell() - 1;
        emit(")");
        if (behind && (lookbehind_error_.empty() || start < lookbehind_error_at_)) {
            // Python checks look-behinds when it compiles, after parsing, in
            // pattern order; keep the first and raise it at the end.
            if (w.lo > kMaxCode) {
                lookbehind_error_ = "looks too much behind";
                lookbehind_error_at_ = start;
            } else if (w.lo != w.hi) {
                lookbehind_error_ = "look-behind requires fixed-width pattern";
                lookbehind_error_at_ = start;
            }
        }
    }

    Width parse_conditional(bool verbose, int nested, std::size_t start) {
        const std::u32string cond = get_until(')', "group name");
        std::size_t gid = 0;
        if (is_identifier(cond)) {
            const auto it = group_ids_.find(cond);
            if (it == group_ids_.end()) fail("unknown group name " + py_repr(encode_utf8(cond)), cond.size() + 1);
            gid = it->second;
        } else {
            const bool digits = std::all_of(cond.begin(), cond.end(), is_ascii_digit);
            if (!digits) fail("bad character in group name " + py_repr(encode_utf8(cond)), cond.size() + 1);
            std::uint64_t value = 0;
            for (char32_t d : cond) value = std::min<std::uint64_t>(value * 10 + (d - '0'), kMaxGroups);
            if (value == 0) fail("bad group number", cond.size() + 1);
            if (value >= kMaxGroups) fail("invalid group reference " + encode_utf8(cond), cond.size() + 1);
            gid = static_cast<std::size_t>(value);
            const bool seen = std::any_of(condition_refs_.begin(), condition_refs_.end(),
                                          [&](const auto& ref) { return ref.first == gid; });
            if (!seen) condition_refs_.emplace_back(gid, tell() - cond.size() - 1);
        }
        check_lookbehind_group(gid);
        emit("(?(" + std::to_string(gid) + ")");
        Width w = parse(verbose, nested + 1, false);
        if (match('|')) {
            item_at_ = tell() - 1;
            emit("|");
            const Width no = parse(verbose, nested + 1, false);
            if (next_.plain('|')) fail("conditional backref with more than two branches");
            w = {std::min(w.lo, no.lo), std::max(w.hi, no.hi)};
        } else {
            w.lo = 0;
        }
        if (!match(')')) fail("missing ), unterminated subpattern", tell() - start);
        item_at_ = tell() - 1;
        emit(")");
        return w;
    }

    /// Python's _parse_flags. Returns false for global flags "(?i)", true
    /// for a scoped group "(?i:" / "(?-i:".
    bool parse_flags(Token c, unsigned& add, unsigned& del) {
        if (!c.plain('-')) {
            for (;;) {
                const unsigned flag = inline_flag(c.c);
                if (c.c == 'L') fail("bad inline flags: cannot use 'L' flag with a str pattern");
                add |= flag;
                if ((flag & kTypeFlags) && (add & kTypeFlags) != flag) {
                    fail("bad inline flags: flags 'a', 'u' and 'L' are incompatible");
                }
                c = get();
                if (c.end()) fail("missing -, : or )");
                if (c.plain(')') || c.plain('-') || c.plain(':')) break;
                if (c.escape() || inline_flag(c.c) == 0) {
                    fail(!c.escape() && is_alpha(c.c) ? "unknown flag" : "missing -, : or )", c.length);
                }
            }
        }
        if (c.plain(')')) return false;
        if (add & kTemplate) fail("bad inline flags: cannot turn on global flag", 1);
        if (c.plain('-')) {
            c = get();
            if (c.end()) fail("missing flag");
            if (c.escape() || inline_flag(c.c) == 0) {
                fail(!c.escape() && is_alpha(c.c) ? "unknown flag" : "missing flag", c.length);
            }
            for (;;) {
                const unsigned flag = inline_flag(c.c);
                if (flag & kTypeFlags) fail("bad inline flags: cannot turn off flags 'a', 'u' and 'L'");
                del |= flag;
                c = get();
                if (c.end()) fail("missing :");
                if (c.plain(':')) break;
                if (c.escape() || inline_flag(c.c) == 0) {
                    fail(!c.escape() && is_alpha(c.c) ? "unknown flag" : "missing :", c.length);
                }
            }
        }
        if (del & kTemplate) fail("bad inline flags: cannot turn off global flag", 1);
        if (add & del) fail("bad inline flags: flag turned on and off", 1);
        return true;
    }

    /// An escape outside a class (Python's _escape).
    Kind parse_escape(Token t, Width& width) {
        width = {1, 1};
        const char32_t c = t.c;
        switch (c) {
            case 'A': emit("\\A"); width = {0, 0}; return Kind::At;
            case 'Z': emit("\\z"); width = {0, 0}; return Kind::At;
            case 'b': emit(ascii_ ? kAsciiBoundary : "\\b"); width = {0, 0}; return Kind::At;
            case 'B': emit(ascii_ ? kAsciiNonBoundary : kNonBoundary); width = {0, 0}; return Kind::At;
            case 'd': emit(ascii_ ? "[0-9]" : "\\p{Nd}"); return Kind::Other;
            case 'D': emit(ascii_ ? "[^0-9]" : "\\P{Nd}"); return Kind::Other;
            case 'w': emit(ascii_ ? "(?-i:[0-9A-Z_a-z])" : "[\\p{L}\\p{N}_]"); return Kind::Other;
            case 'W': emit(ascii_ ? "(?-i:[^0-9A-Z_a-z])" : "[^\\p{L}\\p{N}_]"); return Kind::Other;
            case 's': emit(ascii_ ? "[\\x{9}-\\x{d}\\x{20}]" : kSpaceClass); return Kind::Other;
            case 'S': emit(ascii_ ? "[^\\x{9}-\\x{d}\\x{20}]" : kNotSpaceClass); return Kind::Other;
            default: break;
        }
        if (const auto literal = simple_escape(c)) {
            emit_literal(*literal);
            return Kind::Other;
        }
        if (c == 'x' || c == 'u' || c == 'U' || c == 'N') {
            emit_literal(code_escape(c));
            return Kind::Other;
        }
        if (c == '0') {
            const std::u32string digits = get_while(2, is_oct_digit);
            emit_literal(octal(digits));
            return Kind::Other;
        }
        if (is_ascii_digit(c)) {
            std::u32string escape(1, c);
            if (next_.length == 1 && is_ascii_digit(next_.c)) {
                escape += get().c;
                if (is_oct_digit(escape[0]) && is_oct_digit(escape[1]) && next_.length == 1 &&
                    is_oct_digit(next_.c)) {
                    escape += get().c;
                    const char32_t value = octal(escape);
                    if (value > 0377) {
                        fail("octal escape value \\" + encode_utf8(escape) + " outside of range 0-0o377",
                             escape.size() + 1);
                    }
                    emit_literal(value);
                    return Kind::Other;
                }
            }
            const std::size_t gid = static_cast<std::size_t>(std::stoul(encode_utf8(escape)));
            if (gid < groups_.size()) {
                if (!group_closed(gid)) fail("cannot refer to an open group", escape.size() + 1);
                check_lookbehind_group(gid);
                emit("\\g{" + std::to_string(gid) + "}");
                width = groups_[gid].width;
                return Kind::Other;
            }
            fail("invalid group reference " + std::to_string(gid), escape.size());
        }
        if (is_ascii_letter(c)) fail("bad escape " + t.text(), 2);
        emit_literal(c);
        return Kind::Other;
    }

    static std::optional<char32_t> simple_escape(char32_t c) {
        switch (c) {
            case 'a': return 0x07;
            case 'f': return 0x0C;
            case 'n': return 0x0A;
            case 'r': return 0x0D;
            case 't': return 0x09;
            case 'v': return 0x0B;
            case '\\': return '\\';
            default: return std::nullopt;
        }
    }

    static char32_t octal(std::u32string_view digits) {
        char32_t value = 0;
        for (char32_t d : digits) value = value * 8 + (d - '0');
        return value;
    }

    /// \xhh, \uhhhh, \Uhhhhhhhh and \N{name}.
    char32_t code_escape(char32_t c) {
        if (c == 'N') {
            if (!match('{')) fail("missing {");
            const std::u32string name = get_until('}', "character name");
            const std::string text = encode_utf8(name);
            const std::optional<char32_t> named = character_named(text);
            if (!named) fail("undefined character name " + py_repr(text), name.size() + 4);
            return *named;
        }
        const int n = c == 'x' ? 2 : c == 'u' ? 4 : 8;
        const std::u32string digits = get_while(n, is_hex_digit);
        const std::string escape = "\\" + encode_utf8(std::u32string(1, c)) + encode_utf8(digits);
        if (static_cast<int>(digits.size()) != n) fail("incomplete escape " + escape, escape.size());
        const std::uint64_t value = std::stoull(encode_utf8(digits), nullptr, 16);
        if (value > 0x10FFFF) fail("bad escape " + escape, escape.size());
        return static_cast<char32_t>(value);
    }

    /// An escape inside a class (Python's _class_escape).
    ClassItem class_escape(Token t) {
        const char32_t c = t.c;
        if (c == 'b') return {ClassItem::Range, 0x08, 0x08};
        if (const auto literal = simple_escape(c)) return {ClassItem::Range, *literal, *literal};
        if (c == 'd' || c == 'D' || c == 's' || c == 'S' || c == 'w' || c == 'W') {
            return {ClassItem::Category, 0, 0, c};
        }
        if (c == 'x' || c == 'u' || c == 'U' || c == 'N') {
            const char32_t value = code_escape(c);
            return {ClassItem::Range, value, value};
        }
        if (is_oct_digit(c)) {
            std::u32string escape(1, c);
            escape += get_while(2, is_oct_digit);
            const char32_t value = octal(escape);
            if (value > 0377) {
                fail("octal escape value \\" + encode_utf8(escape) + " outside of range 0-0o377",
                     escape.size() + 1);
            }
            return {ClassItem::Range, value, value};
        }
        if (is_ascii_digit(c) || is_ascii_letter(c)) fail("bad escape " + t.text(), 2);
        return {ClassItem::Range, c, c};
    }

    void parse_class() {
        const std::size_t here = tell() - 1;
        const bool negate = match('^');
        std::vector<ClassItem> items;
        for (;;) {
            const Token t = get();
            if (t.end()) fail("unterminated character set", tell() - here);
            if (t.plain(']') && !items.empty()) break;
            const ClassItem first = t.escape() ? class_escape(t) : ClassItem{ClassItem::Range, t.c, t.c};
            if (match('-')) {
                const Token that = get();
                if (that.end()) fail("unterminated character set", tell() - here);
                if (that.plain(']')) {
                    items.push_back(first);
                    items.push_back({ClassItem::Range, '-', '-'});
                    break;
                }
                const ClassItem second =
                    that.escape() ? class_escape(that) : ClassItem{ClassItem::Range, that.c, that.c};
                if (first.kind != ClassItem::Range || second.kind != ClassItem::Range ||
                    second.lo < first.lo) {
                    fail("bad character range " + t.text() + "-" + that.text(),
                         t.length + 1 + that.length);
                }
                items.push_back({ClassItem::Range, first.lo, second.lo});
            } else {
                items.push_back(first);
            }
        }
        emit_class(items, negate);
    }

    void emit_class(std::vector<ClassItem> items, bool negate) {
        const bool ascii_folding = ascii_ && ignorecase_;
        if (ascii_folding) {
            // (?a) with IGNORECASE: add the other case of ASCII letters here and
            // match the class case-sensitively.
            const std::size_t n = items.size();
            for (std::size_t k = 0; k < n; ++k) {
                if (items[k].kind != ClassItem::Range) continue;
                const char32_t lo = items[k].lo, hi = items[k].hi;
                if (lo <= 'z' && hi >= 'a') {
                    items.push_back({ClassItem::Range, std::max(lo, U'a') - 32, std::min(hi, U'z') - 32});
                }
                if (lo <= 'Z' && hi >= 'A') {
                    items.push_back({ClassItem::Range, std::max(lo, U'A') + 32, std::min(hi, U'Z') + 32});
                }
            }
        }
        if (ignorecase_ && !ascii_) {
            const std::size_t n = items.size();
            for (std::size_t k = 0; k < n; ++k) {
                if (items[k].kind != ClassItem::Range) continue;
                for (std::u32string_view set : kExtraFolds) {
                    const bool touches = std::any_of(set.begin(), set.end(), [&](char32_t m) {
                        return m >= items[k].lo && m <= items[k].hi;
                    });
                    if (!touches) continue;
                    for (char32_t m : set) items.push_back({ClassItem::Range, m, m});
                }
            }
        }
        std::string body;
        bool not_word = false;  // Unicode \W: the complement of a property union
        for (const ClassItem& item : items) {
            if (item.kind == ClassItem::Range) {
                add_range(body, item.lo, item.hi);
                continue;
            }
            switch (item.category) {
                case 'd':
                    if (ascii_) add_ranges(body, kAsciiDigitRanges, false);
                    else body += "\\p{Nd}";
                    break;
                case 'D':
                    if (ascii_) add_ranges(body, kAsciiDigitRanges, true);
                    else body += "\\P{Nd}";
                    break;
                case 'w':
                    if (ascii_) add_ranges(body, kAsciiWordRanges, false);
                    else body += kWordBody;
                    break;
                case 'W':
                    if (ascii_) add_ranges(body, kAsciiWordRanges, true);
                    else not_word = true;
                    break;
                case 's':
                    if (ascii_) add_ranges(body, kAsciiSpaceRanges, false);
                    else add_ranges(body, kSpaceRanges, false);
                    break;
                case 'S':
                    if (ascii_) add_ranges(body, kAsciiSpaceRanges, true);
                    else add_ranges(body, kSpaceRanges, true);
                    break;
                default: break;
            }
        }
        const std::string word = kWordBody;
        std::string text;
        if (!not_word) {
            if (body.empty()) text = negate ? "(?s:.)" : "(?!)";  // only surrogates were named
            else text = (negate ? "[^" : "[") + body + "]";
        } else if (!negate) {
            // [x\W] = [x] or not a word character
            text = body.empty() ? "[^" + word + "]" : "(?:[" + body + "]|[^" + word + "])";
        } else {
            // [^x\W] = a word character that is not x
            text = body.empty() ? "[" + word + "]" : "(?:(?![" + body + "])[" + word + "])";
        }
        emit(ascii_folding ? "(?-i:" + text + ")" : text);
    }

    std::string_view original_;
    std::u32string source_;
    bool verbose_ = false;
    std::size_t index_ = 0;
    Token next_;

    std::size_t item_at_ = 0;  // source position of the item being emitted
    unsigned flags_ = 0;       // global inline flags seen so far
    bool ascii_ = false;       // (?a) in force
    bool ignorecase_ = false;  // IGNORECASE in force (matters only together with (?a))
    std::vector<Group> groups_ = std::vector<Group>(1);
    std::unordered_map<std::u32string, std::size_t> group_ids_;
    std::optional<std::size_t> lookbehind_groups_;
    std::vector<std::pair<std::size_t, std::size_t>> condition_refs_;
    std::string lookbehind_error_;
    std::size_t lookbehind_error_at_ = 0;
    std::size_t template_repeat_at_ = RegexError::npos;  // first repeat, for (?t)
    std::string template_repeat_op_;
    Translation out_;
};

}  // namespace

bool is_identifier(std::string_view utf8) {
    static const CharTest test("[\\p{XIDS}_]\\p{XIDC}*\\z");
    return test(utf8);
}

std::string py_repr(std::string_view text) {
    const bool has_single = text.find('\'') != std::string_view::npos;
    const bool has_double = text.find('"') != std::string_view::npos;
    const char quote = has_single && !has_double ? '"' : '\'';
    static constexpr char kHex[] = "0123456789abcdef";
    std::string out(1, quote);
    for (char c : text) {
        const auto b = static_cast<unsigned char>(c);
        if (c == '\\' || c == quote) {
            out.append({'\\', c});
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (c == '\t') {
            out += "\\t";
        } else if (b < 0x20 || b == 0x7F) {
            out.append({'\\', 'x', kHex[b >> 4], kHex[b & 0xF]});
        } else {
            out += c;
        }
    }
    out += quote;
    return out;
}

void raise_invalid(std::string_view pattern, std::string message, std::size_t position) {
    throw RegexError(std::move(message), std::string(pattern), position);
}

Translation translate(std::string_view pattern, bool verbose, bool ignorecase) {
    return Translator(pattern, verbose, ignorecase).run();
}

}  // namespace detail

void set_character_names(CharacterNames resolver) {
    auto fresh = std::make_shared<const CharacterNames>(std::move(resolver));
    detail::NameResolver& r = detail::name_resolver();
    std::lock_guard lock(r.mutex);
    r.resolve = std::move(fresh);
}

std::string translate(std::string_view python_pattern) {
    return detail::translate(python_pattern, false, false).pattern;
}

}  // namespace zerko::regex
