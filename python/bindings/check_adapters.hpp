#pragma once
// The adapters through which the core sees Python check classes and drives
// their objects. Class-level attributes are read by name on every use, so
// a subclass that overrides one is seen at once.
#include "common.hpp"
#include "zerko/check/base.hpp"
#include "zerko/check/classes.hpp"

namespace zerko::py {

/// The Python base of check classes and the error a check raises to report an issue.
nb::handle check_base_type();
nb::handle validation_error_type();
nb::handle named_buffer_type();
/// The source that imports the Python modules of check directories.
std::shared_ptr<check::ModuleSource> python_module_source();
/// A core class for a Python class (or a bound C++ one).
std::shared_ptr<check::Class> check_class_from_python(nb::handle value);

/// One run's Python object.
class PythonCheck final : public check::Base {
public:
    explicit PythonCheck(nb::object object) : object_(std::move(object)) {}

    void check(const std::string& path, parameters::Task& parameters) override;
    void fix_result(const std::string& path, parameters::Task& parameters) override;
    void select_result() override;
    std::optional<std::string> result_message() override;

    std::string long_name() const override;
    void set_long_name(std::string value) override;
    bool could_be_fixed() const override;
    void set_could_be_fixed(bool value) override;
    bool could_be_selected() const override;
    void set_could_be_selected(bool value) override;
    bool scene_oriented() const override;
    void new_result() override;
    void clear_result() override;

    const nb::object& object() const { return object_.get(); }

private:
    bool flag(const char* name) const;
    void set(const char* name, nb::handle value);
    HeldObject object_;
};

/// A Python check class.
class PythonClass final : public check::Class {
public:
    explicit PythonClass(nb::object cls) : class_(std::move(cls)) {}

    std::string class_id() const override { return text("class_id"); }
    std::string long_name() const override { return text("long_name"); }
    std::string short_name() const override { return text("short_name"); }
    std::string description() const override { return text("description"); }
    std::string category() const override { return text("category"); }
    long long sort_index() const override;
    bool scene_oriented() const override;
    std::shared_ptr<parameters::Block> parameters() const override;
    std::unique_ptr<check::Base> create() const override;
    /// Derives from the base through at least one class of the host's own.
    bool is_check_class() const override;
    /// Parameters callable and giving a block, the attributes of their
    /// types, a fresh object with the four operations; never raises.
    bool is_valid() const override;
    bool same(const check::Class& other) const override;

    const nb::object& object() const { return class_.get(); }

private:
    std::string text(const char* name) const;
    HeldObject class_;
};

}  // namespace zerko::py
