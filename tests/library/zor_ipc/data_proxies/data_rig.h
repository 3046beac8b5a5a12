#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "common/raw_zam_param.h"
#include "product_data_holder_proxy.h"
#include "support/flattened.h"
#include "support/result_codes.h"
#include "zam_connector_testing/recording_logger.h"
#include "zam_connector_testing/scripted_transport.h"
#include "zam_data_provider_proxy.h"

/// The two proxies of data, each with a service that answers it from a script.
namespace zam_connector::test {

using List = std::vector<common::RawZamParam>;
using Lines = std::vector<std::string>;

inline constexpr std::uint16_t kProviderRiid = 0x0D04;
inline constexpr std::uint16_t kHolderRiid = 0x0E05;
inline constexpr std::int64_t kChannel = 0x0102'0304'0506'0708;
inline const testing::Bytes kChannelBytes{8, 7, 6, 5, 4, 3, 2, 1};

/// Transport statuses that must all be taken for the same failure.
inline constexpr int kTransportStatuses[] = {1, -1, INT_MAX, INT_MIN, kUnspecified};

/// Codes of the service that must be handed on as they stand.
inline constexpr int kResultCodes[] = {0, 1, 2, INT_MAX, -1, INT_MIN, kUnspecified, 0x4B};

/// A session status that is a failure, and the code that it becomes.
struct SessionRow {
    std::int8_t status;
    int code;
};
inline constexpr SessionRow kSessionFailures[] = {
    {-6, kUnspecified},       {-5, kInvalidArgument}, {-4, kInvalidArgument},
    {-3, kInvalidResult},     {-2, kInvalidResult},   {-1, kInvalidArgument},
    {2, kUnspecified},        {7, kUnspecified},      {INT8_MAX, kUnspecified},
    {INT8_MIN, kUnspecified},
};

/// Numbers of the operations.
enum Provider : unsigned {
    kOpenPolicyChannel = 0,
    kOpenSettingsChannel = 1,
    kGetData = 2,
    kGetZamHash = 3,
    kGetZamResult = 4,
    kCloseChannel = 5,
    kGetSubscriptions = 6,
    kGetZamServerData = 7,
    kGetZamReserveCert = 8,
    kGetPolicyHash = 9,
    kGetSettingsHash = 10,
    kGetSubscriptionHash = 11,
    kGetUpdatesHash = 12,
    kGetSyncedSettingsHash = 13,
    kOpenUpdates = 14,
    kGetUpdates = 15,
    kCloseUpdates = 16,
};
enum Holder : unsigned {
    kSetAppInfo = 0,
    kSetAppInfoDynamic = 1,
    kOpenSetSettingsChannel = 2,
    kOpenAppEulasChannel = 3,
    kOpenAppUpdatesChannel = 4,
    kSendData = 5,
    kCloseHolderChannel = 6,
};

/// What goes wrong with a call.
struct Fault {
    std::int8_t session = 0;  ///< status in place of the right one; 0: it stays
    int transport = 0;        ///< the answer is written all the same
};

/// Lines as `Rig::TakeLines` gives them.
std::string SessionLine(const std::string& operation, int status);
std::string TransportLine(const std::string& operation, int status);
std::string ProviderLine(const std::string& function, const std::string& text);
std::string HolderLine(const std::string& function, const std::string& text);

/// An operation of any interface that throws.
template <typename... Arguments>
int ThrowText(Arguments... /*arguments*/) {
    throw std::runtime_error("boom {}");
}

/// The identifier whose bytes are `first`, `first` + 1 and so on.
ZamId MakeId(unsigned char first);

using zam_test::Flattened;

/// The bytes of a piece.
std::string PieceOf(const List& list);

/// The records that a call of "SendData" brings.
List PieceIn(const testing::RecordedCall& call);

/// Logger, transport and script. The script must fit the calls.
class Rig {
public:
    Rig() = default;
    Rig(const Rig&) = delete;
    Rig& operator=(const Rig&) = delete;

    /// The call of `operation` with this number, from 0, goes wrong.
    void Fail(unsigned operation, Fault fault, std::size_t number = 0) {
        faults_[{operation, number}] = fault;
    }

    /// Numbers of the operations called so far.
    std::vector<unsigned> Operations() const;

    /// The only call so far.
    testing::RecordedCall OnlyCall() const;

    /// Calls of one operation.
    std::vector<testing::RecordedCall> CallsOf(unsigned operation) const;

    /// The records since the last look as in "4 file Function: text"; each has a line.
    Lines TakeLines();

    testing::RecordingLogger logger;
    testing::ScriptedTransport transport;

protected:
    ~Rig() { EXPECT_THAT(transport.Faults(), ::testing::IsEmpty()); }

    /// Counts the call; its number.
    std::size_t Count(const testing::RecordedCall& call) {
        return counts_[call.requestHeader.operation]++;
    }

    /// The answer to the call of `operation` with this number, with what is to go wrong with it.
    template <typename Response>
    testing::ScriptedAnswer Reply(unsigned operation, std::size_t number, Response response,
                                  std::string_view arena = {}) {
        const auto fault = faults_.find({operation, number});
        if (fault == faults_.end()) {
            return testing::AnswerWith(response, arena);
        }
        if constexpr (requires { response.sessionStatus; }) {
            if (fault->second.session != 0) {
                response.sessionStatus = fault->second.session;
            }
        }
        return testing::AnswerWith(response, arena, fault->second.transport);
    }

private:
    std::map<std::pair<unsigned, std::size_t>, Fault> faults_;
    std::map<unsigned, std::size_t> counts_;
};

/// The data provider. Single calls are answered by what the test enqueues.
class ProviderRig : public Rig {
public:
    ProviderRig();

    /// Has the service give a tree, in pieces of so many records.
    void Give(const zuv::TValue& tree, std::size_t recordsPerPiece = 3);

    std::vector<std::string> pieces;  ///< of the tree; the last one comes with status 1
    unsigned long hash = 0xA1A2'A3A4'A5A6'A7A8;
    int result = 0;
    /// Pieces of identifiers by kind; the answer with status 1 comes behind them.
    std::array<std::vector<std::vector<ZamId>>, 3> updates;

    proxy::ZamDataProviderProxy proxy;

private:
    std::optional<testing::ScriptedAnswer> Answer(const testing::RecordedCall& call);
    testing::ScriptedAnswer AnswerUpdates(const testing::RecordedCall& call, std::size_t number);

    std::array<std::size_t, 3> updatesGiven_{};
};

/// The product data holder.
class HolderRig : public Rig {
public:
    HolderRig();

    /// The records of each piece sent so far.
    std::vector<List> Pieces() const;
    std::vector<std::size_t> PieceSizes() const;
    /// All of them behind one another.
    List Sent() const;

    unsigned long hash = 0xB1B2'B3B4'B5B6'B7B8;
    int result = 0;

    proxy::ProductDataHolderProxy proxy;

private:
    std::optional<testing::ScriptedAnswer> Answer(const testing::RecordedCall& call);
};

inline qx_zam_connector_ZamDataProvider_proxy ProviderRecord(VdZorTransport* transport) {
    qx_zam_connector_ZamDataProvider_proxy record{};
    qx_zam_connector_ZamDataProvider_proxy_init(&record, transport, kProviderRiid);
    return record;
}

inline qx_zam_connector_ProductDataHolder_proxy HolderRecord(VdZorTransport* transport) {
    qx_zam_connector_ProductDataHolder_proxy record{};
    qx_zam_connector_ProductDataHolder_proxy_init(&record, transport, kHolderRiid);
    return record;
}

}  // namespace zam_connector::test
