#include "host/base/Diagnostics.h"

#include <cstring>
#include <mutex>
#include <string>
#include <utility>

#include "host/base/Log.h"
#include "station/base/DiagnosticStream.h"

using namespace korvel;

namespace korvel {

namespace {

std::mutex writerMutex;
std::FILE* replacement = nullptr;

std::function<void(const std::string&)>& writer() {
  static auto* const kept = new std::function<void(const std::string&)>;
  return *kept;
}

void printTo(std::FILE* stream, const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stream);
  if (text.find('\n') != std::string::npos) std::fflush(stream);
}

void print(const std::string& text) {
  {
    const std::lock_guard lock(writerMutex);
    if (writer()) {
      writer()(text);
    } else {
      printTo(replacement ? replacement : stdout, text);
    }
  }
  writeLog(text);
}

const char* orEmpty(const char* text) { return text ? text : ""; }

}  // namespace

void setDiagnosticStream(std::FILE* stream) {
  const std::lock_guard lock(writerMutex);
  replacement = stream;
}

void setDiagnosticWriter(std::function<void(const std::string& text)> replacing) {
  const std::lock_guard lock(writerMutex);
  writer() = std::move(replacing);
}

}  // namespace korvel

void assertionFailed(const char* condition, const char* place) {
  print(std::string("assertion failed ") + orEmpty(condition) + " at " + orEmpty(place) + "\n");
}

void printToStandardOutput(const char* text) { print(orEmpty(text)); }
