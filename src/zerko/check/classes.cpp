#include "zerko/check/classes.hpp"

#include <algorithm>
#include <set>

#include "zerko/foundation/logger.hpp"
#include "zerko/foundation/naming.hpp"

namespace zerko::check {

using foundation::Logger;

std::string category_key(std::string_view category) {
    std::string out(category);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return out;
}

void Registry::add(std::string_view directory, std::shared_ptr<Class> check_class) {
    if (!check_class) return;
    classes_[settings::Check::Directory::normalise(directory)].push_back(std::move(check_class));
}

Found Registry::search(const std::string& directory) {
    Found found;
    const auto it = classes_.find(settings::Check::Directory::normalise(directory));
    if (it != classes_.end()) found.classes = it->second;
    return found;
}

Classes::Classes(std::shared_ptr<settings::Check::Directory::List> directories, std::shared_ptr<ModuleSource> source)
    : directories_(directories ? std::move(directories) : std::make_shared<settings::Check::Directory::List>()),
      source_(std::move(source)) {
    reload();
}

std::shared_ptr<Class> Classes::get(std::string_view class_id) const {
    const auto it = table_.find(class_id);
    return it == table_.end() ? nullptr : it->second;
}

void Classes::reload() {
    while (!denied_.empty()) denied_.pop_back();
    while (!array_.empty()) array_.pop_back();
    table_.clear();

    Array array;
    std::set<std::string, std::less<>> exists;
    for (const auto& directory : *directories_) {
        if (!directory->enabled()) continue;
        Array found;
        search(directory->path(), found);
        for (auto& check_class : found) {
            // The first directory in order wins a clash of ids, silently.
            std::string id = check_class->class_id();
            if (!exists.insert(id).second) continue;
            array.push_back(std::move(check_class));
        }
    }
    Array sorted = sort(array);
    array_.insert(array_.end(), sorted.begin(), sorted.end());
    for (const auto& check_class : array_) table_.insert_or_assign(check_class->class_id(), check_class);
}

void Classes::search(const std::string& directory, Array& container) {
    if (!source_) return;
    Found found = source_->search(directory);
    // A module that cannot be loaded costs its own classes and a log line.
    for (const auto& failure : found.failures) {
        Logger::warning(foundation::format("Import Failed: {} - {}", {failure.module, failure.error}));
    }
    for (auto& check_class : found.classes) {
        if (!check_class || !check_class->is_check_class()) continue;
        if (!check_class->is_valid()) {
            denied_.push_back(std::move(check_class));
            continue;
        }
        container.push_back(std::move(check_class));
    }
}

Classes::Array Classes::sort(const Array& array) {
    std::vector<std::string> categories;
    std::map<std::string, Array, std::less<>> groups;
    for (const auto& check_class : array) {
        std::string key = category_key(check_class->category());
        auto [it, added] = groups.try_emplace(key);
        if (added) categories.push_back(key);
        it->second.push_back(check_class);
    }
    // Each known group moves to the front, walking the order backwards, so
    // the known stand first in their order and the unknown keep theirs.
    for (auto name = group_order.rbegin(); name != group_order.rend(); ++name) {
        const auto found = std::find(categories.begin(), categories.end(), *name);
        if (found == categories.end()) continue;
        std::string key = std::move(*found);
        categories.erase(found);
        categories.insert(categories.begin(), std::move(key));
    }
    Array out;
    out.reserve(array.size());
    for (const auto& key : categories) {
        Array& group = groups[key];
        std::stable_sort(group.begin(), group.end(), [](const auto& a, const auto& b) {
            return a->sort_index() < b->sort_index();
        });
        out.insert(out.end(), group.begin(), group.end());
    }
    return out;
}

}  // namespace zerko::check
