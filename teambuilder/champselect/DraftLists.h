// DraftLists: what the four champion lists of a draft remember between DTOs:
// the draft inventory (delivered with the ready check and repeated with every
// DTO of it and of the draft), the lists that follow it converted for
// publishing once per inventory, and whether banning nobody is allowed.
//
// Ownership: owned by value by the plugin. Threads: the host's thread.
#pragma once

#include <optional>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "framework/binding/BindingProperty.h"
#include "framework/binding/Failure.h"
#include "teambuilder/common/GameDtoRecord.h"
#include "teambuilder/common/IntakeChanges.h"
#include "teambuilder/common/LobbyRecords.h"

namespace Orvan::Framework {
class BindingTypeRegistry;
}

namespace Orvan::Client::LobbyTeamBuilder {

// What a change of one of the four lists publishes. A list that follows the
// inventory is published from its converted value: the one the lists kept
// from an earlier DTO (pointed at, so a repeated DTO copies nothing), or the
// one converted with this DTO (kept afterwards). The bannable list depends on
// the draft's bans too and is converted as it is published. A list that does
// not convert travels as its record so that publishing it reports the failure.
using DraftListValue =
    std::variant<std::monostate, const Framework::BindingProperty*, Framework::BindingProperty,
                 Api::ChampSelectBannableChampions, Api::ChampSelectPickableChampions,
                 Api::ChampSelectDisabledChampions, Api::ChampSelectPickableSkins>;

// A Create, Update or Delete event of one of the four lists.
struct DraftListChange {
    std::string_view uri;
    ResourceEventType type = ResourceEventType::Update;
    DraftListValue value;

    // Kept and newly converted values compare by what they hold, so a test
    // states either as the value published.
    bool operator==(const DraftListChange& other) const;
};

// What one DTO changes of the lists: the events in the order they are
// published, and what happens to the inventory they follow.
struct DraftListsChanges {
    enum class InventoryStep { Keep, Drop, Adopt };
    InventoryStep inventory = InventoryStep::Keep;
    std::vector<DraftListChange> changes;
};

class DraftLists {
public:
    // The lists that follow the inventory, converted for publishing; emptied
    // whenever the inventory changes.
    struct Converted {
        std::optional<Framework::BindingProperty> pickableChampions;
        std::optional<Framework::BindingProperty> disabledChampions;
        std::optional<Framework::BindingProperty> pickableSkins;
    };

    const std::optional<Api::TbdInventory>& Inventory() const { return inventory_; }
    // Takes a new inventory, or none; the converted lists go with the old.
    void SetInventory(std::optional<Api::TbdInventory> inventory) {
        inventory_ = std::move(inventory);
        converted_ = {};
    }
    Converted& ConvertedLists() { return converted_; }
    const Converted& ConvertedLists() const { return converted_; }

    // Adopts what a DTO changed, after the changes were published: the
    // inventory the record brought (or none) and the lists converted for it.
    void Keep(DraftListsChanges&& changes, const GameDtoRecord& incoming);

    bool AllowsOptingOutOfBanning() const { return allowOptingOutOfBanning_; }
    void KeepAllowsOptingOutOfBanning(bool allowed) { allowOptingOutOfBanning_ = allowed; }

private:
    std::optional<Api::TbdInventory> inventory_;
    Converted converted_;
    bool allowOptingOutOfBanning_ = false;
};

// The inventory a record leaves the lists following: dropped back in the
// lobby or searching again (the next ready check brings a new one), replaced
// when the ready check repeats a different one, kept otherwise.
DraftListsChanges::InventoryStep CheckDraftInventory(const std::optional<Api::TbdInventory>& kept,
                                                     const GameDtoRecord& incoming);

// The four lists' changes from the lists as kept to the incoming record, in
// the order they are published. Changes nothing.
DraftListsChanges CheckDraftLists(const DraftLists& previous, const GameDtoRecord& incoming,
                                  const Framework::BindingTypeRegistry& registry);

// The lists as computed from an inventory (null: the route's 404).
Framework::Maybe<Api::ChampSelectPickableChampions> ComputePickableChampions(
    const Api::TbdInventory* inventory);
Framework::Maybe<Api::ChampSelectDisabledChampions> ComputeDisabledChampions(
    const Api::TbdInventory* inventory);
Framework::Maybe<Api::ChampSelectPickableSkins> ComputePickableSkins(
    const Api::TbdInventory* inventory);
Framework::Maybe<Api::ChampSelectBannableChampions> ComputeBannableChampions(
    const Api::TbdInventory* inventory,
    const std::vector<Framework::BindingProperty>& actionSetList, bool allowOptingOut,
    const Framework::BindingTypeRegistry& registry);

}  // namespace Orvan::Client::LobbyTeamBuilder
