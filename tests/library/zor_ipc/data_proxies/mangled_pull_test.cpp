#include <algorithm>
#include <random>

#include "data_rig.h"
#include "support/random_tree.h"

// Transfers in which one byte of one piece arrives as another one: a byte of the arena, or of the
// answer's fixed part.

namespace zam_connector {
namespace {

using test::MakeId;
using ::testing::AnyOf;

constexpr unsigned kTreeSeeds = 3000;
constexpr unsigned kUpdatesSeeds = 2000;
constexpr std::uint64_t kHash = 0xA1A2'A3A4'A5A6'A7A8;

// The two kinds of pieces have fixed parts of one shape, and are answered alike.
using PieceResponse = qx_zam_connector_ZamDataProvider_GetData_rsp;
static_assert(sizeof(PieceResponse) ==
              sizeof(qx_zam_connector_ZamDataProvider_GetUpdatesStatus_rsp));

constexpr std::size_t kFixedBytes = sizeof(PieceResponse) - sizeof(vd_message_header);

/// A service that gives pieces and damages one of them. It records nothing, for speed.
class MangledService {
public:
    MangledService() {
        transport_.ops = &kOps;
        transport_.platform = this;
    }
    MangledService(const MangledService&) = delete;
    MangledService& operator=(const MangledService&) = delete;

    /// Damages a byte of what `lists` holds by then.
    void Damage(std::mt19937& random) {
        const auto below = [&](std::size_t bound) { return random() % bound; };
        do {
            list_ = below(lists.size());
        } while (lists[list_].empty());
        piece_ = below(lists[list_].size());
        // The few bytes of the fixed part get a fair share.
        const std::size_t arenaBytes = lists[list_][piece_].size();
        byte_ = below(random() % 4 == 0 ? kFixedBytes : kFixedBytes + arenaBytes);
        change_ = static_cast<unsigned char>(1 + below(255));
    }

    proxy::ZamDataProviderProxy Proxy() {
        return proxy::ZamDataProviderProxy(test::ProviderRecord(&transport_));
    }

    /// Pieces, by kind for identifiers; the answer with status 1 is the last.
    std::array<std::vector<std::string>, 3> lists;
    std::vector<std::int64_t> closed;  ///< numbers of the channels

private:
    static int Call(VdZorTransport* transport, vd_message_header* request,
                    vd_arena* /*requestArena*/, vd_message_header* response,
                    vd_arena* responseArena) {
        auto& self = *static_cast<MangledService*>(transport->platform);
        std::memset(response + 1, 0, response->fixedSize - sizeof *response);
        switch (request->operation) {
            case test::kOpenPolicyChannel:
                reinterpret_cast<qx::OpenChannelResponse*>(response)->channel = test::kChannel;
                break;
            case test::kOpenUpdates: {
                using Response = qx_zam_connector_ZamDataProvider_OpenZamUpdatesStatusChannel_rsp;
                reinterpret_cast<Response*>(response)->channel = test::kChannel;
                reinterpret_cast<Response*>(response)->hash = kHash;
                break;
            }
            case test::kGetZamHash:
                reinterpret_cast<qx_zam_connector_ZamDataProvider_GetZamHash_rsp*>(response)->hash =
                    kHash;
                break;
            case test::kGetData:
                self.AnswerPiece(0, response, responseArena);
                break;
            case test::kGetUpdates: {
                using Request = qx_zam_connector_ZamDataProvider_GetUpdatesStatus_req;
                self.AnswerPiece(reinterpret_cast<Request*>(request)->kind, response,
                                 responseArena);
                break;
            }
            case test::kCloseChannel:
            case test::kCloseUpdates:
                self.closed.push_back(reinterpret_cast<qx::ChannelRequest*>(request)->channel);
                break;
            default:
                break;
        }
        return 0;
    }

