#pragma once

#include <QDateTime>
#include <QMetaType>
#include <QWidget>
#include <memory>
#include <optional>
#include <vector>

#include "app/window/Snapshot.h"
#include "app/window/Timeline.h"

class QLabel;
class QPlainTextEdit;
class QPushButton;
class QTreeWidget;

namespace korvel {

/// A kept version of an edit.
struct VersionRow {
  QString version;  ///< by which commands name it
  QDateTime time;   ///< local; invalid where nothing tells it
  QString user;
  qint64 size = 0;  ///< in bytes
  QString changes;  ///< what became of the version before it
  QString problem;  ///< why it cannot be read; empty when it can
  bool isNow = false;

  friend bool operator==(const VersionRow&, const VersionRow&) = default;
};

/// All versions of one edit, the newest first. A plain value, made on the host thread.
struct EditVersions {
  QString cookie;
  QString problem;  ///< why they cannot be listed; empty when they can
  std::vector<VersionRow> rows;
};
using VersionsPtr = std::shared_ptr<const EditVersions>;

/// The versions of the chosen edit, and what became of the chosen one since. Asks for them only
/// while it is on the screen. A choice goes by the version, whatever comes or goes beside it.
class HistoryPane : public QWidget {
  Q_OBJECT

 public:
  explicit HistoryPane(QWidget* parent = nullptr);

  /// Another edit is chosen, or the same one is as this now; nothing for none.
  void showEdit(const std::optional<ObjectRow>& row);

  /// Why nothing of the edit may be restored; empty where it may.
  void setRefusal(const QString& why);

  /// The edit may have another version by now.
  void refresh();

  /// The versions arrived; those of another edit than the chosen one are left aside.
  void takeVersions(const VersionsPtr& versions);

  /// The drawing of a version arrived, with what became of it.
  void takeTimeline(const TimelinePtr& timeline);

  /// No version is chosen any more.
  void showNow();

  [[nodiscard]] std::optional<VersionRow> chosen() const;
  [[nodiscard]] const std::vector<VersionRow>& rows() const { return rows_; }
  [[nodiscard]] QTreeWidget& list() const { return *list_; }
  [[nodiscard]] QPushButton& restoreButton() const { return *restore_; }
  [[nodiscard]] QPlainTextEdit& changes() const { return *changes_; }

 Q_SIGNALS:
  /// The versions of this edit are to be listed.
  void versionsWanted(const QString& cookie);

  /// This version is to be drawn; nothing for the edit as it is now.
  void versionChosen(const std::optional<VersionRow>& version);

  /// This version is to be saved as the newest of the edit.
  void restoreWanted(const ObjectRow& edit, const VersionRow& version);

 private:
  void build();
  void fill();
  void takeChoice();
  void showHint();
  void showEvent(QShowEvent* event) override;
  void hideEvent(QHideEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;

  QLabel* title_;
  QLabel* hint_;
  QTreeWidget* list_;
  QPlainTextEdit* changes_;
  QPushButton* restore_;
  ObjectRow edit_;
  QString refusal_;
  QString problem_;
  std::vector<VersionRow> rows_;
  QString chosen_;  ///< the version; empty for none
  bool isFilling_ = false;
};

/// "12:04, ANNA": a version as titles and messages call it.
QString versionTitle(const VersionRow& version);

}  // namespace korvel

Q_DECLARE_METATYPE(korvel::VersionsPtr)
