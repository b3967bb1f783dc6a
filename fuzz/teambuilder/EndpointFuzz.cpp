// The plugin's endpoint callbacks against the real plugin: each input is one
// HostRequest record, made the way only a host could make it: any method
// code, a path from the endpoint's template or anything else, call
// arguments of every type code (arrays and objects nested, codes no host
// uses), headers, a content type from the five the plugin reads and some it
// does not, and a body that is absent, empty or any bytes. The reply must be
// a value or a failure with its text, and everything it owns must go back
// through its release function.
//
// Before the request the input may push a game DTO (a lobby, a ready check
// or a draft) so that the routes that need a session find one, and may
// queue the answers the service gives to the calls the handler makes.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <string>
#include <vector>

#include "fuzz/support/FuzzInput.h"
#include "fuzz/teambuilder/PluginUnderFuzz.h"

namespace {

using namespace Orvan::Fuzzing;

const char* const kDtos[] = {
    R"json({"counter":2,"phaseName":"DRAFT_PREMADE","premadeState":{"autoFillEligible":false,"autoFillProtectedForPromos":false,"autoFillProtectedForStreaking":false,"backwardsToPremadeTransitionReason":{"backwardsTransitionReason":"","slotIds":[]},"captainSlotId":1,"draftPremadeId":"lobby-1","draftSlots":[{"autoFillEligible":false,"autoFillProtectedForPromos":false,"autoFillProtectedForSoloing":false,"autoFillProtectedForStreaking":false,"draftPositionPreferences":["TOP","MIDDLE"],"showPositionExcluder":false,"slotId":1,"summonerId":2400001,"summonerName":"player1"},{"autoFillEligible":false,"autoFillProtectedForPromos":false,"autoFillProtectedForSoloing":false,"autoFillProtectedForStreaking":false,"draftPositionPreferences":[],"showPositionExcluder":false,"slotId":2,"summonerId":11,"summonerName":"player2"}],"localPlayerSlotId":1,"playableDraftPositions":["TOP","MIDDLE","BOTTOM"],"premadeChatRoomId":"room-1","readyState":{"allowablePremadeSizes":[],"premadeSizeAllowed":true,"readyToMatchmake":false,"requiredPositionCoverageMet":true},"readyToMatchmake":true,"showPositionExcluder":false,"showPositionSelector":false,"timer":30002},"queueId":420})json",
    R"json({"afkCheckState":{"afkReady":false,"inventoryDraft":{"allChampionIds":[5,7,9],"disabledChampionIds":[9],"initialSpellIds":[],"lastSelectedSkinIdByChampionId":{"7":7001},"skinIds":[7001,9002],"spellIds":[]},"maxAfkMillis":10000,"remainingAfkMillis":0},"counter":4,"phaseName":"AFK_CHECK","queueId":420})json",
    R"json({"championSelectState":{"actionSetList":[[{"actionId":2,"actorCellId":6,"championId":0,"completed":false,"type":"BAN"},{"actionId":1,"actorCellId":1,"championId":7,"completed":true,"type":"BAN"}],[{"actionId":3,"actorCellId":1,"championId":0,"completed":false,"type":"PICK"},{"actionId":4,"actorCellId":2,"championId":22,"completed":false,"type":"PICK"}]],"allowOptingOutOfBanning":false,"allowSkinSelection":false,"battleBoostState":{"activatorCellId":0,"allowBattleBoost":false,"battleBoostActivated":false,"cost":250,"unlockedSkinIds":[]},"cells":{"alliedTeam":[{"assignedPosition":"NONE","cellId":1,"championId":0,"championPickIntent":0,"skinId":0,"spell1Id":0,"spell2Id":0,"summonerId":101,"summonerName":"summoner1","teamId":1},{"assignedPosition":"NONE","cellId":2,"championId":0,"championPickIntent":0,"skinId":0,"spell1Id":0,"spell2Id":0,"summonerId":102,"summonerName":"summoner2","teamId":1}],"enemyTeam":[{"assignedPosition":"NONE","cellId":6,"championId":0,"championPickIntent":0,"skinId":0,"spell1Id":0,"spell2Id":0,"summonerId":106,"summonerName":"summoner6","teamId":2}]},"ceremoniesByActionSetIndex":{"1":[{"duration":5000,"name":"intro"}]},"currentActionSetIndex":0,"currentTimeRemainingMillis":60000,"currentTotalTimeMillis":30000,"localPlayerCellId":1,"pickIntentClearedReason":"","rerollState":{"allowRerolling":false,"rerollsRemaining":0},"subphase":"FINALIZATION","teamChatRoomId":"room-9","teamId":"team-1","trades":[]},"counter":5,"phaseName":"CHAMPION_SELECT","queueId":420})json",
};

const char* const kContentTypes[] = {
    nullptr,
    "application/json",
    "Application/JSON; charset=utf-8",
    "application/vnd.api+json",
    "application/x-msgpack",
    "application/x-msgpack-ext",
    "application/x-yaml",
    "text/x-yaml",
    "application/octet-stream",
    "text/plain",
    "",
};

// Storage for one request: every text, value and array it points at.
struct RequestStore {
    std::deque<std::string> texts;
    std::deque<std::vector<HostValue>> arrays;
    std::deque<std::vector<HostObjectEntry>> objects;

