#pragma once

#include <QObject>
#include <QPointer>
#include <functional>
#include <vector>

#include "app/window/HostLink.h"

class QWidget;

namespace korvel {

class Question;

/// Stands before everything that would drop unsaved changes: leaving a project, entering another,
/// closing the window.
class UnsavedGuard : public QObject {
  Q_OBJECT

 public:
  /// Both must outlive it.
  UnsavedGuard(QWidget& window, HostLink& link) : window_(window), link_(link) {}

  /// Asks the station what is not saved, and the user what to do with it. `go` follows when nothing
  /// is unsaved any more, or when it may be dropped; `stay` when the user stays or a save failed.
  void before(const QString& what, const std::function<void()>& go,
              const std::function<void()>& stay);

 private:
  void ask(const QString& what, const std::vector<UnsavedEdit>& unsaved,
           const std::function<void()>& go, const std::function<void()>& stay);
  [[nodiscard]] QStringList discardLines(const std::vector<UnsavedEdit>& unsaved) const;

  QWidget& window_;
  HostLink& link_;
  QPointer<Question> asked_;
};

}  // namespace korvel
