#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "client/socket_channel.h"
#include "support/temporary_folder.h"
#include "support/test_server.h"
#include "zam_connector_testing/recording_logger.h"
#include "zam_platform/peer_credentials.h"
#include "zam_platform/posix_error.h"

namespace zam_platform::testing {
namespace {

using zam_test::TemporaryFolder;

constexpr uid_t kOwnUser = 1000;
constexpr gid_t kAdmittedGroup = 77;

PeerCredentials g_peer;
bool g_groupsWereAsked = false;

PeerCredentials GivenPeer(int, bool withGroups) {
    g_groupsWereAsked = withGroups;
    return g_peer;
}

PeerCredentials FailingQuery(int, bool) {
    throw PlatformError(kStatusBroken, "no credentials in this test");
}

/// Makes everybody believe that the peer is who the test says.
class ScopedPeer {
public:
    explicit ScopedPeer(const PeerCredentials& peer) {
        g_peer = peer;
        before_ = SetPeerCredentialsFunction(&GivenPeer);
    }
    explicit ScopedPeer(PeerCredentialsFunction function)
        : before_(SetPeerCredentialsFunction(function)) {}
    ScopedPeer(const ScopedPeer&) = delete;
    ScopedPeer& operator=(const ScopedPeer&) = delete;
    ~ScopedPeer() { SetPeerCredentialsFunction(before_); }

private:
    PeerCredentialsFunction before_ = nullptr;
};

TEST(PeerCredentials, AreThoseOfTheProcessAtTheOtherEnd) {
    const auto [mine, theirs] = MakePair();
    const PeerCredentials peer = ReadPeerCredentials(mine.Get(), true);
    EXPECT_EQ(peer.user, ::geteuid());
    EXPECT_EQ(peer.group, ::getegid());
    std::vector<gid_t> groups(static_cast<std::size_t>(::getgroups(0, nullptr)));
    ASSERT_GE(::getgroups(static_cast<int>(groups.size()), groups.data()), 0);
    EXPECT_TRUE(
        std::is_permutation(peer.groups.begin(), peer.groups.end(), groups.begin(), groups.end()));
    EXPECT_TRUE(ReadPeerCredentials(mine.Get(), false).groups.empty());
}

TEST(PeerCredentials, AreNoneOfWhatIsNoSocket) {
    EXPECT_THROW(ReadPeerCredentials(-1, false), PlatformError);
}

TEST(PeerCredentials, ComeThroughAFunctionThatCanBeReplaced) {
    const auto [mine, theirs] = MakePair();
    {
        const ScopedPeer peer({.user = 5, .group = 6, .groups = {7}});
        EXPECT_EQ(QueryPeerCredentials(mine.Get(), true).user, 5U);
    }
    EXPECT_EQ(QueryPeerCredentials(mine.Get(), true).user, ::geteuid());
    EXPECT_EQ(SetPeerCredentialsFunction(nullptr), &ReadPeerCredentials);
}

class ClientPeerCheck : public ::testing::Test {
protected:
    bool Connects() {
        try {
            ConnectToService(directory_, "svc");
            return true;
        } catch (const PlatformError& error) {
            EXPECT_EQ(error.Status(), kStatusUntrusted);
            text_ = error.what();
            return false;
        }
    }

