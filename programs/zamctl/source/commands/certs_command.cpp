#include "commands/certs_command.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <vector>

#include "command_set.h"
#include "output_file.h"
#include "printable.h"
#include "times.h"

namespace zamctl {
namespace {

using zam_connector::ClientCertInfo;
using Certs = std::vector<ClientCertInfo>;

constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;

std::string WithLineEnd(const std::string& text) {
    return text.empty() || text.ends_with('\n') ? text : text + '\n';
}

/// What programs that use certificates read: each certificate with its issuers, then its key.
std::string PemText(const Certs& certs, bool withKeys) {
    std::string text;
    for (const ClientCertInfo& cert : certs) {
        text += WithLineEnd(cert.certificate);
        if (withKeys && cert.privateKey) {
            text += WithLineEnd(*cert.privateKey);
        }
    }
    return text;
}

const char* KeyText(const ClientCertInfo& cert, bool withKeys) {
    if (!cert.privateKey) {
        return "none";
    }
    return withKeys ? "below" : "present; --with-keys prints it";
}

std::string Listing(const Certs& certs, bool withKeys) {
    if (certs.empty()) {
        return "no certificates";
    }
    std::string text;
    for (const ClientCertInfo& cert : certs) {
        text += fmt::format(
            "{}name           {}\nsubject        {}\nissuer         {}\nserial_number  {}\n"
            "private_key    {}\n",
            text.empty() ? "" : "\n", Quote(cert.name), Quote(cert.subject), Quote(cert.issuer),
            Quote(cert.serialNumber), KeyText(cert, withKeys));
        if (withKeys && cert.privateKey) {
            text += WithLineEnd(Printable(*cert.privateKey));
        }
    }
    text.pop_back();
    return text;
}

Fields Document(const Certs& certs, bool withKeys, int code) {
    FieldList list;
    for (const ClientCertInfo& cert : certs) {
        Fields entry = {{"name", cert.name},
                        {"subject", cert.subject},
                        {"issuer", cert.issuer},
                        {"serial_number", cert.serialNumber},
                        {"certificate", cert.certificate},
                        {"has_private_key", cert.privateKey.has_value()}};
        if (withKeys && cert.privateKey) {
            entry["private_key"] = *cert.privateKey;
        }
        list.push_back(std::move(entry));
    }
    return {{"certificates", std::move(list)}, {"result", code}};
}

}  // namespace

void CertsCommand::Declare(Options& options) {
    options.Value(
        "--subject", "DN", [this](const std::string& text) { params_.subject = text; },
        "Only with this distinguished name");
    options.Value(
        "--issuer", "DN", [this](const std::string& text) { params_.issuer = text; },
        "Only by this distinguished name");
    const auto validAt = [this](const std::string& text) {
        params_.validAt = qor::types::Timestamp(ParseUtcSeconds("--valid-at", text));
    };
    options.Value("--valid-at", "TIME", validAt,
                  "Only valid then: 2026-01-31T12:00:00Z, 2026-01-31 or seconds since 1970");
    options.Flag("--with-keys", withKeys_, "Private keys too");
    options.File(
        "-o,--output", [this](const std::string& file) { output_ = file; },
        "Write PEM texts to a file that only its owner may read; - is standard output");
}

void CertsCommand::Run(Context& context) {
    const bool toFile = output_ && *output_ != "-";
    std::optional<OutputFile> file;
    if (toFile) {
        // With its mode from the start: a key is never open to others, not even for a moment.
        file.emplace(*output_, kOwnerOnly);
    }
    const ConnectorInterfaces connector = context.Connector();
    Certs certs;
    const int code = context.Checked("fetch the client certificates", [&] {
        return connector.certsDownloader.GetClientCertificates(params_, certs);
    });
    if (!output_) {
        context.output.Result(Listing(certs, withKeys_), Document(certs, withKeys_, code));
        return;
    }
    if (certs.empty()) {
        throw Failure(kExitFailed, "the server has no such certificate",
                      "Without --subject, --issuer and --valid-at all of them are printed.");
    }
    const bool isJson = context.output.IsJson();
    const std::string content =
        isJson ? JsonLine(Document(certs, withKeys_, code)) : PemText(certs, withKeys_);
    if (!file) {
        context.output.Content(isJson ? content : Printable(content));
        return;
    }
    file->Commit(content);
    if (!isJson) {
        context.output.Confirmation(
            fmt::format("{} {} written to {}", certs.size(),
                        certs.size() == 1 ? "certificate" : "certificates", Quote(*output_)),
            {});
    }
}

void DeclareCerts(CommandSet& commands) {
    commands.Add("certs", "Print the client certificates for this device",
                 std::make_shared<CertsCommand>());
}

}  // namespace zamctl
