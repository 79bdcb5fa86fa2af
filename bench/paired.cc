// paired [-r RUNS] [-s STATUS] [-a COMMAND] [NAME=VALUE…] PROGRAM [WORD…] [-- [NAME=VALUE…] PROGRAM
// …]
//
// Runs its programs in turn, A B A B …, so that both sides meet the same moments of a machine that
// does other things as well, and prints one line for each: the median of its times from before its
// start to after its end in milliseconds, the peak of its memory in kilobytes (of the largest
// process, where there are several), and how many times as long as the last program it took, the
// median over the turns. Both streams of the programs lead nowhere. A program that ends with
// another status than STATUS (0) ends everything: it has not done what is to be measured. COMMAND
// is for a shell that runs after each run and is not measured. RUNS (1) do not count the one that
// warms the caches.

#include <fcntl.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <iterator>
#include <vector>

namespace {

struct Side {
  std::vector<char*> environment;  // both end in a null
  std::vector<char*> argv;
  std::vector<double> milliseconds;
  long peak_kilobytes = 0;
};

struct Plan {
  int runs = 1;
  int status = 0;
  const char* afterwards = nullptr;
  std::vector<Side> sides;
};

[[noreturn]] void fail(const char* what, const char* about) {
  std::fprintf(stderr, "paired: %s: %s\n", what, about);
  std::exit(1);
}

double now_in_milliseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

pid_t start(char* const* argv, char* const* environment) {
  posix_spawn_file_actions_t streams;
  posix_spawn_file_actions_init(&streams);
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    posix_spawn_file_actions_addopen(&streams, descriptor, "/dev/null", O_RDWR, 0);
  }
  pid_t pid = 0;
  const int error = posix_spawnp(&pid, argv[0], &streams, nullptr, argv, environment);
  posix_spawn_file_actions_destroy(&streams);
  if (error != 0) {
    fail(argv[0], std::strerror(error));
  }
  return pid;
}

// Daemons that lost their parent come to us; they are only seen off when they end meanwhile.
rusage wait_for(pid_t pid, const char* name, int expected_status) {
  rusage usage{};
  int status = 0;
  pid_t ended = 0;
  while (ended != pid) {
    ended = wait4(-1, &status, 0, &usage);
    if (ended < 0) {
      fail(name, "cannot be waited for");
    }
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != expected_status) {
    fail(name, "did not end as it should");
  }
  return usage;
}

void run(const Plan& plan, Side& side, bool counts) {
  const double before = now_in_milliseconds();
  const rusage usage =
      wait_for(start(side.argv.data(), side.environment.data()), side.argv[0], plan.status);
  const double after = now_in_milliseconds();
  if (counts) {
    side.milliseconds.push_back(after - before);
    side.peak_kilobytes = std::max(side.peak_kilobytes, usage.ru_maxrss);
  }
  if (plan.afterwards != nullptr) {
    char shell[] = "/bin/sh";
    char option[] = "-c";
    std::vector<char> command(plan.afterwards, plan.afterwards + std::strlen(plan.afterwards) + 1);
    char* const argv[] = {shell, option, command.data(), nullptr};
    wait_for(start(argv, side.environment.data()), plan.afterwards, 0);
  }
}

// The variables first: of two with one name a program finds the first.
Side read_side(char**& word) {
  Side side;
  for (; *word != nullptr && std::strchr(*word, '=') != nullptr; ++word) {
    side.environment.push_back(*word);
  }
  for (char** variable = environ; *variable != nullptr; ++variable) {
    side.environment.push_back(*variable);
  }
  side.environment.push_back(nullptr);
  for (; *word != nullptr && std::strcmp(*word, "--") != 0; ++word) {
    side.argv.push_back(*word);
  }
  if (side.argv.empty()) {
    fail("no program", "see the head of its source");
  }
  side.argv.push_back(nullptr);
  return side;
}

Plan read_plan(int argc, char* argv[]) {
  Plan plan;
  int option = 0;
  // The plus ends the options at the first program's name.
  while ((option = getopt(argc, argv, "+r:s:a:")) != -1) {
    switch (option) {
      case 'r':
        plan.runs = std::atoi(optarg);
        break;
      case 's':
        plan.status = std::atoi(optarg);
        break;
      case 'a':
        plan.afterwards = optarg;
        break;
      default:
        std::exit(2);
    }
  }
  char** word = argv + optind;
  plan.sides.push_back(read_side(word));
  while (*word != nullptr) {
    plan.sides.push_back(read_side(++word));
  }
  return plan;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t half = values.size() / 2;
  return values.size() % 2 == 1 ? values[half] : (values[half - 1] + values[half]) / 2;
}

double median_ratio(const Side& side, const Side& last) {
  std::vector<double> ratios;
  std::transform(side.milliseconds.begin(), side.milliseconds.end(), last.milliseconds.begin(),
                 std::back_inserter(ratios), std::divides<>());
  return median(ratios);
}

}  // namespace

int main(int argc, char* argv[]) {
  Plan plan = read_plan(argc, argv);
  if (plan.runs < 1) {
    fail("-r", "one run or more");
  }
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  for (int i = 0; i <= plan.runs; ++i) {
    for (Side& side : plan.sides) {
      run(plan, side, i > 0);
    }
  }
  for (const Side& side : plan.sides) {
    std::printf("%.4f %ld %.4f\n", median(side.milliseconds), side.peak_kilobytes,
                median_ratio(side, plan.sides.back()));
  }
}
