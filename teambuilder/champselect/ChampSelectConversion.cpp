// The champion-select session as the plugin publishes it, derived from the
// draft state of a game DTO: the action sets with the ceremonies spliced in,
// the cells of both teams, the trades, the chat room and the flags, and the
// ceremony timers that mark a ceremony completed once its time has run out.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "framework/binding/NativeConversion.h"
#include "framework/binding/StaticType.h"
#include "framework/codec/Json.h"
#include "framework/resources/ResourceEvents.h"
#include "teambuilder/champselect/ChampSelectResources.h"
#include "teambuilder/champselect/DecimalPrefix.h"
#include "teambuilder/common/PluginLog.h"
#include "teambuilder/plugin/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

using Framework::BindingProperty;
using Framework::PluginResourceEventType;

namespace {

// During planning the players only state intents; ceremonies wait for the
// real draft.
constexpr std::string_view kPlanningSubphase = "PLANNING";
constexpr std::string_view kPickAction = "PICK";

// The longest ceremony the plugin waits for (about 35 years). A longer one is
// a broken message; the bound keeps the steady-clock deadline from
// overflowing.
constexpr int64_t kMaxCeremonyMillis = int64_t{1} << 40;

// The number at the start of a ceremony key: blanks, a sign, then digits,
// read up to the first other character; a key without digits is 0. Saturates
// instead of overflowing, which keeps any such key out of the valid range.
int64_t LeadingDecimal(std::string_view text) {
    const DecimalPrefix prefix = ReadDecimalPrefix(text);
    if (prefix.overflow) {
        return prefix.negative ? std::numeric_limits<int64_t>::min()
                               : std::numeric_limits<int64_t>::max();
    }
    return prefix.negative ? -prefix.magnitude : prefix.magnitude;
}

std::string LowerAscii(std::string_view text) {
    std::string lower(text);
    for (char& c : lower) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return lower;
}

// Service ids are 32-bit; sums of them wrap the way the service's own
// counters do instead of overflowing.
int32_t WrapToInt32(int64_t value) {
    return static_cast<int32_t>(value);
}

const Api::CellV1* FindCellIn(const std::vector<Api::CellV1>& cells, int64_t cellId) {
    for (const Api::CellV1& cell : cells) {
        if (cell.cellId == cellId) {
            return &cell;
        }
    }
    return nullptr;
}

// The cell of a player: allied team first, as the service numbers cells
// uniquely across both teams but a broken message may not.
const Api::CellV1* FindCell(const Api::ChampionSelectStateV1& state, int64_t cellId) {
    const Api::CellV1* cell = FindCellIn(state.cells.alliedTeam, cellId);
    return cell != nullptr ? cell : FindCellIn(state.cells.enemyTeam, cellId);
}

struct TradeStateName {
    std::string_view name;
    Api::ChampSelectTradeState state;
};

constexpr TradeStateName kTradeStateNames[] = {
    {"AVAILABLE", Api::ChampSelectTradeState::AVAILABLE},
    {"BUSY", Api::ChampSelectTradeState::BUSY},
    {"INVALID", Api::ChampSelectTradeState::INVALID},
    {"RECEIVED", Api::ChampSelectTradeState::RECEIVED},
    {"SENT", Api::ChampSelectTradeState::SENT},
};

}  // namespace

std::vector<Api::ActionV1> LobbyTeamBuilderPlugin::ReadActionSet(const BindingProperty& set) const {
    if (applyingDto_) {
        if (const std::vector<Api::ActionV1>* read = actionSetsRead_.Find(&set)) {
            return *read;
        }
    }
    std::vector<Api::ActionV1> actions = ReadActionSetOnce(set);
    if (applyingDto_) {
        actionSetsRead_.Add(&set, actions);
    }
    return actions;
}

