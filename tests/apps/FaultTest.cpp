// Faults injected into whole runs of tarnvel-cli: a size limit or a full
// file system under the output, the destination moved away mid-run (its
// removal at a known frame is tests/engine/JobEndTest.cpp's), a read-only
// recording folder, and TERM, two INTs, HUP or a closed output pipe at a
// random moment; alone and with --parallel, over every kind of output. After
// every run: each recording's raw files are byte for byte as before, unless
// they are all gone, and then every output is whole; every output left behind
// opens in its reader (our readers for images and containers, ffprobe for
// movies, a packet walk for Chapter 10, the sidecar's structure).
//
// TARNVEL_FAULT_RUNS sets the runs per fault (default: see kDefaultRuns),
// TARNVEL_FAULT_SEED the seed; a failure names both and the run's plan.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "apps/recgen/RecordingGenerator.h"
#include "platform/cordage/TextField.h"
#include "platform/framekit/ImageReader.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

namespace fs = std::filesystem;

#ifdef TARNVEL_FAULT_RUNS
constexpr int kDefaultRuns = TARNVEL_FAULT_RUNS;
#else
constexpr int kDefaultRuns = 12;
#endif

enum class Fault { None, SizeLimit, FullFileSystem, DestinationMoved, ReadOnlyRecording, Terminate, InterruptTwice, HangUp, BrokenPipe };

const char* NameOf(Fault f) {
  static const char* const names[] = {"none",          "size limit",        "full file system", "destination moved",
                                      "read-only recording", "SIGTERM",    "SIGINT twice",     "SIGHUP",
                                      "closed pipe"};
  return names[static_cast<int>(f)];
}

enum class Reader { Image, Movie, Chapter10 };

struct Output {
  std::int32_t type;
  const char* extension;
  bool multiFrame;
  Reader reader;
};

constexpr Output kOutputs[] = {
    {1, "tif", false, Reader::Image},  {3, "jpg", false, Reader::Image},   {4, "png", false, Reader::Image},
    {11, "mpt", true, Reader::Image},  {6, "fba", true, Reader::Image},    {12, "mrf", true, Reader::Image},
    {14, "mcf", true, Reader::Image},  {15, "bld", true, Reader::Image},   {21, "t2c", true, Reader::Image},
    {13, "avi", true, Reader::Movie},  {18, "mp4", true, Reader::Movie},   {34, "ch10", true, Reader::Chapter10},
};

struct Planned {
  recgen::RecordingOptions options;
  const Output* output = nullptr;
  std::string fingerprint;  // of the raw files before the run
  fs::path outputs;         // where its outputs go (as they are kept after the run)
};

bool CanUnshare() {
  static const bool can = test::RunCommand("unshare -rm true") == 0;
  return can;
}

int EnvNumber(const char* name, int fallback) {
  const char* text = std::getenv(name);
  return text && *text ? std::atoi(text) : fallback;
}

std::string Q(const std::string& text) { return "'" + text + "'"; }

// Whether the file opens in its reader, and how many frames it holds (-1 when unknown).
bool Readable(const fs::path& file, Reader reader, long* frames, std::string* why) {
  *frames = -1;
  if (reader == Reader::Image) {
    int result = 0;
    auto image = framekit::OpenImageFile(file.string(), &result);
    if (!image) return *why = "does not open (" + std::to_string(result) + ")", false;
    for (std::uint32_t i = 0; i < image->Info().frameCount; ++i) {
      framekit::DecodedFrame frame;
      if (image->ReadFrame(i, frame) != 0) return *why = "frame " + std::to_string(i) + " does not decode", false;
    }
    *frames = image->Info().frameCount;
    return true;
  }
  if (reader == Reader::Movie) {
    std::string out;
    const int status = test::RunCommand("ffprobe -v error -count_packets -select_streams v:0 -show_entries "
                                        "stream=nb_read_packets -of csv=p=0 " + Q(file.string()), &out);
    if (status != 0 || out.find_first_not_of("0123456789\n") != std::string::npos)
      return *why = "ffprobe: " + out, false;
    *frames = std::atol(out.c_str());
    return true;
  }
  // Chapter 10: packets one behind the other, each opening with the sync
  // pattern and its own length, to the end of the file; image packets counted.
  const std::string bytes = test::ReadFile(file);
  long images = 0;
  for (std::size_t at = 0; at < bytes.size();) {
    if (bytes.size() - at < 24) return *why = "a packet header cut at " + std::to_string(at), false;
    const auto* p = reinterpret_cast<const std::uint8_t*>(bytes.data() + at);
    const std::uint32_t length = p[4] | p[5] << 8 | p[6] << 16 | static_cast<std::uint32_t>(p[7]) << 24;
    if (p[0] != 0x25 || p[1] != 0xEB || length < 24 || length > bytes.size() - at)
      return *why = "no whole packet at " + std::to_string(at), false;
    images += (p[15] & 0xF0) == 0x40;  // the image formats
    at += length;
  }
  *frames = images;
  return true;
}

