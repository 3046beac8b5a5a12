// A client built apart from the library: calls the service, and catches what the library throws.

#include <cstdio>
#include <memory>
#include <string>

#include "qel/exception.h"
#include "tree_json/tree_json.h"
#include "zam_connector/zam_connector.h"
#include "zor/logger.h"
#include "zuv/zuv.h"

namespace {

int failures = 0;

void Check(bool good, const char* what) {
    if (!good) {
        std::fprintf(stderr, "client: %s\n", what);
        ++failures;
    }
}

void CallTheService(zam_connector::IZamConnector& connector) {
    std::shared_ptr<zam_connector::IZamConnController> controller;
    Check(connector.GetZamController(controller) == zam_connector::kNoError, "no controller");
    auto state = zam_connector::ZamConnectorState::Refused;
    Check(controller && controller->GetState(state) == zam_connector::kNoError &&
              state == zam_connector::ZamConnectorState::Stopped,
          "the state is not 'stopped'");
}

/// Both handlers need the exception's type information to be one on both sides.
void CatchFromTheLibrary(zam_connector::IZamConnector& connector) {
    std::shared_ptr<zam_connector::zam_locale::IZamLocationInfo> locations;
    Check(connector.GetZamLocationInfo(locations) == zam_connector::kNoError, "no locations");
    if (!locations) {
        return;
    }
    Check(locations->RemoveLocationInfo(1033) == 9, "'en-US' without its location is not 'en'");
    int code = 0;
    try {
        locations->HasLocationInfo(0x10000);
    } catch (const qel::ResultCodeException& exception) {
        code = exception.Code();
    } catch (...) {
        code = 1;
    }
    Check(code == qel::kInvalidArgument, "no ResultCodeException came out of the library");
    bool caughtAsBase = false;
    try {
        locations->RemoveLocationInfo(0);
    } catch (const qel::Exception&) {
        caughtAsBase = true;
    }
    Check(caughtAsBase, "no qel::Exception came out of the library");
}

void UseTrees() {
    const zuv::TValue tree = zuv::Map{{"name", "value"}, {"list", zuv::MakeVector(1, 2)}};
    const std::string text = zam_connector::tree_json::Write(tree);
    Check(zam_connector::tree_json::Read(text).IsIdenticalTo(tree), "a tree changed on its way");
    bool caught = false;
    try {
        zam_connector::tree_json::Read("{");
    } catch (const zam_connector::tree_json::JsonError& error) {
        caught = error.Line() == 1;
    }
    Check(caught, "no JsonError came out of the library");
    caught = false;
    try {
        static_cast<void>(tree.Find("name")->Get<int>());
    } catch (const zuv::BadKind&) {
        caught = true;
    }
    Check(caught, "no zuv::BadKind came out of the library");
    Check(zam_connector::zam_converter::ConvertZamHashToHex(26) == "1a", "a wrong hash text");
}

}  // namespace

int main() {
    UseTrees();
    Check(zam_connector::ResultCodeMessage(zam_connector::kUnspecifiedError) == "Unspecified error",
          "a wrong text of a code");
    Check(zor::logger::ZORLogger::RootLogger().IsEnabled(zor::logger::kLevelError), "no logger");
    std::shared_ptr<zam_connector::IZamConnector> connector;
    Check(zam_connector::CreateZamConnector(connector, {"client"}) == zam_connector::kNoError,
          "no connector");
    if (connector) {
        CallTheService(*connector);
        CatchFromTheLibrary(*connector);
    }
    return failures == 0 ? 0 : 1;
}
