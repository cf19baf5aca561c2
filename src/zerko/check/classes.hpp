#pragma once
// Discovery of check classes: the directories of check modules are scanned
// in order, what counts as a check class is kept, invalid ones are set
// aside, a clash of class ids goes to the first directory, and the classes
// are ordered by category and sort index.
#include <array>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "zerko/check/base.hpp"
#include "zerko/settings/check.hpp"

namespace zerko::check {

/// The group a category names: categories are compared in lower case.
std::string category_key(std::string_view category);

/// What the scan of one directory found: every class member of every
/// module, packages walked into, in the order found, and the modules that
/// failed to load.
struct Found {
    struct Failure {
        std::string module;
        std::string error;  ///< "ClassName: text"
    };
    std::vector<std::shared_ptr<Class>> classes;
    std::vector<Failure> failures;
};

/// Lists and loads the check modules of a directory. The Python face
/// imports modules; a C++ host registers its classes in a Registry.
class ModuleSource {
public:
    virtual ~ModuleSource() = default;
    virtual Found search(const std::string& directory) = 0;
};

/// Check classes registered by a C++ host under a directory path.
class Registry final : public ModuleSource {
public:
    void add(std::string_view directory, std::shared_ptr<Class> check_class);
    Found search(const std::string& directory) override;

private:
    std::map<std::string, std::vector<std::shared_ptr<Class>>, std::less<>> classes_;
};

class Classes {
public:
    using Array = std::vector<std::shared_ptr<Class>>;

    /// The known categories, in the order their groups are shown.
    static constexpr std::array<std::string_view, 8> group_order{
        "scene", "object", "mesh", "mesh non-manifold", "mapping", "material", "lod", "project"};

    /// Keeps the directories and the source, and scans at once.
    Classes(std::shared_ptr<settings::Check::Directory::List> directories, std::shared_ptr<ModuleSource> source);

    Array::const_iterator begin() const noexcept { return array_.begin(); }
    Array::const_iterator end() const noexcept { return array_.end(); }
    std::size_t size() const noexcept { return array_.size(); }
    const Array& array() const noexcept { return array_; }

    /// The class with that id, or null.
    std::shared_ptr<Class> get(std::string_view class_id) const;
    /// The classes that failed validation, for the user interface to show.
    const Array& get_denied() const noexcept { return denied_; }

    /// Scans every enabled directory again, in order. The lists keep their
    /// identity: they are emptied and refilled.
    void reload();

    const std::shared_ptr<settings::Check::Directory::List>& directories() const noexcept { return directories_; }

    /// Groups by lower-case category, known groups first in their order and
    /// unknown ones after them by first sight; each group by sort index,
    /// stable.
    static Array sort(const Array& array);

private:
    void search(const std::string& directory, Array& container);

    std::shared_ptr<settings::Check::Directory::List> directories_;
    std::shared_ptr<ModuleSource> source_;
    Array denied_;
    Array array_;
    std::map<std::string, std::shared_ptr<Class>, std::less<>> table_;
};

}  // namespace zerko::check
