#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <string_view>

#include "endpoints/endpoint_catalog.h"
#include "qx/messages.h"
#include "support/raw_socket.h"

namespace zam_service::testing {

/// How a wait for a notice ended.
struct Noticed {
    std::int32_t transport = 0;
    int status = 0;  ///< as a signed number
    std::uint32_t value = 0;
};

inline bool operator==(const Noticed& left, const Noticed& right) {
    return left.transport == right.transport && left.status == right.status &&
           left.value == right.value;
}

inline std::ostream& operator<<(std::ostream& out, const Noticed& noticed) {
    return out << "transport " << noticed.transport << ", status " << noticed.status << ", value "
               << noticed.value;
}

constexpr Noticed Value(std::uint32_t value) {
    return {0, 0, value};
}
constexpr Noticed NoticeStatus(std::int8_t status) {
    return {0, status, 0};
}

/// One connection of a client to a notifier, operation by operation: the test decides when it
/// reads, and when the connection ends.
class RawNotifier {
public:
    /// Connections with the same client number are one client's.
    RawNotifier(const std::string& path, std::string_view interface, std::uint32_t client)
        : socket_(zam_platform::testing::ConnectRaw(path)), riid_(EndpointOf(interface).riid) {
        zam_platform::testing::Bytes token(zam_platform::kTokenBytes, 0x77);
        std::memcpy(token.data(), &client, sizeof(client));
        socket_.Send(
            zam_platform::testing::FrameOf({.kind = zam_platform::FrameKind::Hello}, token));
    }

    /// Registers without reading the answer.
    void AskToRegister() { Send(0, qx::EmptyRequest{}); }

    /// The id, or an error below 0.
    std::int64_t TryRegister() {
        AskToRegister();
        const auto response = Read<qx::RegisterResponse>();
        return response.error == 0 ? std::int64_t{response.registrationId} : response.error;
    }

    std::uint32_t Register() {
        const std::int64_t id = TryRegister();
        EXPECT_GT(id, 0);
        return static_cast<std::uint32_t>(id);
    }

    /// Begins to wait.
    void Ask(std::uint32_t id) { Send(1, RequestOf(id)); }

    /// Reads how the wait ended.
    Noticed Read() {
        std::int32_t transport = 0;
        const auto response = Read<qx::NoticeResponse>(&transport);
        return {transport, static_cast<std::int8_t>(response.status), response.value};
    }

    Noticed Wait(std::uint32_t id) {
        Ask(id);
        return Read();
    }

    void Unregister(std::uint32_t id) {
        Send(2, RequestOf(id));
        Read<qx::EmptyResponse>();
    }

    /// Shows that the service has seen all that this connection sent before.
    void Sync() {
        socket_.Send(zam_platform::testing::LookupFrame("x"));
        socket_.ReadFrame();
    }

    zam_platform::testing::RawSocket& Socket() noexcept { return socket_; }

private:
    static qx::RegistrationRequest RequestOf(std::uint32_t id) {
        qx::RegistrationRequest request{};
        request.registrationId = id;
        return request;
    }

    template <typename Request>
    void Send(std::uint16_t operation, Request request) {
        request.header.riid = riid_;
        request.header.operation = operation;
        request.header.fixedSize = sizeof(request);
        zam_platform::testing::Bytes fixed(sizeof(request));
        std::memcpy(fixed.data(), &request, sizeof(request));
        socket_.Send(zam_platform::testing::FrameOf(
            {.kind = zam_platform::FrameKind::Call, .callNumber = 1}, fixed));
    }

    template <typename Response>
    Response Read(std::int32_t* transport = nullptr) {
        const zam_platform::testing::Frame frame = socket_.ReadFrame();
        Response response{};
        if (!frame.fixed.empty()) {
            std::memcpy(&response, frame.fixed.data(),
                        std::min(frame.fixed.size(), sizeof(response)));
        }
        if (transport != nullptr) {
            *transport = frame.prelude.status;
        } else {
            EXPECT_EQ(frame.prelude.status, 0);
        }
        return response;
    }

    zam_platform::testing::RawSocket socket_;
    std::uint16_t riid_;
};

}  // namespace zam_service::testing
