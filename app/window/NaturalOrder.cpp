#include "app/window/NaturalOrder.h"

namespace korvel {

// The locale "C" knows no numbers within words.
QCollator naturalOrder() {
  const QLocale here;
  QCollator order(here.language() == QLocale::C ? QLocale(QLocale::English) : here);
  order.setNumericMode(true);
  order.setCaseSensitivity(Qt::CaseInsensitive);
  return order;
}

NaturalOrderProxy::NaturalOrderProxy(QObject* parent)
    : QSortFilterProxyModel(parent), order_(naturalOrder()) {}

bool NaturalOrderProxy::lessThan(const QModelIndex& left, const QModelIndex& right) const {
  return order_.compare(left.data(sortRole()).toString(), right.data(sortRole()).toString()) < 0;
}

}  // namespace korvel
