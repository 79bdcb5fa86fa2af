// The program that plays every process of a combination: a daemon, whoever else holds the control
// port, a bystander, curl. It writes each signal that reaches it into the log of the combination.
//
// Its part is in the variable ACTOR: its name, then any of the words that `part_of` reads.

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Nobody is left behind, whatever becomes of the test.
constexpr int usual_life = 120;

struct Part {
  std::string name;
  std::map<std::string, std::string> words;

  bool has(const std::string& word) const { return words.contains(word); }
  std::string text(const std::string& word) const { return has(word) ? words.at(word) : ""; }
  int number(const std::string& word) const { return std::atoi(text(word).c_str()); }
};

// log=FILE owner=PID   where signals are written down, and whose SIGUSR1 ends it
// life=SECONDS         when it ends at the latest
// leads                in a process group of its own
// group=PID            in that process group
// uid=NUMBER           as that user
// zombie               with a child that is dead and not collected
// after=MS             what follows comes so much later
// end=0 end=1 end=kill comes to its end by itself
// port=NUMBER          listens there, or ends with 1 when it cannot
// fork                 goes on as a child, and its first process ends
// answer=KIND          what a request gets; nothing, when it is none of those of `answer_of`
// term=late term=ignored    otherwise it ends at once when a signal arrives
// mirror=KIND hub=KIND is curl, and ends so for each of the two, see `play_curl`
Part part_of(std::string_view text) {
  Part part;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(' '), text.size());
    const std::string word(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    const std::size_t equals = std::min(word.find('='), word.size());
    if (part.name.empty()) {
      part.name = word;
    } else {
      part.words[word.substr(0, equals)] = word.substr(std::min(equals + 1, word.size()));
    }
  }
  return part;
}

// One write for one line, so that those of several processes do not mix.
void log_line(int log, const std::string& line) {
  const std::string whole = line + "\n";
  if (write(log, whole.data(), whole.size()) != static_cast<ssize_t>(whole.size())) {
    _exit(99);
  }
}

std::string answer_of(const std::string& kind) {
  const auto whole = [](const std::string& status, const std::string& body) {
    return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
  };
  if (kind == "healthy") {
    return whole("200 OK", "ok");
  }
  if (kind == "500") {
    return whole("500 Internal Server Error", "broken");
  }
  if (kind == "empty") {
    return whole("200 OK", "");
  }
  if (kind == "garbage") {
    return "\x16\x03\x01 this is another protocol\r\n\r\n";
  }
  return kind == "half" ? "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nok" : "";
}

// -1 when somebody else does.
int listen_on(int port) {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  const bool bound =
      bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  return bound && listen(listener, 64) == 0 ? listener : -1;
}

bool has_input(int descriptor, milliseconds limit) {
  pollfd wanted{descriptor, POLLIN, 0};
  return poll(&wanted, 1, static_cast<int>(limit.count())) > 0;
}

