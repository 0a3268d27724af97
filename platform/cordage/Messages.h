// Numbered messages. Every text a user reads has a number; the number also
// tells the severity: below 1000 an error, below 2000 a warning, from 2000 on
// information. The desktop shows messages in message boxes, a headless run on
// standard error with their number; the front end installs its handler.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tarnvel {

// Message-box styles and answers, as the suite's callers pass and test them.
constexpr int kStyleError = 16;
constexpr int kStyleWarning = 48;
constexpr int kStyleInformation = 64;
constexpr int kStyleYesNoQuestion = 36;
constexpr int kAnswerOk = 1;
constexpr int kAnswerYes = 6;
constexpr int kAnswerNo = 7;

// Numbers that the converter uses.
constexpr int kMsgOutputFolderFailed = 33;
constexpr int kMsgArgsFolderMissing = 88;
constexpr int kMsgProfileUnreadable = 89;
constexpr int kMsgRawOpenFailed = 90;
constexpr int kMsgJobSettingsUnusable = 91;  // not an argument file, or a value out of range
constexpr int kMsgOutputIncomplete = 92;     // an output failed, or is gone, at the job's end
constexpr int kMsgSocketUnusable = 93;       // the suite's command socket cannot be made safe
constexpr int kMsgOutOfMemory = 94;
constexpr int kMsgFrameFailedNegative = 101;
constexpr int kMsgAborted = 107;
constexpr int kMsgFrameFailedPositive = 138;
constexpr int kMsgConfirmAbort = 1061;
constexpr int kMsgPathTooLong = 1062;
constexpr int kMsgRawDeleteFailed = 1063;  // a job that ended Done could not delete all its raw files
constexpr int kMsgNotABatchFile = 1064;

enum class Severity { Error, Warning, Information };
Severity SeverityOf(int number);
// The message-box style that a status code goes out with: 16, 48 or 64.
int StyleOf(int number);

// The text of a number with its argument put in place of "%s" (the argument
// is inserted as text, never used as a format). Unknown numbers give a text
// that names the number.
std::string MessageText(int number, const char* argument = nullptr);

// Every number that has a built-in text, in ascending order.
std::vector<int> BuiltInMessageNumbers();

// The loaded language catalogue's text of a numbered string (labels, list
// entries, headings; the catalogue's section "Strings"), else `builtIn`.
// Nothing is put in place: patterns stay as they are.
std::string CatalogueText(int number, std::string_view builtIn);
void SetStringCatalogue(std::map<int, std::string> texts);

// Replaces the texts of the given numbers (a language catalogue); numbers it
// lacks keep the built-in English text.
void SetMessageCatalogue(std::map<int, std::string> texts);

// Shows a message and returns the answer. The handler gets number, style and
// the finished text.
using MessageHandler = std::function<int(int number, int style, const std::string& text)>;
void SetMessageHandler(MessageHandler handler);
int CgDisplayMsg(void* owner, int number, int style, const char* argument);

}  // namespace tarnvel
