#include "zerko/foundation/regex.hpp"

#include <pcre2.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <limits>
#include <mutex>
#include <new>
#include <unordered_map>

namespace zerko::regex {
namespace {

// Python's MAXREPEAT and MAXGROUPS on 64-bit builds.
constexpr std::uint64_t kMaxRepeat = 1073741823;
constexpr std::uint64_t kMaxGroups = 1073741823;
// Python caps computed widths at MAXWIDTH (2**64); saturating at the top of
// uint64 gives the same comparisons.
constexpr std::uint64_t kMaxWidth = std::numeric_limits<std::uint64_t>::max();
// Python's MAXCODE: the widest look-behind it accepts.
constexpr std::uint64_t kMaxCode = 0xFFFFFFFFull;

constexpr std::uint32_t kDefaultMatchLimit = 100000;
// Compiled patterns kept by the cache before it starts over; a validator uses
// a few hundred, so only a run-away producer of distinct patterns hits this.
constexpr std::size_t kCacheBound = 4096;

constexpr std::uint32_t kBaseOptions = PCRE2_UTF | PCRE2_UCP | PCRE2_ALT_CIRCUMFLEX |
                                       PCRE2_NEVER_BACKSLASH_C | PCRE2_MATCH_INVALID_UTF;

std::atomic<std::uint32_t> g_match_limit{kDefaultMatchLimit};

// ------------------------------------------------------------------ UTF-8

void append_utf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

std::string to_utf8(std::u32string_view text) {
    std::string out;
    for (char32_t c : text) append_utf8(out, c);
    return out;
}

/// Strict UTF-8 decoding; on failure `bad` is the byte offset of the first bad sequence.
bool decode_utf8(std::string_view s, std::u32string& out, std::size_t& bad) {
    static constexpr char32_t kMinimum[] = {0, 0, 0x80, 0x800, 0x10000};
    out.clear();
    out.reserve(s.size());
    for (std::size_t i = 0; i < s.size();) {
        const auto b = static_cast<unsigned char>(s[i]);
        char32_t c;
        int n;
        if (b < 0x80) {
            c = b, n = 1;
        } else if ((b & 0xE0) == 0xC0) {
            c = b & 0x1F, n = 2;
        } else if ((b & 0xF0) == 0xE0) {
            c = b & 0x0F, n = 3;
        } else if ((b & 0xF8) == 0xF0) {
            c = b & 0x07, n = 4;
        } else {
            bad = i;
            return false;
        }
        if (i + n > s.size()) {
            bad = i;
            return false;
        }
        for (int k = 1; k < n; ++k) {
            const auto cb = static_cast<unsigned char>(s[i + k]);
            if ((cb & 0xC0) != 0x80) {
                bad = i;
                return false;
            }
            c = (c << 6) | (cb & 0x3F);
        }
        if (c < kMinimum[n] || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
            bad = i;
            return false;
        }
        out += c;
        i += n;
    }
    return true;
}

/// Number of code points in the first `bytes` bytes (positions in messages
/// count characters, as Python's do).
std::size_t code_points(std::string_view s, std::size_t bytes) {
    std::size_t n = 0;
    for (std::size_t i = 0; i < bytes && i < s.size(); ++i) {
        if ((static_cast<unsigned char>(s[i]) & 0xC0) != 0x80) ++n;
    }
    return n;
}

bool is_ascii_letter(char32_t c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool is_ascii_digit(char32_t c) { return c >= '0' && c <= '9'; }
bool is_oct_digit(char32_t c) { return c >= '0' && c <= '7'; }
bool is_hex_digit(char32_t c) {
    return is_ascii_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// ------------------------------------------------------ PCRE2 plumbing

std::string pcre2_message(int code) {
    PCRE2_UCHAR buffer[256];
    const int n = pcre2_get_error_message(code, buffer, sizeof buffer);
    return n < 0 ? "error " + std::to_string(code) : std::string(reinterpret_cast<char*>(buffer), n);
}

pcre2_compile_context* compile_context() {
    static pcre2_compile_context* const context = [] {
        pcre2_compile_context* c = pcre2_compile_context_create(nullptr);
        if (c == nullptr) throw std::bad_alloc();
        pcre2_set_newline(c, PCRE2_NEWLINE_LF);
        return c;
    }();
    return context;
}

/// Unicode predicates the translator needs (identifiers, letters), answered
/// by PCRE2's own tables so that no second copy of Unicode data is kept.
class CharTest {
public:
    explicit CharTest(const char* pattern) {
        int error = 0;
        PCRE2_SIZE offset = 0;
        code_ = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern), PCRE2_ZERO_TERMINATED,
                              PCRE2_UTF | PCRE2_UCP | PCRE2_ANCHORED, &error, &offset,
                              compile_context());
        if (code_ == nullptr) throw std::logic_error("internal pattern: " + pcre2_message(error));
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

/// Python's str.isidentifier().
bool is_identifier(std::string_view utf8) {
    static const CharTest test("[\\p{XIDS}_]\\p{XIDC}*\\z");
    return test(utf8);
}
bool is_identifier(std::u32string_view text) { return is_identifier(to_utf8(text)); }

/// Python's str.isalpha() for one character.
bool is_alpha(char32_t c) {
    if (c < 0x80) return is_ascii_letter(c);
    static const CharTest test("\\p{L}\\z");
    return test(to_utf8(std::u32string_view(&c, 1)));
}

/// Python's repr() of a str, for the names quoted in messages.
std::string py_repr(std::string_view text) {
    const bool has_single = text.find('\'') != std::string_view::npos;
    const bool has_double = text.find('"') != std::string_view::npos;
    const char quote = has_single && !has_double ? '"' : '\'';
    std::string out(1, quote);
    for (char c : text) {
        if (c == '\\' || c == quote) out += '\\';
        out += c;
    }
    out += quote;
    return out;
}

[[noreturn]] void raise_invalid(std::string_view pattern, std::string_view what, std::size_t position) {
    std::string text = "invalid regular expression ";
    text.append(py_repr(pattern)).append(": ").append(what);
    if (position != std::string::npos) text.append(" at position ").append(std::to_string(position));
    throw RegexError(text);
}

// ------------------------------------------------------------ translator

struct Translation {
    std::string pattern;                                     // PCRE2 syntax
    std::vector<std::uint32_t> source;                       // source position of each output byte
    std::size_t groups = 0;                                  // capturing groups
    std::vector<std::pair<std::string, std::size_t>> names;  // by group number
};

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
        if (!decode_utf8(pattern, source_, bad)) {
            raise_invalid(pattern, "not valid UTF-8 at byte " + std::to_string(bad), std::string::npos);
        }
    }

    Translation run() {
        advance();
        parse_sub(verbose_, 0);
        if ((flags_ & kAscii) && (flags_ & kUnicode)) {
            raise_invalid(original_, "ASCII and UNICODE flags are incompatible", std::string::npos);
        }
        if (!next_.end()) fail("unbalanced parenthesis");
        for (const auto& [group, position] : condition_refs_) {
            if (group >= groups_.size()) {
                raise_invalid(original_, "invalid group reference " + std::to_string(group), position);
            }
        }
        if (!lookbehind_error_.empty()) {
            raise_invalid(original_, lookbehind_error_, lookbehind_error_at_);
        }
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
                fail("missing " + to_utf8(std::u32string(1, terminator)) + ", unterminated name",
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
            fail("bad character in group name " + py_repr(to_utf8(name)), name.size() + offset);
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
        auto add_item = [&](Kind kind, Width width) {
            last_start = token_start;
            before = before + last;
            last = width;
            last_kind = kind;
            has_items = true;
        };

        for (;;) {
            if (next_.end() || next_.plain('|') || next_.plain(')')) break;
            item_at_ = tell();
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
                        fail("unknown group name " + py_repr(to_utf8(name)), name.size() + 1);
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
                    fail("redefinition of group name " + py_repr(to_utf8(name)) + " as group " +
                             std::to_string(gid) + "; was group " + std::to_string(it->second),
                         name.size() + 1);
                }
                out_.names.emplace_back(to_utf8(name), gid);
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
            if (it == group_ids_.end()) fail("unknown group name " + py_repr(to_utf8(cond)), cond.size() + 1);
            gid = it->second;
        } else {
            const bool digits = std::all_of(cond.begin(), cond.end(), is_ascii_digit);
            if (!digits) fail("bad character in group name " + py_repr(to_utf8(cond)), cond.size() + 1);
            std::uint64_t value = 0;
            for (char32_t d : cond) value = std::min<std::uint64_t>(value * 10 + (d - '0'), kMaxGroups);
            if (value == 0) fail("bad group number", cond.size() + 1);
            if (value >= kMaxGroups) fail("invalid group reference " + to_utf8(cond), cond.size() + 1);
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
                if (c.c == 't') fail("bad inline flags: the template flag 't' is not supported");
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
        if (c.plain('-')) {
            c = get();
            if (c.end()) fail("missing flag");
            if (c.escape() || inline_flag(c.c) == 0) {
                fail(!c.escape() && is_alpha(c.c) ? "unknown flag" : "missing flag", c.length);
            }
            for (;;) {
                const unsigned flag = inline_flag(c.c);
                if (flag & kTypeFlags) fail("bad inline flags: cannot turn off flags 'a', 'u' and 'L'");
                if (flag & kTemplate) fail("bad inline flags: cannot turn off global flag", 1);
                del |= flag;
                c = get();
                if (c.end()) fail("missing :");
                if (c.plain(':')) break;
                if (c.escape() || inline_flag(c.c) == 0) {
                    fail(!c.escape() && is_alpha(c.c) ? "unknown flag" : "missing :", c.length);
                }
            }
        }
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
                        fail("octal escape value \\" + to_utf8(escape) + " outside of range 0-0o377",
                             escape.size() + 1);
                    }
                    emit_literal(value);
                    return Kind::Other;
                }
            }
            const std::size_t gid = static_cast<std::size_t>(std::stoul(to_utf8(escape)));
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

