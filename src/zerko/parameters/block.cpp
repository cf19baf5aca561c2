#include "zerko/parameters/block.hpp"

#include <algorithm>

#include "zerko/foundation/errors.hpp"

namespace zerko::parameters {

// ------------------------------------------------------------------ Task

Task::Task(const std::vector<NodePtr>& inputs, bool as_info) : as_info(as_info) {
    inputs_.reserve(inputs.size());
    for (const auto& node : inputs) {
        if (!node) throw TypeError("a parameter block holds no empty node");
        inputs_.push_back(node->clone_node());
    }
    build();
}

void Task::build() {
    table_.clear();
    try {
        for (const auto& node : inputs_) {
            auto input = std::dynamic_pointer_cast<Input>(node);
            if (!input) throw error::ParameterInputType();
            if (table_.contains(input->attr())) throw error::AttributeNameRepeat();
            attributes_.set(input->attr(), input);
            table_.set(input->attr(), input);
        }
    } catch (const std::exception&) {
        // A bad declaration must not stop the discovery of checks: it is kept
        // and raised when the task is about to be used.
        build_errors_.push_back(std::current_exception());
        table_.clear();
    }
}

Document Task::state() const {
    Document out = Document::object();
    for (const auto& [name, input] : table_) out[name] = input->data();
    return out;
}

Document Task::data() const {
    Document out = Document::object();
    out["as_info"] = as_info;
    out["state"] = state();
    return out;
}

void Task::load(const Document& state) {
    try {
        for (const auto& [name, data] : detail::expect_object(state, "parameter task state").items()) {
            auto input = table_.find(name);
            if (!input) throw ValueError("no parameter named \"" + name + "\"");
            input->load(data);
        }
    } catch (const std::exception&) {
        // Stale data of an older version of a check becomes a stored error.
        load_errors_.push_back(std::current_exception());
    }
}

std::shared_ptr<Task> Task::clone() const {
    auto copy = std::make_shared<Task>(inputs_, as_info);
    copy->load(state());
    copy->load_errors_.insert(copy->load_errors_.end(), load_errors_.begin(), load_errors_.end());
    return copy;
}

void Task::assert_no_errors() const {
    if (!build_errors_.empty()) std::rethrow_exception(build_errors_.front());
    if (!load_errors_.empty()) std::rethrow_exception(load_errors_.front());
}

// ------------------------------------------------------------------ Block

Block::Block(std::vector<NodePtr> inputs)
    : inputs_(std::move(inputs)), empty_(inputs_.empty()), state_(get_state(inputs_)) {}

Document Block::get_state(const std::vector<NodePtr>& inputs) {
    Document state = Document::object();
    for (const auto& node : inputs) {
        if (auto input = dynamic_cast<const Input*>(node.get())) state[input->attr()] = input->data();
    }
    return state;
}

Document Block::defaults() const {
    Document task = Document::object();
    task["as_info"] = as_info_;
    task["state"] = state_;
    return Document::array({task});
}

Document Block::data() const {
    Document out = Document::array();
    for (const auto& task : tasks_) out.push_back(task->data());
    return out;
}

namespace {

// Stored flags are read as Python reads a value in a condition.
bool truth(const Document& value) {
    switch (value.type()) {
        case Document::value_t::boolean: return value.get<bool>();
        case Document::value_t::number_integer: return value.get<std::int64_t>() != 0;
        case Document::value_t::number_unsigned: return value.get<std::uint64_t>() != 0;
        case Document::value_t::number_float: return value.get<double>() != 0.0;
        case Document::value_t::string: return !value.get_ref<const std::string&>().empty();
        case Document::value_t::array:
        case Document::value_t::object: return !value.empty();
        default: return false;
    }
}

}  // namespace

void Block::load(const Document& data) {
    reset();
    // Any empty value (null, [], {}, "", 0, false) stands for "nothing stored".
    const Document elements = truth(data) ? data : defaults();
    detail::expect_array(elements, "parameter block data");
    for (const auto& element : elements) {
        detail::expect_object(element, "parameter task data");
        const Document* flag = detail::find_key(element, "as_info");
        auto task = std::make_shared<Task>(inputs_, flag ? truth(*flag) : as_info_);
        const Document* state = detail::find_key(element, "state");
        task->load(state ? *state : state_);
        tasks_.push_back(std::move(task));
    }
    update_numerator();
}

Block::TaskPtr Block::append_task() {
    auto task = std::make_shared<Task>(inputs_, as_info_);
    task->load(state_);
    tasks_.push_back(task);
    update_numerator();
    return task;
}

void Block::remove_task(const Task* task) {
    auto found = std::find_if(tasks_.begin(), tasks_.end(), [&](const TaskPtr& t) { return t.get() == task; });
    if (found == tasks_.end()) return;
    tasks_.erase(found);
    update_numerator();
}

void Block::update_numerator() {
    int number = 0;
    for (const auto& task : tasks_) task->number = ++number;
}

void Block::reset() {
    while (!tasks_.empty()) tasks_.pop_back();
}

std::shared_ptr<Block> Block::clone() const {
    throw TypeError("Block() got an unexpected keyword argument 'as_info'");
}

}  // namespace zerko::parameters
