#include "zerko/project/settings.hpp"

#include <exception>
#include <filesystem>

#include "zerko/file/access_queue.hpp"
#include "zerko/file/utilities.hpp"
#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/logger.hpp"
#include "zerko/foundation/naming.hpp"
#include "zerko/foundation/paths.hpp"
#include "zerko/foundation/uuid.hpp"
#include "zerko/project/collection.hpp"

namespace zerko::project {

using foundation::Logger;
namespace fs = std::filesystem;

namespace {

const Document* member(const Document& data, const char* key) {
    if (!data.is_object()) return nullptr;
    const auto found = data.find(key);
    return found == data.end() ? nullptr : &*found;
}

std::string text_member(const Document& data, const char* key) {
    const auto* value = member(data, key);
    return value && value->is_string() ? value->get<std::string>() : std::string();
}

// The size of the file, or nothing when there is no such file.
std::optional<double> file_size(const std::string& path) {
    std::error_code ec;
    const auto size = fs::file_size(path, ec);
    if (ec) return std::nullopt;
    return static_cast<double>(size);
}

bool file_exists(const std::string& path) {
    std::error_code ec;
    return fs::exists(path, ec);
}

// Directory and last segment of a path, as the projects directory lists them.
std::pair<std::string, std::string> split_path(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) return {std::string(), path};
    std::string head = path.substr(0, slash + 1);
    if (head.find_first_not_of('/') != std::string::npos) {
        while (head.size() > 1 && head.back() == '/') head.pop_back();
    }
    return {head, path.substr(slash + 1)};
}

}  // namespace

Settings::Settings(Collection* collection, std::string directory, std::string filename, const Document& file_data)
    : collection_(collection ? collection->link() : nullptr),
      directory_(std::move(directory)),
      filename_(std::move(filename)),
      history_(Record::History::create(this)) {
    // The size is that of the file the caller named, not of the one the
    // document may name in its "filename".
    const std::string given = foundation::path::join(directory_, filename_);
    apply(file_data);
    write_timestamp_ = file_size(given).value_or(0.0);
}

Settings::~Settings() { history_->project_settings_ = nullptr; }

std::shared_ptr<Settings> Settings::init(Collection* parent, const std::string& json_path) {
    Document file_data = open(json_path);
    auto [directory, filename] = split_path(json_path);
    return std::make_shared<Settings>(parent, std::move(directory), std::move(filename), file_data);
}

Document Settings::open(const std::string& path) { return file::read_shared(path, "Project"); }

void Settings::apply(const Document& file_data) {
    name_ = text_member(file_data, "name");
    description_ = text_member(file_data, "description");
    history_->load(file_data);
    const auto* edited = member(file_data, "edit_timestamp");
    edit_timestamp = edited && edited->is_number() ? edited->get<double>() : 0.0;
    const auto* removed = member(file_data, "deleted");
    deleted = removed && removed->is_boolean() && removed->get<bool>();
    const auto* format_version = member(file_data, "version");
    version = format_version && format_version->is_number() ? static_cast<int>(format_version->get<double>()) : -1;
    filename_ = text_member(file_data, "filename");
    target_ = text_member(file_data, "target");
}

Document Settings::data() const {
    Document out = Document::object();
    out["name"] = foundation::Naming::space_filter(name_);
    out["description"] = description_;
    out["records"] = history_->data();
    out["selected_record"] = history_->pointer();
    out["deleted"] = deleted;
    out["version"] = version;
    out["filename"] = filename_;
    out["target"] = target_;
    return out;
}

Collection* Settings::collection() const noexcept { return collection_ ? *collection_ : nullptr; }

void Settings::ensure_filename() {
    if (!filename_.empty()) return;
    const std::string name = foundation::Naming::space_filter(foundation::Naming::force_ascii(name_));
    const std::string code = foundation::uuid4_hex().substr(0, 8);
    const std::string stem = name.empty() ? code : foundation::format("{}_{}", {name, code});
    filename_ = foundation::format("{}.json", {stem});
}

std::string Settings::path() {
    ensure_filename();
    // The name comes from a file, the server or the caller: only a plain
    // name keeps the project inside the projects directory.
    file::assert_plain_filename(filename_);
    return foundation::path::join(directory_, filename_);
}

std::shared_ptr<Settings::Record> Settings::get_record_promise() const {
    auto record = history_->get_record();
    record->clear_author();
    record->clear_comment();
    record->clear_timestamp();
    return record;
}

std::shared_ptr<Settings> Settings::clone() const {
    return std::make_shared<Settings>(collection(), directory_, filename_, data());
}

void Settings::mark_edited() { edit_timestamp = foundation::wall_time(); }

void Settings::save() {
    mark_edited();
    Collection* owner = collection();
    if (!owner) throw ValueError("The project has no collection to save it");
    owner->save_project(shared_from_this());
}

void Settings::write() {
    try {
        const std::string target = path();
        Document document = data();
        document["edit_timestamp"] = edit_timestamp;
        // The whole file is replaced: nothing else that stood in it survives.
        file::update_shared(target, "Project", [&](Document& current) { current = std::move(document); });
        write_timestamp_ = file_size(target).value_or(0.0);
    } catch (const std::exception&) {
        Logger::exception(std::current_exception());
    }
}

void Settings::reload() {
    const std::string target = path();
    if (file_exists(target)) apply(open(target));
}

bool Settings::is_outdated() {
    const auto size = file_size(path());
    return size && write_timestamp_ < *size;
}

std::string Header::text() const {
    return foundation::format("Project.Header(name=\"{}\", filename=\"{}\", edit_timestamp=\"{}\", compatible={})",
                              {name, filename, edit_timestamp, std::string(compatible ? "True" : "False")});
}

}  // namespace zerko::project
