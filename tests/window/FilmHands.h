#pragma once

#include <QString>
#include <functional>
#include <memory>

namespace korvel {

class MainWindow;

/// How a person does things in a window. A film is told once, and played by each kind of hand. What
/// a hand does not find fails the test. The English texts are those that people see.
class Hand {
 public:
  explicit Hand(MainWindow& window) : window_(window) {}
  Hand(const Hand&) = delete;
  Hand& operator=(const Hand&) = delete;
  virtual ~Hand() = default;

  virtual void enterProject(const QString& name) = 0;
  virtual void chooseEdit(const QString& name) = 0;

  /// Chooses an entry of the menu bar.
  virtual void menu(const QString& title, const QString& entry) = 0;

  /// Presses the button of this text.
  virtual void press(const QString& button) = 0;

  /// Has a clip of the chosen edit end earlier. `during` is called while its edge is on its way, by
  /// hands that have such a moment.
  virtual void trimOut(const QString& clip, const std::function<void()>& during) = 0;

  /// Chooses a version in the history; 0 is the first row.
  virtual void chooseVersion(int row) = 0;

  /// Writes to a colleague in the open message panel.
  virtual void write(const QString& to, const QString& words) = 0;

  /// Whether a person who perceives the window so can read these words in it.
  [[nodiscard]] virtual bool reads(const QString& words) const;

 protected:
  [[nodiscard]] MainWindow& window() const { return window_; }

 private:
  MainWindow& window_;
};

/// The mouse alone; the keys for nothing but text.
std::unique_ptr<Hand> mouseHand(MainWindow& window);

/// The keys alone.
std::unique_ptr<Hand> keyHand(MainWindow& window);

/// What a program for the blind can do: it finds things in the tree of accessible objects by role
/// and name, and acts by their interfaces. The tree is asked within the process, without a bus.
std::unique_ptr<Hand> readerHand(MainWindow& window);

}  // namespace korvel