class FaultSuite : public ::testing::TestWithParam<Fault> {
 protected:
  void RunOnce(std::mt19937& rng, int run);
  int kept_ = 0, deleted_ = 0;  // recordings whose raw files stayed, and went after a whole run

 private:
  std::vector<Planned> Plan(std::mt19937& rng, bool parallel, bool toDestination);
  std::string Command(Fault fault, std::mt19937& rng, const std::vector<Planned>& jobs, bool parallel);
  void Check(const Planned& job, Fault fault, const std::string& log);
  void CheckOutputs(const Planned& job, bool whole);

  test::TempDir dir_;
  fs::path work_;
};

std::vector<Planned> FaultSuite::Plan(std::mt19937& rng, bool parallel, bool toDestination) {
  std::vector<Planned> jobs(parallel ? 3 : 1);
  for (std::size_t i = 0; i < jobs.size(); ++i) {
    Planned& job = jobs[i];
    recgen::RecordingOptions& o = job.options;
    job.output = &kOutputs[rng() % std::size(kOutputs)];
    o.folder = (work_ / ("rec" + std::to_string(i))).string();
    o.width = 64 + 32 * (rng() % 8), o.height = 48 + 16 * (rng() % 8);
    o.frames = 20 + rng() % 180, o.preTrigger = rng() % 5;
    o.fileType = job.output->type;
    o.baseName = "take", o.deviceName = "cam";
    o.deleteRaw = 1;
    o.companionMovie = job.output->reader == Reader::Image && rng() % 3 == 0;
    o.timeFromReceiver = rng() % 3 == 0;  // a time-code recording: a sidecar too
    EXPECT_EQ(recgen::WriteRecording(o), "");
    job.fingerprint = test::RawFilesFingerprint(o.folder);
    job.outputs = toDestination ? work_ / "kept" / ("rec" + std::to_string(i)) : fs::path(o.folder);
  }
  return jobs;
}

