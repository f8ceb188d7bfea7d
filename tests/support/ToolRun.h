#pragma once

#include <string>
#include <vector>

namespace korvel {

/// What a run of kv-share left behind.
struct ToolRun {
  int status = -1;  ///< the exit status; 128 and the number where a signal ended it
  std::string out;
  std::string err;
};

/// A folder of the test's own, removed with all in it.
class TestFolder {
 public:
  TestFolder();
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;
  ~TestFolder();

  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] std::string operator/(const std::string& name) const { return path_ + "/" + name; }

  /// Writes a file, making the folders on the way to it; its path.
  [[nodiscard]] std::string write(const std::string& name, const std::string& bytes) const;

 private:
  std::string path_;
};

/// A run of kv-share that goes on beside the test; it ends with the object.
class BackgroundTool {
 public:
  explicit BackgroundTool(const std::vector<std::string>& words, const std::string& input = {});
  BackgroundTool(const BackgroundTool&) = delete;
  BackgroundTool& operator=(const BackgroundTool&) = delete;
  ~BackgroundTool();

  /// Waits until it has written this to its standard output or standard error, half a minute at
  /// most; whether it has.
  [[nodiscard]] bool hasWritten(const std::string& text) const;

  void signal(int number) const;

  /// Waits for its end; what it left behind.
  ToolRun finish();

 private:
  TestFolder folder_;
  int child_;
};

/// Runs kv-share with these words and this standard input, and waits for its end.
ToolRun runTool(const std::vector<std::string>& words, const std::string& input = {});

/// A file's bytes; empty where there is no file.
std::string contentOf(const std::string& path);

}  // namespace korvel
