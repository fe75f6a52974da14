// lldp-decode: what `lldp decode` runs. Kept apart so that the capture and OID libraries load
// only when something is decoded, not each time `lldp` asks the agent.
#include <iostream>
#include <iterator>

#include "cli/Decode.h"
#include "cli/DecodeArgs.h"
#include "cli/Render.h"
#include "platform/Json.h"
#include "platform/Log.h"

namespace {

constexpr int kBadInput = 2;

int runDecode(const Cli::DecodeArgs& args) {
  std::string error;
  std::vector<Cli::Frame> frames;
  if (args.hexText) {
    std::string text = *args.hexText;
    if (text.empty()) text.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    auto frame = Cli::parseHexFrame(text, error);
    if (!frame) {
      std::cerr << "lldp decode: " << error << "\n";
      return kBadInput;
    }
    frames.push_back(std::move(*frame));
  } else {
    auto read = Cli::readCapture(args.file, error);
    if (!read) {
      std::cerr << "lldp decode: " << error << "\n";
      return kBadInput;
    }
    frames = std::move(*read);
  }
  // Neighbour messages belong to the agent's log, not to an offline decode.
  Platform::logSinkIs([](const Platform::LogRecord&) {});
  const Cli::DecodeResult result = Cli::decodeFrames(frames);
  if (args.json) {
    std::cout << Platform::jsonText(Cli::decodeJson(result)) << "\n";
  } else {
    Cli::renderDecodeText(result, std::cout);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Decode LLDP frames from a pcap/pcapng capture, or LLDPDU bytes in hexadecimal, through the "
               "agent's receive path (run by 'lldp decode')",
               "lldp decode"};
  Cli::DecodeArgs args;
  Cli::addDecodeOptions(app, args);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e);
  }
  if (!Cli::decodeArgsComplete(app, args)) {
    std::cerr << Cli::kDecodeUsageError << "\n";
    return kBadInput;
  }
  return runDecode(args);
}
