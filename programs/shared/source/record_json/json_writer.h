#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zam_json {

/// Writes a JSON text, each member and element on a line of its own, indented by 4. Nothing of it
/// takes memory but the text itself, so that want of memory is an exception and no more; trees of
/// other libraries want memory to be destroyed. One thread at a time.
class JsonWriter {
public:
    JsonWriter& BeginObject() { return Begin('{', '}'); }
    JsonWriter& BeginArray() { return Begin('[', ']'); }
    /// Ends what was begun last.
    JsonWriter& End();

    /// The name of the member whose value comes next. Needs no escapes.
    JsonWriter& Name(std::string_view name);

    JsonWriter& Text(std::string_view utf8);
    JsonWriter& Number(std::int64_t number);
    JsonWriter& Number(std::uint64_t number);
    JsonWriter& Flag(bool flag);

    /// The text, newline included, when all that was begun has ended.
    std::string Take();

private:
    JsonWriter& Begin(char opening, char closing);
    void BeginValue();
    void NewLine();

    std::string text_;
    std::string closings_;  ///< of what has begun, outermost first
    bool isEmpty_ = true;   ///< nothing stands in what was begun last
    bool isNamed_ = false;
};

}  // namespace zam_json
