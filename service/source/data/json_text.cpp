#include "data/json_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

namespace zam_service {
namespace {

using nlohmann::json;

bool IsSpace(char character) {
    return character == ' ' || character == '\t' || character == '\r' || character == '\n';
}

/// Behind white space and comments that begin at `offset`.
std::size_t SkipBlank(std::string_view text, std::size_t offset) {
    while (offset < text.size()) {
        if (IsSpace(text[offset])) {
            ++offset;
        } else if (text.substr(offset, 2) == "//") {
            offset = std::min(text.find('\n', offset), text.size());
        } else if (text.substr(offset, 2) == "/*") {
            const std::size_t end = text.find("*/", offset + 2);
            offset = end == std::string_view::npos ? text.size() : end + 2;
        } else {
            break;
        }
    }
    return offset;
}

std::size_t CountDigits(std::string_view text, std::size_t offset) {
    return std::min(text.find_first_not_of("0123456789", offset), text.size()) - offset;
}

std::size_t NumberBytes(std::string_view text) {
    std::size_t end = text.front() == '-' ? 1 : 0;
    // A zero in front stands alone: what follows "0" in "01" is the next token.
    end += text.substr(end, 1) == "0" ? 1 : CountDigits(text, end);
    if (text.substr(end, 1) == ".") {
        end += 1 + CountDigits(text, end + 1);
    }
    if (text.substr(end, 1) == "e" || text.substr(end, 1) == "E") {
        const bool hasSign = text.substr(end + 1, 1) == "+" || text.substr(end + 1, 1) == "-";
        end += hasSign ? 2 : 1;
        end += CountDigits(text, end);
    }
    return end;
}

std::size_t StringBytes(std::string_view text) {
    std::size_t end = 1;
    while (end < text.size() && text[end] != '"') {
        end += text[end] == '\\' ? 2U : 1U;
    }
    return end + 1;
}

/// Length of the token that `text` begins with; perhaps beyond the end of a text that is cut off.
std::size_t TokenBytes(std::string_view text) {
    constexpr std::string_view kFalseWord = "false";
    if (text.empty()) {
        return 0;
    }
    switch (text.front()) {
        case '"':
            return StringBytes(text);
        case 't':
        case 'n':
            return kFalseWord.size() - 1;
        case 'f':
            return kFalseWord.size();
        case '{':
        case '}':
        case '[':
        case ']':
            return 1;
        default:
            return NumberBytes(text);
    }
}

/// Follows the parser through the text: at each event it knows the pointer of the part that the
/// event is about and the offset of its token. The parser has checked a token before it reports
/// it, so a token's end is found without checking it again.
class PlaceTracker : public nlohmann::json_sax<json> {
public:
    explicit PlaceTracker(std::string_view text) : text_(text) {}

    bool null() final { return Scalar(nullptr); }
    bool boolean(bool value) final { return Scalar(value); }
    bool number_integer(number_integer_t value) final { return Scalar(value); }
    bool number_unsigned(number_unsigned_t value) final { return Scalar(value); }
    bool number_float(number_float_t value, const string_t& /*token*/) final {
        return Scalar(value);
    }
    bool string(string_t& value) final { return Scalar(std::move(value)); }
    bool binary(binary_t& /*value*/) final { return false; }  // JSON text has none
    bool start_object(std::size_t /*elements*/) final { return Open(false); }
    bool end_object() final { return CloseLevel(); }
    bool start_array(std::size_t /*elements*/) final { return Open(true); }
    bool end_array() final { return CloseLevel(); }

    bool key(string_t& value) final {
        TakeToken(':');
        pointer_.resize(levels_.back().pointerBytes);
        pointer_ += PointerStep(value);
        return OnKey(value);
    }

    bool parse_error(std::size_t position, const std::string& /*lastToken*/,
                     const json::exception& error) final {
        const std::string_view what = error.what();
        // The parser's complaint is about a whole token, the scanner's about its last byte.
        const bool aboutToken =
            what.find(" - unexpected ") != std::string_view::npos || error.id == 406;
        const std::size_t offset =
            aboutToken ? TokenStart() : std::max<std::size_t>(position, 1) - 1;
        if (!levels_.empty() && expected_ != ':') {
            Level& level = levels_.back();
            pointer_.resize(level.pointerBytes);
            if (level.isArray) {
                pointer_ += fmt::format("/{}", level.index);
            }
        }
        Fail(std::min(offset, text_.size()), Shorten(what));
        return false;
    }

    std::optional<JsonFault> fault;

protected:
    /// A scalar, or an array or object that is still empty. False ends the walk.
    virtual bool OnValue(json value) = 0;
    virtual bool OnKey(std::string& key) = 0;
    virtual void OnEnd() = 0;

    const std::string& Pointer() const noexcept { return pointer_; }
    std::size_t TokenOffset() const noexcept { return token_; }
    void Fail(std::size_t offset, std::string message) {
        fault = JsonFault{.offset = offset, .pointer = pointer_, .message = std::move(message)};
    }

private:
    struct Level {
        bool isArray;
        std::size_t pointerBytes;  ///< of the pointer of the array or object itself
        std::size_t index = 0;     ///< of an array's next element
    };

    /// Keeps what tells the fault; the place is told by ourselves, and what was read last may hold
    /// any bytes.
    static std::string Shorten(std::string_view what) {
        const std::size_t place = what.find("column ");
        const std::size_t start =
            place == std::string_view::npos ? what.find("] ") + 2 : what.find(": ", place) + 2;
        std::string_view message = what.substr(start);
        message = message.substr(0, message.find("; last read"));
        return std::string(message);
    }

