#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include "notices/notice_board.h"

namespace zam_service::testing {

/// What a call that waits was told.
struct Told {
    std::optional<std::uint32_t> value;
    std::optional<WaitEnd> end;
    NoticeWaiter::OnDelivery onDelivery;  ///< of the value
    bool isOver = false;                  ///< the board has let go of the call
};

/// A call that waits, without a connection.
class FakeWaiter final : public NoticeWaiter {
public:
    explicit FakeWaiter(std::shared_ptr<Told> told) : told_(std::move(told)) {}
    FakeWaiter(const FakeWaiter&) = delete;
    FakeWaiter& operator=(const FakeWaiter&) = delete;
    ~FakeWaiter() override { told_->isOver = true; }

    void Give(std::uint32_t value, OnDelivery onDelivery) override {
        told_->value = value;
        told_->onDelivery = std::move(onDelivery);
    }
    void End(WaitEnd reason) override { told_->end = reason; }

private:
    std::shared_ptr<Told> told_;
};

/// A client as the server tells it apart.
inline zam_platform::ClientIdentity ClientOf(unsigned char tokenByte, uid_t user = 1000) {
    zam_platform::ClientIdentity client;
    client.token.fill(tokenByte);
    client.user = user;
    return client;
}

}  // namespace zam_service::testing
