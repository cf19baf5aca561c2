#pragma once
// Choice sets of the user interface. Each item stands for one or more
// constants; items for types that the host's table cannot express are taken
// out of the list (their named field stays, as host code may still ask for it).
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "zerko/constants/type_mapping.hpp"

namespace zerko::constants {

class Mask {
public:
    /// A list of constants with a label, a field name and whether the type
    /// table governs it.
    class Item {
    public:
        Item(std::vector<std::string> constants = {}, std::string name = {}, std::string attr = {},
             bool mapped = false)
            : constants_(std::move(constants)), name_(std::move(name)), attr_(std::move(attr)), mapped_(mapped) {}
        const std::vector<std::string>& constants() const noexcept { return constants_; }
        const std::string& name() const noexcept { return name_; }
        const std::string& attr() const noexcept { return attr_; }
        bool mapped() const noexcept { return mapped_; }
        bool operator==(const Item&) const = default;

    private:
        std::vector<std::string> constants_;
        std::string name_, attr_;
        bool mapped_;
    };

    using ItemPtr = std::shared_ptr<const Item>;

    /// A list of items; items with an `attr` are also fields of that name.
    class Set {
    public:
        Set() = default;
        explicit Set(std::vector<ItemPtr> items);
        virtual ~Set() = default;
        const std::vector<ItemPtr>& items() const noexcept { return items_; }
        /// The item under field name `attr`, also after it left the list.
        ItemPtr field(std::string_view attr) const;
        const std::map<std::string, ItemPtr, std::less<>>& fields() const noexcept { return fields_; }
        /// Removes each given item from the list; the fields stay.
        void remove(const std::vector<ItemPtr>& unexpected);
        /// The class name under which a Mask stores the set.
        virtual std::string_view kind() const { return "_Set"; }

    private:
        std::vector<ItemPtr> items_;
        std::map<std::string, ItemPtr, std::less<>> fields_;
    };

    class Ghost : public Set {
    public:
        Ghost();
        std::string_view kind() const override { return "Ghost"; }
    };
    class Type : public Set {
    public:
        Type();
        std::string_view kind() const override { return "Type"; }
    };
    class Result : public Set {
    public:
        Result();
        std::string_view kind() const override { return "Result"; }
    };

    explicit Mask(TypeMapping mapping);

    const TypeMapping& mapping() const noexcept { return mapping_; }
    const std::shared_ptr<Ghost>& ghost() const noexcept { return ghost_; }
    const std::shared_ptr<Type>& type() const noexcept { return type_; }
    const std::shared_ptr<Result>& result() const noexcept { return result_; }

private:
    void filter(Set& set) const;

    TypeMapping mapping_;
    // Shared, so that a face may hand a set out without tying it to the Mask.
    std::shared_ptr<Ghost> ghost_ = std::make_shared<Ghost>();
    std::shared_ptr<Type> type_ = std::make_shared<Type>();
    std::shared_ptr<Result> result_ = std::make_shared<Result>();
};

}  // namespace zerko::constants