    std::size_t TokenStart() const {
        std::size_t offset = SkipBlank(text_, cursor_);
        if (expected_ != '\0' && offset < text_.size() && text_[offset] == expected_) {
            offset = SkipBlank(text_, offset + 1);
        }
        return offset;
    }

    void TakeToken(char separatorBehind) {
        token_ = TokenStart();
        cursor_ = token_ + TokenAt(text_, token_).size();
        expected_ = separatorBehind;
    }

    void PlaceValue(char separatorBehind) {
        TakeToken(separatorBehind);
        if (!levels_.empty() && levels_.back().isArray) {
            Level& level = levels_.back();
            pointer_.resize(level.pointerBytes);
            pointer_ += fmt::format("/{}", level.index++);
        }
    }

    bool Scalar(json value) {
        PlaceValue(',');
        return OnValue(std::move(value));
    }

    bool Open(bool isArray) {
        PlaceValue('\0');
        if (levels_.size() == kMaxJsonDepth) {
            Fail(token_, fmt::format("is nested {} deep, at most {} are allowed",
                                     levels_.size() + 1, kMaxJsonDepth));
            return false;
        }
        levels_.push_back({.isArray = isArray, .pointerBytes = pointer_.size()});
        return OnValue(isArray ? json::array() : json::object());
    }

    bool CloseLevel() {
        expected_ = '\0';
        // A comma before the bracket would have been refused.
        TakeToken(',');
        pointer_.resize(levels_.back().pointerBytes);
        levels_.pop_back();
        OnEnd();
        return true;
    }

    std::string_view text_;
    std::size_t cursor_ = 0;  ///< behind the last token
    std::size_t token_ = 0;
    char expected_ = '\0';  ///< the separator that may stand before the next token
    std::string pointer_;
    std::vector<Level> levels_;
};

class TreeBuilder final : public PlaceTracker {
public:
    using PlaceTracker::PlaceTracker;

    json tree;

private:
    bool OnValue(json value) override {
        const bool isContainer = value.is_structured();
        json* place = &tree;
        if (!open_.empty()) {
            json& parent = *open_.back();
            if (parent.is_array()) {
                parent.push_back(nullptr);
                place = &parent.back();
            } else {
                place = &parent[key_];
            }
        }
        *place = std::move(value);
        if (isContainer) {
            open_.push_back(place);
        }
        return true;
    }

    bool OnKey(std::string& key) override {
        if (open_.back()->contains(key)) {
            Fail(TokenOffset(), "the key stands twice in the same object");
            return false;
        }
        key_ = std::move(key);
        return true;
    }

    // An array's elements move when it grows, but only while none of them is open.
    void OnEnd() override { open_.pop_back(); }

    std::vector<json*> open_;
    std::string key_;
};

class PartFinder final : public PlaceTracker {
public:
    PartFinder(std::string_view text, std::string_view pointer, JsonPart part)
        : PlaceTracker(text), wanted_(pointer), part_(part) {}

    std::optional<std::size_t> found;

private:
    bool OnValue(json /*value*/) override { return part_ != JsonPart::Value || !Matches(); }
    bool OnKey(std::string& /*key*/) override { return part_ != JsonPart::Key || !Matches(); }
    void OnEnd() override {}

    bool Matches() {
        if (Pointer() != wanted_) {
            return false;
        }
        found = TokenOffset();
        return true;
    }

    std::string_view wanted_;
    JsonPart part_;
};

bool Walk(std::string_view text, PlaceTracker& tracker) {
    return json::sax_parse(text.begin(), text.end(), &tracker, json::input_format_t::json, true,
                           true);
}

}  // namespace

JsonOutcome::JsonOutcome() = default;
JsonOutcome::JsonOutcome(JsonOutcome&&) noexcept = default;
JsonOutcome::~JsonOutcome() = default;

TextPosition PositionAt(std::string_view text, std::size_t offset) noexcept {
    TextPosition position;
    for (const char character : text.substr(0, offset)) {
        if (character == '\n') {
            ++position.line;
            position.column = 1;
        } else if ((static_cast<unsigned char>(character) & 0xC0U) != 0x80U) {
            ++position.column;
        }
    }
    return position;
}

std::string PointerStep(std::string_view key) {
    std::string step = "/";
    for (const char character : key) {
        if (character == '~') {
            step += "~0";
        } else if (character == '/') {
            step += "~1";
        } else {
            step += character;
        }
    }
    return step;
}

JsonOutcome ParseJson(std::string_view text) {
    TreeBuilder builder(text);
    JsonOutcome outcome;
    if (Walk(text, builder)) {
        outcome.tree = std::make_unique<json>(std::move(builder.tree));
    } else {
        outcome.fault = std::move(builder.fault);
    }
    return outcome;
}

std::optional<std::size_t> FindInJson(std::string_view text, std::string_view pointer,
                                      JsonPart part) {
    PartFinder finder(text, pointer, part);
    Walk(text, finder);
    return finder.found;
}

std::string_view TokenAt(std::string_view text, std::size_t offset) noexcept {
    const std::string_view rest = text.substr(std::min(offset, text.size()));
    return rest.substr(0, std::min(TokenBytes(rest), rest.size()));
}

}  // namespace zam_service
