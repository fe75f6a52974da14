// lldp: the agent's command line. It asks the running agent through its socket; `lldp decode`
// decodes captures and LLDPDU bytes offline, through lldp-decode.
#include <CLI/CLI.hpp>

#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>

#include <iostream>
#include <iterator>

#include "cli/Commands.h"
#include "cli/Completion.h"
#include "cli/DecodeArgs.h"
#include "cli/Render.h"
#include "daemon/Version.h"
#include "platform/Log.h"

namespace {

constexpr int kBadInput = 2;

// Runs a helper program installed beside this one (or where the package puts it) with words
// as its arguments; returns only when it cannot.
int runHelper(const char* name, std::string program, std::vector<std::string> words, const char* command) {
  char self[4096];
  const ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
  if (n > 0) {
    std::string beside(self, static_cast<size_t>(n));
    beside = beside.substr(0, beside.rfind('/') + 1) + name;
    if (::access(beside.c_str(), X_OK) == 0) program = beside;
  }
  words.insert(words.begin(), name);
  std::vector<char*> argv;
  for (std::string& w : words) argv.push_back(w.data());
  argv.push_back(nullptr);
  std::cout.flush();
  ::execv(program.c_str(), argv.data());
  std::cerr << command << ": cannot run " << program << ": " << std::strerror(errno) << "\n";
  return 1;
}

// `lldp decode` runs lldp-decode with the request as parsed here.
int runDecoder(const Cli::DecodeArgs& args) {
  return runHelper("lldp-decode", LLDP_DECODER, Cli::decodeArgv(args), "lldp decode");
}

// Splits "[interface IFACE] KEY [VALUE]" into its parts; false when the count is wrong. With
// keyOptional, "interface IFACE" alone names the interface's whole section.
bool keyArgs(std::vector<std::string> args, size_t values, bool keyOptional, std::string& intf, std::string& key,
             std::string& value) {
  if (args.size() == 1 && args[0] == "interface") return false;  // no key is called so: IFACE is missing
  if (args.size() >= 2 && args[0] == "interface") {
    intf = args[1];
    args.erase(args.begin(), args.begin() + 2);
    if (keyOptional && args.empty()) return true;
  }
  if (args.size() != 1 + values) return false;
  key = args[0];
  if (values) value = args[1];
  return true;
}

// The command as far as it was given, as "lldp show".
std::string commandOf(const CLI::App& app) {
  std::string out = "lldp";
  const CLI::App* at = &app;
  for (;;) {
    const auto subs = at->get_subcommands();
    if (subs.empty()) return out;
    at = subs.front();
    out += " " + at->get_name();
  }
}

// One line: what is wrong with the command line, and where help for it is.
std::string usageError(const CLI::App& app, const CLI::ParseError& e) {
  const std::string command = commandOf(app);
  const CLI::App* at = &app;
  while (!at->get_subcommands().empty()) at = at->get_subcommands().front();
  std::string what = e.what();
  if (at == &app && what.find("was not expected: ") != std::string::npos) {
    // A first word that is no command.
    std::string names;
    for (const CLI::App* sub : app.get_subcommands({})) names += (names.empty() ? "" : ", ") + sub->get_name();
    what = "unknown command '" + what.substr(what.find("was not expected: ") + 18) + "'; the commands are: " + names;
  } else if (what.find("subcommand is required") != std::string::npos) {
    std::string names;
    for (const CLI::App* sub : at->get_subcommands({})) names += (names.empty() ? "" : ", ") + sub->get_name();
    // A word that is no command of a subcommand stays with the whole command line.
    auto extra = at->remaining();
    if (extra.empty()) extra = app.remaining();
    what = extra.empty() ? "a command is needed: " + names
                         : "unknown command '" + extra.front() + "'; the commands are: " + names;
  } else if (!what.empty()) {
    what[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(what[0])));
  }
  return command + ": " + what + " (see '" + command + " --help')";
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Command line of the LLDP agent: show neighbours and state, change the configuration, watch "
               "changes. It reaches the agent at its socket (--socket, LLDP_SOCKET, or " +
               std::string(Cli::SocketQuery::kDefaultSocket) + ")."};
  app.require_subcommand(0, 1);
  app.fallthrough();  // --socket and --json also after the command; inherited by every command
  std::string socketPath;
  bool agentJson = false;
  bool version = false;
  app.add_option("--socket", socketPath, "The agent's socket (default: LLDP_SOCKET, or " +
                                             std::string(Cli::SocketQuery::kDefaultSocket) + ")");
  app.add_flag("--json", agentJson, "Print JSON (schema 1) instead of text");
  app.add_flag("--version", version, "Print the version and exit");

  auto* show = app.add_subcommand("show", "Show the agent's state")->require_subcommand(1);
  std::vector<std::string> intfs;
  bool detail = false;
  auto* showNeighbors = show->add_subcommand("neighbors", "Neighbours learnt, per interface");
  showNeighbors->alias("neighbours");
  showNeighbors->add_option("interfaces", intfs, "Only these interfaces");
  showNeighbors->add_flag("--detail", detail, "Every field each neighbour advertised");
  auto* showInterfaces = show->add_subcommand("interfaces", "What each port sends, its state and counters");
  showInterfaces->add_option("interfaces", intfs, "Only these interfaces");
  auto* showLocal = show->add_subcommand("local", "What this system advertises");
  auto* showStatistics = show->add_subcommand("statistics", "Frame and TLV counters per interface");
  showStatistics->add_option("interfaces", intfs, "Only these interfaces");
  auto* showConfig = show->add_subcommand("config", "The running configuration, as the file holds it");
  auto* showClassification = show->add_subcommand("classification", "Neighbours classified as telephones");
  auto* showStatus = show->add_subcommand("status", "Version, uptime, ports, neighbours and counters");

  std::vector<std::string> keyArgsList;
  auto* configure = app.add_subcommand("configure", "Change one setting: [interface IFACE] KEY VALUE");
  configure->add_option("setting", keyArgsList, "[interface IFACE] KEY VALUE (the keys: lldp-agent --config-keys)");
  auto* unconfigure = app.add_subcommand(
      "unconfigure", "Put one setting back to its default: [interface IFACE] KEY, or remove an interface's settings: "
                     "interface IFACE");
  unconfigure->add_option("setting", keyArgsList, "[interface IFACE] KEY, or interface IFACE");
  auto* config = app.add_subcommand("config", "The configuration file")->require_subcommand(1);
  auto* configSave = config->add_subcommand("save", "Write the running configuration to the file");
  auto* clear = app.add_subcommand("clear", "Clear state")->require_subcommand(1);
  auto* clearNeighbors = clear->add_subcommand("neighbors", "Forget the neighbours of one interface, or of all");
  clearNeighbors->alias("neighbours");
  std::string clearIntf;
  clearNeighbors->add_option("interface", clearIntf, "Only this interface's neighbours");
  auto* tlv = app.add_subcommand("tlv", "Send TLVs of your own, as an external TLV client")->require_subcommand(1);
  std::string client = "lldp-cli", tlvIntf, oui, tlvValue;
  unsigned subtype = 0, tlvIndex = 0;
  auto* tlvAdd = tlv->add_subcommand("add", "Add one organisationally specific TLV on an interface");
  tlvAdd->add_option("--client", client, "Client name the TLVs belong to")->capture_default_str();
  tlvAdd->add_option("interface", tlvIntf, "Interface")->required();
  tlvAdd->add_option("oui", oui, "OUI, as 00-12-BB")->required();
  tlvAdd->add_option("subtype", subtype, "Subtype, 0 to 255")->required()->check(CLI::Range(0, 255));
  tlvAdd->add_option("value", tlvValue, "Information, hexadecimal bytes")->required();
  auto* tlvDel = tlv->add_subcommand(
      "del", "Remove a client's TLVs of one OUI and subtype on an interface (one index, or all), or the whole client");
  tlvDel->add_option("--client", client, "Client name")->capture_default_str();
  tlvDel->add_option("interface", tlvIntf, "Interface (without it, every TLV of the client goes)");
  tlvDel->add_option("oui", oui, "OUI, as 00-12-BB");
  tlvDel->add_option("subtype", subtype, "Subtype, 0 to 255")->check(CLI::Range(0, 255));
  tlvDel->add_option("index", tlvIndex, "Index, 1 to 65535 (without it, all of this OUI and subtype)")
      ->check(CLI::Range(1, 65535));
  auto* watch = app.add_subcommand("watch", "Print neighbour changes as they happen, with their reasons and times");
  auto* completion = app.add_subcommand("completion", "Print the bash completion script");

  auto* decode = app.add_subcommand(
      "decode", "Decode LLDP frames from a pcap/pcapng capture, or LLDPDU bytes in hexadecimal, "
                "through the agent's receive path");
  Cli::DecodeArgs decodeArgs;
  Cli::addDecodeOptions(*decode, decodeArgs);

  // `lldp topology` is lldp-topology, which reads its own options (and answers --help).
  auto* topology = app.add_subcommand("topology", "The links of a fleet from Prometheus, or of this host, as a "
                                                  "table, JSON, DOT or SVG; `topology check` compares the cabling "
                                                  "with the intended wiring (see 'lldp topology --help')");
  (void)topology;  // listed in --help; run before parsing, below

  // `lldp [--socket PATH] [--json] topology ARGS...`: everything after the word is lldp-topology's.
  bool topologyJson = false;
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = argv[i];
    if (word == "--json") {
      topologyJson = true;
      continue;
    }
    if (word == "--socket" && i + 1 < argc) {
      socketPath = argv[++i];
      continue;
    }
    if (word.starts_with("--socket=")) {
      socketPath = std::string(word.substr(9));
      continue;
    }
    if (word != "topology") break;
    std::vector<std::string> words(argv + i + 1, argv + argc);
    if (!socketPath.empty()) words.insert(words.end(), {"--socket", socketPath});
    if (topologyJson) words.emplace_back("--json");
    return runHelper("lldp-topology", LLDP_TOPOLOGY, std::move(words), "lldp topology");
  }

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    std::cerr << usageError(app, e) << "\n";
    return kBadInput;
  }

  if (version) {
    std::cout << "lldp " << Daemon::kVersion << "\n";
    return 0;
  }
  if (app.get_subcommands().empty()) {
    std::cerr << "lldp: a command is needed: show, configure, unconfigure, config, clear, tlv, watch, decode, "
                 "completion (see 'lldp --help')\n";
    return kBadInput;
  }
  if (decode->parsed()) {
    decodeArgs.json = decodeArgs.json || agentJson;
    if (!Cli::decodeArgsComplete(*decode, decodeArgs)) {
      std::cerr << Cli::kDecodeUsageError << "\n";
      return kBadInput;
    }
    return runDecoder(decodeArgs);
  }
  if (completion->parsed()) {
    std::cout << Cli::bashCompletion();
    return 0;
  }

  Cli::SocketQuery agent(Cli::SocketQuery::socketPath(socketPath));
  Cli::Context context{agent, std::cout, std::cerr, agentJson, ::isatty(STDOUT_FILENO) == 1};
  if (showNeighbors->parsed()) return Cli::showNeighbors(context, intfs, detail);
  if (showInterfaces->parsed()) return Cli::showInterfaces(context, intfs);
  if (showLocal->parsed()) return Cli::showLocal(context);
  if (showStatistics->parsed()) return Cli::showStatistics(context, intfs);
  if (showConfig->parsed()) return Cli::showConfig(context);
  if (showClassification->parsed()) return Cli::showClassification(context);
  if (showStatus->parsed()) return Cli::showStatus(context);
  if (configure->parsed() || unconfigure->parsed()) {
    std::string intf, key, value;
    const bool setting = configure->parsed();
    if (!keyArgs(keyArgsList, setting ? 1 : 0, !setting, intf, key, value)) {
      const char* name = setting ? "configure" : "unconfigure";
      std::cerr << "lldp " << name << ": expected "
                << (setting ? "[interface IFACE] KEY VALUE" : "[interface IFACE] KEY, or interface IFACE")
                << " (see 'lldp " << name << " --help')\n";
      return kBadInput;
    }
    return setting ? Cli::configure(context, intf, key, value) : Cli::unconfigure(context, intf, key);
  }
  if (configSave->parsed()) return Cli::configSave(context);
  if (clearNeighbors->parsed()) return Cli::clearNeighbors(context, clearIntf);
  if (tlvAdd->parsed()) return Cli::tlvAdd(context, client, tlvIntf, oui, subtype, tlvValue);
  if (tlvDel->parsed()) {
    if (!tlvIntf.empty() && (oui.empty() || tlvDel->count("subtype") == 0)) {
      std::cerr << "lldp tlv del: expected [IFACE OUI SUBTYPE [INDEX]] (see 'lldp tlv del --help')\n";
      return kBadInput;
    }
    return Cli::tlvDel(context, client, tlvIntf, oui, subtype, tlvIndex);
  }
  if (watch->parsed()) return Cli::watch(context);
  return 0;
}
