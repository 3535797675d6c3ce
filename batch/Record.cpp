#include "batch/Record.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace batch {

namespace {

// The length of the well-formed UTF-8 sequence starting at `at` (1 to 4),
// or 0 when the byte there starts none.
size_t sequenceLength(std::string_view text, size_t at) {
  const auto byte = [&](size_t i) { return at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0u; };
  const auto continuation = [&](size_t i, unsigned low = 0x80, unsigned high = 0xBF) {
    return byte(i) >= low && byte(i) <= high;
  };
  const unsigned lead = byte(0);
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) return continuation(1) ? 2 : 0;
  if (lead >= 0xE0 && lead <= 0xEF) {
    // No overlong forms (E0 80..9F) and no surrogates (ED A0..BF).
    const bool second = lead == 0xE0 ? continuation(1, 0xA0) : lead == 0xED ? continuation(1, 0x80, 0x9F) : continuation(1);
    return second && continuation(2) ? 3 : 0;
  }
  if (lead >= 0xF0 && lead <= 0xF4) {
    // Nothing overlong (F0 80..8F) and nothing past U+10FFFF (F4 90..).
    const bool second = lead == 0xF0 ? continuation(1, 0x90) : lead == 0xF4 ? continuation(1, 0x80, 0x8F) : continuation(1);
    return second && continuation(2) && continuation(3) ? 4 : 0;
  }
  return 0;
}

void appendList(std::string& json, const char* name, const std::vector<std::string>& lines) {
  json += ",\"";
  json += name;
  json += "\":[";
  for (size_t i = 0; i < lines.size(); ++i) json += (i ? "," : "") + jsonString(lines[i]);
  json += ']';
}

void appendNumber(std::string& json, const char* name, uint64_t value) {
  json += ",\"";
  json += name;
  json += "\":" + std::to_string(value);
}

// A path, or null for an empty one.
std::string jsonPath(const std::string& path) { return path.empty() ? "null" : jsonString(path); }

}  // namespace

std::string jsonString(std::string_view text) {
  std::string json = "\"";
  for (size_t at = 0; at < text.size();) {
    const char c = text[at];
    const size_t length = sequenceLength(text, at);
    if (length == 0) {
      json += "\\ufffd";
      ++at;
      continue;
    }
    if (c == '"' || c == '\\') {
      json += '\\';
      json += c;
    } else if (c == '\n') {
      json += "\\n";
    } else if (c == '\t') {
      json += "\\t";
    } else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(static_cast<unsigned char>(c)));
      json += escaped;
    } else {
      json.append(text.data() + at, length);
    }
    at += length;
  }
  return json + '"';
}

std::string jsonRecord(const Record& record) {
  char seconds[32];
  std::snprintf(seconds, sizeof seconds, "%.3f", record.seconds);
  std::string json = "{\"input\":" + jsonString(record.input) + ",\"output\":" + jsonPath(record.output) +
                     ",\"class\":\"" + outcomeName(record.outcome) + "\",\"seconds\":" + seconds;
  appendNumber(json, "bytes_read", record.bytesRead);
  appendNumber(json, "bytes_written", record.bytesWritten);
  appendNumber(json, "files_written", record.filesWritten);
  json += ",\"first_sfz\":" + jsonPath(record.firstSfz);
  appendList(json, "errors", record.errors);
  appendList(json, "warnings", record.warnings);
  json += std::string(",\"kept_earlier\":") + (record.keptEarlier ? "true" : "false") + "}";
  return json;
}

JsonReport::~JsonReport() { close(); }

bool JsonReport::open(const std::string& path, std::string& error) {
  if (path == "-") {
    file_ = stdout;
  } else {
    // Not inherited by the conversions.
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    file_ = descriptor < 0 ? nullptr : ::fdopen(descriptor, "w");
    if (!file_) {
      error = "cannot write " + path + ": " + std::strerror(errno);
      return false;
    }
    ownFile_ = true;
  }
  std::fputs("[", file_);
  return true;
}

void JsonReport::add(const Record& record) {
  if (!file_) return;
  std::fputs(records_++ ? ",\n" : "\n", file_);
  std::fputs(jsonRecord(record).c_str(), file_);
}

bool JsonReport::close() {
  if (!file_) return true;
  std::fputs(records_ ? "\n]\n" : "]\n", file_);
  bool written = std::fflush(file_) == 0 && !std::ferror(file_);
  if (ownFile_) written = std::fclose(file_) == 0 && written;
  file_ = nullptr;
  return written;
}

}  // namespace batch
