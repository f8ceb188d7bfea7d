#pragma once

#include <QComboBox>
#include <QDialog>
#include <QMenuBar>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QTabBar>
#include <QTranslator>
#include <QTreeView>
#include <set>

#include "app/window/MainWindow.h"

namespace korvel {

/// A language that nobody speaks: English in brackets, 40 % longer, with an accent on each vowel.
/// What has a plain vowel was not translated.
class MadeUpLanguage : public QTranslator {
 public:
  ~MadeUpLanguage() override = default;

  [[nodiscard]] bool isEmpty() const override { return false; }

  [[nodiscard]] QString translate(const char* context, const char* sourceText, const char*,
                                  int) const override;

  /// A text in this language; empty for one without letters.
  static QString of(const QString& text);

 private:
  static QChar accented(QChar letter);

  /// In short words, at which a line may be broken.
  static QString padding(qsizetype letters);
};

/// Looks at what is in sight: whether it is in the made-up language, but for what people typed, and
/// whether it fits. Each complaint comes once.
class LanguageCheck {
 public:
  /// `name` is shown as it is.
  LanguageCheck(MainWindow& window, const QString& name) : window_(window), data_(name) {}

  /// Names and words that are shown as they are.
  void know(const QStringList& data) { data_ += data; }

  /// What a bar says is the station's.
  void leaveOut(const QWidget* widget) { leftOut_.insert(widget); }

  /// Looks at the window, its menus and its dialogs.
  void look(const QString& where);

  /// Looks at a dialog that is none of the window's.
  void lookAtDialog(QDialog& dialog, const QString& where);

  [[nodiscard]] int texts() const { return static_cast<int>(seen_.size()); }

 private:
  /// What the station's snapshot holds is data.
  void learn();
  void complain(const char* what, const QString& text, const QString& of);
  void check(const QString& text, const char* of);
  void lookAt(const QAction& action);
  void lookAt(QWidget& root);
  void lookAtOne(QWidget& widget);
  static QStringList textsOf(const QWidget& widget);
  static QStringList textsOf(const QTabBar& tabs);
  static QStringList textsOf(const QComboBox& choice);
  static QStringList textsOf(const QTreeView& view);

  /// A text that is cut is to be read whole in a tool tip.
  static bool isTold(const QWidget& widget, const QString& text);
  void lookWhetherItFits(const QWidget& widget);
  static bool fits(const QLabel& label);

  /// What a narrow menu bar has no room for is in a menu at its end.
  void lookWhetherMenusAreReached(const QMenuBar& bar);
  void lookWhetherTabsFit(const QTabBar& tabs);
  void lookWhetherHeadingsFit(const QTreeView& view);

  MainWindow& window_;
  QString where_;
  QStringList data_;
  std::set<const QWidget*> leftOut_;
  QSet<QString> told_;
  QSet<QString> seen_;
};

}  // namespace korvel
