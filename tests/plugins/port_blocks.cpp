#include <limits>
#include <sstream>

#include "tests/plugins/probe.hpp"

namespace probe {

/// A value type that the host does not know.
struct Point {
    int x = 0;
    int y = 0;
};

}  // namespace probe

template <>
inline constexpr const char* Fenwa::datatype_path<probe::Point> = "/example/geometry.p/point";

namespace probe {
namespace {

/// Publishes 1, 2, 3 … on "out": in its constructor ("in_constructor" times), in its start
/// ("in_start" times) and once in each of "runs" runs, for which it fires its own event port.
/// With "constant" it publishes that value instead. "fires" is how often it fires for a run.
class Source : public Fenwa::Block {
  public:
    Source(std::string name, const Fenwa::BlockConfiguration& config)
        : Fenwa::Block(std::move(name), config),
          out_(*Fenwa::add_outport<double>(*this, "out")),
          go_(*make_eventport("go")),
          constant_(config.getDouble("constant", 0.0)),
          fires_(config.getInt("fires", 1)),
          runs_left_(config.getInt("runs", 0)),
          in_start_(config.getInt("in_start", 0)) {
        publish(config.getInt("in_constructor", 0));
        if (config.getBool("fires_in_constructor", false))
            go_.fire();
    }

    void start() override {
        publish(in_start_);
        fire();
    }

    bool run() override {
        say(*this, "run");
        publish(1);
        // The mark stands still during the run, whatever is fired meanwhile.
        const bool before = go_.is_triggered();
        fire();
        if (!before || !go_.is_triggered())
            say(*this, "its mark moved during the run");
        return true;
    }

  private:
    void publish(int times) {
        for (int i = 0; i < times; ++i)
            out_.publish(constant_ != 0.0 ? constant_ : ++published_);
    }

    void fire() {
        if (runs_left_ == 0)
            return;
        --runs_left_;
        for (int i = 0; i < fires_; ++i)
            go_.fire();
    }

    Fenwa::OutPort<double>& out_;
    Fenwa::EventPort& go_;
    double constant_;
    int fires_;
    int runs_left_;
    int in_start_;
    double published_ = 0.0;
};

/// Publishes to an output whose name is not UTF-8 when its input changes.
struct OddlyNamed : Fenwa::Block {
    using Fenwa::Block::Block;

    bool run() override {
        out->publish(1.0);
        return true;
    }

    Fenwa::OutPort<double>* out = Fenwa::add_outport<double>(*this, "odd\xff");
    Fenwa::InPort<double>* in = Fenwa::add_inport<double>(*this, "in");
};

/// Says at each run which of its inputs are triggered, and what all of them hold. "quiet" takes
/// values without making the block run. "kept" is the value of "double" when the block is stopped.
class Sink : public Fenwa::Block {
  public:
    Sink(std::string name, const Fenwa::BlockConfiguration& config)
        : Fenwa::Block(std::move(name), config), only_(config.getString("only", "")) {
        if (config.getBool("run", false))
            make_eventport("go")->fire();
    }

    bool run() override {
        std::ostringstream line;
        line << std::boolalpha << "run";
        show(line, double_, double_.value());
        show(line, other_, other_.value());
        show(line, quiet_, quiet_.value());
        show(line, float_, float_.value());
        show(line, int_, int_.value());
        show(line, bool_, bool_.value());
        show(line, tick_, tick_.value().ticks);
        show(line, point_, point_.value().x);
        say(*this, line.str());
        return true;
    }

    void stop() override {
        if (!only_.empty())
            say(*this, "kept " + std::to_string(double_.value()));
    }

  private:
    template <class T>
    void show(std::ostream& line, const Fenwa::InPortInternal& port, const T& value) const {
        if (only_.empty() || only_ == port.name())
            line << ' ' << port.name() << (port.is_triggered() ? "!" : "") << '=' << value;
    }

    Fenwa::InPort<double>& double_ = *Fenwa::add_inport<double>(*this, "double");
    Fenwa::InPort<double>& other_ = *Fenwa::add_inport<double>(*this, "other");
    Fenwa::InPort<double>& quiet_ = *Fenwa::add_inport<double>(*this, "quiet", false);
    Fenwa::InPort<float>& float_ = *Fenwa::add_inport<float>(*this, "float");
    Fenwa::InPort<int>& int_ = *Fenwa::add_inport<int>(*this, "int");
    Fenwa::InPort<bool>& bool_ = *Fenwa::add_inport<bool>(*this, "bool");
    Fenwa::InPort<Fenwa::datatype_timersource>& tick_ =
        *Fenwa::add_inport<Fenwa::datatype_timersource>(*this, "tick");
    Fenwa::InPort<Point>& point_ = *Fenwa::add_inport<Point>(*this, "point");
    std::string only_;
};

/// Publishes one value of each datatype when it is started, and then what JSON has no number for.
class Values : public Fenwa::Block {
  public:
    using Fenwa::Block::Block;