std::string FaultSuite::Command(Fault fault, std::mt19937& rng, const std::vector<Planned>& jobs, bool parallel) {
  const std::string cli = (test::BinaryDir() / "apps/tarnvel-cli").string();
  const std::string env = "TARNVEL_USER_REGISTRY=" + Q((work_ / "u.reg").string()) + " TARNVEL_MACHINE_REGISTRY=" +
                          Q((work_ / "m.reg").string()) + " ";
  const std::string dest = (work_ / "dest").string(), kept = (work_ / "kept").string();
  std::string inputs;
  const bool toDestination = fault == Fault::FullFileSystem || fault == Fault::DestinationMoved ||
                             fault == Fault::ReadOnlyRecording;
  if (toDestination) {
    std::string batch = "[List]\r\nSignature=OKN Fathom Bureau Raw Batch File V 1.00\r\nDestinationFolder=" + dest +
                        "\r\nFileType=-1\r\nCount=" + std::to_string(jobs.size()) + "\r\n";
    for (std::size_t i = 0; i < jobs.size(); ++i)
      batch += "File_00" + std::to_string(i) + "=" + JoinPath(jobs[i].options.folder, "args.ini") + "\r\n";
    test::WriteFile(work_ / "jobs.bat", batch);
    inputs = Q((work_ / "jobs.bat").string());
  } else {
    for (const Planned& job : jobs) inputs += " " + Q(JoinPath(job.options.folder, "args.ini"));
  }
  const std::string run = env + cli + (parallel ? " --parallel 2 " : " ") + inputs;
  const std::string logs = " >" + Q((work_ / "out.log").string()) + " 2>" + Q((work_ / "err.log").string());
  const std::string delay = "0." + std::to_string(rng() % 300 + 1000).substr(1);  // 0.000 to 0.299 s
  const std::string keep = "mkdir -p " + Q(kept) + "; cp -a " + Q(dest) + "/. " + Q(kept) + " 2>/dev/null; ";
  auto signal = [&](const std::string& kill) {
    return run + logs + " & pid=$!; sleep " + delay + "; " + kill + "; wait $pid; echo $? >" + Q((work_ / "status").string());
  };
  switch (fault) {
    case Fault::None: return run + logs + "; echo $? >" + Q((work_ / "status").string());
    case Fault::SizeLimit:
      return "trap '' XFSZ; ulimit -f " + std::to_string(20 + rng() % 2000) + "; " + run + logs +
             "; echo $? >" + Q((work_ / "status").string());
    case Fault::FullFileSystem:
      // The destination is a small file system of its own; what is on it
      // when the converter ends is copied out before it goes.
      return "mkdir -p " + Q(dest) + "; unshare -rm sh -c " +
             Q("mount -t tmpfs -o size=" + std::to_string(32 + rng() % 2000) + "k none '" + dest + "' && " +
               "{ " + run + logs + "; echo $? >'" + (work_ / "status").string() + "'; }; " +
               "mkdir -p '" + kept + "'; cp -a '" + dest + "'/. '" + kept + "'");
    case Fault::DestinationMoved:
      // Moved away rather than deleted, so that what was written can still be
      // looked at: a job that ends after the move must not count it as done.
      return signal("mv " + Q(dest) + " " + Q(dest + ".gone")) + "; mkdir -p " + Q(kept) + "; cp -a " + Q(dest + ".gone") +
             "/. " + Q(kept) + " 2>/dev/null; " + keep;
    case Fault::ReadOnlyRecording: {
      std::string mounts;
      for (const Planned& job : jobs)
        mounts += "mount --bind '" + job.options.folder + "' '" + job.options.folder + "' && mount -o remount,ro,bind '" +
                  job.options.folder + "' && ";
      return "unshare -rm sh -c " + Q(mounts + "{ " + run + logs + "; echo $? >'" + (work_ / "status").string() + "'; }") +
             "; " + keep;
    }
    case Fault::Terminate: return signal("kill -TERM $pid");
    case Fault::InterruptTwice: return signal("kill -INT $pid; sleep 0.05; kill -INT $pid");
    case Fault::HangUp: return signal("kill -HUP $pid");
    case Fault::BrokenPipe:
      // The reader of the progress lines goes away after a few of them.
      return "{ " + run + " 2>" + Q((work_ / "err.log").string()) + "; echo $? >" + Q((work_ / "status").string()) +
             "; } | head -c " + std::to_string(60 + rng() % 200) + " >/dev/null";
  }
  return {};
}

void FaultSuite::CheckOutputs(const Planned& job, bool whole) {
  const Output& out = *job.output;
  const long frames = static_cast<long>(job.options.frames);
  std::vector<fs::path> mains;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(job.outputs, ec)) {
    const std::string name = entry.path().filename().string();
    if (name.starts_with("take") && entry.path().extension() == std::string(".") + out.extension)
      mains.push_back(entry.path());
  }
  if (whole) {
    EXPECT_EQ(mains.size(), out.multiFrame ? 1u : static_cast<std::size_t>(frames)) << "the whole output set is there";
    if (job.outputs != fs::path(job.options.folder)) {
      EXPECT_TRUE(fs::exists(job.outputs / "_config.pgv")) << "the profile follows the output";
    }
  }
  for (const fs::path& file : mains) {
    long count = 0;
    std::string why;
    if (out.multiFrame && fs::file_size(file, ec) == 0 && !whole) continue;  // opened, and no frame reached it
    EXPECT_TRUE(Readable(file, out.reader, &count, &why)) << file << ": " << why;
    if (whole && out.multiFrame && count >= 0) {
      EXPECT_EQ(count, frames) << file;
    }
  }
  if (job.options.companionMovie) {
    const fs::path movie = job.outputs / "cam.avi";
    long count = 0;
    std::string why;
    if (fs::exists(movie) && (fs::file_size(movie, ec) > 0 || whole)) {
      EXPECT_TRUE(Readable(movie, Reader::Movie, &count, &why)) << movie << ": " << why;
    }
    if (whole) {
      EXPECT_TRUE(fs::exists(movie));
    }
  }
  if (job.options.timeFromReceiver) {
    const fs::path sidecar = job.outputs / "take.time.xml";
    if (whole) {
      EXPECT_TRUE(fs::exists(sidecar));
    }
    if (fs::exists(sidecar)) {
      const std::string xml = test::ReadFile(sidecar);
      std::size_t opened = 0, closed = 0;
      for (std::size_t at = 0; (at = xml.find("<Frame>", at)) != std::string::npos; ++at) ++opened;
      for (std::size_t at = 0; (at = xml.find("</Frame>", at)) != std::string::npos; ++at) ++closed;
      EXPECT_TRUE(xml.starts_with("<Data>\n") && xml.ends_with("</Data>\n") && opened == closed) << sidecar;
      if (whole) {
        EXPECT_EQ(static_cast<long>(opened), frames) << sidecar;
      }
    }
  }
}

