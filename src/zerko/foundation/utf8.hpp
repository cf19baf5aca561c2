#pragma once
// The one UTF-8 codec of the library. Text is UTF-8 `std::string` everywhere;
// these helpers decode it where code points matter (name filters, regular
// expressions) and count characters where positions are reported the way
// Python reports them.
#include <cstddef>
#include <string>
#include <string_view>

namespace zerko::foundation {

/// Whether `byte` continues a multi-byte sequence (10xxxxxx).
constexpr bool is_utf8_continuation(char byte) noexcept {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

/// Decodes UTF-8 to code points; an ill-formed byte becomes U+FFFD.
std::u32string decode_utf8(std::string_view text);

/// Strict decoding: false for ill-formed text (overlong forms, surrogates,
/// values above U+10FFFF and truncated sequences included), with `bad` the
/// byte offset of the first bad sequence.
bool decode_utf8_strict(std::string_view text, std::u32string& out, std::size_t& bad);

/// Encodes code points as UTF-8.
std::string encode_utf8(std::u32string_view text);
void append_utf8(std::string& out, char32_t code_point);

/// Number of characters that start in the first `bytes` bytes of `text`.
std::size_t utf8_length(std::string_view text, std::size_t bytes = std::string_view::npos) noexcept;

/// The offset of the first byte of the character that holds byte `at`
/// (`at` itself when it starts a character or lies past the end).
std::size_t utf8_char_start(std::string_view text, std::size_t at) noexcept;

}  // namespace zerko::foundation
