#include "platform/suitelink/SuiteLink.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <mutex>
#include <optional>
#include <random>
#include <vector>

#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

// A listener on a fresh socket that keeps every message it was handed.
class SuiteLink : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(listener_.Start(path_, Handler()), 0); }
  SuiteListener::Handler Handler() {
    return [this](std::uint32_t command, std::span<const std::uint8_t> payload) {
      std::lock_guard lock(mutex_);
      messages_.emplace_back(command, std::vector<std::uint8_t>(payload.begin(), payload.end()));
    };
  }
  std::size_t Count() {
    std::lock_guard lock(mutex_);
    return messages_.size();
  }
  std::string Text(std::size_t i) { return std::string(messages_[i].second.begin(), messages_[i].second.end()); }

  test::TempDir dir_;
  std::string path_ = dir_.File("tarnvel.sock");
  std::mutex mutex_;
  std::vector<std::pair<std::uint32_t, std::vector<std::uint8_t>>> messages_;
  SuiteListener listener_;
};

sockaddr_un AddressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  return address;
}

// A raw client that sends exactly the bytes given and reports whether an answer came.
bool SendRaw(const std::string& path, const std::vector<std::uint8_t>& bytes) {
  const sockaddr_un address = AddressOf(path);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  std::uint32_t answer = 0;
  ssize_t got = 0;
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    [[maybe_unused]] auto sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    ::shutdown(fd, SHUT_WR);
    got = ::recv(fd, &answer, sizeof answer, MSG_WAITALL);
  }
  ::close(fd);
  return got == sizeof answer;
}

std::vector<std::uint8_t> Message(std::uint32_t command, std::uint32_t count, std::size_t actualBytes) {
  std::vector<std::uint8_t> bytes(8 + actualBytes, 'p');
  std::memcpy(bytes.data(), &command, 4);
  std::memcpy(bytes.data() + 4, &count, 4);
  return bytes;
}

TEST_F(SuiteLink, MessagesArriveWholeOneListenerOwnsThePathStaleFilesAreReplaced) {
  const std::string job = "/data/rec/args.ini";
  EXPECT_EQ(SendSuiteMessage(path_, 1, {reinterpret_cast<const std::uint8_t*>(job.data()), job.size()}), 1u);
  EXPECT_EQ(SendSuiteMessage(path_, 4, {}), 1u);
  ASSERT_EQ(Count(), 2u);
  EXPECT_EQ(std::pair(messages_[0].first, Text(0)), std::pair(1u, job));
  EXPECT_TRUE(messages_[1].second.empty());

  SuiteListener second;
  EXPECT_EQ(second.Start(path_, Handler()), EADDRINUSE) << "refused while the first lives";
  listener_.Stop();
  EXPECT_FALSE(SendSuiteMessage(path_, 3, {}, 200)) << "nobody listens any more";

  // A stale socket file is replaced; a path too long for a socket is refused.
  const std::string stale = dir_.File("stale.sock");
  const sockaddr_un address = AddressOf(stale);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ::close(fd);  // the file stays, nobody listens
  SuiteListener listener;
  EXPECT_EQ(listener.Start(stale, Handler()), 0);
  EXPECT_EQ(SendSuiteMessage(stale, 2, {}), 1u);
  EXPECT_EQ(listener.Start(dir_.File(std::string(200, 'x')), Handler()), ENAMETOOLONG);
}

TEST_F(SuiteLink, HostileClientsAreDroppedWithoutACall) {
  EXPECT_FALSE(SendRaw(path_, {1, 0, 0}));                       // short header
  EXPECT_FALSE(SendRaw(path_, Message(1, 100, 10)));             // count larger than the payload
  EXPECT_FALSE(SendRaw(path_, Message(1, 0xFFFFFFFFu, 1u << 10)));
  EXPECT_EQ(Count(), 0u);
  std::mt19937 rng(11);
  for (int i = 0; i < 20; ++i) {
    std::vector<std::uint8_t> noise(rng() % 64);
    for (auto& b : noise) b = static_cast<std::uint8_t>(rng());
    SendRaw(path_, noise);
  }
  // Random bytes may happen to form small valid messages; the listener still serves.
  const std::size_t afterNoise = Count();
  EXPECT_EQ(SendSuiteMessage(path_, 3, {}), 1u);
  EXPECT_EQ(Count(), afterNoise + 1);
  for (const auto& [command, payload] : messages_) EXPECT_LE(payload.size(), kMaxSuitePayload);
}

// Sets an environment variable for the length of a scope (unset with null).
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    value ? ::setenv(name, value, 1) : ::unsetenv(name);
  }
  ~ScopedEnv() { old_ ? ::setenv(name_, old_->c_str(), 1) : ::unsetenv(name_); }

 private:
  const char* name_;
  std::optional<std::string> old_;
};

