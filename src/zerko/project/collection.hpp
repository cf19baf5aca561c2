#pragma once
// The projects of one directory and one target: found on disk, handed out,
// saved, erased, and kept in step with the server of a team.
//
// Project exchange: the request body is {"target", "projects": [project...]}
// on one line, each project being its document with "edit_timestamp"; the
// server answers a JSON list of such projects, which is the full truth of
// what exists. The connection belongs to the host layer.
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zerko/foundation/callbacks.hpp"
#include "zerko/project/settings.hpp"

namespace zerko::project {

class Collection {
public:
    class HttpRequest;
    class HttpResponse;
    class Iteration;

    /// Loads the projects of `target` from `directory`. Saving a project
    /// fires `callbacks.projects_saved`; the callbacks must outlive the
    /// collection.
    Collection(foundation::CallBacks& callbacks, std::string directory, std::string target);
    ~Collection();
    Collection(const Collection&) = delete;
    Collection& operator=(const Collection&) = delete;

    const std::string& target() const noexcept { return target_; }
    const std::string& directory() const noexcept { return directory_; }

    /// Names of the projects that are not deleted, sorted.
    std::vector<std::string> names();
    /// Projects that are not deleted, by name and then edit time.
    std::vector<Header> headers();
    /// The shared project of that file name, read again first when its file
    /// has grown; a new empty project when there is none.
    std::shared_ptr<Settings> get(const std::string& filename);
    /// Writes the project, takes it into the table and fires `projects_saved`.
    void save_project(const std::shared_ptr<Settings>& settings);
    /// Whether a project belongs here: same target and a version of 0 or more.
    bool is_approved(const Settings* settings) const;
    /// The path of the first project of that name, deleted ones included.
    std::optional<std::string> get_file(const std::string& name);
    /// A new project of this directory and target, without a file name.
    std::shared_ptr<Settings> get_empty();
    /// Every project of the table, deleted ones included, for the server.
    HttpRequest create_http_request();
    /// Saves the projects that are newer than the local ones, keeps the
    /// others, and erases every local project that `projects` does not name.
    /// Only for an accepted response: an empty list erases every project.
    /// Anything but a list, or an element that is no object, raises TypeError
    /// (elements before it have been taken) and erases nothing.
    void accept_http_response(const Document& projects);

    /// Paths and projects of the table, in order of loading.
    std::vector<std::pair<std::string, std::shared_ptr<Settings>>> table();

    /// The link that projects keep to their collection; it reads null once
    /// the collection is gone.
    const std::shared_ptr<Collection*>& link() const noexcept { return link_; }

private:
    friend class Iteration;
    void load();
    void load_file(const std::string& json_path);
    void store(const std::string& path, std::shared_ptr<Settings> settings);
    void erase_project(const std::string& path);
    std::shared_ptr<Settings> find(const std::string& filename);

    foundation::CallBacks& callbacks_;
    std::string target_;
    std::mutex mutex_edit_;
    std::string directory_;
    std::vector<std::pair<std::string, std::shared_ptr<Settings>>> table_;
    std::shared_ptr<Collection*> link_;
};

/// A walk over the projects present at its first step, in order of loading;
/// a project erased meanwhile is skipped. The collection's lock is held only
/// within each step, so the walker may use the collection between steps.
class Collection::Iteration {
public:
    explicit Iteration(Collection& collection) : collection_(collection) {}
    /// The next project, or null at the end.
    std::shared_ptr<Settings> next();

private:
    Collection& collection_;
    std::vector<std::string> keys_;
    std::size_t index_ = 0;
    bool started_ = false;
};

/// The body of the project exchange.
class Collection::HttpRequest {
public:
    HttpRequest(std::string target, Document projects) : target_(std::move(target)), projects_(std::move(projects)) {}

    /// The one header of the request.
    static constexpr std::pair<std::string_view, std::string_view> header{"Content-type", "application/json"};

    const std::string& target() const noexcept { return target_; }
    /// Project documents, each with its "edit_timestamp".
    const Document& projects() const noexcept { return projects_; }
    /// {"target", "projects"}.
    Document body() const;
    /// The body as one line of JSON, non-ASCII kept; encoded as UTF-8 it is
    /// also the bytes that are sent.
    std::string text() const;

private:
    std::string target_;
    Document projects_;
};

/// The server's answer, accepted when its content type is exactly
/// "application/json" (a charset suffix is refused) and its body is JSON.
class Collection::HttpResponse {
public:
    /// How the platform's response is read: the value of a header (null
    /// when it is not text) and the whole body.
    using GetHeader = std::function<std::optional<std::string>(std::string_view name, std::string_view fallback)>;
    using Read = std::function<std::string()>;

    /// Reads the response. Any failure is logged as "{class name}: {error}"
    /// and gives an empty object that is not accepted.
    HttpResponse(const GetHeader& getheader, const Read& read);

    static constexpr std::pair<std::string_view, std::string_view> header = HttpRequest::header;

    /// The projects the server answered; an empty list for a refused type.
    const Document& projects() const noexcept { return projects_; }
    bool accepted() const noexcept { return accepted_; }
    bool operator==(const HttpResponse& other) const { return projects_ == other.projects_; }

private:
    Document content(const GetHeader& getheader, const Read& read);

    bool accepted_ = false;
    Document projects_;
};

}  // namespace zerko::project
