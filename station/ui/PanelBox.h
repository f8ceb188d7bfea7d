#pragma once

#include "host/ui/StandardPanel.h"

namespace korvel {

/// One of the small boxes that a panel's standard widgets consist of.
class PanelBox : public Glob {
 public:
  static constexpr double kSide = 16;

  explicit PanelBox(StandardPanel::eStandardWidget which);

  [[nodiscard]] StandardPanel::eStandardWidget which() const { return which_; }

  /// A left click or the return key does what the box is for to the tool that it is in.
  bool handleEvent(const Event& event) override;
  [[nodiscard]] bool takesFocus() const override { return true; }

 private:
  StandardPanel::eStandardWidget which_;
};

}  // namespace korvel
