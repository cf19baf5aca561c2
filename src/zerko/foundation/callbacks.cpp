#include "zerko/foundation/callbacks.hpp"

#include <algorithm>

#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/logger.hpp"

namespace zerko::foundation {

namespace {
class FunctionCallback final : public Callback {
public:
    FunctionCallback(std::function<void(const CallArgs&)> f, const void* key) : f_(std::move(f)), key_(key) {}
    void call(const CallArgs& args) override { f_(args); }
    const void* identity() const noexcept override { return key_; }

private:
    std::function<void(const CallArgs&)> f_;
    const void* key_;
};
}  // namespace

std::shared_ptr<Callback> make_callback(std::function<void(const CallArgs&)> function, const void* key) {
    if (!function) return nullptr;
    return std::make_shared<FunctionCallback>(std::move(function), key);
}

void CallBacks::List::operator()(const CallArgs& args) const {
    fire([&args](Callback& f) { f.call(args); });
}

void CallBacks::List::fire(const std::function<void(Callback&)>& invoke) const {
    // A copy, so that a function may register or delete while the event fires.
    const auto functions = array_;
    for (const auto& f : functions) {
        try {
            invoke(*f);
        } catch (const std::exception&) {
            Logger::exception(describe(std::current_exception()).text);
        }
    }
}

bool CallBacks::List::contains(const void* key) const {
    return std::any_of(array_.begin(), array_.end(), [&](const auto& f) { return f->identity() == key; });
}

void CallBacks::List::register_(std::shared_ptr<Callback> function) {
    if (function && !contains(function->identity())) array_.push_back(std::move(function));
}

void CallBacks::List::delete_(const void* key) {
    auto it = std::find_if(array_.begin(), array_.end(), [&](const auto& f) { return f->identity() == key; });
    if (it != array_.end()) array_.erase(it);
}

void CallBacks::List::clear() {
    while (!array_.empty()) array_.pop_back();
}

const std::vector<std::string_view>& CallBacks::names() {
    static const std::vector<std::string_view> list{
        "empty_scan_selection", "used_scan_selection", "empty_scan_result", "lost_export_directory",
        "empty_export_selection", "export_skipped", "export_success", "projects_synchronized",
        "projects_response_closed", "projects_saved", "buffer_loaded", "http_no_response"};
    return list;
}

CallBacks::List* CallBacks::find(std::string_view name) {
    List* lists[] = {&empty_scan_selection, &used_scan_selection, &empty_scan_result, &lost_export_directory,
                     &empty_export_selection, &export_skipped, &export_success, &projects_synchronized,
                     &projects_response_closed, &projects_saved, &buffer_loaded, &http_no_response};
    const auto& n = names();
    for (std::size_t i = 0; i < n.size(); ++i) {
        if (n[i] == name) return lists[i];
    }
    return nullptr;
}

void CallBacks::clear() {
    for (auto name : names()) find(name)->clear();
}

}  // namespace zerko::foundation