    void AnswerPiece(std::size_t list, vd_message_header* header, vd_arena* arena) {
        auto& response = *reinterpret_cast<PieceResponse*>(header);
        const std::size_t piece = given_[list]++;
        if (piece >= lists[list].size()) {
            response.sessionStatus = -1;  // a damaged status made the proxy go on
            return;
        }
        const std::string& bytes = lists[list][piece];
        std::copy(bytes.begin(), bytes.end(), arena->base);
        arena->used = static_cast<std::uint32_t>(bytes.size());
        response.params.records = {0, arena->used};
        response.sessionStatus = piece + 1 == lists[list].size() ? 1 : 0;
        if (list == list_ && piece == piece_) {
            auto* const at = byte_ < kFixedBytes
                                 ? reinterpret_cast<unsigned char*>(header + 1) + byte_
                                 : arena->base + (byte_ - kFixedBytes);
            *at ^= change_;
        }
    }

    static constexpr VdZorTransportOps kOps{&MangledService::Call};

    VdZorTransport transport_{};
    std::array<std::size_t, 3> given_{};
    std::size_t list_ = 0;
    std::size_t piece_ = 0;
    std::size_t byte_ = 0;
    unsigned char change_ = 0;
};

/// How many transfers came to which end.
struct Ends {
    unsigned successes = 0;
    unsigned failures = 0;

    /// Counts one, whose records since the last look must fit it.
    void Count(int code, testing::RecordingLogger& logger) {
        ++(code == 0 ? successes : failures);
        EXPECT_EQ(logger.Records().empty(), code == 0) << code;
        logger.Clear();
    }
};

TEST(MangledPull, OfATreeGivesACodeLeavesTheOutputsOfAFailureAndClosesOnce) {
    testing::RecordingLogger logger;
    Ends ends;
    for (unsigned seed = 0; seed < kTreeSeeds; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        MangledService service;
        const test::List list = test::Flattened(zam_test::RandomTrees(seed).Next(40));
        for (auto first = list.begin(); first != list.end();) {
            const auto last = first + std::min<std::ptrdiff_t>(1 + seed % 7, list.end() - first);
            service.lists[0].push_back(test::PieceOf({first, last}));
            first = last;
        }
        service.Damage(random);
        std::pair<unsigned long, ZamPolicy> policy{5, {zuv::TValue("before")}};
        const int code = service.Proxy().GetPolicy(policy);
        EXPECT_THAT(code,
                    AnyOf(0, test::kInvalidArgument, test::kInvalidResult, test::kUnspecified));
        EXPECT_EQ(policy.first, code == 0 ? kHash : 5);
        if (code != 0) {
            EXPECT_EQ(policy.second.tree, zuv::TValue("before"));
        }
        EXPECT_EQ(service.closed, std::vector{test::kChannel});
        ends.Count(code, logger);
    }
    EXPECT_GT(ends.successes, kTreeSeeds / 10);
    EXPECT_GT(ends.failures, kTreeSeeds / 10);
}

TEST(MangledPull, OfIdentifiersGivesACodeLeavesTheOutputsOfAFailureAndClosesOnce) {
    testing::RecordingLogger logger;
    Ends ends;
    for (unsigned seed = 0; seed < kUpdatesSeeds; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        MangledService service;
        for (auto& list : service.lists) {
            for (unsigned pieces = random() % 4; pieces != 0; --pieces) {
                list.emplace_back(16 * (random() % 11), 'i');
            }
            list.emplace_back();
        }
        service.Damage(random);
        const std::pair<unsigned long, ZamUpdatesStatus> before{5, {{MakeId(9)}, {}, {MakeId(8)}}};
        auto status = before;
        const int code = service.Proxy().GetZamUpdatesStatus(status);
        EXPECT_THAT(code, AnyOf(0, test::kUnspecified));
        EXPECT_EQ(status.first, code == 0 ? kHash : 5);
        if (code != 0) {
            EXPECT_EQ(status, before);
        }
        EXPECT_EQ(service.closed, std::vector{test::kChannel});
        ends.Count(code, logger);
    }
    EXPECT_GT(ends.successes, kUpdatesSeeds / 10);
    EXPECT_GT(ends.failures, kUpdatesSeeds / 10);
}

}  // namespace
}  // namespace zam_connector
