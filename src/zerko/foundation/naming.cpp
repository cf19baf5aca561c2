#include "zerko/foundation/naming.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "zerko/foundation/errors.hpp"

namespace zerko::foundation {

std::string replace_all(std::string_view text, std::string_view from, std::string_view to) {
    if (from.empty()) return std::string(text);
    std::string out;
    out.reserve(text.size());
    std::size_t pos = 0;
    while (true) {
        const auto hit = text.find(from, pos);
        out.append(text.substr(pos, hit == std::string_view::npos ? std::string_view::npos : hit - pos));
        if (hit == std::string_view::npos) break;
        out.append(to);
        pos = hit + from.size();
    }
    return out;
}

// ---------------------------------------------------------------- format

namespace {

// Python's repr of a float: the shortest round-trip digits, in positional
// form for decimal exponents from -4 to 15 and in exponent form otherwise.
std::string float_repr(double d) {
    if (std::isnan(d)) return "nan";
    if (std::isinf(d)) return d < 0 ? "-inf" : "inf";
    std::array<char, 64> buf{};
    auto [end, ec] = std::to_chars(buf.data(), buf.data() + buf.size(), d, std::chars_format::scientific);
    const std::string sci(buf.data(), end);
    const auto e = sci.find('e');
    std::string mantissa = sci.substr(0, e);
    const int exponent = std::stoi(sci.substr(e + 1));
    const bool negative = mantissa.front() == '-';
    if (negative) mantissa.erase(0, 1);
    std::string digits;
    for (char c : mantissa) {
        if (c != '.') digits.push_back(c);
    }
    std::string out;
    if (exponent >= -4 && exponent < 16) {
        if (exponent < 0) {
            out = "0." + std::string(static_cast<std::size_t>(-exponent - 1), '0') + digits;
        } else if (static_cast<std::size_t>(exponent) + 1 >= digits.size()) {
            out = digits + std::string(exponent + 1 - digits.size(), '0') + ".0";
        } else {
            out = digits.substr(0, exponent + 1) + "." + digits.substr(exponent + 1);
        }
    } else {
        out = digits.substr(0, 1);
        if (digits.size() > 1) out += "." + digits.substr(1);
        const int a = exponent < 0 ? -exponent : exponent;
        out += std::string(exponent < 0 ? "e-" : "e+") + (a < 10 ? "0" : "") + std::to_string(a);
    }
    return negative ? "-" + out : out;
}

std::string render(const FormatArg& arg) {
    if (const auto* s = std::get_if<std::string>(&arg)) return *s;
    if (const auto* i = std::get_if<std::int64_t>(&arg)) return std::to_string(*i);
    return float_repr(std::get<double>(arg));
}

std::string render_field(const FormatArg& arg, std::string_view field_format) {
    if (field_format.empty()) return render(arg);
    // Supported: "0<width>d" and "<width>d" (zero padding or blank padding).
    if (field_format.back() != 'd') throw ValueError("unsupported format field: " + std::string(field_format));
    const auto* value = std::get_if<std::int64_t>(&arg);
    if (!value) throw ValueError("Unknown format code 'd' for object of another type");
    const bool zero = field_format.front() == '0';
    std::size_t width = 0;
    const auto digits = field_format.substr(zero ? 1 : 0, field_format.size() - (zero ? 2 : 1));
    if (!digits.empty()) std::from_chars(digits.data(), digits.data() + digits.size(), width);
    std::string text = std::to_string(*value < 0 ? -*value : *value);
    const std::string sign = *value < 0 ? "-" : "";
    if (text.size() + sign.size() < width) {
        const std::size_t pad = width - text.size() - sign.size();
        return zero ? sign + std::string(pad, '0') + text : std::string(pad, ' ') + sign + text;
    }
    return sign + text;
}

}  // namespace

std::string format(std::string_view templ, std::span<const FormatArg> args) {
    std::string out;
    out.reserve(templ.size() + 16);
    std::size_t next = 0;
    for (std::size_t i = 0; i < templ.size(); ++i) {
        const char c = templ[i];
        if (c == '{') {
            if (i + 1 < templ.size() && templ[i + 1] == '{') { out.push_back('{'); ++i; continue; }
            const auto close = templ.find('}', i);
            if (close == std::string_view::npos) throw ValueError("Single '{' encountered in format string");
            const auto field = templ.substr(i + 1, close - i - 1);
            const auto colon = field.find(':');
            if (colon != 0 && !field.empty()) throw ValueError("only automatic field numbering is supported");
            if (next >= args.size()) throw ValueError("Replacement index out of range for positional args");
            out += render_field(args[next++], colon == std::string_view::npos ? std::string_view{} : field.substr(1));
            i = close;
        } else if (c == '}') {
            if (i + 1 < templ.size() && templ[i + 1] == '}') { out.push_back('}'); ++i; continue; }
            throw ValueError("Single '}' encountered in format string");
        } else {
            out.push_back(c);
        }
    }
    return out;
}

// ---------------------------------------------------------------- Naming

bool Naming::is_attribute(std::string_view name) {
    // `$` in Python also matches before one final line feed.
    if (!name.empty() && name.back() == '\n') name.remove_suffix(1);
    if (name.empty()) return false;
    for (char c : name) {
        const bool ok = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
        if (!ok) return false;
    }
    return !(name.front() >= '0' && name.front() <= '9');
}

bool Naming::is_private(std::string_view name) {
    return name.size() > 2 && name.substr(0, 2) == "__" && name[2] != '\n';
}

namespace {

bool is_space(char32_t c) {
    return (c >= 0x09 && c <= 0x0D) || (c >= 0x1C && c <= 0x20) || c == 0x85 || c == 0xA0 ||
           c == 0x1680 || (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 ||
           c == 0x202F || c == 0x205F || c == 0x3000;
}

// Lower-casing for what can survive the transliteration: ASCII, Cyrillic and
// the two characters outside them whose lower case contains an ASCII letter.
void append_lower(std::u32string& out, char32_t c) {
    if (c >= 'A' && c <= 'Z') out.push_back(c + 32);
    else if (c >= 0x410 && c <= 0x42F) out.push_back(c + 0x20);
    else if (c >= 0x400 && c <= 0x40F) out.push_back(c + 0x50);
    else if (c == 0x130) { out.push_back('i'); out.push_back(0x307); }
    else if (c == 0x212A) out.push_back('k');
    else out.push_back(c);
}

bool is_letter(char32_t c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= 0xC0 && c <= 0x24F && c != 0xD7 && c != 0xF7) ||
           (c >= 0x370 && c <= 0x3FF) || (c >= 0x400 && c <= 0x52F);
}

std::string_view transliteration(char32_t c) {
    switch (c) {
        case 1072: return "a";  case 1074: return "b";  case 1075: return "g";
        case 1076: return "d";  case 1077: return "e";  case 1079: return "z";
        case 1080: return "i";  case 1081: return "i";  case 1082: return "k";
        case 1083: return "l";  case 1084: return "m";  case 1085: return "n";
        case 1086: return "o";  case 1087: return "p";  case 1088: return "r";
        case 1089: return "s";  case 1090: return "t";  case 1091: return "u";
        case 1092: return "f";  case 1094: return "ts"; case 1095: return "ch";
        case 1096: return "sh"; case 1097: return "sh"; case 1099: return "y";
        case 1100: return "";   case 1103: return "ia"; case 1105: return "io";
        case 95: return " ";    case 45: return "_";    case 46: return " ";
        default: return {};
    }
}

bool has_transliteration(char32_t c) {
    return (c >= 1072 && c <= 1105 && !transliteration(c).empty()) || c == 1100 || c == 95 || c == 45 || c == 46;
}

}  // namespace

std::string Naming::force_ascii(std::string_view name, bool title) {
    const std::u32string input = decode_utf8(name);
    std::u32string text;
    text.reserve(input.size());
    for (char32_t c : input) append_lower(text, c);
    std::size_t b = 0, e = text.size();
    while (b < e && is_space(text[b])) ++b;
    while (e > b && is_space(text[e - 1])) --e;

    std::u32string mapped;
    for (std::size_t i = b; i < e; ++i) {
        const char32_t c = text[i];
        if (has_transliteration(c)) {
            for (char ch : transliteration(c)) mapped.push_back(static_cast<unsigned char>(ch));
        } else {
            mapped.push_back(c);
        }
    }
    if (title) {
        bool previous_letter = false;
        for (char32_t& c : mapped) {
            const bool letter = is_letter(c);
            if (letter && !previous_letter && c >= 'a' && c <= 'z') c -= 32;
            else if (letter && previous_letter && c >= 'A' && c <= 'Z') c += 32;
            previous_letter = letter;
        }
    }
    std::string out;
    for (char32_t c : mapped) {
        if (c == ' ') c = '_';
        if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_') {
            out.push_back(static_cast<char>(c));
        }
    }
    return out;
}

