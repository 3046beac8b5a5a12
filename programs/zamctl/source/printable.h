#pragma once

#include <string>
#include <string_view>

/// Texts of others, made fit for a terminal: what comes from a service or a file may hold escape
/// sequences, characters that turn the direction of writing, and bytes that are no UTF-8.

namespace zamctl {

/// In quotation marks, in one line. Quotation marks and backslashes stand behind a backslash, line
/// ends and tabs as `\n`, `\r` and `\t`, other bytes that must not reach a terminal as `\xNN`, and
/// such characters beyond them as `\u{NNNN}`.
std::string Quote(std::string_view text);

/// The same without the marks, with line feeds, tabs, quotation marks and backslashes as they are.
std::string Printable(std::string_view text);

/// As `Printable`, in one line: with line feeds and tabs as `\xNN`, as the default logger writes
/// them. For what stands in a line of a message, which none may make look like several.
std::string PrintableLine(std::string_view text);

/// JSON that means the same, with the characters that must not reach a terminal written as `\uNNNN`
/// in the texts that hold them. `json` is good JSON in UTF-8.
std::string PrintableJson(std::string json);

}  // namespace zamctl
