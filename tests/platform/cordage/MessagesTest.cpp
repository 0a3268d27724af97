#include "platform/cordage/Messages.h"

#include <gtest/gtest.h>

namespace tarnvel {
namespace {

TEST(Messages, StylesTextsCatalogueAndHandler) {
  for (auto [number, style] : {std::pair{999, kStyleError}, {1000, kStyleWarning}, {1999, kStyleWarning},
                               {2000, kStyleInformation}})
    EXPECT_EQ(StyleOf(number), style) << number;
  EXPECT_NE(MessageText(33, "/data/out").find("/data/out"), std::string::npos);
  EXPECT_NE(MessageText(90, "%s%n%x").find("%s%n%x"), std::string::npos) << "a hostile argument is text, not a format";
  EXPECT_NE(MessageText(4242).find("4242"), std::string::npos);
  SetMessageCatalogue({{33, "Ordner %s geht nicht."}});
  EXPECT_EQ(MessageText(33, "x"), "Ordner x geht nicht.");
  EXPECT_NE(MessageText(90, "y").find("y"), std::string::npos) << "numbers the catalogue lacks stay English";
  SetMessageCatalogue({});

  // Display goes through the installed handler.
  std::pair<int, int> seen;
  SetMessageHandler([&](int number, int style, const std::string&) { return seen = {number, style}, kAnswerNo; });
  EXPECT_EQ(CgDisplayMsg(nullptr, kMsgConfirmAbort, kStyleYesNoQuestion, nullptr), kAnswerNo);
  EXPECT_EQ(seen, std::pair(1061, 36));
  SetMessageHandler(nullptr);
  EXPECT_EQ(CgDisplayMsg(nullptr, kMsgConfirmAbort, kStyleYesNoQuestion, nullptr), kAnswerYes)
      << "without a front end a question is answered yes";
}

}  // namespace
}  // namespace tarnvel
