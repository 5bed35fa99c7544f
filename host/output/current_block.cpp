#include "host/output/current_block.hpp"

namespace host {
namespace {

thread_local const std::string* current_block = nullptr;

}  // namespace

CurrentBlock::CurrentBlock(const std::string& name, const char* phase)
    : activity_("block", name.c_str(), phase), outer_(current_block) {
    current_block = &name;
}

CurrentBlock::~CurrentBlock() {
    current_block = outer_;
}

const std::string* CurrentBlock::name() noexcept {
    return current_block;
}

}  // namespace host
