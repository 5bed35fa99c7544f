#include "camera/models/power.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "camera/models/command_error.hpp"

namespace camera {
namespace {

/// `whole - part`, rounded towards 0, of `whole >= part >= 0`. Rounded to nearest, a share too
/// small to matter would leave the whole, and the next consumer would get more than there is.
double rest(double whole, double part) {
    const double difference = whole - part;
    const double error = (whole - difference) - part;  // exact, because whole >= part
    return error < 0.0 ? std::nextafter(difference, 0.0) : difference;
}

/// Without the sign of -0, which looks odd in a share.
double without_minus_zero(double power) {
    return std::max(0.0, power);
}

}  // namespace

const PowerConsumer* PowerModel::by_name(std::string_view name) const {
    const auto it = std::ranges::find(consumers_, name, &PowerConsumer::name);
    return it == consumers_.end() ? nullptr : &*it;
}

std::vector<PowerConsumer>::iterator PowerModel::find(std::string_view name) {
    const auto it = std::ranges::find(consumers_, name, &PowerConsumer::name);
    if (it == consumers_.end())
        throw std::out_of_range("no consumer has that name");
    return it;
}

void PowerModel::add(std::string name, std::string owner, ConsumerAddress address) {
    const auto it = std::ranges::find(consumers_, name, &PowerConsumer::name);
    if (it != consumers_.end()) {
        it->owner = std::move(owner);
        it->address = std::move(address);
        return;
    }
    if (consumers_.size() >= max_consumers)
        throw CapacityError("TooManyConsumers", max_consumers, "consumers");
    consumers_.push_back({std::move(name), std::move(owner), std::move(address), {}, 0.0});
}

std::vector<PowerNotice> PowerModel::request(std::string_view name, PowerRequest request) {
    const auto consumer = find(name);
    const bool first = !consumer->request;
    request.power = without_minus_zero(request.power);
    consumer->request = std::move(request);
    if (first)
        std::rotate(consumer, consumer + 1, consumers_.end());
    return divide(name);
}

std::vector<PowerNotice> PowerModel::remove(std::string_view name) {
    consumers_.erase(find(name));
    return divide();
}

std::pair<std::size_t, std::vector<PowerNotice>> PowerModel::drop_owner(std::string_view owner) {
    const std::size_t count = std::erase_if(
        consumers_, [&](const PowerConsumer& consumer) { return consumer.owner == owner; });
    return {count, divide()};
}

std::vector<PowerNotice> PowerModel::set_budget(double budget) {
    budget_ = without_minus_zero(budget);
    return divide();
}

void PowerModel::drop_all() noexcept {
    consumers_.clear();
    left_ = budget_;
}

std::vector<PowerNotice> PowerModel::divide(std::string_view always) {
    std::vector<PowerNotice> notices;
    left_ = budget_;
    for (PowerConsumer& consumer : consumers_) {
        if (!consumer.request)
            continue;
        const double share = std::min(consumer.request->power, left_);
        left_ = rest(left_, share);
        if (std::exchange(consumer.share, share) != share || consumer.name == always)
            notices.push_back({consumer.name, share});
    }
    return notices;
}

}  // namespace camera
