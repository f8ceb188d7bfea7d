#pragma once

#include <QDialog>
#include <QStringList>
#include <vector>

#include "app/window/ActionTable.h"

class QComboBox;
class QDialogButtonBox;
class QLineEdit;

namespace korvel {

/// A choice in a field: what is shown and what a command is given for it.
struct FieldChoice {
  QString shown;
  QString word;
};

/// What a dialog needs to know of a field: its first text, and the choices where it has some.
struct FieldContent {
  QString initial;
  std::vector<FieldChoice> choices;
};

/// Asks for what an action needs. Does not stand in the way of the window; filled() comes once, if
/// at all.
class ActionDialog : public QDialog {
  Q_OBJECT

 public:
  ActionDialog(const ActionSpec& action, const std::vector<FieldContent>& contents,
               QWidget* parent);

 Q_SIGNALS:
  void filled(const QStringList& values);

 private:
  QWidget* makeField(const ActionField& field, const FieldContent& content);
  QWidget* makeFileField(const ActionField& field, QLineEdit* edit);
  QWidget* makeChoice(const ActionField& field, const FieldContent& content);
  void check();
  [[nodiscard]] QStringList values() const;

  std::vector<QWidget*> inputs_;
  QDialogButtonBox* buttons_;
};

}  // namespace korvel
