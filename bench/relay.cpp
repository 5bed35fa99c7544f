// A block type for a benchmark: what runs behind a value.
#include <fenwa/fenwa.hpp>

#include <string>

namespace {

/// Publishes each value of "in" on "out".
class Relay : public Fenwa::Block {
  public:
    Relay(std::string name, const Fenwa::BlockConfiguration& config)
        : Fenwa::Block(std::move(name), config),
          in_(Fenwa::add_inport<double>(*this, "in")),
          out_(Fenwa::add_outport<double>(*this, "out")) {}

    bool run() override {
        out_->publish(in_->value());
        return true;
    }

  private:
    Fenwa::InPort<double>* in_;
    Fenwa::OutPort<double>* out_;
};

}  // namespace

int lib_register_cpp(Fenwa::IRegistry* registry) {
    registry->register_block<Relay>("Relay");
    return 0;
}
