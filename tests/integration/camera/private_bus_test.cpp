#include "common/bus/private_bus.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "common/bus/bus.hpp"
#include "common/process/exit_code.hpp"
#include "tests/support/bus_daemon.hpp"
#include "tests/support/temporary_folder.hpp"

namespace camera {
namespace {

namespace fs = std::filesystem;
using ::testing::StartsWith;

/// Sets an environment variable for as long as it lives.
class Variable {
  public:
    Variable(const char* name, const std::string& value) : name_(name) {
        if (const char* old = std::getenv(name))
            old_ = old;
        setenv(name, value.c_str(), 1);
    }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;
    ~Variable() { old_ ? setenv(name_, old_->c_str(), 1) : unsetenv(name_); }

  private:
    const char* name_;
    std::optional<std::string> old_;
};

class PrivateBusTest : public ::testing::Test {
  protected:
    static common::BusPtr connect(const common::PrivateBus& bus) {
        return common::open_bus(bus.address(), std::chrono::seconds(20));
    }

    static common::PrivateBusOptions listening_at(const fs::path& socket) {
        common::PrivateBusOptions options;
        options.socket_path = socket.string();
        return options;
    }

    /// The sentence with which no bus starts; it must be one for exit code 69.
    static std::string failure(const common::PrivateBusOptions& options = {}) {
        try {
            const common::PrivateBus bus(options);
        } catch (const common::Failure& failure) {
            EXPECT_EQ(failure.code(), common::ExitCode::unavailable);
            return failure.what();
        }
        return "it started";
    }

    [[nodiscard]] bool clean() const { return fs::is_empty(folder_.path()); }