    const char* Keep(std::string text) {
        texts.push_back(std::move(text));
        return texts.back().c_str();
    }
};

HostValue MakeValue(FuzzInput& input, RequestStore& store, int depth) {
    HostValue value{};
    const uint8_t code = input.Byte();
    // Mostly the eleven codes; now and then one no host uses.
    value.type = code < 240 ? code % 11 : code;
    switch (value.type) {
        case kHostValueBool:
            value.payload.boolValue = input.Byte();
            break;
        case kHostValueSigned:
            value.payload.signedValue = static_cast<int64_t>(input.U64());
            break;
        case kHostValueUnsigned:
            value.payload.unsignedValue = input.U64();
            break;
        case kHostValueFloat:
            value.payload.floatValue = input.Double();
            break;
        case kHostValueTextUnowned:
            value.payload.span.address = const_cast<char*>(store.Keep(input.Text()));
            value.payload.span.length = 0;
            break;
        case kHostValueTextOwned:
        case kHostValueBytesUnowned:
        case kHostValueBytesOwned: {
            const char* text = store.Keep(input.Text());
            value.payload.span.address = const_cast<char*>(text);
            value.payload.span.length = static_cast<uint32_t>(store.texts.back().size());
            break;
        }
        case kHostValueArray: {
            std::vector<HostValue> elements(depth < 3 ? input.Pick(4) : 0);
            for (HostValue& element : elements) {
                element = MakeValue(input, store, depth + 1);
            }
            store.arrays.push_back(std::move(elements));
            value.payload.span.address = store.arrays.back().data();
            value.payload.span.length = static_cast<uint32_t>(store.arrays.back().size());
            break;
        }
        case kHostValueObject: {
            std::vector<HostObjectEntry> entries(depth < 3 ? input.Pick(4) : 0);
            for (HostObjectEntry& entry : entries) {
                entry.key = input.Flag() ? store.Keep(input.Text(12)) : nullptr;
                entry.value = MakeValue(input, store, depth + 1);
                entry.keyOwned = 0;
            }
            store.objects.push_back(std::move(entries));
            value.payload.span.address = store.objects.back().data();
            value.payload.span.length = static_cast<uint32_t>(store.objects.back().size());
            break;
        }
        default:
            value.payload.unsignedValue = input.U64();
            break;
    }
    return value;
}

// The endpoint's template with each "{name}" filled in: mostly digits, else
// any text.
std::string FillTemplate(FuzzInput& input, const char* urlTemplate) {
    std::string uri;
    for (const char* at = urlTemplate; *at != '\0'; ++at) {
        if (*at != '{') {
            uri += *at;
            continue;
        }
        while (*at != '\0' && *at != '}') {
            ++at;
        }
        if (input.Flag()) {
            uri += std::to_string(static_cast<int64_t>(input.U32()) - 8);
        } else {
            uri += input.Text(12);
        }
        if (*at == '\0') {
            break;
        }
    }
    if (input.Flag()) {
        uri += "?" + input.Text(40);
    }
    return uri;
}

void ReadStream(HostResponse& reply) {
    uint8_t buffer[4096];
    for (int reads = 0; reads < 10000; ++reads) {
        uint32_t length = sizeof buffer;
        uint8_t more = 0;
        if (reply.read(reply.streamContext, buffer, &length, &more) == 0 || more == 0) {
            break;
        }
    }
    if (reply.close != nullptr) {
        reply.close(reply.streamContext);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    PluginUnderFuzz& plugin = PluginUnderFuzz::Instance();
    TestHost& host = plugin.Host();
    FuzzInput input(data, size);

    // The state the request meets, and the service's answers to its calls.
    const uint8_t setup = input.Byte();
    if ((setup & 3) != 0) {
        host.Deliver("OnServiceProxyAsyncEvent",
                     ProxyMessage("tbdGameDtoV1", kDtos[(setup & 3) - 1]));
        host.Pump();
    }
    plugin.ClearAnswers();
    for (size_t answers = (setup >> 2) & 3; answers > 0; --answers) {
        PluginUnderFuzz::Answer answer;
        const uint8_t kind = input.Byte();
        answer.method = kind % 3 == 0 ? "callFailedV1" : "tbdGameDtoV1";
        answer.payload = kind % 2 == 0 ? std::string(kDtos[kind % 3]) : input.Text(64);
        if (kind >= 200) {
            answer.status = "SERVICE UNAVAILABLE";
        }
        plugin.QueueAnswer(std::move(answer));
    }

    const PluginApiDescriptor* api = host.Api();
    if (api == nullptr || api->endpointCount == 0) {
        std::abort();
    }
    const EndpointRecord& endpoint = api->endpoints[input.Pick(api->endpointCount)];

    RequestStore store;
    HostRequest request{};
    const uint8_t methodByte = input.Byte();
    request.method = methodByte < 200 ? endpoint.method : methodByte % 10;
    request.uri =
        store.Keep(input.Flag() ? FillTemplate(input, endpoint.urlTemplate) : input.Text(64));
    if (request.method == kHostMethodDirectCall || input.Byte() >= 240) {
        request.functionName = input.Flag() ? endpoint.function.name : store.Keep(input.Text(24));
    }
    std::vector<HostArgument> arguments(input.Pick(4));
    for (HostArgument& argument : arguments) {
        const uint8_t naming = input.Byte();
        if (naming % 3 == 1 && endpoint.function.arguments != nullptr) {
            const ArgumentRecord* declared = endpoint.function.arguments;
            for (uint8_t skip = naming / 3; skip > 0 && declared->next != nullptr; --skip) {
                declared = declared->next;
            }
            argument.name = declared->name;
        } else if (naming % 3 == 2) {
            argument.name = store.Keep(input.Text(12));
        }
        argument.value = MakeValue(input, store, 0);
    }
    request.arguments = arguments.empty() ? nullptr : arguments.data();
    request.argumentCount = static_cast<uint32_t>(arguments.size());
    std::vector<HostHeader> headers(input.Pick(3));
    for (HostHeader& header : headers) {
        header.name = store.Keep(input.Text(12));
        header.value = store.Keep(input.Text(24));
    }
    request.headers = headers.empty() ? nullptr : headers.data();
    request.headerCount = static_cast<uint32_t>(headers.size());
    request.contentType = kContentTypes[input.Pick(std::size(kContentTypes))];
    // The host keeps a NUL after the body's last byte.
    const uint8_t bodyKind = input.Byte() % 3;
    const std::string& body = store.texts.emplace_back(bodyKind == 2 ? input.Rest() : "");
    if (bodyKind != 0) {
        request.body = reinterpret_cast<const uint8_t*>(body.c_str());
        request.bodyLength = static_cast<uint32_t>(body.size());
    }
    request.dispatchContext = endpoint.function.dispatchContext;
    request.pluginHandle = 7;

    HostResponse reply{};
    endpoint.dispatch(&reply, &request);
    const bool failed = reply.failed != 0;
    const char* errorText = reply.errorText;
    if (failed && errorText == nullptr) {
        std::fprintf(stderr, "%s answered a failure without its text\n", endpoint.urlTemplate);
        std::abort();
    }
    if (reply.read != nullptr) {
        ReadStream(reply);
    }
    if (reply.release != nullptr) {
        reply.release(&reply);
    }
    host.Pump();
    plugin.ClearAnswers();
    plugin.Trim();
    return 0;
}
