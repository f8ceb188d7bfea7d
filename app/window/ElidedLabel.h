#pragma once

#include <QLabel>

namespace korvel {

/// One line of plain text that ends in "…" where it does not fit; its tool tip is then the whole of
/// it, unless it has been given another.
class ElidedLabel : public QLabel {
 public:
  explicit ElidedLabel(QWidget* parent = nullptr);

  [[nodiscard]] bool isElided() const;
  [[nodiscard]] QSize minimumSizeHint() const override;

 private:
  bool event(QEvent* event) override;
  void paintEvent(QPaintEvent* event) override;
};

}  // namespace korvel
