#include "zerko/settings/check.hpp"

#include <algorithm>
#include <system_error>

#include "zerko/constants/constants.hpp"
#include "zerko/file/utilities.hpp"
#include "zerko/foundation/naming.hpp"
#include "zerko/foundation/uuid.hpp"
#include "zerko/settings/sections.hpp"

namespace zerko::settings {

namespace fs = std::filesystem;

namespace {

// Stored values of the wrong type read as the default, never as an error:
// settings.json is edited by people and older versions. Single values go
// through the section readers; whole members are taken as they stand.
const Document& member(const Document& object, const char* key, const Document& fallback) {
    if (!object.is_object()) return fallback;
    const auto found = object.find(key);
    return found == object.end() ? fallback : *found;
}

const Document kEmptyObject = Document::object();
const Document kEmptyArray = Document::array();

}  // namespace

// ---- Check ------------------------------------------------------------------

Check::Check(std::string class_id_, bool enabled_, bool opened_, Document parameters_)
    : class_id(std::move(class_id_)), enabled(enabled_), opened(opened_), parameters(std::move(parameters_)) {}

std::shared_ptr<Check> Check::empty(std::string class_id, bool enabled, bool opened, Document parameters) {
    return std::make_shared<Check>(std::move(class_id), enabled, opened, std::move(parameters));
}

Document Check::data() const {
    Document out = Document::object();
    out["enabled"] = enabled;
    out["opened"] = opened;
    out["parameters"] = parameters;
    return out;
}

// ---- Config -----------------------------------------------------------------

Check::Config::Config(const Document& table) { load(table); }

void Check::Config::load(const Document& table) {
    table_.clear();
    if (!table.is_object()) return;
    for (const auto& [class_id, record] : table.items()) {
        const Document& object = record.is_object() ? record : kEmptyObject;
        const Document& parameters = member(object, "parameters", kEmptyArray);
        table_.push_back(std::make_shared<Check>(class_id, read_bool(object, "enabled", false),
                                                 read_bool(object, "opened", false),
                                                 parameters.is_array() ? parameters : kEmptyArray));
    }
}

void Check::Config::mask(const std::vector<std::string>& keys) {
    std::erase_if(table_, [&](const std::shared_ptr<Check>& record) {
        return std::find(keys.begin(), keys.end(), record->class_id) == keys.end();
    });
}

Document Check::Config::data() const {
    Document out = Document::object();
    for (const auto& record : table_) {
        if (record->enabled) out[record->class_id] = record->data();
    }
    return out;
}

std::shared_ptr<Check> Check::Config::get(std::string_view class_id, bool force) {
    for (const auto& record : table_) {
        if (record->class_id == class_id) return record;
    }
    if (!force) return nullptr;
    return table_.emplace_back(Check::empty(std::string(class_id)));
}

// ---- Directory ----------------------------------------------------------------

Check::Directory::Directory(std::string name, std::string_view path, bool enable, bool locked)
    : name_(std::move(name)), path_(normalise(path)), enabled_(enable), locked_(locked) {}

std::string Check::Directory::normalise(std::string_view path) {
    std::error_code error;
    fs::path absolute = fs::absolute(fs::path(path), error);
    if (error) absolute = fs::path(path);
    std::string out = absolute.lexically_normal().string();
    while (out.size() > 1 && out.back() == fs::path::preferred_separator) out.pop_back();
    return out;
}

Document Check::Directory::data() const {
    Document out = Document::object();
    out["name"] = name_;
    out["path"] = path_;
    out["enabled"] = enabled_;
    return out;
}

Check::Directory::List::List(const Document& data) {
    if (!data.is_array()) return;
    for (const Document& element : data) {
        if (!element.is_object()) continue;
        append(std::make_shared<Directory>(read_text(element, "name", ""), read_text(element, "path", ""),
                                           read_bool(element, "enabled", true)));
    }
}

Document Check::Directory::List::data() const {
    Document out = Document::array();
    for (const auto& directory : items_) {
        if (directory != embedded_) out.push_back(directory->data());
    }
    return out;
}

void Check::Directory::List::embed(std::string_view module_file) {
    const std::string folder = fs::path(module_file).parent_path().string();
    embedded_ = std::make_shared<Directory>("Default", folder, true, true);
    append(embedded_);
}

bool Check::Directory::List::is_approved(const std::shared_ptr<Directory>& directory) {
    if (!directory) return false;
    // The system reads a path only up to a NUL: such a path names another directory.
    if (!file::is_plain_path(directory->path())) return false;
    std::error_code error;
    return fs::is_directory(directory->path(), error);
}

void Check::Directory::List::insert(std::ptrdiff_t index, std::shared_ptr<Directory> directory) {
    if (!is_approved(directory)) return;
    // The placement of list.insert: negative counts from the end, and out of
    // range clamps to either end.
    const auto size = static_cast<std::ptrdiff_t>(items_.size());
    if (index < 0) index = std::max<std::ptrdiff_t>(0, index + size);
    index = std::min(index, size);
    items_.insert(items_.begin() + index, std::move(directory));
}

void Check::Directory::List::append(std::shared_ptr<Directory> directory) {
    if (is_approved(directory)) items_.push_back(std::move(directory));
}

void Check::Directory::List::extend(const Items& directories) {
    for (const auto& directory : directories) append(directory);
}

void Check::Directory::List::erase(std::size_t index) {
    if (index < items_.size()) items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(index));
}

