// Shell-glob interface selection with negation.
#include "linux/IntfSelection.h"

#include <fnmatch.h>

namespace Linux {

bool IntfSelection::listMatches(const std::vector<std::string>& patterns, const std::string& name) {
  bool matched = false;
  for (const std::string& pattern : patterns) {
    const bool negated = !pattern.empty() && pattern.front() == '!';
    const char* glob = pattern.c_str() + (negated ? 1 : 0);
    if (fnmatch(glob, name.c_str(), 0) == 0) matched = !negated;
  }
  return matched;
}

bool IntfSelection::selected(const std::string& name) const {
  if (!include_.empty() && !listMatches(include_, name)) return false;
  return !listMatches(exclude_, name);
}

}  // namespace Linux
