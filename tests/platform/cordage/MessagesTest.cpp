#include "platform/cordage/Messages.h"

#include <gtest/gtest.h>

namespace tarnvel {
namespace {

TEST(Messages, SeverityAndStyleFollowTheNumber) {
  EXPECT_EQ(SeverityOf(33), Severity::Error);
  EXPECT_EQ(SeverityOf(999), Severity::Error);
  EXPECT_EQ(SeverityOf(1000), Severity::Warning);
  EXPECT_EQ(SeverityOf(1999), Severity::Warning);
  EXPECT_EQ(SeverityOf(2000), Severity::Information);
  EXPECT_EQ(StyleOf(138), kStyleError);
  EXPECT_EQ(StyleOf(1061), kStyleWarning);
  EXPECT_EQ(StyleOf(2500), kStyleInformation);
}

TEST(Messages, TextsCarryTheirArgumentLiterally) {
  for (int n : {33, 88, 89, 90, 101, 107, 138, 1061}) EXPECT_FALSE(MessageText(n).empty()) << n;
  EXPECT_NE(MessageText(33, "/data/out").find("/data/out"), std::string::npos);
  // A hostile argument is text, not a format.
  EXPECT_NE(MessageText(90, "%s%n%x").find("%s%n%x"), std::string::npos);
  EXPECT_NE(MessageText(4242).find("4242"), std::string::npos);

  SetMessageCatalogue({{33, "Ordner %s geht nicht."}});
  EXPECT_EQ(MessageText(33, "x"), "Ordner x geht nicht.");
  EXPECT_NE(MessageText(90, "y").find("y"), std::string::npos) << "numbers the catalogue lacks stay English";
  SetMessageCatalogue({});
}

TEST(Messages, DisplayGoesThroughTheInstalledHandler) {
  int seenNumber = 0, seenStyle = 0;
  std::string seenText;
  SetMessageHandler([&](int number, int style, const std::string& text) {
    seenNumber = number;
    seenStyle = style;
    seenText = text;
    return kAnswerNo;
  });
  EXPECT_EQ(CgDisplayMsg(nullptr, kMsgConfirmAbort, kStyleYesNoQuestion, nullptr), kAnswerNo);
  EXPECT_EQ(seenNumber, 1061);
  EXPECT_EQ(seenStyle, 36);
  EXPECT_EQ(seenText, MessageText(1061));
  SetMessageHandler(nullptr);
  EXPECT_EQ(CgDisplayMsg(nullptr, kMsgConfirmAbort, kStyleYesNoQuestion, nullptr), kAnswerYes)
      << "without a front end a question is answered yes";
}

}  // namespace
}  // namespace tarnvel
