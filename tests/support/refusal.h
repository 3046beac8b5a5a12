#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "support/raw_socket.h"
#include "support/test_call.h"
#include "zam_connector_testing/recording_logger.h"
#include "zor/logger.h"

namespace zam_platform::testing {

/// What becomes of a client of this user that breaks a rule: behind a refusal, and nothing else,
/// its connection ends, and the one record of the log says why. Forgets the record.
inline void ExpectRefused(const RawSocket& socket, zam_connector::testing::RecordingLogger& logger,
                          std::int32_t status, const std::string& text) {
    SCOPED_TRACE(text);
    EXPECT_EQ(ToHex(socket.ReadToEnd()), ToHex(StatusFrame(FrameKind::Refusal, 0, status)));
    const auto records = logger.Records();
    logger.Clear();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].text, "client of user " + std::to_string(::geteuid()) + ": " + text +
                                   ": connection closed");
    EXPECT_EQ(records[0].level, zor::logger::kLevelError);
    EXPECT_EQ(records[0].file, "server_connection");
    EXPECT_EQ(records[0].function, "Refuse");
    EXPECT_GT(records[0].line, 0);
}

}  // namespace zam_platform::testing
