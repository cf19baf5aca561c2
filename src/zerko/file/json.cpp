#include "zerko/file/json.hpp"

#include <cerrno>
#include <cstdio>
#include <limits>
#include <memory>

#include "zerko/file/utilities.hpp"
#include "zerko/foundation/assertions.hpp"
#include "zerko/foundation/utf8.hpp"

namespace zerko::file {

namespace {

// Python counts offsets in code points, the parser in bytes.
std::size_t characters_before(std::string_view text, std::size_t bytes) {
    return foundation::utf8_length(text, bytes);
}

std::string position_text(const std::string& message, const std::string& document, std::size_t position) {
    std::size_t line = 1;
    std::size_t column = 1;
    std::size_t seen = 0;
    for (std::size_t i = 0; i < document.size() && seen < position; ++i) {
        const char c = document[i];
        if (foundation::is_utf8_continuation(c)) continue;
        ++seen;
        if (c == '\n') {
            ++line;
            column = 1;
        } else {
            ++column;
        }
    }
    return message + ": line " + std::to_string(line) + " column " + std::to_string(column) + " (char " +
           std::to_string(position) + ")";
}

// The parser's text carries its own id and position; keep only the reason.
std::string reason(const std::string& what) {
    std::string text = what;
    if (auto close = text.find("] "); text.rfind("[json.exception.", 0) == 0 && close != std::string::npos) {
        text.erase(0, close + 2);
    }
    if (text.rfind("parse error", 0) == 0) {
        if (auto colon = text.find(": "); colon != std::string::npos) text.erase(0, colon + 2);
    }
    return text;
}

// Refuses text that nests arrays and objects deeper than the library's limit,
// before the parser builds anything. Brackets inside strings do not count.
void check_depth(std::string_view text) {
    std::size_t depth = 0;
    bool in_string = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (in_string) {
            if (c == '\\') ++i;
            else if (c == '"') in_string = false;
            continue;
        }
        if (c == '"') {
            in_string = true;
        } else if (c == '[' || c == '{') {
            if (++depth > json_depth_limit) {
                throw JsonDecodeError("Nesting deeper than " + std::to_string(json_depth_limit) + " levels",
                                      std::string(text), characters_before(text, i));
            }
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
}

struct FileCloser {
    void operator()(std::FILE* f) const noexcept { std::fclose(f); }
};
using FileHandle = std::unique_ptr<std::FILE, FileCloser>;

}  // namespace

JsonDecodeError::JsonDecodeError(std::string message, std::string document, std::size_t position)
    : ValueError(position_text(message, document, position)),
      message_(std::move(message)),
      document_(std::move(document)),
      position_(position) {}

Document Json::parse(std::string_view text) {
    // Python's reader refuses a byte order mark in UTF-8 text; so do we, so
    // that both faces judge a file alike.
    if (text.size() >= 3 && text.substr(0, 3) == "\xEF\xBB\xBF") {
        throw JsonDecodeError("Unexpected UTF-8 BOM (decode using utf-8-sig)", std::string(text), 0);
    }
    check_depth(text);
    try {
        return Document::parse(text);
    } catch (const nlohmann::json::parse_error& e) {
        const std::size_t byte = e.byte > 0 ? e.byte - 1 : 0;
        throw JsonDecodeError(reason(e.what()), std::string(text), characters_before(text, byte));
    }
}

Document Json::read(const std::string& path) {
    assert_path(path);
    errno = 0;
    FileHandle f(std::fopen(path.c_str(), "rb"));
    if (!f) throw FileNotFoundError(errno ? errno : ENOENT, path);
    std::string text;
    char buffer[1 << 14];
    std::size_t n = 0;
    while ((n = std::fread(buffer, 1, sizeof buffer, f.get())) > 0) text.append(buffer, n);
    if (std::ferror(f.get())) throw FileNotFoundError(errno ? errno : EIO, path);
    return parse(text);
}

std::string Json::dumps(const Document& data) {
    return data.dump(2, ' ', false, Document::error_handler_t::replace);
}

std::string Json::dumps_line(const Document& data) {
    std::string out;
    auto scalar = [&out](const Document& value) {
        out += value.dump(-1, ' ', false, Document::error_handler_t::replace);
    };
    auto line = [&](auto&& self, const Document& value) -> void {
        if (value.is_object()) {
            out.push_back('{');
            bool first = true;
            for (const auto& [key, item] : value.items()) {
                if (!first) out += ", ";
                first = false;
                scalar(Document(key));
                out += ": ";
                self(self, item);
            }
            out.push_back('}');
        } else if (value.is_array()) {
            out.push_back('[');
            bool first = true;
            for (const auto& item : value) {
                if (!first) out += ", ";
                first = false;
                self(self, item);
            }
            out.push_back(']');
        } else {
            scalar(value);
        }
    };
    line(line, data);
    return out;
}

void Json::write(const std::string& path, Document data) {
    assert_path(path);
    const std::string text = dumps(foundation::Assert::Json::clean(data));
    errno = 0;
    FileHandle f(std::fopen(path.c_str(), "wb"));
    if (!f) throw FileNotFoundError(errno ? errno : ENOENT, path);
    if (std::fwrite(text.data(), 1, text.size(), f.get()) != text.size()) {
        throw FileNotFoundError(errno ? errno : EIO, path);
    }
    std::FILE* raw = f.release();
    if (std::fclose(raw) != 0) throw FileNotFoundError(errno ? errno : EIO, path);
}

namespace {
const Document* find_key(const Document& object, const char* key) {
    if (!object.is_object()) return nullptr;
    const auto it = object.find(key);
    return it == object.end() ? nullptr : &*it;
}
}  // namespace

bool read_bool(const Document& object, const char* key, bool fallback) {
    const auto* value = find_key(object, key);
    return value && value->is_boolean() ? value->get<bool>() : fallback;
}

int read_int(const Document& object, const char* key, int fallback) {
    const auto* value = find_key(object, key);
    if (!value || !value->is_number_integer()) return fallback;
    const auto n = value->get<std::int64_t>();
    if (n < std::numeric_limits<int>::min() || n > std::numeric_limits<int>::max()) return fallback;
    return static_cast<int>(n);
}

std::string read_text(const Document& object, const char* key, std::string_view fallback) {
    const auto* value = find_key(object, key);
    return value && value->is_string() ? value->get<std::string>() : std::string(fallback);
}

Document read_section(const Document& data, const char* key) {
    const auto* value = find_key(data, key);
    return value && value->is_object() ? *value : Document::object();
}

}  // namespace zerko::file
