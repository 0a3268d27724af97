#include "platform/suitelink/SuiteLink.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <mutex>
#include <random>
#include <vector>

#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

struct Received {
  std::mutex mutex;
  std::vector<std::pair<std::uint32_t, std::vector<std::uint8_t>>> messages;
  SuiteListener::Handler Handler() {
    return [this](std::uint32_t command, std::span<const std::uint8_t> payload) {
      std::lock_guard lock(mutex);
      messages.emplace_back(command, std::vector<std::uint8_t>(payload.begin(), payload.end()));
    };
  }
  std::size_t Count() {
    std::lock_guard lock(mutex);
    return messages.size();
  }
};

// A raw client that sends exactly the bytes given and reports whether an answer came.
std::optional<std::uint32_t> SendRaw(const std::string& path, const std::vector<std::uint8_t>& bytes) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    ::close(fd);
    return std::nullopt;
  }
  [[maybe_unused]] auto sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  ::shutdown(fd, SHUT_WR);
  std::uint32_t answer = 0;
  const ssize_t got = ::recv(fd, &answer, sizeof answer, MSG_WAITALL);
  ::close(fd);
  return got == sizeof answer ? std::optional<std::uint32_t>(answer) : std::nullopt;
}

std::vector<std::uint8_t> Message(std::uint32_t command, std::uint32_t count, std::size_t actualBytes) {
  std::vector<std::uint8_t> bytes(8 + actualBytes, 'p');
  std::memcpy(bytes.data(), &command, 4);
  std::memcpy(bytes.data() + 4, &count, 4);
  return bytes;
}

TEST(SuiteLink, MessagesArriveWhole) {
  test::TempDir dir;
  const std::string path = dir.File("tarnvel.sock");
  Received received;
  SuiteListener listener;
  ASSERT_EQ(listener.Start(path, received.Handler()), 0);
  const std::string job = "/data/rec/args.ini";
  EXPECT_EQ(SendSuiteMessage(path, 1, {reinterpret_cast<const std::uint8_t*>(job.data()), job.size()}), 1u);
  const std::uint32_t options[2] = {1, 6};
  EXPECT_EQ(SendSuiteMessage(path, 5, {reinterpret_cast<const std::uint8_t*>(options), 8}), 1u);
  EXPECT_EQ(SendSuiteMessage(path, 4, {}), 1u);
  ASSERT_EQ(received.Count(), 3u);
  EXPECT_EQ(received.messages[0].first, 1u);
  EXPECT_EQ(std::string(received.messages[0].second.begin(), received.messages[0].second.end()), job);
  EXPECT_EQ(received.messages[1].second.size(), 8u);
  EXPECT_TRUE(received.messages[2].second.empty());

  // A second listener on the same path is refused while the first lives.
  SuiteListener second;
  EXPECT_EQ(second.Start(path, received.Handler()), EADDRINUSE);
  listener.Stop();
  EXPECT_FALSE(SendSuiteMessage(path, 3, {}, 200)) << "nobody listens any more";
}

TEST(SuiteLink, HostileClientsAreDroppedWithoutACall) {
  test::TempDir dir;
  const std::string path = dir.File("s.sock");
  Received received;
  SuiteListener listener;
  ASSERT_EQ(listener.Start(path, received.Handler()), 0);
  EXPECT_FALSE(SendRaw(path, {1, 0, 0}));                       // short header
  EXPECT_FALSE(SendRaw(path, Message(1, 100, 10)));             // count larger than the payload
  EXPECT_FALSE(SendRaw(path, Message(1, 1u << 20, 1u << 10)));  // a 1 MB count
  EXPECT_FALSE(SendRaw(path, Message(1, 0xFFFFFFFFu, 0)));
  std::mt19937 rng(11);
  for (int i = 0; i < 20; ++i) {
    std::vector<std::uint8_t> noise(rng() % 64);
    for (auto& b : noise) b = static_cast<std::uint8_t>(rng());
    SendRaw(path, noise);
  }
  const std::size_t afterNoise = received.Count();
  // Random bytes may happen to form small valid messages; the listener still serves.
  EXPECT_EQ(SendSuiteMessage(path, 3, {}), 1u);
  EXPECT_EQ(received.Count(), afterNoise + 1);
  for (const auto& [command, payload] : received.messages) EXPECT_LE(payload.size(), kMaxSuitePayload);
}

TEST(SuiteLink, StaleSocketFileIsReplaced) {
  test::TempDir dir;
  const std::string path = dir.File("stale.sock");
  {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ::close(fd);  // the file stays, nobody listens
  }
  Received received;
  SuiteListener listener;
  EXPECT_EQ(listener.Start(path, received.Handler()), 0);
  EXPECT_EQ(SendSuiteMessage(path, 2, {}), 1u);
  EXPECT_EQ(listener.Start(dir.File(std::string(200, 'x')), received.Handler()), ENAMETOOLONG);
}

}  // namespace
}  // namespace tarnvel

namespace tarnvel {
namespace {

// The command-line sender against a listener: each verb becomes its command and payload.
TEST(SuiteLink, SendProgramSpeaksTheProtocol) {
  test::TempDir dir;
  const std::string path = dir.File("t.sock");
  Received received;
  SuiteListener listener;
  ASSERT_EQ(listener.Start(path, received.Handler()), 0);
  const std::string send = (test::BinaryDir() / "apps/tarnvel-send").string() + " --socket " + path;
  std::string out;
  EXPECT_EQ(test::RunCommand(send + " add '/data/rec 7/args.ini'", &out), 0) << out;
  EXPECT_EQ(test::RunCommand(send + " options 1 12"), 0);
  EXPECT_EQ(test::RunCommand(send + " pause"), 0);
  EXPECT_EQ(test::RunCommand(send + " raw 99 hello"), 0);
  EXPECT_EQ(test::RunCommand(send + " options 1"), 2) << "usage error";
  EXPECT_EQ(test::RunCommand(send + " options x 2"), 2);
  ASSERT_EQ(received.Count(), 4u);
  EXPECT_EQ(std::string(received.messages[0].second.begin(), received.messages[0].second.end()), "/data/rec 7/args.ini");
  std::uint32_t words[2];
  std::memcpy(words, received.messages[1].second.data(), 8);
  EXPECT_EQ(words[0], 1u);
  EXPECT_EQ(words[1], 12u);
  EXPECT_EQ(received.messages[2].first, 2u);
  EXPECT_EQ(received.messages[3].first, 99u);
  listener.Stop();
  EXPECT_EQ(test::RunCommand(send + " resume"), 1) << "nobody listening";
}

}  // namespace
}  // namespace tarnvel
