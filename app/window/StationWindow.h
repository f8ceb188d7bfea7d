#pragma once

#include <QApplication>
#include <memory>

#include "app/window/EventFeed.h"
#include "app/window/Texts.h"
#include "app/window/iStationWindow.h"

namespace korvel {

class HostLink;
class MainWindow;
class StartDialog;

/// The station's window, with the toolkit's application behind it. One object a process, on the
/// program's main thread.
class StationWindow : public iStationWindow {
 public:
  StationWindow();
  ~StationWindow() override;

  bool askForStart(Options& options, const std::string& problem) override;
  iEventSink& eventSink() override { return feed_; }
  void run(const Dependencies& surroundings) override;
  void hostEnded() override;

 protected:
  /// Runs until the host thread has ended; for tests to act in between.
  virtual void runLoop(MainWindow& window);
  virtual void runLoop(StartDialog& dialog);

 private:
  void speak();

  int argumentCount_ = 1;
  char name_[11] = "kv-station";
  char* arguments_[2] = {name_, nullptr};
  QApplication application_;
  WindowLanguage language_;
  EventFeed feed_;
};

/// A window where there is a display; else what to do about it.
MadeWindow makeStationWindow();

/// Why no window can be opened here; empty when one can.
std::string missingDisplay();

}  // namespace korvel
