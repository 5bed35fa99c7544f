#include "host/runtime/refused_matches.hpp"

#include <algorithm>
#include <utility>

namespace host {

void RefusedMatches::installed(Fenwa::Block& block) {
    if (trying_ == &block)
        due_ = 0;
}

bool RefusedMatches::remove(Fenwa::Block& block) {
    blocks_.erase(&block);
    const auto found = std::find(waiting_.begin(), waiting_.end(), &block);
    if (found == waiting_.end())
        return false;
    waiting_.erase(found);
    return true;
}

void RefusedMatches::clear() {
    blocks_.clear();
    waiting_.clear();
    trying_ = nullptr;
}

Fenwa::Block* RefusedMatches::take(std::uint64_t now) {
    if (waiting_.empty() || now < due_)
        return nullptr;
    trying_ = waiting_.front();
    waiting_.pop_front();
    blocks_.erase(trying_);
    due_ = now + interval;
    return trying_;
}

std::vector<Fenwa::Block*> RefusedMatches::take_all() {
    std::vector<Fenwa::Block*> all(waiting_.begin(), waiting_.end());
    for (Fenwa::Block* block : all)
        blocks_.erase(block);
    waiting_.clear();
    return all;
}

}  // namespace host
