#include "zerko/statistics/records.hpp"

#include <chrono>

namespace zerko::statistics::type {

double now() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

Document Record::data() const { return Document{{"timestamp", now()}}; }

Document Validate::data() const {
    Document out = Document::object();
    out["project"] = project_ ? Document(*project_) : Document(nullptr);
    out["timestamp"] = timestamp_;
    out["speed"] = speed_;
    return out;
}

Document Checks::data() const {
    Document out = Document::object();
    out["name"] = name_;
    out["result"] = result_;
    out["timestamp"] = timestamp_;
    out["speed"] = speed_;
    return out;
}

}  // namespace zerko::statistics::type
