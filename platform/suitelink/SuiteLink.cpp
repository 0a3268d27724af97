#include "platform/suitelink/SuiteLink.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "platform/cordage/TextField.h"

namespace tarnvel {
namespace {

constexpr int kClientStallMs = 3000;

std::string RuntimeFolder() {
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime && *runtime) return runtime;
  return "/tmp/tarnvel-" + std::to_string(::getuid());
}

std::string PathFrom(const char* variable, const char* name) {
  const char* named = std::getenv(variable);
  if (named && *named) return named;
  return JoinPath(RuntimeFolder(), name);
}

bool FillAddress(const std::string& path, sockaddr_un* address) {
  std::memset(address, 0, sizeof *address);
  address->sun_family = AF_UNIX;
  return CopyText(address->sun_path, sizeof address->sun_path, path);
}

// Reads exactly n bytes unless the peer stalls past the deadline or closes.
bool ReadExactly(int fd, void* buffer, std::size_t n, int timeoutMs) {
  auto* out = static_cast<std::uint8_t*>(buffer);
  while (n > 0) {
    pollfd p{fd, POLLIN, 0};
    if (::poll(&p, 1, timeoutMs) <= 0) return false;
    const ssize_t got = ::recv(fd, out, n, 0);
    if (got <= 0) {
      if (got < 0 && errno == EINTR) continue;
      return false;
    }
    out += got;
    n -= static_cast<std::size_t>(got);
  }
  return true;
}

bool WriteAll(int fd, const void* buffer, std::size_t n) {
  const auto* in = static_cast<const std::uint8_t*>(buffer);
  while (n > 0) {
    const ssize_t put = ::send(fd, in, n, MSG_NOSIGNAL);
    if (put <= 0) {
      if (put < 0 && errno == EINTR) continue;
      return false;
    }
    in += put;
    n -= static_cast<std::size_t>(put);
  }
  return true;
}

struct Fd {
  int fd;
  explicit Fd(int f) : fd(f) {}
  ~Fd() {
    if (fd >= 0) ::close(fd);
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
};

}  // namespace

std::string ConverterSocketPath() { return PathFrom("TARNVEL_SOCKET", "tarnvel.sock"); }
std::string SuiteSocketPath() { return PathFrom("TARNVEL_SUITE_SOCKET", "fathom-bureau.sock"); }

SuiteListener::~SuiteListener() { Stop(); }

int SuiteListener::Start(const std::string& path, Handler handler) {
  Stop();
  sockaddr_un address{};
  if (!FillAddress(path, &address)) return ENAMETOOLONG;
  const std::string folder(FolderOf(path));
  if (!folder.empty()) ::mkdir(folder.c_str(), 0700);
  int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return errno;
  auto bindTo = [&] { return ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 ? 0 : errno; };
  int error = bindTo();
  if (error == EADDRINUSE) {
    // Someone listening, or a socket file left by a program that died?
    if (!SendSuiteMessage(path, 0, {}, 500)) {
      ::unlink(path.c_str());
      error = bindTo();
    }
  }
  if (error != 0) {
    ::close(fd);
    return error;
  }
  if (::listen(fd, 16) != 0 || ::pipe2(wakePipe_, O_CLOEXEC) != 0) {
    error = errno;
    ::close(fd);
    return error;
  }
  path_ = path;
  handler_ = std::move(handler);
  socket_ = fd;
  thread_ = std::thread([this] { Run(); });
  return 0;
}

void SuiteListener::Stop() {
  if (!thread_.joinable()) return;
  const char stop = 1;
  [[maybe_unused]] ssize_t w = ::write(wakePipe_[1], &stop, 1);
  thread_.join();
  ::close(socket_);
  ::close(wakePipe_[0]);
  ::close(wakePipe_[1]);
  ::unlink(path_.c_str());
  socket_ = wakePipe_[0] = wakePipe_[1] = -1;
}

void SuiteListener::Run() {
  for (;;) {
    pollfd p[2] = {{socket_, POLLIN, 0}, {wakePipe_[0], POLLIN, 0}};
    if (::poll(p, 2, -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (p[1].revents) return;
    if (p[0].revents & POLLIN) {
      const int connection = ::accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
      if (connection >= 0) Serve(connection);
    }
  }
}

void SuiteListener::Serve(int connection) {
  Fd guard(connection);
  std::vector<std::uint8_t> payload;
  for (;;) {
    std::uint32_t head[2];
    if (!ReadExactly(connection, head, sizeof head, kClientStallMs)) return;
    if (head[1] > kMaxSuitePayload) return;
    payload.resize(head[1]);
    if (!ReadExactly(connection, payload.data(), payload.size(), kClientStallMs)) return;
    if (head[0] != 0 && handler_) handler_(head[0], payload);  // 0 is the liveness probe
    if (!WriteAll(connection, &kSuiteAnswer, sizeof kSuiteAnswer)) return;
  }
}

std::optional<std::uint32_t> SendSuiteMessage(const std::string& path, std::uint32_t command,
                                              std::span<const std::uint8_t> payload, int timeoutMs) {
  sockaddr_un address{};
  if (!FillAddress(path, &address) || payload.size() > kMaxSuitePayload) return std::nullopt;
  Fd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (fd.fd < 0 || ::connect(fd.fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    return std::nullopt;
  const std::uint32_t head[2] = {command, static_cast<std::uint32_t>(payload.size())};
  if (!WriteAll(fd.fd, head, sizeof head) || !WriteAll(fd.fd, payload.data(), payload.size())) return std::nullopt;
  std::uint32_t answer = 0;
  if (!ReadExactly(fd.fd, &answer, sizeof answer, timeoutMs)) return std::nullopt;
  return answer;
}

}  // namespace tarnvel
