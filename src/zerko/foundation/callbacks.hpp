#pragma once
// Named events that tell the host's user interface what happened. The host
// registers functions; the library fires the events on the caller's thread.
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "zerko/foundation/json_document.hpp"

namespace zerko::foundation {

/// Arguments of one firing, as JSON so that any face can convert them: the
/// positional ones in an array, the keyword ones in an object.
struct CallArgs {
    JsonDocument positional = JsonDocument::array();
    JsonDocument keyword = JsonDocument::object();
};

/// One registered function. Identity decides "already registered".
class Callback {
public:
    virtual ~Callback() = default;
    virtual void call(const CallArgs& args) = 0;
    /// The object that identifies the function (the Python callable, say).
    virtual const void* identity() const noexcept = 0;
};

/// Wraps a C++ function; `key` identifies it for register/delete.
std::shared_ptr<Callback> make_callback(std::function<void(const CallArgs&)> function, const void* key);

class CallBacks {
public:
    class List {
    public:
        /// Calls every function in order; an error in one is logged and the
        /// next is still called. Firing never raises.
        void operator()(const CallArgs& args = {}) const;
        /// The same walk with a caller's own way of calling each function, for
        /// a face that hands its own objects to functions of its own kind.
        void fire(const std::function<void(Callback&)>& invoke) const;
        /// Appends `function` unless null or already registered.
        void register_(std::shared_ptr<Callback> function);
        /// Removes the function with the identity of `key` when it is there.
        void delete_(const void* key);
        void clear();
        std::size_t size() const noexcept { return array_.size(); }
        bool contains(const void* key) const;
        const std::vector<std::shared_ptr<Callback>>& functions() const noexcept { return array_; }

    private:
        std::vector<std::shared_ptr<Callback>> array_;
    };

    List empty_scan_selection;
    List used_scan_selection;
    List empty_scan_result;
    List lost_export_directory;
    List empty_export_selection;
    List export_skipped;
    List export_success;
    List projects_synchronized;
    List projects_response_closed;
    List projects_saved;
    List buffer_loaded;
    List http_no_response;

    /// The event names in their fixed order.
    static const std::vector<std::string_view>& names();
    /// The list of an event by name; nullptr for an unknown name.
    List* find(std::string_view name);

    /// Clears every list.
    void clear();
};

}  // namespace zerko::foundation
