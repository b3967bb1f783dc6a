// DraftLists: what the four champion lists of a draft remember between DTOs:
// the draft inventory (delivered with the ready check and repeated with every
// DTO of it and of the draft), the lists that follow it converted for
// publishing once per inventory, and whether banning nobody is allowed.
//
// Ownership: owned by value by the plugin. Threads: the host's thread.
#pragma once

#include <optional>
#include <utility>

#include "framework/binding/BindingProperty.h"
#include "teambuilder/common/LobbyRecords.h"

namespace Orvan::Client::LobbyTeamBuilder {

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

    bool AllowsOptingOutOfBanning() const { return allowOptingOutOfBanning_; }
    void KeepAllowsOptingOutOfBanning(bool allowed) { allowOptingOutOfBanning_ = allowed; }

private:
    std::optional<Api::TbdInventory> inventory_;
    Converted converted_;
    bool allowOptingOutOfBanning_ = false;
};

}  // namespace Orvan::Client::LobbyTeamBuilder
