#include "engine/XmlFileWriter.h"

namespace tarnvel {

CXmlFileWriter::~CXmlFileWriter() { Close(); }

bool CXmlFileWriter::Open(const char* path) {
  Close();
  indent_.clear();
  failed_ = false;
  file_ = path ? std::fopen(path, "we") : nullptr;
  return file_ != nullptr;
}

bool CXmlFileWriter::Close() {
  if (!file_) return true;
  const bool flushed = std::fflush(file_) == 0 && !std::ferror(file_);
  const bool closed = std::fclose(file_) == 0;
  file_ = nullptr;
  return !failed_ && flushed && closed;
}

void CXmlFileWriter::Line(std::string_view text) {
  if (!file_) return;  // a writer whose open failed writes nothing
  if (std::fwrite(indent_.data(), 1, indent_.size(), file_) != indent_.size() ||
      std::fwrite(text.data(), 1, text.size(), file_) != text.size() || std::fputc('\n', file_) == EOF)
    failed_ = true;
}

void CXmlFileWriter::OpenElement(std::string_view name) {
  Line("<" + std::string(name) + ">");
  indent_ += "    ";
}

void CXmlFileWriter::CloseElement(std::string_view name) {
  indent_.resize(indent_.size() < 5 ? 0 : indent_.size() - 4);
  Line("</" + std::string(name) + ">");
}

void CXmlFileWriter::WriteValue(std::string_view name, std::string_view text) {
  const std::string tag(name);
  Line("<" + tag + ">" + std::string(text) + "</" + tag + ">");
}

void CXmlFileWriter::WriteValue(std::string_view name, std::int32_t value) {
  WriteValue(name, std::to_string(value));
}

}  // namespace tarnvel
