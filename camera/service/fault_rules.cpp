#include "camera/service/fault_rules.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "common/text/diagnostics.hpp"

namespace camera {
namespace {

using common::Json;

std::string effect_text(const FaultRule& rule) {
    switch (rule.effect) {
        case FaultEffect::none:
            return "sent";
        case FaultEffect::error:
            return fmt::format("answered with {}", rule.error_name);
        case FaultEffect::malformed:
            return "sent with a wrong signature";
        case FaultEffect::silent:
            return "not sent";
        case FaultEffect::drop:
            return "the service leaves the bus";
    }
    return {};
}

}  // namespace

std::string FaultRule::target() const {
    return service.empty() ? member : fmt::format("{}.{}", service, member);
}

std::string FaultRule::what() const {
    std::string text = effect_text(*this);
    if (delay.count() > 0)
        text += fmt::format(" after {} ms", delay.count());
    return text;
}

std::string FaultRule::description() const {
    std::string text = what();
    if (probability < 1.0)
        text += fmt::format(", with probability {}", Json(probability).dump());
    if (times)
        text += ", " + common::counted(*times, "time");
    return text;
}

void set_target(FaultRule& rule, const std::string& target) {
    const std::size_t dot = target.find('.');
    rule.service = dot == std::string::npos ? std::string{} : target.substr(0, dot);
    rule.member = dot == std::string::npos ? target : target.substr(dot + 1);
}

void FaultRules::add(FaultRule rule) {
    std::erase_if(active_, [&](const Active& other) {
        return other.rule.service == rule.service && other.rule.member == rule.member;
    });
    const std::uint64_t seed = rule.seed;
    active_.push_back({std::move(rule), std::mt19937_64(seed)});
}

bool FaultRules::clear(const std::string& service, const std::string& member) {
    return std::erase_if(active_, [&](const Active& other) {
               return other.rule.member == member &&
                      (service.empty() || other.rule.service == service);
           }) > 0;
}

bool FaultRules::hits(Active& active) {
    if (active.rule.probability >= 1.0)
        return true;
    // By hand, because std::uniform_real_distribution differs between standard libraries.
    const double draw = static_cast<double>(active.random() >> 11) * 0x1.0p-53;
    return draw < active.rule.probability;
}

std::optional<Fault> FaultRules::take(const std::string& service, const std::string& member) {
    auto it = std::ranges::find_if(active_, [&](const Active& active) {
        return active.rule.service == service && active.rule.member == member;
    });
    if (it == active_.end()) {
        it = std::ranges::find_if(active_, [&](const Active& active) {
            return active.rule.service.empty() && active.rule.member == member;
        });
    }
    if (it == active_.end() || !hits(*it))
        return std::nullopt;

    FaultRule& rule = it->rule;
    const Fault fault{rule.effect, rule.error_name, rule.delay};
    if (rule.times)
        --*rule.times;
    const bool spent = rule.times == 0U;
    FaultRule applied = rule;
    applied.service = service;
    if (spent)
        active_.erase(it);
    observer_("applied", applied);
    if (spent)
        observer_("spent", applied);
    return fault;
}

Json FaultRules::json() const {
    Json list = Json::array();
    for (const Active& active : active_) {
        const FaultRule& rule = active.rule;
        list.push_back({{"member", rule.target()}, {"what", rule.description()}});
        if (rule.times)
            list.back()["times"] = *rule.times;
    }
    return list;
}

}  // namespace camera
