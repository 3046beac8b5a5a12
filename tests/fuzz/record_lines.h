#pragma once

#include <string_view>
#include <vector>

#include "common/raw_zam_param.h"

namespace zam_fuzz {

/// The records of a text, one in a line: `INDEX:PAYLOAD:DATA PATH`. The words are in decimal and
/// wrap around; a missing one is 0. Data go up to the first space, the path from there to the end
/// of the line. A string gets its closing zero, and with an empty payload word strings and blobs
/// get the length of what they have. `xHEX PATH` gives the value block byte by byte instead. Every
/// text is a list.
std::vector<zam_connector::common::RawZamParam> ReadRecordLines(std::string_view text);

}  // namespace zam_fuzz
