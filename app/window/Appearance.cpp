#include "app/window/Appearance.h"

#include <QApplication>
#include <QHash>
#include <QPainter>
#include <QPainterPath>
#include <QPalette>
#include <QPixmap>
#include <QStyle>
#include <QStyleFactory>
#include <array>

namespace korvel {

namespace {

/// Draws on a field of 16 by 16.
class GlyphPainter {
 public:
  GlyphPainter(QPainter& painter, const QColor& colour) : painter_(painter), colour_(colour) {
    painter_.setRenderHint(QPainter::Antialiasing);
    painter_.setPen(QPen(colour, 1.4, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter_.setBrush(Qt::NoBrush);
  }

  void paint(Glyph glyph) {
    using Draw = void (GlyphPainter::*)();
    // In the order of Glyph.
    constexpr std::array<Draw, 29> kDraw{
        &GlyphPainter::project,   &GlyphPainter::padlock, &GlyphPainter::room,
        &GlyphPainter::ring,      &GlyphPainter::held,    &GlyphPainter::triangle,
        &GlyphPainter::question,  &GlyphPainter::pin,     &GlyphPainter::film,
        &GlyphPainter::log,       &GlyphPainter::bin,     &GlyphPainter::rack,
        &GlyphPainter::funnel,    &GlyphPainter::media,   &GlyphPainter::pencil,
        &GlyphPainter::padlock,   &GlyphPainter::dots,    &GlyphPainter::openBook,
        &GlyphPainter::dot,       &GlyphPainter::arrowIn, &GlyphPainter::triangle,
        &GlyphPainter::bubble,    &GlyphPainter::bell,    &GlyphPainter::arrowRight,
        &GlyphPainter::arrowLeft, &GlyphPainter::waves,   &GlyphPainter::cross,
        &GlyphPainter::clock,     &GlyphPainter::people};
    (this->*kDraw[static_cast<std::size_t>(glyph)])();
  }

 private:
  void line(double x1, double y1, double x2, double y2) {
    painter_.drawLine(QPointF(x1, y1), QPointF(x2, y2));
  }
  void box(double x, double y, double w, double h) {
    painter_.drawRoundedRect(QRectF(x, y, w, h), 1.5, 1.5);
  }
  void fill() { painter_.setBrush(colour_); }
  void shape(const QPolygonF& points) { painter_.drawPolygon(points); }

  void project() {
    painter_.drawPolyline(QPolygonF({{2, 12.5}, {2, 3.5}, {6, 3.5}, {7.5, 5.5}, {14, 5.5}}));
    box(2, 5.5, 12, 7.5);
  }
  void padlock() {
    box(3.5, 7, 9, 6.5);
    painter_.drawArc(QRectF(5, 2, 6, 9), 0, 180 * 16);
    fill();
    painter_.drawEllipse(QPointF(8, 10.2), 0.7, 0.7);
  }
  void room() {
    box(4, 2.5, 8, 11);
    fill();
    painter_.drawEllipse(QPointF(9.7, 8.2), 0.6, 0.6);
  }
  void ring() { painter_.drawEllipse(QPointF(8, 8), 4.5, 4.5); }
  void held() {
    fill();
    painter_.drawEllipse(QPointF(8, 8), 4.8, 4.8);
  }
  void triangle() {
    shape(QPolygonF({{8, 2.5}, {14, 13}, {2, 13}}));
    line(8, 6.5, 8, 9.5);
    line(8, 11.3, 8, 11.4);
  }
  void question() {
    painter_.drawEllipse(QPointF(8, 8), 5.5, 5.5);
    line(8, 11, 8, 11.1);
    painter_.drawArc(QRectF(6.2, 4.6, 3.6, 3.6), -60 * 16, 240 * 16);
    line(8.9, 8, 8, 9.2);
  }
  void pin() {
    fill();
    painter_.drawEllipse(QPointF(8, 8), 2.4, 2.4);
    painter_.setBrush(Qt::NoBrush);
    painter_.drawEllipse(QPointF(8, 8), 5.5, 5.5);
  }
  void film() {
    box(2, 3.5, 12, 9);
    line(5, 3.5, 5, 12.5);
    line(11, 3.5, 11, 12.5);
    line(5, 8, 11, 8);
  }
  void log() {
    box(3, 2.5, 10, 11);
    for (const double y : {5.5, 8.0, 10.5}) line(5.5, y, 10.5, y);
  }
  void bin() {
    painter_.drawPolyline(QPolygonF({{2.5, 5}, {4, 13.5}, {12, 13.5}, {13.5, 5}}));
    line(2, 5, 14, 5);
    line(6, 2.5, 10, 2.5);
  }
  void rack() {
    for (const double y : {2.5, 6.5, 10.5}) box(2.5, y, 11, 3);
  }
  void funnel() {
    shape(QPolygonF({{2.5, 3}, {13.5, 3}, {9.3, 8.2}, {9.3, 13}, {6.7, 11.5}, {6.7, 8.2}}));
  }
  void media() {
    box(2, 3, 12, 10);
    fill();
    shape(QPolygonF({{6.5, 5.8}, {10.5, 8}, {6.5, 10.2}}));
  }
  void pencil() {
    shape(QPolygonF({{3, 13}, {3.6, 10}, {10.8, 2.8}, {13.2, 5.2}, {6, 12.4}}));
    line(9.2, 4.4, 11.6, 6.8);
  }
  void dots() {
    fill();
    for (const double x : {4.0, 8.0, 12.0}) painter_.drawEllipse(QPointF(x, 8), 0.6, 0.6);
  }
  void openBook() {
    line(8, 4.5, 8, 13);
    shape(QPolygonF({{8, 4.5}, {2, 3}, {2, 11.5}, {8, 13}, {14, 11.5}, {14, 3}}));
  }
  void dot() {
    fill();
    painter_.drawEllipse(QPointF(8, 8), 2.6, 2.6);
  }
  void arrowIn() {
    painter_.drawEllipse(QPointF(8, 8), 6, 6);
    line(8, 4.8, 8, 11);
    painter_.drawPolyline(QPolygonF({{5.4, 8.4}, {8, 11}, {10.6, 8.4}}));
  }
  void bubble() {
    shape(QPolygonF({{2, 3}, {14, 3}, {14, 11}, {8, 11}, {5, 13.8}, {5, 11}, {2, 11}}));
    line(5, 6, 11, 6);
    line(5, 8.3, 9, 8.3);
  }
  void bell() {
    QPainterPath path(QPointF(3, 11.5));
    path.cubicTo(5, 9, 3.5, 3, 8, 3);
    path.cubicTo(12.5, 3, 11, 9, 13, 11.5);
    path.closeSubpath();
    painter_.drawPath(path);
    line(7.2, 13.6, 8.8, 13.6);
  }
  void arrowRight() {
    line(2.5, 8, 13, 8);
    painter_.drawPolyline(QPolygonF({{9.5, 4.5}, {13, 8}, {9.5, 11.5}}));
  }
  void arrowLeft() {
    line(3, 8, 13.5, 8);
    painter_.drawPolyline(QPolygonF({{6.5, 4.5}, {3, 8}, {6.5, 11.5}}));
  }
  void waves() {
    for (const double size : {3.0, 7.0, 11.0}) {
      painter_.drawArc(QRectF(8 - size / 2, 11 - size / 2, size, size), 45 * 16, 90 * 16);
    }
    line(8, 12, 8, 12.1);
  }
  void cross() {
    line(4.5, 4.5, 11.5, 11.5);
    line(11.5, 4.5, 4.5, 11.5);
  }
  void clock() {
    painter_.drawEllipse(QPointF(8, 8), 5.8, 5.8);
    painter_.drawPolyline(QPolygonF({{8, 4.6}, {8, 8}, {10.4, 9.4}}));
  }
  void people() {
    painter_.drawEllipse(QPointF(6, 5.5), 2.3, 2.3);
    painter_.drawArc(QRectF(1.8, 9, 8.4, 9), 0, 180 * 16);
    painter_.drawArc(QRectF(8.4, 3.4, 4.4, 4.4), -80 * 16, 190 * 16);
    painter_.drawArc(QRectF(7.6, 9.2, 6.8, 8.6), 0, 100 * 16);
  }

  QPainter& painter_;
  QColor colour_;
};

QPixmap drawn(Glyph glyph, const QColor& colour, int pixels) {
  QPixmap pixmap(pixels, pixels);
  pixmap.fill(Qt::transparent);
  QPainter painter(&pixmap);
  painter.scale(pixels / 16.0, pixels / 16.0);
  GlyphPainter(painter, colour).paint(glyph);
  return pixmap;
}

}  // namespace

QIcon icon(Glyph glyph, const QColor& colour) {
  // Lists ask for an icon for each cell that they paint. Window thread only.
  static QHash<quint64, QIcon> made;
  const quint64 key = (static_cast<quint64>(glyph) << 32) | colour.rgba();
  QIcon& found = made[key];
  if (found.isNull()) {
    for (const int pixels : {16, 24, 32, 48}) {
      const QPixmap pixmap = drawn(glyph, colour, pixels);
      found.addPixmap(pixmap);
      found.addPixmap(pixmap, QIcon::Selected);  // else styles tint it
    }
  }
  return found;
}

namespace {

bool dark = false;

// Text stands out 4.5 to 1 from whatever is behind it; borders, and the lines around what is
// chosen), 3 to 1.
const Colours& lightColours() {
  static const Colours kLight{.text = QColor(0x1d2127),
                              .quiet = QColor(0x596270),
                              .accent = QColor(0x2a63c9),
                              .good = QColor(0x23784a),
                              .held = QColor(0xa34a17),
                              .warn = QColor(0x885a00),
                              .bad = QColor(0xb42318),
                              .line = QColor(0xd9dde3),
                              .border = QColor(0x7f8896),
                              .window = QColor(0xf3f4f6),
                              .panel = QColor(0xffffff),
                              .choice = QColor(0xc3d7f8),
                              .softChoice = QColor(0xdbe6f8),
                              .onAccent = QColor(0xffffff),
                              .errorBack = QColor(0xfdecea),
                              .noteBack = QColor(0xe9f1fd),
                              .clip = QColor(0xbcd3f5),
                              .nested = QColor(0xd7c8f2),
                              .audio = QColor(0xbfe3cc),
                              .gap = QColor(0xeceff3),
                              .transition = QColor(0xf0c987),
                              .clipText = QColor(0x16202e),
                              .edge = QColor(0x66728a)};
  return kLight;
}

const Colours& darkColours() {
  static const Colours kDark{.text = QColor(0xe3e7ed),
                             .quiet = QColor(0x98a2b1),
                             .accent = QColor(0x79acff),
                             .good = QColor(0x63c793),
                             .held = QColor(0xf0935a),
                             .warn = QColor(0xe3b341),
                             .bad = QColor(0xff8278),
                             .line = QColor(0x343a43),
                             .border = QColor(0x7a8492),
                             .window = QColor(0x20242a),
                             .panel = QColor(0x181b20),
                             .choice = QColor(0x33496e),
                             .softChoice = QColor(0x2c3442),
                             .onAccent = QColor(0x10151d),
                             .errorBack = QColor(0x3a2220),
                             .noteBack = QColor(0x222c3b),
                             .clip = QColor(0x2f4f7f),
                             .nested = QColor(0x54427f),
                             .audio = QColor(0x2d5f45),
                             .gap = QColor(0x23272e),
                             .transition = QColor(0x7a5c26),
                             .clipText = QColor(0xeef2f8),
                             .edge = QColor(0x8d98aa)};
  return kDark;
}

QPalette paletteOf(const Colours& colours) {
  QPalette palette;
  const auto set = [&palette](QPalette::ColorRole role, const QColor& colour) {
    palette.setColor(role, colour);
  };
  set(QPalette::Window, colours.window);
  set(QPalette::Base, colours.panel);
  set(QPalette::AlternateBase, colours.window);
  set(QPalette::Button, colours.window);
  set(QPalette::ToolTipBase, colours.panel);
  for (const auto role :
       {QPalette::WindowText, QPalette::Text, QPalette::ButtonText, QPalette::ToolTipText}) {
    set(role, colours.text);
    palette.setColor(QPalette::Disabled, role, colours.quiet);
  }
  set(QPalette::PlaceholderText, colours.quiet);
  set(QPalette::Highlight, colours.accent);
  set(QPalette::HighlightedText, colours.onAccent);
  set(QPalette::Link, colours.accent);
  set(QPalette::Light, colours.panel);
  set(QPalette::Mid, colours.line);
  set(QPalette::Dark, colours.line);
  return palette;
}

/// The few things that the palette cannot say.
QString styleSheet(const Colours& colours) {
  QString sheet = QStringLiteral(R"(
    QMainWindow::separator { background: @line; width: 1px; height: 1px; }
    QSplitter::handle { background: @line; }
    QTreeView, QListView, QPlainTextEdit { border: 2px solid @panel; outline: none; }
    QTreeView:focus, QListView:focus, QPlainTextEdit:focus { border-color: @accent; }
    QTreeView::item, QListView::item { padding: 2px 4px; border: 1px solid transparent;
      border-left: none; border-right: none; }
    QTreeView::item:selected, QListView::item:selected { background: @choice; color: @text;
      border-color: @accent; }
    QTreeView::item:selected:!active, QListView::item:selected:!active {
      background: @softchoice; color: @text; border-color: @border; }
    QHeaderView::section { background: @window; color: @quiet; border: none;
      border-bottom: 1px solid @line; padding: 4px 6px; }
    QTabBar::tab { padding: 5px 11px; border: 1px solid transparent; color: @quiet;
      background: transparent; }
    QTabBar::tab:selected { color: @text; border-bottom: 2px solid @accent; }
    QTabBar::tab:selected:focus { color: @accent; border: 1px solid @accent;
      border-bottom: 2px solid @accent; }
    QTabWidget::pane { border: none; border-top: 1px solid @line; }
    QLineEdit { border: 1px solid @border; border-radius: 4px; padding: 4px 6px;
      background: @panel; }
    QLineEdit:focus { border: 2px solid @accent; padding: 3px 5px; }
    QPushButton { border: 1px solid @border; border-radius: 4px; padding: 5px 12px;
      background: @panel; }
    QPushButton:default { border-color: @accent; }
    QPushButton:hover { background: @choice; }
    QPushButton:pressed { background: @softchoice; }
    QPushButton:focus { border: 2px solid @accent; padding: 4px 11px; }
    QPushButton:disabled { color: @quiet; border-color: @line; background: @window; }
    QToolButton { border: 2px solid transparent; border-radius: 4px; padding: 2px 4px; }
    QToolButton[role="button"] { border: 1px solid @border; padding: 3px 8px;
      background: @panel; }
    QMenuBar QToolButton, QToolBarExtension { padding: 0; border: none; }
    QTabBar QToolButton { padding: 0; border: 1px solid @line; background: @window; }
    QToolButton:hover { background: @choice; }
    QToolButton:pressed, QToolButton:checked { background: @softchoice; border-color: @border; }
    QToolButton:focus, QToolButton[role="button"]:focus { border: 2px solid @accent; }
    QComboBox { border: 1px solid @border; border-radius: 4px; padding: 3px 6px;
      background: @panel; }
    QComboBox:focus { border: 2px solid @accent; padding: 2px 5px; }
    QCheckBox { border: 2px solid transparent; border-radius: 4px; padding: 1px 3px; }
    QCheckBox:focus { border-color: @accent; }
    QDockWidget { font-weight: 600; }
    QDockWidget::title { padding: 6px 8px; background: @window; text-align: left; }
    QToolBar { border: none; border-bottom: 1px solid @line; padding: 3px; spacing: 4px; }
    QStatusBar { border-top: 1px solid @line; }
    QStatusBar::item { border: none; }
    QMenu { border: 1px solid @border; padding: 4px; background: @panel; }
    QMenu::item { padding: 5px 24px 5px 12px; border-radius: 3px; }
    QMenu::item:selected { background: @accent; color: @onaccent; }
    QMenu::item:disabled { color: @quiet; }
    QMenu::item:disabled:selected { background: @softchoice; color: @text; }
    QMenu::separator { height: 1px; background: @line; margin: 4px 8px; }
    QToolTip { border: 1px solid @border; background: @panel; color: @text; }
    QLabel[role="heading"] { font-weight: 600; }
    QLabel[role="quiet"] { color: @quiet; }
    QLabel[role="problem"] { color: @bad; }
    QFrame[role="bar-error"] { background: @errorback; border-left: 4px solid @bad; }
    QFrame[role="bar-note"] { background: @noteback; border-left: 4px solid @accent; }
    QFrame[role="bar-change"] { background: @noteback; border-left: 4px solid @warn; }
  )");
  const auto put = [&sheet](const char* name, const QColor& colour) {
    sheet.replace(QLatin1String(name), colour.name());
  };
  put("@line", colours.line);
  put("@border", colours.border);
  put("@accent", colours.accent);
  put("@onaccent", colours.onAccent);
  put("@choice", colours.choice);
  put("@softchoice", colours.softChoice);
  put("@text", colours.text);
  put("@quiet", colours.quiet);
  put("@window", colours.window);
  put("@panel", colours.panel);
  put("@errorback", colours.errorBack);
  put("@noteback", colours.noteBack);
  put("@bad", colours.bad);
  put("@warn", colours.warn);
  return sheet;
}

bool isDesktopDark() {
  // Asked once, before the palette is replaced by one of ours.
  static const bool isIt = QApplication::palette().color(QPalette::Window).lightness() < 128;
  return isIt;
}

}  // namespace

void applyAppearance(Appearance appearance) {
  const bool desktop = isDesktopDark();
  dark = appearance == Appearance::eDark || (appearance == Appearance::eSystem && desktop);
  // Styles of desktops ignore parts of a palette; this one follows it.
  if (QApplication::style()->name() != QLatin1String("fusion")) {
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
  }
  QApplication::setPalette(paletteOf(colours()));
  qApp->setStyleSheet(styleSheet(colours()));
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
