#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <set>
#include <string>
#include <utility>

#include "support/descriptors.h"
#include "support/memory_peer.h"
#include "support/other_user.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

constexpr std::size_t kMostPairs = 8;

/// What users may take at once, and how long each of it takes to come back.
constexpr std::size_t kGrantsAtOnce = 32;
constexpr std::chrono::milliseconds kGrantTime{100};

constexpr std::chrono::milliseconds kMemoryKept{20};

/// Files of shared memory that this process has open. Those that stand unread in a socket are in
/// nobody's hands.
std::size_t OpenFilesOfMemory() {
    const std::set<int> open = OpenDescriptors();
    return static_cast<std::size_t>(std::count_if(open.begin(), open.end(), [](int descriptor) {
        return Describe({descriptor}).find("memfd:zam_") != std::string::npos;
    }));
}

/// A user whose clients take memory and never look at what they are given, beside another user.
class MemoryGrants : public ::testing::Test {
protected:
    MemoryGrants() {
        connecting_.User(0);
        other_ = server_.Greet(0xFF);
        ExpectOtherIsServed();
        connecting_.User(zam_test::kSomebodyElse);
    }

    ~MemoryGrants() override { server_.Destroy(); }

    void ExpectOtherIsServed() {
        ++otherNumber_;
        other_.Send(CallFrame(otherNumber_, kEcho, otherNumber_));
        EXPECT_EQ(MessageIn(other_.ReadFrame().fixed).value, otherNumber_);
    }

    /// The service holds what its places take: of each one file, until its pages are there.
    void ExpectServiceHoldsLittle() {
        const auto [files, mappings] =
            server_.OnLoop([] { return std::pair(OpenFilesOfMemory(), SharedMappings()); });
        EXPECT_LE(files, kMostPairs);
        EXPECT_LE(mappings, mappings_ + 2 * kMostPairs);
    }

    /// Grants that stand unread in a client's socket.
    static std::size_t GrantsIn(const RawSocket& socket) {
        std::size_t grants = 0;
        while (socket.HasInput()) {
            try {
                grants += ReadFrameWithFiles(socket).files.size() == 2 ? 1U : 0U;
            } catch (const std::exception&) {
                break;  // its end
            }
        }
        return grants;
    }

    std::size_t MostGrantsSince(std::chrono::steady_clock::time_point begin) const {
        const auto spent = std::chrono::steady_clock::now() - begin;
        return kGrantsAtOnce + 1 + static_cast<std::size_t>(spent / kGrantTime);
    }

    zam_connector::testing::RecordingLogger logger_;
    TestServer server_{{.spinCap = std::chrono::microseconds(50), .memoryKept = kMemoryKept},
                       {.ownUser = zam_test::kSomebodyElse, .group = {}}};
    ConnectingAs connecting_{zam_test::kSomebodyElse};
    const std::size_t mappings_ = SharedMappings();
    RawSocket other_;
    std::uint64_t otherNumber_ = 0;
};

TEST_F(MemoryGrants, AreFewToWhoAsksAgainAndAgainAndReadsNone) {
    constexpr std::size_t kConnections = 24;
    const auto begin = std::chrono::steady_clock::now();
    std::deque<RawSocket> clients;
    for (std::size_t index = 0; index < kConnections; ++index) {
        clients.push_back(server_.Greet(static_cast<unsigned char>(index)));
    }
    std::size_t granted = 0;
    // Long enough for memory to be given up and taken again.
    while (std::chrono::steady_clock::now() < begin + 8 * kMemoryKept) {
        for (RawSocket& client : clients) {
            // Who asks while it has some has broken a rule, and comes again.
            if (!client.TrySend(MemoryRequestFrame())) {
                granted += GrantsIn(client);
                client = server_.Greet(0x77);
            }
        }
        ExpectOtherIsServed();
        ExpectServiceHoldsLittle();
    }
    for (const RawSocket& client : clients) {
        granted += GrantsIn(client);
    }
    EXPECT_LE(granted, MostGrantsSince(begin));
    EXPECT_GE(granted, kGrantsAtOnce / 2);
    Await("memory for the other", [this] {
        other_.Send(MemoryRequestFrame(otherNumber_));
        return ReadFrameWithFiles(other_).files.size() == 2;
    });
    ExpectOtherIsServed();
}

TEST_F(MemoryGrants, LeaveNothingBehindConnectionsThatComeAndGo) {
    constexpr int kClients = 150;
    const std::set<int> before = OpenDescriptors();
    for (int client = 0; client < kClients; ++client) {
        const RawSocket socket = server_.Greet(static_cast<unsigned char>(client));
        socket.Send(MemoryRequestFrame());
        if (client % 3 == 0) {
            socket.AwaitTaken();
        }
        if (client % 25 == 0) {
            ExpectOtherIsServed();
            ExpectServiceHoldsLittle();
        }
    }
    Await("their ends", [this] { return server_.Connections() == 1; });
    EXPECT_EQ(SharedMappings(), mappings_);
    EXPECT_EQ(OpenFilesOfMemory(), 0U);
    EXPECT_TRUE(NewSince(before).empty()) << Describe(NewSince(before));
    ExpectOtherIsServed();
    EXPECT_TRUE(logger_.Records().empty());
}

}  // namespace
}  // namespace zam_platform::testing
