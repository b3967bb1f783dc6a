// The team-builder service's feature toggles, served to the lobby screen and
// fetched again whenever a lobby is created.
#include "framework/binding/BindingProperty.h"
#include "teambuilder/plugin/LobbyTeamBuilderPlugin.h"

namespace Orvan::Client::LobbyTeamBuilder {

using Framework::Failure;
using Framework::Maybe;

Maybe<Api::TbEnabledFeatures> LobbyTeamBuilderPlugin::RetrieveFeatureToggles() {
    // The service answers this one by a message of its own rather than under
    // the request's uuid.
    Maybe<Api::TbEnabledFeatures> features = teamBuilder_.Call<Api::TbEnabledFeatures>(
        "retrieveFeatureToggles", Framework::BindingProperty(), "featureTogglesRetrieved");
    if (!features) {
        return Failure("Unable to retrieve feature toggles... Probably couldn't reach TB Service.",
                       503);
    }
    return features;
}

}  // namespace Orvan::Client::LobbyTeamBuilder
