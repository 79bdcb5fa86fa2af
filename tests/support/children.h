// Starts child processes and waits for them, always with a limit. The test process adopts daemons
// that outlive velun and reaps them while it waits, so a finished one never looks alive.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace velun::test {

using Environment = std::map<std::string, std::string>;

/// A program to start. Descriptors of -1 leave a stream closed.
struct Launch {
  std::string program;            ///< path to execute
  std::vector<std::string> argv;  ///< argument zero included
  Environment environment;
  std::string directory;  ///< working directory; empty: unchanged
  int in = -1;
  int out = -1;
  int err = -1;
  std::function<void()> in_child;  ///< runs in the child right before the exec
};

/// Forks and executes. Aborts if fork fails.
pid_t spawn(const Launch& launch);

/// Waits for a child or adopted process. Returns its raw wait status, or -1 if it still runs after
/// `limit`. Reaps every other child that ends meanwhile and keeps its status.
int wait_for(pid_t pid, std::chrono::milliseconds limit);

/// True while the process exists and is not a zombie.
bool is_running(pid_t pid);

/// True if the condition becomes true within the limit. Reaps children while it waits.
bool eventually(const std::function<bool()>& condition,
                std::chrono::milliseconds limit = std::chrono::seconds(10));

/// Kills and reaps all remaining children and adopted processes.
void end_all_children();

}  // namespace velun::test
