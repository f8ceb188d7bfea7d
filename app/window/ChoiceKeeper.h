#pragma once

#include <QObject>
#include <QSet>
#include <QString>

class QSortFilterProxyModel;
class QTreeView;

namespace korvel {

class ObjectsModel;

/// Keeps what is chosen in a list, and where the list stands, when so much changed at once that its
/// model begins anew. Goes by the objects' keys.
class ChoiceKeeper : public QObject {
  Q_OBJECT

 public:
  /// `view` shows `proxy`, which shows `model`; all must outlive it.
  ChoiceKeeper(const ObjectsModel& model, QSortFilterProxyModel& proxy, QTreeView& view,
               QObject* parent);

 private:
  void remember();
  void restore();
  [[nodiscard]] QString keyAt(int proxyRow) const;

  const ObjectsModel& model_;
  QSortFilterProxyModel& proxy_;
  QTreeView& view_;
  QSet<QString> chosen_;
  QString current_;
  QString top_;  ///< the first row in sight; empty at the list's beginning
};

}  // namespace korvel
