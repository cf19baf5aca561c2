#pragma once
// The scene-side services for the host: the scanner, the hierarchy and the
// buffer. At start-up it brings the current project and the hierarchies
// stored in the open scene into memory, and it loads the buffer again each
// time the host opens a scene.
#include <memory>
#include <optional>
#include <string>

#include "zerko/hierarchy/hierarchy.hpp"
#include "zerko/scan/buffer.hpp"
#include "zerko/scan/scanner.hpp"
#include "zerko/scene/operator.hpp"
#include "zerko/scene/virtual.hpp"

namespace zerko::api {

class Api;

class Scene : public std::enable_shared_from_this<Scene> {
public:
    /// Keeps the references and makes the scanner; start() does the loading.
    Scene(Api& api, std::shared_ptr<scene::Operator> op, std::shared_ptr<scene::Virtual> virtual_scene,
          std::shared_ptr<hierarchy::Hierarchy> hierarchy, std::shared_ptr<scan::Buffer> buffer);

    /// Loads the current project, then the buffer of the open scene, and
    /// registers the scene-opened handler. Called once, right after construction.
    void start();

    const std::shared_ptr<hierarchy::Hierarchy>& hierarchy() const noexcept { return hierarchy_; }
    const std::shared_ptr<scan::Buffer>& buffer() const noexcept { return buffer_; }
    const std::shared_ptr<scan::Scanner>& scanner() const noexcept { return scanner_; }

    /// Asks the host for a directory; `start` and the answer are in the stored
    /// form with "~". Nothing when the user cancels.
    std::optional<std::string> directory_dialog(const std::string& start);

    /// Loads the buffer from the open scene and fires `buffer_loaded`.
    void load_buffer();

private:
    void load_states();
    void link_buffer();

    Api& api_;
    std::shared_ptr<scene::Operator> op_;
    std::shared_ptr<hierarchy::Hierarchy> hierarchy_;
    std::shared_ptr<scan::Buffer> buffer_;
    std::shared_ptr<scan::Scanner> scanner_;
};

}  // namespace zerko::api