Check::Directory::List Check::Directory::List::operator+(const List& other) const {
    List out;
    out.items_ = items_;
    out.items_.insert(out.items_.end(), other.items_.begin(), other.items_.end());
    return out;
}

// ---- Presets ------------------------------------------------------------------

Check::Presets::Set::Set(Presets* owner, std::string name, std::shared_ptr<Config> config,
                         std::optional<std::string> stamp, std::optional<double> changed)
    : owner_(owner),
      name_(std::move(name)),
      config_(config ? std::move(config) : Config::empty()),
      stamp_(stamp ? std::move(*stamp) : foundation::uuid4_hex().substr(0, 16)),
      changed_(changed ? *changed : foundation::wall_time()) {}

std::shared_ptr<Check::Presets::Set> Check::Presets::Set::load(Presets* owner, const Document& data) {
    const Document& object = data.is_object() ? data : kEmptyObject;
    const Document& changed = member(object, "changed", kEmptyObject);
    // A stored preset without a stamp keeps the empty one: only a missing
    // value at construction draws a new stamp.
    return std::make_shared<Set>(owner, read_text(object, "name", ""),
                                 std::make_shared<Config>(member(object, "list", kEmptyObject)),
                                 read_text(object, "stamp", ""), changed.is_number() ? changed.get<double>() : 0.0);
}

void Check::Presets::Set::set_name(std::string_view name) {
    if (name.empty()) return;
    name_ = std::string(name);
    changed_ = foundation::wall_time();
    if (owner_) owner_->sort();
}

void Check::Presets::Set::set_config(std::shared_ptr<Config> config) {
    if (!config) return;
    config_ = std::move(config);
    changed_ = foundation::wall_time();
}

Document Check::Presets::Set::data() const {
    Document out = Document::object();
    out["stamp"] = stamp_;
    out["changed"] = changed_;
    out["name"] = foundation::Naming::space_filter(name_);
    out["list"] = config_->data();
    return out;
}

Check::Presets::Presets(const Document& data) { load(data); }

Check::Presets::~Presets() {
    for (const auto& preset : array_) preset->owner_ = nullptr;
}

void Check::Presets::load(const Document& data) {
    array_.clear();
    if (data.is_array()) {
        for (const Document& element : data) array_.push_back(Set::load(this, element));
    }
    sort();
}

std::vector<std::string> Check::Presets::names() const {
    std::vector<std::string> out;
    out.reserve(array_.size());
    for (const auto& preset : array_) out.push_back(preset->name());
    return out;
}

std::shared_ptr<Check::Presets::Set> Check::Presets::add(std::string name, std::shared_ptr<Config> config) {
    auto preset = std::make_shared<Set>(this, std::move(name), std::move(config));
    array_.push_back(preset);
    sort();
    return preset;
}

void Check::Presets::pop(const std::shared_ptr<Set>& preset) {
    if (!preset) return;
    const auto found = std::find_if(array_.begin(), array_.end(),
                                    [&](const std::shared_ptr<Set>& item) { return *item == *preset; });
    if (found == array_.end()) return;
    (*found)->owner_ = nullptr;
    array_.erase(found);
    sort();
}

void Check::Presets::sort() {
    std::stable_sort(array_.begin(), array_.end(),
                     [](const std::shared_ptr<Set>& a, const std::shared_ptr<Set>& b) { return a->name() < b->name(); });
}

void Check::Presets::sync_applied(const Config& config) {
    for (const auto& preset : array_) preset->applied = *preset->config() == config;
}

Document Check::Presets::data() const {
    Document out = Document::array();
    for (const auto& preset : array_) out.push_back(preset->data());
    return out;
}

// ---- State --------------------------------------------------------------------

Check::State::State(const Document& data)
    : directories(std::make_shared<Directory::List>(member(data, "directories", kEmptyArray))),
      mode(constants::check::Selection),
      config(std::make_shared<Config>(member(data, "list", kEmptyObject))),
      presets(std::make_shared<Presets>(member(data, "presets", kEmptyArray))) {
    const Document& stored = member(data, "mode", kEmptyObject);
    if (stored.is_number_integer()) mode = stored.get<int>();
}

Document Check::State::data() const {
    Document out = Document::object();
    out["directories"] = directories->data();
    out["mode"] = mode;
    out["list"] = config->data();
    out["presets"] = presets->data();
    return out;
}

}  // namespace zerko::settings
