#pragma once

#include <QObject>
#include <QPointer>
#include <QSet>
#include <functional>
#include <optional>
#include <vector>

#include "app/window/HostLink.h"

class QWidget;

namespace korvel {

class MessageBar;
class Question;

/// Sees to it that no unsaved change goes without a word: stands before everything that would drop
/// some (leaving a project, entering another, closing the window), asks where a save was refused
/// since another saved meanwhile, and offers what an earlier run left and
/// what another deleted while it was open here.
class UnsavedGuard : public QObject {
  Q_OBJECT

 public:
  /// All must outlive it. `bar` is for what an earlier run left, alone.
  UnsavedGuard(QWidget& window, HostLink& link, MessageBar& bar);

  /// Asks the station what is not saved, and the user what to do with it. `go` follows when nothing
  /// is unsaved any more, or when it may be dropped; `stay` when the user stays or a save failed.
  /// `goWithout`, where there is one, follows instead of dropping the changes and `go`.
  void before(const QString& what, const std::function<void()>& go,
              const std::function<void()>& stay, const std::function<void()>& goWithout = {});

  /// Whether a save was refused since another saved in between: that is asked about.
  static bool isConflict(const CommandOutcome& outcome);

  void takeOutcome(const CommandOutcome& outcome);
  void takeSnapshot(const SnapshotPtr& snapshot);
  void takeUser(const QString& user) { user_ = user; }

 Q_SIGNALS:
  /// The user is asked what to do with what is not saved.
  void asking();

  /// A save was refused and nothing more can be told of it than this.
  void refused(const QString& why);

 private:
  void ask(const QString& what, const std::vector<UnsavedEdit>& unsaved,
           const std::function<void()>& go, const std::function<void()>& stay,
           const std::function<void()>& goWithout);
  [[nodiscard]] QString called(const QString& cookie, const QString& name) const;
  [[nodiscard]] QString titleOf(const LeftEdit& left) const;
  [[nodiscard]] QString textOf(const std::vector<LeftEdit>& left) const;
  [[nodiscard]] std::optional<UnsavedEdit> editOf(const QString& line) const;
  void askAboutConflict(const UnsavedEdit& edit, const OtherSave& other);
  void offer(const QString& text, const QStringList& actions,
             std::vector<std::function<void()>> offered);
  void askForCopy(const UnsavedEdit& edit, const QString& name, const QStringList& after);
  void tellOfDeletions();
  void offerLeft();
  void takeUpLeft();
  void askBeforeThrowingAway();

  QWidget& window_;
  HostLink& link_;
  MessageBar& bar_;
  QPointer<Question> asked_;
  QPointer<Question> conflict_;
  SnapshotPtr snapshot_;
  QString user_;
  QSet<QString> deleted_;  ///< edits of which it was told that another deleted them
  QString told_;           ///< the one of them that the bar speaks of; empty for none
  std::vector<std::function<void()>> offered_;  ///< what the bar's buttons do
  Shared<std::vector<LeftEdit>> left_;          ///< as it was offered last
};

}  // namespace korvel
