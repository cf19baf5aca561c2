#pragma once
// The two messages of the statistics transfer. The connection, the path and
// the moment of sending belong to the host layer.
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "zerko/foundation/json_document.hpp"

namespace zerko::statistics {

using Document = JsonDocument;

/// The body sent to the server: {"username", "contents"} on one line.
class HttpRequest {
public:
    HttpRequest(std::string username, Document contents)
        : username_(std::move(username)), contents_(std::move(contents)) {}

    /// The one header of the request.
    static constexpr std::pair<std::string_view, std::string_view> header{"Content-type", "application/json"};

    const std::string& username() const noexcept { return username_; }
    /// The copy of the store's document: the four category lists and "version".
    const Document& contents() const noexcept { return contents_; }
    /// The body as JSON.
    Document body() const;
    /// The body as one line of JSON text, non-ASCII kept; encoded as UTF-8 it
    /// is also the bytes that are sent.
    std::string text() const;

private:
    std::string username_;
    Document contents_;
};

/// The server's answer: accepted when its status is 200; the body is not read.
class HttpResponse {
public:
    /// Reads the status through `read_status`. A failure there is logged as
    /// "{class name}: {error}" and refuses the response.
    explicit HttpResponse(const std::function<Document()>& read_status);
    explicit HttpResponse(int status) : accepted_(status == 200) {}

    bool accepted() const noexcept { return accepted_; }

private:
    bool accepted_ = false;
};

}  // namespace zerko::statistics
