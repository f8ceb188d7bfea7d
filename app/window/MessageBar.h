#pragma once

#include <QFrame>
#include <QStringList>
#include <array>
#include <cstddef>

class QLabel;
class QToolButton;

namespace korvel {

/// A strip above the lists that tells how an action ended, and why one was refused. Takes no focus;
/// stays until it is closed or another takes its place.
class MessageBar : public QFrame {
  Q_OBJECT

 public:
  enum class Kind { eError, eNote, eChange };

  explicit MessageBar(const QString& name, QWidget* parent = nullptr);

  /// Whether a text gets as many lines as it needs, or one that ends in "…" with the whole in its
  /// tool tip.
  enum class Lines { eAll, eOne };
  void setLines(Lines lines);

  void tell(Kind kind, const QString& text);

  /// Offers things to do about it, three at most; none takes the last offer back.
  void offer(const QStringList& actions);
  [[nodiscard]] QString text() const { return text_; }
  [[nodiscard]] QToolButton& button(std::size_t which = 0) const { return *buttons_[which]; }

 Q_SIGNALS:
  /// What was offered is to be done; counted from zero.
  void acted(int which);

 private:
  void resizeEvent(QResizeEvent* event) override;
  void showText();

  QLabel* sign_;
  QLabel* label_;
  std::array<QToolButton*, 3> buttons_;
  QToolButton* close_;
  QString text_;
  Lines lines_ = Lines::eAll;
};

}  // namespace korvel
