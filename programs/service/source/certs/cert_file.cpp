#include "certs/cert_file.h"

#include <fmt/format.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "certs/wipe.h"
#include "json_text/json_document.h"
#include "json_text/json_text.h"

namespace zam_service {

using zam_json::JsonDocument;
using zam_json::JsonError;
using zam_json::JsonValue;

namespace {

constexpr char kName[] = "name";
constexpr char kCertificate[] = "certificate";
constexpr char kCertificateFile[] = "certificate_file";
constexpr char kPrivateKey[] = "private_key";
constexpr char kPrivateKeyPlace[] = "/private_key";
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

/// The end of the literal of a text that begins at `begin`; empty when it has none.
std::optional<std::size_t> EndOfLiteral(std::string_view text, std::size_t begin) {
    for (std::size_t index = begin + 1; index < text.size(); ++index) {
        if (text[index] == '"') {
            return index;
        }
        index += text[index] == '\\' ? 1U : 0U;
    }
    return std::nullopt;
}

/// What the inside of a literal stands for; empty when it has characters that no PEM has.
std::optional<std::string> Unescaped(std::string_view literal) {
    constexpr std::string_view kEscapes = "nrt/\\\"";
    constexpr std::string_view kMeant = "\n\r\t/\\\"";
    std::string text;
    text.reserve(literal.size());  // so that no copy of a part is left where it grew
    for (std::size_t index = 0; index < literal.size(); ++index) {
        char next = literal[index];
        if (next == '\\') {
            const std::size_t escape = kEscapes.find(literal[++index]);
            if (escape == std::string_view::npos) {
                return std::nullopt;
            }
            next = kMeant[escape];
        } else if (static_cast<unsigned char>(next) < ' ') {
            return std::nullopt;
        }
        text.push_back(next);
    }
    return text;
}

/// Takes a key that stands in the text itself out of it: spaces take its place, so that no parser
/// leaves copies of it behind. Empty when there is none, or none of PEM, which is for the parser to
/// find.
std::optional<std::string> TakeKey(std::string& text) {
    const std::size_t mark = text.size() - zam_json::WithoutByteOrderMark(text).size();
    const auto begin = zam_json::FindInJson(std::string_view(text).substr(mark), kPrivateKeyPlace,
                                            zam_json::JsonPart::Value);
    if (!begin || text[mark + *begin] != '"') {
        return std::nullopt;
    }
    const std::size_t first = mark + *begin + 1;
    const auto end = EndOfLiteral(text, first - 1);
    auto key = end ? Unescaped(std::string_view(text).substr(first, *end - first)) : std::nullopt;
    if (key) {
        Wipe(text.data() + first, *end - first);
        text.replace(first, *end - first, *end - first, ' ');
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
