// Which Ethernet ports are LLDP ports: include and exclude lists of shell globs, each pattern
// negated by a leading '!'.
#pragma once

#include <string>
#include <vector>

namespace Linux {

// A list matches a name when its last pattern that matches is not negated: ["eth*", "!eth9"]
// matches eth0 but not eth9. A port is selected when the include list is empty or matches,
// and the exclude list does not match.
class IntfSelection {
 public:
  IntfSelection() = default;
  IntfSelection(std::vector<std::string> include, std::vector<std::string> exclude)
      : include_(std::move(include)), exclude_(std::move(exclude)) {}

  bool selected(const std::string& name) const;
  const std::vector<std::string>& include() const { return include_; }
  const std::vector<std::string>& exclude() const { return exclude_; }
  bool operator==(const IntfSelection&) const = default;

  // Whether the list matches the name (see above).
  static bool listMatches(const std::vector<std::string>& patterns, const std::string& name);

 private:
  std::vector<std::string> include_;
  std::vector<std::string> exclude_;
};

}  // namespace Linux
