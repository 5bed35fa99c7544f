#include <gtest/gtest.h>

#include <cstddef>
#include <new>
#include <string>
#include <vector>

#include "fenwa/block.hpp"
#include "tests/abi/vtable.hpp"

namespace {

using abi_test::call_slot;
using Fenwa::Block;
using Fenwa::BlockConfiguration;
using Names = std::vector<std::string>;

/// A block that says which of its operations was called, and with what.
class SpeakingBlock final : public Block {
  public:
    explicit SpeakingBlock(Names& log) : Block("speaking", {}), calls(log) {}
    ~SpeakingBlock() override { calls.emplace_back("destructor"); }
    static void* operator new(std::size_t size) { return ::operator new(size); }
    static void* operator new(std::size_t /*size*/, void* place) { return place; }
    static void operator delete(void* memory) {
        deleted = memory;
        ::operator delete(memory);
    }

    BlockConfiguration setup(const BlockConfiguration& config) override {
        calls.push_back("setup " + config.getString("key"));
        return {{"from", {"setup"}}};
    }
    [[nodiscard]] std::string get_name() const override { return "get_name"; }
    void set_name(std::string name) override { calls.push_back("set_name " + name); }
    [[nodiscard]] Fenwa::InPortInternal* get_inport(const std::string& name) const override {
        calls.push_back("get_inport " + name);
        return nullptr;
    }
    [[nodiscard]] Names get_inport_names() const override { return {"get_inport_names"}; }
    [[nodiscard]] Fenwa::OutPortInternal* get_outport(const std::string& name) const override {
        calls.push_back("get_outport " + name);
        return nullptr;
    }
    [[nodiscard]] Names get_outport_names() const override { return {"get_outport_names"}; }
    [[nodiscard]] std::vector<Fenwa::PortInfo> get_inports_info() const override {
        return {{"get_inports_info", Fenwa::Datatype("")}};
    }
    [[nodiscard]] std::vector<Fenwa::PortInfo> get_outports_info() const override {
        return {{"get_outports_info", Fenwa::Datatype("")}};
    }
    [[nodiscard]] std::vector<Fenwa::PortInfo> get_fdports_info() const override {
        return {{"get_fdports_info", Fenwa::Datatype("")}};
    }
    void start() override { calls.emplace_back("start"); }
    void stop() override { calls.emplace_back("stop"); }
    bool run() override {
        calls.emplace_back("run");
        return false;
    }
    void reconfigure(const BlockConfiguration& before, const BlockConfiguration& after) override {
        calls.push_back("reconfigure " + before.getString("key") + " " + after.getString("key"));
    }

    static inline void* deleted = nullptr;

  private:
    Names& calls;
};

class BlockSlotsTest : public testing::Test {
  protected:
    Names calls;
    SpeakingBlock block{calls};
    const BlockConfiguration one{{"key", {"one"}}};
    const BlockConfiguration two{{"key", {"two"}}};
};

TEST_F(BlockSlotsTest, Slot0DestroysTheBlockInPlace) {
    alignas(SpeakingBlock) std::byte memory[sizeof(SpeakingBlock)];
    auto* const other = new (memory) SpeakingBlock(calls);
    SpeakingBlock::deleted = nullptr;
    call_slot<void>(other, 0);
    EXPECT_EQ(calls, (Names{"destructor"}));
    EXPECT_EQ(SpeakingBlock::deleted, nullptr);
}

TEST_F(BlockSlotsTest, Slot1DestroysAndDeletesTheBlock) {
    auto* const other = new SpeakingBlock(calls);
    SpeakingBlock::deleted = nullptr;
    call_slot<void>(other, 1);
    EXPECT_EQ(calls, (Names{"destructor"}));
    EXPECT_EQ(SpeakingBlock::deleted, other);
}

TEST_F(BlockSlotsTest, Slot2IsSetup) {
    const auto settings = call_slot<BlockConfiguration, const BlockConfiguration&>(&block, 2, one);
    EXPECT_EQ(settings.getString("from"), "setup");
    EXPECT_EQ(calls, (Names{"setup one"}));
}

TEST_F(BlockSlotsTest, Slots3And4AreTheName) {
    EXPECT_EQ(call_slot<std::string>(&block, 3), "get_name");
    call_slot<void, std::string>(&block, 4, "a name that is too long to be held in place");
    EXPECT_EQ(calls, (Names{"set_name a name that is too long to be held in place"}));
}

TEST_F(BlockSlotsTest, Slots5To8AreThePorts) {
    const std::string name = "port";
    EXPECT_EQ((call_slot<Fenwa::InPortInternal*, const std::string&>(&block, 5, name)), nullptr);
    EXPECT_EQ(call_slot<Names>(&block, 6), (Names{"get_inport_names"}));
    EXPECT_EQ((call_slot<Fenwa::OutPortInternal*, const std::string&>(&block, 7, name)), nullptr);
    EXPECT_EQ(call_slot<Names>(&block, 8), (Names{"get_outport_names"}));
    EXPECT_EQ(calls, (Names{"get_inport port", "get_outport port"}));
}

TEST_F(BlockSlotsTest, Slots9To11MakeABlockItsOwnOnlyMember) {
    EXPECT_EQ(call_slot<std::vector<Block*>>(&block, 9), (std::vector<Block*>{&block}));
    EXPECT_TRUE(call_slot<std::vector<Block*>>(&block, 10).empty());
    using Connections = std::vector<std::pair<std::string, std::string>>;
    EXPECT_TRUE(call_slot<Connections>(&block, 11).empty());
}

TEST_F(BlockSlotsTest, Slots12To14DescribeThePorts) {
    using Info = std::vector<Fenwa::PortInfo>;
    EXPECT_EQ(call_slot<Info>(&block, 12).at(0).name, "get_inports_info");
    EXPECT_EQ(call_slot<Info>(&block, 13).at(0).name, "get_outports_info");
    EXPECT_EQ(call_slot<Info>(&block, 14).at(0).name, "get_fdports_info");
}

TEST_F(BlockSlotsTest, Slots15To17AreTheLife) {
    call_slot<void>(&block, 15);
    call_slot<void>(&block, 16);
    EXPECT_FALSE(call_slot<bool>(&block, 17));
    EXPECT_EQ(calls, (Names{"start", "stop", "run"}));
}

TEST_F(BlockSlotsTest, Slot18IsReconfigureWithTheOldConfigurationFirst) {
    call_slot<void, const BlockConfiguration&, const BlockConfiguration&>(&block, 18, one, two);
    EXPECT_EQ(calls, (Names{"reconfigure one two"}));
}

}  // namespace
