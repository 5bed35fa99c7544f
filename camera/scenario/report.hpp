#pragma once

#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "camera/scenario/scenario.hpp"

namespace camera {

/// The outcome of a run in JUnit's form: a test case an expectation, in the order of the file.
class Report {
  public:
    /// Opens the file, which must be writable, and empties it.
    /// @throws common::Failure (unavailable) when it cannot be written.
    explicit Report(std::string file);

    /// Takes the expectations of a scenario, which outlives this object.
    void add(const Scenario& scenario);
    /// An expectation was met or, where `failure` is not empty, was not.
    void result(const Expectation& expectation, Seconds took, const std::string& failure);
    /// Writes the report: expectations without a result are skipped.
    /// @param error why the run has ended, empty for an end that needs none. Where no expectation
    ///        has failed, it becomes a test case of its own.
    /// @param took seconds of the whole run.
    /// @throws common::Failure (unavailable) when the file cannot be written.
    void write(const std::string& error, double took);

  private:
    struct Case {
        std::string name;
        bool done = false;
        Seconds took{0};
        std::string failure{};
    };

    std::string file_;
    std::ofstream out_;
    std::string suite_;
    std::vector<Case> cases_;
    std::map<const Expectation*, std::size_t> numbers_;  // of the cases
};

}  // namespace camera
