#include "endpoints/endpoint_catalog.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

#include "qx/endpoint_names.h"

namespace zam_service {
namespace {

struct Name {
    std::string_view interface;
    std::string_view endpoint;
};

constexpr auto kNames = std::to_array<Name>({
    {"ConnController", qx::kConnControllerEndpoint},
    {"ConnSettingsHolder", qx::kConnSettingsHolderEndpoint},
    {"ConnCommandSender", qx::kConnCommandSenderEndpoint},
    {"ConnStateNotifier", qx::kConnStateNotifierEndpoint},
    {"ZamDataNotifier", qx::kZamDataNotifierEndpoint},
    {"ZamDataProvider", qx::kZamDataProviderEndpoint},
    {"ProductDataHolder", qx::kProductDataHolderEndpoint},
    {"ZamFileDownloader", qx::kFileDownloaderEndpoint},
    {"ZamClientCertsDownloader", qx::kClientCertsDownloaderEndpoint},
});

constexpr Endpoint MakeEndpoint(std::size_t index) {
    const std::string_view name = kNames[index].endpoint;
    return {.interface = kNames[index].interface,
            .name = name,
            .shortName = name.substr(name.rfind('.') + 1),
            .riid = static_cast<std::uint16_t>(index + 1),
            .operations = qx::kInterfaces[index].operations};
}

constexpr auto MakeEndpoints() {
    std::array<Endpoint, kNames.size()> endpoints{};
    for (std::size_t index = 0; index < endpoints.size(); ++index) {
        endpoints[index] = MakeEndpoint(index);
    }
    return endpoints;
}

constexpr auto kEndpoints = MakeEndpoints();

// Both tables name the same interfaces in the same order, which the ids follow.
static_assert(std::equal(kNames.begin(), kNames.end(), qx::kInterfaces.begin(),
                         qx::kInterfaces.end(), [](const Name& name, const auto& interface) {
                             return name.interface == interface.name;
                         }));

}  // namespace

std::span<const Endpoint> Endpoints() noexcept {
    return kEndpoints;
}

const Endpoint& EndpointOf(std::string_view interface) {
    const auto* const found = std::find_if(
        kEndpoints.begin(), kEndpoints.end(),
        [interface](const Endpoint& endpoint) { return endpoint.interface == interface; });
    if (found == kEndpoints.end()) {
        throw std::out_of_range(fmt::format("no interface is named {}", interface));
    }
    return *found;
}

const Endpoint* FindEndpoint(std::string_view name) noexcept {
    const auto* const found =
        std::find_if(kEndpoints.begin(), kEndpoints.end(), [name](const Endpoint& endpoint) {
            return endpoint.shortName == name || endpoint.name == name;
        });
    return found == kEndpoints.end() ? nullptr : found;
}

const qx::OperationInfo* FindOperation(const Endpoint& endpoint, std::string_view name) noexcept {
    const auto found =
        std::find_if(endpoint.operations.begin(), endpoint.operations.end(),
                     [name](const qx::OperationInfo& operation) { return operation.name == name; });
    return found == endpoint.operations.end() ? nullptr : &*found;
}

zam_platform::EndpointRule RuleOf(const Endpoint& endpoint,
                                  zam_platform::EndpointHandler& handler) {
    zam_platform::EndpointRule rule{.name = std::string(endpoint.name),
                                    .riid = endpoint.riid,
                                    .operations = {},
                                    .handler = &handler};
    // Certificates come with their keys, which are wiped wherever they pass.
    const bool isSecret = endpoint.name == qx::kClientCertsDownloaderEndpoint;
    for (const qx::OperationInfo& operation : endpoint.operations) {
        rule.operations.push_back({.name = std::string(operation.name),
                                   .requestBytes = operation.requestSize,
                                   .responseBytes = operation.responseSize,
                                   .requestArenaBytes = operation.requestArena,
                                   .responseArenaBytes = operation.responseArena,
                                   .isSecret = isSecret});
    }
    return rule;
}

}  // namespace zam_service
