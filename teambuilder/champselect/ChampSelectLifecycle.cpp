// The champion-select session's lifecycle, driven by the DTO intake: every
// accepted DTO is checked against the stored one (CheckChampSelectSession)
// after the lobby side, and the draft lists follow. A session is created by
// the first DTO with a draft state, updated while the published session
// changes, and deleted by the first DTO without one. The check only derives
// the changes; KeepChampSelectTransition keeps what they change of the
// plugin's state and the intake carries them out.
#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "framework/resources/ResourceEvents.h"
#include "framework/rest/RestCalls.h"
#include "teambuilder/champselect/ChampSelectResources.h"
#include "teambuilder/common/PluginLog.h"
#include "teambuilder/plugin/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

namespace {

const std::vector<Framework::BindingProperty> kNoActionSets;

}  // namespace

ChampSelectTransition LobbyTeamBuilderPlugin::CheckChampSelectSession(const GameDtoRecord& previous,
                                                                      const GameDtoRecord& incoming,
                                                                      Effects& out) const {
    const bool wasInChampSelect = IsInChampSelect(previous);
    const bool isInChampSelect = IsInChampSelect(incoming);
    if (isInChampSelect && !wasInChampSelect) {
        const std::string& teamId = incoming.dto->championSelectState->teamId;
        if (champSelect_.IsRecentTeam(teamId)) {
            out.emplace_back(LogLine{kAlways, kGroupDbg,
                                     "Received out-of-date TB champ select dto while in "
                                     "matchmaking."});
            return ChampSelectTransition::StaleTeam;
        }
        // The answer arrives later and republishes the session with the ward
        // skin.
        out.emplace_back(WardSkinRequest());
        out.emplace_back(LogLine{kAlways, kGroupDbg, "Creating champ select session."});
        out.emplace_back(Updated(kImplementationActiveUri, true));
        ChampSelectView view = BuildChampSelectSession(incoming, &out);
        if (view.dueCeremony) {
            out.emplace_back(std::move(*view.dueCeremony));
        }
        if (view.session) {
            out.emplace_back(Created(kChampSelectSessionUri, std::move(*view.session)));
        }
        out.emplace_back(Created(kTeamBoostUri, InitialTeamBoost(incoming)));
        out.emplace_back(SessionChangedHook());
        // Only informs the game flow; nothing here depends on the answer.
        out.emplace_back(GameflowEvent{kEnteredChampSelectEvent});
        return ChampSelectTransition::Enter;
    }
    if (isInChampSelect) {
        ChampSelectView view = BuildChampSelectSession(incoming, &out);
        if (view.dueCeremony) {
            out.emplace_back(std::move(*view.dueCeremony));
        }
        // The timer carries the time of receipt, so only a DTO received twice
        // within the same millisecond compares equal.
        if (view.session == champSelect_.LastPublished()) {
            return ChampSelectTransition::None;
        }
        out.emplace_back(Updated(kChampSelectSessionUri, std::move(*view.session)));
        out.emplace_back(SessionChangedHook());
        return ChampSelectTransition::Update;
    }
    if (wasInChampSelect) {
        out.emplace_back(Deleted(kTeamBoostUri));
        out.emplace_back(LogLine{kAlways, kGroupDbg, "Deleting champ select session."});
        out.emplace_back(Deleted(kChampSelectSessionUri));
        out.emplace_back(Updated(kImplementationActiveUri, false));
        return ChampSelectTransition::Leave;
    }
    return ChampSelectTransition::None;
}

void LobbyTeamBuilderPlugin::KeepChampSelectTransition(ChampSelectTransition transition,
                                                       const GameDtoRecord& previous,
                                                       const GameDtoRecord& incoming) {
    if (transition == ChampSelectTransition::Enter) {
        teamBoost_.Keep(InitialTeamBoost(incoming));
        champSelect_.SessionEntered(incoming.dto->championSelectState->teamId);
        return;
    }
    if (transition != ChampSelectTransition::Leave) {
        return;
    }
    uxTimers_.SessionEnded();

    // Ceremony ids of the next session start past every id this one could
    // have given.
    int64_t ceremonyCount = 0;
    for (const auto& [index, ceremonies] :
         previous.dto->championSelectState->ceremoniesByActionSetIndex) {
        ceremonyCount += static_cast<int64_t>(ceremonies.Elements().size());
    }
    ceremonies_.SessionEnded(ceremonyCount);
    DestroyTeamBoost();
}

void LobbyTeamBuilderPlugin::OnChampSelectSessionChanged(const GameDtoRecord& previous,
                                                         const GameDtoRecord& incoming) {
    RefreshTeamBoost(previous, incoming);

    Effects optOut;
    if (const std::optional<bool> allowed = CheckBannableOptOut(incoming, optOut)) {
        draftLists_.KeepAllowsOptingOutOfBanning(*allowed);
        CarryOut(optOut);
    }

    HandleUx(previous, incoming);
}

std::optional<bool> LobbyTeamBuilderPlugin::CheckBannableOptOut(const GameDtoRecord& incoming,
                                                                Effects& out) const {
    const Api::ChampionSelectStateV1* state = ChampSelectStateOf(incoming);
    const bool allowOptingOut = state != nullptr && state->allowOptingOutOfBanning;
    if (allowOptingOut == draftLists_.AllowsOptingOutOfBanning()) {
        return std::nullopt;
    }
    // The choice of banning nobody comes and goes with the permission.
    Framework::Maybe<Api::ChampSelectBannableChampions> bannable = ComputeBannableChampions(
        state != nullptr ? state->actionSetList : kNoActionSets, allowOptingOut);
    if (bannable) {
        out.emplace_back(Updated(kBannableChampionsUri, std::move(bannable).Value()));
    }
    return allowOptingOut;
}

}  // namespace Orvan::Client::LobbyTeamBuilder
