#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include <deque>
#include <memory>
#include <utility>

#include "server/quiet_users.h"
#include "server/server_connection.h"
#include "support/raw_socket.h"
#include "zam_platform/server/server.h"

namespace zam_platform::testing {
namespace {

/// Connections of a server that does not run, and whose turns are told by hand.
class QuietUsersInMemory : public ::testing::Test {
protected:
    struct Member {
        RawSocket client;
        std::shared_ptr<ServerConnection> connection;
        QuietUsers::Turn turn;

        /// Whether what the client has sent was taken.
        bool WasServed() const {
            int unread = -1;
            return ::ioctl(connection->Descriptor(), FIONREAD, &unread) == 0 && unread == 0;
        }
    };

    /// One with a frame to be served.
    Member& Add(uid_t user, unsigned char token) {
        auto [mine, service] = MakePair();
        asio::local::stream_protocol::socket socket(server_.Context());
        socket.assign(asio::local::stream_protocol(), service.Release().Release());
        socket.non_blocking(true);
        auto connection = std::make_shared<ServerConnection>(server_, std::move(socket), user);
        connection->Start();
        mine.Send(HelloFrame(token));
        const QuietUsers::Turn turn = quiet_.Enter(*connection, user);
        members_.push_back({std::move(mine), std::move(connection), turn});
        return members_.back();
    }

    ~QuietUsersInMemory() override {
        for (Member& member : members_) {
            quiet_.Leave(member.turn);
            member.connection->Close();
        }
    }

    Server server_{{}, {.ownUser = 1000, .group = {}}, {}};
    QuietUsers quiet_;
    std::deque<Member> members_;
};

TEST_F(QuietUsersInMemory, AreNoneWhoseCallsThereAreAsManyAsTheBusiestUsers) {
    Member& busy = Add(1000, 1);
    Member& hot = Add(1001, 2);
    Member& quiet = Add(1002, 3);
    constexpr std::size_t kParts = QuietUsers::kPartBytes;
    // As much as leads to a look, in two turns of which the second is late.
    quiet_.OnRead(busy.turn, 0);
    for (int call = 0; call < 60; ++call) {
        quiet_.OnServedFromMemory(hot.turn, 100);
    }
    EXPECT_FALSE(quiet.WasServed());
    quiet_.OnRead(busy.turn, kParts * QuietUsers::kWorkBeforeLook);
    EXPECT_TRUE(quiet.WasServed());
    EXPECT_FALSE(hot.WasServed());
    // The next look counts anew.
    quiet_.OnRead(busy.turn, kParts * QuietUsers::kWorkBeforeLook);
    EXPECT_TRUE(hot.WasServed());
}

TEST_F(QuietUsersInMemory, LeadToNoLookByTheirCallsThere) {
    Member& busy = Add(1000, 1);
    Member& hot = Add(1001, 2);
    const Member& quiet = Add(1002, 3);
    quiet_.OnRead(busy.turn, 0);
    for (int call = 0; call < 1000; ++call) {
        quiet_.OnServedFromMemory(hot.turn, 100);
    }
    quiet_.OnRead(busy.turn, 0);
    EXPECT_FALSE(quiet.WasServed());
}

}  // namespace
}  // namespace zam_platform::testing
