#pragma once

#include <csignal>
#include <optional>

#include "tests/integration/host/host_test.hpp"

namespace test {

/// A host whose graph file is written anew while it runs.
class ReloadTest : public HostTest {
  protected:
    /// Starts the host on a graph of probe blocks and waits until it is ready.
    void start(const std::string& lines, const Words& arguments = {}) {
        Words all{"--bus", bus()};
        all.insert(all.end(), arguments.begin(), arguments.end());
        host_.emplace(run_command(probes(lines), all));
        ASSERT_TRUE(host_->wait_for_text("\"ready\""));
    }

    /// Replaces the file's lines behind the plug-ins.
    void rewrite(const std::string& lines) const { folder().write("graph.toml", probes(lines)); }

    /// Has the host read the file again, and gives all that it says on stderr of it.
    std::string reload() {
        const std::size_t known = host_->err().size();
        host_->send_signal(SIGHUP);
        EXPECT_TRUE(host_->wait_for_error_text("reloaded")) << host_->err();
        return without_folder({0, 0, {}, host_->err().substr(known)}).err;
    }
    std::string reload(const std::string& lines) {
        rewrite(lines);
        return reload();
    }

    /// Stops the host, which has done no wrong, and gives what its blocks have logged.
    std::string stop() {
        const Ended ended = host_->terminate();
        EXPECT_EQ(ended.code, 0);
        return messages(ended.out);
    }

    Process& host() { return *host_; }

  private:
    std::optional<Process> host_;
};

/// A block that says what it is told when its settings change.
inline std::string settled(const std::string& name, const std::string& settings) {
    return "[blocks." + name + "]\ntype = \"Settled\"\n" + settings;
}

}  // namespace test
