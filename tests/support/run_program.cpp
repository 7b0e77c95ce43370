#include "tests/support/run_program.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "tests/support/temp_dir.h"

extern char** environ;

namespace vmp::test {

namespace {

// A file descriptor closed when it goes out of scope.
class Fd {
 public:
  Fd() = default;
  explicit Fd(int fd) : fd_(fd) {}
  ~Fd() { Close(); }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }
  void Close() { Reset(-1); }
  void Reset(int fd) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

struct Pipe {
  Fd read;
  Fd write;
};

bool MakePipe(Pipe& pipe) {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) return false;
  pipe.read.Reset(fds[0]);
  pipe.write.Reset(fds[1]);
  return true;
}

std::vector<std::string> BuildEnvironment(
    const std::map<std::string, std::optional<std::string>>& changes) {
  std::vector<std::string> env;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    std::string text(*entry);
    std::string name = text.substr(0, text.find('='));
    if (changes.count(name) == 0) env.push_back(std::move(text));
  }
  for (const auto& [name, value] : changes) {
    if (value) env.push_back(name + "=" + *value);
  }
  return env;
}

std::vector<char*> CStrings(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// In the child, between fork and exec: only async-signal-safe calls.
[[noreturn]] void ExecChild(const Pipe& in, const Pipe& out, const Pipe& err, const Pipe& report,
                            const char* working_dir, const char* program, char** argv,
                            char** envp) {
  ::signal(SIGPIPE, SIG_DFL);
  if (::dup2(in.read.get(), 0) < 0 || ::dup2(out.write.get(), 1) < 0 ||
      ::dup2(err.write.get(), 2) < 0 || (working_dir != nullptr && ::chdir(working_dir) != 0)) {
    int error = errno;
    [[maybe_unused]] ssize_t ignored = ::write(report.write.get(), &error, sizeof error);
    ::_exit(127);
  }
  ::execve(program, argv, envp);
  int error = errno;
  [[maybe_unused]] ssize_t ignored = ::write(report.write.get(), &error, sizeof error);
  ::_exit(127);
}

}  // namespace

RunResult RunProgram(const std::string& program, const std::vector<std::string>& args,
                     const RunOptions& options) {
  RunResult result;
  // A child that exits without reading its input must not kill us on write.
  ::signal(SIGPIPE, SIG_IGN);

  std::vector<std::string> argv_texts{program};
  argv_texts.insert(argv_texts.end(), args.begin(), args.end());
  std::vector<char*> argv = CStrings(argv_texts);
  std::vector<std::string> env_texts = BuildEnvironment(options.env);
  std::vector<char*> envp = CStrings(env_texts);
  const char* working_dir = options.working_dir.empty() ? nullptr : options.working_dir.c_str();

  Pipe in, out, err, report;
  if (!MakePipe(in) || !MakePipe(out) || !MakePipe(err) || !MakePipe(report)) {
    result.err = std::string("pipe: ") + std::strerror(errno);
    return result;
  }
  const pid_t pid = ::fork();
  if (pid < 0) {
    result.err = std::string("fork: ") + std::strerror(errno);
    return result;
  }
  if (pid == 0) {
    ExecChild(in, out, err, report, working_dir, program.c_str(), argv.data(), envp.data());
  }
  in.read.Close();
  out.write.Close();
  err.write.Close();
  report.write.Close();

  // Feed standard input and drain both outputs together, so that a child
  // blocked on a full pipe never waits for us while we wait for it.
  const std::string input = options.stdin_text.value_or("");
  size_t written = 0;
  if (input.empty()) in.write.Close();
  else ::fcntl(in.write.get(), F_SETFL, O_NONBLOCK);
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::seconds(options.timeout_seconds);
  while (out.read.get() >= 0 || err.read.get() >= 0) {
    pollfd fds[3];
    nfds_t count = 0;
    std::string* sinks[3] = {nullptr, nullptr, nullptr};
    Fd* sources[3] = {nullptr, nullptr, nullptr};
    if (in.write.get() >= 0) fds[count++] = {in.write.get(), POLLOUT, 0};
    if (out.read.get() >= 0) {
      sinks[count] = &result.out;
      sources[count] = &out.read;
      fds[count++] = {out.read.get(), POLLIN, 0};
    }
    if (err.read.get() >= 0) {
      sinks[count] = &result.err;
      sources[count] = &err.read;
      fds[count++] = {err.read.get(), POLLIN, 0};
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      result.timed_out = true;
      ::kill(pid, SIGKILL);
      break;
    }
    const int ready = ::poll(fds, count, static_cast<int>(left.count()));
    if (ready < 0 && errno != EINTR) break;
    for (nfds_t i = 0; ready > 0 && i < count; ++i) {
      if (fds[i].revents == 0) continue;
      if (sinks[i] == nullptr) {  // standard input of the child
        const ssize_t n = ::write(fds[i].fd, input.data() + written, input.size() - written);
        if (n > 0) written += static_cast<size_t>(n);
        if (n < 0 && errno != EAGAIN && errno != EINTR) written = input.size();
        if (written == input.size()) in.write.Close();
        continue;
      }
      char buffer[65536];
      const ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
      if (n > 0) sinks[i]->append(buffer, static_cast<size_t>(n));
      else if (n == 0 || (errno != EAGAIN && errno != EINTR)) sources[i]->Close();
    }
  }
  in.write.Close();

  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  int exec_error = 0;
  if (::read(report.read.get(), &exec_error, sizeof exec_error) == sizeof exec_error) {
    result.err = "cannot run " + program + ": " + std::strerror(exec_error);
    result.status = -1;
    return result;
  }
  if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
  else if (WIFSIGNALED(status)) result.status = 128 + WTERMSIG(status);
  return result;
}

const std::string& LogDirectory() {
  static const TempDir directory;
  return directory.path();
}

RunResult RunMapServer(const std::vector<std::string>& args, const RunOptions& options) {
  RunOptions with_logs = options;
  for (const char* name : {"VMP_LOG_DIR", "KAV_LOG_DIR"}) {
    with_logs.env.try_emplace(name, LogDirectory());
    with_logs.env.try_emplace(std::string(name) + "_3_5", std::nullopt);
  }
  return RunProgram(VMP_MAP_SERVER_BIN, args, with_logs);
}

}  // namespace vmp::test
