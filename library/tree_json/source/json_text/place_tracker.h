#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "json_text/json_text.h"

namespace zam_json {

/// Follows the parser through a text: at each event it knows the pointer of the part that the event
/// is about and the offset of its token. The parser has checked a token before it reports it, so a
/// token's end is found without checking it again. One thread at a time.
class PlaceTracker : public nlohmann::json_sax<nlohmann::json> {
public:
    /// The text must outlive the tracker.
    PlaceTracker(std::string_view text, std::size_t maxDepth, WideIntegers wideIntegers)
        : text_(text), maxDepth_(maxDepth), wideIntegers_(wideIntegers) {}

    /// Parses the text to its end, to the first fault, or until a handler returns false; true in
    /// the first case only.
    bool Walk();

    std::optional<JsonFault> fault;

    bool null() final { return Scalar(nullptr); }
    bool boolean(bool value) final { return Scalar(value); }
    bool number_integer(number_integer_t value) final { return Scalar(value); }
    bool number_unsigned(number_unsigned_t value) final { return Scalar(value); }
    bool number_float(number_float_t value, const string_t& token) final;
    bool string(string_t& value) final { return Scalar(std::move(value)); }
    bool binary(binary_t& /*value*/) final { return false; }  // JSON text has none
    bool start_object(std::size_t /*elements*/) final { return Open(false); }
    bool end_object() final { return CloseLevel(); }
    bool start_array(std::size_t /*elements*/) final { return Open(true); }
    bool end_array() final { return CloseLevel(); }
    bool key(string_t& value) final;
    bool parse_error(std::size_t position, const std::string& lastToken,
                     const nlohmann::json::exception& error) final;

protected:
    /// A scalar, or an array or object that is still empty. False ends the walk.
    virtual bool OnValue(nlohmann::json value) = 0;
    virtual bool OnKey(std::string& key) = 0;
    virtual void OnEnd() = 0;

    const std::string& Pointer() const noexcept { return pointer_; }
    std::size_t TokenOffset() const noexcept { return token_; }
    void Fail(std::size_t offset, std::string message);

private:
    struct Level {
        bool isArray;
        std::size_t pointerBytes;  ///< of the pointer of the array or object itself
        std::size_t index = 0;     ///< of an array's next element
    };

    std::size_t TokenStart() const;
    void TakeToken(char separatorBehind);
    void PlaceValue(char separatorBehind);
    bool Scalar(nlohmann::json value);
    bool Open(bool isArray);
    bool CloseLevel();
    void FailAsTooLarge(std::size_t offset);

    std::string_view text_;
    std::size_t maxDepth_;
    WideIntegers wideIntegers_;
    std::size_t cursor_ = 0;  ///< behind the last token
    std::size_t token_ = 0;
    char expected_ = '\0';  ///< the separator that may stand before the next token
    std::string pointer_;
    std::vector<Level> levels_;
};

}  // namespace zam_json
