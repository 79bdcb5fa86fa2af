// The entry point: sets up the process and turns the command line into an invocation.

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include "cli/commands.h"
#include "system/child.h"

namespace {

// The next file or socket would get the descriptor of a closed standard stream, and messages would
// go into it. open() takes the lowest free descriptor.
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
  // If the parent ignores SIGCHLD, the kernel reaps our children before waitpid can.
  signal(SIGCHLD, SIG_DFL);
  velun::ignore_abandoned_output();

  const velun::Invocation invocation = {.argument_zero = argc > 0 ? argv[0] : "",
                                        .command = argc > 1 ? argv[1] : "help",
                                        .argument = argc > 2 ? argv[2] : "",
                                        .third = argc > 3 ? argv[3] : ""};
  return velun::run_command(invocation);
}
