#include "commands/explain_command.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <optional>

#include "codes.h"
#include "values.h"

namespace zamctl {

ExplainCommand::ExplainCommand(const std::vector<std::string>& codes) {
    for (const std::string& text : codes) {
        const std::optional<int> code = ParseCode(text);
        if (!code) {
            throw UsageError(
                fmt::format("'{}' is no result code; allowed are 0x0 to 0xFFFFFFFF and -2147483648 "
                            "to 4294967295",
                            WithoutCredentials(text)));
        }
        codes_.push_back(*code);
    }
}

ExplainCommand ExplainCommand::All() {
    ExplainCommand command({});
    command.codes_ = KnownCodes();
    return command;
}

void ExplainCommand::Run(Context& context) {
    std::string lines;
    Json list = Json::array();
    for (const int code : codes_) {
        const std::uint32_t facility = Facility(code);
        lines += fmt::format("{}{} (facility {}, {})", lines.empty() ? "" : "\n",
                             DescribeCode(code), facility, FacilityName(facility));
        list.push_back({{"code", code},
                        {"hex", CodeHex(code)},
                        {"text", zam_connector::ResultCodeMessage(code)},
                        {"failure", zam_connector::IsFailure(code)},
                        {"facility", facility},
                        {"facility_name", FacilityName(facility)}});
    }
    context.output.Result(lines, {{"codes", list}});
}

}  // namespace zamctl
