// The log's levels, groups and its printf-style entry under the names the
// plugin's files use, declared once for all of them.
//
// Declarations only. Threads: as Framework::Log.
#pragma once

#include "framework/log/Log.h"

namespace Orvan::Client::LobbyTeamBuilder {

using Framework::kAlways;
using Framework::kError;
using Framework::kGroupDbg;
using Framework::kGroupGen;
using Framework::kOkay;
using Framework::kWarn;
using Framework::Log;

}  // namespace Orvan::Client::LobbyTeamBuilder
