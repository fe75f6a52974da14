// lldp-topology, run by `lldp topology`: the links of a fleet from Prometheus (or of one agent
// from its socket) as a table, JSON, DOT or SVG, and the check of the cabling against the
// intended wiring. Kept out of `lldp` so that its HTTP and Graphviz libraries load only here.
#include <CLI/CLI.hpp>

#include <unistd.h>

#include <fstream>
#include <iostream>
#include <sstream>

#include "cli/TopologyQuery.h"
#include "cli/TopologyRender.h"
#include "platform/Json.h"

namespace {

constexpr int kExitOk = 0;
constexpr int kExitMismatch = 1;
constexpr int kExitTrouble = 2;

struct Args {
  std::string prometheus;
  std::string selector;
  std::string socket;
  std::string format = "table";
  std::string output;
  std::string expected;
  bool json = false;
};

std::optional<Cli::FleetReport> fleet(const Args& args, std::string& error) {
  if (!args.prometheus.empty()) return Cli::prometheusFleet(args.prometheus, args.selector, error);
  const std::string path = Cli::SocketQuery::socketPath(args.socket);
  Cli::SocketQuery agent(path);
  return Cli::agentFleet(agent, path, error);
}

bool writeOut(const Args& args, const std::string& text) {
  if (args.output.empty() || args.output == "-") {
    std::cout << text;
    return true;
  }
  std::ofstream out(args.output, std::ios::binary | std::ios::trunc);
  out << text;
  out.close();
  if (!out) {
    std::cerr << "lldp topology: cannot write " << args.output << "\n";
    return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"The links between hosts, each once with both ends, from the lldp_neighbor_info series a "
               "Prometheus server scraped from every agent of a fleet (--prometheus), or from this host's "
               "agent. Hosts that only their neighbors report are marked; so are links only one end reports.",
               "lldp topology"};
  Args args;
  auto source = [&](CLI::App* sub) {
    sub->add_option("--prometheus", args.prometheus, "Prometheus server, as http://prometheus:9090");
    sub->add_option("--selector", args.selector, "Label selector for both queries, as {job=\"lldp\"}");
    sub->add_option("--socket", args.socket, "The agent's socket, without --prometheus (default: LLDP_SOCKET, or " +
                                                 std::string(Cli::SocketQuery::kDefaultSocket) + ")");
  };
  source(&app);
  app.add_option("--format", args.format, "table, json, dot, svg, or wiring (the links as `check` reads them)")
      ->check(CLI::IsMember({"table", "json", "dot", "svg", "wiring"}))
      ->capture_default_str();
  app.add_flag("--json", args.json, "The same as --format json");
  app.add_option("-o,--output", args.output, "Write to this file instead of standard output");
  auto* check = app.add_subcommand(
      "check", "Compare the links found with the intended wiring: a DOT file of edges \"leaf1\":\"swp1\" -- "
               "\"spine1\":\"swp3\". Each expected link is ok, missing or wrong-peer; links found that are not "
               "expected are listed. Exit status 0 only when everything matches, 1 when not, 2 on trouble.");
  check->add_option("expected", args.expected, "The intended wiring (DOT)")->required();
  check->add_flag("--json", args.json, "Print JSON (schema 1) instead of text");
  source(check);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == 0) return app.exit(e);
    std::cerr << "lldp topology: " << e.what() << " (see 'lldp topology --help')\n";
    return kExitTrouble;
  }
  if (args.json) args.format = "json";

  std::vector<Cli::ExpectedLink> expected;
  if (check->parsed()) {
    std::ifstream in(args.expected, std::ios::binary);
    if (!in) {
      std::cerr << "lldp topology check: cannot read " << args.expected << "\n";
      return kExitTrouble;
    }
    std::stringstream text;
    text << in.rdbuf();
    std::string error;
    auto links = Cli::wiringOf(text.str(), error);
    if (!links) {
      std::cerr << "lldp topology check: " << args.expected << ": " << error << "\n";
      return kExitTrouble;
    }
    expected = std::move(*links);
  }

  std::string error;
  auto report = fleet(args, error);
  if (!report) {
    std::cerr << "lldp topology: " << error << "\n";
    return kExitTrouble;
  }
  const Cli::Topology topology = Cli::topologyOf(*report);

  if (check->parsed()) {
    const Cli::WiringCheck result = Cli::checkWiring(expected, topology);
    if (args.json) {
      std::cout << Platform::jsonText(Cli::checkJson(result), ::isatty(STDOUT_FILENO) ? 2 : -1) << "\n";
    } else {
      Cli::renderCheckText(result, std::cout);
    }
    return result.ok() ? kExitOk : kExitMismatch;
  }

  if (args.format == "json") {
    return writeOut(args, Platform::jsonText(Cli::topologyJson(topology), ::isatty(STDOUT_FILENO) ? 2 : -1) + "\n")
               ? kExitOk
               : kExitTrouble;
  }
  if (args.format == "dot") return writeOut(args, Cli::topologyDot(topology)) ? kExitOk : kExitTrouble;
  if (args.format == "wiring") return writeOut(args, Cli::wiringDot(topology)) ? kExitOk : kExitTrouble;
  if (args.format == "svg") {
    auto svg = Cli::svgOf(Cli::topologyDot(topology), error);
    if (!svg) {
      std::cerr << "lldp topology: " << error << "\n";
      return kExitTrouble;
    }
    return writeOut(args, *svg) ? kExitOk : kExitTrouble;
  }
  std::ostringstream table;
  Cli::renderTopologyTable(topology, table);
  return writeOut(args, table.str()) ? kExitOk : kExitTrouble;
}