std::string Naming::char_filter(std::string_view text, std::span<const Range> ranges) {
    std::string out;
    for (char32_t c : decode_utf8(text)) {
        for (const auto& [from, to] : ranges) {
            if (from <= c && c <= to) {
                append_utf8(out, c);
                break;
            }
        }
    }
    return out;
}

std::string Naming::latin_filter(std::string_view text) {
    static constexpr std::array<Range, 1> ranges{{{32, 126}}};
    return char_filter(text, ranges);
}

std::string Naming::en_ru_filter(std::string_view text) {
    static constexpr std::array<Range, 4> ranges{{{32, 126}, {1025, 1025}, {1040, 1103}, {1105, 1105}}};
    return char_filter(text, ranges);
}

std::string Naming::space_filter(std::string_view text) { return strip(text, " "); }

std::string Naming::ghost_filter(std::string_view text) { return replace_all(text, "ghost", ""); }

std::string Naming::strip(std::string_view name, std::string_view chars) {
    const std::u32string set = decode_utf8(chars);
    const std::u32string text = decode_utf8(name);
    std::size_t b = 0, e = text.size();
    auto in_set = [&](char32_t c) { return set.find(c) != std::u32string::npos; };
    while (b < e && in_set(text[b])) ++b;
    while (e > b && in_set(text[e - 1])) --e;
    return encode_utf8(std::u32string_view(text).substr(b, e - b));
}

