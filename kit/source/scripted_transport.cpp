#include "zam_connector_testing/scripted_transport.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "vd/call_bounds.h"

namespace zam_connector::testing {
namespace {

constexpr std::size_t kHeaderSize = sizeof(vd_message_header);

bool IsWellFormed(const vd_message_header* message) {
    return message != nullptr && message->fixedSize >= kHeaderSize;
}

bool IsWellFormed(const vd_arena* arena) {
    return arena == nullptr ||
           (arena->used <= arena->capacity && (arena->base != nullptr || arena->capacity == 0));
}

unsigned char* Body(vd_message_header* message) {
    return reinterpret_cast<unsigned char*>(message) + kHeaderSize;
}

Bytes CopyBody(vd_message_header* message) {
    return {Body(message), Body(message) + (message->fixedSize - kHeaderSize)};
}

RecordedCall Record(const VdZorTransport* transport, vd_message_header* request,
                    const vd_arena* requestArena, vd_message_header* response,
                    const vd_arena* responseArena) {
    RecordedCall call;
    call.transport = transport;
    if (IsWellFormed(request)) {
        call.requestHeader = *request;
        call.request = CopyBody(request);
    }
    if (IsWellFormed(response)) {
        call.responseHeader = *response;
        call.response = CopyBody(response);
    }
    if (requestArena != nullptr) {
        call.hasRequestArena = true;
        call.requestArenaCapacity = requestArena->capacity;
        if (IsWellFormed(requestArena)) {
            call.requestArena.assign(requestArena->base, requestArena->base + requestArena->used);
        }
    }
    if (responseArena != nullptr) {
        call.hasResponseArena = true;
        call.responseArenaCapacity = responseArena->capacity;
        call.responseArenaUsed = responseArena->used;
        call.responseArenaIsZero =
            IsWellFormed(responseArena) &&
            std::all_of(responseArena->base, responseArena->base + responseArena->capacity,
                        [](unsigned char byte) { return byte == 0; });
    }
    return call;
}

/// Writes an answer; gives the reason, with nothing written, when it does not fit.
std::string Write(const ScriptedAnswer& answer, vd_message_header* response,
                  vd_arena* responseArena) {
    const std::size_t room = response->fixedSize - kHeaderSize;
    if (answer.response.size() > room) {
        return "the answer's fixed part has " + std::to_string(answer.response.size()) +
               " bytes, the response " + std::to_string(room);
    }
    const std::size_t capacity = responseArena == nullptr ? 0 : responseArena->capacity;
    if (answer.arena.size() > capacity) {
        return "the answer has " + std::to_string(answer.arena.size()) +
               " arena bytes, the response arena holds " + std::to_string(capacity);
    }
    std::fill_n(std::copy(answer.response.begin(), answer.response.end(), Body(response)),
                room - answer.response.size(), static_cast<unsigned char>(0));
    if (responseArena != nullptr) {
        // What was in use before goes with its bytes, so that `used` keeps covering whatever is
        // not zero.
        std::fill_n(responseArena->base, responseArena->used, static_cast<unsigned char>(0));
        std::copy(answer.arena.begin(), answer.arena.end(), responseArena->base);
        responseArena->used = static_cast<std::uint32_t>(answer.arena.size());
    }
    return {};
}

}  // namespace

const VdZorTransportOps ScriptedTransport::kOps{&ScriptedTransport::Call};

ScriptedTransport::ScriptedTransport() {
    Attach(&transport_);
}

void ScriptedTransport::Attach(VdZorTransport* transport) noexcept {
    *transport = VdZorTransport{};
    transport->ops = &kOps;
    transport->platform = this;
}

void ScriptedTransport::Enqueue(ScriptedAnswer answer) {
    const std::lock_guard lock(mutex_);
    queue_.push_back(std::move(answer));
}

void ScriptedTransport::SetDefault(ScriptedAnswer answer) {
    const std::lock_guard lock(mutex_);
    default_ = std::move(answer);
}

void ScriptedTransport::SetResponder(Responder responder) {
    const std::lock_guard lock(mutex_);
    responder_ = std::move(responder);
}

std::vector<RecordedCall> ScriptedTransport::Calls() const {
    const std::lock_guard lock(mutex_);
    return calls_;
}

std::vector<std::string> ScriptedTransport::Faults() const {
    const std::lock_guard lock(mutex_);
    return faults_;
}

int ScriptedTransport::Call(VdZorTransport* transport, vd_message_header* request,
                            vd_arena* requestArena, vd_message_header* response,
                            vd_arena* responseArena) noexcept {
    const int status = Answer(transport, request, requestArena, response, responseArena);
    *VdZorTransport_LastStatus() = status;
    return status;
}

int ScriptedTransport::Answer(VdZorTransport* transport, vd_message_header* request,
                              vd_arena* requestArena, vd_message_header* response,
                              vd_arena* responseArena) noexcept {
    auto& self = *static_cast<ScriptedTransport*>(transport->platform);
    const RecordedCall call = Record(transport, request, requestArena, response, responseArena);
    {
        const std::lock_guard lock(self.mutex_);
        self.calls_.push_back(call);
    }
    if (!IsWellFormed(request) || !IsWellFormed(response)) {
        return self.Fault(kMalformedCall, call, "a message is missing or smaller than its header");
    }
    if (!IsWellFormed(requestArena) || !IsWellFormed(responseArena)) {
        return self.Fault(kMalformedCall, call, "an arena uses more than it has");
    }
    // An exception must not reach the operation stub, whose callers promise not to throw.
    std::optional<ScriptedAnswer> answer;
    try {
        answer = self.NextAnswer(call);
    } catch (const std::exception& exception) {
        return self.Fault(kResponderThrew, call,
                          std::string("the responder threw: ") + exception.what());
    } catch (...) {
        return self.Fault(kResponderThrew, call, "the responder threw");
    }
    if (!answer) {
        return self.Fault(kNoAnswerScripted, call, "no answer is scripted");
    }
    const std::string misfit = Write(*answer, response, responseArena);
    return misfit.empty() ? answer->status : self.Fault(kAnswerDoesNotFit, call, misfit);
}

std::optional<ScriptedAnswer> ScriptedTransport::NextAnswer(const RecordedCall& call) {
    Responder responder;
    {
        const std::lock_guard lock(mutex_);
        if (!queue_.empty()) {
            ScriptedAnswer answer = std::move(queue_.front());
            queue_.pop_front();
            return answer;
        }
        responder = responder_;
    }
    if (responder) {
        if (std::optional<ScriptedAnswer> answer = responder(call)) {
            return answer;
        }
    }
    const std::lock_guard lock(mutex_);
    return default_;
}

int ScriptedTransport::Fault(int status, const RecordedCall& call, const std::string& reason) {
    const std::lock_guard lock(mutex_);
    faults_.push_back("riid " + std::to_string(call.requestHeader.riid) + ", operation " +
                      std::to_string(call.requestHeader.operation) + ": " + reason);
    return status;
}

}  // namespace zam_connector::testing
