#include <fmt/format.h>

#include <iterator>
#include <ostream>
#include <vector>

#include "qel/utf.h"
#include "zuv/for_each.h"
#include "zuv/value.h"

namespace zuv {
namespace {

/// One-line text of a tree, made node by node.
class TextWriter {
public:
    explicit TextWriter(std::size_t maxBytes) : maxBytes_(maxBytes) {}

    /// Writes what stands before a node that is a child.
    void BeginChild(bool isFirst, const Level& level) {
        if (!isFirst) {
            Append(", ");
        }
        if (const auto* key = std::get_if<std::string>(&level)) {
            Quote(*key);
            Append(": ");
        }
    }

    void Node(const TValue& value) {
        if (value.IsValueless()) {
            Append("valueless");
        } else {
            value.Visit([this](const auto& held) { Put(held); });
        }
    }

    void Append(std::string_view text) { text_.append(text); }

    bool IsFull() const noexcept { return text_.size() > maxBytes_; }

    std::string Take() {
        if (IsFull()) {
            // Not within a character, which has at most three bytes behind its first.
            std::size_t end = maxBytes_;
            for (int bytes = 0; bytes < 3 && end > 0 && IsContinuation(text_[end]); ++bytes) {
                --end;
            }
            text_.resize(end);
            text_ += "...";
        }
        return std::move(text_);
    }

private:
    void Put(None) { Append("none"); }
    void Put(const Vector&) { Append("["); }
    void Put(const Map&) { Append("{"); }
    void Put(bool value) { Append(value ? "true" : "false"); }
    void Put(double value) { Format("double {}", value); }
    void Put(qor::types::Timestamp value) { Format("timestamp {}", value.Count()); }
    void Put(const std::string& value) { Quote(value); }
    void Put(const Blob& value) {
        Append("blob ");
        for (const unsigned char byte : value) {
            if (IsFull()) {
                return;
            }
            Format("{:02x}", byte);
        }
    }
    template <typename Integer>
    void Put(Integer value) {
        // Unary plus: the 8-bit kinds are numbers, not characters.
        Format("{} {}", KindName(TValue(value).Kind()), +value);
    }

    /// Control characters are escaped, and so is every byte beyond ASCII of a text that is no
    /// UTF-8: what reads this may be a terminal.
    void Quote(std::string_view text) {
        const bool isUtf8 = qel::IsUtf8(text.substr(0, maxBytes_ + 1)) || qel::IsUtf8(text);
        Append("\"");
        for (std::size_t at = 0; at < text.size() && !IsFull(); ++at) {
            const auto byte = static_cast<unsigned char>(text[at]);
            const bool isC1 = byte == 0xC2 && at + 1 < text.size() &&
                              static_cast<unsigned char>(text[at + 1]) < 0xA0;
            if (text[at] == '"' || text[at] == '\\') {
                text_ += '\\';
                text_ += text[at];
            } else if (byte < 0x20 || byte == 0x7F || (byte >= 0x80 && !isUtf8)) {
                Format("\\x{:02x}", byte);
            } else if (isC1) {
                Format("\\x{:02x}\\x{:02x}", byte, static_cast<unsigned char>(text[++at]));
            } else {
                text_ += text[at];
            }
        }
        if (!IsFull()) {
            Append("\"");
        }
    }

    static bool IsContinuation(char character) noexcept {
        return (static_cast<unsigned char>(character) & 0xC0U) == 0x80U;
    }

    template <typename... Arguments>
    void Format(fmt::format_string<const Arguments&...> format, const Arguments&... arguments) {
        fmt::format_to(std::back_inserter(text_), format, arguments...);
    }

    std::size_t maxBytes_;
    std::string text_;
};

}  // namespace

std::string ToText(const TValue& value, std::size_t maxBytes) {
    TextWriter writer(maxBytes);
    Path path;
    // Brackets of the containers that are open, and whether a child has been written in each.
    struct Open {
        std::string_view closing;
        bool hasChild = false;
    };
    std::vector<Open> open;
    const auto closeTo = [&](std::size_t depth) {
        for (; open.size() > depth; open.pop_back()) {
            writer.Append(open.back().closing);
        }
    };
    ForEach(
        value,
        [&](const Path& at, const TValue& node) {
            closeTo(at.size());
            if (!open.empty()) {
                writer.BeginChild(!open.back().hasChild, at.back());
                open.back().hasChild = true;
            }
            writer.Node(node);
            if (node.Is<Vector>()) {
                open.push_back({"]"});
            } else if (node.Is<Map>()) {
                open.push_back({"}"});
            }
            return writer.IsFull() ? for_each::Option::Stop : for_each::Option::Continue;
        },
        path);
    closeTo(0);
    return writer.Take();
}

namespace aux::impl {

std::ostream& operator<<(std::ostream& out, const zuv::TValue& value) {
    return out << ToText(value);
}

}  // namespace aux::impl
}  // namespace zuv
