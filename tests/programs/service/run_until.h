#pragma once

#include <asio/io_context.hpp>
#include <functional>

namespace zam_service::testing {

/// Runs the loop until `condition` holds; false when it does not within `zam_test::kBound`.
bool RunUntil(asio::io_context& loop, const std::function<bool()>& condition);

}  // namespace zam_service::testing
