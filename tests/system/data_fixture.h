#pragma once

#include <cstddef>
#include <cstdlib>
#include <string>

#include "service_fixture.h"
#include "tree_json/tree_json.h"

namespace zam_connector::test {

/// Whether tests are to run at the sizes and counts that take minutes.
inline bool IsFullSize() {
    const char* const wanted = std::getenv("ZAM_FULL_SIZE");
    return wanted != nullptr && std::string(wanted) == "1";
}

/// A `connection.json` whose link gets up and down at once.
inline constexpr char kQuickLink[] =
    R"({"start": [{"state": "connecting"}, {"state": "connected"}],
        "stop": [{"state": "stopping"}, {"state": "stopped"}]})";

/// Data both ways, through the library, with the service in another process.
class ServiceDataTest : public ServiceTest {
protected:
    using ServiceTest::ServiceTest;

    IZamDataProvider& Provider() { return connection_->DataProvider(); }
    IProductDataHolder& Holder() { return connection_->ProductDataHolder(); }

    /// Starts the service so that it logs everything.
    void StartLoud() {
        ::setenv("ZAM_LOG_LEVEL", "2", 1);
        StartService();
        ::unsetenv("ZAM_LOG_LEVEL");
    }

    bool ServiceLogged(const std::string& text) const {
        return service_.Log().find(text) != std::string::npos;
    }

    /// What stands in the folder of uploads.
    zuv::TValue Upload(const std::string& name) const {
        return tree_json::Read(service_.ReadData("uploads/" + name + ".json"), name);
    }

    /// A map of so many maps of a number and a text.
    static zuv::TValue TreeOf(long entries) {
        zuv::Map map;
        for (long number = 0; number < entries; ++number) {
            map["key" + std::to_string(number)] = zuv::Map{{"n", number}, {"t", "text"}};
        }
        return map;
    }
};

}  // namespace zam_connector::test
