// lldp: the agent's command line. `lldp decode` decodes captures and LLDPDU bytes offline.
#include <CLI/CLI.hpp>

#include <iostream>
#include <iterator>

#include "cli/Decode.h"
#include "cli/Render.h"
#include "platform/Log.h"

namespace {

constexpr int kBadInput = 2;

int runDecode(const std::string& file, const std::optional<std::string>& hexText, bool json) {
  std::string error;
  std::vector<Cli::Frame> frames;
  if (hexText) {
    std::string text = *hexText;
    if (text.empty() || text == "-") {
      text.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    }
    auto frame = Cli::parseHexFrame(text, error);
    if (!frame) {
      std::cerr << "lldp decode: " << error << "\n";
      return kBadInput;
    }
    frames.push_back(std::move(*frame));
  } else {
    auto read = Cli::readCapture(file, error);
    if (!read) {
      std::cerr << "lldp decode: " << error << "\n";
      return kBadInput;
    }
    frames = std::move(*read);
  }
  // Neighbour messages belong to the agent's log, not to an offline decode.
  Platform::logSinkIs([](const Platform::LogRecord&) {});
  const Cli::DecodeResult result = Cli::decodeFrames(frames);
  if (json) {
    std::cout << Platform::jsonText(Cli::decodeJson(result)) << "\n";
  } else {
    Cli::renderDecodeText(result, std::cout);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Command line of the LLDP agent."};
  app.require_subcommand(1);

  auto* decode = app.add_subcommand(
      "decode", "Decode LLDP frames from a pcap/pcapng capture, or LLDPDU bytes in hexadecimal, "
                "through the agent's receive path");
  std::string file;
  std::optional<std::string> hexText;
  bool json = false;
  decode->add_option("capture", file, "Capture file (pcap or pcapng)");
  decode->add_option("--hex", hexText,
                     "LLDPDU or Ethernet frame bytes in hexadecimal; '-' or no value reads standard input")
      ->expected(0, 1);
  decode->add_flag("--json", json, "Print JSON instead of text");

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    std::cerr << "lldp: " << e.what() << "\n";
    return kBadInput;
  }

  if (decode->parsed()) {
    const bool hexGiven = decode->count("--hex") > 0;
    if (hexGiven == !file.empty()) {
      std::cerr << "lldp decode: give either a capture file or --hex\n";
      return kBadInput;
    }
    if (hexGiven && !hexText) hexText = std::string();
    return runDecode(file, hexText, json);
  }
  return 0;
}
