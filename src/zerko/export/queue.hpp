#pragma once
// The list of files that an export is to write.
#include <memory>
#include <string>
#include <vector>

namespace zerko::export_ {

class Queue {
public:
    /// One file: its base name and the scene paths that go into it.
    class Task {
    public:
        explicit Task(std::string name) : name(std::move(name)) {}
        /// The file's base name, as given at construction.
        std::string name;
        /// The scene paths that go into the file, in the order of adding.
        std::vector<std::string> roots;

        void add(std::string path) { roots.push_back(std::move(path)); }
        bool is_empty() const noexcept { return roots.empty(); }
        /// Marks the file as written.
        void confirm() noexcept { confirmed_ = true; }
        /// Constants.Plugin.Status: Success once confirmed, Failure before.
        bool is_confirmed() const noexcept { return confirmed_; }

    private:
        bool confirmed_ = false;
    };
    using TaskPtr = std::shared_ptr<Task>;

    void add(TaskPtr task) { tasks_.push_back(std::move(task)); }
    /// Takes the tasks out from the end until none is left.
    void clear() {
        while (!tasks_.empty()) tasks_.pop_back();
    }
    bool is_empty() const noexcept { return tasks_.empty(); }
    std::size_t size() const noexcept { return tasks_.size(); }
    const std::vector<TaskPtr>& tasks() const noexcept { return tasks_; }
    std::vector<TaskPtr>::const_iterator begin() const { return tasks_.begin(); }
    std::vector<TaskPtr>::const_iterator end() const { return tasks_.end(); }

private:
    std::vector<TaskPtr> tasks_;
};

}  // namespace zerko::export_
