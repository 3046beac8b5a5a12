#include "certs/cert_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "certs/wipe.h"
#include "json_text/json_document.h"

namespace zam_service {

using zam_json::JsonDocument;
using zam_json::JsonError;
using zam_json::JsonValue;

namespace {

constexpr char kName[] = "name";
constexpr char kCertificate[] = "certificate";
constexpr char kCertificateFile[] = "certificate_file";
constexpr char kPrivateKey[] = "private_key";
constexpr char kPrivateKeyEnd[] = "private_key\"";  ///< of the literal
constexpr char kPrivateKeyFile[] = "private_key_file";

/// Stands in front of every private key that is PEM.
constexpr char kKeyMark[] = "PRIVATE KEY";

/// The text of a member that may hold a secret: unlike `JsonValue::Text`, shows nothing of it.
std::string SecretText(const JsonValue& value) {
    if (!value.IsText()) {
        value.Fail("is no text");
    }
    return value.Text();
}

std::string FileName(const JsonValue& value) {
    std::string name = SecretText(value);
    if (name.empty() || name.front() == '.' || name.size() > 255 ||
        name.find_first_of(std::string_view("/\n\0", 3)) != std::string::npos) {
        value.Fail("is no name of a file beside this one");
    }
    return name;
}

/// The text itself, or that of the file named; empty when there is neither.
std::optional<std::string> ReadPem(const JsonValue& root, const char* textMember,
                                   const char* fileMember, bool isKey,
                                   const ReadBeside& readBeside) {
    const auto text = root.Find(textMember);
    const auto file = root.Find(fileMember);
    if (text && file) {
        file->Fail(fmt::format(R"("{}" is there too; one of the two is wanted)", textMember));
    }
    if (text) {
        return SecretText(*text);
    }
    return file ? std::optional(readBeside(FileName(*file), isKey)) : std::nullopt;
}

/// Behind the literal, comment or other character that stands at `at`.
std::size_t Behind(std::string_view text, std::size_t at) {
    if (text.substr(at, 2) == "//") {
        return std::min(text.find('\n', at), text.size());
    }
    if (text.substr(at, 2) == "/*") {
        return std::min(text.find("*/", at + 2), text.size() - 2) + 2;
    }
    if (text[at] != '"') {
        return at + 1;
    }
    std::size_t end = at + 1;
    while (end < text.size() && text[end] != '"') {
        end += text[end] == '\\' ? 2U : 1U;
    }
    return std::min(end + 1, text.size());
}

/// The first token at or behind `at`.
std::size_t NextToken(std::string_view text, std::size_t at) {
    constexpr std::string_view kBlanks = " \t\r\n";
    while (at < text.size() &&
           (text[at] == '/' || kBlanks.find(text[at]) != std::string_view::npos)) {
        at = Behind(text, at);
    }
    return at;
}

/// The inside of the literal that is the private key's value; none without one. No parser finds it,
/// because parsers keep copies of what they pass.
std::string_view FindKey(std::string_view text) {
    const auto isAt = [text](std::size_t at, char token) {
        return at < text.size() && text[at] == token;
    };
    for (std::size_t at = NextToken(text, 0); at < text.size();) {
        const std::size_t end = Behind(text, at);
        const std::size_t colon = NextToken(text, end);
        const std::size_t value = NextToken(text, colon + 1);
        if (isAt(at, '"') && text.substr(at + 1, end - at - 1) == kPrivateKeyEnd &&
            isAt(colon, ':') && isAt(value, '"')) {
            return text.substr(value + 1, Behind(text, value) - value - 2);
        }
        at = colon;
    }
    return {};
}

/// Takes the character or escape at the front of `rest` over into `key` and returns its length; 0
/// for what is for the parser to judge.
std::size_t TakeCharacter(std::string_view rest, std::string& key) {
    constexpr std::string_view kEscapes = "nrtbf/\\\"";
    constexpr std::string_view kMeant = "\n\r\t\b\f/\\\"";
    const auto first = static_cast<unsigned char>(rest.front());
    if (first != '\\') {
        key.push_back(rest.front());
        return first >= ' ' && first < 0x80 ? 1 : 0;
    }
    const std::size_t escape = rest.size() > 1 ? kEscapes.find(rest[1]) : std::string_view::npos;
    if (escape != std::string_view::npos) {
        key.push_back(kMeant[escape]);
        return 2;
    }
    constexpr std::size_t kUnicodeBytes = 6;
    unsigned code = 0;
    if (rest.size() < kUnicodeBytes || rest[1] != 'u' ||
        std::from_chars(rest.data() + 2, rest.data() + kUnicodeBytes, code, 16).ptr !=
            rest.data() + kUnicodeBytes ||
        code >= 0x80) {
        key.push_back('?');  // no PEM has it
        return 0;
    }
    key.push_back(static_cast<char>(code));
    return kUnicodeBytes;
}

/// Takes a key that stands in the text itself out of it, so that no parser leaves copies behind:
/// spaces take the place of what a key is made of. The rest stays for the parser to judge.
std::optional<std::string> TakeKey(std::string& text) {
    const std::string_view place = FindKey(text);
    if (place.empty()) {
        return std::nullopt;
    }
    const auto begin = static_cast<std::size_t>(place.data() - text.data());
    std::optional<std::string> key;
    try {
        key.emplace().reserve(place.size());  // so that no copy of a part is left where it grew
    } catch (const std::bad_alloc&) {
        Wipe(text.data(), text.size());
        throw;
    }
    const std::size_t end = begin + place.size();
    for (std::size_t at = begin; at < end;) {
        const std::size_t taken = TakeCharacter(std::string_view(text).substr(at, end - at), *key);
        std::fill_n(text.begin() + static_cast<std::ptrdiff_t>(at), taken, ' ');
        at += std::max<std::size_t>(taken, 1);
    }
    return key;
}

/// `keyInText` is what was taken out of the text.
CertFile ReadRoot(const std::string& fileName, const JsonValue& root,
                  const std::optional<std::string>& keyInText, const ReadBeside& readBeside) {
    root.CheckMembers({kName, kCertificate, kCertificateFile, kPrivateKey, kPrivateKeyFile});
    const auto nameMember = root.Find(kName);
    std::string name = nameMember ? nameMember->Text() : fileName.substr(0, fileName.rfind('.'));
    // A key may stand among the certificates, where it is refused.
    auto certificate = ReadPem(root, kCertificate, kCertificateFile, false, readBeside);
    const WipedAtEnd certificateEnd(certificate);
    if (!certificate) {
        root.Fail(fmt::format(R"(neither "{}" nor "{}" is there)", kCertificate, kCertificateFile));
    }
    auto key = ReadPem(root, kPrivateKey, kPrivateKeyFile, true, readBeside);
    const WipedAtEnd keyEnd(key);
    try {
        return {.cert = ReadClientCert(std::move(name), *certificate, keyInText ? keyInText : key),
                .holdsKey = root.Find(kPrivateKey).has_value()};
    } catch (const std::invalid_argument& error) {
        throw std::invalid_argument(fmt::format("{}: {}", fileName, error.what()));
    }
}

/// An error that tells the place alone, because what stands there may be a part of a key.
std::runtime_error WithoutText(const std::string& name, const JsonError& error) {
    return std::runtime_error(
        fmt::format("{}:{}:{}: is no description of a certificate; it is not shown, because there "
                    "is a private key in the file",
                    name, error.Position().line, error.Position().column));
}

}  // namespace

CertFile ReadCertFile(const std::string& name, std::string text, const ReadBeside& readBeside) {
    const bool mayHoldKey = text.find(kKeyMark) != std::string::npos;
    std::optional<std::string> keyInText = TakeKey(text);
    const WipedAtEnd keyEnd(keyInText);
    std::unique_ptr<const JsonDocument> document;
    try {
        document = std::make_unique<const JsonDocument>(name, std::move(text));
    } catch (const JsonError& error) {
        if (mayHoldKey) {
            throw WithoutText(name, error);
        }
        throw;
    }
    try {
        return ReadRoot(name, document->Root(), keyInText, readBeside);
    } catch (const JsonError& error) {
        const std::string shown = error.what();
        if (mayHoldKey && (error.Pointer().empty() || shown.find(kKeyMark) != std::string::npos)) {
            throw WithoutText(name, error);
        }
        throw;
    }
}

}  // namespace zam_service