    void start() override {
        float_.publish(36.6F);
        bool_.publish(true);
        double_.publish(36.6);
        int_.publish(-7);
        tick_.publish({9'007'199'254'740'993U, std::chrono::milliseconds(250)});
        point_.publish({3, 4});
        next_.fire();
    }

    bool run() override {
        constexpr double special[] = {std::numeric_limits<double>::quiet_NaN(),
                                      std::numeric_limits<double>::infinity(),
                                      -std::numeric_limits<double>::infinity(), -0.0, 2.0};
        double_.publish(special[at_]);
        float_.publish(static_cast<float>(special[at_]));
        if (++at_ < std::size(special))
            next_.fire();
        return true;
    }

  private:
    Fenwa::OutPort<float>& float_ = *Fenwa::add_outport<float>(*this, "float");
    Fenwa::OutPort<bool>& bool_ = *Fenwa::add_outport<bool>(*this, "bool");
    Fenwa::OutPort<double>& double_ = *Fenwa::add_outport<double>(*this, "double");
    Fenwa::OutPort<int>& int_ = *Fenwa::add_outport<int>(*this, "int");
    Fenwa::OutPort<Fenwa::datatype_timersource>& tick_ =
        *Fenwa::add_outport<Fenwa::datatype_timersource>(*this, "tick");
    Fenwa::OutPort<Point>& point_ = *Fenwa::add_outport<Point>(*this, "point");
    Fenwa::EventPort& next_ = *make_eventport("next");
    std::size_t at_ = 0;
};

/// Takes two events apart: says at each run which of them it was for. Fires the second one in the
/// run for the first, and takes the mark of the second away itself.
class Events : public Fenwa::Block {
  public:
    using Fenwa::Block::Block;

    void start() override { first_.fire(); }

    bool run() override {
        say(*this, std::string("run") + (first_.is_triggered() ? " first" : "") +
                       (second_.is_triggered() ? " second" : ""));
        if (first_.is_triggered())
            second_.fire();
        if (second_.is_triggered()) {
            second_.reset(false);
            say(*this, second_.is_triggered() ? "not dealt with" : "lost");
            second_.reset(true);
            say(*this, second_.is_triggered() ? "still there" : "dealt with");
        }
        return true;
    }

  private:
    Fenwa::EventPort& first_ = *make_eventport("first");
    Fenwa::EventPort& second_ = *make_eventport("second");
};

/// Publishes 1, 2, 3 … on "out", one at each run, and says nothing.
struct Counter : Fenwa::Block {
    using Fenwa::Block::Block;

    bool run() override {
        out->publish(out->value + 1.0);
        return true;
    }

    Fenwa::OutPort<double>* out = Fenwa::add_outport<double>(*this, "out");
    Fenwa::InPort<Fenwa::datatype_timersource>* tick =
        Fenwa::add_inport<Fenwa::datatype_timersource>(*this, "tick");
};

/// Publishes on "NAME_out" each new value of its inputs "double", "float", "int" and "bool"; and a
/// point on "point_out" at each run.
class Relay : public Fenwa::Block {
  public:
    using Fenwa::Block::Block;

    bool run() override {
        hand_on(double_, double_out_);
        hand_on(float_, float_out_);
        hand_on(int_, int_out_);
        hand_on(bool_, bool_out_);
        point_out_.publish({1, 2});
        return true;
    }

  private:
    template <class T>
    static void hand_on(const Fenwa::InPort<T>& in, Fenwa::OutPort<T>& out) {
        if (in.is_triggered())
            out.publish(in.value());
    }

    Fenwa::InPort<double>& double_ = *Fenwa::add_inport<double>(*this, "double");
    Fenwa::InPort<float>& float_ = *Fenwa::add_inport<float>(*this, "float");
    Fenwa::InPort<int>& int_ = *Fenwa::add_inport<int>(*this, "int");
    Fenwa::InPort<bool>& bool_ = *Fenwa::add_inport<bool>(*this, "bool");
    Fenwa::OutPort<double>& double_out_ = *Fenwa::add_outport<double>(*this, "double_out");
    Fenwa::OutPort<float>& float_out_ = *Fenwa::add_outport<float>(*this, "float_out");
    Fenwa::OutPort<int>& int_out_ = *Fenwa::add_outport<int>(*this, "int_out");
    Fenwa::OutPort<bool>& bool_out_ = *Fenwa::add_outport<bool>(*this, "bool_out");
    Fenwa::OutPort<Point>& point_out_ = *Fenwa::add_outport<Point>(*this, "point_out");
};

}  // namespace

void register_port_blocks(Fenwa::IRegistry& registry) {
    registry.register_block<Source>("Source");
    registry.register_block<OddlyNamed>("OddlyNamed");
    registry.register_block<Sink>("Sink");
    registry.register_block<Values>("Values");
    registry.register_block<Events>("Events");
    registry.register_block<Counter>("Counter");
    registry.register_block<Relay>("Relay");
}

}  // namespace probe