    /// \xhh, \uhhhh, \Uhhhhhhhh (and \N{...}, which needs a name table we do not carry).
    char32_t code_escape(char32_t c) {
        if (c == 'N') {
            if (!match('{')) fail("missing {");
            const std::u32string name = get_until('}', "character name");
            fail("named Unicode characters (\\N{...}) are not supported", name.size() + 4);
        }
        const int n = c == 'x' ? 2 : c == 'u' ? 4 : 8;
        const std::u32string digits = get_while(n, is_hex_digit);
        const std::string escape = "\\" + to_utf8(std::u32string(1, c)) + to_utf8(digits);
        if (static_cast<int>(digits.size()) != n) fail("incomplete escape " + escape, escape.size());
        const std::uint64_t value = std::stoull(to_utf8(digits), nullptr, 16);
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
                fail("octal escape value \\" + to_utf8(escape) + " outside of range 0-0o377",
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
    Translation out_;
};

// ------------------------------------------------------ per-thread state

/// Match data, match context and JIT stack of one thread. Compiled code is
/// shared; everything a match writes lives here.
struct ThreadState {
    pcre2_match_data* data = nullptr;
    std::uint32_t pairs = 0;
    pcre2_match_context* context = nullptr;
    pcre2_jit_stack* jit_stack = nullptr;
    std::uint64_t limit = ~std::uint64_t{0};  // limit set in `context`; none yet

    ThreadState() = default;
    ThreadState(const ThreadState&) = delete;
    ThreadState& operator=(const ThreadState&) = delete;
    ~ThreadState() {
        pcre2_match_data_free(data);
        pcre2_match_context_free(context);
        pcre2_jit_stack_free(jit_stack);
    }

    void prepare(std::uint32_t need) {
        if (pairs < need) [[unlikely]] {
            const std::uint32_t size = std::max<std::uint32_t>(need, 16);
            pcre2_match_data* fresh = pcre2_match_data_create(size, nullptr);
            if (fresh == nullptr) throw std::bad_alloc();
            pcre2_match_data_free(data);
            data = fresh;
            pairs = size;
        }
        if (context == nullptr) [[unlikely]] {
            context = pcre2_match_context_create(nullptr);
            if (context == nullptr) throw std::bad_alloc();
            // The default JIT stack (32 KiB on the machine stack) is small for
            // long subjects; a thread's own stack grows on demand up to 1 MiB.
            jit_stack = pcre2_jit_stack_create(32 * 1024, 1024 * 1024, nullptr);
            if (jit_stack != nullptr) pcre2_jit_stack_assign(context, nullptr, jit_stack);
        }
        const std::uint32_t want = g_match_limit.load(std::memory_order_relaxed);
        if (limit != want) [[unlikely]] {
            pcre2_set_match_limit(context, want);
            limit = want;
        }
    }
};

ThreadState& thread_state() {
    thread_local ThreadState state;
    return state;
}

struct Compiled {
    pcre2_code* code = nullptr;
    bool jit = false;
};

void free_compiled(Compiled& c) {
    pcre2_code_free(c.code);
    c.code = nullptr;
}

/// Compiles one form of a translated pattern; errors name the position in
/// the user's pattern.
Compiled compile_form(std::string_view user_pattern, const Translation& tr, const std::string& text,
                      std::uint32_t options, std::size_t source_shift) {
    int error = 0;
    PCRE2_SIZE offset = 0;
    Compiled out;
    out.code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(text.data()), text.size(), options, &error,
                             &offset, compile_context());
    if (out.code == nullptr) {
        if (error == PCRE2_ERROR_NOMEMORY) throw std::bad_alloc();
        std::size_t position = std::string::npos;
        if (offset >= source_shift && offset - source_shift < tr.source.size()) {
            position = tr.source[offset - source_shift];
        } else if (offset >= source_shift) {
            position = code_points(user_pattern, user_pattern.size());
        }
        raise_invalid(user_pattern, pcre2_message(error), position);
    }
    // JIT is an optimisation: where it is unavailable the interpreter runs.
    out.jit = pcre2_jit_compile(out.code, PCRE2_JIT_COMPLETE) == 0;
    return out;
}

[[noreturn]] void raise_match_error(const std::string& pattern, int rc) {
    switch (rc) {
        case PCRE2_ERROR_MATCHLIMIT:
        case PCRE2_ERROR_DEPTHLIMIT:
        case PCRE2_ERROR_HEAPLIMIT:
        case PCRE2_ERROR_JIT_STACKLIMIT:
            throw RegexError("regular expression exceeded its work limit: " + pattern);
        case PCRE2_ERROR_NOMEMORY:
            throw std::bad_alloc();
        default:
            throw RegexError("regular expression failed (" + pcre2_message(rc) + "): " + pattern);
    }
}

// ------------------------------------------------------------- the cache

struct CacheKey {
    std::string pattern;
    unsigned flags;
};
struct CacheKeyView {
    std::string_view pattern;
    unsigned flags;
};
struct CacheHash {
    using is_transparent = void;
    std::size_t operator()(CacheKeyView k) const noexcept {
        return std::hash<std::string_view>{}(k.pattern) ^ (k.flags * 0x9E3779B97F4A7C15ull);
    }
    std::size_t operator()(const CacheKey& k) const noexcept {
        return (*this)(CacheKeyView{k.pattern, k.flags});
    }
};
struct CacheEqual {
    using is_transparent = void;
    template <class A, class B>
    bool operator()(const A& a, const B& b) const noexcept {
        return a.flags == b.flags && std::string_view(a.pattern) == std::string_view(b.pattern);
    }
};
struct Cache {
    std::mutex mutex;
    std::unordered_map<CacheKey, RegexPtr, CacheHash, CacheEqual> map;
};
Cache& cache() {
    // Never destroyed: expressions held in other static objects stay valid
    // until the very end of the process.
    static Cache* const instance = new Cache;
    return *instance;
}

// ------------------------------------------------------ replacement

struct TemplatePart {
    std::string literal;
    long group = -1;  // >= 0: the text of this group
};

/// Python's parse_template over a UTF-8 replacement string.
std::vector<TemplatePart> parse_template(std::string_view repl, const Regex& re) {
    std::vector<TemplatePart> parts;
    std::string literal;
    auto fail = [&](const std::string& what, std::size_t byte) {
        throw RegexError("invalid replacement template " + py_repr(repl) + ": " + what +
                         " at position " + std::to_string(code_points(repl, byte)));
    };
    auto add_group = [&](std::uint64_t index, std::size_t at) {
        if (index > re.groups()) fail("invalid group reference " + std::to_string(index), at);
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
                const auto& names = re.group_names();
                const auto it = std::find_if(names.begin(), names.end(),
                                             [&](const auto& entry) { return entry.first == name; });
                if (it == names.end()) {
                    throw RegexError("invalid replacement template " + py_repr(repl) +
                                     ": unknown group name " + py_repr(name));
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
                    if (is_ascii_letter(static_cast<unsigned char>(c))) {
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

std::string_view ovector_group(std::string_view subject, const PCRE2_SIZE* ov, int rc, std::size_t index,
                               bool& set) {
    set = static_cast<int>(index) < rc && ov[2 * index] != PCRE2_UNSET;
    return set ? subject.substr(ov[2 * index], ov[2 * index + 1] - ov[2 * index]) : std::string_view{};
}

}  // namespace

// ------------------------------------------------------------ Regex::Impl

struct Regex::Impl {
    std::uint32_t options = 0;
    std::uint32_t pairs = 1;  // ovector pairs: groups + 1
    Translation translation;  // kept to place errors of the lazily compiled forms
    Compiled search;          // unanchored: search, sub, split, findall
    // The anchored forms are compiled on first use, as most expressions are
    // only ever used one way.
    mutable std::atomic<const Compiled*> anchored{nullptr};
    mutable std::atomic<const Compiled*> full{nullptr};
    mutable Compiled anchored_store, full_store;
    mutable std::mutex lazy;

    ~Impl() {
        free_compiled(search);
        free_compiled(anchored_store);
        free_compiled(full_store);
    }

    const Compiled& anchored_form(const Regex& re) const {
        if (const Compiled* c = anchored.load(std::memory_order_acquire)) [[likely]] return *c;
        std::lock_guard lock(lazy);
        if (anchored_store.code == nullptr) {
            anchored_store =
                compile_form(re.pattern_, translation, translation.pattern, options | PCRE2_ANCHORED, 0);
        }
        anchored.store(&anchored_store, std::memory_order_release);
        return anchored_store;
    }

    const Compiled& full_form(const Regex& re) const {
        if (const Compiled* c = full.load(std::memory_order_acquire)) [[likely]] return *c;
        std::lock_guard lock(lazy);
        if (full_store.code == nullptr) {
            // (?:...)\z keeps alternatives backtracking until one reaches the end.
            full_store = compile_form(re.pattern_, translation, "(?:" + translation.pattern + ")\\z",
                                      options | PCRE2_ANCHORED, 3);
        }
        full.store(&full_store, std::memory_order_release);
        return full_store;
    }

    /// One match call: the number of pairs set (> 0), 0 for no match.
    int run(const Regex& re, const Compiled& c, std::string_view subject, std::size_t pos,
            std::uint32_t match_options, ThreadState& ts) const {
        const auto* s = reinterpret_cast<PCRE2_SPTR>(subject.data() ? subject.data() : "");
        const std::size_t n = subject.size();
        const int rc = c.jit ? pcre2_jit_match(c.code, s, n, pos, match_options, ts.data, ts.context)
                             : pcre2_match(c.code, s, n, pos, match_options, ts.data, ts.context);
        if (rc > 0) [[likely]] return rc;
        if (rc == PCRE2_ERROR_NOMATCH) return 0;
        if (rc == 0) return static_cast<int>(pairs);  // cannot happen: data is sized for all groups
        raise_match_error(re.pattern_, rc);
    }

    Match make_match(const Regex& re, std::string_view subject, int rc, const ThreadState& ts) const {
        Match m;
        m.subject_.assign(subject);
        const PCRE2_SIZE* ov = pcre2_get_ovector_pointer(ts.data);
        m.spans_.resize(pairs);
        for (std::size_t i = 0; i < pairs; ++i) {
            if (static_cast<int>(i) < rc && ov[2 * i] != PCRE2_UNSET) {
                m.spans_[i] = {ov[2 * i], ov[2 * i + 1]};
            } else {
                m.spans_[i] = {std::string::npos, std::string::npos};
            }
        }
        m.names_ = re.names_;
        return m;
    }

    /// Python's scanning loop (sub, split, findall): after an empty match the
    /// next one may not be empty at the same place, but may start there.
    template <class OnMatch>
    void scan(const Regex& re, std::string_view subject, std::size_t limit, OnMatch&& on_match) const {
        ThreadState& ts = thread_state();
        ts.prepare(pairs);
        std::size_t pos = 0, n = 0;
        std::uint32_t match_options = 0;
        while ((limit == 0 || n < limit) && pos <= subject.size()) {
            const int rc = run(re, search, subject, pos, match_options, ts);
            if (rc == 0) break;
            const PCRE2_SIZE* ov = pcre2_get_ovector_pointer(ts.data);
            on_match(ov, rc);
            ++n;
            match_options = ov[0] == ov[1] ? PCRE2_NOTEMPTY_ATSTART : 0;
            pos = ov[1];
        }
    }
};

// ----------------------------------------------------------------- Match

bool Match::has(std::size_t index) const {
    return index < spans_.size() && spans_[index].first != std::string::npos;
}

std::pair<std::size_t, std::size_t> Match::span(std::size_t index) const {
    if (index >= spans_.size()) throw ValueError("no such group: " + std::to_string(index));
    return spans_[index];
}

std::string Match::group(std::size_t index) const {
    const auto [b, e] = span(index);
    return b == std::string::npos ? std::string() : subject_.substr(b, e - b);
}

std::string Match::group(std::string_view name) const {
    for (const auto& [n, index] : names_) {
        if (n == name) return group(index);
    }
    throw ValueError("no such group: " + std::string(name));
}

std::vector<std::pair<std::string, std::optional<std::string>>> Match::named() const {
    std::vector<std::pair<std::string, std::optional<std::string>>> out;
    out.reserve(names_.size());
    for (const auto& [name, index] : names_) {
        out.emplace_back(name, has(index) ? std::optional<std::string>(group(index)) : std::nullopt);
    }
    return out;
}

// ----------------------------------------------------------------- Regex

Regex::~Regex() = default;

RegexPtr Regex::compile(std::string_view pattern, unsigned flags) {
    flags &= IgnoreCase | Multiline | DotAll | Verbose;
    Cache& c = cache();
    {
        std::lock_guard lock(c.mutex);
        if (auto it = c.map.find(CacheKeyView{pattern, flags}); it != c.map.end()) return it->second;
    }

    // Compile outside the lock; a racing thread's result wins if it got there first.
    std::shared_ptr<Regex> re(new Regex());
    re->pattern_.assign(pattern);
    auto impl = std::make_unique<Impl>();
    impl->translation = Translator(pattern, (flags & Verbose) != 0, (flags & IgnoreCase) != 0).run();
    impl->options = kBaseOptions | ((flags & IgnoreCase) ? PCRE2_CASELESS : 0) |
                    ((flags & Multiline) ? PCRE2_MULTILINE : 0) | ((flags & DotAll) ? PCRE2_DOTALL : 0);
    impl->pairs = static_cast<std::uint32_t>(impl->translation.groups + 1);
    impl->search = compile_form(pattern, impl->translation, impl->translation.pattern, impl->options, 0);
    re->groups_ = impl->translation.groups;
    re->names_ = impl->translation.names;
    re->impl_ = std::move(impl);

    std::lock_guard lock(c.mutex);
    if (c.map.size() >= kCacheBound) c.map.clear();
    const auto [it, inserted] = c.map.try_emplace(CacheKey{std::string(pattern), flags}, std::move(re));
    return it->second;
}

void Regex::set_match_limit(std::uint32_t limit) { g_match_limit.store(limit, std::memory_order_relaxed); }

std::uint32_t Regex::match_limit() { return g_match_limit.load(std::memory_order_relaxed); }

std::size_t Regex::cache_size() {
    Cache& c = cache();
    std::lock_guard lock(c.mutex);
    return c.map.size();
}

std::optional<Match> Regex::match(std::string_view subject, std::size_t pos) const {
    ThreadState& ts = thread_state();
    ts.prepare(impl_->pairs);
    pos = std::min(pos, subject.size());
    const int rc = impl_->run(*this, impl_->anchored_form(*this), subject, pos, 0, ts);
    if (rc == 0) return std::nullopt;
    return impl_->make_match(*this, subject, rc, ts);
}

std::optional<Match> Regex::fullmatch(std::string_view subject, std::size_t pos) const {
    ThreadState& ts = thread_state();
    ts.prepare(impl_->pairs);
    const int rc = impl_->run(*this, impl_->full_form(*this), subject, std::min(pos, subject.size()), 0, ts);
    if (rc == 0) return std::nullopt;
    return impl_->make_match(*this, subject, rc, ts);
}

std::optional<Match> Regex::search(std::string_view subject, std::size_t pos) const {
    ThreadState& ts = thread_state();
    ts.prepare(impl_->pairs);
    const int rc = impl_->run(*this, impl_->search, subject, std::min(pos, subject.size()), 0, ts);
    if (rc == 0) return std::nullopt;
    return impl_->make_match(*this, subject, rc, ts);
}

bool Regex::matches(std::string_view subject) const {
    ThreadState& ts = thread_state();
    ts.prepare(impl_->pairs);
    return impl_->run(*this, impl_->anchored_form(*this), subject, 0, 0, ts) != 0;
}

bool Regex::found_in(std::string_view subject) const {
    ThreadState& ts = thread_state();
    ts.prepare(impl_->pairs);
    return impl_->run(*this, impl_->search, subject, 0, 0, ts) != 0;
}

std::string Regex::sub(std::string_view repl, std::string_view subject, std::size_t count) const {
    const bool plain = repl.find('\\') == std::string_view::npos;
    const std::vector<TemplatePart> parts = plain ? std::vector<TemplatePart>{} : parse_template(repl, *this);
    std::string out;
    out.reserve(subject.size());
    std::size_t last = 0;
    impl_->scan(*this, subject, count, [&](const PCRE2_SIZE* ov, int rc) {
        out.append(subject.substr(last, ov[0] - last));
        if (plain) {
            out.append(repl);
        } else {
            for (const TemplatePart& part : parts) {
                if (part.group < 0) {
                    out.append(part.literal);
                } else {
                    bool set = false;
                    out.append(ovector_group(subject, ov, rc, static_cast<std::size_t>(part.group), set));
                }
            }
        }
        last = ov[1];
    });
    out.append(subject.substr(last));
    return out;
}

std::vector<std::optional<std::string>> Regex::split(std::string_view subject, std::size_t maxsplit) const {
    std::vector<std::optional<std::string>> out;
    std::size_t last = 0;
    impl_->scan(*this, subject, maxsplit, [&](const PCRE2_SIZE* ov, int rc) {
        out.emplace_back(std::string(subject.substr(last, ov[0] - last)));
        for (std::size_t g = 1; g <= groups_; ++g) {
            bool set = false;
            const std::string_view text = ovector_group(subject, ov, rc, g, set);
            out.emplace_back(set ? std::optional<std::string>(std::string(text)) : std::nullopt);
        }
        last = ov[1];
    });
    out.emplace_back(std::string(subject.substr(last)));
    return out;
}

std::vector<std::string> Regex::findall(std::string_view subject) const {
    std::vector<std::string> out;
    impl_->scan(*this, subject, 0, [&](const PCRE2_SIZE* ov, int) {
        out.emplace_back(subject.substr(ov[0], ov[1] - ov[0]));
    });
    return out;
}

// ------------------------------------------------------- module helpers

std::string translate(std::string_view python_pattern) {
    return Translator(python_pattern, false, false).run().pattern;
}

std::optional<Match> match(std::string_view pattern, std::string_view subject, unsigned flags) {
    return Regex::compile(pattern, flags)->match(subject);
}

std::optional<Match> search(std::string_view pattern, std::string_view subject, unsigned flags) {
    return Regex::compile(pattern, flags)->search(subject);
}

std::optional<Match> fullmatch(std::string_view pattern, std::string_view subject, unsigned flags) {
    return Regex::compile(pattern, flags)->fullmatch(subject);
}

std::string sub(std::string_view pattern, std::string_view repl, std::string_view subject, std::size_t count,
                unsigned flags) {
    return Regex::compile(pattern, flags)->sub(repl, subject, count);
}

std::vector<std::optional<std::string>> split(std::string_view pattern, std::string_view subject,
                                              std::size_t maxsplit, unsigned flags) {
    return Regex::compile(pattern, flags)->split(subject, maxsplit);
}

std::string escape(std::string_view text) {
    static constexpr std::string_view kSpecial = "()[]{}?*+-|^$\\.&~# \t\n\r\v\f";
    std::string out;
    out.reserve(text.size() + text.size() / 4);
    for (char c : text) {
        if (kSpecial.find(c) != std::string_view::npos) out += '\\';
        out += c;
    }
    return out;
}

}  // namespace zerko::regex
