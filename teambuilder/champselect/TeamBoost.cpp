// The team boost: a purchase by one player of the team that unlocks skins
// for everyone, published as "team-boost" for the life of a session.
//
// The resource follows the service's boost state only when the set of
// unlocked skins changes or the boost becomes active; a price change alone,
// or a boost reported inactive again, leaves what was published. The
// purchase is forwarded to the service, whose DTO answer goes through the
// intake and so triggers the refresh itself.
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include "framework/binding/BindingProperty.h"
#include "framework/binding/MessageFormat.h"
#include "framework/resources/ResourceEvents.h"
#include "teambuilder/champselect/ChampSelectResources.h"
#include "teambuilder/plugin/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

using Framework::Failure;
using Framework::Maybe;

namespace {

constexpr const char* kNoTeamBoost =
    "No team boost available for this game, or summoner is not in a game.";
constexpr std::string_view kActivateBoostMethod = "activateBattleBoostV1";
// The service offers one skin per player; the mode is fixed.
constexpr const char* kSingleSkinUnlock = "SINGLE";

// What a record says of the boost; a record outside champion select has
// unlocked nothing and activated nothing.
const Api::TeamBuilderBoostInfo& BoostStateOf(const GameDtoRecord& record) {
    static const Api::TeamBuilderBoostInfo kNoBoost;
    const Api::ChampionSelectStateV1* state = ChampSelectStateOf(record);
    return state != nullptr ? state->battleBoostState : kNoBoost;
}

}  // namespace

Api::TeamBoost LobbyTeamBuilderPlugin::InitialTeamBoost(const GameDtoRecord& incoming) {
    // Only the price is known before the first refresh.
    Api::TeamBoost boost;
    boost.price = BoostStateOf(incoming).cost;
    return boost;
}

void LobbyTeamBuilderPlugin::CheckTeamBoost(const GameDtoRecord& previous,
                                            const GameDtoRecord& incoming, Effects& out) const {
    const Api::ChampionSelectStateV1* state = ChampSelectStateOf(incoming);
    if (state == nullptr) {
        return;
    }
    const Api::TeamBuilderBoostInfo& before = BoostStateOf(previous);
    const Api::TeamBuilderBoostInfo& now = state->battleBoostState;
    const bool due = before.unlockedSkinIds != now.unlockedSkinIds ||
                     (now.battleBoostActivated && !before.battleBoostActivated);
    if (!due || !teamBoost_.Current()) {
        return;
    }

    Api::TeamBoost boost;
    if (std::optional<Api::ChampSelectPlayerSelection> activator =
            FindPlayerSelection(*state, now.activatorCellId)) {
        boost.summonerName = std::move(activator->displayName);
    }
    boost.skinUnlockMode = kSingleSkinUnlock;
    boost.price = now.cost;
    boost.ipReward = 0;
    boost.ipRewardForPurchaser = 0;
    boost.availableSkins = now.unlockedSkinIds;
    boost.unlocked = now.battleBoostActivated;
    out.emplace_back(Updated(kTeamBoostUri, std::move(boost)));
}

void LobbyTeamBuilderPlugin::RefreshTeamBoost(const GameDtoRecord& previous,
                                              const GameDtoRecord& incoming) {
    Effects changes;
    CheckTeamBoost(previous, incoming, changes);
    if (changes.empty()) {
        return;
    }
    teamBoost_.Keep(std::get<Api::TeamBoost>(std::get<ResourceChange>(changes.front()).value));
    CarryOut(changes);
}

void LobbyTeamBuilderPlugin::DestroyTeamBoost() {
    teamBoost_.SessionEnded();
}

Maybe<Api::TeamBoost> LobbyTeamBuilderPlugin::GetTeamBoost() {
    const std::optional<Api::TeamBoost>& boost = teamBoost_.Current();
    if (!boost) {
        return Failure(kNoTeamBoost, 404);
    }
    return *boost;
}

Maybe<> LobbyTeamBuilderPlugin::PurchaseTeamBoost() {
    Framework::BindingProperty noArguments;
    noArguments.SetEmptyStructure();
    const Maybe<RawResponse> response = teamBuilder_.CallRaw(kActivateBoostMethod, noArguments);
    // The DTO of a successful answer is applied inside; a failed one changes
    // nothing.
    const Maybe<> applied = HandleDtoResponse(kActivateBoostMethod, response);
    if (!applied) {
        return InternalError(
            Framework::Format("Unable to purchase team boost: %1", applied.GetFailure().message));
    }
    return Maybe<>::Success();
}

}  // namespace Orvan::Client::LobbyTeamBuilder
