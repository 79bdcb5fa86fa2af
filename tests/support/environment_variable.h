// Changes variables of the test's own environment, for functions that a test calls directly.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

namespace velun::test {

/// Sets a variable, or removes it if `value` is null. Its destructor restores the old state.
class EnvironmentVariable {
 public:
  EnvironmentVariable(std::string name, const char* value) : name_(std::move(name)) {
    if (const char* old = std::getenv(name_.c_str())) {
      old_ = old;
    }
    change(value);
  }
  ~EnvironmentVariable() { change(old_ ? old_->c_str() : nullptr); }
  EnvironmentVariable(const EnvironmentVariable&) = delete;
  EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

 private:
  void change(const char* value) const {
    value == nullptr ? unsetenv(name_.c_str()) : setenv(name_.c_str(), value, 1);
  }

  std::string name_;
  std::optional<std::string> old_;
};

/// Removes the variables that say where velun's files are. Its destructor restores them.
class ScopedEnvironment {
 public:
  /// Only for the variables below; no other is restored.
  void set(const std::string& name, const std::string& value) const {
    setenv(name.c_str(), value.c_str(), 1);
  }

 private:
  EnvironmentVariable config_file_{"VELUN_CLI_CONFIG", nullptr};
  EnvironmentVariable config_home_{"XDG_CONFIG_HOME", nullptr};
  EnvironmentVariable state_dir_{"VELUN_STATE_DIR", nullptr};
  EnvironmentVariable data_home_{"XDG_DATA_HOME", nullptr};
  EnvironmentVariable home_{"HOME", nullptr};
};

}  // namespace velun::test