    TemporaryFolder temp_;
    RuntimeDirectory directory_{temp_.Path()};
    RawListener listener_{temp_.Path("svc.sock")};
    std::string text_;
};

TEST_F(ClientPeerCheck, AcceptsRootAndTheDirectorysOwner) {
    EXPECT_TRUE(Connects());
    {
        const ScopedPeer peer({.user = directory_.Owner(), .group = 5, .groups = {}});
        EXPECT_TRUE(Connects());
        EXPECT_FALSE(g_groupsWereAsked) << "groups decide nothing here";
    }
    const ScopedPeer peer({.user = 0, .group = 5, .groups = {}});
    EXPECT_TRUE(Connects());
}

TEST_F(ClientPeerCheck, RefusesAServiceOfAnotherUser) {
    const ScopedPeer peer({.user = 4242, .group = 0, .groups = {0}});
    EXPECT_FALSE(Connects());
    EXPECT_EQ(text_, "socket '" + temp_.Path("svc.sock") +
                         "': the service runs as user 4242, not as root or user " +
                         std::to_string(::geteuid()) + ", who owns the directory");
}

TEST(AdmissionPolicy, AdmitsItsOwnUserRootAndTheMembersOfItsGroup) {
    struct Row {
        PeerCredentials peer;
        bool withGroup;
        bool without;
    };
    const Row rows[] = {
        {{.user = kOwnUser, .group = 1, .groups = {}}, true, true},
        {{.user = 0, .group = 1, .groups = {}}, true, true},
        {{.user = 2, .group = kAdmittedGroup, .groups = {}}, true, false},
        {{.user = 2, .group = 1, .groups = {3, kAdmittedGroup, 4}}, true, false},
        {{.user = 2, .group = 1, .groups = {3, 4}}, false, false},
        {{.user = 2, .group = 0, .groups = {0}}, false, false},
        {{.user = kAdmittedGroup, .group = kOwnUser, .groups = {kOwnUser}}, false, false},
    };
    const AdmissionPolicy withGroup{.ownUser = kOwnUser, .group = kAdmittedGroup};
    const AdmissionPolicy without{.ownUser = kOwnUser, .group = {}};
    for (const Row& row : rows) {
        EXPECT_EQ(withGroup.Admits(row.peer), row.withGroup) << row.peer.user;
        EXPECT_EQ(without.Admits(row.peer), row.without) << row.peer.user;
    }
}

class ServerPeerCheck : public ::testing::Test {
protected:
    std::int32_t StatusFor(const PeerCredentials& peer) {
        const ScopedPeer scope(peer);
        const auto link = LinkTo(server_);
        return TestCall(kEcho, 1).On(*link);
    }

    zam_connector::testing::RecordingLogger logger_;
    TestServer server_{{}, {.ownUser = kOwnUser, .group = kAdmittedGroup}};
};

TEST_F(ServerPeerCheck, ServesThoseThatItAdmits) {
    EXPECT_EQ(StatusFor({.user = kOwnUser, .group = 1, .groups = {}}), kStatusOk);
    EXPECT_TRUE(g_groupsWereAsked);
    EXPECT_EQ(StatusFor({.user = 0, .group = 1, .groups = {}}), kStatusOk);
    EXPECT_EQ(StatusFor({.user = 2, .group = kAdmittedGroup, .groups = {}}), kStatusOk);
    EXPECT_EQ(StatusFor({.user = 2, .group = 1, .groups = {3, kAdmittedGroup}}), kStatusOk);
    EXPECT_TRUE(logger_.Records().empty());
    const auto clients = server_.Endpoint().Clients();
    ASSERT_EQ(clients.size(), 4U);
    EXPECT_EQ(clients[0].user, kOwnUser);
    EXPECT_EQ(clients[1].user, 0U);
    EXPECT_EQ(clients[3].user, 2U);
}

TEST_F(ServerPeerCheck, TellsOthersThatTheyAreNotServed) {
    EXPECT_EQ(StatusFor({.user = 2, .group = 1, .groups = {3}}), kStatusNotAdmitted);
    EXPECT_EQ(logger_.Records().front().text, "user 2 is not served: connection closed");
    EXPECT_TRUE(server_.Endpoint().Calls().empty());

    const ScopedPeer scope({.user = 2, .group = 1, .groups = {3}});
    const RawSocket raw = server_.Connect();
    EXPECT_EQ(ToHex(raw.ReadToEnd()), ToHex(StatusFrame(FrameKind::Refusal, 0, 16)));
}

TEST_F(ServerPeerCheck, ClosesAConnectionWhosePeerItCannotTell) {
    {
        const ScopedPeer scope(&FailingQuery);
        EXPECT_TRUE(server_.Connect().EndsNow());
    }
    EXPECT_EQ(logger_.Records().front().text, "no credentials in this test");
    EXPECT_EQ(StatusFor({.user = 0, .group = 1, .groups = {}}), kStatusOk);
}

TEST_F(ServerPeerCheck, RefusesTheTokenOfAnotherUser) {
    RawSocket first;
    {
        const ScopedPeer scope({.user = kOwnUser, .group = 1, .groups = {}});
        first = server_.Greet(0x31);
        first.Send(LookupFrame(kTestEndpoint));
        first.ReadFrame();
    }
    const ScopedPeer scope({.user = 2, .group = kAdmittedGroup, .groups = {}});
    const RawSocket second = server_.Greet(0x31);
    EXPECT_EQ(ToHex(second.ReadToEnd()), ToHex(StatusFrame(FrameKind::Refusal, 0, 16)));
    EXPECT_EQ(logger_.Records().front().text,
              "client of user 2: session token of another user: connection closed");

    first.Send(LookupFrame(kTestEndpoint, 2));
    EXPECT_EQ(first.ReadFrame().prelude.callNumber, 2U) << "the first user's session goes on";
}

}  // namespace
}  // namespace zam_platform::testing
