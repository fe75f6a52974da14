// Run-time feature switches: read once (environment LLDP_FEATURE_<name>=0|1), default on.
#pragma once

#include <string>
#include <string_view>

namespace Platform {

// A switch that code keeps as a static: reading it after the first time is one load.
class FeatureToggle {
 public:
  explicit FeatureToggle(const char* name);
  FeatureToggle(const FeatureToggle&) = delete;
  FeatureToggle& operator=(const FeatureToggle&) = delete;
  ~FeatureToggle();

  bool enabled() const { return state_ >= 0 ? state_ : read(); }
  const char* name() const { return name_; }

 private:
  friend void featureEnabledIs(std::string_view, bool);
  bool read() const;
  const char* name_;
  mutable int state_ = -1;  // -1 not read yet
};

bool featureEnabled(std::string_view name);

// Sets a switch for this process (configuration file, tests); live toggles follow at once.
void featureEnabledIs(std::string_view name, bool enabled);

// Sets a switch for as long as it lives and then puts back the value it found, also when the
// scope is left by an exception or a failed test assertion.
class ScopedFeature {
 public:
  ScopedFeature(std::string_view name, bool enabled);
  ScopedFeature(const ScopedFeature&) = delete;
  ScopedFeature& operator=(const ScopedFeature&) = delete;
  ~ScopedFeature();

 private:
  std::string name_;
  bool previous_;
};

}  // namespace Platform