mode_t ModeOf(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

// The socket file is 0600 whatever the umask; a folder that others can enter,
// that is a link or that belongs to another user is refused; without a
// runtime folder the socket goes to the user's own cache folder, never /tmp.
TEST_F(SuiteLink, TheSocketLivesWhereOnlyItsUserCanReachIt) {
  listener_.Stop();
  const mode_t saved = ::umask(0);
  EXPECT_EQ(listener_.Start(path_, Handler()), 0);
  ::umask(saved);
  EXPECT_EQ(ModeOf(path_), 0600u);

  const std::string open = dir_.File("open");
  ASSERT_EQ(::mkdir(open.c_str(), 0755), 0);
  ::chmod(open.c_str(), 0755);
  SuiteListener refused;
  EXPECT_EQ(refused.Start(open + "/tarnvel.sock", Handler()), EACCES);
  EXPECT_NE(SocketPathProblem(open + "/tarnvel.sock").find("open to other users"), std::string::npos);
  const std::string link = dir_.File("link");
  std::filesystem::create_directory_symlink(dir_.path(), link);
  EXPECT_EQ(refused.Start(link + "/tarnvel.sock", Handler()), EACCES) << "a link could be turned elsewhere";
  if (::geteuid() == 0) {
    const std::string theirs = dir_.File("theirs");
    ASSERT_EQ(::mkdir(theirs.c_str(), 0700), 0);
    ASSERT_EQ(::chown(theirs.c_str(), 65534, 65534), 0);
    EXPECT_NE(SocketPathProblem(theirs + "/tarnvel.sock").find("another user"), std::string::npos);
  }

  const ScopedEnv noSocket("TARNVEL_SOCKET", nullptr), noRuntime("XDG_RUNTIME_DIR", nullptr);
  {
    const ScopedEnv home("HOME", dir_.path().c_str()), noCache("XDG_CACHE_HOME", nullptr);
    const std::string place = ConverterSocketPath();
    EXPECT_EQ(place, dir_.File(".cache/tarnvel/tarnvel.sock"));
    EXPECT_EQ(SocketPathProblem(place), "");
    EXPECT_EQ(ModeOf(dir_.File(".cache/tarnvel")), 0700u) << "made for its user alone";
    SuiteListener fallback;
    ASSERT_EQ(fallback.Start(place, Handler()), 0);
    EXPECT_EQ(SendSuiteMessage(ConverterSocketPath(), 3, {}), 1u);
  }
  {
    const ScopedEnv noHome("HOME", nullptr), noCache("XDG_CACHE_HOME", nullptr);
    EXPECT_EQ(ConverterSocketPath(), "");
    EXPECT_NE(SocketPathProblem("").find("XDG_RUNTIME_DIR"), std::string::npos);
    SuiteListener none;
    EXPECT_NE(none.Start(ConverterSocketPath(), Handler()), 0);
  }
}

// Idle connections and one that sends half a message neither fill the
// listener nor hold up a client that sends a whole one; they are dropped
// after the client time-out.
TEST_F(SuiteLink, IdleAndSlowClientsDoNotBlockOthers) {
  listener_.Stop();
  listener_.SetClientTimeout(300);
  ASSERT_EQ(listener_.Start(path_, Handler()), 0);
  std::vector<int> idle;
  for (int i = 0; i < 80; ++i) {
    const sockaddr_un address = AddressOf(path_);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    if (i == 0) {
      ASSERT_EQ(::send(fd, "\x01\0\0", 3, MSG_NOSIGNAL), 3);  // half a head, then nothing
    }
    idle.push_back(fd);
  }
  for (int i = 0; i < 5; ++i) EXPECT_EQ(SendSuiteMessage(path_, 2, {}), 1u) << i;
  EXPECT_EQ(Count(), 5u);
  // Every idle connection is closed by the listener in the end.
  for (const int fd : idle) {
    pollfd p{fd, POLLIN, 0};
    EXPECT_EQ(::poll(&p, 1, 20000), 1);
    char byte;
    EXPECT_EQ(::recv(fd, &byte, 1, 0), 0) << "closed without an answer";
    ::close(fd);
  }
}

// Another user (the test drops to "nobody" when it runs as root) gets
// nothing: the socket's folder and file keep it out, and were they opened
// to everyone, the listener would still close its connection unread.
TEST_F(SuiteLink, AnotherUserGetsNothing) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to act as a second user (setpriv to nobody)";
  const std::string asNobody = "setpriv --reuid=65534 --regid=65534 --clear-groups ";
  const std::string send = asNobody + (test::BinaryDir() / "apps/tarnvel-send").string() + " --socket " + path_;
  // A plain client that does not care whose listener it meets: exit 0 only when answered.
  const std::string raw = asNobody +
                          "/usr/bin/python3 -c \"import socket,struct,sys; s=socket.socket(socket.AF_UNIX); "
                          "s.connect(sys.argv[1]); p=b'/data/rec/args.ini'; s.sendall(struct.pack('<II',1,len(p))+p); "
                          "s.settimeout(5); sys.exit(0 if len(s.recv(4))==4 else 3)\" " + path_;
  std::string output;
  EXPECT_NE(test::RunCommand(send + " add /data/rec/args.ini", &output), 0) << output;
  EXPECT_NE(test::RunCommand(raw, &output), 0) << output;
  ASSERT_EQ(::chmod(dir_.path().c_str(), 0755), 0);
  ASSERT_EQ(::chmod(path_.c_str(), 0666), 0);
  EXPECT_NE(test::RunCommand(raw, &output), 0) << output;
  EXPECT_NE(test::RunCommand(send + " close", &output), 0) << output;
  EXPECT_EQ(Count(), 0u) << "nothing of theirs reached the converter";
  EXPECT_EQ(SendSuiteMessage(path_, 3, {}), 1u) << "its own user is still served";
  ::chmod(dir_.path().c_str(), 0700);
}

}  // namespace
}  // namespace tarnvel