// A mute listener keeps the connection for good. The request is read first: closing a socket with
// unread bytes would take the answer back.
void answer_next(int listener, const std::string& kind) {
  const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
  if (connection < 0 || kind == "mute") {
    return;
  }
  std::string request;
  char buffer[4096];
  while (request.find("\r\n\r\n") == std::string::npos &&
         has_input(connection, milliseconds(10'000))) {
    const ssize_t count = recv(connection, buffer, sizeof buffer, 0);
    if (count <= 0) {
      break;
    }
    request.append(buffer, static_cast<std::size_t>(count));
  }
  const std::string answer = answer_of(kind);
  send(connection, answer.data(), answer.size(), MSG_NOSIGNAL);
  close(connection);
}

[[noreturn]] void end(const Part& part, int log, const std::string& how) {
  log_line(log, part.name + " ended");
  if (how == "kill") {
    kill(getpid(), SIGKILL);
  }
  _exit(std::atoi(how.c_str()));
}

// Writes down the signals that wait; returns whether one of them should end this process. The
// owner's comes first of all that wait, and ends it when the others are written down.
bool read_signals(const Part& part, int log, int signals) {
  bool hit = false;
  bool dismissed = false;
  while (has_input(signals, milliseconds(0))) {
    signalfd_siginfo info{};
    if (read(signals, &info, sizeof info) != sizeof info) {
      break;
    }
    if (info.ssi_signo == SIGUSR1 && static_cast<int>(info.ssi_pid) == part.number("owner")) {
      dismissed = true;
    } else if (info.ssi_signo != SIGCHLD) {
      log_line(log, part.name + " signal " + std::to_string(info.ssi_signo));
      hit = true;
    }
  }
  if (dismissed) {
    _exit(0);
  }
  return hit;
}

void attend(const Part& part, int log, int signals, int listener, milliseconds duration) {
  auto until = Clock::now() + duration;
  bool ending = false;
  while (Clock::now() < until) {
    pollfd wanted[] = {{signals, POLLIN, 0}, {listener, POLLIN, 0}};
    const auto rest = std::chrono::duration_cast<milliseconds>(until - Clock::now());
    poll(wanted, 2, static_cast<int>(rest.count()) + 1);
    if (wanted[0].revents != 0 && read_signals(part, log, signals) && !ending &&
        part.text("term") != "ignored") {
      if (part.text("term") != "late") {
        end(part, log, "0");
      }
      ending = true;
      until = Clock::now() + milliseconds(250);
    }
    if (wanted[1].revents != 0) {
      answer_next(listener, part.text("answer"));
    }
  }
  if (ending) {
    end(part, log, "0");
  }
}

// Not to be seen before it is dead.
void keep_a_zombie(int log) {
  const pid_t child = fork();
  if (child == 0) {
    _exit(0);
  }
  siginfo_t info{};
  waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT);
  log_line(log, "zombie plays " + std::to_string(child));
}

// The ends of lines as "\n", for the log.
std::string content_of(const std::string& path) {
  std::string content;
  char buffer[4096];
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  for (ssize_t count = 0; (count = read(file, buffer, sizeof buffer)) > 0;) {
    for (ssize_t i = 0; i < count; ++i) {
      content += buffer[i] == '\n' ? "\\n" : std::string(1, buffer[i]);
    }
  }
  close(file);
  return content;
}

// Does as its last argument, the URL, and the words for mirror and hub say: "done" writes the file,
// "nothing" ends well without one, "part" writes some of it and ends with 22, "killed" writes some
// of it and is killed; a number is an exit status. 23 is curl's for a file that cannot be written.
[[noreturn]] void play_curl(const Part& part, int log, const std::vector<std::string>& argv) {
  const std::string& url = argv.back();
  const bool mirror = url.starts_with("http://127.0.0.1:");
  const std::string how = part.text(mirror ? "mirror" : "hub");
  std::string output;
  std::string line = "curl";
  for (std::size_t i = 1; i < argv.size(); ++i) {
    line += " " + argv[i];
    output = argv[i - 1] == "-o" ? argv[i] : output;
    if (argv[i - 1] == "-H") {
      line += "{" + content_of(argv[i].substr(1)) + "}";
    }
  }
  log_line(log, line);
  if (how == "done" || how == "part" || how == "killed") {
    const int file = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const std::string body = how == "done" ? "[\"whole\"]" : "[\"half";
    if (file < 0 || write(file, body.data(), body.size()) != static_cast<ssize_t>(body.size())) {
      _exit(23);
    }
  }
  if (how == "killed") {
    kill(getpid(), SIGKILL);
  }
  _exit(how == "part" ? 22 : std::atoi(how.c_str()));
}

void prepare(const Part& part, int log) {
  if (part.has("leads")) {
    setpgid(0, 0);
  }
  if (part.has("group")) {
    setpgid(0, part.number("group"));
  }
  const auto uid = static_cast<uid_t>(part.number("uid"));
  if (part.has("uid") && (setgid(uid) != 0 || setuid(uid) != 0)) {
    _exit(98);
  }
  if (part.has("zombie")) {
    keep_a_zombie(log);
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  const char* words = std::getenv("ACTOR");
  const Part part = part_of(words != nullptr ? words : "");
  const int log = open(part.text("log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  if (log < 0) {
    return 97;
  }
  if (part.has("mirror")) {
    play_curl(part, log, std::vector<std::string>(argv, argv + argc));
  }
  sigset_t all;
  sigfillset(&all);
  sigprocmask(SIG_BLOCK, &all, nullptr);
  const int signals = signalfd(-1, &all, SFD_CLOEXEC);
  prepare(part, log);
  log_line(log, part.name + " runs " + std::to_string(getpid()));
  attend(part, log, signals, -1, milliseconds(part.number("after")));
  if (part.has("end")) {
    end(part, log, part.text("end"));
  }
  const int listener = part.has("port") ? listen_on(part.number("port")) : -1;
  if (part.has("port") && listener < 0) {
    end(part, log, "1");
  }
  if (part.has("fork") && fork() != 0) {
    _exit(0);
  }
  log_line(log, part.name + " plays " + std::to_string(getpid()));
  const int life = part.has("life") ? part.number("life") : usual_life;
  attend(part, log, signals, listener, milliseconds(1000 * life));
  return 0;
}
