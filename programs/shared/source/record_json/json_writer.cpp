#include "record_json/json_writer.h"

#include <nlohmann/json.hpp>
#include <utility>

namespace zam_json {

JsonWriter& JsonWriter::End() {
    const char closing = closings_.back();
    closings_.pop_back();
    if (!std::exchange(isEmpty_, false)) {
        NewLine();
    }
    text_ += closing;
    return *this;
}

JsonWriter& JsonWriter::Name(std::string_view name) {
    BeginValue();
    text_ += '"';
    text_ += name;
    text_ += "\": ";
    isNamed_ = true;
    return *this;
}

JsonWriter& JsonWriter::Text(std::string_view utf8) {
    BeginValue();
    text_ += nlohmann::json(utf8).dump();
    return *this;
}

JsonWriter& JsonWriter::Number(std::int64_t number) {
    BeginValue();
    text_ += std::to_string(number);
    return *this;
}

JsonWriter& JsonWriter::Number(std::uint64_t number) {
    BeginValue();
    text_ += std::to_string(number);
    return *this;
}

JsonWriter& JsonWriter::Flag(bool flag) {
    BeginValue();
    text_ += flag ? "true" : "false";
    return *this;
}

std::string JsonWriter::Take() {
    text_ += '\n';
    return std::move(text_);
}

JsonWriter& JsonWriter::Begin(char opening, char closing) {
    BeginValue();
    text_ += opening;
    closings_ += closing;
    isEmpty_ = true;
    return *this;
}

void JsonWriter::BeginValue() {
    if (std::exchange(isNamed_, false) || closings_.empty()) {
        return;
    }
    if (!std::exchange(isEmpty_, false)) {
        text_ += ',';
    }
    NewLine();
}

void JsonWriter::NewLine() {
    constexpr std::size_t kIndent = 4;
    text_ += '\n';
    text_.append(kIndent * closings_.size(), ' ');
}

}  // namespace zam_json