    test::TemporaryFolder folder_;
    Variable tmpdir_{"TMPDIR", folder_.path().string()};
};

TEST_F(PrivateBusTest, IsApartFromOthersAndLeavesTheirFoldersAlone) {
    const common::PrivateBus one;
    const common::PrivateBus two;
    EXPECT_THAT(one.address(), StartsWith("unix:path="));
    const common::BusPtr first = connect(one);
    common::own_name(*first, "com.example.First");
    const common::BusPtr second = connect(two);
    EXPECT_NO_THROW(common::own_name(*second, "com.example.First"));
    EXPECT_THROW(common::own_name(*connect(one), "com.example.First"), common::Failure);
}

TEST_F(PrivateBusTest, StopsOnceAndForAll) {
    common::PrivateBus bus;
    const std::string address = bus.address();
    const common::BusPtr client = connect(bus);
    const pid_t group = bus.pid();
    bus.stop();
    EXPECT_EQ(bus.pid(), 0);
    EXPECT_NE(kill(-group, 0), 0) << "a process of the bus is left";
    EXPECT_EQ(bus.address(), address);
    EXPECT_THROW((void)connect(bus), common::Failure);
    const int called = sd_bus_call_method(client.get(), "org.freedesktop.DBus", "/", nullptr,
                                          "GetId", nullptr, nullptr, nullptr);
    EXPECT_LT(called, 0) << "its connections are lost";
    bus.stop();
    EXPECT_EQ(bus.pid(), 0);
}

TEST_F(PrivateBusTest, ListensAtASocketThatNobodyServesAnyMoreAndTidiesUp) {
    const fs::path socket = folder_.path() / "bus";
    {
        common::PrivateBus bus(listening_at(socket));
        kill(test::serving_process(bus.pid()), SIGKILL);
        // Its socket stays, as after a crash.
        const fs::path kept = folder_.path() / "kept";
        fs::rename(socket, kept);
        bus.stop();
        fs::rename(kept, socket);
        const common::PrivateBus next(listening_at(socket));
        (void)connect(next);
    }
    EXPECT_TRUE(clean());
}

TEST_F(PrivateBusTest, RemovesNoFolderThatMayBeSomebodyElses) {
    const fs::path open = folder_.path() / "fenwa-camera-shared";
    fs::create_directory(open);
    fs::permissions(open, fs::perms::owner_all | fs::perms::others_all);
    const std::string file = folder_.write("fenwa-camera-file", "precious");
    const fs::path kept = folder_.path() / "kept";
    fs::create_directory(kept);
    fs::permissions(kept, fs::perms::owner_all);
    std::ofstream(kept / "file") << "precious";
    fs::create_directory_symlink(kept, folder_.path() / "fenwa-camera-link");
    { const common::PrivateBus bus; }
    EXPECT_TRUE(fs::is_directory(open));
    EXPECT_EQ(fs::file_size(file), 8U);
    EXPECT_EQ(fs::file_size(kept / "file"), 8U);
    EXPECT_TRUE(fs::is_symlink(folder_.path() / "fenwa-camera-link"));
}

TEST_F(PrivateBusTest, RemovesASocketOnlyWhereNobodyListens) {
    const fs::path socket = folder_.path() / "bus";
    common::remove_dead_socket(socket);
    const std::string file = folder_.write("file", "precious");
    common::remove_dead_socket(file);
    EXPECT_TRUE(fs::exists(file));
    common::PrivateBus bus(listening_at(socket));
    common::remove_dead_socket(socket);
    EXPECT_TRUE(fs::is_socket(socket));
    const fs::path kept = folder_.path() / "kept";
    fs::rename(socket, kept);
    bus.stop();
    common::remove_dead_socket(kept);
    EXPECT_FALSE(fs::exists(kept));
}

TEST_F(PrivateBusTest, ThatCannotStartSaysWhy) {
    const std::string file = folder_.write("bus", "precious");
    EXPECT_EQ(failure(listening_at(file)),
              "cannot start a private bus: '" + file + "' exists and is not a socket");
    EXPECT_EQ(fs::file_size(file), 8U);
    fs::remove(file);
    const fs::path path = folder_.path() / std::string(120, 'x');
    EXPECT_EQ(failure(listening_at(path)), "cannot start a private bus: the socket path '" +
                                               path.string() + "' is longer than 107 bytes");
    {
        const Variable variable("PATH", folder_.path().string());
        EXPECT_EQ(failure(), "cannot start a private bus: dbus-daemon is not installed");
    }
    EXPECT_TRUE(clean());
    const Variable tmpdir("TMPDIR", "/nonexistent");
    EXPECT_EQ(failure(),
              "cannot start a private bus: no folder like "
              "'/nonexistent/fenwa-camera-XXXXXX' can be made: No such file or directory");
}

TEST_F(PrivateBusTest, HandsOnWhatTheDaemonComplainsOf) {
    common::PrivateBusOptions options;
    options.extra_xml = "<nonsense";
    EXPECT_THAT(failure(options),
                StartsWith("cannot start a private bus: dbus-daemon has ended: "));
    EXPECT_TRUE(clean());
}

TEST_F(PrivateBusTest, ActivatesThroughAProgramWhosePathIsHardToQuote) {
    // dbus-broker takes a backslash in a service file as it is, dbus-daemon as the begin of an
    // escape.
    const std::string backslash = test::on_dbus_broker() ? "" : "\\";
    const fs::path odd = folder_.path() / ("it's \"a\" $dir " + backslash);
    fs::create_directory(odd);
    const fs::path said = folder_.path() / "said";
    const fs::path program = odd / "camera";
    // Answers to nothing; that it ran, with which words, is what counts.
    std::ofstream(program) << "#!/bin/sh\nprintf '%s|' \"$@\" > '" << said.string()
                           << "'\nexit 1\n";
    fs::permissions(program, fs::perms::owner_all);
    common::PrivateBusOptions options;
    options.camera_program = program.string();
    options.activatable = {{"com.example.Name", "temperature"}};
    const common::PrivateBus bus(options);
    const common::BusPtr client = connect(bus);
    common::BusError error;
    EXPECT_LT(sd_bus_call_method(client.get(), "com.example.Name", "/", "com.example.X", "Y",
                                 &error, nullptr, nullptr),
              0);
    EXPECT_EQ(std::string(error.error.name), test::activation_failed_error());
    std::string words;
    std::getline(std::ifstream(said), words);
    EXPECT_EQ(words, "activate|temperature|");
}

}  // namespace
}  // namespace camera
