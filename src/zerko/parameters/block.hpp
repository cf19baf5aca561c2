#pragma once
// Parameters of a check: a declaration of inputs and any number of tasks,
// each a complete and independent set of values, so that one check can run
// several times with different values.
//
// How a check's parameters are used from C++:
//
//     parameters::Block block({std::make_shared<parameters::IntRange>("distance", 0, 100, 1, 7)});
//     block.load(stored);               // stored Block::data(), or null: one default task
//     for (const auto& task : block.tasks()) {
//         task->assert_no_errors();     // rethrows a bad declaration or stale stored data
//         auto distance = task->get<parameters::IntRange>("distance");
//         ... task->as_info, task->number ...
//     }
//     block.data();                     // [{"as_info": ..., "state": {...}}, ...] for the settings
//     block.defaults();                 // the same form with the declared values, one task
//
// Block: load(data), tasks(), length(), data(), defaults(), state(), empty(),
// complex()/set_complex(), as_info()/set_as_info(), append_task(),
// remove_task(task), update_numerator(), reset().
// Task (also Block::Task; the Python face gives Block and Task shared_ptr
// holders, so nb::cast<std::shared_ptr<Block>> recovers a block): as_info, number, inputs(), table(), attribute(name), get<T>(name),
// data(), state(), load(state), clone(), assert_no_errors(), build_errors(),
// load_errors().
//
// A task never raises for a bad declaration or bad stored data while it is
// built or loaded: the errors are kept and `assert_no_errors` raises the
// first of them at the moment the task is used.
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "zerko/parameters/input.hpp"

namespace zerko::parameters {

/// One complete set of values of a block; also named Block::Task. Tasks
/// live in shared pointers, and a task hands out shares of itself so that a
/// check that keeps its argument keeps the task alive.
class Task : public std::enable_shared_from_this<Task> {
public:
    /// Clones every node of `inputs` and builds the name table; a node
    /// that is no input (ParameterInputType) or a repeated name
    /// (AttributeNameRepeat) is kept as a build error and empties the table.
    explicit Task(const std::vector<NodePtr>& inputs, bool as_info = false);

    /// Whether a failure of this task is reported as information only.
    bool as_info = false;
    /// The place of the task in its block, from 1; 0 until a block numbers it.
    int number = 0;

    /// This task's own copies of the declared nodes.
    const std::vector<NodePtr>& inputs() const noexcept { return inputs_; }
    /// Name to input; empty after a build error.
    const NamedInputs& table() const noexcept { return table_; }
    /// The inputs reachable by name on the task; unlike the table, those
    /// named before a build error stay.
    const NamedInputs& attributes() const noexcept { return attributes_; }
    /// The input reachable under `name`, or null.
    InputPtr attribute(std::string_view name) const { return attributes_.find(name); }
    /// The input under `name` as a `T`; null when absent or of another type.
    template <typename T>
    std::shared_ptr<T> get(std::string_view name) const {
        return std::dynamic_pointer_cast<T>(attributes_.find(name));
    }

    /// {"as_info": as_info, "state": state()}
    Document data() const;
    /// Name to data of every input of the table.
    Document state() const;
    /// Loads each named input in order. The first failure (an unknown
    /// name, data of the wrong form) ends the loop and is kept as a load
    /// error; inputs not named keep their values.
    void load(const Document& state);
    /// A new task from these inputs with the same as_info and state, this
    /// task's load errors added to its own; the number starts at 0.
    std::shared_ptr<Task> clone() const;
    /// Rethrows the first build error, else the first load error.
    void assert_no_errors() const;

    const std::vector<std::exception_ptr>& build_errors() const noexcept { return build_errors_; }
    const std::vector<std::exception_ptr>& load_errors() const noexcept { return load_errors_; }

private:
    void build();

    std::vector<NodePtr> inputs_;
    NamedInputs table_;
    NamedInputs attributes_;
    std::vector<std::exception_ptr> build_errors_;
    std::vector<std::exception_ptr> load_errors_;
};

class Block {
public:
    using Task = parameters::Task;
    using TaskPtr = std::shared_ptr<Task>;

    /// Keeps the declared nodes as they are and works out their default state.
    explicit Block(std::vector<NodePtr> inputs = {});

    const std::vector<NodePtr>& inputs() const noexcept { return inputs_; }
    const std::vector<TaskPtr>& tasks() const noexcept { return tasks_; }
    std::size_t length() const noexcept { return tasks_.size(); }
    /// True when the block was declared with no inputs at all.
    bool empty() const noexcept { return empty_; }
    bool complex() const noexcept { return complex_; }
    void set_complex(bool value) noexcept { complex_ = value; }
    /// The as_info a new task starts with.
    bool as_info() const noexcept { return as_info_; }
    void set_as_info(bool value) noexcept { as_info_ = value; }
    /// The declared default state: input name to data.
    const Document& state() const noexcept { return state_; }

    /// [{"as_info": as_info(), "state": state()}]
    Document defaults() const;
    /// The data of every task, in order.
    Document data() const;

    /// Replaces the tasks by those of `data` (an array of task data); empty or
    /// null data gives one default task. An element without "as_info" or
    /// "state" takes the block's. Load errors stay in the tasks.
    void load(const Document& data);
    /// Appends a task of the default state and returns it.
    TaskPtr append_task();
    /// Removes `task` when it belongs to the block.
    void remove_task(const Task* task);
    /// Numbers the tasks 1, 2, 3... in order.
    void update_numerator();
    /// Removes every task, from the end.
    void reset();
    /// Always raises TypeError: a block cannot be cloned (the constructor
    /// takes no as_info or complex). Kept so that callers see the same failure
    /// on every face.
    [[noreturn]] std::shared_ptr<Block> clone() const;

    /// Name to data of every input among `inputs`; other nodes are skipped.
    static Document get_state(const std::vector<NodePtr>& inputs);

private:
    std::vector<NodePtr> inputs_;
    bool empty_;
    bool complex_ = false;
    bool as_info_ = false;
    Document state_;
    std::vector<TaskPtr> tasks_;
};

}  // namespace zerko::parameters
