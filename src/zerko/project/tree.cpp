#include "zerko/project/tree.hpp"

#include <algorithm>

#include "zerko/foundation/logger.hpp"

namespace zerko::project {

namespace {

using Node = Rule::Tree::Node;

Document node_data(const Node& node) {
    Document children = Document::array();
    for (const auto& child : node.children) children.push_back(node_data(*child));
    Document out = Document::object();
    out["stamp"] = node.rule ? node.rule->stamp() : std::string();
    out["children"] = std::move(children);
    return out;
}

std::shared_ptr<Node> load_node(const Document& data, const Rule::List& rules) {
    std::shared_ptr<Rule> rule;
    if (data.is_object()) {
        const auto stamp = data.find("stamp");
        if (stamp != data.end() && stamp->is_string()) rule = rules.get(stamp->get_ref<const std::string&>());
    }
    if (!rule) {
        foundation::Logger::warning("Incompatible Hierarchy Settings");
        return nullptr;
    }
    Node::Children children;
    const auto found = data.find("children");
    if (found != data.end() && found->is_array()) {
        for (const auto& element : *found) {
            if (auto child = load_node(element, rules)) children.push_back(std::move(child));
        }
    }
    return std::make_shared<Node>(std::move(rule), std::move(children));
}

}  // namespace

std::string Rule::Tree::NodeBase::text() const {
    std::string out;
    for (std::size_t i = 0; i < children.size(); ++i) {
        if (i) out += '\n';
        out += children[i]->text();
    }
    return out;
}

void Rule::Tree::NodeBase::clear() {
    for (const auto& child : children) child->clear();
    while (!children.empty()) children.pop_back();
}

void Rule::Tree::NodeBase::append(std::shared_ptr<Node> node) {
    if (!node || std::find(children.begin(), children.end(), node) != children.end()) return;
    children.push_back(std::move(node));
}

void Rule::Tree::NodeBase::remove(const std::shared_ptr<Node>& node) {
    const auto found = std::find(children.begin(), children.end(), node);
    if (found != children.end()) children.erase(found);
}

std::shared_ptr<Rule::Tree::Node> Rule::Tree::NodeBase::create_node(std::shared_ptr<Rule> rule) {
    return std::make_shared<Node>(std::move(rule));
}

std::string Rule::Tree::Node::text() const {
    std::string out = rule ? rule->name() : std::string();
    out += '\n';
    const std::string below = NodeBase::text();
    std::size_t start = 0;
    while (true) {
        const std::size_t end = below.find('\n', start);
        const std::string_view line(below.data() + start, (end == std::string::npos ? below.size() : end) - start);
        if (!line.empty()) out += "  ";
        out += line;
        if (end == std::string::npos) break;
        out += '\n';
        start = end + 1;
    }
    return out;
}

bool Rule::Tree::Root::is_root(const Rule& rule) const {
    return std::any_of(children.begin(), children.end(),
                       [&](const std::shared_ptr<Node>& node) { return node->rule.get() == &rule; });
}

Document Rule::Tree::Root::data() const {
    Document out = Document::array();
    for (const auto& node : children) out.push_back(node_data(*node));
    return out;
}

void Rule::Tree::Root::load(const Document& data, const Rule::List& rules) {
    children = Children();
    if (!data.is_array()) return;
    for (const auto& element : data) {
        if (auto node = load_node(element, rules)) children.push_back(std::move(node));
    }
}

}  // namespace zerko::project
