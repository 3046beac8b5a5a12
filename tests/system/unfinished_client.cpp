#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "product_data_holder_proxy.h"
#include "qx/endpoint_names.h"
#include "vd/service_locator.h"
#include "zam_data_provider_proxy.h"

/// Opens channels for all sorts of transfers, sends as many pieces of 600000 bytes as its argument
/// says, writes a 1 when all of that went well and a 0 otherwise, and waits to be killed.

namespace {

constexpr std::size_t kPieceBytes = 600'000;

bool SendPieces(zam_connector::proxy::ProductDataHolderProxy& sender, long channel, long count) {
    zuv::Vector vector;
    for (long number = 0; number < count; ++number) {
        vector.emplace_back(std::string(kPieceBytes, 'x'));
    }
    return sender.SendZamParams(channel, zuv::TValue(std::move(vector))) == 0;
}

bool BeginTransfers(long pieces) {
    const std::uint32_t handle = ServiceLocatorConnect(qx::kConnectorService);
    static VdZorTransport transport{};
    VdZorTransport_Init(&transport, handle, 0, 0);
    qx_zam_connector_ProductDataHolder_proxy holder{};
    qx_zam_connector_ProductDataHolder_proxy_init(
        &holder, &transport, ServiceLocatorGetRiid(handle, qx::kProductDataHolderEndpoint));
    qx_zam_connector_ZamDataProvider_proxy provider{};
    qx_zam_connector_ZamDataProvider_proxy_init(
        &provider, &transport, ServiceLocatorGetRiid(handle, qx::kZamDataProviderEndpoint));
    zam_connector::proxy::ProductDataHolderProxy sender(holder);
    zam_connector::proxy::ZamDataProviderProxy receiver(provider);
    long eulas = 0;
    long updates = 0;
    long status = 0;
    unsigned long hash = 0;
    return sender.OpenAppEulasChannel(eulas) == 0 && sender.OpenAppUpdatesChannel(updates) == 0 &&
           SendPieces(sender, updates, pieces) &&
           receiver.OpenZamUpdatesStatusChannel(status, hash) == 0;
}

}  // namespace

int main(int argc, char** argv) {
    const char word = BeginTransfers(argc > 1 ? std::atol(argv[1]) : 1) ? '1' : '0';
    if (::write(STDOUT_FILENO, &word, 1) == 1) {
        ::pause();
    }
    return 1;
}
