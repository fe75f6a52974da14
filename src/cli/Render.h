// Rendering of `lldp` results for people (text) and programs (JSON): one model, two views.
#pragma once

#include <ostream>

#include "cli/Decode.h"
#include "cli/Detail.h"
#include "platform/Json.h"

namespace Cli {

nlohmann::ordered_json decodeJson(const DecodeResult& result);
void renderDecodeText(const DecodeResult& result, std::ostream& out);

// One neighbour, every field it advertised, for people.
void renderRemoteSystemText(const Lldp::RemoteSystem& rs, std::ostream& out);

}  // namespace Cli
