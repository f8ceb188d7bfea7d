#pragma once

// The frame that all tools share: border, title, boxes to close and to collapse. A tool asks for
// the parts it wants by a mask, and puts its own widgets into what is left, the user area.

#include "host/ui/MenuGlob.h"
#include "host/ui/UifStd.h"

/// A panel as all the host's panels look:
///
///     +------------------------------+  border all around
///     | title                        |  when it has the title widget
///     | [x] [-]                      |  user area: the close and collapse boxes at its top left,
///     |                              |  children placed in the whole of it
///     +------------------------------+
///
/// When the panel changes its size, children keep their height and their distances to both sides of
/// the user area, and are placed again.
class KV_HOST_API StandardPanel : public MenuGlob {
 public:
  /// What a panel can have besides its content; masks are sums of these.
  enum eStandardWidget : unsigned {
    eCloseBox = 1,     ///< puts the panel away
    eCollapseBox = 2,  ///< makes the panel an icon
    eTitle = 4,        ///< shows the title
    eSizeBox = 32,     ///< lets the user change the size
  };

  /// A panel without standard widgets, border or title, in the palette that UifStd has now.
  StandardPanel();
  ~StandardPanel() override;

  /// Adds the standard widgets of the mask that the panel has not got.
  void addStandardWidgets(unsigned mask);

  /// Removes the standard widgets of the mask; with `andContent` all other children, too.
  void removeStandardWidgets(unsigned mask, bool andContent);

  /// The mask of the standard widgets that the panel has.
  [[nodiscard]] unsigned standardWidgets() const { return standardWidgets_; }

  /// The frame around the user area. It counts from the next resize on.
  void setBorder(const Border& border) { border_ = border; }
  [[nodiscard]] const Border& border() const { return border_; }

  /// The title and its typeface. It is shown once eTitle was added.
  void setTitle(const LightweightString<wchar_t>& title, const Font& font);
  [[nodiscard]] const LightweightString<wchar_t>& title() const { return title_; }
  [[nodiscard]] const Font& titleFont() const { return titleFont_; }

  /// The panel's background.
  void setColour(const Colour& colour) { colour_ = colour; }
  [[nodiscard]] const Colour& colour() const { return colour_; }

  /// The colours that the panel was built with, for what is put into it.
  [[nodiscard]] const Palette& palette() const { return palette_; }

  /// Gives the children their distances to both sides of the user area again.
  void resize(double width, double height) override;

  /// What border and title leave, relative to the panel's top-left corner.
  [[nodiscard]] Rect userArea() const override;

  /// The width of the user area.
  [[nodiscard]] double innerWidth() const { return userArea().size.width; }

 private:
  void addBox(eStandardWidget which);

  unsigned standardWidgets_ = 0;
  Border border_;
  LightweightString<wchar_t> title_;
  Font titleFont_;
  Palette palette_;
  Colour colour_;
};
