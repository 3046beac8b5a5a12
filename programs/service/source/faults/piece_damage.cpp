#include "faults/piece_damage.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <utility>
#include <variant>

#include "common/arena.h"
#include "common/id_specification.h"
#include "common/raw_zam_param_casts.h"
#include "data/tree_snapshot.h"
#include "endpoints/session_statuses.h"
#include "qx/zam_data_provider.h"
#include "qx/zam_file_downloader.h"
#include "zuv/path.h"

namespace zam_service {
namespace {

using zam_connector::common::RawZamParam;
using Response = qx_zam_connector_ZamDataProvider_GetData_rsp;
using ChunkResponse = qx_zam_connector_ZamFileDownloader_GetFileChunk_rsp;

/// Where the length of the first record's value stands: behind the version and the tag.
constexpr std::size_t kFirstLength = 2;

/// The largest length that a piece can announce.
constexpr unsigned char kLargestLength[] = {0xFF, 0xFF, 0x7F};

std::vector<RawZamParam> Records(const Response& response, std::vector<unsigned char>& bytes) {
    vd_arena arena{};
    vd_arena_init(&arena, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    arena.used = arena.capacity;
    return zam_connector::common::CastFromVd(response.params, &arena);
}

bool CutValue(std::vector<RawZamParam>& records) {
    if (records.empty() || records.front().value.empty()) {
        return false;
    }
    records.front().value.pop_back();
    return true;
}

bool RepeatPath(std::vector<RawZamParam>& records) {
    if (records.empty()) {
        return false;
    }
    RawZamParam last = records.back();
    records.push_back(std::move(last));
    return true;
}

/// The path of a vector's element, with its position apart; empty for any other node.
std::optional<std::pair<zuv::Path, unsigned long>> ElementAt(const std::string& text) {
    zuv::Path path = zuv::FromString(text, zam_connector::common::meta::IdSpecification()).first;
    if (path.empty() || !std::holds_alternative<unsigned long>(path.back())) {
        return std::nullopt;
    }
    const unsigned long position = std::get<unsigned long>(path.back());
    path.pop_back();
    return std::pair(std::move(path), position);
}

bool OpenVectorGap(std::vector<RawZamParam>& records) {
    for (std::size_t index = 1; index < records.size(); ++index) {
        const auto first = ElementAt(records[index - 1].path);
        const auto second = ElementAt(records[index].path);
        if (first && second && first->first == second->first &&
            first->second + 1 == second->second) {
            records.erase(records.begin() + static_cast<std::ptrdiff_t>(index - 1));
            return true;
        }
    }
    return false;
}

bool ChangeRecords(bool (*change)(std::vector<RawZamParam>& records), Response& response,
                   std::vector<unsigned char>& bytes) {
    std::vector<RawZamParam> records = Records(response, bytes);
    if (!change(records)) {
        return false;
    }
    zam_connector::common::HeapArena arena(kPieceBytes);
    try {
        response.params = zam_connector::common::CastToVd(records, arena.Get());
    } catch (const std::length_error&) {
        return false;  // the piece is full
    }
    bytes.assign(arena.Get()->base, arena.Get()->base + arena.Get()->used);
    return true;
}

bool AnnounceTooMuch(std::vector<unsigned char>& bytes) {
    if (bytes.size() < kFirstLength + std::size(kLargestLength)) {
        return false;
    }
    std::copy(std::begin(kLargestLength), std::end(kLargestLength), bytes.begin() + kFirstLength);
    return true;
}

bool HideTheEnd(Response& response) {
    if (response.sessionStatus != kSessionLast) {
        return false;
    }
    response.sessionStatus = kSessionMore;
    return true;
}

bool Damage(PieceDamage damage, Response& response, std::vector<unsigned char>& bytes) {
    switch (damage) {
        case PieceDamage::RecordValue:
            return ChangeRecords(CutValue, response, bytes);
        case PieceDamage::Length:
            return AnnounceTooMuch(bytes);
        case PieceDamage::RepeatPath:
            return ChangeRecords(RepeatPath, response, bytes);
        case PieceDamage::VectorGap:
            return ChangeRecords(OpenVectorGap, response, bytes);
        case PieceDamage::Endless:
            return HideTheEnd(response);
        case PieceDamage::ChunkData:
        case PieceDamage::ChunkVersion:
            break;  // no damages of pieces
    }
    return false;
}

/// Changes the first byte of a stretch to one that it has not been.
bool ChangeByte(vd_bytes stretch, unsigned char other, std::vector<unsigned char>& arena) {
    if (stretch.length == 0 || stretch.offset >= arena.size() || arena[stretch.offset] == other) {
        return false;
    }
    arena[stretch.offset] = other;
    return true;
}

bool Damage(PieceDamage damage, const ChunkResponse& response, std::vector<unsigned char>& arena) {
    if (damage == PieceDamage::ChunkVersion) {
        // No version begins so.
        return ChangeByte(response.chunk.version, 'x', arena);
    }
    const vd_bytes data = response.chunk.data;
    const unsigned first = data.offset < arena.size() ? arena[data.offset] : 0;
    return ChangeByte(data, static_cast<unsigned char>(first ^ 1U), arena);
}

template <typename Message>
bool DamageMessage(PieceDamage damage, std::vector<unsigned char>& message,
                   std::vector<unsigned char>& arena) {
    Message response{};
    if (message.size() != sizeof(response)) {
        return false;
    }
    std::memcpy(&response, message.data(), sizeof(response));
    const bool isDamaged = Damage(damage, response, arena);
    std::memcpy(message.data(), &response, sizeof(response));
    return isDamaged;
}

bool IsOfChunk(PieceDamage damage) noexcept {
    return damage == PieceDamage::ChunkData || damage == PieceDamage::ChunkVersion;
}

}  // namespace

std::optional<PieceDamage> FindPieceDamage(std::string_view name) noexcept {
    const auto* const found =
        std::find(std::begin(kPieceDamageNames), std::end(kPieceDamageNames), name);
    return found == std::end(kPieceDamageNames)
               ? std::nullopt
               : std::optional(static_cast<PieceDamage>(found - std::begin(kPieceDamageNames)));
}

DamagedOperation OperationOf(PieceDamage damage) noexcept {
    return IsOfChunk(damage) ? DamagedOperation{"ZamFileDownloader", "GetFileChunk"}
                             : DamagedOperation{"ZamDataProvider", "GetData"};
}

bool DamagePiece(PieceDamage damage, std::vector<unsigned char>& message,
                 std::vector<unsigned char>& arena) {
    return IsOfChunk(damage) ? DamageMessage<ChunkResponse>(damage, message, arena)
                             : DamageMessage<Response>(damage, message, arena);
}

}  // namespace zam_service
