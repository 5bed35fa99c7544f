#include "tests/soak/observer.hpp"

namespace soak {
namespace {

using common::Json;

constexpr std::chrono::milliseconds between_looks{50};  ///< at a request to stop
constexpr std::size_t kept_messages = 20;

}  // namespace

Observer::Observer(test::Process& host, test::Process& camera, Incidents& incidents)
    : incidents_(incidents),
      host_reader_([this, &host](const std::stop_token& stop) { read_host(stop, host); }),
      camera_reader_([this, &camera](const std::stop_token& stop) { read_camera(stop, camera); }) {}

void Observer::stop() {
    for (std::jthread* reader : {&host_reader_, &camera_reader_}) {
        reader->request_stop();
        if (reader->joinable())
            reader->join();
    }
}

void Observer::read_host(const std::stop_token& stop, test::Process& host) {
    const auto take = [this](const std::string& line, bool is_message) {
        const Json event = is_message ? Json() : common::parse_line(line);
        const std::lock_guard lock(mutex_);
        if (is_message)
            take_message(line);
        else if (event.is_object())
            take_host_event(event);
        changed_.notify_all();
    };
    while (!stop.stop_requested() && host.take_lines(between_looks, take))
        continue;
}

void Observer::read_camera(const std::stop_token& stop, test::Process& camera) {
    const auto take = [this](const std::string& line, bool is_message) {
        const Json event = is_message ? Json() : common::parse_line(line);
        const std::lock_guard lock(mutex_);
        if (event.is_object())
            take_camera_event(event);
    };
    while (!stop.stop_requested() && camera.take_lines(between_looks, take))
        continue;
}

void Observer::take_message(const std::string& line) {
    messages_.push_back(line);
    if (messages_.size() > kept_messages)
        messages_.pop_front();
    if (line.find(": reloaded; ") != std::string::npos)
        ++reloads_;
}

void Observer::take_host_event(const Json& event) {
    const std::string kind = event.value("event", "");
    const std::string block = event.value("block", "");
    if (kind == "output") {
        Output& output = outputs_[block + '.' + event.at("port").get<std::string>()];
        output.value = event.at("value");
        ++output.lines;
    } else if (kind == "log" && event.at("level") <= 2) {
        incidents_.add("log " + block + ": " + event.at("message").get<std::string>());
    } else if (kind == "setup" && !event.at("settings").value("no_video_at_startup", true)) {
        incidents_.add("disabled " + block);
    } else if (kind == "ready") {
        ready_ = true;
    }
}

void Observer::take_camera_event(const Json& event) {
    const std::string kind = event.value("event", "");
    if (kind == "fault" && event.at("state") == "applied") {
        ++faults_;
        const std::string member = event.at("member").get<std::string>();
        incidents_.add("fault " + member);
        if (event.at("what").get<std::string>().find(" after ") != std::string::npos)
            incidents_.add("late " + member);
    } else if (kind == "service" && event.at("state") == "down") {
        ++service_ends_;
        incidents_.add("down " + event.at("service").get<std::string>());
    }
}

bool Observer::wait_until_ready(std::chrono::seconds limit) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return ready_; });
}

Json Observer::last_value(const std::string& output) const {
    const std::lock_guard lock(mutex_);
    const auto it = outputs_.find(output);
    return it == outputs_.end() ? Json() : it->second.value;
}

std::uint64_t Observer::lines_of(const std::string& output) const {
    const std::lock_guard lock(mutex_);
    const auto it = outputs_.find(output);
    return it == outputs_.end() ? 0 : it->second.lines;
}

std::uint64_t Observer::reloads() const {
    const std::lock_guard lock(mutex_);
    return reloads_;
}

bool Observer::wait_for_reloads(std::uint64_t count, std::chrono::seconds limit) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return reloads_ >= count; });
}

std::uint64_t Observer::faults() const {
    const std::lock_guard lock(mutex_);
    return faults_;
}

std::uint64_t Observer::service_ends() const {
    const std::lock_guard lock(mutex_);
    return service_ends_;
}

std::string Observer::last_messages() const {
    const std::lock_guard lock(mutex_);
    std::string text;
    for (const std::string& message : messages_)
        text += message + '\n';
    return text;
}

}  // namespace soak
