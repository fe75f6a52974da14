// Rendering of `lldp` results for people (text) and programs (JSON): one model, two views.
#pragma once

#include <ostream>

#include "cli/Decode.h"
#include "platform/Json.h"

namespace Cli {

nlohmann::ordered_json decodeJson(const DecodeResult& result);
void renderDecodeText(const DecodeResult& result, std::ostream& out);

const char* chassisSubtypeName(uint8_t subtype);
const char* portSubtypeName(uint8_t subtype);
// Capability bits by name, comma separated ("none" for none).
std::string capabilityNames(uint16_t caps);

// One neighbour, every field it advertised, for people.
void renderRemoteSystemText(const Lldp::RemoteSystem& rs, std::ostream& out);

}  // namespace Cli
