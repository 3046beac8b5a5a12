#include <chrono>
#include <memory>
#include <string>

#include "client/shared_channel.h"
#include "client/socket_channel.h"
#include "zam_platform/channel.h"
#include "zam_platform/runtime_directory.h"
#include "zam_platform/spin_setting.h"

namespace zam_platform {

ChannelFactory MakeChannelFactory(const std::string& directory, const std::string& service) {
    return [directory, service](const SessionToken& token,
                                const Deadline& deadline) -> std::unique_ptr<Channel> {
        UniqueFd socket = ConnectToService(RuntimeDirectory(directory), service, deadline);
        const Nanoseconds cap = ClientSpinCap();
        if (cap.count() == 0) {
            return std::make_unique<SocketChannel>(std::move(socket), token);
        }
        static ProcessPolling process{
            PollingLeave(cap, Nanoseconds(0), std::chrono::steady_clock::now())};
        return std::make_unique<SharedChannel>(std::move(socket), token, process);
    };
}

}  // namespace zam_platform