void FaultSuite::Check(const Planned& job, Fault fault, const std::string& log) {
  SCOPED_TRACE(job.options.folder + " as ." + job.output->extension + (job.options.companionMovie ? " + movie" : "") +
               (job.options.timeFromReceiver ? " + sidecar" : ""));
  const std::string now = test::RawFilesFingerprint(job.options.folder);
  if (now == job.fingerprint) {
    ++kept_;
    if (fault == Fault::None) ADD_FAILURE() << "a run without a fault keeps its raw files\n" << log;
    return CheckOutputs(job, false);
  }
  ++deleted_;
  EXPECT_EQ(now, "") << "raw files changed, yet not all were deleted\n" << log;
  CheckOutputs(job, true);
}

void FaultSuite::RunOnce(std::mt19937& rng, int run) {
  const Fault fault = GetParam();
  work_ = dir_.path() / ("run" + std::to_string(run));
  fs::create_directories(work_);
  const bool parallel = rng() % 2 == 0;
  const bool toDestination = fault == Fault::FullFileSystem || fault == Fault::DestinationMoved ||
                             fault == Fault::ReadOnlyRecording;
  const std::vector<Planned> jobs = Plan(rng, parallel, toDestination);
  const std::string script = Command(fault, rng, jobs, parallel);
  test::WriteFile(work_ / "run.sh", script + "\n");
  std::string shell;
  const int finished = test::RunCommand("timeout -s KILL 120 sh " + Q((work_ / "run.sh").string()), &shell);
  const std::string log = "script: " + script + "\n" + shell + test::ReadFile(work_ / "out.log") +
                          test::ReadFile(work_ / "err.log");
  SCOPED_TRACE(std::string(NameOf(fault)) + (parallel ? ", parallel" : "") + ", run " + std::to_string(run));
  ASSERT_NE(finished, 137) << "the converter hung\n" << log;
  const std::string status = test::ReadFile(work_ / "status");
  EXPECT_EQ(log.find("Sanitizer"), std::string::npos) << log;
  EXPECT_EQ(log.find("runtime error"), std::string::npos) << log;
  // Exit status 0 means every job ended Done; a failed deletion says so.
  if (status.starts_with("0") && fault != Fault::None)
    for (const Planned& job : jobs)
      if (test::RawFilesFingerprint(job.options.folder) != "") {
        EXPECT_NE(log.find("warning 1063"), std::string::npos) << "Done, but the raw files stayed unexplained\n" << log;
      }
  EXPECT_TRUE(status.starts_with("0") || status.starts_with("1")) << "exit status " << status << "\n" << log;
  for (const Planned& job : jobs) Check(job, fault, log);
  if (!HasFailure()) fs::remove_all(work_);
}

TEST_P(FaultSuite, RawFilesStayUnlessEveryOutputIsWhole) {
  const Fault fault = GetParam();
  if ((fault == Fault::FullFileSystem || fault == Fault::ReadOnlyRecording) && !CanUnshare())
    GTEST_SKIP() << "needs a private mount namespace (unshare -rm), which this machine does not allow";
  const int runs = EnvNumber("TARNVEL_FAULT_RUNS", kDefaultRuns);
  const unsigned seed = static_cast<unsigned>(EnvNumber("TARNVEL_FAULT_SEED", 14)) * 31 + static_cast<unsigned>(fault);
  SCOPED_TRACE("TARNVEL_FAULT_SEED base " + std::to_string(EnvNumber("TARNVEL_FAULT_SEED", 14)));
  std::mt19937 rng(seed);
  for (int run = 0; run < runs && !HasFatalFailure(); ++run) RunOnce(rng, run);
  std::printf("%s: %d runs; raw files kept in %d recordings, deleted after a whole output in %d\n", NameOf(fault), runs,
              kept_, deleted_);
}

INSTANTIATE_TEST_SUITE_P(EveryFault, FaultSuite,
                         ::testing::Values(Fault::None, Fault::SizeLimit, Fault::FullFileSystem,
                                           Fault::DestinationMoved, Fault::ReadOnlyRecording, Fault::Terminate,
                                           Fault::InterruptTwice, Fault::HangUp, Fault::BrokenPipe),
                         [](const auto& param) {
                           std::string name = NameOf(param.param);
                           for (char& c : name)
                             if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                           return name;
                         });

}  // namespace
}  // namespace tarnvel
