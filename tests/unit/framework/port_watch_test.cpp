#include "framework/shared/port_watch.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>

#include "fenwa/ports.hpp"

namespace {

using Fenwa::PortWatch;

/// Throws after it has added two ports.
struct Unfinished : Fenwa::Block {
    Unfinished() : Block("unfinished", {}) {
        Fenwa::add_inport<double>(*this, "in");
        Fenwa::add_outport<int>(*this, "out");
        throw std::runtime_error("not finished");
    }
};

TEST(PortWatch, IsToldOfThePortsOfABlockThatIsNotFinished) {
    std::string seen;
    const auto note = [&seen](const auto& port) {
        seen += port.name() + ' ' + port.datatype().path() + '\n';
    };
    {
        const PortWatch watch(note, note);
        EXPECT_THROW(Unfinished(), std::runtime_error);
        std::thread([] { EXPECT_THROW(Unfinished(), std::runtime_error); }).join();
    }
    EXPECT_THROW(Unfinished(), std::runtime_error);
    EXPECT_EQ(seen, "in " + Fenwa::datatype_of<double>().path() + "\nout " +
                        Fenwa::datatype_of<int>().path() + '\n');
}

}  // namespace
