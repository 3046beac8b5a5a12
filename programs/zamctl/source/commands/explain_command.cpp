#include "commands/explain_command.h"

#include <fmt/format.h>

#include <optional>

#include "codes.h"
#include "command_set.h"
#include "values.h"

namespace zamctl {
namespace {

std::vector<int> ParseCodes(const std::vector<std::string>& texts) {
    std::vector<int> codes;
    for (const std::string& text : texts) {
        const std::optional<int> code = ParseCode(text);
        if (!code) {
            throw UsageError(
                fmt::format("'{}' is no result code; allowed are 0x0 to 0xFFFFFFFF and -2147483648 "
                            "to 4294967295",
                            WithoutCredentials(text)));
        }
        codes.push_back(*code);
    }
    return codes;
}

}  // namespace

void ExplainCommand::Declare(Options& options) {
    options.Values(
        "CODE", "CODE", [this](const std::string& text) { codes_.push_back(text); },
        "0x... or decimal, signed or not");
    options.Flag("-l,--list", all_, "Print every code that has a text");
}

void ExplainCommand::Run(Context& context) {
    if (all_ == !codes_.empty()) {
        throw UsageError("give either result codes or --list");
    }
    context.Begin();
    std::string lines;
    FieldList list;
    for (const int code : all_ ? KnownCodes() : ParseCodes(codes_)) {
        const std::uint32_t facility = Facility(code);
        lines += fmt::format("{}{} (facility {}, {})", lines.empty() ? "" : "\n",
                             DescribeCode(code), facility, FacilityName(facility));
        list.push_back(Fields{{"code", code},
                              {"hex", CodeHex(code)},
                              {"text", zam_connector::ResultCodeMessage(code)},
                              {"failure", zam_connector::IsFailure(code)},
                              {"facility", facility},
                              {"facility_name", FacilityName(facility)}});
    }
    context.output.Result(lines, {{"codes", list}});
}

void DeclareExplain(CommandSet& commands) {
    commands.Add("explain", "Print what result codes mean", std::make_shared<ExplainCommand>());
}

}  // namespace zamctl
