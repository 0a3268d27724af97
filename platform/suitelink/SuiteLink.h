// The suite's programs talk over local sockets, one message at a time:
// a u32 command number, a u32 byte count, and the bytes, little-endian as the
// machine is. The receiver answers every message with the u32 1.
//
// The converter listens on $TARNVEL_SOCKET, else $XDG_RUNTIME_DIR/tarnvel.sock;
// the suite's main window on $TARNVEL_SUITE_SOCKET, else
// $XDG_RUNTIME_DIR/fathom-bureau.sock. Without XDG_RUNTIME_DIR the folder is
// /tmp with the user's number in the name.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <thread>

namespace tarnvel {

// A message larger than this is not read: its connection is closed unanswered.
constexpr std::uint32_t kMaxSuitePayload = 64 * 1024;
constexpr std::uint32_t kSuiteAnswer = 1;

std::string ConverterSocketPath();
std::string SuiteSocketPath();

// Receives messages on a socket path on a thread of its own and hands each
// complete one to the handler, on that thread, before answering it. A client
// that stalls is dropped after a few seconds; short or oversized messages are
// dropped without a call.
class SuiteListener {
 public:
  using Handler = std::function<void(std::uint32_t command, std::span<const std::uint8_t> payload)>;

  SuiteListener() = default;
  ~SuiteListener();
  SuiteListener(const SuiteListener&) = delete;
  SuiteListener& operator=(const SuiteListener&) = delete;

  // 0 on success; otherwise an errno value (EADDRINUSE when another program
  // listens on the path; a stale socket file left by a dead one is replaced).
  int Start(const std::string& path, Handler handler);
  void Stop();

 private:
  void Run();
  void Serve(int connection);

  std::string path_;
  Handler handler_;
  int socket_ = -1;
  int wakePipe_[2] = {-1, -1};
  std::thread thread_;
};

// Sends one message and waits for the answer; nothing when nobody listens or
// no answer came within the time-out.
std::optional<std::uint32_t> SendSuiteMessage(const std::string& path, std::uint32_t command,
                                              std::span<const std::uint8_t> payload, int timeoutMs = 3000);

}  // namespace tarnvel
