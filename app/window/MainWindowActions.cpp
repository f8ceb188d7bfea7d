// What the main window's menus act on.

#include "app/window/ActionDialog.h"
#include "app/window/DetailPane.h"
#include "app/window/MainWindow.h"
#include "app/window/ObjectsPane.h"
#include "app/window/ProjectsPane.h"
#include "app/window/TimelineView.h"

namespace korvel {

namespace {

std::optional<ObjectKind> kindOf(Target target) {
  switch (target) {
    case Target::eEdit:
      return ObjectKind::eEdits;
    case Target::eBin:
      return ObjectKind::eBins;
    case Target::eRack:
      return ObjectKind::eRacks;
    case Target::eFilter:
      return ObjectKind::eFilters;
    case Target::eMedia:
      return ObjectKind::eMedia;
    default:
      return std::nullopt;
  }
}

/// How a command names the object: media by their path, which is one file's alone.
QString wordOf(const ObjectRow& row, Target target) {
  return target == Target::eMedia ? row.detail : row.cookie;
}

std::vector<FieldChoice> choicesOf(const ObjectRows& rows) {
  std::vector<FieldChoice> choices;
  for (const ObjectRow& row : rows) choices.push_back({row.name, row.cookie});
  return choices;
}

std::vector<FieldChoice> clipChoices(const TimelinePtr& timeline) {
  std::vector<FieldChoice> choices;
  if (!timeline) return choices;
  for (const TimelineTrack& track : timeline->tracks) {
    for (const TimelineItem& item : track.items) {
      if (item.kind == TimelineItem::Kind::eTransition) continue;
      choices.push_back({QStringLiteral("%1  (%2)").arg(item.name, item.path), item.path});
    }
  }
  return choices;
}

}  // namespace

bool MainWindow::isThere(Target target) const {
  const bool hasProject = snapshot_ && !snapshot_->project.cookie.isEmpty();
  const bool hasObject = hasProject && !objects_->chosen().empty();
  switch (target) {
    case Target::eNothing:
      return snapshot_ != nullptr;
    case Target::eOpenProject:
      return hasProject;
    case Target::eSharedProject:
      return hasProject && !snapshot_->project.isPrivate;
    case Target::eProject:
      return projects_->chosenProject().has_value();
    case Target::eRoom:
      return projects_->chosenRoom().has_value();
    case Target::eObject:
      return hasObject;
    default:
      return hasObject && kindOf(target) == objects_->kind();
  }
}

void MainWindow::enableActions() {
  menus_->enable([this](Target target) { return isThere(target); });
}

QStringList MainWindow::targetWords(Target target) const {
  if (target == Target::eProject) return {projects_->chosenProject()->cookie};
  if (target == Target::eRoom) return {projects_->chosenRoom()->name};
  QStringList words;
  for (const ObjectRow& row : objects_->chosen()) words.append(wordOf(row, target));
  return words;
}

void MainWindow::runAction(const ActionSpec& action) {
  if (!isThere(action.target)) return;
  if (action.fields.empty()) {
    link_.run(filledLine(action, targetWords(action.target), {}));
  } else {
    askFields(action);
  }
}

// What was chosen when the dialog opened is what it is for, whatever is chosen meanwhile.
void MainWindow::askFields(const ActionSpec& action) {
  std::vector<FieldContent> contents;
  for (const ActionField& field : action.fields) contents.push_back(fieldContent(field));
  auto* dialog = new ActionDialog(action, contents, this);
  const QStringList words = targetWords(action.target);
  connect(dialog, &ActionDialog::filled, this, [this, &action, words](const QStringList& values) {
    link_.run(filledLine(action, words, values));
  });
  dialog->show();
}

FieldContent MainWindow::fieldContent(const ActionField& field) const {
  FieldContent content{QString::fromUtf8(field.initial), {}};
  const auto chosen = objects_->chosen();
  if (!chosen.empty()) {
    content.initial.replace(QLatin1String("{name}"), chosen.front().name);
    content.initial.replace(QLatin1String("{detail}"), chosen.front().detail);
  }
  switch (field.kind) {
    case ActionField::Kind::eUser:
      if (!snapshot_->users) break;
      for (const QString& user : *snapshot_->users) content.choices.push_back({user, user});
      break;
    case ActionField::Kind::eBin:
      content.choices = choicesOf(objects_->rows(ObjectKind::eBins));
      break;
    case ActionField::Kind::eRack:
      content.choices = choicesOf(objects_->rows(ObjectKind::eRacks));
      break;
    case ActionField::Kind::eContent:
      if (chosen.empty()) break;
      for (const QString& cookie : chosen.front().contents) {
        const auto object = objects_->find(cookie);
        content.choices.push_back({object ? object->name : cookie, cookie});
      }
      break;
    case ActionField::Kind::eClip:
      content.choices = clipChoices(detail_->view().timeline());
      if (const TimelineItem* clip = detail_->view().chosen()) content.initial = clip->path;
      break;
    default:
      break;
  }
  return content;
}

}  // namespace korvel
