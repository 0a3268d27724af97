#include "ui/ConsoleFrontEnd.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "platform/cordage/Messages.h"
#include "platform/threads/Event.h"

namespace tarnvel {
namespace {

// Everything written to a memory stream, as text.
struct Captured {
  char* data = nullptr;
  std::size_t size = 0;
  std::FILE* file = ::open_memstream(&data, &size);
  ~Captured() {
    std::fclose(file);
    std::free(data);
  }
  std::string Text() {
    std::fflush(file);
    return std::string(data, size);
  }
};

TEST(ConsoleFrontEnd, BarsRatesAndTimeLeft) {
  EXPECT_EQ(ConsoleFrontEnd::Bar(12, 10, 4) + ConsoleFrontEnd::Bar(3, 0, 4), "[####][....]");
  EXPECT_EQ(ConsoleFrontEnd::RateAndTimeLeft(10, 7210, 1.0), "10.0 fps, 12:00 left");
  EXPECT_EQ(ConsoleFrontEnd::RateAndTimeLeft(0, 100, 2.0), "");
}

TEST(ConsoleFrontEnd, PlainLinesForALogAndOneLineForATerminal) {
  for (bool terminal : {false, true}) {
    Captured out, err;
    ConsoleFrontEnd console(out.file, err.file, terminal);
    JobList list(console);
    console.SetList(&list);
    list.AddRow("/data/rec/cam1/args.ini");
    const std::uint32_t start = TickCount();
    list.SetRowStatus(0, "frame.tif", start, 1, 1, 100);
    for (int i = 1; i <= 100; ++i) list.SetRowProgress(0, start, i, 100);
    list.SetRowStatus(0, "frame.tif", start, 2, 100, 100);
    const std::string text = out.Text();
    if (!terminal) {
      EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1 + 1 + 10 + 1) << text;  // waiting, converting, tenths, done
      EXPECT_NE(text.find("job 1 rec/cam1: Waiting"), std::string::npos) << text;
      EXPECT_EQ(text.find('\r'), std::string::npos) << "no terminal control in a log";
    } else {
      EXPECT_NE(text.find("\r\033[K"), std::string::npos);
      EXPECT_NE(text.find("[############............] 50/100 50.0%"), std::string::npos) << text;
    }
  }
  Captured out, err;
  ConsoleFrontEnd console(out.file, err.file, true);
  EXPECT_EQ(console.ShowMessage(90, kStyleError, MessageText(90, "/a/b/c")), kAnswerOk);
  EXPECT_EQ(console.ShowMessage(1061, kStyleYesNoQuestion, MessageText(1061)), kAnswerYes);
  EXPECT_NE(err.Text().find("tarnvel-cli: error 90: "), std::string::npos);
  EXPECT_NE(err.Text().find("warning 1061"), std::string::npos);
}

}  // namespace
}  // namespace tarnvel
