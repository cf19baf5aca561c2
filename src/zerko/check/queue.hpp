#pragma once
// The check run: a queue of tasks, one per object (or for the scene), each
// filled with results, one per check and parameter task. A result runs its
// check when it is made and keeps its status; fixes, selections and
// messages come later from the user interface. No error of a check leaves
// a result: it ends in a status or a log line.
#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "zerko/check/base.hpp"
#include "zerko/check/list.hpp"

namespace zerko::scene {
class Operator;
}
namespace zerko::statistics {
class Statistics;
}

namespace zerko::check {

class Queue {
public:
    class Task;
    using Tasks = std::vector<std::shared_ptr<Task>>;

    Tasks::const_iterator begin() const noexcept { return tasks_.begin(); }
    Tasks::const_iterator end() const noexcept { return tasks_.end(); }
    std::size_t size() const noexcept { return tasks_.size(); }
    void add(std::shared_ptr<Task> task) { tasks_.push_back(std::move(task)); }
    void clear() {
        while (!tasks_.empty()) tasks_.pop_back();
    }
    bool is_empty() const noexcept { return tasks_.empty(); }
    /// Fixes every result whose check offered a fix in its last run; no re-check.
    void fix_all();
    bool fix_exists() const;

private:
    Tasks tasks_;
};

class Queue::Task {
public:
    class Result;
    /// The results of a task, in the order of adding.
    class Results {
    public:
        using Items = std::vector<std::shared_ptr<Result>>;
        Items::const_iterator begin() const noexcept { return items_.begin(); }
        Items::const_iterator end() const noexcept { return items_.end(); }
        std::size_t size() const noexcept { return items_.size(); }
        bool empty() const noexcept { return items_.empty(); }
        void add(std::shared_ptr<Result> result) { items_.push_back(std::move(result)); }

    private:
        Items items_;
    };

    /// The four statuses, in rising severity.
    static constexpr std::array<std::string_view, 4> level_order{"pass", "info", "fail", "error"};

    Task(std::string path, List::Controls check_controls, std::string name = {}, std::string icon = {});

    std::string name;  ///< the name given, or the path
    std::string path;
    std::string icon;
    /// What a host hands in as the icon when it is not text (a host's own
    /// image object): kept for the host, never read by the core.
    std::shared_ptr<void> host_icon;
    List::Controls check_controls;
    Results results;

    bool empty() const noexcept { return results.empty(); }
    /// The worst status of the results; "pass" for none, and a status that
    /// is not one of the four counts as "pass".
    std::string_view status() const;
    static std::size_t order_index(std::string_view status);
};

class Queue::Task::Result {
public:
    /// Makes a fresh object of `check_class` and runs it at once on `path`
    /// with a private clone of `parameter_task`. With `single` false the
    /// object's long name gets " (Task NN)".
    Result(std::string path, const Class& check_class, const parameters::Task& parameter_task,
           std::shared_ptr<statistics::Statistics> statistics, std::shared_ptr<scene::Operator> op,
           bool single = true);
    Result(const Result&) = delete;
    Result& operator=(const Result&) = delete;

    std::string name() const { return check_->long_name(); }
    std::string_view status() const noexcept { return status_; }
    bool could_be_fixed() const { return check_->could_be_fixed(); }
    bool could_be_selected() const { return check_->could_be_selected(); }
    bool scene_oriented() const { return check_->scene_oriented(); }
    const std::string& path() const noexcept { return path_; }
    Base& check_object() noexcept { return *check_; }
    const std::shared_ptr<parameters::Task>& parameters() const noexcept { return param_; }

    /// Runs the check again; records one statistics entry.
    void check();
    /// Inside a selection scope of the operator, so the user's selection survives.
    void fix_result();
    void select_result();
    /// The check's text; empty when it gave none or failed.
    std::string result_message();

private:
    std::shared_ptr<scene::Operator> op_;
    std::shared_ptr<statistics::Statistics> statistics_;
    std::unique_ptr<Base> check_;
    std::string path_;
    std::shared_ptr<parameters::Task> param_;
    std::string_view status_;
};

}  // namespace zerko::check
