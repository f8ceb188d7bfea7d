#pragma once

#include <QObject>
#include <QPointer>
#include <functional>
#include <optional>

#include "app/window/ActionTable.h"
#include "app/window/Dialogs.h"
#include "app/window/HostLink.h"
#include "app/window/UnsavedGuard.h"
#include "app/window/WindowLayout.h"

namespace korvel {

class ActionDialog;
class Question;
class TrimDialog;

/// Takes files into the open project, one after another: one that cannot be imported does not keep
/// the others from it. Says how far it is, and at the end what became of them.
class FileImports : public QObject {
  Q_OBJECT

 public:
  /// Runs the line that imports one file. `then` follows in any case, with the outcome of no line
  /// where the file was left out.
  using Import =
      std::function<void(const QString& line, const HostLink::Ended& then, const QString& file)>;

  explicit FileImports(Import import) : import_(std::move(import)) {}

  /// The project that is open now; what waits for another is left out.
  void takeProject(const QString& cookie) { project_ = cookie; }

  /// These come after those that wait.
  void add(const QStringList& files);

 Q_SIGNALS:
  void told(const QString& what);
  void ended(const QString& what);

 private:
  void next();
  void take(const QString& file, const CommandOutcome& outcome);
  void leaveOthersOut();

  Import import_;
  QString project_;
  QString wanted_;  ///< the project that the files are for
  QStringList waiting_;
  QStringList notImported_;  ///< each with why
  int imported_ = 0;
  int inAll_ = 0;  ///< 0 while nothing is imported
};

/// Does what the menus, the keys and the lists ask for, with what is chosen: asks for what an
/// action needs and before what cannot simply be taken back, and runs the line.
class ActionRunner : public QObject {
  Q_OBJECT

 public:
  /// All must outlive it.
  ActionRunner(QWidget& window, HostLink& link, const WindowPanes& panes);

  /// The snapshot that selections and fields refer to from now on.
  void takeSnapshot(const SnapshotPtr& snapshot);
  void takeUser(const QString& user) { user_ = user; }

  /// What must be done before there is something of this kind to act on, as a sentence; empty where
  /// there is.
  [[nodiscard]] QString whatLacks(Target target) const;

  /// Why an action cannot be done now, as a sentence; empty where it can, or where only trying
  /// tells.
  [[nodiscard]] QString whyNot(const ActionSpec& action) const;

  /// "\"Quay\" belongs to DORA.": why this user may not change an edit.
  [[nodiscard]] static QString ownerText(const ObjectRow& row);

  /// The same of taking back a version of the chosen edit.
  [[nodiscard]] QString whyNotRestore() const;

  /// The same of trimming a clip of the timeline that is shown.
  [[nodiscard]] QString whyNotTrim() const;

  void run(const ActionSpec& action);

  /// Asks for a few words, and with them the holder of an edit, room or project.
  void askWithWords(const QString& object, Target target);

  /// Trims a clip of the chosen edit, whose timeline is shown.
  void trim(const ClipTrim& trim);

  /// Runs a line of the console; one that would leave a project asks about unsaved changes first.
  /// `then` is told how it ended, once it was run.
  void runLine(const QString& line, const HostLink::Ended& then = {});

  /// Opens what is activated, as Return and a double click do: an edit itself, of a bin or rack
  /// what is in it, of a filter what it finds.
  void open(const ObjectRow& row);

  /// Takes files into the project, one after another: says how far it is, and at the end what
  /// became of them.
  void importFiles(const QStringList& files);

  /// Puts objects into a bin or rack.
  void putInto(ObjectKind kind, const QString& container, const QStringList& cookies);

  /// Makes a version the newest of an edit; asks about unsaved changes first.
  void restore(const ObjectRow& edit, const VersionRow& version);

  /// Shows the open project's trash.
  void showTrash();

  /// Whether a command was refused because it would replace a file: then takeOutcome() asks.
  [[nodiscard]] static bool wouldReplace(const CommandOutcome& outcome);

  /// Every command that ended, to ask whether an export may replace a file.
  void takeOutcome(const CommandOutcome& outcome);

  [[nodiscard]] UnsavedGuard& guard() { return guard_; }

 Q_SIGNALS:
  /// Something was done that can be taken back, or might have been: `undoLines` do, none where it
  /// cannot be.
  void done(const QString& what, const QStringList& undoLines);

  /// Something to be told while several things are done, or why they are not.
  void told(const QString& what);

 private:
  [[nodiscard]] bool isThere(Target target) const { return whatLacks(target).isEmpty(); }
  [[nodiscard]] QString whyNotPlace(const QString& line) const;
  [[nodiscard]] QString whyNotAsk(Target target) const;
  [[nodiscard]] QString whyNotAskForEdit() const;
  [[nodiscard]] QString whyNotObject(const QString& line) const;
  [[nodiscard]] QString whyNotChange(const QString& line, const ObjectRow& row) const;
  [[nodiscard]] QStringList targetWords(Target target) const;
  [[nodiscard]] FieldContent fieldContent(const ActionField& field) const;
  void fillChoices(FieldContent& content, const ActionField& field) const;
  [[nodiscard]] QString whyNotTrim(const QString& line) const;
  TrimDialog* askTrim(const TimelinePtr& timeline, const QString& path);
  void askFields(const ActionSpec& action);
  ActionDialog* askFields(const ActionSpec& action, const QStringList& words);
  void askAgain(const ActionSpec& action, const QStringList& words, const QStringList& values,
                const CommandOutcome& outcome);
  void askBeforeDeleting(const ActionSpec& action);
  void nameOpeners(const QPointer<Question>& question, const std::vector<ObjectRow>& rows);
  void askBeforeEmptying(std::size_t count);
  void remove(const ActionSpec& action, const std::vector<ObjectRow>& rows);
  void give(const ActionSpec& action, const QStringList& words, const QStringList& values);
  [[nodiscard]] QString doubtAbout(const QString& user) const;
  void runDoubtful(const QString& line, const HostLink::Ended& then = {}, const QString& file = {});
  [[nodiscard]] QString copyName(const QString& name) const;
  [[nodiscard]] bool takesOption(const char* command, const char* option) const;
  [[nodiscard]] bool leavesProject(const QString& line) const;

  QWidget& window_;
  HostLink& link_;
  const WindowPanes& panes_;
  UnsavedGuard guard_;
  SnapshotPtr snapshot_;
  QPointer<TrashDialog> trash_;
  FileImports imports_;
  QString user_;  ///< who this station's user is
};

}  // namespace korvel
