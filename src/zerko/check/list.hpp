#pragma once
// The checklist: one control per check class saying whether the check is on
// and with what parameters, grouped by category, bound to a configuration
// record per class; and the editor that joins the presets to a checklist.
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "zerko/check/base.hpp"
#include "zerko/settings/check.hpp"

namespace zerko::check {

class List {
public:
    class Control;
    class Category;
    using Controls = std::vector<std::shared_ptr<Control>>;

    /// One control per class, in the classes' order; then the categories,
    /// the configuration (when one is given) and the preset editor.
    explicit List(const std::vector<std::shared_ptr<Class>>& classes,
                  std::shared_ptr<settings::Check::Presets> presets = nullptr,
                  std::shared_ptr<settings::Check::Config> config = nullptr);
    List(const List&) = delete;
    List& operator=(const List&) = delete;

    const std::vector<std::shared_ptr<Category>>& categories() const noexcept { return categories_; }
    const std::shared_ptr<settings::Check::Config>& config() const noexcept { return config_; }
    const std::shared_ptr<settings::Check::Presets::Editor>& preset() const noexcept { return preset_editor_; }

    Controls::const_iterator begin() const noexcept { return controls_.begin(); }
    Controls::const_iterator end() const noexcept { return controls_.end(); }
    /// All controls, or only the enabled ones.
    Controls iterator(bool enabled = false) const;
    /// No enabled control.
    bool is_empty() const;
    /// The controls of iterator(enabled) whose class is (or is not) scene oriented.
    Controls get(bool enabled = true, bool scene_oriented = false) const;

    /// Binds every control to its record of `config` (a missing record is
    /// made, records of classes that are gone are dropped); null does nothing.
    void load(std::shared_ptr<settings::Check::Config> config);
    void save();
    void clear();

private:
    void build_categories();

    Controls controls_;
    std::vector<std::shared_ptr<Category>> categories_;
    std::shared_ptr<settings::Check::Config> config_;
    std::shared_ptr<settings::Check::Presets::Editor> preset_editor_;
};

class List::Control {
public:
    explicit Control(std::shared_ptr<Class> check_class);

    std::string name;  ///< the class's short name
    std::shared_ptr<Class> check;
    std::shared_ptr<parameters::Block> parameters;
    bool enabled = false;
    bool opened = false;

    std::string description() const { return check->description(); }
    const std::shared_ptr<settings::Check>& state() const noexcept { return state_; }

    /// Takes the record's switches and parameters, and writes to it from then on.
    void load(std::shared_ptr<settings::Check> state);
    /// Writes back to the bound record; a disabled control writes the
    /// defaults, so no user setting of it stays in the file.
    void save();
    /// Unbinds and goes back to the declared defaults, off and closed.
    void clear();

private:
    std::shared_ptr<settings::Check> state_;
};

class List::Category {
public:
    explicit Category(std::string name) : name(std::move(name)) {}
    void add(std::shared_ptr<Control> control) { controls.push_back(std::move(control)); }
    Controls::const_iterator begin() const noexcept { return controls.begin(); }
    Controls::const_iterator end() const noexcept { return controls.end(); }

    std::string name;
    Controls controls;
};

}  // namespace zerko::check

namespace zerko::settings {

/// The presets as the checklist sees them: make a preset of the list's
/// configuration, take one over, or store the list's into one.
class Check::Presets::Editor {
public:
    /// `check_list` is the owner of this editor and outlives it.
    Editor(std::shared_ptr<Presets> presets, check::List* check_list)
        : presets_(std::move(presets)), check_list_(check_list) {}

    std::vector<std::string> names() const { return presets_ ? presets_->names() : std::vector<std::string>{}; }
    bool config_loaded() const { return check_list_ && check_list_->config() != nullptr; }
    const std::shared_ptr<Presets>& presets() const noexcept { return presets_; }

    void create(std::string name);
    void upload(const std::shared_ptr<Set>& preset);
    void apply(const std::shared_ptr<Set>& preset);
    void erase(const std::shared_ptr<Set>& preset);
    void sync_applied();

private:
    friend class check::List;
    std::shared_ptr<Presets> presets_;
    check::List* check_list_;
};

}  // namespace zerko::settings
