#pragma once

#include <QCollator>
#include <QSortFilterProxyModel>

namespace korvel {

/// Compares names as people do: "Edit 2" is before "Edit 10", capital letters do not matter.
QCollator naturalOrder();

/// A list in the natural order of its sort role's texts.
class NaturalOrderProxy : public QSortFilterProxyModel {
 public:
  explicit NaturalOrderProxy(QObject* parent = nullptr);

 protected:
  [[nodiscard]] bool lessThan(const QModelIndex& left, const QModelIndex& right) const override;

 private:
  QCollator order_;
};

}  // namespace korvel
