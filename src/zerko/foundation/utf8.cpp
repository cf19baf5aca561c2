#include "zerko/foundation/utf8.hpp"

namespace zerko::foundation {

namespace {

/// Reads one well-formed sequence at `i`; returns its length, 0 when ill-formed.
std::size_t read_sequence(std::string_view s, std::size_t i, char32_t& out) noexcept {
    static constexpr char32_t kMinimum[] = {0, 0, 0x80, 0x800, 0x10000};
    const auto b = static_cast<unsigned char>(s[i]);
    char32_t c;
    std::size_t n;
    if (b < 0x80) {
        out = b;
        return 1;
    } else if ((b & 0xE0) == 0xC0) {
        c = b & 0x1F, n = 2;
    } else if ((b & 0xF0) == 0xE0) {
        c = b & 0x0F, n = 3;
    } else if ((b & 0xF8) == 0xF0) {
        c = b & 0x07, n = 4;
    } else {
        return 0;
    }
    if (i + n > s.size()) return 0;
    for (std::size_t k = 1; k < n; ++k) {
        if (!is_utf8_continuation(s[i + k])) return 0;
        c = (c << 6) | (static_cast<unsigned char>(s[i + k]) & 0x3F);
    }
    if (c < kMinimum[n] || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return 0;
    out = c;
    return n;
}

}  // namespace

std::u32string decode_utf8(std::string_view text) {
    std::u32string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        char32_t c = 0;
        const std::size_t n = read_sequence(text, i, c);
        out.push_back(n == 0 ? U'\uFFFD' : c);
        i += n == 0 ? 1 : n;
    }
    return out;
}

bool decode_utf8_strict(std::string_view text, std::u32string& out, std::size_t& bad) {
    out.clear();
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        char32_t c = 0;
        const std::size_t n = read_sequence(text, i, c);
        if (n == 0) {
            bad = i;
            return false;
        }
        out.push_back(c);
        i += n;
    }
    return true;
}

void append_utf8(std::string& out, char32_t cp) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

std::string encode_utf8(std::u32string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char32_t cp : text) append_utf8(out, cp);
    return out;
}

std::size_t utf8_length(std::string_view text, std::size_t bytes) noexcept {
    std::size_t n = 0;
    for (std::size_t i = 0; i < bytes && i < text.size(); ++i) n += !is_utf8_continuation(text[i]);
    return n;
}

std::size_t utf8_char_start(std::string_view text, std::size_t at) noexcept {
    if (at >= text.size()) return at;
    while (at > 0 && is_utf8_continuation(text[at])) --at;
    return at;
}

}  // namespace zerko::foundation
