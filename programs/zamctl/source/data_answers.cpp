#include "data_answers.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <map>
#include <utility>
#include <variant>

#include "printable.h"
#include "qel/utf.h"
#include "record_json/base64_text.h"

namespace zamctl {
namespace {

using zam_connector::ZamDeviceStatus;
using zam_connector::ZamId;

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

FieldValue EventFields(const zam_connector::ZamEventSubscription& event) {
    return Fields{{"min_severity", event.minSeverity}, {"max_delay_s", event.maxDelay.count()}};
}

Fields EventsDocument(unsigned long hash, const Events& events) {
    Fields named;
    Fields encoded;
    for (const auto& [type, event] : events) {
        // A type whose bytes are no UTF-8 cannot be the name of a member.
        if (qel::IsUtf8(type)) {
            named[type] = EventFields(event);
        } else {
            encoded[zam_json::Base64Text(type)] = EventFields(event);
        }
    }
    Fields document = {{"hash", HashText(hash)}, {"events", named}};
    if (!encoded.All().empty()) {
        document["events_base64"] = encoded;
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

// A text in JSON too: readers that keep numbers as doubles would round it.
std::string HashText(unsigned long hash) {
    return fmt::format("0x{:016x}", hash);
}

const char* DeviceStatusName(ZamDeviceStatus status) {
    switch (status) {
        case ZamDeviceStatus::Unmanaged:
            return "unmanaged";
        case ZamDeviceStatus::Managed:
            return "managed";
        case ZamDeviceStatus::Quarantined:
            return "quarantined";
    }
    // A newer service may know more of them.
    return "unknown";
}

Fields ServerDataFields(const zam_connector::ZamServerData& data) {
    return {
        {"version_major", data.versionMajor},
        {"version_minor", data.versionMinor},
        {"clock_offset_s", data.clockOffset.count()},
        {"device_status", DeviceStatusName(data.deviceStatus)},
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
    Fields document = EventsDocument(data.first, events);
    document["result"] = code;
    return JsonLine(document);
}

std::string FetchServerData(Context& context, zam_connector::IZamDataProvider& provider,
                            const DataForm& form) {
    zam_connector::ZamServerData data;
    const int code = context.Checked("read the data about the server",
                                     [&] { return provider.GetZamServerData(data); });
    Fields document = ServerDataFields(data);
    if (form.json) {
        document["result"] = code;
        return JsonLine(document);
    }
    constexpr int kNameWidth = 20;
    std::string lines;
    for (const auto& [name, value] : document.All()) {
        const auto* const text = std::get_if<std::string>(&value.Get());
        lines += fmt::format("{:<{}}  {}\n", name, kNameWidth,
                             text == nullptr ? JsonText(value) : *text);
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
        Fields document;
        if (qel::IsUtf8(cert)) {
            document["cert"] = cert;
        } else {
            document["cert_base64"] = zam_json::Base64Text(cert);
        }
        document["result"] = code;
        return JsonLine(document);
    }
    // A file is for programs, byte for byte; a terminal would obey what stands in it.
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
    Fields document = {{"hash", HashText(data.first)}};
    std::string lines = fmt::format("hash {}\n", HashText(data.first));
    for (const UpdateList& list : kUpdateLists) {
        const std::vector<ZamId>& ids = data.second.*list.ids;
        FieldList texts;
        lines += fmt::format("{} ({})\n", list.name, ids.size());
        for (const ZamId& id : ids) {
            const std::string text = IdText(id);
            texts.emplace_back(text);
            lines += fmt::format("  {}\n", text);
        }
        document[list.name] = std::move(texts);
    }
    document["result"] = code;
    return form.json ? JsonLine(document) : lines;
}

}  // namespace zamctl
