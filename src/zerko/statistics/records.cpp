#include "zerko/statistics/records.hpp"

#include "zerko/foundation/uuid.hpp"

namespace zerko::statistics::type {

Document Record::data() const { return Document{{"timestamp", foundation::wall_time()}}; }

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
