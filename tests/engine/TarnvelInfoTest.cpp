// Runs the tarnvel-info program on the example recording and on folders that
// are no recording.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

using test::RunCommand;
using test::TempDir;
using test::WriteFile;

std::string Info(const std::string& arguments, int* status) {
  std::string output;
  *status = RunCommand(std::string(TARNVEL_INFO_PROGRAM) + " " + arguments, &output);
  return output;
}

TEST(TarnvelInfo, ShowsTheExampleRecording) {
  const std::string example = (test::SourceDir() / "docs/examples/recording").string();
  int status = -1;
  const std::string out = Info("'" + example + "' --serial 112345678", &status);
  EXPECT_EQ(status, 0) << out;
  for (const std::string& expected : {
           std::string("Comment                Sled test 7, left camera"),
           std::string("Recorded               2026-03-14 09:41:07.250"),
           std::string("Selection              -20 to 99"),
           std::string("First frame            -20"),
           std::string("Pixel depth            12"),
           std::string("Rate                   2000.000 fps, output 30.000 fps"),
           std::string("Model                  8 (position 3 of the table)"),
           std::string("Serial                 01-1234-5678"),
           std::string("Base name              Sled_07_"),
           std::string("Device name            CamLeft"),
           std::string("Frames to convert      100"),
           std::string("Movie (Open AVI)       " + example + "/CamLeft.avi"),
           std::string("Output folder          " + example),
           std::string("First frame file       " + example + "/Sled_07_-000020.tif"),
           std::string("Last frame file        " + example + "/Sled_07_000079.tif"),
           std::string("Companion movie        " + example + "/CamLeft.avi"),
       })
    EXPECT_NE(out.find(expected), std::string::npos) << expected << "\n" << out;
}

TEST(TarnvelInfo, RefusesWhatIsNoRecording) {
  TempDir dir;
  int status = -1;
  std::string out = Info("'" + dir.path().string() + "'", &status);
  EXPECT_EQ(status, 1);
  EXPECT_NE(out.find("no recording"), std::string::npos) << out;
  WriteFile(dir.path() / "_config.pgv", std::string("\x00\xff[Acquisition\r\nImages=\x01", 24));
  out = Info("'" + dir.File("args.ini") + "'", &status);
  EXPECT_EQ(status, 1) << out;
  out = Info("", &status);
  EXPECT_EQ(status, 2);
  // Hostile argument values: refused on their line, the rest still shown.
  WriteFile(dir.path() / "_config.pgv", "[Acquisition]\r\nImages=5\r\n");
  WriteFile(dir.path() / "args.ini", "[ArgSect]\r\nArg02=../../x\r\nArg03=2147483647\r\nArg22=" +
                                         std::string(600, 'd') + "\r\n");
  out = Info("'" + dir.path().string() + "' --dest '" + dir.File("out") + "'", &status);
  EXPECT_EQ(status, 0) << out;
  EXPECT_NE(out.find("Refused                Arg22"), std::string::npos) << out;
  EXPECT_NE(out.find("First frame file       (refused"), std::string::npos) << out;
  EXPECT_FALSE(std::filesystem::exists(dir.path() / "out")) << "tarnvel-info creates nothing";
}

}  // namespace
}  // namespace tarnvel
