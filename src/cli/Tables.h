// Text views of the `lldp show` models: aligned tables and detail blocks for people.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "cli/Model.h"

namespace Cli {

// Columns as wide as their widest cell; the last column is not padded.
class Table {
 public:
  explicit Table(std::vector<std::string> header) : rows_{std::move(header)} {}
  void rowIs(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
  void print(std::ostream& out) const;

 private:
  std::vector<std::vector<std::string>> rows_;
};

void renderNeighbors(const std::vector<NeighborRow>& rows, bool detail, std::ostream& out);
void renderInterfaces(const std::vector<InterfaceRow>& rows, std::ostream& out);
void renderStatistics(const std::vector<InterfaceRow>& rows, std::ostream& out);
void renderLocal(const Json& localSystem, std::ostream& out);
void renderClassification(const std::vector<ClassificationRow>& rows, std::ostream& out);
void renderStatus(const Json& status, std::ostream& out);

}  // namespace Cli
