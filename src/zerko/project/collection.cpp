#include "zerko/project/collection.hpp"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <unordered_set>

#include "zerko/file/access_queue.hpp"
#include "zerko/file/utilities.hpp"
#include "zerko/foundation/assertions.hpp"
#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/logger.hpp"
#include "zerko/foundation/naming.hpp"
#include "zerko/foundation/paths.hpp"

namespace zerko::project {

using foundation::Logger;
namespace fs = std::filesystem;

Collection::Collection(foundation::CallBacks& callbacks, std::string directory, std::string target)
    : callbacks_(callbacks),
      target_(std::move(target)),
      directory_(std::move(directory)),
      link_(std::make_shared<Collection*>(this)) {
    load();
}

Collection::~Collection() { *link_ = nullptr; }

void Collection::load() {
    std::lock_guard lock(mutex_edit_);
    table_.clear();
    file::assert_path(directory_);
    std::error_code ec;
    fs::directory_iterator listing(directory_, ec);
    // A directory that cannot be listed is the host's misconfiguration:
    // it reaches the caller as the listing's own error.
    if (ec) throw FileNotFoundError(ec.value(), directory_);
    for (const auto& entry : listing) {
        const std::string name = entry.path().filename().string();
        // Marker files of the access queue and the ".corrupted" directory
        // stand beside the projects; only ".json", case-sensitive, is read.
        if (file::split_extension(name).second != ".json") continue;
        load_file(foundation::path::join(directory_, name));
    }
}

void Collection::load_file(const std::string& json_path) {
    // One damaged project costs that project alone, never the collection.
    try {
        auto settings = Settings::init(this, json_path);
        const std::string& filename = settings->filename();
        if (!filename.empty() && !file::is_plain_filename(filename)) {
            Logger::warning(foundation::format("Project Skipped - {} names the file \"{}\"", {json_path, filename}));
            return;
        }
        if (is_approved(settings.get())) store(json_path, std::move(settings));
    } catch (const std::exception&) {
        Logger::error(foundation::format("Project Skipped - {}", {json_path}));
        Logger::exception(std::current_exception());
    }
}

void Collection::store(const std::string& path, std::shared_ptr<Settings> settings) {
    for (auto& [key, stored] : table_) {
        if (key == path) {
            stored = std::move(settings);
            return;
        }
    }
    table_.emplace_back(path, std::move(settings));
}

std::vector<std::pair<std::string, std::shared_ptr<Settings>>> Collection::table() {
    std::lock_guard lock(mutex_edit_);
    return table_;
}

std::vector<std::string> Collection::names() {
    std::lock_guard lock(mutex_edit_);
    std::vector<std::string> out;
    for (const auto& [path, settings] : table_) {
        if (!settings->deleted) out.push_back(settings->name());
    }
    std::sort(out.begin(), out.end());
    return out;
}

std::vector<Header> Collection::headers() {
    std::lock_guard lock(mutex_edit_);
    std::vector<Settings*> live;
    for (const auto& [path, settings] : table_) {
        if (!settings->deleted) live.push_back(settings.get());
    }
    std::stable_sort(live.begin(), live.end(), [](const Settings* a, const Settings* b) {
        if (a->name() != b->name()) return a->name() < b->name();
        return a->edit_timestamp < b->edit_timestamp;
    });
    std::vector<Header> out;
    out.reserve(live.size());
    for (const auto* settings : live) out.emplace_back(*settings);
    return out;
}

std::shared_ptr<Settings> Collection::find(const std::string& filename) {
    for (const auto& [path, settings] : table_) {
        if (settings->filename() == filename) return settings;
    }
    return nullptr;
}

std::shared_ptr<Settings> Collection::get(const std::string& filename) {
    {
        std::lock_guard lock(mutex_edit_);
        if (auto settings = find(filename)) {
            // Another process may have saved it since: a grown file is read again.
            if (settings->is_outdated()) settings->reload();
            return settings;
        }
    }
    return get_empty();
}

void Collection::save_project(const std::shared_ptr<Settings>& settings) {
    if (!settings) return;
    {
        std::lock_guard lock(mutex_edit_);
        const std::string path = settings->path();  // refuses a name that leaves the directory
        settings->write();
        store(path, settings);
    }
    callbacks_.projects_saved();
}

bool Collection::is_approved(const Settings* settings) const {
    return settings && settings->target() == target_ && settings->version >= 0;
}

std::optional<std::string> Collection::get_file(const std::string& name) {
    std::lock_guard lock(mutex_edit_);
    for (const auto& [path, settings] : table_) {
        if (settings->name() == name) return settings->path();
    }
    return std::nullopt;
}

std::shared_ptr<Settings> Collection::get_empty() {
    Document file_data = Document::object();
    file_data["version"] = Settings::current_version;
    file_data["target"] = target_;
    return std::make_shared<Settings>(this, directory_, std::string(), file_data);
}

Collection::HttpRequest Collection::create_http_request() {
    Document contents = Document::array();
    {
        std::lock_guard lock(mutex_edit_);
        for (const auto& [path, settings] : table_) {
            Document project = settings->data();
            project["edit_timestamp"] = settings->edit_timestamp;
            contents.push_back(std::move(project));
        }
    }
    return HttpRequest(target_, std::move(contents));
}

void Collection::accept_http_response(const Document& projects) {
    if (!projects.is_array()) throw TypeError("the projects of a response must be a list: " + projects.dump());
    std::unordered_set<std::string> kept;
    for (const auto& contents : projects) {
        // A malformed answer stops the exchange before anything is erased;
        // skipping the element would erase the local project it stood for.
        if (!contents.is_object()) throw TypeError("a project of a response must be an object: " + contents.dump());
        const auto found = contents.find("filename");
        const std::string filename = found != contents.end() && found->is_string() ? found->get<std::string>() : "";
        if (!file::is_plain_filename(filename)) {
            // A name from the wire must stay inside the projects directory.
            Logger::warning(foundation::format("Project Refused - the server named the file \"{}\"", {filename}));
            continue;
        }
        auto settings = std::make_shared<Settings>(this, directory_, filename, contents);
        if (!is_approved(settings.get())) continue;
        const auto current = get(filename);
        // At an equal or older time the local version stays.
        if (settings->edit_timestamp > current->edit_timestamp) save_project(settings);
        kept.insert(settings->path());
    }
    {
        std::lock_guard lock(mutex_edit_);
        std::vector<std::string> paths;
        for (const auto& [path, settings] : table_) paths.push_back(path);
        for (const auto& path : paths) {
            if (!kept.contains(path)) erase_project(path);
        }
    }
    Logger::debug("Projects Synchronized");
}

void Collection::erase_project(const std::string& path) {
    std::erase_if(table_, [&](const auto& entry) { return entry.first == path; });
    try {
        file::Json::AccessQueue queue(path);
        queue.run([&](Document&) { fs::remove(path); });
    } catch (const std::exception&) {
        Logger::exception(std::current_exception());
    }
}

std::shared_ptr<Settings> Collection::Iteration::next() {
    // The lock is taken for one step at a time: the caller runs its own code
    // between steps, and that code may call back into the collection.
    std::lock_guard lock(collection_.mutex_edit_);
    if (!started_) {
        started_ = true;
        for (const auto& [path, settings] : collection_.table_) keys_.push_back(path);
    }
    while (index_ < keys_.size()) {
        const std::string& key = keys_[index_++];
        for (const auto& [path, settings] : collection_.table_) {
            if (path == key) return settings;
        }
    }
    return nullptr;
}

Document Collection::HttpRequest::body() const {
    Document out = Document::object();
    out["target"] = target_;
    out["projects"] = projects_;
    return out;
}

std::string Collection::HttpRequest::text() const {
    Document data = body();
    return file::Json::dumps_line(foundation::Assert::Json::clean(data));
}

Collection::HttpResponse::HttpResponse(const GetHeader& getheader, const Read& read) {
    try {
        projects_ = content(getheader, read);
    } catch (const std::exception&) {
        Logger::exception(std::current_exception());
        projects_ = Document::object();
    }
}

Document Collection::HttpResponse::content(const GetHeader& getheader, const Read& read) {
    // Exact comparison: "application/json; charset=utf-8" is another type.
    const auto content_type = getheader(header.first, "");
    if (!content_type || *content_type != header.second) return Document::array();
    Document parsed = file::Json::parse(read());
    accepted_ = true;
    return parsed;
}

}  // namespace zerko::project
