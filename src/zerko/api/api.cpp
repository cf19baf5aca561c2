#include "zerko/api/api.hpp"

#include "zerko/api/scene.hpp"

#include "zerko/foundation/assertions.hpp"
#include "zerko/foundation/errors.hpp"

namespace zerko::api {

Api::Api(std::shared_ptr<scene::Operator> op, std::shared_ptr<Environment> environment, Checks checks)
    : op_(std::move(op)) {
    if (!op_) throw TypeError("Api needs a Scene.Operator");
    // callbacks_ exists already (step 2); the host registers after construction.
    if (environment && foundation::Assert::Environment::is_valid(*environment)) {
        env_ = std::move(environment);
    } else {
        env_ = std::make_shared<LocalEnv>();
    }
    settings_ = std::make_shared<settings::Settings>(*env_);
    statistics_ = std::make_shared<statistics::Statistics>(*env_);
    // The host's embedded checks are one more source of classes, beside the
    // user's directories; its folder is never written to the settings.
    const auto& directories = settings_->check().directories;
    if (checks.module_file) directories->embed(*checks.module_file);
    classes_ = std::make_shared<check::Classes>(directories, std::move(checks.source));
    virtual_ = std::make_shared<scene::Virtual>(op_);
    hierarchy_ = std::make_shared<hierarchy::Hierarchy>(virtual_, classes_);
    auto buffer = std::make_shared<scan::Buffer>(op_, virtual_, hierarchy_);
    // Built last among the scene services: it loads the current project and
    // the open scene's buffer, and registers for the scenes opened later.
    scene_ = std::make_shared<Scene>(*this, op_, virtual_, hierarchy_, std::move(buffer));
    scene_->start();
}

void Api::shutdown() {
    op_->delete_callbacks();
    callbacks_.clear();
}

}  // namespace zerko::api
