#include "program.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>

namespace {

[[noreturn]] void become(char* const* arguments, int out, rlim_t file_limit) {
  const rlimit limit{file_limit, file_limit};
  if (file_limit != RLIM_INFINITY) setrlimit(RLIMIT_FSIZE, &limit);
  std::signal(SIGXFSZ, SIG_IGN);  // writing past the limit is an error then, not the end
  dup2(out, STDOUT_FILENO);
  dup2(out, STDERR_FILENO);
  execv(arguments[0], arguments);
  _exit(127);
}

}  // namespace

Scratch::Scratch() {
  std::string name = std::filesystem::temp_directory_path() / "tour-XXXXXX";
  if (!mkdtemp(name.data())) throw std::runtime_error("no temporary directory");
  path = name;
}

Program::Program(const std::vector<std::string>& command, rlim_t file_limit)
    : deadline_(std::chrono::steady_clock::now() + std::chrono::seconds(30)) {
  std::vector<char*> arguments;
  for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  pid_ = fork();
  if (pid_ == 0) become(arguments.data(), ends[1], file_limit);
  close(ends[1]);
  out_ = ends[0];
  if (pid_ < 0) throw std::runtime_error("no process");
}

Program::~Program() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  close(out_);
}

bool Program::read_more() {
  using std::chrono::milliseconds;
  const auto left = std::chrono::duration_cast<milliseconds>(deadline_ - std::chrono::steady_clock::now());
  pollfd readable{out_, POLLIN, 0};
  if (left.count() <= 0 || poll(&readable, 1, static_cast<int>(left.count())) <= 0) {
    kill(pid_, SIGKILL);
    return false;
  }
  char some[4096];
  const ssize_t count = read(out_, some, sizeof some);
  if (count > 0) output_.append(some, static_cast<std::size_t>(count));
  return count > 0;
}

std::string Program::line(const std::string& start) {
  for (std::size_t at = 0;;) {
    const std::size_t end = output_.find('\n', at);
    if (end == output_.npos) {
      if (!read_more()) return "";
    } else if (output_.compare(at, start.size(), start) == 0) {
      return output_.substr(at, end - at);
    } else {
      at = end + 1;
    }
  }
}

void Program::signal(int number) const { kill(pid_, number); }

int Program::finish() {
  while (read_more()) {
  }
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
