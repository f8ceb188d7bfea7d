#pragma once

#include <QDateTime>
#include <QDialog>
#include <QMetaType>
#include <QStringList>
#include <memory>
#include <vector>

class QLabel;
class QPushButton;
class QTreeWidget;

namespace korvel {

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

}  // namespace korvel

Q_DECLARE_METATYPE(korvel::TrashPtr)