// ---------------------------------------------------------------- NamesControl

void NamesControl::rename(std::string_view remove_name, std::string_view append_name) {
    remove(remove_name);
    append(append_name);
}

std::string NamesControl::get_init(std::string_view name) const {
    return exists(name) ? get_next(name) : std::string(name);
}

std::vector<std::string> NamesControl::get_alike(std::string_view name) const {
    std::vector<std::string> out;
    for (const auto& stored : names_) {
        if (stored.find(name) != std::string::npos) out.push_back(stored);
    }
    return out;
}

std::string NamesControl::get_next(std::string_view name) const {
    if (name.empty()) throw ValueError("empty separator");
    std::uint64_t index = 0;
    for (const auto& stored : get_alike(name)) {
        // What stands behind the last of the non-overlapping occurrences of
        // `name`, scanning from the left as a split does.
        std::size_t end = 0;
        for (auto hit = stored.find(name); hit != std::string::npos; hit = stored.find(name, end)) {
            end = hit + name.size();
        }
        const std::string_view tail = std::string_view(stored).substr(end);
        if (tail.empty() || !std::all_of(tail.begin(), tail.end(), [](char c) { return c >= '0' && c <= '9'; })) {
            continue;
        }
        std::uint64_t number = 0;
        std::from_chars(tail.data(), tail.data() + tail.size(), number);
        index = std::max(index, number + 1);
    }
    return std::string(name) + std::to_string(index);
}

}  // namespace zerko::foundation
