#include "app/window/Appearance.h"

#include <QApplication>
#include <QPalette>
#include <QStyle>
#include <QStyleFactory>

namespace korvel {

namespace {

bool dark = false;

const Colours& lightColours() {
  static const Colours kLight{
      QColor(0x1d2127), QColor(0x667080), QColor(0x2a63c9), QColor(0x23784a), QColor(0xb3541e),
      QColor(0x9a6700), QColor(0xb42318), QColor(0xd9dde3), QColor(0xffffff), QColor(0xbcd3f5),
      QColor(0xd7c8f2), QColor(0xbfe3cc), QColor(0xeceff3), QColor(0xf0c987), QColor(0x16202e)};
  return kLight;
}

const Colours& darkColours() {
  static const Colours kDark{QColor(0xe3e7ed), QColor(0x98a2b1), QColor(0x79acff), QColor(0x63c793),
                             QColor(0xf0935a), QColor(0xe3b341), QColor(0xff8278), QColor(0x343a43),
                             QColor(0x181b20), QColor(0x2f4f7f), QColor(0x54427f), QColor(0x2d5f45),
                             QColor(0x23272e), QColor(0x8a6a2f), QColor(0xeef2f8)};
  return kDark;
}

QPalette paletteOf(const Colours& colours, const QColor& window) {
  QPalette palette;
  const auto set = [&palette](QPalette::ColorRole role, const QColor& colour) {
    palette.setColor(role, colour);
  };
  set(QPalette::Window, window);
  set(QPalette::Base, colours.panel);
  set(QPalette::AlternateBase, window);
  set(QPalette::Button, window);
  set(QPalette::ToolTipBase, colours.panel);
  for (const auto role :
       {QPalette::WindowText, QPalette::Text, QPalette::ButtonText, QPalette::ToolTipText}) {
    set(role, colours.text);
    palette.setColor(QPalette::Disabled, role, colours.quiet);
  }
  set(QPalette::PlaceholderText, colours.quiet);
  set(QPalette::Highlight, colours.accent);
  set(QPalette::HighlightedText, dark ? QColor(0x10151d) : QColor(0xffffff));
  set(QPalette::Link, colours.accent);
  set(QPalette::Light, colours.panel);
  set(QPalette::Mid, colours.line);
  set(QPalette::Dark, colours.line);
  return palette;
}

/// The few things that the palette cannot say.
QString styleSheet(const Colours& colours, const QColor& window) {
  QString sheet = QStringLiteral(R"(
    QMainWindow::separator { background: @line; width: 1px; height: 1px; }
    QSplitter::handle { background: @line; }
    QTreeView, QListView, QPlainTextEdit { border: none; outline: none; }
    QTreeView::item { padding: 3px 4px; border: none; }
    QTreeView::item:selected, QListView::item:selected { background: @choice; color: @text; }
    QTreeView::item:selected:!active, QListView::item:selected:!active {
      background: @soft; color: @text; }
    QHeaderView::section { background: @window; color: @quiet; border: none;
      border-bottom: 1px solid @line; padding: 4px 6px; }
    QTabBar::tab { padding: 6px 12px; border: none; color: @quiet; background: transparent; }
    QTabBar::tab:selected { color: @text; border-bottom: 2px solid @accent; }
    QTabBar::tab:focus { color: @accent; }
    QTabWidget::pane { border: none; border-top: 1px solid @line; }
    QLineEdit { border: 1px solid @line; border-radius: 4px; padding: 4px 6px;
      background: @panel; }
    QLineEdit:focus { border-color: @accent; }
    QDockWidget { font-weight: 600; }
    QDockWidget::title { padding: 6px 8px; background: @window; text-align: left; }
    QToolBar { border: none; border-bottom: 1px solid @line; padding: 3px; spacing: 4px; }
    QStatusBar { border-top: 1px solid @line; }
    QStatusBar::item { border: none; }
    QMenu { border: 1px solid @line; padding: 4px; background: @panel; }
    QMenu::item { padding: 5px 24px 5px 12px; border-radius: 3px; }
    QMenu::item:selected { background: @accent; color: @chosen; }
    QMenu::item:disabled { color: @quiet; }
    QMenu::separator { height: 1px; background: @line; margin: 4px 8px; }
    QLabel[role="heading"] { font-weight: 600; }
    QLabel[role="quiet"] { color: @quiet; }
    QFrame[role="bar-error"] { background: @errorback; border-left: 4px solid @bad; }
    QFrame[role="bar-note"] { background: @noteback; border-left: 4px solid @accent; }
    QFrame[role="bar-change"] { background: @noteback; border-left: 4px solid @warn; }
  )");
  const auto put = [&sheet](const char* name, const QColor& colour) {
    sheet.replace(QLatin1String(name), colour.name());
  };
  put("@line", colours.line);
  put("@accent", colours.accent);
  put("@chosen", dark ? QColor(0x10151d) : QColor(0xffffff));
  put("@choice", dark ? QColor(0x33496e) : QColor(0xc3d7f8));
  put("@soft", dark ? QColor(0x2c3442) : QColor(0xdbe6f8));
  put("@text", colours.text);
  put("@quiet", colours.quiet);
  put("@window", window);
  put("@panel", colours.panel);
  put("@errorback", dark ? QColor(0x3a2220) : QColor(0xfdecea));
  put("@noteback", dark ? QColor(0x222c3b) : QColor(0xe9f1fd));
  put("@bad", colours.bad);
  put("@warn", colours.warn);
  return sheet;
}

bool isDesktopDark() {
  static const bool isIt = QApplication::palette().color(QPalette::Window).lightness() < 128;
  return isIt;
}

}  // namespace

void applyAppearance(Appearance appearance) {
  const bool desktop = isDesktopDark();
  dark = appearance == Appearance::eDark || (appearance == Appearance::eSystem && desktop);
  const QColor window = dark ? QColor(0x20242a) : QColor(0xf3f4f6);
  if (QApplication::style()->name() != QLatin1String("fusion")) {
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
  }
  QApplication::setPalette(paletteOf(colours(), window));
  qApp->setStyleSheet(styleSheet(colours(), window));
}

const Colours& colours() { return dark ? darkColours() : lightColours(); }

bool isDark() { return dark; }

QString appearanceName(Appearance appearance) {
  if (appearance == Appearance::eSystem) return QStringLiteral("system");
  return appearance == Appearance::eLight ? QStringLiteral("light") : QStringLiteral("dark");
}

Appearance appearanceNamed(const QString& name) {
  if (name == QLatin1String("light")) return Appearance::eLight;
  return name == QLatin1String("dark") ? Appearance::eDark : Appearance::eSystem;
}

}  // namespace korvel
