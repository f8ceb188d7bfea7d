#pragma once

#include <QDialog>
#include <QStringList>
#include <functional>

class QDialogButtonBox;
class QListWidget;
class QPushButton;

namespace korvel {

/// A question before something is done that cannot simply be taken back: one sentence, the things
/// that it is about, and the answers. The window below waits for the answer, its thread does not.
/// Closing the dialog answers nothing, and the keyboard's Return too unless an answer is the usual.
class Question : public QDialog {
  Q_OBJECT

 public:
  /// `name` is the dialog's for those who look for it; `things` are listed below the text.
  Question(const QString& name, const QString& title, const QString& text,
           const QStringList& things, QWidget* parent);

  /// Adds an answer; `run` follows once it was given and the dialog is gone.
  void answer(const QString& text, const std::function<void()>& run);

  /// Adds the answer that Return gives.
  void usualAnswer(const QString& text, const std::function<void()>& run);

  /// What follows when the question is left unanswered.
  void otherwise(const std::function<void()>& run) { otherwise_ = run; }

  /// What is listed at this place is called so from now on.
  void setThing(int at, const QString& text);

  /// Shows it; it deletes itself.
  void ask();

 private:
  QPushButton* addAnswer(const QString& text, const std::function<void()>& run);

  QListWidget* things_ = nullptr;
  QDialogButtonBox* buttons_;
  std::function<void()> chosen_;
  std::function<void()> otherwise_;
};

}  // namespace korvel
