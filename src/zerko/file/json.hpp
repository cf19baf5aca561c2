#pragma once
// The single place where the system reads and writes JSON files. Reading and
// writing take no lock by themselves: files shared between processes are
// opened through Json::AccessQueue (access_queue.hpp).
#include <cstddef>
#include <string>
#include <string_view>

#include "zerko/foundation/json_document.hpp"

#include "zerko/foundation/errors.hpp"

namespace zerko::file {

using Document = JsonDocument;

/// Text encoding of every JSON file and wire body.
inline constexpr std::string_view encoding = "utf-8";

/// A file whose content is not JSON (Python: json.JSONDecodeError, a
/// ValueError). Carries the text and the character offset of the failure.
class JsonDecodeError : public ValueError {
public:
    JsonDecodeError(std::string message, std::string document, std::size_t position);
    const char* class_name() const noexcept override { return "JSONDecodeError"; }
    /// The reason alone, without the position.
    const std::string& message() const noexcept { return message_; }
    const std::string& document() const noexcept { return document_; }
    /// Offset of the failure in characters (code points), as Python counts.
    std::size_t position() const noexcept { return position_; }

private:
    std::string message_;
    std::string document_;
    std::size_t position_;
};

struct Json {
    /// Parses the whole file at `path` as UTF-8 JSON. A missing file raises
    /// FileNotFoundError, text that is not JSON JsonDecodeError.
    static Document read(const std::string& path);
    /// Parses JSON text with the rules of `read` (no byte order mark).
    static Document parse(std::string_view text);
    /// Writes `data` to `path` (truncating) with an indent of 2 and non-ASCII
    /// characters as they are. The value is cleaned and serialised before the
    /// file is opened, so a failure there leaves the file untouched. There is
    /// no temporary file: a crash mid-write leaves a truncated file, which
    /// readers treat as corrupted.
    static void write(const std::string& path, Document data);
    /// The text `write` puts in a file.
    static std::string dumps(const Document& data);
    /// One line, with ", " and ": " between items and non-ASCII characters as
    /// they are: the form of request bodies, as Python's json.dumps gives it.
    static std::string dumps_line(const Document& data);

    class AccessQueue;
};

// Reading one key of a stored document with a fixed fallback. A key that is
// absent, a document that is no object, or a value of another kind all give
// the fallback: a damaged file must not stop the program.
bool read_bool(const Document& object, const char* key, bool fallback);
int read_int(const Document& object, const char* key, int fallback);
std::string read_text(const Document& object, const char* key, std::string_view fallback);
/// The object under `key`, or an empty object.
Document read_section(const Document& data, const char* key);

}  // namespace zerko::file
