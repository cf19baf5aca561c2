#include "zerko/statistics/http.hpp"

#include <exception>

#include "zerko/file/json.hpp"
#include "zerko/foundation/assertions.hpp"
#include "zerko/foundation/logger.hpp"

namespace zerko::statistics {

Document HttpRequest::body() const {
    Document out = Document::object();
    out["username"] = username_;
    out["contents"] = contents_;
    return out;
}

std::string HttpRequest::text() const {
    Document data = body();
    return file::Json::dumps_line(foundation::Assert::Json::clean(data));
}

HttpResponse::HttpResponse(const std::function<Document()>& read_status) {
    try {
        accepted_ = read_status() == 200;
    } catch (const std::exception&) {
        foundation::Logger::exception(std::current_exception());
        accepted_ = false;
    }
}

}  // namespace zerko::statistics
