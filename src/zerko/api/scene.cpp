#include "zerko/api/scene.hpp"

#include "zerko/api/api.hpp"
#include "zerko/foundation/logger.hpp"
#include "zerko/project/collection.hpp"
#include "zerko/project/settings.hpp"

namespace zerko::api {

Scene::Scene(Api& api, std::shared_ptr<scene::Operator> op, std::shared_ptr<scene::Virtual> virtual_scene,
             std::shared_ptr<hierarchy::Hierarchy> hierarchy, std::shared_ptr<scan::Buffer> buffer)
    : api_(api), op_(std::move(op)), hierarchy_(std::move(hierarchy)), buffer_(std::move(buffer)),
      scanner_(std::make_shared<scan::Scanner>(op_, std::move(virtual_scene), hierarchy_, buffer_, api.callbacks())) {}

void Scene::start() {
    // The project comes first: the buffer is judged against its pattern.
    load_states();
    link_buffer();
}

void Scene::load_states() {
    // The current project is the one the workspace names, when it is there
    // and compatible; else the first compatible one, which becomes current.
    auto& settings = api_.settings();
    const std::string wanted = settings.workspace().project;
    project::Collection collection(api_.callbacks(), api_.env()->get_projects_directory(), api_.env()->target());
    const auto headers = collection.headers();
    std::shared_ptr<project::Settings> current;
    for (const auto& header : headers) {
        if (header.filename != wanted) continue;
        auto project = collection.get(wanted);
        if (project->compatible()) current = std::move(project);
        break;
    }
    if (!current) {
        for (const auto& header : headers) {
            if (!header.compatible) continue;
            current = collection.get(header.filename);
            break;
        }
    }
    if (!current || !current->compatible()) return;
    hierarchy_->pattern().set(*current->history()->get_record());
    if (current->filename() != wanted) {
        settings.workspace().project = current->filename();
        settings.write();
    }
    foundation::Logger::info("Load \"" + current->name() + "\" project");
}

void Scene::link_buffer() {
    load_buffer();
    // The host may keep the handler after the Api is gone: it then does nothing.
    op_->register_scene_opened_callback([weak = std::weak_ptr<Scene>(shared_from_this())] {
        if (const auto self = weak.lock()) self->load_buffer();
    });
}

void Scene::load_buffer() {
    buffer_->load();
    api_.callbacks().buffer_loaded();
}

std::optional<std::string> Scene::directory_dialog(const std::string& start) {
    const auto& env = *api_.env();
    const std::string path = op_->directory_dialog(env.decode_user(start), "Set Directory");
    if (path.empty()) return std::nullopt;
    return env.encode_user(path);
}

}  // namespace zerko::api
