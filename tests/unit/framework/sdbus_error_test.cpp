#include "fenwa/sdbus_error.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <type_traits>

namespace {

using Fenwa::SDBusError;

static_assert(std::is_base_of_v<std::exception, SDBusError>);

TEST(SDBusErrorTest, SaysNameAndMessage) {
    try {
        throw SDBusError("org.freedesktop.DBus.Error.NoReply", "timed out", -ETIMEDOUT);
    } catch (const std::exception& error) {
        EXPECT_STREQ(error.what(), "org.freedesktop.DBus.Error.NoReply: timed out");
    }
    EXPECT_STREQ(SDBusError("a.b.C", "", -EIO).what(), "a.b.C: ");
}

TEST(SDBusErrorTest, CopiesWhole) {
    SDBusError copy("x.y.Z", "other", -EPERM);
    {
        const SDBusError error("a.b.C", "message", -EIO);
        const SDBusError second(error);  // NOLINT(performance-*): the copy is the point
        copy = second;
    }
    EXPECT_STREQ(copy.what(), "a.b.C: message");
    EXPECT_EQ(copy.name(), "a.b.C");
    EXPECT_EQ(copy.message(), "message");
    EXPECT_EQ(copy.code(), -EIO);
}

}  // namespace
