#include "host/base/Diagnostics.h"

#include <cstring>
#include <mutex>
#include <string>

#include "host/base/Log.h"
#include "station/base/DiagnosticStream.h"

namespace {

std::mutex mutex;
std::FILE* replacement = nullptr;

void print(const std::string& text) {
  {
    const std::lock_guard lock(mutex);
    std::FILE* const stream = replacement ? replacement : stdout;
    std::fwrite(text.data(), 1, text.size(), stream);
    if (text.find('\n') != std::string::npos) std::fflush(stream);
  }
  writeLog(text);
}

const char* orEmpty(const char* text) { return text ? text : ""; }

}  // namespace

void setDiagnosticStream(std::FILE* stream) {
  const std::lock_guard lock(mutex);
  replacement = stream;
}

void assertionFailed(const char* condition, const char* place) {
  print(std::string("assertion failed ") + orEmpty(condition) + " at " + orEmpty(place) + "\n");
}

void printToStandardOutput(const char* text) { print(orEmpty(text)); }
