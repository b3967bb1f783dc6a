// The draft inventory (what the player may pick, ban and wear in the coming
// draft, delivered with the ready check) and the four champion lists derived
// from it: pickable, bannable and disabled champions and pickable skins.
#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "framework/resources/ResourceEvents.h"
#include "framework/rest/RestArguments.h"
#include "teambuilder/champselect/ChampSelectResources.h"
#include "teambuilder/champselect/DecimalPrefix.h"
#include "teambuilder/champselect/DraftLists.h"
#include "teambuilder/champselect/RawActionFields.h"
#include "teambuilder/plugin/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

using Framework::Failure;
using Framework::Maybe;

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

// The change of one of the lists that follow the inventory: created when it
// appears, updated while it stays, deleted when it goes. A list that cannot
// be computed is left unpublished (and computed again with the next DTO);
// one that was computed and converted is kept until the inventory changes.
template <class Compute>
void FollowInventory(std::vector<DraftListChange>& out, std::string_view uri, bool had, bool has,
                     const std::optional<Framework::BindingProperty>& kept,
                     const Framework::BindingTypeRegistry& registry, Compute compute) {
    const ResourceEventType eventType = had ? ResourceEventType::Update : ResourceEventType::Create;
    if (has) {
        if (kept) {
            out.push_back(DraftListChange{uri, eventType, &*kept});
            return;
        }
        auto list = compute();
        if (!list) {
            return;
        }
        Maybe<Framework::BindingProperty> value = Framework::ToBindingValue(registry, *list);
        if (!value) {
            out.push_back(DraftListChange{uri, eventType, std::move(list).Value()});
            return;
        }
        out.push_back(DraftListChange{uri, eventType, std::move(value).Value()});
    } else if (had) {
        out.push_back(DraftListChange{uri, ResourceEventType::Delete, std::monostate()});
    }
}

const Api::TbdInventory* InventoryOf(const DraftLists& lists) {
    return lists.Inventory() ? &*lists.Inventory() : nullptr;
}

const Framework::BindingProperty* HeldProperty(const DraftListValue& value) {
    if (const auto* kept = std::get_if<const Framework::BindingProperty*>(&value)) {
        return *kept;
    }
    return std::get_if<Framework::BindingProperty>(&value);
}

}  // namespace

bool DraftListChange::operator==(const DraftListChange& other) const {
    if (uri != other.uri || type != other.type) {
        return false;
    }
    const Framework::BindingProperty* held = HeldProperty(value);
    const Framework::BindingProperty* otherHeld = HeldProperty(other.value);
    if (held != nullptr || otherHeld != nullptr) {
        return held != nullptr && otherHeld != nullptr && *held == *otherHeld;
    }
    return value == other.value;
}

DraftListsChanges::InventoryStep CheckDraftInventory(const std::optional<Api::TbdInventory>& kept,
                                                     const GameDtoRecord& incoming) {
    using Step = DraftListsChanges::InventoryStep;
    const std::string_view phase = incoming.Phase();
    if (!incoming.HasDto() || phase == kPhaseDraftPremade || phase == kPhaseMatchmaking) {
        return Step::Drop;
    }
    if (incoming.dto->afkCheckState &&
        !incoming.dto->afkCheckState->inventoryDraft.lastSelectedSkinIdByChampionId.empty()) {
        // The service repeats the inventory with every DTO of the ready check.
        const Api::TbdInventory& inventory = incoming.dto->afkCheckState->inventoryDraft;
        if (!kept || !SameInventory(*kept, inventory)) {
            return Step::Adopt;
        }
    }
    return Step::Keep;
}

DraftListsChanges CheckDraftLists(const DraftLists& previous, const GameDtoRecord& incoming,
                                  const Framework::BindingTypeRegistry& registry) {
    using Step = DraftListsChanges::InventoryStep;
    DraftListsChanges result;
    result.inventory = CheckDraftInventory(previous.Inventory(), incoming);
    const bool had = previous.Inventory().has_value();
    // Computed from where it is, the incoming record's or the kept one: an
    // adopted inventory is copied once, when it is kept.
    const Api::TbdInventory* inventory = had ? &*previous.Inventory() : nullptr;
    if (result.inventory == Step::Drop) {
        inventory = nullptr;
    } else if (result.inventory == Step::Adopt) {
        inventory = &incoming.dto->afkCheckState->inventoryDraft;
    }
    const bool has = inventory != nullptr;
    // Lists converted for an inventory that is replaced are converted again.
    static const DraftLists::Converted kNothingConverted;
    const DraftLists::Converted& kept =
        result.inventory == Step::Keep ? previous.ConvertedLists() : kNothingConverted;
    std::vector<DraftListChange>& out = result.changes;

    FollowInventory(out, kPickableChampionsUri, had, has, kept.pickableChampions, registry,
                    [&] { return ComputePickableChampions(inventory); });

    // The bannable list needs a draft as well as an inventory.
    const Api::ChampionSelectStateV1* state = ChampSelectStateOf(incoming);
    if (state != nullptr && !(had && !has)) {
        if (has) {
            Maybe<Api::ChampSelectBannableChampions> bannable = ComputeBannableChampions(
                inventory, state->actionSetList, previous.AllowsOptingOutOfBanning(), registry);
            if (bannable) {
                out.push_back(
                    DraftListChange{kBannableChampionsUri,
                                    had ? ResourceEventType::Update : ResourceEventType::Create,
                                    std::move(bannable).Value()});
            }
        }
    } else {
        out.push_back(
            DraftListChange{kBannableChampionsUri, ResourceEventType::Delete, std::monostate()});
    }

    FollowInventory(out, kDisabledChampionsUri, had, has, kept.disabledChampions, registry,
                    [&] { return ComputeDisabledChampions(inventory); });
    FollowInventory(out, kPickableSkinsUri, had, has, kept.pickableSkins, registry,
                    [&] { return ComputePickableSkins(inventory); });
    return result;
}

