#include "zerko/check/base.hpp"

#include "zerko/parameters/block.hpp"

namespace zerko::check {

void Base::fix_result(const std::string&, parameters::Task&) {}

void Base::select_result() {}

std::optional<std::string> Base::result_message() { return std::string(); }

NativeClass::NativeClass(Attributes attributes, ParametersFactory parameters, Factory factory)
    : attributes_(std::move(attributes)), parameters_(std::move(parameters)), factory_(std::move(factory)) {}

std::shared_ptr<parameters::Block> NativeClass::parameters() const {
    // A class that declares nothing has the empty block.
    return parameters_ ? parameters_() : std::make_shared<parameters::Block>();
}

std::unique_ptr<Base> NativeClass::create() const {
    if (!factory_) return nullptr;
    std::unique_ptr<Base> object = factory_();
    if (object) {
        object->long_name_ = attributes_.long_name;
        object->scene_oriented_ = attributes_.scene_oriented;
    }
    return object;
}

bool NativeClass::is_valid() const {
    if (!factory_) return false;
    try {
        return parameters() != nullptr;
    } catch (...) {
        return false;
    }
}

}  // namespace zerko::check
