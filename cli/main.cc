// The entry point: puts the process into a known state and turns the command line into an
// invocation.

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include "cli/commands.h"
#include "system/child.h"

namespace {

// A closed standard stream would be handed out again to the next file or socket, and messages would
// land in it. The lowest free descriptor is always the one that is opened.
void open_standard_streams() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) < 0) {
      (void)open("/dev/null", O_RDWR);
    }
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  open_standard_streams();
  // A parent that ignores SIGCHLD would have the kernel reap our children before we can ask.
  signal(SIGCHLD, SIG_DFL);
  velun::ignore_abandoned_output();

  const velun::Invocation invocation = {.argument_zero = argc > 0 ? argv[0] : "",
                                        .command = argc > 1 ? argv[1] : "help",
                                        .argument = argc > 2 ? argv[2] : "",
                                        .third = argc > 3 ? argv[3] : ""};
  return velun::run_command(invocation);
}
