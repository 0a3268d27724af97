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

}  // namespace
}  // namespace tarnvel
