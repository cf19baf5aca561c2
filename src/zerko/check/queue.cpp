#include "zerko/check/queue.hpp"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <exception>

#include "zerko/constants/constants.hpp"
#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/logger.hpp"
#include "zerko/foundation/naming.hpp"
#include "zerko/foundation/uuid.hpp"
#include "zerko/parameters/block.hpp"
#include "zerko/scene/operator.hpp"
#include "zerko/statistics/statistics.hpp"

namespace zerko::check {

using foundation::Logger;
namespace result = constants::check::result;

void Queue::fix_all() {
    for (const auto& task : tasks_) {
        for (const auto& item : task->results) {
            if (item->could_be_fixed()) item->fix_result();
        }
    }
}

bool Queue::fix_exists() const {
    return std::any_of(tasks_.begin(), tasks_.end(), [](const auto& task) {
        return std::any_of(task->results.begin(), task->results.end(),
                           [](const auto& item) { return item->could_be_fixed(); });
    });
}

Queue::Task::Task(std::string path_, List::Controls check_controls_, std::string name_, std::string icon_)
    : name(name_.empty() ? path_ : std::move(name_)),
      path(std::move(path_)),
      icon(std::move(icon_)),
      check_controls(std::move(check_controls_)) {}

std::size_t Queue::Task::order_index(std::string_view status) {
    const auto found = std::find(level_order.begin(), level_order.end(), status);
    return found == level_order.end() ? 0 : static_cast<std::size_t>(found - level_order.begin());
}

std::string_view Queue::Task::status() const {
    std::size_t index = 0;
    for (const auto& item : results) index = std::max(index, order_index(item->status()));
    return level_order[index];
}

Queue::Task::Result::Result(std::string path, const Class& check_class, const parameters::Task& parameter_task,
                            std::shared_ptr<statistics::Statistics> statistics, std::shared_ptr<scene::Operator> op,
                            bool single)
    : op_(std::move(op)), statistics_(std::move(statistics)), check_(check_class.create()), path_(std::move(path)),
      status_(result::Pass) {
    if (!check_) throw ValueError("the check class made no object");
    if (!single) {
        check_->set_long_name(check_->long_name() +
                              foundation::format(" (Task {:02d})", {static_cast<std::int64_t>(parameter_task.number)}));
    }
    check_->new_result();
    param_ = parameter_task.clone();
    check();
}

void Queue::Task::Result::check() {
    status_ = result::Pass;
    const double timestamp = foundation::wall_time();
    const auto start = std::chrono::steady_clock::now();
    try {
        param_->assert_no_errors();
        check_->set_could_be_fixed(false);
        check_->set_could_be_selected(false);
        check_->clear_result();
        check_->check(path_, *param_);
    } catch (const error::ValidationError&) {
        // How a check reports an issue; not logged.
        status_ = param_->as_info ? result::Info : result::Fail;
    } catch (const std::exception&) {
        status_ = result::Error;
        Logger::exception(std::current_exception());
    }
    const double speed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (statistics_) {
        try {
            statistics_->add(statistics::type::Checks(timestamp, speed, check_->long_name(), std::string(status_)));
        } catch (const std::exception&) {
            Logger::exception(std::current_exception());
        }
    }
}

void Queue::Task::Result::fix_result() {
    try {
        std::unique_ptr<scene::SelectionScope> scope = op_ ? op_->selection_manager() : nullptr;
        check_->fix_result(path_, *param_);
    } catch (const std::exception&) {
        Logger::exception(std::current_exception());
    }
}

void Queue::Task::Result::select_result() {
    try {
        check_->select_result();
    } catch (const std::exception&) {
        Logger::exception(std::current_exception());
    }
}

std::string Queue::Task::Result::result_message() {
    try {
        return check_->result_message().value_or(std::string());
    } catch (const std::exception&) {
        Logger::exception(std::current_exception());
        return {};
    }
}

}  // namespace zerko::check
