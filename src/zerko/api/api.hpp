#pragma once
// The one object a host layer constructs. It builds every service in a fixed
// order, wires them to each other and exposes them; it has no logic of its own
// beyond that order and the shutdown.
#include <array>
#include <memory>
#include <optional>
#include <string>

#include "zerko/api/environment.hpp"
#include "zerko/check/classes.hpp"
#include "zerko/constants/mask.hpp"
#include "zerko/foundation/callbacks.hpp"
#include "zerko/hierarchy/hierarchy.hpp"
#include "zerko/scan/buffer.hpp"
#include "zerko/scene/virtual.hpp"
#include "zerko/scene/operator.hpp"
#include "zerko/settings/settings.hpp"
#include "zerko/statistics/statistics.hpp"

namespace zerko::api {

class Scene;

/// The library's version: major, minor, patch.
inline constexpr std::array<int, 3> version{0, 8, 20};

class Api {
public:
    /// Where check classes come from: the source that loads the modules of
    /// a directory, and the file of the host's embedded check module, whose
    /// folder becomes the locked "Default" directory.
    struct Checks {
        std::shared_ptr<check::ModuleSource> source;
        std::optional<std::string> module_file;
    };

    /// Builds the services in order. A missing or faulty `environment`
    /// silently becomes a LocalEnv.
    Api(std::shared_ptr<scene::Operator> op, std::shared_ptr<Environment> environment, Checks checks = {});
    Api(const Api&) = delete;
    Api& operator=(const Api&) = delete;

    /// A new Mask from the operator's type table on every call.
    constants::Mask masks() const { return constants::Mask(op_->type_mapping()); }

    /// Removes the host callbacks, then clears `callbacks`. Writes nothing.
    void shutdown();

    const std::shared_ptr<scene::Operator>& op() const noexcept { return op_; }
    foundation::CallBacks& callbacks() noexcept { return callbacks_; }
    const std::shared_ptr<Environment>& env() const noexcept { return env_; }
    /// The settings store, read from the environment's settings file.
    settings::Settings& settings() noexcept { return *settings_; }
    /// The statistics store, read from the environment's statistics file.
    statistics::Statistics& statistics() noexcept { return *statistics_; }
    const std::shared_ptr<settings::Settings>& settings_store() const noexcept { return settings_; }
    const std::shared_ptr<statistics::Statistics>& statistics_store() const noexcept { return statistics_; }
    /// The check classes found in the directories of the settings.
    const std::shared_ptr<check::Classes>& classes() const noexcept { return classes_; }
    /// The scene snapshot and the matching engine, built for the components.
    const std::shared_ptr<scene::Virtual>& virtual_scene() const noexcept { return virtual_; }
    const std::shared_ptr<hierarchy::Hierarchy>& hierarchy() const noexcept { return hierarchy_; }
    /// The scene component: scanner, hierarchy and buffer of the open scene.
    const std::shared_ptr<Scene>& scene() const noexcept { return scene_; }

private:
    std::shared_ptr<scene::Operator> op_;
    foundation::CallBacks callbacks_;
    std::shared_ptr<Environment> env_;
    std::shared_ptr<settings::Settings> settings_;
    std::shared_ptr<statistics::Statistics> statistics_;
    std::shared_ptr<check::Classes> classes_;
    std::shared_ptr<scene::Virtual> virtual_;
    std::shared_ptr<hierarchy::Hierarchy> hierarchy_;
    std::shared_ptr<Scene> scene_;
};

}  // namespace zerko::api
