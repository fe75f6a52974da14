// The options of `lldp decode`, shared by `lldp` (help, checks) and the decoder it runs.
#pragma once

#include <CLI/CLI.hpp>

#include <optional>
#include <string>
#include <vector>

namespace Cli {

struct DecodeArgs {
  std::string file;
  std::optional<std::string> hexText;  // set (maybe empty: standard input) when --hex was given
  bool json = false;
};

inline void addDecodeOptions(CLI::App& decode, DecodeArgs& args) {
  decode.add_option("capture", args.file, "Capture file (pcap or pcapng)");
  decode.add_option("--hex", args.hexText,
                    "LLDPDU or Ethernet frame bytes in hexadecimal; '-' or no value reads standard input")
      ->expected(0, 1);
  decode.add_flag("--json", args.json, "Print JSON instead of text");
}

// After parsing: exactly one source. An empty or "-" hex text means standard input.
inline bool decodeArgsComplete(const CLI::App& decode, DecodeArgs& args) {
  const bool hexGiven = decode.count("--hex") > 0;
  if (hexGiven == !args.file.empty()) return false;
  if (hexGiven && (!args.hexText || *args.hexText == "-")) args.hexText = std::string();
  return true;
}

// The same request as arguments for the decoder.
inline std::vector<std::string> decodeArgv(const DecodeArgs& args) {
  std::vector<std::string> argv;
  if (args.json) argv.push_back("--json");
  if (args.hexText) {
    argv.push_back(args.hexText->empty() ? "--hex" : "--hex=" + *args.hexText);
  } else {
    argv.push_back("--");
    argv.push_back(args.file);
  }
  return argv;
}

inline constexpr const char* kDecodeUsageError =
    "lldp decode: give either a capture file or --hex (see 'lldp decode --help')";

}  // namespace Cli
