#include "zerko/project/record.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <optional>

#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/uuid.hpp"
#include "zerko/project/settings.hpp"

namespace zerko::project {

namespace {

const Document null_value;

const Document& member(const Document& data, const char* key, const Document& fallback) {
    if (!data.is_object()) return fallback;
    const auto found = data.find(key);
    return found == data.end() ? fallback : *found;
}

std::string text_member(const Document& data, const char* key, const char* fallback) {
    const Document& value = member(data, key, null_value);
    return value.is_string() ? value.get<std::string>() : std::string(fallback);
}

std::string_view trimmed(std::string_view text) {
    const auto space = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
    while (!text.empty() && space(text.front())) text.remove_prefix(1);
    while (!text.empty() && space(text.back())) text.remove_suffix(1);
    return text;
}

// Record keys are timestamps when they read as a number at all; hexadecimal
// forms are not numbers here.
bool is_timestamp(std::string_view key) {
    const std::string text(trimmed(key));
    if (text.empty() || text.find_first_of("xX") != std::string::npos) return false;
    char* end = nullptr;
    errno = 0;
    std::strtod(text.c_str(), &end);
    return end == text.c_str() + text.size();
}

// Decimal integer text, blanks around it allowed; anything else, "1.5"
// included, is a ValueError.
std::int64_t to_integer(std::string_view key) {
    const std::string text(trimmed(key));
    const auto fail = [&] { return ValueError("invalid literal for int() with base 10: '" + std::string(key) + "'"); };
    std::size_t i = (!text.empty() && (text[0] == '+' || text[0] == '-')) ? 1 : 0;
    if (i == text.size()) throw fail();
    for (std::size_t k = i; k < text.size(); ++k) {
        if (!std::isdigit(static_cast<unsigned char>(text[k]))) throw fail();
    }
    errno = 0;
    const long long value = std::strtoll(text.c_str(), nullptr, 10);
    if (errno == ERANGE) throw fail();
    return value;
}

// The stored pointer, when it names a timestamp at all.
std::optional<std::int64_t> pointer_value(const Document& value) {
    if (value.is_number_integer() || value.is_boolean()) {
        return value.is_boolean() ? std::int64_t(value.get<bool>()) : value.get<std::int64_t>();
    }
    if (value.is_number_float()) {
        const double v = value.get<double>();
        if (std::isfinite(v)) return static_cast<std::int64_t>(v);
        return std::nullopt;
    }
    if (value.is_string() && is_timestamp(value.get_ref<const std::string&>())) {
        try {
            return to_integer(value.get_ref<const std::string&>());
        } catch (const ValueError&) {
            return std::nullopt;
        }
    }
    return std::nullopt;
}

}  // namespace

// ---------------------------------------------------------------- Record

Record::Record(const std::shared_ptr<History>& history, const Document& data, std::int64_t timestamp)
    : timestamp(timestamp), history_(history) {
    apply(data);
    init_data_ = this->data();
}

std::shared_ptr<Record> Record::emtpy(const std::shared_ptr<History>& history) {
    return std::make_shared<Record>(history, Document::object());
}

void Record::apply(const Document& data) {
    static const Document empty_object = Document::object();
    static const Document empty_array = Document::array();
    author = text_member(data, "author", "");
    comment = text_member(data, "comment", "");
    export_ = std::make_shared<Export>(member(data, "export", empty_object));
    rules = std::make_shared<Rule::List>(member(data, "rules", empty_array));
    pattern = std::make_shared<Rule::Tree::Root>();
    pattern->load(member(data, "pattern", empty_array), *rules);
}

Document Record::data() const {
    Document out = Document::object();
    out["export"] = export_->data();
    out["rules"] = rules->data();
    out["pattern"] = pattern->data();
    out["author"] = author;
    out["comment"] = comment;
    return out;
}

void Record::select() {
    if (is_promise()) return;
    if (auto history = history_.lock()) history->set_pointer(timestamp);
}

bool Record::is_selected() const {
    const auto history = history_.lock();
    return history && history->pointer() == timestamp;
}

std::shared_ptr<Record> Record::clone() const { return std::make_shared<Record>(history_.lock(), data(), timestamp); }

bool Record::save() {
    auto copy = clone();
    reset();
    const auto history = history_.lock();
    return history && history->save_record(copy);
}

// ---------------------------------------------------------------- Export

Record::Export::Export(const Document& data) {
    directory = text_member(data, "directory", "~");
    static const Document empty_object = Document::object();
    const Document& options = member(data, "options", empty_object);
    if (options.is_object()) options_ = options;
    flags.load(member(data, "flags", empty_object));
}

Document Record::Export::data() const {
    Document out = Document::object();
    out["directory"] = directory;
    out["options"] = options_;
    out["flags"] = flags.data();
    return out;
}

// ---------------------------------------------------------------- History

Record::History::History(Settings* project_settings)
    : project_settings_(project_settings), edit_toggle_(std::make_unique<EditToggle>(*this)) {}

Record::History::~History() = default;

std::shared_ptr<Record::History> Record::History::create(Settings* project_settings) {
    return std::shared_ptr<History>(new History(project_settings));
}

Record::History::Records Record::History::records() const {
    auto ordered = records_;
    std::stable_sort(ordered.begin(), ordered.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    Records out;
    out.reserve(ordered.size());
    for (auto& [timestamp, record] : ordered) out.push_back(std::move(record));
    return out;
}

std::shared_ptr<Record> Record::History::find(std::int64_t timestamp) const {
    for (const auto& [key, record] : records_) {
        if (key == timestamp) return record;
    }
    return nullptr;
}

void Record::History::store(std::int64_t timestamp, std::shared_ptr<Record> record) {
    for (auto& [key, stored] : records_) {
        if (key == timestamp) {
            stored = std::move(record);  // a dictionary keeps the place of a replaced key
            return;
        }
    }
    records_.emplace_back(timestamp, std::move(record));
}

void Record::History::set_pointer(std::int64_t value) {
    if (find(value)) pointer_ = value;
}

void Record::History::clear() {
    records_.clear();
    edit_toggle_->clear();
}

void Record::History::bake() {
    std::erase_if(records_, [&](const auto& entry) { return entry.first != pointer_; });
    edit_toggle_->update();
}

void Record::History::load(const Document& file_data) {
    clear();
    static const Document empty_object = Document::object();
    const Document& records = member(file_data, "records", empty_object);
    if (records.is_object()) {
        const auto self = shared_from_this();
        for (const auto& [key, value] : records.items()) {
            if (!is_timestamp(key)) continue;
            const std::int64_t timestamp = to_integer(key);
            store(timestamp, std::make_shared<Record>(self, value, timestamp));
        }
    }
    // The stored pointer when it names a record, else the first record of
    // the file (not the newest), else 0.
    const auto selected = pointer_value(member(file_data, "selected_record", null_value));
    if (selected && find(*selected)) pointer_ = *selected;
    else pointer_ = records_.empty() ? 0 : records_.front().first;
    edit_toggle_->update();
}

std::shared_ptr<Record> Record::History::get_record() {
    if (const auto selected = find(pointer_)) return selected->clone();
    if (!records_.empty()) {
        const auto newest = std::max_element(records_.begin(), records_.end(),
                                             [](const auto& a, const auto& b) { return a.first < b.first; });
        return newest->second->clone();
    }
    return Record::emtpy(shared_from_this());
}

void Record::History::select_record(const std::shared_ptr<Record>& record) {
    for (const auto& [key, stored] : records_) {
        if (stored && stored == record) {
            pointer_ = key;
            return;
        }
    }
}

bool Record::History::save_record(const std::shared_ptr<Record>& record) {
    if (!record) return false;
    // Not waited for: a save under way makes this one a no-op, whether it
    // comes from another thread or from a callback fired by that save.
    bool expected = false;
    if (!saving_.compare_exchange_strong(expected, true)) return false;
    struct Release {
        std::atomic<bool>& flag;
        ~Release() { flag = false; }
    } release{saving_};

    record->timestamp = static_cast<std::int64_t>(std::floor(foundation::wall_time()));
    store(record->timestamp, record);
    pointer_ = record->timestamp;
    edit_toggle_->update();
    if (project_settings_) project_settings_->save();
    return true;
}

Document Record::History::data() const {
    Document out = Document::object();
    for (const auto& [key, record] : records_) out[std::to_string(key)] = record->data();
    return out;
}

// ---------------------------------------------------------------- EditToggle

std::shared_ptr<Record> Record::History::EditToggle::current() const {
    if (current_) return current_;
    return Record::emtpy(history_.shared_from_this());
}

std::shared_ptr<Record> Record::History::EditToggle::switch_to(std::int64_t index) {
    if (current_ && !current_->is_promise()) current_->reset();
    const auto size = static_cast<std::int64_t>(records_.size());
    if (index < 0) index += size;
    if (index >= 0 && index < size) current_ = records_[static_cast<std::size_t>(index)];
    return current_;
}

void Record::History::EditToggle::clear() {
    current_.reset();
    while (!records_.empty()) records_.pop_back();
}

void Record::History::EditToggle::update() {
    clear();
    records_ = history_.records();
    if (!records_.empty()) current_ = records_.front();
}

void Record::History::EditToggle::set_promise(std::shared_ptr<Record> record) {
    if (!record) return;
    update();
    records_.insert(records_.begin(), record);
    current_ = std::move(record);
}

}  // namespace zerko::project
