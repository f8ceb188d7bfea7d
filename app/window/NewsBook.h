#pragma once

#include <QDateTime>
#include <QHash>
#include <QString>
#include <QThreadPool>
#include <optional>
#include <string>

#include "app/window/Snapshot.h"

namespace korvel {

/// What of the open project other stations made or changed and the user has not looked at since.
///
/// It outlives the project's being left and the program's end: what every object held when it was
/// last listed, and each mark, is kept in a file of this user's on this machine. So what colleagues
/// did while nobody was here is news as well. Another user, machine, or the first visit to a
/// project: then all is known already, and nothing is news. Window thread; the file is written by a
/// thread of its own.
class NewsBook {
 public:
  struct Mark {
    bool isNew = false;  ///< another made it; else changed it
    QString by;          ///< the user who did so last; empty where that is not known
    QDateTime at;        ///< local time; invalid where nothing tells it
    QString did{};       ///< what that was, "trimmed Clip-002"; empty where it is not known

    friend bool operator==(const Mark&, const Mark&) = default;
  };

  /// The folder of the files, UTF-8; is made when needed. Empty: nothing is kept.
  explicit NewsBook(std::string folder) : folder_(std::move(folder)) {
    writer_.setMaxThreadCount(1);
  }
  NewsBook(const NewsBook&) = delete;
  NewsBook& operator=(const NewsBook&) = delete;

  /// Keeps what is not kept yet, and waits until it is written.
  ~NewsBook() { save(); }

  /// Keeps the open project's news and takes up this one's, as this user. Without a project: none.
  void open(const QString& project, const QString& user);

  /// Takes in the objects of one kind as they are now.
  void take(ObjectKind kind, const ObjectRows& rows);

  [[nodiscard]] std::optional<Mark> mark(const QString& key) const;
  [[nodiscard]] bool has(const QString& key) const { return marks_.contains(key); }

  /// The user looked at an object, or wants no news of it.
  void forget(const QString& key);

  /// Whether something changed since it was last written.
  [[nodiscard]] bool hasChanged() const { return isChanged_; }

  /// Writes what changed since it was last written; on another thread.
  void save();

 private:
  /// What is known of an object that has no news, or whose news is marked.
  struct Known {
    unsigned changes = 0;  ///< how many changes by others were taken in, of this visit
    quint64 content = 0;
    ObjectKind kind = ObjectKind::eEdits;
    bool isDeleted = false;
  };

  void takeOne(ObjectKind kind, const ObjectRow& row, bool isFirstLook);
  void learnDeed(const ObjectRow& row);
  void forgetGone(ObjectKind kind, const ObjectRows& rows);
  [[nodiscard]] std::string file() const;
  [[nodiscard]] std::string text() const;
  bool read(const std::string& text);

  std::string folder_;
  QString project_;
  QString user_;
  bool wasHere_ = false;  ///< the project was visited before, so what is unknown is new
  std::array<bool, kObjectKinds> isListed_{};
  QHash<QString, Known> known_;
  QHash<QString, Mark> marks_;
  bool isChanged_ = false;
  QThreadPool writer_;
};

/// "new by ANNA, 12:04", "ANNA trimmed Clip-002, 12:04", "changed by ANNA, 21 Nov 12:04", "changed
/// elsewhere".
QString newsText(const NewsBook::Mark& mark);

/// The same with the whole day where that is not today: "changed by ANNA, 21 November 2026 12:04".
QString newsInFull(const NewsBook::Mark& mark);

}  // namespace korvel
