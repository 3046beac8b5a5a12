#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "zam_connector_testing/service_process.h"

namespace zam_connector::test {

/// The lines of the service's history of one kind, oldest first; of those that a kill has torn
/// none.
std::vector<nlohmann::json> HistoryOf(const testing::ServiceProcess& service,
                                      const std::string& kind);

/// The texts of the events in the history.
std::vector<std::string> EventsOf(const testing::ServiceProcess& service);

}  // namespace zam_connector::test
