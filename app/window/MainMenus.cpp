#include "app/window/MainMenus.h"

#include <QHash>
#include <QMenuBar>
#include <algorithm>

namespace korvel {

namespace {

/// A menu's title with the letter marked that opens it, each menu's another.
QString withMnemonic(const QString& title) {
  static const QHash<QString, int> kLetters{
      {QStringLiteral("Room"), 1}, {QStringLiteral("Messages"), 2}, {QStringLiteral("Station"), 1}};
  return QString(title).insert(kLetters.value(title, 0), QLatin1Char('&'));
}

}  // namespace

MainMenus::MainMenus(QMainWindow& window, const Runner& run) : window_(window) {
  for (const ActionSpec& spec : actionTable()) {
    QAction& action = add(QString::fromUtf8(spec.menu), QString::fromUtf8(spec.text),
                          QString::fromUtf8(spec.shortcut), [run, &spec] { run(spec); });
    actions_.emplace_back(&spec, &action);
  }
}

QMenu& MainMenus::menu(const QString& title) {
  QMenu*& found = menus_[title];
  if (!found) found = window_.menuBar()->addMenu(withMnemonic(title));
  return *found;
}

QAction& MainMenus::add(const QString& title, const QString& text, const QString& shortcut,
                        const std::function<void()>& run) {
  QAction* action = menu(title).addAction(text);
  if (!shortcut.isEmpty()) action->setShortcut(QKeySequence(shortcut));
  QObject::connect(action, &QAction::triggered, &window_, run);
  return *action;
}

void MainMenus::enable(const std::function<bool(Target)>& isThere) {
  for (const auto& [spec, action] : actions_) action->setEnabled(isThere(spec->target));
}

void MainMenus::bindKey(const QString& line, QWidget& widget) const {
  QAction* const bound = action(line);
  bound->setShortcutContext(Qt::WidgetShortcut);
  widget.addAction(bound);
}

void MainMenus::popUp(const std::vector<Target>& targets, const QPoint& at) {
  auto* shown = new QMenu(&window_);
  shown->setAttribute(Qt::WA_DeleteOnClose);
  for (const Target target : targets) {
    if (!shown->isEmpty()) shown->addSeparator();
    for (const auto& [spec, action] : actions_) {
      if (spec->target == target) shown->addAction(action);
    }
  }
  shown->popup(at);
}

QAction* MainMenus::action(const QString& line) const {
  const auto found = std::ranges::find_if(
      actions_, [&line](const auto& each) { return line == QLatin1String(each.first->line); });
  return found == actions_.end() ? nullptr : found->second;
}

QString MainMenus::shortcutText() const {
  QString text;
  for (const QAction* top : window_.menuBar()->actions()) {
    text += QString(top->text()).remove(QLatin1Char('&')) + QLatin1Char('\n');
    for (const QAction* action : top->menu()->actions()) {
      if (action->isSeparator()) continue;
      text += QStringLiteral("  %1 %2\n")
                  .arg(action->shortcut().toString().leftJustified(14),
                       QString(action->text()).remove(QLatin1Char('&')));
    }
  }
  return text;
}

}  // namespace korvel