std::vector<Api::ActionV1> LobbyTeamBuilderPlugin::ReadActionSetOnce(
    const BindingProperty& set) const {
    const std::span<const BindingProperty> elements = set.Elements();
    std::vector<Api::ActionV1> actions(elements.size());
    const Framework::BindingTypeInfo* info =
        Registry().Find(Framework::StaticType::Of<Api::ActionV1>());
    if (info == nullptr) {
        return actions;
    }
    // What cannot be read keeps its default; the action itself is kept, so a
    // damaged action never shifts the others.
    for (size_t i = 0; i < elements.size(); ++i) {
        static_cast<void>(
            Framework::AssignFromProperty(Registry(), *info, elements[i], "action", &actions[i]));
    }
    return actions;
}

std::vector<std::vector<Api::ActionV1>> LobbyTeamBuilderPlugin::ExpandActionSets(
    const Api::ChampionSelectStateV1& state, Effects* lines) const {
    const size_t setCount = state.actionSetList.size();

    struct CeremonyKey {
        int64_t index;
        const std::string* text;
        const BindingProperty* ceremonies;
    };
    std::vector<CeremonyKey> keys;
    keys.reserve(state.ceremoniesByActionSetIndex.size());
    for (const auto& [text, ceremonies] : state.ceremoniesByActionSetIndex) {
        const int64_t index = LeadingDecimal(text);
        // A ceremony may follow the last set, but not lie beyond it.
        if (index >= 0 && static_cast<uint64_t>(index) <= setCount) {
            keys.push_back({index, &text, &ceremonies});
        }
    }
    // Keys that read as the same number keep a fixed order whatever the map's.
    std::sort(keys.begin(), keys.end(), [](const CeremonyKey& a, const CeremonyKey& b) {
        return a.index != b.index ? a.index < b.index : *a.text < *b.text;
    });

    // One pass: a ceremony set keyed I lands after the first I sets of the
    // state and after the ceremonies of lower keys, as if inserted at
    // I + (ceremonies inserted so far) into the state's list.
    std::vector<std::vector<Api::ActionV1>> sets;
    sets.reserve(setCount + keys.size());
    size_t nextSet = 0;
    int64_t inserted = 0;
    for (const CeremonyKey& key : keys) {
        Framework::Maybe<std::vector<Api::CeremonyV1>> ceremonies =
            Framework::ConvertFromProperty<std::vector<Api::CeremonyV1>>(
                Registry(), *key.ceremonies, "ceremonies");
        if (!ceremonies) {
            BindingProperty offending;
            offending.Append() = *key.ceremonies;
            LogLine line{kWarn, kGroupDbg,
                         "Failed to convert ceremonies: " + Framework::WriteJson(offending)};
            if (lines != nullptr) {
                lines->emplace_back(std::move(line));
            } else {
                Log(line.level, line.groups, "%s", line.text.c_str());
            }
            continue;
        }
        for (; nextSet < static_cast<size_t>(key.index); ++nextSet) {
            sets.push_back(ReadActionSet(state.actionSetList[nextSet]));
        }
        for (Api::CeremonyV1& ceremony : *ceremonies) {
            // Each ceremony is an action set of its own, with an id from the
            // session's synthetic range.
            Api::ActionV1 action;
            action.actionId = WrapToInt32(int64_t{ceremonies_.IdBase()} + inserted);
            action.type = std::move(ceremony.name);
            action.duration = ceremony.duration;
            action.completed = ceremonies_.IsCompleted(action.actionId);
            sets.emplace_back().push_back(std::move(action));
            ++inserted;
        }
    }
    for (; nextSet < setCount; ++nextSet) {
        sets.push_back(ReadActionSet(state.actionSetList[nextSet]));
    }
    return sets;
}

std::optional<CeremonyTimer> LobbyTeamBuilderPlugin::DueCeremonyTimer(
    const std::vector<std::vector<Api::ActionV1>>& sets) const {
    if (sets.empty()) {
        return std::nullopt;
    }
    // The set in progress: the first one with work left, or the last one.
    auto current =
        std::find_if(sets.begin(), sets.end(), [](const std::vector<Api::ActionV1>& set) {
            return std::any_of(set.begin(), set.end(),
                               [](const Api::ActionV1& action) { return !action.completed; });
        });
    const std::vector<Api::ActionV1>& set = current != sets.end() ? *current : sets.back();
    if (set.empty()) {
        return std::nullopt;
    }
    const Api::ActionV1& action = set.front();
    if (action.duration == 0 || ceremonies_.TimerRunning() || action.completed) {
        return std::nullopt;
    }
    return CeremonyTimer{action.actionId, action.type, action.duration};
}

