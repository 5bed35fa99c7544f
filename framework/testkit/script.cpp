#include "fenwa/testkit/script.hpp"

#include <utility>

namespace Fenwa::testkit {

void Script::answer(const std::string& member, Body values) {
    end(member, {.values = std::move(values)});
}

void Script::refuse(const std::string& member, const std::string& error_name,
                    const std::string& text) {
    end(member, {.kind = Ending::Kind::error, .error_name = error_name, .text = text});
}

void Script::ignore(const std::string& member) {
    end(member, {.kind = Ending::Kind::silence});
}

void Script::set_property(const std::string& name, Body value) {
    answer(name, std::move(value));
}

std::vector<Call> Script::take_calls() {
    const std::lock_guard lock(mutex_);
    return std::exchange(calls_, {});
}

std::size_t Script::call_count() const {
    const std::lock_guard lock(mutex_);
    return calls_.size();
}

std::optional<Script::Ending> Script::record(Call call, const std::string& key) {
    const std::lock_guard lock(mutex_);
    calls_.push_back(std::move(call));
    const auto found = endings_.find(key);
    if (found == endings_.end())
        return std::nullopt;
    return found->second;
}

void Script::end(const std::string& member, Ending ending) {
    const std::lock_guard lock(mutex_);
    endings_.insert_or_assign(member, std::move(ending));
}

}  // namespace Fenwa::testkit
