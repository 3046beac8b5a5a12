#pragma once

#include <string>
#include <utility>
#include <vector>

#include "common/raw_zam_param.h"
#include "zuv/path.h"
#include "zuv/value.h"

namespace zam_test {

/// `Serialize` and `Deserialize` written down step by step: every path is converted as a whole and
/// nothing is shared with the library's way of doing it. Slow, and what the fast ones are held
/// against.
std::pair<int, std::string> LiteralSerialize(const zuv::Path& root, const zuv::TValue& tree,
                                             std::vector<zam_connector::common::RawZamParam>& out);
std::pair<int, std::string> LiteralDeserialize(
    const std::vector<zam_connector::common::RawZamParam>& list, zuv::Path& root,
    zuv::TValue& tree);

/// A value block: index word, payload word, data.
std::vector<unsigned char> Block(unsigned long index, unsigned long payload,
                                 const std::string& data = {});

/// A value that an assignment which failed half way has left without any alternative.
zuv::TValue ValuelessValue();

/// Takes the alternative from a level for its own lifetime. The level must not be copied, changed
/// or destroyed meanwhile: the standard library at hand never lets a level come into this state, so
/// it does not expect it either.
class ValuelessLevel {
public:
    explicit ValuelessLevel(zuv::Level& level);
    ValuelessLevel(const ValuelessLevel&) = delete;
    ValuelessLevel& operator=(const ValuelessLevel&) = delete;
    ~ValuelessLevel();

private:
    unsigned char* index_;
    unsigned char before_;
};

}  // namespace zam_test
