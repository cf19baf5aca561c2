#pragma once
// What the core knows of a check: the class (its attributes, its parameter
// declaration and a factory of fresh objects) and the object of one run.
// Python check classes reach the core through an adapter of the Python face;
// C++ hosts describe theirs with NativeClass.
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zerko::parameters {
class Block;
class Task;
}  // namespace zerko::parameters

namespace zerko::check {

/// The list into which a check writes what it found, under a heading.
class NamedBuffer {
public:
    explicit NamedBuffer(std::string name = {}, std::vector<std::string> items = {})
        : name(std::move(name)), items(std::move(items)) {}

    void append(std::string item) { items.push_back(std::move(item)); }
    /// Removes the items from the end, one at a time; the name stays.
    void clear() {
        while (!items.empty()) items.pop_back();
    }
    std::size_t length() const noexcept { return items.size(); }
    bool is_empty() const noexcept { return items.empty(); }
    bool has_issues() const noexcept { return !items.empty(); }

    std::string name;
    std::vector<std::string> items;
};

/// The object of one run of a check. The queue makes a fresh one for every
/// result, resets its flags, runs it, and later asks it to fix, select and
/// describe what it found.
class Base {
public:
    virtual ~Base() = default;

    /// The test: raises error::ValidationError to report an issue.
    virtual void check(const std::string& path, parameters::Task& parameters) = 0;
    /// Repairs what the last run found.
    virtual void fix_result(const std::string& path, parameters::Task& parameters);
    /// Selects in the scene what the last run found.
    virtual void select_result();
    /// A text about the last run; nothing when the check gave no text.
    virtual std::optional<std::string> result_message();

    // The state the queue reads and resets around a run. The defaults keep
    // it here; the Python adapter keeps it on the Python object instead.
    virtual std::string long_name() const { return long_name_; }
    virtual void set_long_name(std::string value) { long_name_ = std::move(value); }
    virtual bool could_be_fixed() const { return could_be_fixed_; }
    virtual void set_could_be_fixed(bool value) { could_be_fixed_ = value; }
    virtual bool could_be_selected() const { return could_be_selected_; }
    virtual void set_could_be_selected(bool value) { could_be_selected_ = value; }
    virtual bool scene_oriented() const { return scene_oriented_; }
    /// Gives the object a result buffer of its own, so that no run shares one.
    virtual void new_result() { result = NamedBuffer(); }
    virtual void clear_result() { result.clear(); }

    NamedBuffer result;

protected:
    friend class NativeClass;
    std::string long_name_;
    bool could_be_fixed_ = false;
    bool could_be_selected_ = false;
    bool scene_oriented_ = false;
};

/// The class-level attributes of a check.
struct Attributes {
    std::string class_id;
    std::string long_name;
    std::string short_name;
    std::string description;
    std::string category;
    long long sort_index = 0;
    bool scene_oriented = false;
};

/// A check class as discovery, the checklist and the queue see it.
class Class {
public:
    virtual ~Class() = default;

    virtual std::string class_id() const = 0;
    virtual std::string long_name() const = 0;
    virtual std::string short_name() const = 0;
    virtual std::string description() const = 0;
    virtual std::string category() const = 0;
    virtual long long sort_index() const = 0;
    virtual bool scene_oriented() const = 0;

    /// A new declaration of the class's parameters.
    virtual std::shared_ptr<parameters::Block> parameters() const = 0;
    /// A fresh object for one run.
    virtual std::unique_ptr<Base> create() const = 0;

    /// Whether discovery takes it as a check class at all (a Python class
    /// must derive from the base through at least one intermediate class).
    virtual bool is_check_class() const { return true; }
    /// Whether it passes validation; never raises.
    virtual bool is_valid() const = 0;
    /// The same class, seen twice (a class imported into a second module).
    virtual bool same(const Class& other) const { return this == &other; }
};

/// A check class written in C++: its attributes, its parameter declaration
/// and a factory of its objects.
class NativeClass final : public Class {
public:
    using ParametersFactory = std::function<std::shared_ptr<parameters::Block>()>;
    using Factory = std::function<std::unique_ptr<Base>()>;

    NativeClass(Attributes attributes, ParametersFactory parameters, Factory factory);

    std::string class_id() const override { return attributes_.class_id; }
    std::string long_name() const override { return attributes_.long_name; }
    std::string short_name() const override { return attributes_.short_name; }
    std::string description() const override { return attributes_.description; }
    std::string category() const override { return attributes_.category; }
    long long sort_index() const override { return attributes_.sort_index; }
    bool scene_oriented() const override { return attributes_.scene_oriented; }
    std::shared_ptr<parameters::Block> parameters() const override;
    /// An object from the factory, with the class's long name and orientation.
    std::unique_ptr<Base> create() const override;
    /// Both factories are there and the parameter factory gives a block.
    bool is_valid() const override;

private:
    Attributes attributes_;
    ParametersFactory parameters_;
    Factory factory_;
};

}  // namespace zerko::check
