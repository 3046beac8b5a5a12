#include "exchanges.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "common/arena.h"
#include "common/raw_zam_param_casts.h"
#include "qx/product_data_holder.h"
#include "qx/zam_data_provider.h"
#include "zam_platform/frame.h"

namespace zam_bench {
namespace {

/// Of a call without arenas.
template <typename Request, typename Response>
constexpr Exchange kCall{zam_platform::kPreludeBytes + sizeof(Request),
                         zam_platform::kPreludeBytes + sizeof(Response)};

std::size_t LargestFrame(const Exchanges& exchanges) {
    std::size_t bytes = 0;
    for (const Exchange& exchange : exchanges) {
        bytes = std::max({bytes, exchange.requestBytes, exchange.responseBytes});
    }
    return bytes;
}

}  // namespace

Exchanges PullExchanges(const std::vector<std::vector<unsigned char>>& pieces) {
    Exchanges exchanges{kCall<qx::EmptyRequest, qx::OpenChannelResponse>};
    for (const auto& piece : pieces) {
        exchanges.push_back(kCall<qx_zam_connector_ZamDataProvider_GetData_req,
                                  qx_zam_connector_ZamDataProvider_GetData_rsp>);
        exchanges.back().responseBytes += piece.size();
    }
    exchanges.push_back(kCall<qx_zam_connector_ZamDataProvider_GetZamHash_req,
                              qx_zam_connector_ZamDataProvider_GetZamHash_rsp>);
    exchanges.push_back(kCall<qx_zam_connector_ZamDataProvider_GetZamResult_req,
                              qx_zam_connector_ZamDataProvider_GetZamResult_rsp>);
    exchanges.push_back(kCall<qx_zam_connector_ZamDataProvider_CloseChannel_req,
                              qx_zam_connector_ZamDataProvider_CloseChannel_rsp>);
    return exchanges;
}

Exchanges PushExchanges(const ParamList& list) {
    Exchanges exchanges{kCall<qx::EmptyRequest, qx::OpenChannelResponse>};
    zam_connector::common::HeapArena arena(
        qx_zam_connector_ProductDataHolder_SendData_request_arena);
    for (const auto piece : Cut(list)) {
        vd_arena_reset(arena.Get());
        zam_connector::common::CastToVd(piece, arena.Get());
        exchanges.push_back(kCall<qx_zam_connector_ProductDataHolder_SendData_req,
                                  qx_zam_connector_ProductDataHolder_SendData_rsp>);
        exchanges.back().requestBytes += arena.Get()->used;
    }
    exchanges.push_back(kCall<qx_zam_connector_ProductDataHolder_CloseChannel_req,
                              qx_zam_connector_ProductDataHolder_CloseChannel_rsp>);
    return exchanges;
}

ExchangeClient::ExchangeClient(Exchanges exchanges)
    : exchanges_(std::move(exchanges)), bytes_(LargestFrame(exchanges_)) {}

void ExchangeClient::Run(int socket) {
    for (const Exchange& exchange : exchanges_) {
        if (!SendAll(socket, bytes_.data(), exchange.requestBytes) ||
            !ReceiveAll(socket, bytes_.data(), exchange.responseBytes)) {
            throw std::runtime_error("the bare server is gone");
        }
    }
}

void ServeExchanges(int socket, const Exchanges& exchanges,
                    const std::function<void()>& beforeLast) {
    std::vector<unsigned char> request(LargestFrame(exchanges));
    std::vector<std::vector<unsigned char>> answers;
    answers.reserve(exchanges.size());
    for (const Exchange& exchange : exchanges) {
        answers.emplace_back(exchange.responseBytes);
    }
    for (;;) {
        for (std::size_t index = 0; index < exchanges.size(); ++index) {
            if (!ReceiveAll(socket, request.data(), exchanges[index].requestBytes)) {
                return;
            }
            if (beforeLast && index + 1 == exchanges.size()) {
                beforeLast();
            }
            if (!SendAll(socket, answers[index].data(), answers[index].size())) {
                return;
            }
        }
    }
}

}  // namespace zam_bench