void LobbyTeamBuilderPlugin::StartCeremonyTimer(const CeremonyTimer& timer) {
    ceremonies_.TimerStarted(timer.actionId);
    const int32_t actionId = timer.actionId;
    const std::chrono::milliseconds delay(
        std::clamp<int64_t>(timer.durationMillis, 0, kMaxCeremonyMillis));
    ScheduleAt(timer.label, Clock::now() + delay,
               [this, actionId] { OnCeremonyTimerFired(actionId); });
}

std::optional<Api::ChampSelectSession> LobbyTeamBuilderPlugin::ReadChampSelectSession(
    const GameDtoRecord& record) {
    ChampSelectView view = BuildChampSelectSession(record);
    if (view.dueCeremony) {
        StartCeremonyTimer(*view.dueCeremony);
    }
    return std::move(view.session);
}

void LobbyTeamBuilderPlugin::OnCeremonyTimerFired(int32_t actionId) {
    ceremonies_.TimerFired(actionId);
    // Shown at once; the update path keeps comparing with what it published
    // itself, so the next DTO publishes again.
    if (std::optional<Api::ChampSelectSession> session = ReadChampSelectSession(storedDto_)) {
        PublishResource(kChampSelectSessionUri, *session, PluginResourceEventType::Update);
    }
}

ChampSelectView LobbyTeamBuilderPlugin::BuildChampSelectSession(const GameDtoRecord& record,
                                                                Effects* lines) const {
    ChampSelectView view;
    const Api::ChampionSelectStateV1* state = ChampSelectStateOf(record);
    if (state == nullptr) {
        return view;
    }

    std::vector<std::vector<Api::ActionV1>> sets = ExpandActionSets(*state, lines);
    if (state->subphase != kPlanningSubphase) {
        view.dueCeremony = DueCeremonyTimer(sets);
    }

    Api::ChampSelectSession& session = view.session.emplace();
    const Framework::BindingTypeInfo* actionInfo =
        Registry().Find(Framework::StaticType::Of<Api::ChampSelectAction>());
    session.actions.reserve(sets.size());
    for (std::vector<Api::ActionV1>& set : sets) {
        std::stable_sort(
            set.begin(), set.end(),
            [](const Api::ActionV1& a, const Api::ActionV1& b) { return a.actionId < b.actionId; });
        BindingProperty& array = session.actions.emplace_back();
        array.SetEmptyCollection();
        array.Reserve(set.size());
        for (Api::ActionV1& action : set) {
            Api::ChampSelectAction published;
            published.id = action.actionId;
            published.actorCellId = action.actorCellId;
            published.championId = action.championId;
            published.completed = action.completed;
            published.type = LowerAscii(action.type);
            // A pick shows the champion its actor has chosen, or at least
            // intends to choose, before the pick is locked in.
            if (action.type == kPickAction) {
                if (const Api::CellV1* actor = FindCell(*state, action.actorCellId)) {
                    if (actor->championId != 0) {
                        published.championId = actor->championId;
                    } else if (actor->championPickIntent > 0) {
                        published.championId = actor->championPickIntent;
                    }
                }
            }
            // Written in place; an action that does not convert is left out.
            if (actionInfo != nullptr && !Framework::ConvertToProperty(
                                             Registry(), *actionInfo, &published, array.Append())) {
                array.Resize(array.Elements().size() - 1);
            }
        }
    }

    session.teamId = state->teamId;
    session.chatDetails.chatRoomName.reserve(state->teamChatRoomId.size() + 1 +
                                             champSelect_.DomainName().size() +
                                             kChatDomainSuffix.size());
    session.chatDetails.chatRoomName.append(state->teamChatRoomId)
        .append("@")
        .append(champSelect_.DomainName())
        .append(kChatDomainSuffix);
    session.localPlayerCellId = state->localPlayerCellId;

    auto convertTeam = [&](const std::vector<Api::CellV1>& cells,
                           std::vector<Api::ChampSelectPlayerSelection>& team) {
        team.reserve(cells.size());
        for (const Api::CellV1& cell : cells) {
            team.push_back(ConvertCell(cell, cell.cellId == state->localPlayerCellId
                                                 ? champSelect_.LocalWardSkinId()
                                                 : -1));
        }
    };
    convertTeam(state->cells.alliedTeam, session.myTeam);
    convertTeam(state->cells.enemyTeam, session.theirTeam);

    session.timer = TimerOf(*state, record.receivedAt);
    session.trades = ConvertTrades(state->trades);
    session.allowSkinSelection = state->allowSkinSelection;
    session.allowBattleBoost = state->battleBoostState.allowBattleBoost;
    session.allowRerolling = state->rerollState.allowRerolling;
    session.rerollsRemaining = state->rerollState.rerollsRemaining;
    return view;
}

