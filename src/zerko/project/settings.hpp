#pragma once
// One project: a named, versioned document with the history of its records,
// in memory and as a JSON file of the projects directory.
//
//   <name>_<8 hex>.json:
//   {"name", "description", "records": {"<timestamp>": record, ...},
//    "selected_record", "deleted", "version", "filename", "target",
//    "edit_timestamp"}
//
// A project reaches the disk only through its collection, which keeps the
// writers of one process apart; the access queue keeps processes apart.
#include <memory>
#include <string>
#include <vector>

#include "zerko/project/record.hpp"

namespace zerko::project {

class Collection;

class Settings : public std::enable_shared_from_this<Settings> {
public:
    using Record = project::Record;
    using Rule = project::Rule;

    /// The format version that this library writes into new projects.
    static constexpr int current_version = 3;

    /// Applies `file_data`, whose "filename" replaces `filename` (also by the
    /// empty default). `collection` may be null for a project that is only
    /// read; the project must not outlive it. Projects are shared objects:
    /// make them with std::make_shared, since saving hands the project itself
    /// to the collection.
    Settings(Collection* collection, std::string directory, std::string filename, const Document& file_data);
    ~Settings();
    Settings(const Settings&) = delete;
    Settings& operator=(const Settings&) = delete;

    /// The project of the file at `json_path`, read through the access queue.
    static std::shared_ptr<Settings> init(Collection* parent, const std::string& json_path);
    /// The JSON object of a project file. Never raises: a file that is not
    /// JSON is moved to ".corrupted", and any failure gives an empty object.
    static Document open(const std::string& path);

    /// Sets the state from a project document, with the defaults of the format.
    void apply(const Document& file_data);
    /// The first eight keys of the file (not "edit_timestamp").
    Document data() const;
    /// Equal data; the edit time does not count.
    bool operator==(const Settings& other) const { return data() == other.data(); }

    const std::string& directory() const noexcept { return directory_; }
    const std::string& filename() const noexcept { return filename_; }
    const std::string& target() const noexcept { return target_; }
    const std::shared_ptr<Record::History>& history() const noexcept { return history_; }
    const std::string& name() const noexcept { return name_; }
    void set_name(std::string value) { name_ = std::move(value); }
    const std::string& description() const noexcept { return description_; }
    void set_description(std::string value) { description_ = std::move(value); }
    /// The size in bytes of the file as this process last wrote or found it.
    double write_timestamp() const noexcept { return write_timestamp_; }
    /// The owning collection; null when there is none or it is gone.
    Collection* collection() const noexcept;

    /// The directory joined with the file name, which is made up first when
    /// there is none: "<ascii name>_<8 hex>.json", or "<8 hex>.json".
    std::string path();
    /// Whether the document is of the format this library writes.
    bool compatible() const noexcept { return version == current_version; }
    /// The records, newest first.
    std::vector<std::shared_ptr<Record>> records() const { return history_->records(); }

    /// Marks the project deleted; writes nothing.
    void delete_() noexcept { deleted = true; }
    /// A copy of the selected record without author, comment and timestamp.
    std::shared_ptr<Record> get_record_promise() const;
    /// A new project of the same collection, directory, file name and data.
    std::shared_ptr<Settings> clone() const;
    void clear_name() { name_.clear(); }
    /// The next `path` makes up a new file name, so the next save makes a new file.
    void clear_filename() { filename_.clear(); }
    /// The edit time becomes now.
    void mark_edited();
    /// Marks the project edited and hands it to its collection. Raises
    /// ValueError when the project has no collection.
    void save();
    /// Replaces the whole file by the document and the edit time. Called by
    /// the collection; failures are logged, never raised.
    void write();
    /// Reads the file again when it exists.
    void reload();
    /// Whether the file has grown since this process last wrote or found it.
    /// Cheap by design: a file rewritten at the same size or smaller counts
    /// as unchanged.
    bool is_outdated();

    /// The rules every new project starts with.
    static std::shared_ptr<Rule::List> predefined_rules() { return Rule::List::predefined(); }

    /// Seconds since the epoch of the last edit; 0.0 when never edited.
    double edit_timestamp = 0.0;
    bool deleted = false;
    /// The format version of this document; -1 when it has none.
    int version = -1;

private:
    void ensure_filename();

    std::shared_ptr<Collection*> collection_;
    std::string directory_;
    std::string filename_;
    std::string name_;
    std::string description_;
    std::string target_;
    std::shared_ptr<Record::History> history_;
    double write_timestamp_ = 0.0;
};

/// A light summary of one project for lists in a user interface.
class Header {
public:
    explicit Header(const Settings& settings)
        : name(settings.name()), filename(settings.filename()), edit_timestamp(settings.edit_timestamp),
          compatible(settings.compatible()) {}

    std::string name;
    std::string filename;
    double edit_timestamp;
    bool compatible;

    /// Project.Header(name="...", filename="...", edit_timestamp="...", compatible=True)
    std::string text() const;
};

}  // namespace zerko::project
