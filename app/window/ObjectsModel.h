#pragma once

#include <QAbstractTableModel>
#include <QHash>
#include <QSet>
#include <QTimer>
#include <optional>
#include <string>

#include "app/window/NewsBook.h"
#include "app/window/PeoplePane.h"
#include "app/window/Snapshot.h"
#include "station/Station.h"
#include "station/base/Json.h"

namespace korvel {

// The rows of the window's lists, made from what the station tells of its objects. Host thread.

/// The row of an edit or log from its line in the station's list; without a cookie for null.
ObjectRow editRow(const JsonValue& line);

/// The rows of all bins, racks, filters or media files, in any order.
ObjectRows rowsOf(Station& station, ObjectKind kind);

/// "bin", "rack", "filter", "media": how events and commands call a kind; "edit" for edits.
std::string familyOf(ObjectKind kind);

void sortByKey(ObjectRows& rows);

/// Replaces a row, adds it, or takes it out when `row` has no cookie; the order by key stays.
void putRow(ObjectRows& rows, const QString& key, ObjectRow row);

/// What an object is called: with the beginning of its cookie where another has the same name, and
/// with the cookie alone where it has none.
QString shownName(const ObjectRow& row);

/// One kind of a project's objects as a table. A new set of rows is taken over row by row, so that
/// what is chosen, and where the list stands, stays. Whether the user may change an edit is asked
/// for only once its row is shown.
class ObjectsModel : public QAbstractTableModel {
  Q_OBJECT

 public:
  enum Column {
    eName,
    eOwner,
    eMay,
    eState,
    eDetail,
    eExtra,
    eNews,
    eModified,
    eSavedBy,
    eLength,
    eSource
  };
  enum Role { eSortRole = Qt::UserRole, eCookieRole };

  /// The book of news must outlive it, and is told the rows that come.
  ObjectsModel(ObjectKind kind, NewsBook& news, QObject* parent = nullptr);

  void setRows(const Shared<ObjectRows>& rows);

  /// Forgets permissions: another project is open.
  void startAfresh();

  void takeAnswers(const QHash<QString, bool>& answers);

  /// Who has which edit open elsewhere, by cookie.
  void setPeople(const QHash<QString, Badges>& people);

  /// Whether the user may change an edit, as far as it is known.
  [[nodiscard]] std::optional<bool> mayChange(const QString& cookie) const;

  /// The user looked at an object: what was new of it is so no longer.
  void markSeen(int row);
  void markAllSeen();
  [[nodiscard]] bool hasNews(int row) const;
  [[nodiscard]] int newsCount() const;

  [[nodiscard]] const ObjectRow& at(int row) const {
    return (*rows_)[static_cast<std::size_t>(row)];
  }
  [[nodiscard]] const ObjectRows& rows() const { return *rows_; }
  [[nodiscard]] int rowOf(const QString& key) const;
  [[nodiscard]] ObjectKind kind() const { return kind_; }
  [[nodiscard]] static QString titleOf(ObjectKind kind);  ///< "Edits and logs"
  [[nodiscard]] QString title() const { return titleOf(kind_); }
  [[nodiscard]] QString tabText() const;

  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

  // Objects are dragged by their cookies; bins and racks take what is dropped on them.

  [[nodiscard]] Qt::ItemFlags flags(const QModelIndex& index) const override;
  [[nodiscard]] QStringList mimeTypes() const override;
  [[nodiscard]] QMimeData* mimeData(const QModelIndexList& indexes) const override;
  bool canDropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                       const QModelIndex& parent) const override;
  bool dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                    const QModelIndex& parent) override;
  [[nodiscard]] Qt::DropActions supportedDropActions() const override { return Qt::CopyAction; }
  [[nodiscard]] Column columnAt(int section) const { return columns_[section]; }

 Q_SIGNALS:
  /// Rows came into view whose permissions are not known yet.
  void mayWanted(const QStringList& cookies) const;

  /// Objects were dropped on a bin or rack of this list.
  void dropped(const QString& container, const QStringList& cookies);

 private:
  [[nodiscard]] QString newsOf(const ObjectRow& row,
                               QString (*inWords)(const NewsBook::Mark&)) const;
  [[nodiscard]] QString textOf(const ObjectRow& row, Column column) const;
  [[nodiscard]] QVariant iconOf(const ObjectRow& row, Column column) const;
  [[nodiscard]] QVariant colourOf(const ObjectRow& row, Column column) const;
  [[nodiscard]] QString toolTipOf(const ObjectRow& row) const;
  [[nodiscard]] QVariant peopleAt(const ObjectRow& row, int role) const;
  [[nodiscard]] QString headerText(Column column) const;
  [[nodiscard]] QString mayText(const ObjectRow& row) const;
  void forgetAnswers(const ObjectRows& before, const ObjectRows& now);
  void takeOverInPlace(const Shared<ObjectRows>& rows);
  void takeOverOneByOne(const ObjectRows& now);
  void tellChanged(int first, int last);
  void askSoon(const QString& cookie) const;

  ObjectKind kind_;
  QList<Column> columns_;
  Shared<ObjectRows> rows_ = std::make_shared<const ObjectRows>();
  NewsBook& news_;
  QHash<QString, bool> may_;       ///< by cookie
  QHash<QString, Badges> people_;  ///< by cookie
  mutable QSet<QString> asked_;
  mutable QStringList toAsk_;
  bool isAfresh_ = true;  ///< of the open project nothing was listed yet
  mutable QTimer askTimer_;
};

}  // namespace korvel
