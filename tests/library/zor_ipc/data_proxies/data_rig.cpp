#include "data_rig.h"

#include <algorithm>

#include "common/arena.h"
#include "common/raw_zam_param_casts.h"

namespace zam_connector::test {

using testing::RecordedCall;
using testing::ScriptedAnswer;

std::string SessionLine(const std::string& operation, int status) {
    return "4 ipc_transfer_call IpcTransferCallAndErrorHandle: Ipc call " + operation +
           " terminated with a session error " + std::to_string(status);
}

std::string TransportLine(const std::string& operation, int status) {
    return "4 ipc_transfer_call IpcTransferCallAndErrorHandle: Ipc call " + operation +
           " terminated with a error " + std::to_string(status);
}

std::string ProviderLine(const std::string& function, const std::string& text) {
    return "4 zam_data_provider_proxy " + function + ": " + text;
}

std::string HolderLine(const std::string& function, const std::string& text) {
    return "4 product_data_holder_proxy " + function + ": " + text;
}

ZamId MakeId(unsigned char first) {
    ZamId id{};
    for (std::byte& byte : id) {
        byte = static_cast<std::byte>(first++);
    }
    return id;
}

std::string PieceOf(const List& list) {
    common::HeapArena arena(676'000);
    common::CastToVd(list, arena.Get());
    return {reinterpret_cast<const char*>(arena.Get()->base), arena.Get()->used};
}

List PieceIn(const RecordedCall& call) {
    const auto request = call.As<qx_zam_connector_ProductDataHolder_SendData_req>();
    testing::Bytes bytes = call.requestArena;
    vd_arena arena{};
    vd_arena_init(&arena, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    arena.used = arena.capacity;
    return common::CastFromVd(request->params, &arena);
}

std::vector<unsigned> Rig::Operations() const {
    std::vector<unsigned> operations;
    for (const RecordedCall& call : transport.Calls()) {
        operations.push_back(call.requestHeader.operation);
    }
    return operations;
}

RecordedCall Rig::OnlyCall() const {
    const auto calls = transport.Calls();
    EXPECT_EQ(calls.size(), 1U);
    return calls.empty() ? RecordedCall() : calls.front();
}

std::vector<RecordedCall> Rig::CallsOf(unsigned operation) const {
    std::vector<RecordedCall> found;
    for (const RecordedCall& call : transport.Calls()) {
        if (call.requestHeader.operation == operation) {
            found.push_back(call);
        }
    }
    return found;
}

Lines Rig::TakeLines() {
    Lines lines;
    for (const testing::LogRecord& record : logger.Records()) {
        EXPECT_GT(record.line, 0);
        lines.push_back(std::to_string(record.level) + " " + record.file + " " + record.function +
                        ": " + record.text);
    }
    logger.Clear();
    return lines;
}

ProviderRig::ProviderRig() : proxy(ProviderRecord(transport.Get())) {
    transport.SetResponder([this](const RecordedCall& call) { return Answer(call); });
}

void ProviderRig::Give(const zuv::TValue& tree, std::size_t recordsPerPiece) {
    const List list = Flattened(tree);
    for (std::size_t first = 0; first < list.size(); first += recordsPerPiece) {
        const std::size_t last = std::min(first + recordsPerPiece, list.size());
        pieces.push_back(PieceOf({list.begin() + static_cast<std::ptrdiff_t>(first),
                                  list.begin() + static_cast<std::ptrdiff_t>(last)}));
    }
}

std::optional<ScriptedAnswer> ProviderRig::Answer(const RecordedCall& call) {
    EXPECT_EQ(call.requestHeader.riid, kProviderRiid);
    const unsigned operation = call.requestHeader.operation;
    const std::size_t number = Count(call);
    switch (operation) {
        case kOpenPolicyChannel:
        case kOpenSettingsChannel: {
            qx::OpenChannelResponse response{};
            response.channel = kChannel;
            return Reply(operation, number, response);
        }
        case kGetData: {
            if (number >= pieces.size()) {
                return std::nullopt;
            }
            qx_zam_connector_ZamDataProvider_GetData_rsp response{};
            response.params.records = {0, static_cast<std::uint32_t>(pieces[number].size())};
            response.sessionStatus = number + 1 == pieces.size() ? 1 : 0;
            return Reply(operation, number, response, pieces[number]);
        }
        case kGetZamHash: {
            qx_zam_connector_ZamDataProvider_GetZamHash_rsp response{};
            response.hash = hash;
            return Reply(operation, number, response);
        }
        case kGetZamResult: {
            qx_zam_connector_ZamDataProvider_GetZamResult_rsp response{};
            response.result = result;
            return Reply(operation, number, response);
        }
        case kOpenUpdates: {
            qx_zam_connector_ZamDataProvider_OpenZamUpdatesStatusChannel_rsp response{};
            response.channel = kChannel;
            response.hash = hash;
            return Reply(operation, number, response);
        }
        case kGetUpdates:
            return AnswerUpdates(call, number);
        case kCloseChannel:
        case kCloseUpdates:
            return Reply(operation, number, qx::SessionResponse{});
        default:
            return std::nullopt;
    }
}

ScriptedAnswer ProviderRig::AnswerUpdates(const RecordedCall& call, std::size_t number) {
    const auto request = call.As<qx_zam_connector_ZamDataProvider_GetUpdatesStatus_req>();
    EXPECT_LT(request->kind, 3U);
    const auto& given = updates[request->kind];
    const std::size_t piece = updatesGiven_[request->kind]++;
    qx_zam_connector_ZamDataProvider_GetUpdatesStatus_rsp response{};
    response.sessionStatus = piece < given.size() ? 0 : 1;
    // The answer that ends the list brings a sound identifier, which nobody may take.
    const std::vector<ZamId> ids = piece < given.size() ? given[piece] : std::vector{MakeId(0xEE)};
    std::string bytes(ids.size() * sizeof(ZamId), '\0');
    if (!ids.empty()) {
        std::memcpy(bytes.data(), ids.data(), bytes.size());
    }
    response.updates.identifiers = {0, static_cast<std::uint32_t>(bytes.size())};
    return Reply(kGetUpdates, number, response, bytes);
}

HolderRig::HolderRig() : proxy(HolderRecord(transport.Get())) {
    transport.SetResponder([this](const RecordedCall& call) { return Answer(call); });
}

std::vector<List> HolderRig::Pieces() const {
    std::vector<List> pieces;
    for (const RecordedCall& call : CallsOf(kSendData)) {
        pieces.push_back(PieceIn(call));
    }
    return pieces;
}

std::vector<std::size_t> HolderRig::PieceSizes() const {
    std::vector<std::size_t> sizes;
    for (const List& piece : Pieces()) {
        sizes.push_back(piece.size());
    }
    return sizes;
}

List HolderRig::Sent() const {
    List all;
    for (const List& piece : Pieces()) {
        all.insert(all.end(), piece.begin(), piece.end());
    }
    return all;
}

std::optional<ScriptedAnswer> HolderRig::Answer(const RecordedCall& call) {
    EXPECT_EQ(call.requestHeader.riid, kHolderRiid);
    const unsigned operation = call.requestHeader.operation;
    const std::size_t number = Count(call);
    switch (operation) {
        case kSetAppInfo:
        case kSetAppInfoDynamic: {
            qx::ResultResponse response{};
            response.resultCode = result;
            return Reply(operation, number, response);
        }
        case kOpenSetSettingsChannel:
        case kOpenAppEulasChannel:
        case kOpenAppUpdatesChannel: {
            qx::OpenChannelResponse response{};
            response.channel = kChannel;
            return Reply(operation, number, response);
        }
        case kSendData:
            return Reply(operation, number, qx::SessionResponse{});
        case kCloseHolderChannel: {
            qx_zam_connector_ProductDataHolder_CloseChannel_rsp response{};
            response.hash = hash;
            response.resultCode = result;
            return Reply(operation, number, response);
        }
        default:
            return std::nullopt;
    }
}

}  // namespace zam_connector::test
