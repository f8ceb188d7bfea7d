#include <QFileInfo>
#include <utility>

#include "app/commands/Command.h"
#include "app/window/ActionRunner.h"
#include "app/window/Texts.h"

namespace korvel {

void FileImports::add(const QStringList& files) {
  waiting_ += files;
  const bool isUnderWay = inAll_ > 0;
  inAll_ += static_cast<int>(files.size());
  if (isUnderWay) return;
  wanted_ = project_;
  next();
}

void FileImports::next() {
  if (project_ != wanted_) leaveOthersOut();
  if (waiting_.isEmpty()) {
    inAll_ = 0;
    const QString text = tr("%Ln edits are imported.", nullptr, std::exchange(imported_, 0));
    // A line for each that is not, so that they can be told apart.
    Q_EMIT ended((QStringList(text) + std::exchange(notImported_, {})).join(QLatin1Char('\n')));
    return;
  }
  const QString path = waiting_.takeFirst();
  const QString file = oneLine(QFileInfo(path).fileName());
  if (inAll_ > 1) {
    Q_EMIT told(tr("Importing %L1 of %L2: %3")
                    .arg(inAll_ - static_cast<int>(waiting_.size()))
                    .arg(inAll_)
                    .arg(file));
  }
  import_(
      QStringLiteral("edit import ") + quoted(path),
      [this, file](const CommandOutcome& outcome) { take(file, outcome); }, file);
}

void FileImports::take(const QString& file, const CommandOutcome& outcome) {
  const bool isLeftOut = outcome.line.isEmpty();
  if (outcome.succeeded) {
    ++imported_;
  } else {
    notImported_ << (isLeftOut ? tr("%1 was left out.").arg(file) : outcome.text);
  }
  next();
}

void FileImports::leaveOthersOut() {
  for (const QString& each : std::exchange(waiting_, {})) {
    notImported_
        << tr("%1 was left out: the project was left.").arg(oneLine(QFileInfo(each).fileName()));
  }
}

}  // namespace korvel
