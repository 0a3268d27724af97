#include "platform/suitelink/SuiteLink.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

#include "platform/cordage/TextField.h"

namespace tarnvel {
namespace {

constexpr int kBacklog = 64;
constexpr std::size_t kMaxClients = 32;

// The folder for sockets when the session has no runtime folder: the user's
// own cache folder, never a shared one.
std::string RuntimeFolder() {
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime && *runtime) return runtime;
  const char* cache = std::getenv("XDG_CACHE_HOME");
  if (cache && *cache == '/') return JoinPath(cache, "tarnvel");
  const char* home = std::getenv("HOME");
  if (home && *home == '/') return JoinPath(JoinPath(home, ".cache"), "tarnvel");
  return {};
}

std::string PathFrom(const char* variable, const char* name) {
  const char* named = std::getenv(variable);
  if (named && *named) return named;
  const std::string folder = RuntimeFolder();
  return folder.empty() ? std::string{} : JoinPath(folder, name);
}

bool FillAddress(const std::string& path, sockaddr_un* address) {
  std::memset(address, 0, sizeof *address);
  address->sun_family = AF_UNIX;
  return !path.empty() && CopyText(address->sun_path, sizeof address->sun_path, path);
}

// The user at the other end of a connected socket is this process's user.
bool PeerIsThisUser(int fd) {
  ucred peer{};
  socklen_t size = sizeof peer;
  return ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && size == sizeof peer && peer.uid == ::geteuid();
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

using Clock = std::chrono::steady_clock;

}  // namespace

struct SuiteListener::Client {
  int fd = -1;
  std::vector<std::uint8_t> pending;  // bytes of messages not yet complete
  Clock::time_point deadline;
};

std::string ConverterSocketPath() { return PathFrom("TARNVEL_SOCKET", "tarnvel.sock"); }
std::string SuiteSocketPath() { return PathFrom("TARNVEL_SUITE_SOCKET", "fathom-bureau.sock"); }

std::string SocketPathProblem(const std::string& path) {
  if (path.empty())
    return "neither TARNVEL_SOCKET nor XDG_RUNTIME_DIR is set, and there is no home folder for a private one";
  const std::string folder(FolderOf(path).empty() ? "." : FolderOf(path));
  if (::mkdir(folder.c_str(), 0700) != 0 && errno == ENOENT) {
    // The user's cache folder may not exist yet: its parents are made as usual.
    std::error_code ec;
    std::filesystem::create_directories(std::filesystem::path(folder).parent_path(), ec);
    ::mkdir(folder.c_str(), 0700);
  }
  struct stat st {};
  if (::lstat(folder.c_str(), &st) != 0) return "the folder " + folder + " cannot be made (" + std::strerror(errno) + ")";
  if (!S_ISDIR(st.st_mode)) return "the socket's folder " + folder + " is no folder (or a symbolic link)";
  if (st.st_uid != ::geteuid()) return "the socket's folder " + folder + " belongs to another user";
  if ((st.st_mode & 077) != 0) return "the socket's folder " + folder + " is open to other users (it must be 0700)";
  return {};
}

SuiteListener::~SuiteListener() { Stop(); }

int SuiteListener::Start(const std::string& path, Handler handler) {
  Stop();
  sockaddr_un address{};
  if (!FillAddress(path, &address)) return ENAMETOOLONG;
  if (!SocketPathProblem(path).empty()) return EACCES;
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
  // The file's mode follows the umask; it is narrowed before anyone can connect.
  if (error == 0 && ::chmod(path.c_str(), 0600) != 0) error = errno;
  if (error == 0 && (::listen(fd, kBacklog) != 0 || ::pipe2(wakePipe_, O_CLOEXEC) != 0)) error = errno;
  if (error != 0) {
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
  std::vector<Client> clients;
  std::vector<pollfd> polled;
  for (;;) {
    // Wake for the nearest time-out, or only for events when nobody is connected.
    int timeoutMs = -1;
    if (!clients.empty()) {
      const auto nearest = std::min_element(clients.begin(), clients.end(), [](const Client& a, const Client& b) {
                             return a.deadline < b.deadline;
                           })->deadline;
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(nearest - Clock::now()).count();
      timeoutMs = static_cast<int>(std::clamp<long long>(left + 1, 0, clientTimeoutMs_));
    }
    polled.assign({{socket_, POLLIN, 0}, {wakePipe_[0], POLLIN, 0}});
    for (const Client& c : clients) polled.push_back({c.fd, POLLIN, 0});
    if (::poll(polled.data(), polled.size(), timeoutMs) < 0 && errno != EINTR) break;
    if (polled[1].revents) break;
    // Serve what arrived, then drop the clients that failed or ran out of time.
    for (std::size_t i = 0; i < clients.size(); ++i) {
      const short events = polled[i + 2].revents;
      const bool keep = events == 0 ? Clock::now() < clients[i].deadline : Serve(clients[i]);
      if (!keep) ::close(clients[i].fd), clients[i].fd = -1;
    }
    std::erase_if(clients, [](const Client& c) { return c.fd < 0; });
    if (polled[0].revents & POLLIN) Accept(clients);
  }
  for (const Client& c : clients) ::close(c.fd);
}

void SuiteListener::Accept(std::vector<Client>& clients) {
  const int connection = ::accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (connection < 0) return;
  if (!PeerIsThisUser(connection)) {
    ::close(connection);  // another user gets nothing, not even an answer
    return;
  }
  if (clients.size() >= kMaxClients) {
    // Room for the newcomer: the client nearest to its time-out goes.
    auto oldest = std::min_element(clients.begin(), clients.end(),
                                   [](const Client& a, const Client& b) { return a.deadline < b.deadline; });
    ::close(oldest->fd);
    clients.erase(oldest);
  }
  clients.push_back({connection, {}, Clock::now() + std::chrono::milliseconds(clientTimeoutMs_)});
}

bool SuiteListener::Serve(Client& client) {
  std::uint8_t chunk[4096];
  for (;;) {
    const ssize_t got = ::recv(client.fd, chunk, sizeof chunk, 0);
    if (got == 0) return false;
    if (got < 0) {
      if (errno == EINTR) continue;
      if (errno != EAGAIN && errno != EWOULDBLOCK) return false;
      break;
    }
    client.pending.insert(client.pending.end(), chunk, chunk + got);
    if (client.pending.size() > kMaxSuitePayload + 8) break;  // enough to judge the head
  }
  while (client.pending.size() >= 8) {
    std::uint32_t head[2];
    std::memcpy(head, client.pending.data(), sizeof head);
    if (head[1] > kMaxSuitePayload) return false;
    if (client.pending.size() < 8 + std::size_t{head[1]}) break;
    const std::span<const std::uint8_t> payload(client.pending.data() + 8, head[1]);
    if (head[0] != 0 && handler_) handler_(head[0], payload);  // 0 is the liveness probe
    if (::send(client.fd, &kSuiteAnswer, sizeof kSuiteAnswer, MSG_NOSIGNAL | MSG_DONTWAIT) != sizeof kSuiteAnswer)
      return false;
    client.pending.erase(client.pending.begin(), client.pending.begin() + 8 + head[1]);
    client.deadline = Clock::now() + std::chrono::milliseconds(clientTimeoutMs_);
  }
  return Clock::now() < client.deadline;
}

std::optional<std::uint32_t> SendSuiteMessage(const std::string& path, std::uint32_t command,
                                              std::span<const std::uint8_t> payload, int timeoutMs) {
  sockaddr_un address{};
  if (!FillAddress(path, &address) || payload.size() > kMaxSuitePayload) return std::nullopt;
  Fd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (fd.fd < 0 || ::connect(fd.fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    return std::nullopt;
  if (!PeerIsThisUser(fd.fd)) return std::nullopt;  // nothing goes to another user's listener
  const std::uint32_t head[2] = {command, static_cast<std::uint32_t>(payload.size())};
  if (!WriteAll(fd.fd, head, sizeof head) || !WriteAll(fd.fd, payload.data(), payload.size())) return std::nullopt;
  std::uint32_t answer = 0;
  if (!ReadExactly(fd.fd, &answer, sizeof answer, timeoutMs)) return std::nullopt;
  return answer;
}

}  // namespace tarnvel