void DraftLists::Keep(DraftListsChanges&& changes, const GameDtoRecord& incoming) {
    using Step = DraftListsChanges::InventoryStep;
    if (changes.inventory == Step::Drop) {
        SetInventory(std::nullopt);
    } else if (changes.inventory == Step::Adopt) {
        SetInventory(incoming.dto->afkCheckState->inventoryDraft);
    }
    for (DraftListChange& change : changes.changes) {
        auto* value = std::get_if<Framework::BindingProperty>(&change.value);
        if (value == nullptr) {
            continue;
        }
        if (change.uri == kPickableChampionsUri) {
            converted_.pickableChampions = std::move(*value);
        } else if (change.uri == kDisabledChampionsUri) {
            converted_.disabledChampions = std::move(*value);
        } else if (change.uri == kPickableSkinsUri) {
            converted_.pickableSkins = std::move(*value);
        }
    }
}

void LobbyTeamBuilderPlugin::PublishDraftLists(const DraftListsChanges& changes) {
    for (const DraftListChange& change : changes.changes) {
        if (change.type == ResourceEventType::Delete) {
            DeleteResource(change.uri);
            continue;
        }
        std::visit(
            [&](const auto& value) {
                using T = std::decay_t<decltype(value)>;
                if constexpr (std::is_same_v<T, const Framework::BindingProperty*>) {
                    PublishResourceValue(change.uri, change.type, *value);
                } else if constexpr (std::is_same_v<T, Framework::BindingProperty>) {
                    PublishResourceValue(change.uri, change.type, value);
                } else if constexpr (!std::is_same_v<T, std::monostate>) {
                    // Converts it, or reports the failure as any other
                    // resource that does not convert.
                    PublishResource(change.uri, value, change.type);
                }
            },
            change.value);
    }
}

Maybe<Api::ChampSelectPickableChampions> ComputePickableChampions(
    const Api::TbdInventory* draftInventory) {
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

Maybe<Api::ChampSelectDisabledChampions> ComputeDisabledChampions(
    const Api::TbdInventory* draftInventory) {
    if (!draftInventory) {
        return Failure(kNoDisabledChampions, 404);
    }
    Api::ChampSelectDisabledChampions disabled;
    disabled.championIds = draftInventory->disabledChampionIds;
    return disabled;
}

Maybe<Api::ChampSelectPickableSkins> ComputePickableSkins(const Api::TbdInventory* draftInventory) {
    if (!draftInventory) {
        return Failure(kNoPickableSkins, 404);
    }
    Api::ChampSelectPickableSkins skins;
    skins.skinIds = draftInventory->skinIds;
    return skins;
}

Maybe<Api::ChampSelectBannableChampions> ComputeBannableChampions(
    const Api::TbdInventory* draftInventory,
    const std::vector<Framework::BindingProperty>& actionSetList, bool allowOptingOut,
    const Framework::BindingTypeRegistry& registry) {
    if (!draftInventory) {
        return Failure(kNoBannableChampions, 404);
    }
    std::vector<int32_t> excluded = draftInventory->disabledChampionIds;
    for (const Framework::BindingProperty& set : actionSetList) {
        for (const Framework::BindingProperty& action : set.Elements()) {
            if (ReadActionField(registry, action, "type", std::string()) == "BAN" &&
                ReadActionField(registry, action, "completed", false)) {
                excluded.push_back(ReadActionField(registry, action, "championId", int32_t{0}));
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

Maybe<Api::ChampSelectPickableChampions> LobbyTeamBuilderPlugin::ComputePickableChampions() const {
    return LobbyTeamBuilder::ComputePickableChampions(InventoryOf(draftLists_));
}

Maybe<Api::ChampSelectDisabledChampions> LobbyTeamBuilderPlugin::ComputeDisabledChampions() const {
    return LobbyTeamBuilder::ComputeDisabledChampions(InventoryOf(draftLists_));
}

Maybe<Api::ChampSelectPickableSkins> LobbyTeamBuilderPlugin::ComputePickableSkins() const {
    return LobbyTeamBuilder::ComputePickableSkins(InventoryOf(draftLists_));
}

Maybe<Api::ChampSelectBannableChampions> LobbyTeamBuilderPlugin::ComputeBannableChampions(
    const std::vector<Framework::BindingProperty>& actionSetList) const {
    return ComputeBannableChampions(actionSetList, draftLists_.AllowsOptingOutOfBanning());
}

Maybe<Api::ChampSelectBannableChampions> LobbyTeamBuilderPlugin::ComputeBannableChampions(
    const std::vector<Framework::BindingProperty>& actionSetList, bool allowOptingOut) const {
    return LobbyTeamBuilder::ComputeBannableChampions(InventoryOf(draftLists_), actionSetList,
                                                      allowOptingOut, Registry());
}

}  // namespace Orvan::Client::LobbyTeamBuilder
