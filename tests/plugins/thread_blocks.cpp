#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "tests/plugins/probe.hpp"

namespace probe {
namespace {

/// Fires its own event port in every run, for ever, and says so in the first run only. Its stop
/// says how many runs there were.
class Spinner : public Fenwa::Block {
  public:
    using Fenwa::Block::Block;

    void start() override { go_.fire(); }

    void stop() override { say(*this, std::to_string(runs_) + " runs"); }

    bool run() override {
        if (runs_++ == 0)
            say(*this, "spins");
        go_.fire();
        return true;
    }

  private:
    Fenwa::EventPort& go_ = *make_eventport("go");
    std::uint64_t runs_ = 0;
};

/// Four threads, each with an event port of its own, fire "times" times. A thread fires again only
/// when a run has seen its last fire, so that a single lost one holds it up for ever.
class Threaded : public Fenwa::Block {
  public:
    Threaded(std::string name, const Fenwa::BlockConfiguration& config)
        : Fenwa::Block(std::move(name), config), times_(config.getInt("times")) {
        for (Worker& worker : workers_)
            worker.port = make_eventport("event");
        done_ = make_eventport("done");
    }

    ~Threaded() override { join(); }

    void start() override {
        for (Worker& worker : workers_)
            worker.thread = std::thread([this, &worker] { work(worker); });
    }

    void stop() override { join(); }

    bool run() override {
        bool for_something = done_->is_triggered();
        for (Worker& worker : workers_) {
            if (!worker.port->is_triggered())
                continue;
            ++worker.served;
            for_something = true;
        }
        if (!for_something)
            say(*this, "run for nothing");
        if (done_->is_triggered() && finished_ == std::size(workers_)) {
            int served = 0;
            for (const Worker& worker : workers_)
                served += worker.served;
            say(*this, std::to_string(served) + " fires served");
        }
        return true;
    }

  private:
    struct Worker {
        Fenwa::EventPort* port = nullptr;
        std::atomic<int> served{0};
        std::thread thread;
    };

    void work(Worker& worker) {
        for (int i = 0; i < times_; ++i) {
            worker.port->fire();
            while (worker.served == i) {
                if (stopped_)
                    return;
                std::this_thread::yield();
            }
        }
        ++finished_;
        done_->fire();
    }

    void join() {
        stopped_ = true;
        for (Worker& worker : workers_) {
            if (worker.thread.joinable())
                worker.thread.join();
        }
    }

    int times_;
    Worker workers_[4];
    Fenwa::EventPort* done_ = nullptr;
    std::atomic<std::size_t> finished_{0};
    std::atomic<bool> stopped_{false};
};

/// Logs from four threads at the same time, "times" lines each, and sets a debug-data entry again
/// and again meanwhile.
class Choir : public Fenwa::Block {
  public:
    Choir(std::string name, const Fenwa::BlockConfiguration& config)
        : Fenwa::Block(std::move(name), config), times_(config.getInt("times")) {}

    void start() override {
        std::vector<std::thread> singers;
        for (int voice = 0; voice < 4; ++voice) {
            singers.emplace_back([this, voice] {
                for (int i = 0; i < times_; ++i)
                    logger(4, "voice %d line %d %s", voice, i, std::string(200, '-').c_str());
                --singing_;
            });
        }
        for (int i = 0; singing_ > 0; ++i)
            Fenwa::debug_data().set_value("beat", i);
        for (std::thread& singer : singers)
            singer.join();
    }

  private:
    int times_;
    std::atomic<int> singing_{4};
};

}  // namespace

void register_thread_blocks(Fenwa::IRegistry& registry) {
    registry.register_block<Spinner>("Spinner");
    registry.register_block<Threaded>("Threaded");
    registry.register_block<Choir>("Choir");
}

}  // namespace probe
