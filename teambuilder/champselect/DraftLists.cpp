// The draft inventory (what the player may pick, ban and wear in the coming
// draft, delivered with the ready check) and the four champion lists derived
// from it: pickable, bannable and disabled champions and pickable skins.
#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "framework/resources/ResourceEvents.h"
#include "framework/rest/RestArguments.h"
#include "teambuilder/champselect/ChampSelectResources.h"
#include "teambuilder/champselect/DecimalPrefix.h"
#include "teambuilder/champselect/RawActionFields.h"
#include "teambuilder/plugin/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

using Framework::Failure;
using Framework::Maybe;
using Framework::PluginResourceEventType;

namespace {

// Status of a champion id that is not a number: the inventory is broken, not
// missing.
constexpr uint32_t kBadInventoryStatus = 500;

// A champion id written in decimal, read as the standard string-to-int
// conversion reads it: leading white space and a sign allowed, trailing text
// ignored.
Maybe<int32_t> ChampionIdOf(std::string_view text) {
    const DecimalPrefix prefix = ReadDecimalPrefix(text);
    if (!prefix.hasDigits) {
        return Failure("invalid stoi argument", kBadInventoryStatus);
    }
    // One past the int32 range either way.
    constexpr int64_t kLimit = int64_t{1} << 31;
    if (prefix.overflow || prefix.magnitude > kLimit ||
        (!prefix.negative && prefix.magnitude == kLimit)) {
        return Failure("stoi argument out of range", kBadInventoryStatus);
    }
    return static_cast<int32_t>(prefix.negative ? -prefix.magnitude : prefix.magnitude);
}

// The same inventory repeated by the service arrives with its skin map
// built the same way, so its entries come in the same order: compared in
// that order no key is hashed. Anything else is compared as the record says.
bool SameInventory(const Api::TbdInventory& a, const Api::TbdInventory& b) {
    // A field added to the record must be compared below as well.
    // The record's size is the point, not the containers'.
    // NOLINTBEGIN(bugprone-sizeof-container)
    static_assert(sizeof(Api::TbdInventory) ==
                  sizeof(a.lastSelectedSkinIdByChampionId) + 5 * sizeof(std::vector<int32_t>));
    // NOLINTEND(bugprone-sizeof-container)
    const auto& skinsA = a.lastSelectedSkinIdByChampionId;
    const auto& skinsB = b.lastSelectedSkinIdByChampionId;
    if (skinsA.size() != skinsB.size() ||
        !std::equal(skinsA.begin(), skinsA.end(), skinsB.begin())) {
        return a == b;
    }
    return a.skinIds == b.skinIds && a.spellIds == b.spellIds &&
           a.initialSpellIds == b.initialSpellIds && a.allChampionIds == b.allChampionIds &&
           a.disabledChampionIds == b.disabledChampionIds;
}

std::vector<int32_t> Sorted(std::vector<int32_t> ids) {
    std::sort(ids.begin(), ids.end());
    return ids;
}

bool Contains(const std::vector<int32_t>& sorted, int32_t id) {
    return std::binary_search(sorted.begin(), sorted.end(), id);
}

// Publishes one of the lists that follow the inventory: created when it
// appears, updated while it stays, deleted when it goes. A list that cannot
// be computed is left unpublished (and computed again with the next DTO);
// one that was computed and converted is kept in `converted` until the
// inventory changes.
template <class Compute>
void FollowInventory(LobbyTeamBuilderPlugin& plugin, std::string_view uri, bool had, bool has,
                     std::optional<Framework::BindingProperty>& converted, Compute compute) {
    const PluginResourceEventType eventType =
        had ? PluginResourceEventType::Update : PluginResourceEventType::Create;
    if (has) {
        if (!converted) {
            auto list = compute();
            if (!list) {
                return;
            }
            Maybe<Framework::BindingProperty> value =
                Framework::ToBindingValue(plugin.Registry(), *list);
            if (!value) {
                // Reports the failure as any other resource that does not convert.
                plugin.PublishResource(uri, *list, eventType);
                return;
            }
            converted = std::move(value).Value();
        }
        plugin.PublishResourceValue(uri, eventType, *converted);
    } else if (had) {
        plugin.DeleteResource(uri);
    }
}

}  // namespace