Api::ChampSelectPlayerSelection LobbyTeamBuilderPlugin::ConvertCell(const Api::CellV1& cell,
                                                                    int64_t wardSkinId) {
    Api::ChampSelectPlayerSelection selection;
    selection.cellId = cell.cellId;
    selection.displayName = cell.summonerName;
    selection.championId = cell.championId;
    selection.summonerId = cell.summonerId;
    selection.team = cell.teamId;
    // No skin chosen shows the champion's default skin, numbered by the
    // champion's id times 1000.
    selection.selectedSkinId =
        cell.skinId != 0 ? std::max(cell.skinId, 0) : WrapToInt32(int64_t{cell.championId} * 1000);
    selection.wardSkinId = wardSkinId;
    selection.spell1Id = cell.spell1Id > 0 ? static_cast<uint64_t>(cell.spell1Id) : 0;
    selection.spell2Id = cell.spell2Id > 0 ? static_cast<uint64_t>(cell.spell2Id) : 0;
    if (cell.assignedPosition != "NONE") {
        selection.assignedPosition = cell.assignedPosition;
    }
    selection.championPickIntent = std::max(cell.championPickIntent, 0);
    return selection;
}

std::optional<Api::ChampSelectPlayerSelection> LobbyTeamBuilderPlugin::FindPlayerSelection(
    const Api::ChampionSelectStateV1& state, int64_t cellId) const {
    const Api::CellV1* cell = FindCell(state, cellId);
    if (cell == nullptr) {
        return std::nullopt;
    }
    return ConvertCell(*cell,
                       cellId == state.localPlayerCellId ? champSelect_.LocalWardSkinId() : -1);
}

std::vector<Api::ChampSelectTradeContract> LobbyTeamBuilderPlugin::ConvertTrades(
    const std::vector<Api::TradeV1>& trades) const {
    std::vector<Api::ChampSelectTradeContract> contracts;
    contracts.reserve(trades.size());
    for (const Api::TradeV1& trade : trades) {
        Api::ChampSelectTradeContract& contract = contracts.emplace_back();
        contract.id = trade.id;
        contract.cellId = trade.cellId;
        const auto named =
            std::find_if(std::begin(kTradeStateNames), std::end(kTradeStateNames),
                         [&](const TradeStateName& entry) { return entry.name == trade.state; });
        if (named != std::end(kTradeStateNames)) {
            contract.state = named->state;
            continue;
        }
        // Anything else goes through the registry's rule for enumerations
        // given as text, which also takes a state's number.
        Api::ChampSelectTradeState state = Api::ChampSelectTradeState::INVALID;
        if (!Framework::AssignFromProperty(
                Registry(), BindingProperty(std::string_view(trade.state)), "state", state)) {
            state = Api::ChampSelectTradeState::INVALID;
        }
        contract.state = state;
    }
    return contracts;
}

}  // namespace Orvan::Client::LobbyTeamBuilder
