#include "app/window/KeptTools.h"

#include <QSettings>
#include <algorithm>

#include "app/window/Texts.h"
#include "station/ui/Desktop.h"

namespace korvel {

namespace {

constexpr int kMostTools = 20;  // who edits the file by hand may write any number
const QString kTools = QStringLiteral("tools");
const QString kType = QStringLiteral("type");
const QString kSizeState = QStringLiteral("size");
const QString kX = QStringLiteral("x");
const QString kY = QStringLiteral("y");

}  // namespace

KeptTools toolsOn(const Desktop& desktop) {
  KeptTools tools;
  for (const SavedTool& saved : desktop.savedTools()) {
    tools.push_back(
        {readableText(saved.typeName.str()), saved.sizeState, saved.position.x, saved.position.y});
  }
  return tools;
}

void putBack(const KeptTools& tools, Desktop& desktop) {
  if (!desktop.savedTools().empty()) return;
  std::vector<SavedTool> saved;
  for (const KeptTool& tool : tools) {
    saved.push_back({tool.type.toStdString().c_str(), tool.sizeState, {tool.x, tool.y}});
  }
  desktop.restoreTools(saved);
}

void keepTools(QSettings& settings, const KeptTools& tools) {
  settings.remove(kTools);
  settings.beginWriteArray(kTools, static_cast<int>(tools.size()));
  for (std::size_t i = 0; i < tools.size(); ++i) {
    settings.setArrayIndex(static_cast<int>(i));
    settings.setValue(kType, tools[i].type);
    settings.setValue(kSizeState, tools[i].sizeState);
    settings.setValue(kX, tools[i].x);
    settings.setValue(kY, tools[i].y);
  }
  settings.endArray();
}

KeptTools keptTools(QSettings& settings) {
  KeptTools tools;
  const int count = std::min(settings.beginReadArray(kTools), kMostTools);
  for (int i = 0; i < count; ++i) {
    settings.setArrayIndex(i);
    tools.push_back({settings.value(kType).toString(), settings.value(kSizeState).toInt(),
                     settings.value(kX).toDouble(), settings.value(kY).toDouble()});
  }
  settings.endArray();
  return tools;
}

}  // namespace korvel
