#include "tests/support/effect_journal.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>
#include <utility>

namespace support {
namespace {

template <class Number>
std::string number_text(Number number) {
    char text[64];
    return {text, std::to_chars(text, text + sizeof(text), number).ptr};
}

std::string value_of(const Fenwa::OutPortInternal& port) {
    if (const auto* const flag = dynamic_cast<const Fenwa::OutPort<bool>*>(&port))
        return flag->value ? "true" : "false";
    if (const auto* const number = dynamic_cast<const Fenwa::OutPort<float>*>(&port))
        return number_text(number->value);
    return number_text(dynamic_cast<const Fenwa::OutPort<double>&>(port).value);
}

}  // namespace

std::weak_ptr<EffectJournal> EffectJournal::living_;

std::shared_ptr<EffectJournal> EffectJournal::shared() {
    std::shared_ptr<EffectJournal> journal = living_.lock();
    if (journal == nullptr)
        living_ = journal = std::make_shared<EffectJournal>();
    return journal;
}

std::shared_ptr<EffectJournal> EffectJournal::current() {
    return living_.lock();
}

EffectJournal::EffectJournal() = default;

EffectJournal::~EffectJournal() {
    for (const std::string& entry : take(effect::to_be_seen))
        ADD_FAILURE() << "nobody looked at: " << entry;
}

void EffectJournal::record(unsigned kind, const std::string& entry) {
    const std::lock_guard lock(mutex_);
    record_publications();
    append(kind, entry);
}

std::vector<std::string> EffectJournal::take(unsigned kinds) {
    const std::lock_guard lock(mutex_);
    record_publications();
    std::vector<std::string> taken;
    std::erase_if(entries_, [&](Entry& entry) {
        if ((entry.kind & kinds) != 0)
            taken.push_back(std::move(entry.text));
        return (entry.kind & kinds) != 0;
    });
    return taken;
}

void EffectJournal::remark_with(std::function<std::string(const std::string& entry)> remark) {
    remark_ = std::move(remark);
}

void EffectJournal::add_port(const Fenwa::Block& block, Fenwa::Port& port) {
    const std::lock_guard lock(mutex_);
    ports_.push_back({&block, &port});
}

void EffectJournal::forget_ports(const Fenwa::Block& block) {
    const std::lock_guard lock(mutex_);
    record_publications();
    std::erase_if(ports_, [&block](const OwnedPort& port) { return port.block == &block; });
}

std::vector<const Fenwa::Port*> EffectJournal::ports(const Fenwa::Block& block) {
    const std::lock_guard lock(mutex_);
    std::vector<const Fenwa::Port*> found;
    for (const auto& [owner, port] : ports_) {
        if (owner == &block)
            found.push_back(port);
    }
    return found;
}

void EffectJournal::append(unsigned kind, const std::string& entry) {
    entries_.push_back({kind, remark_ ? entry + remark_(entry) : entry});
}

void EffectJournal::record_publications() {
    const std::thread::id thread = publishing_thread_;
    if (thread != std::thread::id() && thread != std::this_thread::get_id())
        return;
    for (const auto& [block, port] : ports_) {
        auto* const output = dynamic_cast<Fenwa::OutPortInternal*>(port);
        if (output == nullptr || !output->is_triggered())
            continue;
        output->reset(true);
        append(effect::publication, "publish " + output->name() + " = " + value_of(*output));
    }
}

}  // namespace support
