#include "platform/cordage/Messages.h"

#include <cstdio>
#include <mutex>

#include "platform/cordage/TextTable.h"

namespace tarnvel {
namespace {

TextTable& Texts() {
  static TextTable texts({
      {kMsgOutputFolderFailed, "The output folder %s cannot be created."},
      {kMsgArgsFolderMissing, "The folder %s of the argument file does not exist."},
      {kMsgProfileUnreadable, "The recording's profile _config.pgv cannot be read: this folder holds no recording."},
      {kMsgRawOpenFailed, "The raw files of the recording in %s cannot be opened."},
      {kMsgJobSettingsUnusable, "This job cannot run as its settings stand: %s. Nothing was converted; the raw files were kept."},
      {kMsgOutputIncomplete, "The output %s could not be written completely; the raw files were kept."},
      {kMsgSocketUnusable, "The suite's command socket cannot be used: %s."},
      {kMsgOutOfMemory, "There is not enough memory for this job (%s); its outputs were closed and the raw files kept."},
      {kMsgFrameFailedNegative, "A frame could not be read or written (%s); the output was closed."},
      {kMsgAborted, "The conversion was aborted."},
      {kMsgFrameFailedPositive, "A frame was refused by the source or the output file %s."},
      {kMsgConfirmAbort, "Do you really want to abort the conversion?"},
      {kMsgPathTooLong, "The path %s is too long for a job; it was not added."},
      {kMsgRawDeleteFailed, "The conversion succeeded, but these raw files could not be deleted: %s."},
      {kMsgNotABatchFile, "%s is not a batch file of the suite (its signature is missing or wrong); no job was added."},
  });
  return texts;
}

std::mutex g_mutex;  // the handler

int StandardErrorHandler(int number, int style, const std::string& text) {
  const char* kind = number < 1000 ? "error" : number < 2000 ? "warning" : "message";
  std::fprintf(stderr, "tarnvel: %s %d: %s\n", kind, number, text.c_str());
  return (style & 0xF) == 4 ? kAnswerYes : kAnswerOk;
}

MessageHandler g_handler = StandardErrorHandler;

}  // namespace

Severity SeverityOf(int number) {
  if (number < 1000) return Severity::Error;
  if (number < 2000) return Severity::Warning;
  return Severity::Information;
}

int StyleOf(int number) {
  switch (SeverityOf(number)) {
    case Severity::Error: return kStyleError;
    case Severity::Warning: return kStyleWarning;
    case Severity::Information: break;
  }
  return kStyleInformation;
}

std::string MessageText(int number, const char* argument) {
  std::string text = Texts().Find(number).value_or("");
  if (text.empty()) text = "Message " + std::to_string(number) + " %s";
  const std::size_t slot = text.find("%s");
  if (slot != std::string::npos) text.replace(slot, 2, argument ? argument : "");
  // An empty argument leaves no double blank behind.
  if (const std::size_t twin = text.find("  "); twin != std::string::npos) text.erase(twin, 1);
  if (!text.empty() && text.back() == ' ') text.pop_back();
  return text;
}

std::vector<int> BuiltInMessageNumbers() { return Texts().Numbers(); }

void SetMessageCatalogue(std::map<int, std::string> texts) { Texts().SetCatalogue(std::move(texts)); }

namespace {

TextTable& Strings() {
  static TextTable strings({});
  return strings;
}

}  // namespace

std::string CatalogueText(int number, std::string_view builtIn) {
  return Strings().Find(number).value_or(std::string(builtIn));
}

void SetStringCatalogue(std::map<int, std::string> texts) { Strings().SetCatalogue(std::move(texts)); }

void SetMessageHandler(MessageHandler handler) {
  std::lock_guard lock(g_mutex);
  g_handler = handler ? std::move(handler) : StandardErrorHandler;
}

int CgDisplayMsg(void* /*owner: the desktop's handler knows its window*/, int number, int style,
                 const char* argument) {
  MessageHandler handler;
  {
    std::lock_guard lock(g_mutex);
    handler = g_handler;
  }
  return handler(number, style, MessageText(number, argument));
}

}  // namespace tarnvel
