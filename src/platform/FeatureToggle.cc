// Feature switch store: the first query of a name reads the environment, later ones the cache.
#include "platform/FeatureToggle.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

namespace Platform {
namespace {

struct Toggles {
  std::map<std::string, bool, std::less<>> values;
  std::vector<FeatureToggle*> live;
};

Toggles& toggles() {
  static Toggles t;
  return t;
}

bool readEnvironment(std::string_view name) {
  const std::string var = "LLDP_FEATURE_" + std::string(name);
  const char* value = std::getenv(var.c_str());
  if (!value) return true;
  const std::string_view v(value);
  return !(v == "0" || v == "off" || v == "false" || v == "no");
}

}  // namespace

FeatureToggle::FeatureToggle(const char* name) : name_(name) { toggles().live.push_back(this); }

FeatureToggle::~FeatureToggle() {
  auto& live = toggles().live;
  live.erase(std::remove(live.begin(), live.end(), this), live.end());
}

bool FeatureToggle::read() const {
  state_ = featureEnabled(name_) ? 1 : 0;
  return state_;
}

bool featureEnabled(std::string_view name) {
  auto& values = toggles().values;
  if (auto it = values.find(name); it != values.end()) return it->second;
  const bool enabled = readEnvironment(name);
  values.emplace(std::string(name), enabled);
  return enabled;
}

void featureEnabledIs(std::string_view name, bool enabled) {
  Toggles& t = toggles();
  t.values[std::string(name)] = enabled;
  for (FeatureToggle* toggle : t.live) {
    if (name == toggle->name()) toggle->state_ = enabled ? 1 : 0;
  }
}

ScopedFeature::ScopedFeature(std::string_view name, bool enabled)
    : name_(name), previous_(featureEnabled(name)) {
  featureEnabledIs(name_, enabled);
}

ScopedFeature::~ScopedFeature() { featureEnabledIs(name_, previous_); }

}  // namespace Platform
