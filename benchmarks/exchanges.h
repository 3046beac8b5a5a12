#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "param_list.h"
#include "ping_pong.h"

namespace zam_bench {

/// What a transfer puts on the wire, call by call.
using Exchanges = std::vector<Exchange>;

/// Of `GetPolicy` with pieces of these sizes in bytes.
Exchanges PullExchanges(const std::vector<std::vector<unsigned char>>& pieces);

/// Of `SetSettings` with a list.
Exchanges PushExchanges(const ParamList& list);

/// Goes through a transfer's exchanges over a bare socket, as the client.
class ExchangeClient {
public:
    explicit ExchangeClient(Exchanges exchanges);

    /// All exchanges, once. Throws `std::runtime_error` when the server is gone.
    void Run(int socket);

private:
    Exchanges exchanges_;
    std::vector<unsigned char> bytes_;  ///< of one frame: it stays in the cache, as an arena does
};

/// Answers a transfer's exchanges over and over until the client is gone. Each answer has memory of
/// its own, as the pieces that a service holds have. `beforeLast`, if any, is called before the
/// last one is answered.
void ServeExchanges(int socket, const Exchanges& exchanges,
                    const std::function<void()>& beforeLast = {});

}  // namespace zam_bench
