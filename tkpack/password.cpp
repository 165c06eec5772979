#include "tkpack/password.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "support/files.h"

namespace tk {

namespace {

// Room for the longest password and its line end (CR LF).
constexpr std::size_t kLineRoom = kMaxPasswordBytes + 2;
constexpr int kRestoringSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
constexpr std::size_t kSignalCount = std::size(kRestoringSignals);

// Reads from `fd` into `line` until a LF arrives, the end of input, or `line` is full.
// Returns the number of bytes read, or -1 with errno set.
ssize_t ReadLine(int fd, SecretBytes& line) {
  std::size_t size = 0;
  while (size < line.size()) {
    const ssize_t got = read(fd, line.data() + size, line.size() - size);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return -1;
    if (got == 0) break;
    size += static_cast<std::size_t>(got);
    if (std::memchr(line.data() + size - got, '\n', static_cast<std::size_t>(got))) break;
  }
  return static_cast<ssize_t>(size);
}

// Cuts `line` (`size` bytes read) to its first line without the line end. False when
// that is longer than kMaxPasswordBytes.
bool KeepFirstLine(SecretBytes& line, std::size_t size) {
  const uint8_t* end = static_cast<const uint8_t*>(std::memchr(line.data(), '\n', size));
  std::size_t length = end != nullptr ? static_cast<std::size_t>(end - line.data()) : size;
  if (end != nullptr && length > 0 && line.data()[length - 1] == '\r') --length;
  if (length > kMaxPasswordBytes || (end == nullptr && size == line.size())) return false;
  line.Shrink(length);
  return true;
}

// What a signal handler needs to put the terminal back.
int gTerminal = -1;
termios gSaved;

void RestoreAndDie(int signal) {
  tcsetattr(gTerminal, TCSAFLUSH, &gSaved);
  raise(signal);  // the handler was reset (SA_RESETHAND): the default action follows
}

// Turns the echo of `terminal` off for its lifetime, and puts the settings back on
// every way out, a fatal signal included.
class EchoOff {
 public:
  explicit EchoOff(int terminal) {
    if (tcgetattr(terminal, &gSaved) != 0) return;
    gTerminal = terminal;
    struct sigaction action = {};
    action.sa_handler = RestoreAndDie;
    action.sa_flags = SA_RESETHAND;
    sigemptyset(&action.sa_mask);
    for (std::size_t i = 0; i < kSignalCount; ++i) {
      sigaction(kRestoringSignals[i], &action, &previous_[i]);
    }
    termios quiet = gSaved;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHOE | ECHOK);
    quiet.c_lflag |= ECHONL;  // the Enter still moves to the next line
    ok_ = tcsetattr(terminal, TCSAFLUSH, &quiet) == 0;
  }
  ~EchoOff() {
    if (gTerminal < 0) return;
    tcsetattr(gTerminal, TCSAFLUSH, &gSaved);
    for (std::size_t i = 0; i < kSignalCount; ++i) {
      sigaction(kRestoringSignals[i], &previous_[i], nullptr);
    }
    gTerminal = -1;
  }
  EchoOff(const EchoOff&) = delete;
  EchoOff& operator=(const EchoOff&) = delete;
  bool ok() const { return ok_; }

 private:
  bool ok_ = false;
  struct sigaction previous_[kSignalCount];
};

}  // namespace

bool ReadPasswordFile(const std::string& path, SecretBytes& password, std::string& error) {
  password = SecretBytes(kLineRoom);
  UniqueDescriptor fd(OpenDescriptor(path.c_str(), O_RDONLY, 0));
  const ssize_t size = fd.get() < 0 ? -1 : ReadLine(fd.get(), password);
  if (size < 0 || password.size() == 0) {
    error = "cannot read password file " + path + ": " + std::strerror(errno);
    return false;
  }
  if (!KeepFirstLine(password, static_cast<std::size_t>(size))) {
    error = "the password in " + path + " is longer than " + std::to_string(kMaxPasswordBytes) +
            " bytes";
    return false;
  }
  return true;
}

bool ReadPasswordFromTerminal(const std::string& prompt, SecretBytes& password,
                              std::string& error) {
  UniqueDescriptor terminal(OpenDescriptor("/dev/tty", O_RDWR | O_NOCTTY, 0));
  if (terminal.get() < 0) {
    error = "no terminal to read the password from (give --password-file FILE)";
    return false;
  }
  password = SecretBytes(kLineRoom);
  ssize_t size = -1;
  int failure = ENOMEM;
  {
    EchoOff echoOff(terminal.get());
    if (echoOff.ok() && password.size() != 0 &&
        write(terminal.get(), prompt.data(), prompt.size()) >= 0) {
      size = ReadLine(terminal.get(), password);
    }
    if (size < 0 && password.size() != 0) failure = errno;  // before the restore
  }
  if (size < 0) {
    error = std::string("cannot read the password from the terminal: ") + std::strerror(failure);
    return false;
  }
  if (!KeepFirstLine(password, static_cast<std::size_t>(size))) {
    error = "the password is longer than " + std::to_string(kMaxPasswordBytes) + " bytes";
    return false;
  }
  return true;
}

}  // namespace tk
