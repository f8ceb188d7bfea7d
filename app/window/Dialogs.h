#pragma once

#include <QDateTime>
#include <QDialog>
#include <QMetaType>
#include <QString>
#include <QStringList>
#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "app/window/ActionTable.h"
#include "app/window/Timeline.h"

class QComboBox;
class QDialogButtonBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
class QTreeWidget;
class QWidget;

namespace korvel {

// What dialogs have in common.

/// Makes a dialog this wide, and in a small window not narrower than `least`: more where its
/// buttons need it, whose words are longer in some languages.
void giveWidth(QDialog& dialog, int least, int wanted);

/// A label of plain text over as many lines as it takes; `name` is its object name.
QLabel* wrappedLabel(const char* name, const QString& text = {});

/// A question before something is done that cannot simply be taken back: one sentence, the things
/// that it is about, and the answers. The window below waits for the answer, its thread does not.
/// Closing the dialog answers nothing, and the keyboard's Return too unless an answer is the usual.
class Question : public QDialog {
  Q_OBJECT

 public:
  /// `name` is the object name of the dialog, for tests; `things` are listed below the text.
  Question(const QString& name, const QString& title, const QString& text,
           const QStringList& things, QWidget* parent);

  /// Adds an answer; `run` follows once it was given and the dialog is gone.
  void answer(const QString& text, const std::function<void()>& run);

  /// Adds the answer that Return gives.
  void usualAnswer(const QString& text, const std::function<void()>& run);

  /// What follows when the question is left unanswered.
  void otherwise(const std::function<void()>& run) { otherwise_ = run; }

  /// Changes the text of the listed thing at this place.
  void setThing(int at, const QString& text);

  /// Shows it; it deletes itself.
  void ask();

 private:
  QPushButton* addAnswer(const QString& text, const std::function<void()>& run);

  QListWidget* things_ = nullptr;
  QDialogButtonBox* buttons_;
  std::function<void()> chosen_;
  std::function<void()> otherwise_;
};

// Dialogs of text that do not stand in the way of the window, and are gone once they are closed.

/// Shows a table or list of the station, in letters of one width.
void showTable(QWidget& parent, const QString& title, const QString& text);

/// Shows a text of any length with its lines wrapped.
void showWholeText(QWidget& parent, const QString& title, const QString& text);

/// Asks for a command line; `take` is told it unless it is empty.
void askLine(QWidget& parent, const std::function<void(const QString& line)>& take);

/// A choice in a field: the shown text, and the word for the command.
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

  /// Fills in what was typed before, and says why it was refused.
  void correct(const QStringList& values, const QString& why);

 Q_SIGNALS:
  void filled(const QStringList& values);

 private:
  QWidget* makeField(const ActionField& field, const FieldContent& content);
  QWidget* makeFileField(const ActionField& field, QLineEdit* edit);
  void browseFor(ActionField::Kind kind, QLineEdit& edit);
  QWidget* makeChoice(const ActionField& field, const FieldContent& content);
  void check();
  [[nodiscard]] QStringList values() const;

  std::vector<QWidget*> inputs_;
  QDialogButtonBox* buttons_;
};

/// One deletion in the project's trash.
struct TrashRow {
  QString key;  ///< by which commands name this deletion
  QString name;
  QString kind;  ///< "edit", "bin"
  QString owner;
  QDateTime deleted;  ///< local
  QString by;
  qint64 size = 0;
  QString problem;  ///< why it cannot be read; empty when it can

  friend bool operator==(const TrashRow&, const TrashRow&) = default;
};

/// The open project's trash, the newest deletion first. A plain value, made on the host thread.
struct TrashContent {
  QString problem;  ///< why it cannot be listed; empty when it can
  std::vector<TrashRow> rows;
};
using TrashPtr = std::shared_ptr<const TrashContent>;

/// The open project's trash: what was deleted, whose it was, when and by whom; takes back what is
/// chosen, and empties it. What is chosen goes by the deletion, whatever comes or goes beside it.
class TrashDialog : public QDialog {
  Q_OBJECT

 public:
  explicit TrashDialog(QWidget* parent);

  void take(const TrashPtr& trash);

  /// The keys of the rows that are chosen.
  [[nodiscard]] QStringList chosen() const;
  [[nodiscard]] QTreeWidget& list() const { return *list_; }
  [[nodiscard]] const std::vector<TrashRow>& rows() const { return rows_; }

 Q_SIGNALS:
  void restoreWanted(const QStringList& keys);
  void emptyWanted(std::size_t count);

 private:
  void fill();
  void enable();

  QTreeWidget* list_;
  QLabel* hint_;
  QPushButton* restore_;
  QPushButton* empty_;
  std::vector<TrashRow> rows_;
  bool isFilled_ = false;  ///< rows were shown since it opened
};

/// Asks where a clip is to begin and end in its material: in, out and length, prefilled, as
/// timecode, frames or seconds. Each follows the others, and what is wrong with one is said below
/// it while it is typed. Does not stand in the way of the window; filled() comes once, if at all.
class TrimDialog : public QDialog {
  Q_OBJECT

 public:
  /// Offers the clips of the timeline that can be trimmed; the one at `path` first, if it is one.
  TrimDialog(const TimelinePtr& timeline, const QString& path, QWidget* parent);
  ~TrimDialog() override;

  /// Fills in what was typed before, and says why it was refused.
  void correct(const ClipTrim& trim, const QString& why);

 Q_SIGNALS:
  void filled(const ClipTrim& trim);

 private:
  enum Field { eIn, eOut, eLength };

  /// A time that is typed, and what is wrong with it.
  struct Input {
    QLineEdit* text = nullptr;
    QLabel* problem = nullptr;
    bool isTime = true;
  };

  void addInput(QFormLayout& form, Field field, const QString& label);
  void chooseClip(int index);
  void take(Field field);
  void showTimes(std::optional<Field> butFor = std::nullopt);
  void say(Field field, const QString& problem);
  void allow();
  [[nodiscard]] long frameOf(Field field) const;
  [[nodiscard]] long firstOf(Field field) const;
  [[nodiscard]] QString problemOf(Field field) const;

  TimelinePtr timeline_;
  std::optional<ClipTrim> trim_;
  std::array<Input, 3> inputs_;
  QComboBox* clips_;
  QLabel* material_;
  QLabel* reason_;
  QDialogButtonBox* buttons_;
};

}  // namespace korvel

Q_DECLARE_METATYPE(korvel::TrashPtr)
