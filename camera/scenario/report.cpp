#include "camera/scenario/report.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "common/process/exit_code.hpp"
#include "common/text/xml_text.hpp"

namespace camera {
namespace {

[[noreturn]] void fail(const std::string& file) {
    throw common::Failure(common::ExitCode::unavailable,
                          fmt::format("cannot write '{}': {}", file, std::strerror(errno)));
}

}  // namespace

Report::Report(std::string file) : file_(std::move(file)), out_(file_) {
    if (!out_)
        fail(file_);
}

void Report::add(const Scenario& scenario) {
    suite_ = scenario.file;
    for (std::size_t i = 0; i < scenario.steps.size(); ++i) {
        for (const Action& action : scenario.steps[i].actions) {
            const auto* expectation = std::get_if<Expectation>(&action);
            if (expectation == nullptr)
                continue;
            numbers_[expectation] = cases_.size();
            cases_.push_back({fmt::format("step {}: {}", i + 1, expectation->description())});
        }
    }
}

void Report::result(const Expectation& expectation, Seconds took, const std::string& failure) {
    Case& result = cases_[numbers_.at(&expectation)];
    result.done = true;
    result.took = took;
    result.failure = failure;
}

void Report::write(const std::string& error, double took) {
    using common::xml_attribute;
    const auto failed = static_cast<std::size_t>(
        std::ranges::count_if(cases_, [](const Case& each) { return !each.failure.empty(); }));
    const auto skipped = static_cast<std::size_t>(
        std::ranges::count_if(cases_, [](const Case& each) { return !each.done; }));
    // The failure of an expectation is what ended the run.
    const bool with_error = failed == 0 && !error.empty();
    const std::string suite = xml_attribute(suite_);
    std::string text = fmt::format(
        R"(<?xml version="1.0" encoding="UTF-8"?>
<testsuites>
  <testsuite name="{}" tests="{}" failures="{}" errors="{}" skipped="{}" time="{:.3f}">
)",
        suite, cases_.size() + (with_error ? 1 : 0), failed, with_error ? 1 : 0, skipped, took);
    const auto begin_case = [&](const std::string& name, Seconds time) {
        text += fmt::format(R"(    <testcase classname="{}" name="{}" time="{:.3f}")", suite,
                            xml_attribute(name), time.count());
    };
    for (const Case& each : cases_) {
        begin_case(each.name, each.took);
        if (!each.done)
            text += "><skipped/></testcase>\n";
        else if (each.failure.empty())
            text += "/>\n";
        else
            text += fmt::format("><failure message=\"{0}\">{0}</failure></testcase>\n",
                                xml_attribute(each.failure));
    }
    if (with_error) {
        begin_case("the run", Seconds(took));
        text +=
            fmt::format("><error message=\"{0}\">{0}</error></testcase>\n", xml_attribute(error));
    }
    errno = 0;
    out_ << text << "  </testsuite>\n</testsuites>\n" << std::flush;
    if (!out_)
        fail(file_);
}

}  // namespace camera
