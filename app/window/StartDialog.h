#pragma once

#include <QDialog>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <vector>

#include "app/base/Options.h"

class QCheckBox;
class QDialogButtonBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QProcess;

namespace korvel {

/// What is amiss with a projects directory or a name, or nothing.
struct DoctorLine {
  QString group;  ///< "share", "network", "station"
  QString text;   ///< what it is, and what to do about it
  bool isFailure = false;
};

/// Has kv-share's doctor look at a projects directory for a user. It runs in a process of its own:
/// the window never waits for the share. Looks once nothing was asked for a moment, one look at a
/// time.
class DoctorLook : public QObject {
  Q_OBJECT

 public:
  /// With the options that the station would have.
  explicit DoctorLook(const Options& options, QObject* parent);
  ~DoctorLook() override;

  /// Asks for a look; one that is under way for other values is not told any more.
  void ask(const QString& folder, const QString& user);

  /// Nothing is to be looked at: what was asked for is not told any more.
  void forget();

 Q_SIGNALS:
  /// `problem` is why there was no look; empty where there was.
  void told(const std::vector<DoctorLine>& lines, const QString& problem);

 private:
  void start();
  void end();

  const Options& options_;
  QTimer pause_;
  QProcess* process_ = nullptr;  ///< null while none runs
  QStringList wanted_;           ///< what is to be looked at: folder and user
  QStringList running_;          ///< the same of the look that is under way
};

/// Asks on the first start for the projects directory and the user's name, and says of both what
/// doctor says. What is filled in goes into the options; and, where it is to be remembered, into
/// the configuration file.
class StartDialog : public QDialog {
  Q_OBJECT

 public:
  /// `problem` is what was wrong at the start before; empty for none. The options must outlive it.
  StartDialog(Options& options, const QString& problem);

 private:
  QLabel* addSaying(QFormLayout& form, const char* name);
  void browse();
  void check();
  void takeLook(const std::vector<DoctorLine>& lines, const QString& problem);
  void tell(const QString& problem);
  void start();
  [[nodiscard]] QString folder() const;
  [[nodiscard]] QString whyNotName() const;

  Options& options_;
  QLabel* problem_;
  QLineEdit* folder_;
  QLabel* folderSaying_ = nullptr;
  QLineEdit* user_;
  QLabel* userSaying_ = nullptr;
  QCheckBox* remember_;
  QDialogButtonBox* buttons_;
  DoctorLook look_;
};

}  // namespace korvel
