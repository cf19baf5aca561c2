#pragma once
// Records and the history of a project. A record is one saved state of the
// project's content: rules, pattern, export settings, author and comment. The
// history keeps the records by the second of their saving and points at the
// selected one; its edit toggle is the editor's working view.
//
// A record whose timestamp is below 1 is a promise: a state that is being
// prepared and not saved yet. Saving gives it the current second, puts it at
// the head of the history, selects it and writes the whole project.
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "zerko/export/flags.hpp"
#include "zerko/export/options.hpp"
#include "zerko/project/rule.hpp"
#include "zerko/project/tree.hpp"

namespace zerko::project {

class Settings;

class Record {
public:
    class Export;
    class History;

    /// Applies `data` and remembers the result as the state to reset to. The
    /// history may be null for a record on its own.
    Record(const std::shared_ptr<History>& history, const Document& data, std::int64_t timestamp = 0);
    /// A promise with empty data. (The spelling is the one host code calls.)
    static std::shared_ptr<Record> emtpy(const std::shared_ptr<History>& history);

    /// Equal data; the timestamp does not count.
    bool operator==(const Record& other) const { return data() == other.data(); }

    /// Points the history at this record; nothing for a promise.
    void select();
    bool is_selected() const;
    bool is_promise() const noexcept { return timestamp < 1; }
    /// Whether the data differs from the state at construction.
    bool is_changed() const { return data() != init_data_; }
    /// Drops every edit; the timestamp stays.
    void reset() { apply(init_data_); }
    /// The same history, data and timestamp.
    std::shared_ptr<Record> clone() const;
    /// Hands a copy with the edits to the history's save_record and resets
    /// this object. Answers whether the copy was saved (false while another
    /// save is under way).
    bool save();
    void clear_author() { author.clear(); }
    void clear_comment() { comment.clear(); }
    /// Makes the record a promise.
    void clear_timestamp() noexcept { timestamp = 0; }

    /// {"export", "rules", "pattern", "author", "comment"}; the timestamp is
    /// the key under which the record is stored.
    Document data() const;
    /// The history, or null when it is gone or there was none.
    std::shared_ptr<History> history() const { return history_.lock(); }

    /// Seconds since the epoch; identity within the history.
    std::int64_t timestamp;
    std::string author;
    std::string comment;
    std::shared_ptr<Export> export_;
    std::shared_ptr<Rule::List> rules;
    std::shared_ptr<Rule::Tree::Root> pattern;

private:
    /// New export, rule list and pattern from `data`; the pattern is read
    /// against the new rule list.
    void apply(const Document& data);

    std::weak_ptr<History> history_;
    Document init_data_;
};

/// Where and how a record's hierarchies are exported. The exporter's options
/// are kept as their JSON data, so a record can be read without the exporter.
class Record::Export {
public:
    /// {"directory": "~", "options": {}, "flags": {...}} by default.
    explicit Export(const Document& data = Document::object());

    /// A stored path; "~" is the user's home directory.
    std::string directory = "~";
    export_::Flags flags;

    /// A copy of the options' data.
    Document get_options() const { return options_; }
    /// Replaces the stored options by the data of the exporters' options.
    void set_options(const export_::Options& options) { options_ = options.data(); }
    /// {"directory", "options", "flags"}.
    Document data() const;

private:
    Document options_ = Document::object();
};

/// The records of one project by timestamp, with the selected one.
class Record::History : public std::enable_shared_from_this<History> {
public:
    class EditToggle;
    using Records = std::vector<std::shared_ptr<Record>>;

    /// Histories are shared, so that records can refer back to them.
    static std::shared_ptr<History> create(Settings* project_settings);
    ~History();

    /// The records, newest first.
    Records records() const;
    std::size_t size() const noexcept { return records_.size(); }
    /// The timestamp of the selected record (0 before any).
    std::int64_t pointer() const noexcept { return pointer_; }
    /// Taken only when a record of that timestamp is stored.
    void set_pointer(std::int64_t value);
    EditToggle& edit_toggle() noexcept { return *edit_toggle_; }

    /// Drops the records and clears the edit toggle.
    void clear();
    /// Keeps only the selected record (none when the pointer is stale).
    void bake();
    /// Records from `file_data["records"]` (keys that are no numbers are
    /// skipped) and the pointer from "selected_record". A key that is a number
    /// but no integer, such as "1.5", raises ValueError.
    void load(const Document& file_data);
    /// A copy of the selected record, else of the newest, else a new promise.
    std::shared_ptr<Record> get_record();
    /// Selects this very object when it is stored here.
    void select_record(const std::shared_ptr<Record>& record);
    /// Stamps the record with the current second, stores and selects it, and
    /// saves the project. A save that finds another under way (another thread,
    /// or a callback of this one) returns false at once without saving.
    bool save_record(const std::shared_ptr<Record>& record);
    /// {"<timestamp>": record data, ...} in the order of storing.
    Document data() const;
    /// The stored record of a timestamp, or null.
    std::shared_ptr<Record> find(std::int64_t timestamp) const;

    /// The owning project; null once it is gone.
    Settings* project_settings() const noexcept { return project_settings_; }

private:
    friend class Settings;
    explicit History(Settings* project_settings);
    void store(std::int64_t timestamp, std::shared_ptr<Record> record);

    Settings* project_settings_;
    std::int64_t pointer_ = 0;
    std::vector<std::pair<std::int64_t, std::shared_ptr<Record>>> records_;
    std::unique_ptr<EditToggle> edit_toggle_;
    std::atomic<bool> saving_{false};
};

/// The editor's view: the stored record objects themselves, newest first,
/// one of them current.
class Record::History::EditToggle {
public:
    explicit EditToggle(History& history) : history_(history) {}

    const Records& records() const noexcept { return records_; }
    /// The current record; a new empty record of the history when there is none.
    std::shared_ptr<Record> current() const;
    /// The current record, or null.
    const std::shared_ptr<Record>& current_or_null() const noexcept { return current_; }
    /// Resets the current record unless it is a promise, then makes the
    /// record at `index` current (negative indices count from the end; an
    /// index out of range keeps the current one). Answers the current record.
    std::shared_ptr<Record> switch_to(std::int64_t index);
    void clear();
    /// The history's records, newest first; the newest is current.
    void update();
    /// Puts a promise at the front and makes it current.
    void set_promise(std::shared_ptr<Record> record);

private:
    History& history_;
    std::shared_ptr<Record> current_;
    Records records_;
};

}  // namespace zerko::project
