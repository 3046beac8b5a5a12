#include "parser_check.h"

#include <atomic>
#include <string_view>
#include <vector>

#include "common/raw_zam_param.h"
#include "tree_json/tree_json.h"
#include "zor/logger.h"

namespace zam_fuzz {
namespace {

class CountingLogger final : public zor::logger::ZORLogger {
public:
    CountingLogger() { InstallRootLogger(this); }
    ~CountingLogger() override { InstallRootLogger(nullptr); }

    bool IsEnabled(int /*level*/) const override { return true; }

    void LogImpl(int level, const char* /*file*/, int /*line*/, const char* /*function*/,
                 std::string_view text) override {
        Check(!text.empty(), "a log record has a text");
        failures_ += level == zor::logger::kLevelError ? 1 : 0;
    }

    std::size_t Failures() const { return failures_; }

private:
    std::atomic<std::size_t> failures_{0};
};

}  // namespace

std::optional<zuv::TValue> ReadTree(const uint8_t* data, std::size_t size) {
    try {
        return zam_connector::tree_json::Read({reinterpret_cast<const char*>(data), size});
    } catch (const zam_connector::tree_json::JsonError&) {
        return std::nullopt;
    }
}

std::size_t LoggedFailures() {
    static const CountingLogger logger;
    return logger.Failures();
}

void CheckTravels(const zuv::TValue& tree) {
    std::vector<zam_connector::common::RawZamParam> list;
    Check(zam_connector::common::Serialize<zuv::Path>(zuv::Root, tree, list).first == 0,
          "a tree that was converted can be flattened");
    zuv::Path root;
    zuv::TValue rebuilt;
    Check(zam_connector::common::Deserialize(list, root, rebuilt).first == 0,
          "a tree that was flattened can be rebuilt");
    Check(rebuilt.IsIdenticalTo(tree), "a tree that was flattened is rebuilt identically");
}

}  // namespace zam_fuzz
