#include <gtest/gtest.h>

#include <cstddef>
#include <new>

#include "fenwa/port.hpp"
#include "tests/abi/vtable.hpp"

namespace {

using abi_test::call_slot;

/// A port of kind `Base` that says which of its operations was called.
template <class Base>
class SpeakingPort final : public Base {
  public:
    template <class... Arguments>
    explicit SpeakingPort(std::string& said, Arguments... arguments)
        : Base("speaking", arguments...), said_(said) {}
    ~SpeakingPort() override { said_ += "destructor "; }
    static void* operator new(std::size_t size) { return ::operator new(size); }
    static void* operator new(std::size_t /*size*/, void* place) { return place; }
    static void operator delete(void* memory) {
        deleted = memory;
        ::operator delete(memory);
    }

    [[nodiscard]] bool is_triggered() const override {
        said_ += "is_triggered ";
        return true;
    }
    void reset(bool dealt_with) override { said_ += dealt_with ? "reset(true) " : "reset(false) "; }

    static inline void* deleted = nullptr;

  private:
    std::string& said_;
};

/// Calls the slots that all ports have, on ports made from these arguments.
template <class Base, class... Arguments>
void expect_port_slots(const Arguments&... arguments) {
    using Speaking = SpeakingPort<Base>;
    std::string said;
    alignas(Speaking) std::byte memory[sizeof(Speaking)];
    auto* const port = new (memory) Speaking(said, arguments...);
    EXPECT_TRUE(call_slot<bool>(port, 2));
    EXPECT_EQ(said, "is_triggered ");
    call_slot<void, bool>(port, 3, true);
    call_slot<void, bool>(port, 3, false);
    EXPECT_EQ(said, "is_triggered reset(true) reset(false) ");
    said.clear();
    Speaking::deleted = nullptr;
    call_slot<void>(port, 0);
    EXPECT_EQ(said, "destructor ");
    EXPECT_EQ(Speaking::deleted, nullptr);
    auto* const on_heap = new Speaking(said, arguments...);
    call_slot<void>(on_heap, 1);
    EXPECT_EQ(said, "destructor destructor ");
    EXPECT_EQ(Speaking::deleted, on_heap);
}

/// A port that can be built.
struct PlainPort : Fenwa::Port {
    explicit PlainPort(std::string name) : Port(std::move(name)) {}
};

TEST(PortSlotsTest, AreDestructorsIsTriggeredAndReset) {
    expect_port_slots<PlainPort>();
    expect_port_slots<Fenwa::InPortInternal>(Fenwa::Datatype("/int"), true);
    expect_port_slots<Fenwa::OutPortInternal>(Fenwa::Datatype("/int"));
    expect_port_slots<Fenwa::InPort<int>>(Fenwa::Datatype("/int"), true);
    expect_port_slots<Fenwa::InPort<Fenwa::datatype_timersource>>(Fenwa::Datatype("/t"), true);
    expect_port_slots<Fenwa::OutPort<float>>(Fenwa::Datatype("/float"));
    expect_port_slots<Fenwa::OutPort<bool>>(Fenwa::Datatype("/bool"));
    expect_port_slots<Fenwa::OutPort<double>>(Fenwa::Datatype("/double"));
}

TEST(PortSlotsTest, HaveTheInputsProviderOperationBehindThem) {
    Fenwa::InPort<int> in("in", Fenwa::Datatype("/int"), true);
    EXPECT_EQ(call_slot<Fenwa::InPortInternal*>(&in, 4), &in);
    Fenwa::InPort<Fenwa::datatype_timersource> timer("timer", Fenwa::Datatype("/t"), true);
    EXPECT_EQ(call_slot<Fenwa::InPortInternal*>(&timer, 4), &timer);
    // The same through the provider that the framework is handed.
    Fenwa::InPortProvider* const provider = &in;
    EXPECT_EQ(call_slot<Fenwa::InPortInternal*>(provider, 2), &in);
}

TEST(PortSlotsTest, ReachTheTriggerOfAnOutput) {
    Fenwa::OutPort<double> out("out", Fenwa::Datatype("/double"));
    EXPECT_FALSE(call_slot<bool>(&out, 2));
    out.publish(1.5);
    EXPECT_TRUE(call_slot<bool>(&out, 2));
    call_slot<void, bool>(&out, 3, true);
    EXPECT_FALSE(call_slot<bool>(&out, 2));
}

}  // namespace
