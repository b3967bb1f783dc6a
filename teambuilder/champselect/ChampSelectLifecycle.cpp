// The champion-select session's lifecycle, driven by the DTO intake: every
// accepted DTO reaches OnChampSelectDto (with the stored DTO) and then
// UpdateDraftLists, after the lobby and matchmaking resources and before the
// DTO is stored. A session is created by the first DTO with a draft state,
// updated while the published session changes, and deleted by the first DTO
// without one.
#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "framework/log/Log.h"
#include "framework/resources/ResourceEvents.h"
#include "framework/rest/RestCalls.h"
#include "teambuilder/champselect/ChampSelectResources.h"
#include "teambuilder/plugin/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

using Framework::kAlways;
using Framework::kGroupDbg;
using Framework::Log;
using Framework::PluginResourceEventType;

namespace {

// Team ids of the last sessions; a DTO of one of them arriving outside a
// session is a late copy of a draft that is over.
constexpr size_t kRecentTeamIdCount = 5;

const std::vector<Framework::BindingProperty> kNoActionSets;

}  // namespace

void LobbyTeamBuilderPlugin::OnChampSelectDto(const GameDtoRecord& previous,
                                              const GameDtoRecord& incoming) {
    const bool wasInChampSelect = IsInChampSelect(previous);
    const bool isInChampSelect = IsInChampSelect(incoming);
    if (isInChampSelect && !wasInChampSelect) {
        EnterChampSelect(previous, incoming);
    } else if (isInChampSelect) {
        UpdateChampSelect(previous, incoming);
    } else if (wasInChampSelect) {
        LeaveChampSelect(previous);
    }
}

void LobbyTeamBuilderPlugin::EnterChampSelect(const GameDtoRecord& previous,
                                              const GameDtoRecord& incoming) {
    const std::string& teamId = incoming.dto->championSelectState->teamId;
    if (std::find(recentChampSelectTeamIds_.begin(), recentChampSelectTeamIds_.end(), teamId) !=
        recentChampSelectTeamIds_.end()) {
        Log(kAlways, kGroupDbg, "Received out-of-date TB champ select dto while in matchmaking.");
        return;
    }
    // The answer arrives later and republishes the session with the ward
    // skin.
    RequestLocalWardSkin();
    Log(kAlways, kGroupDbg, "Creating champ select session.");
    PublishResource(kImplementationActiveUri, true, PluginResourceEventType::Update);
    if (std::optional<Api::ChampSelectSession> session = ReadChampSelectSession(incoming)) {
        PublishResource(kChampSelectSessionUri, *session, PluginResourceEventType::Create);
    }
    CreateTeamBoost(incoming);
    if (teamBoost_) {
        PublishResource(kTeamBoostUri, *teamBoost_, PluginResourceEventType::Create);
    }
    OnChampSelectSessionChanged(previous, incoming);
    // Only informs the game flow; nothing here depends on the answer.
    static_cast<void>(
        Request(Framework::HttpMethod::Post, kGameflowEventUri, kEnteredChampSelectEvent));

    if (recentChampSelectTeamIds_.size() >= kRecentTeamIdCount) {
        recentChampSelectTeamIds_.pop_front();
    }
    recentChampSelectTeamIds_.push_back(teamId);
}

void LobbyTeamBuilderPlugin::UpdateChampSelect(const GameDtoRecord& previous,
                                               const GameDtoRecord& incoming) {
    std::optional<Api::ChampSelectSession> session = ReadChampSelectSession(incoming);
    // The timer carries the time of receipt, so only a DTO received twice
    // within the same millisecond compares equal.
    if (session == lastPublishedSession_) {
        return;
    }
    lastPublishedSession_ = std::move(session);
    PublishResource(kChampSelectSessionUri, *lastPublishedSession_,
                    PluginResourceEventType::Update);
    OnChampSelectSessionChanged(previous, incoming);
}

void LobbyTeamBuilderPlugin::LeaveChampSelect(const GameDtoRecord& previous) {
    outstandingUxTimers_ = 0;
    showUx_ = false;

    // Ceremony ids of the next session start past every id this one could
    // have given, so a late timer of this session never marks one of them.
    pendingCeremonyActionId_ = -1;
    completedCeremonyActionIds_.clear();
    int64_t ceremonyCount = 0;
    for (const auto& [index, ceremonies] :
         previous.dto->championSelectState->ceremoniesByActionSetIndex) {
        ceremonyCount += static_cast<int64_t>(ceremonies.Elements().size());
    }
    ceremonyActionIdBase_ = static_cast<int32_t>(int64_t{ceremonyActionIdBase_} + ceremonyCount);

    DestroyTeamBoost();
    DeleteResource(kTeamBoostUri);
    Log(kAlways, kGroupDbg, "Deleting champ select session.");
    DeleteResource(kChampSelectSessionUri);
    PublishResource(kImplementationActiveUri, false, PluginResourceEventType::Update);
}

void LobbyTeamBuilderPlugin::OnChampSelectSessionChanged(const GameDtoRecord& previous,
                                                         const GameDtoRecord& incoming) {
    RefreshTeamBoost(previous, incoming);

    const Api::ChampionSelectStateV1* state = ChampSelectStateOf(incoming);
    const bool allowOptingOut = state != nullptr && state->allowOptingOutOfBanning;
    if (allowOptingOut != lastAllowOptingOutOfBanning_) {
        // The choice of banning nobody comes and goes with the permission.
        lastAllowOptingOutOfBanning_ = allowOptingOut;
        Framework::Maybe<Api::ChampSelectBannableChampions> bannable =
            ComputeBannableChampions(state != nullptr ? state->actionSetList : kNoActionSets);
        if (bannable) {
            PublishResource(kBannableChampionsUri, *bannable, PluginResourceEventType::Update);
        }
    }

    HandleUx(previous, incoming);
}

}  // namespace Orvan::Client::LobbyTeamBuilder
