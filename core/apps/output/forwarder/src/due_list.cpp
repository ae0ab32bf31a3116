#include "due_list.h"

namespace forwarder {

void DueList::put(std::size_t number, Time due) {
    remove(number);
    if (number >= nodes_.size()) {
        nodes_.resize(number + 1);
    }
    std::size_t before = last_;
    while (before != kNone && nodes_[before].due > due) {
        before = nodes_[before].before;
    }
    const std::size_t after = before == kNone ? first_ : nodes_[before].after;
    nodes_[number] = {before, after, due, true};
    (before == kNone ? first_ : nodes_[before].after) = number;
    (after == kNone ? last_ : nodes_[after].before) = number;
}

void DueList::remove(std::size_t number) noexcept {
    if (!holds(number)) {
        return;
    }
    Node& node = nodes_[number];
    (node.before == kNone ? first_ : nodes_[node.before].after) = node.after;
    (node.after == kNone ? last_ : nodes_[node.after].before) = node.before;
    node.listed = false;
}

}  // namespace forwarder