void LobbyTeamBuilderPlugin::UpdateDraftLists(const GameDtoRecord& incoming) {
    const bool had = draftLists_.Inventory().has_value();
    const std::string_view phase = incoming.Phase();
    // Back in the lobby or searching again: the next ready check brings a
    // new inventory. Anything else keeps the inventory unless it brings one.
    if (!incoming.HasDto() || phase == kPhaseDraftPremade || phase == kPhaseMatchmaking) {
        draftLists_.SetInventory(std::nullopt);
    } else if (incoming.dto->afkCheckState && !incoming.dto->afkCheckState->inventoryDraft
                                                   .lastSelectedSkinIdByChampionId.empty()) {
        // The service repeats the inventory with every DTO of the ready check.
        const Api::TbdInventory& inventory = incoming.dto->afkCheckState->inventoryDraft;
        const std::optional<Api::TbdInventory>& kept = draftLists_.Inventory();
        if (!kept || !SameInventory(*kept, inventory)) {
            draftLists_.SetInventory(inventory);
        }
    }
    const bool has = draftLists_.Inventory().has_value();
    DraftLists::Converted& converted = draftLists_.ConvertedLists();

    FollowInventory(*this, kPickableChampionsUri, had, has, converted.pickableChampions,
                    [this] { return ComputePickableChampions(); });

    // The bannable list needs a draft as well as an inventory.
    const Api::ChampionSelectStateV1* state = ChampSelectStateOf(incoming);
    if (state != nullptr && !(had && !has)) {
        if (has) {
            Maybe<Api::ChampSelectBannableChampions> bannable =
                ComputeBannableChampions(state->actionSetList);
            if (bannable) {
                PublishResource(
                    kBannableChampionsUri, *bannable,
                    had ? PluginResourceEventType::Update : PluginResourceEventType::Create);
            }
        }
    } else {
        DeleteResource(kBannableChampionsUri);
    }

    FollowInventory(*this, kDisabledChampionsUri, had, has, converted.disabledChampions,
                    [this] { return ComputeDisabledChampions(); });
    FollowInventory(*this, kPickableSkinsUri, had, has, converted.pickableSkins,
                    [this] { return ComputePickableSkins(); });
}

Maybe<Api::ChampSelectPickableChampions> LobbyTeamBuilderPlugin::ComputePickableChampions() const {
    const std::optional<Api::TbdInventory>& draftInventory = draftLists_.Inventory();
    if (!draftInventory) {
        return Failure(kNoPickableChampions, 404);
    }
    const std::vector<int32_t> disabled = Sorted(draftInventory->disabledChampionIds);
    Api::ChampSelectPickableChampions pickable;
    pickable.championIds.reserve(draftInventory->lastSelectedSkinIdByChampionId.size());
    for (const auto& [key, skinId] : draftInventory->lastSelectedSkinIdByChampionId) {
        Maybe<int32_t> championId = ChampionIdOf(key);
        if (!championId) {
            return std::move(championId).GetFailure();
        }
        if (!Contains(disabled, *championId)) {
            pickable.championIds.push_back(*championId);
        }
    }
    return pickable;
}

Maybe<Api::ChampSelectDisabledChampions> LobbyTeamBuilderPlugin::ComputeDisabledChampions() const {
    const std::optional<Api::TbdInventory>& draftInventory = draftLists_.Inventory();
    if (!draftInventory) {
        return Failure(kNoDisabledChampions, 404);
    }
    Api::ChampSelectDisabledChampions disabled;
    disabled.championIds = draftInventory->disabledChampionIds;
    return disabled;
}

Maybe<Api::ChampSelectPickableSkins> LobbyTeamBuilderPlugin::ComputePickableSkins() const {
    const std::optional<Api::TbdInventory>& draftInventory = draftLists_.Inventory();
    if (!draftInventory) {
        return Failure(kNoPickableSkins, 404);
    }
    Api::ChampSelectPickableSkins skins;
    skins.skinIds = draftInventory->skinIds;
    return skins;
}

Maybe<Api::ChampSelectBannableChampions> LobbyTeamBuilderPlugin::ComputeBannableChampions(
    const std::vector<Framework::BindingProperty>& actionSetList) const {
    return ComputeBannableChampions(actionSetList, draftLists_.AllowsOptingOutOfBanning());
}

Maybe<Api::ChampSelectBannableChampions> LobbyTeamBuilderPlugin::ComputeBannableChampions(
    const std::vector<Framework::BindingProperty>& actionSetList, bool allowOptingOut) const {
    const std::optional<Api::TbdInventory>& draftInventory = draftLists_.Inventory();
    if (!draftInventory) {
        return Failure(kNoBannableChampions, 404);
    }
    std::vector<int32_t> excluded = draftInventory->disabledChampionIds;
    for (const Framework::BindingProperty& set : actionSetList) {
        for (const Framework::BindingProperty& action : set.Elements()) {
            if (ReadActionField(Registry(), action, "type", std::string()) == "BAN" &&
                ReadActionField(Registry(), action, "completed", false)) {
                excluded.push_back(ReadActionField(Registry(), action, "championId", int32_t{0}));
            }
        }
    }
    excluded = Sorted(std::move(excluded));

    Api::ChampSelectBannableChampions bannable;
    bannable.championIds.reserve(draftInventory->allChampionIds.size() + 1);
    for (int32_t championId : draftInventory->allChampionIds) {
        if (!Contains(excluded, championId)) {
            bannable.championIds.push_back(championId);
        }
    }
    // -1 is the choice of banning nobody.
    if (allowOptingOut) {
        bannable.championIds.push_back(-1);
    }
    return bannable;
}

}  // namespace Orvan::Client::LobbyTeamBuilder
