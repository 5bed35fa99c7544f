// A test of a block that has nothing but the kit: no framework for tests. Exits with 0 when the
// block does what it should.
#include <iostream>

#include "fenwa/fenwa.hpp"
#include "fenwa/testkit/testkit.hpp"

namespace {

class Doubler : public Fenwa::Block {
  public:
    Doubler(std::string name, const Fenwa::BlockConfiguration& config)
        : Fenwa::Block(std::move(name), config) {}

    bool run() override {
        out_->publish(2 * in_->value());
        return true;
    }

  private:
    Fenwa::InPort<int>* in_ = Fenwa::add_inport<int>(*this, "in");
    Fenwa::OutPort<int>* out_ = Fenwa::add_outport<int>(*this, "out");
};

}  // namespace

int main() {
    Fenwa::testkit::BlockDriver<Doubler> block;
    block.feed("in", 21);
    block.run();
    const auto outputs = block.take_outputs();
    for (const auto& output : outputs)
        std::cout << output << '\n';
    return outputs == std::vector<Fenwa::testkit::Output>{{"out", 42}} ? 0 : 1;
}
