#include "json_text/place_tracker.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace zam_json {
namespace {

using nlohmann::json;

/// The parser's number of "a number is too large".
constexpr int kNumberOverflow = 406;

/// Keeps what tells the fault; the place is told by ourselves, and what was read last may hold any
/// bytes.
std::string Shorten(std::string_view what) {
    const std::size_t place = what.find("column ");
    const std::size_t start =
        place == std::string_view::npos ? what.find("] ") + 2 : what.find(": ", place) + 2;
    std::string_view message = what.substr(start);
    message = message.substr(0, message.find("; last read"));
    return std::string(message);
}

}  // namespace

bool PlaceTracker::Walk() {
    // The parser would skip it, and our places would be off.
    if (WithoutByteOrderMark(text_).size() != text_.size()) {
        Fail(0, "begins with a second byte order mark");
        return false;
    }
    // The parser takes a zero byte for the end of the text.
    const std::size_t end = std::min(text_.find('\0'), text_.size());
    const std::string_view readable = text_.substr(0, end);
    const bool isWhole = json::sax_parse(readable.begin(), readable.end(), this,
                                         json::input_format_t::json, true, true);
    if (end < text_.size() && (isWhole || (fault && fault->offset >= end))) {
        Fail(end, "a byte 00 stands in the text");
        return false;
    }
    return isWhole;
}

bool PlaceTracker::number_float(number_float_t value, const string_t& token) {
    // A whole number beyond 64 bits comes as a float; only its token tells.
    const bool isDiscarded = wideIntegers_ == WideIntegers::Discarded && IsWholeNumber(token);
    return Scalar(isDiscarded ? json(json::value_t::discarded) : json(value));
}

bool PlaceTracker::key(string_t& value) {
    TakeToken(':');
    pointer_.resize(levels_.back().pointerBytes);
    pointer_ += PointerStep(value);
    return OnKey(value);
}

bool PlaceTracker::parse_error(std::size_t position, const std::string& /*lastToken*/,
                               const json::exception& error) {
    const std::string_view what = error.what();
    const bool isOverflow = error.id == kNumberOverflow;
    // The parser's complaint is about a whole token, the scanner's about its last byte.
    const bool aboutToken = what.find(" - unexpected ") != std::string_view::npos || isOverflow;
    const std::size_t offset = aboutToken ? TokenStart() : std::max<std::size_t>(position, 1) - 1;
    if (!levels_.empty() && expected_ != ':') {
        // The parser complains before the value is placed, so the pointer is still that of the one
        // before.
        Level& level = levels_.back();
        pointer_.resize(level.pointerBytes);
        if (level.isArray) {
            pointer_ += fmt::format("/{}", level.index);
        }
    }
    if (isOverflow) {
        FailAsTooLarge(offset);
    } else {
        Fail(std::min(offset, text_.size()), Shorten(what));
    }
    return false;
}

void PlaceTracker::Fail(std::size_t offset, std::string message) {
    fault = JsonFault{.offset = offset, .pointer = pointer_, .message = std::move(message)};
}

void PlaceTracker::FailAsTooLarge(std::size_t offset) {
    const std::string shown = ShownTokenAt(text_, offset);
    if (IsWholeNumber(TokenAt(text_, offset))) {
        Fail(offset, fmt::format("is {}, allowed is a whole number of at most 64 bits", shown));
    } else {
        Fail(offset, fmt::format("number overflow parsing '{}'", shown));
    }
}

std::size_t PlaceTracker::TokenStart() const {
    std::size_t offset = SkipBlank(text_, cursor_);
    if (expected_ != '\0' && offset < text_.size() && text_[offset] == expected_) {
        offset = SkipBlank(text_, offset + 1);
    }
    return offset;
}

void PlaceTracker::TakeToken(char separatorBehind) {
    token_ = TokenStart();
    cursor_ = token_ + TokenAt(text_, token_).size();
    expected_ = separatorBehind;
}

void PlaceTracker::PlaceValue(char separatorBehind) {
    TakeToken(separatorBehind);
    if (!levels_.empty() && levels_.back().isArray) {
        Level& level = levels_.back();
        pointer_.resize(level.pointerBytes);
        pointer_ += fmt::format("/{}", level.index++);
    }
}

bool PlaceTracker::Scalar(json value) {
    PlaceValue(',');
    return OnValue(std::move(value));
}

bool PlaceTracker::Open(bool isArray) {
    PlaceValue('\0');
    // The parser has no bound of its own, and who walks the tree recurses.
    if (levels_.size() == maxDepth_) {
        Fail(token_, TooDeepText(maxDepth_));
        return false;
    }
    levels_.push_back({.isArray = isArray, .pointerBytes = pointer_.size()});
    return OnValue(isArray ? json::array() : json::object());
}

bool PlaceTracker::CloseLevel() {
    expected_ = '\0';
    // A comma before the bracket would have been refused.
    TakeToken(',');
    pointer_.resize(levels_.back().pointerBytes);
    levels_.pop_back();
    OnEnd();
    return true;
}

}  // namespace zam_json
