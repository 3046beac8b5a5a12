#include "data_answers.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <utility>

#include "json_text/base64.h"
#include "printable.h"
#include "qel/utf.h"

namespace zamctl {
namespace {

using zam_connector::ZamDeviceStatus;
using zam_connector::ZamId;

/// The hash, and a place for the members behind it.
Json WithHash(unsigned long hash) {
    return {{"hash", HashText(hash)}};
}

const char* StatusName(ZamDeviceStatus status) {
    switch (status) {
        case ZamDeviceStatus::Unmanaged:
            return "unmanaged";
        case ZamDeviceStatus::Managed:
            return "managed";
        case ZamDeviceStatus::Quarantined:
            return "quarantined";
    }
    return "unknown";
}

/// In the order of their types.
using Events = std::map<std::string, zam_connector::ZamEventSubscription>;

std::string ListEvents(const Events& events) {
    std::size_t width = 0;
    for (const auto& [type, event] : events) {
        width = std::max(width, Quote(type).size());
    }
    std::string lines;
    for (const auto& [type, event] : events) {
        lines += fmt::format("{:<{}}  min_severity {}, max_delay {} s\n", Quote(type), width,
                             event.minSeverity, event.maxDelay.count());
    }
    return lines.empty() ? "no subscriptions\n" : lines;
}

Json EventsDocument(unsigned long hash, const Events& events) {
    Json document = WithHash(hash);
    document["events"] = Json::object();
    for (const auto& [type, event] : events) {
        // A type whose bytes are no UTF-8 cannot be the name of a member.
        Json& target = qel::IsUtf8(type) ? document["events"][type]
                                         : document["events_base64"][zam_json::EncodeBase64(type)];
        target = {{"min_severity", event.minSeverity}, {"max_delay_s", event.maxDelay.count()}};
    }
    return document;
}

std::string IdText(const ZamId& id) {
    std::string text;
    for (const std::byte byte : id) {
        fmt::format_to(std::back_inserter(text), "{:02x}", std::to_integer<unsigned>(byte));
    }
    return text;
}

struct UpdateList {
    const char* name;
    std::vector<ZamId> zam_connector::ZamUpdatesStatus::*ids;
};

constexpr UpdateList kUpdateLists[] = {
    {"approved", &zam_connector::ZamUpdatesStatus::approved},
    {"declined", &zam_connector::ZamUpdatesStatus::declined},
    {"revoked", &zam_connector::ZamUpdatesStatus::revoked},
};

}  // namespace

std::string HashText(unsigned long hash) {
    return fmt::format("0x{:016x}", hash);
}

Json ServerDataDocument(const zam_connector::ZamServerData& data) {
    return {
        {"version_major", data.versionMajor},
        {"version_minor", data.versionMinor},
        {"clock_offset_s", data.clockOffset.count()},
        {"device_status", StatusName(data.deviceStatus)},
        {"offers_files", data.offersFiles},
        {"wants_diagnostics", data.wantsDiagnostics},
        {"requires_client_cert", data.requiresClientCert},
    };
}

std::string FetchSubscriptions(Context& context, zam_connector::IZamDataProvider& provider,
                               const DataForm& form) {
    std::pair<unsigned long, zam_connector::ZamSubscriptions> data;
    const int code =
        context.Checked("read the subscriptions", [&] { return provider.GetSubscriptions(data); });
    const Events events(data.second.events.begin(), data.second.events.end());
    if (!form.json) {
        return fmt::format("hash {}\n{}", HashText(data.first), ListEvents(events));
    }
    Json document = EventsDocument(data.first, events);
    document["result"] = code;
    return JsonLine(document);
}

std::string FetchServerData(Context& context, zam_connector::IZamDataProvider& provider,
                            const DataForm& form) {
    zam_connector::ZamServerData data;
    const int code = context.Checked("read the data about the server",
                                     [&] { return provider.GetZamServerData(data); });
    Json document = ServerDataDocument(data);
    if (form.json) {
        document["result"] = code;
        return JsonLine(document);
    }
    constexpr int kNameWidth = 20;
    std::string lines;
    for (const auto& [name, value] : document.items()) {
        lines += fmt::format("{:<{}}  {}\n", name, kNameWidth,
                             value.is_string() ? value.get<std::string>() : value.dump());
    }
    return lines;
}

std::string FetchReserveCert(Context& context, zam_connector::IZamDataProvider& provider,
                             const DataForm& form) {
    std::string cert;
    const int code = context.Checked("read the reserve certificate",
                                     [&] { return provider.GetZamReserveCert(cert); });
    if (cert.empty()) {
        throw Failure(kExitFailed, "the service has no reserve certificate",
                      "zam_connectord takes it from reserve_cert.pem in its data folder.");
    }
    if (form.json) {
        Json document;
        if (qel::IsUtf8(cert)) {
            document["cert"] = cert;
        } else {
            document["cert_base64"] = zam_json::EncodeBase64(cert);
        }
        document["result"] = code;
        return JsonLine(document);
    }
    if (form.toFile) {
        return cert;
    }
    std::string text = Printable(cert);
    return text.ends_with('\n') ? text : text + '\n';
}

std::string FetchUpdatesStatus(Context& context, zam_connector::IZamDataProvider& provider,
                               const DataForm& form) {
    std::pair<unsigned long, zam_connector::ZamUpdatesStatus> data;
    const int code = context.Checked("read the updates status",
                                     [&] { return provider.GetZamUpdatesStatus(data); });
    Json document = WithHash(data.first);
    std::string lines = fmt::format("hash {}\n", HashText(data.first));
    for (const UpdateList& list : kUpdateLists) {
        const std::vector<ZamId>& ids = data.second.*list.ids;
        Json& target = document[list.name] = Json::array();
        lines += fmt::format("{} ({})\n", list.name, ids.size());
        for (const ZamId& id : ids) {
            const std::string text = IdText(id);
            target.push_back(text);
            lines += fmt::format("  {}\n", text);
        }
    }
    document["result"] = code;
    return form.json ? JsonLine(document) : lines;
}

}  // namespace zamctl
