#pragma once
// The "check" section of settings.json: which directories hold check
// modules, the mode of the check run, which checks are on with what
// parameters, and the presets. `Check` itself is one check's record.
//
//   "check": {"directories": [{"name", "path", "enabled"}...],
//             "mode": 0,
//             "list": {class_id: {"enabled", "opened", "parameters": [...]}},
//             "presets": [{"stamp", "changed", "name", "list"}...]}
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zerko/file/json.hpp"

namespace zerko::settings {

using Document = file::Document;

class Check {
public:
    /// One check's settings; `parameters` is the JSON array of the block's tasks.
    Check(std::string class_id, bool enabled, bool opened, Document parameters);
    /// A record with the defaults: off, closed, no parameters.
    static std::shared_ptr<Check> empty(std::string class_id, bool enabled = false, bool opened = false,
                                        Document parameters = Document::array());

    std::string class_id;
    bool enabled = false;
    bool opened = false;
    Document parameters;

    /// {"enabled", "opened", "parameters"}.
    Document data() const;

    class Config;
    class Directory;
    class Presets;
    class State;
};

/// The checks of a run (or of a rule, or of a preset) by class id.
class Check::Config {
public:
    using Records = std::vector<std::shared_ptr<Check>>;

    explicit Config(const Document& table = Document::object());
    static std::shared_ptr<Config> empty() { return std::make_shared<Config>(); }

    bool is_empty() const { return data().empty(); }
    bool operator==(const Config& other) const { return data() == other.data(); }

    Records::const_iterator begin() const noexcept { return table_.begin(); }
    Records::const_iterator end() const noexcept { return table_.end(); }
    std::size_t size() const noexcept { return table_.size(); }

    /// Replaces every record by those of `table`; values of the wrong type
    /// read as their defaults.
    void load(const Document& table);
    /// Drops every record whose class id is not among `keys`.
    void mask(const std::vector<std::string>& keys);
    /// A new config of `data`, so disabled records are left behind.
    std::shared_ptr<Config> clone() const { return std::make_shared<Config>(data()); }
    void apply(const Config& config) { load(config.data()); }
    /// class id -> record data, for enabled records only.
    Document data() const;
    /// The record of `class_id`; a new default one is stored when there is
    /// none and `force` holds, otherwise null.
    std::shared_ptr<Check> get(std::string_view class_id, bool force = false);

private:
    Records table_;
};

/// A folder of check modules. Its text is the absolute, normalised path.
class Check::Directory {
public:
    Directory(std::string name, std::string_view path, bool enable = true, bool locked = false);

    const std::string& name() const noexcept { return name_; }
    const std::string& path() const noexcept { return path_; }
    bool enabled() const noexcept { return enabled_; }
    void set_enabled(bool value) noexcept { enabled_ = value; }
    bool locked() const noexcept { return locked_; }
    /// {"name", "path", "enabled"}.
    Document data() const;

    /// `path` made absolute and lexically normal, without a trailing separator.
    static std::string normalise(std::string_view path);

    class List;

private:
    std::string name_;
    std::string path_;
    bool enabled_;
    bool locked_;
};

/// The directories to scan, in order, plus the embedded one of the host's
/// own checks, which is never written.
class Check::Directory::List {
public:
    using Items = std::vector<std::shared_ptr<Directory>>;

    List() = default;
    /// Each element's "name", "path", "enabled"; a folder that does not
    /// exist is left out (and so is gone from the next write).
    explicit List(const Document& data);

    Items::const_iterator begin() const noexcept { return items_.begin(); }
    Items::const_iterator end() const noexcept { return items_.end(); }
    std::size_t size() const noexcept { return items_.size(); }
    const std::shared_ptr<Directory>& at(std::size_t index) const { return items_.at(index); }
    const Items& items() const noexcept { return items_; }
    const std::shared_ptr<Directory>& embedded() const noexcept { return embedded_; }

    /// Every directory but the embedded one.
    Document data() const;
    /// The folder of a module's file becomes the locked "Default" directory.
    void embed(std::string_view module_file);

    // Only approved directories get in; the rest are left out without notice.
    void insert(std::ptrdiff_t index, std::shared_ptr<Directory> directory);
    void append(std::shared_ptr<Directory> directory);
    void extend(const Items& directories);
    void erase(std::size_t index);
    static bool is_approved(const std::shared_ptr<Directory>& directory);

    /// This list's directories followed by `other`'s.
    List operator+(const List& other) const;

private:
    Items items_;
    std::shared_ptr<Directory> embedded_;
};

/// The presets: named copies of a check configuration, sorted by name.
class Check::Presets {
public:
    class Set;
    class Editor;
    using Sets = std::vector<std::shared_ptr<Set>>;

    explicit Presets(const Document& data = Document::array());
    Presets(const Presets&) = delete;
    Presets& operator=(const Presets&) = delete;
    /// Sets that outlive their owner stop sorting it.
    ~Presets();

    Sets::const_iterator begin() const noexcept { return array_.begin(); }
    Sets::const_iterator end() const noexcept { return array_.end(); }
    std::size_t size() const noexcept { return array_.size(); }

    std::vector<std::string> names() const;
    std::shared_ptr<Set> add(std::string name, std::shared_ptr<Config> config);
    /// Removes `preset` when it is here (by identity of its stamp).
    void pop(const std::shared_ptr<Set>& preset);
    /// By name, in plain byte order; the sort is stable, so presets of one
    /// name keep their relative order.
    void sort();
    void sync_applied(const Config& config);
    Document data() const;

private:
    void load(const Document& data);
    Sets array_;
};

class Check::Presets::Set {
public:
    /// A null `stamp` draws a new one (16 hex digits of a random UUID), a null
    /// `changed` is now; `owner` may be null for a set on its own.
    Set(Presets* owner, std::string name, std::shared_ptr<Config> config,
        std::optional<std::string> stamp = std::nullopt, std::optional<double> changed = std::nullopt);
    static std::shared_ptr<Set> load(Presets* owner, const Document& data);

    /// Presets are the same when their stamps are: name and content don't count.
    bool operator==(const Set& other) const { return stamp_ == other.stamp_; }
    std::size_t size() const { return config_->size(); }

    const std::string& stamp() const noexcept { return stamp_; }
    const std::string& name() const noexcept { return name_; }
    /// Takes only a non-empty name; touches `changed` and re-sorts the owner.
    void set_name(std::string_view name);
    const std::shared_ptr<Config>& config() const noexcept { return config_; }
    /// Touches `changed`; a null config is refused.
    void set_config(std::shared_ptr<Config> config);
    double changed() const noexcept { return changed_; }
    /// {"stamp", "changed", "name", "list"}.
    Document data() const;

    bool applied = false;

private:
    friend class Presets;
    Presets* owner_;
    std::string name_;
    std::shared_ptr<Config> config_;
    std::string stamp_;
    double changed_;
};

/// The whole "check" section.
class Check::State {
public:
    explicit State(const Document& data = Document::object());
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    std::shared_ptr<Directory::List> directories;
    int mode;
    std::shared_ptr<Config> config;
    std::shared_ptr<Presets> presets;

    /// {"directories", "mode", "list", "presets"}.
    Document data() const;
};

}  // namespace zerko::settings
