// Text views of the `lldp show` models: aligned tables and detail blocks for people.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "cli/Model.h"

namespace Cli {

// Columns as wide as their widest cell; the last column is not padded. Every cell is escaped
// (names and descriptions come from neighbours), and measured as a terminal shows it.
class Table {
 public:
  Table() = default;
  explicit Table(std::vector<std::string> header) { rowIs(std::move(header)); }
  void rowIs(std::vector<std::string> row);
  void print(std::ostream& out) const;

 private:
  std::vector<std::vector<std::string>> rows_;
};

void renderNeighbors(const std::vector<NeighborRow>& rows, std::ostream& out);
// The neighbours of a full "neighbors" reply, every attribute, grouped.
void renderNeighborDetails(const Json& reply, std::ostream& out);
void renderInterfaces(const std::vector<InterfaceRow>& rows, std::ostream& out);
void renderStatistics(const std::vector<InterfaceRow>& rows, std::ostream& out);
void renderLocal(const Json& localSystem, std::ostream& out);
void renderClassification(const std::vector<ClassificationRow>& rows, std::ostream& out);
// The status reply; times on the agent's clock shown as ages and local times (wallNow: the local
// time of the reply).
void renderStatus(const Json& status, double wallNow, std::ostream& out);

}  // namespace Cli
