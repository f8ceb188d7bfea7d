#pragma once

#include <QWidget>
#include <optional>

#include "app/window/MessageBar.h"
#include "app/window/Snapshot.h"
#include "app/window/TimelineView.h"

class QLabel;
class QPlainTextEdit;
class QStackedWidget;

namespace korvel {

/// Shows the chosen object: the timeline of an edit or log, in words what anything else holds. What
/// another station changes meanwhile is told, and shown when the user asks for it.
class DetailPane : public QWidget {
  Q_OBJECT

 public:
  explicit DetailPane(QWidget* parent = nullptr);

  /// Another object is chosen; none with nothing.
  void choose(const std::optional<ObjectRow>& row, ObjectKind kind, const QString& contents);

  /// The chosen object as it is now, and what it holds in words.
  void update(const ObjectRow& row, const QString& contents);

  /// This version of the chosen edit is to be drawn, under this title; with nothing the edit as it
  /// is now.
  void showVersion(const QString& version, const QString& title);

  /// A timeline arrived; one of another edit than the chosen one is left aside.
  void takeTimeline(const TimelinePtr& timeline);

  [[nodiscard]] TimelineView& view() const { return *view_; }
  [[nodiscard]] MessageBar& changeBar() const { return *change_; }

  /// Says whose unsaved changes are missing in what is drawn, for as long as they are.
  [[nodiscard]] MessageBar& missingBar() const { return *missing_; }
  [[nodiscard]] const QString& key() const { return row_.key; }

  /// Whether what others change of the chosen edit is drawn as it comes.
  [[nodiscard]] bool isFollowing() const {
    return !followed_.isEmpty() && followed_ == row_.cookie;
  }

  /// Begins and ends that; one edit is followed at a time. It ends by itself when the user changes
  /// the edit or closes it. The keyboard, and what is chosen, stay where they are.
  void follow();
  void unfollow();

  /// Why the chosen edit cannot be followed, as a sentence; empty where it can.
  [[nodiscard]] QString whyNotFollow() const;

  /// Whether the edit is drawn as it was before another station changed it: what a clip's place
  /// means there may be another clip by now.
  [[nodiscard]] bool isOutdated() const { return isOutdated_; }

 Q_SIGNALS:
  /// The timeline of this edit is to be drawn up, as it is now or (with a version) as it was.
  void timelineWanted(const QString& cookie, const QString& version);

  /// Another edit is chosen, or is followed or not, or can be.
  void followingChanged();

  /// An edit that is followed has to be open, so that announced changes come.
  void openWanted(const QString& cookie);

  /// The user has seen what another station changed.
  void seen(const QString& key);

 private:
  void showHeading();
  void showChange();
  void showMissing();
  void tellChange();
  [[nodiscard]] QString changeText() const;
  void showFollowed();
  [[nodiscard]] bool isDeedShown() const;
  [[nodiscard]] bool isDrawnAlready() const;
  void checkFollowing();
  [[nodiscard]] bool canShowNow() const;

  QLabel* heading_;
  QLabel* facts_;
  MessageBar* change_;
  MessageBar* missing_;
  QStackedWidget* stack_;
  TimelineView* view_;
  QPlainTextEdit* words_;
  ObjectRow row_;
  ObjectRow before_;  ///< the row until the last update
  QString missingText_;
  QString followed_;      ///< its cookie
  bool wasOpen_ = false;  ///< the followed one
  QString contents_;      ///< as shown in words
  QString version_;       ///< which one is drawn; empty for the edit as it is now
  QString versionTitle_;
  ObjectKind kind_ = ObjectKind::eEdits;
  unsigned shownChanges_ = 0;
  quint64 shownContent_ = 0;  ///< of what is drawn
  bool wasDeleted_ = false;
  bool isOutdated_ = false;
};

}  // namespace korvel
